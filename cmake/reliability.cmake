# What becomes of an application when the board fails it: see docs/reliability.md.
find_package(CLI11 REQUIRED)

set(reliability ${CMAKE_SOURCE_DIR}/tests/reliability)
add_library(tessaline_judge STATIC ${reliability}/Calls.cpp ${reliability}/Judge.cpp)
target_include_directories(tessaline_judge PUBLIC ${reliability})
target_link_libraries(tessaline_judge PUBLIC tessaline_options tessaline-board fmt::fmt)

add_executable(reliability_judge_test ${reliability}/judge_test.cpp)
target_link_libraries(reliability_judge_test PRIVATE tessaline_judge GTest::gtest_main)
gtest_discover_tests(reliability_judge_test TEST_PREFIX "reliability/"
  PROPERTIES LABELS reliability TIMEOUT 60)

add_executable(fault_matrix ${reliability}/fault_matrix.cpp ${reliability}/FaultRun.cpp
  ${reliability}/Tour.cpp)
target_link_libraries(fault_matrix PRIVATE tessaline_judge tessaline CLI11::CLI11)

if(TESSALINE_SANITIZED)
  message(STATUS "No fault matrix among the tests: its processes are forked, and many, for a sanitizer")
else()
  # A sample, of other calls in each series; the whole is scripts/fault-matrix.
  add_test(NAME reliability/FaultMatrix.Sample COMMAND fault_matrix --every 127)
  set_tests_properties(reliability/FaultMatrix.Sample PROPERTIES
    LABELS reliability TIMEOUT 900)
endif()
