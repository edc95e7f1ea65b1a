# What runs in the guest of scripts/kernel-board, on a real kernel. Built when asked
# for, and only for the processor of that guest.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  return()
endif()

set(kernel_checks_support ${CMAKE_SOURCE_DIR}/tests/kernel/support)
file(GLOB support_sources CONFIGURE_DEPENDS ${kernel_checks_support}/*.cpp)
add_library(kernel_checks_support OBJECT EXCLUDE_FROM_ALL ${support_sources})
target_include_directories(kernel_checks_support PUBLIC ${CMAKE_SOURCE_DIR}/tests/kernel
  ${CMAKE_SOURCE_DIR}/include)
target_link_libraries(kernel_checks_support PUBLIC tessaline_options GTest::gmock)
# The checks' own code need not be fast; the library's file is the one that is shipped.
set_target_properties(kernel_checks_support PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)

function(kernel_checks name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/kernel/${name}/*.cpp)
  add_executable(kernel_${name}_checks EXCLUDE_FROM_ALL ${sources})
  target_link_libraries(kernel_${name}_checks PRIVATE kernel_checks_support ${ARGN})
  set_target_properties(kernel_${name}_checks PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
endfunction()

# Through the exported interface, and of the inner classes, which no product uses all of.
kernel_checks(api tessaline)
target_include_directories(kernel_api_checks PRIVATE ${CMAKE_SOURCE_DIR}/tests)
kernel_checks(inner tessaline_objects)

add_executable(kernel_start EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/tests/kernel/start.cpp)
target_link_libraries(kernel_start PRIVATE tessaline_options tessaline)
add_executable(kernel_bite EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/tests/kernel/bite.cpp)
target_link_libraries(kernel_bite PRIVATE tessaline_objects)
set_target_properties(kernel_start kernel_bite PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)

# Writes down what the library asks of the kernel.
add_library(kernel_recorder SHARED EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/tests/kernel/recorder/recorder.cpp)
target_link_libraries(kernel_recorder PRIVATE tessaline_options ${CMAKE_DL_LIBS})
target_include_directories(kernel_recorder PRIVATE ${CMAKE_SOURCE_DIR}/include)
set_target_properties(kernel_recorder PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)

add_custom_target(kernel_board DEPENDS kernel_api_checks kernel_inner_checks kernel_bite
  kernel_start kernel_recorder scan_demo)
