# Not part of the tests: nothing here asserts a time. `scripts/bench` runs both.
find_package(benchmark REQUIRED)

add_executable(bench_hot_paths ${CMAKE_SOURCE_DIR}/bench/hot_paths.cpp)
target_link_libraries(bench_hot_paths PRIVATE tessaline_objects tessaline-board benchmark::benchmark)

add_executable(bench_delivery ${CMAKE_SOURCE_DIR}/bench/delivery.cpp)
target_link_libraries(bench_delivery PRIVATE tessaline_options tessaline tessaline-board ${CMAKE_DL_LIBS})
target_include_directories(bench_delivery PRIVATE ${CMAKE_SOURCE_DIR}/tests)
