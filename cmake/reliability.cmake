# Not part of the library: what becomes of it when the board fails it.
find_package(CLI11 REQUIRED)
find_package(fmt REQUIRED)

add_executable(fault_matrix
  ${CMAKE_SOURCE_DIR}/tests/reliability/fault_matrix.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/Calls.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/FaultRun.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/Judge.cpp
  ${CMAKE_SOURCE_DIR}/tests/reliability/Tour.cpp)
target_link_libraries(fault_matrix PRIVATE tessaline_options tessaline tessaline-board CLI11::CLI11 fmt::fmt)
