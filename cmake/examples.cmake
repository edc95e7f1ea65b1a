# Small complete programs, written as a user would, against the public headers.
find_package(PNG REQUIRED)
find_package(CLI11 REQUIRED)

add_executable(scan_demo ${CMAKE_SOURCE_DIR}/examples/scan_demo.cpp)
target_link_libraries(scan_demo PRIVATE tessaline_options tessaline PNG::PNG CLI11::CLI11)

add_executable(strips ${CMAKE_SOURCE_DIR}/examples/strips.c)
add_executable(images ${CMAKE_SOURCE_DIR}/examples/images.cpp)
foreach(example strips images)
  target_link_libraries(${example} PRIVATE tessaline_options tessaline)
  set_target_properties(${example} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/examples C_EXTENSIONS ON)
endforeach()
