find_package(GTest REQUIRED)
include(GoogleTest)

# One program a source file. A program linked with the whole library as objects
# can reach its inner classes; the object code is that of libtessaline.so.
function(tessaline_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tessaline_options GTest::gmock GTest::gtest_main)
endfunction()

tessaline_test(log_test tests/log/log_test.cpp)
target_link_libraries(log_test PRIVATE tessaline)
gtest_discover_tests(log_test)
