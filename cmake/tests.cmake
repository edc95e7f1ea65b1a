find_package(GTest REQUIRED)
include(GoogleTest)

# The test framework's headers, compiled once for all test programs.
add_executable(tessaline_test_headers ${CMAKE_SOURCE_DIR}/tests/support/precompiled.cpp)
target_link_libraries(tessaline_test_headers PRIVATE tessaline_options GTest::gmock)
target_compile_options(tessaline_test_headers PRIVATE ${TESSALINE_QUICKEST_COMPILE})
target_precompile_headers(tessaline_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

set(TESSALINE_TEST_SUBJECTS
  log api function image Devices Runnable SeriesLogic board sensor_tables tools
  CACHE STRING "Folders of tests/ whose programs are built")

# Under the emulation of another processor everything takes longer.
set(test_seconds 120)
if(CMAKE_CROSSCOMPILING)
  set(test_seconds 600)
endif()

# One program a source file, named after folder and file; every test case runs in
# a process of its own, because the library's singletons live as long as one.
function(tessaline_test folder)
  if(NOT folder IN_LIST TESSALINE_TEST_SUBJECTS)
    return()
  endif()
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
    target_compile_options(${name} PRIVATE ${TESSALINE_QUICKEST_COMPILE})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    target_precompile_headers(${name} REUSE_FROM tessaline_test_headers)
    target_link_libraries(${name} PRIVATE tessaline_options ${ARG_LIBRARIES}
      GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${name} TEST_PREFIX "${folder}/" DISCOVERY_TIMEOUT 60
      PROPERTIES LABELS ${folder} TIMEOUT ${test_seconds})
    if(tessaline IN_LIST ARG_LIBRARIES)
      set_property(GLOBAL APPEND PROPERTY TESSALINE_APPLICATIONS $<TARGET_FILE:${name}>)
    endif()
  endforeach()
endfunction()

# Through the exported interface, as an application.
tessaline_test(log LIBRARIES tessaline)
tessaline_test(api LIBRARIES tessaline tessaline-board)
tessaline_test(function LIBRARIES tessaline tessaline-board)
tessaline_test(image LIBRARIES tessaline tessaline-board)

# A program linked with the library's objects reaches its inner classes; the
# object code is that of libtessaline.so.
tessaline_test(Devices LIBRARIES tessaline_objects tessaline-board)
tessaline_test(Runnable LIBRARIES tessaline_objects tessaline-board)
tessaline_test(SeriesLogic LIBRARIES tessaline_objects tessaline-board)

# The board by itself.
tessaline_test(board LIBRARIES tessaline-board)

# A C application, without any board.
add_executable(api_headers ${CMAKE_SOURCE_DIR}/tests/api/headers.c)
target_link_libraries(api_headers PRIVATE tessaline_options tessaline)
add_test(NAME api/Headers.AreC COMMAND api_headers)
set_tests_properties(api/Headers.AreC PROPERTIES LABELS api TIMEOUT 60)

# Applications whose main() or whose library is gone, which no test framework survives.
add_executable(api_main_leaves ${CMAKE_SOURCE_DIR}/tests/api/main_leaves.c)
target_link_libraries(api_main_leaves PRIVATE tessaline_options tessaline tessaline-board)
add_executable(api_closed_library ${CMAKE_SOURCE_DIR}/tests/api/closed_library.cpp)
target_link_libraries(api_closed_library PRIVATE tessaline_options tessaline-board ${CMAKE_DL_LIBS})
add_dependencies(api_closed_library tessaline)
set_target_properties(api_main_leaves PROPERTIES C_EXTENSIONS ON)
# The thread sanitizer runs handlers with SIGSEGV blocked, by which the board sees accesses.
if(NOT CMAKE_CXX_FLAGS MATCHES "sanitize=thread")
  add_test(NAME api/MainThatLeaves.IsStoodInFor COMMAND api_main_leaves)
  add_test(NAME api/MainThatLeaves.WithItsInterruptsBlocked COMMAND api_main_leaves blocked)
  add_test(NAME api/MainThatLeaves.HavingStartedElsewhere COMMAND api_main_leaves elsewhere)
  set_tests_properties(api/MainThatLeaves.IsStoodInFor api/MainThatLeaves.HavingStartedElsewhere
    api/MainThatLeaves.WithItsInterruptsBlocked PROPERTIES LABELS api TIMEOUT 60)
endif()
# A sanitizer's runtime has to be there before the library.
if(NOT TESSALINE_SANITIZED)
  add_test(NAME api/ClosedLibrary.RunsOn COMMAND api_closed_library $<TARGET_FILE:tessaline>)
  set_tests_properties(api/ClosedLibrary.RunsOn PROPERTIES LABELS api TIMEOUT 60)
endif()

# Every public header compiles by itself, as C11 where it is C, and as C++20.
set(cxx_headers products register_map signal_handler)
file(GLOB public_headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/include/tessaline/*.h)
add_library(api_each_header OBJECT)
foreach(header ${public_headers})
  cmake_path(GET header STEM stem)
  set(languages c cpp)
  if(stem IN_LIST cxx_headers)
    set(languages cpp)
  endif()
  foreach(language ${languages})
    set(source ${CMAKE_BINARY_DIR}/each_header/${stem}.${language})
    file(CONFIGURE OUTPUT ${source}
      CONTENT "#include \"tessaline/${stem}.h\"\nextern int only_the_header;\n")
    target_sources(api_each_header PRIVATE ${source})
  endforeach()
endforeach()
target_link_libraries(api_each_header PRIVATE tessaline_options)
set_target_properties(api_headers api_each_header PROPERTIES C_EXTENSIONS OFF)
target_include_directories(api_each_header PRIVATE ${CMAKE_SOURCE_DIR}/include)

# The programs above, which see the exported interface alone, call all of it.
get_property(applications GLOBAL PROPERTY TESSALINE_APPLICATIONS)
add_test(NAME api/Exports.AreAllCalled
  COMMAND ${CMAKE_SOURCE_DIR}/tests/api/uncalled_exports.sh ${CMAKE_NM}
    ${CMAKE_SOURCE_DIR}/tests/exports.txt ${applications})
set_tests_properties(api/Exports.AreAllCalled PROPERTIES LABELS api TIMEOUT 60)

if(sensor_tables IN_LIST TESSALINE_TEST_SUBJECTS)
  include(cmake/sensor_tables_tests.cmake)
endif()

# A sanitizer's run-time library would have to come before everything that is preloaded,
# and stand beside everything that is installed. What an integrator or reader does, he does
# with the compiler and the programs of his own machine.
if(NOT TESSALINE_SANITIZED AND NOT CMAKE_CROSSCOMPILING)
  include(cmake/docs_tests.cmake)
  include(cmake/docs.cmake)
  include(cmake/packaging_tests.cmake)
endif()
