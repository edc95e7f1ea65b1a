# Small complete programs, written as a user would, against the public headers.
find_package(PNG REQUIRED)
find_package(CLI11 REQUIRED)

add_executable(scan_demo ${CMAKE_SOURCE_DIR}/examples/scan_demo.cpp)
target_link_libraries(scan_demo PRIVATE tessaline_options tessaline PNG::PNG CLI11::CLI11)
