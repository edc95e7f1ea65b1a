find_package(GTest REQUIRED)
include(GoogleTest)

# The test framework's headers, compiled once for all test programs.
add_executable(tessaline_test_headers ${CMAKE_SOURCE_DIR}/tests/support/precompiled.cpp)
target_link_libraries(tessaline_test_headers PRIVATE tessaline_options GTest::gmock)
target_precompile_headers(tessaline_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

# One program a source file, named after folder and file; every test case runs in
# a process of its own, because the library's singletons live as long as one.
function(tessaline_test folder)
  cmake_parse_arguments(ARG "" "" "LIBRARIES" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${folder}/*_test.cpp)
  if(TESSALINE_SANITIZED)
    # It replaces the allocation functions, which are the sanitizers' own there.
    list(FILTER sources EXCLUDE REGEX "allocation_test")
  endif()
  foreach(source ${sources})
    cmake_path(GET source STEM stem)
    string(TOLOWER "${folder}_${stem}" name)
    add_executable(${name} ${source})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    target_precompile_headers(${name} REUSE_FROM tessaline_test_headers)
    target_link_libraries(${name} PRIVATE tessaline_options ${ARG_LIBRARIES}
      GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${name} TEST_PREFIX "${folder}/" DISCOVERY_TIMEOUT 60
      PROPERTIES LABELS ${folder} TIMEOUT 120)
  endforeach()
endfunction()

# Through the exported interface, as an application.
tessaline_test(log LIBRARIES tessaline)
tessaline_test(api LIBRARIES tessaline tessaline-board)

# A program linked with the library's objects reaches its inner classes; the
# object code is that of libtessaline.so.
tessaline_test(function LIBRARIES tessaline_objects tessaline-board)
tessaline_test(Devices LIBRARIES tessaline_objects tessaline-board)
tessaline_test(Runnable LIBRARIES tessaline_objects tessaline-board)
tessaline_test(SeriesLogic LIBRARIES tessaline_objects tessaline-board)

# The board by itself.
tessaline_test(board LIBRARIES tessaline-board)
