# What scripts/bench runs. The first program reaches inner classes, the second is an
# application of the shared library.
add_library(bench_table STATIC ${CMAKE_SOURCE_DIR}/bench/Table.cpp)
target_include_directories(bench_table PUBLIC ${CMAKE_SOURCE_DIR}/bench)
target_link_libraries(bench_table PUBLIC tessaline_options)

add_executable(bench_hot_paths ${CMAKE_SOURCE_DIR}/bench/hot_paths.cpp
  ${CMAKE_SOURCE_DIR}/bench/Reorder.cpp ${CMAKE_SOURCE_DIR}/bench/StripPass.cpp)
target_link_libraries(bench_hot_paths PRIVATE bench_table tessaline_objects tessaline-board)
