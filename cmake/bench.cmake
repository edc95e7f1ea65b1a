# What scripts/bench runs. The first program reaches inner classes, the second is an
# application of the shared library.
add_library(bench_table STATIC ${CMAKE_SOURCE_DIR}/bench/Growth.cpp
  ${CMAKE_SOURCE_DIR}/bench/Table.cpp)
target_include_directories(bench_table PUBLIC ${CMAKE_SOURCE_DIR}/bench)
target_link_libraries(bench_table PUBLIC tessaline_options)

add_executable(bench_hot_paths ${CMAKE_SOURCE_DIR}/bench/hot_paths.cpp
  ${CMAKE_SOURCE_DIR}/bench/Driver.cpp ${CMAKE_SOURCE_DIR}/bench/Reorder.cpp
  ${CMAKE_SOURCE_DIR}/bench/StripDevice.cpp ${CMAKE_SOURCE_DIR}/bench/StripPass.cpp
  ${CMAKE_SOURCE_DIR}/bench/Waiting.cpp)
target_link_libraries(bench_hot_paths PRIVATE bench_table tessaline_objects tessaline-board
  ${CMAKE_DL_LIBS})

set(stripped_library ${CMAKE_BINARY_DIR}/bench/libtessaline.so)
add_custom_command(OUTPUT ${stripped_library} DEPENDS tessaline
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bench
  COMMAND ${CMAKE_STRIP} -o ${stripped_library} $<TARGET_FILE:tessaline>)
add_custom_target(bench_stripped_library DEPENDS ${stripped_library})

add_executable(bench_application ${CMAKE_SOURCE_DIR}/bench/application.cpp
  ${CMAKE_SOURCE_DIR}/bench/Delivery.cpp ${CMAKE_SOURCE_DIR}/bench/Streaming.cpp
  ${CMAKE_SOURCE_DIR}/bench/Pauses.cpp ${CMAKE_SOURCE_DIR}/bench/Registers.cpp
  ${CMAKE_SOURCE_DIR}/bench/StartUp.cpp)
target_link_libraries(bench_application PRIVATE bench_table tessaline tessaline-board ${CMAKE_DL_LIBS})
target_include_directories(bench_application PRIVATE ${CMAKE_SOURCE_DIR}/src
  ${CMAKE_SOURCE_DIR}/tests)
target_compile_definitions(bench_application PRIVATE STRIPPED_LIBRARY="${stripped_library}")
add_dependencies(bench_application bench_stripped_library)

if(TESSALINE_TESTS)
  add_test(NAME bench/Table.HasEveryRow
    COMMAND ${CMAKE_SOURCE_DIR}/bench/check_table.sh
      $<TARGET_FILE:bench_hot_paths> $<TARGET_FILE:bench_application>)
  set_tests_properties(bench/Table.HasEveryRow PROPERTIES LABELS bench TIMEOUT 120)
endif()
