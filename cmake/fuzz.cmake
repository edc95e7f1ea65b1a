# One program a source file of fuzz/. Each runs over its corpus and then a few
# seconds at random as a test; `scripts/fuzz` runs them for longer.
enable_testing()
set(TESSALINE_FUZZ_SECONDS 5 CACHE STRING "What a fuzz target runs at random as a test, in seconds")

# The calls that the targets' devices answer; all others go to the C library.
set(fuzz_calls open close ioctl mmap munmap write poll clock_nanosleep exit)
list(TRANSFORM fuzz_calls PREPEND -Wl,--wrap= OUTPUT_VARIABLE fuzz_wraps)

add_library(fuzz_support OBJECT ${CMAKE_SOURCE_DIR}/fuzz/support/SystemCalls.cpp
  ${CMAKE_SOURCE_DIR}/fuzz/support/CaptureOutcome.cpp
  ${CMAKE_SOURCE_DIR}/fuzz/support/VideoDriver.cpp)
target_include_directories(fuzz_support PUBLIC ${CMAKE_SOURCE_DIR}/fuzz)
target_link_libraries(fuzz_support PUBLIC tessaline_options)

add_custom_target(fuzz_targets)
file(GLOB fuzz_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/fuzz/*_fuzz.cpp)
foreach(source ${fuzz_sources})
  cmake_path(GET source STEM target)
  string(REPLACE "_fuzz" "" name ${target})
  add_executable(${target} ${source})
  target_link_libraries(${target} PRIVATE tessaline_objects fuzz_support)
  target_link_options(${target} PRIVATE -fsanitize=fuzzer ${fuzz_wraps})
  add_dependencies(fuzz_targets ${target})

  set(corpus ${CMAKE_SOURCE_DIR}/fuzz/corpus/${name})
  set(findings ${CMAKE_BINARY_DIR}/findings/${name})
  file(MAKE_DIRECTORY ${findings})
  # New inputs go to the first folder; the corpus is only read.
  add_test(NAME fuzz/${name} COMMAND ${target} -max_total_time=${TESSALINE_FUZZ_SECONDS}
    -timeout=10 -max_len=1024 -print_final_stats=1 -artifact_prefix=${findings}/ ${findings} ${corpus})
  set_tests_properties(fuzz/${name} PROPERTIES LABELS fuzz TIMEOUT 300)
endforeach()
