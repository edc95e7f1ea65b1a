# The command, run as a child process on the virtual board.
if(NOT tools IN_LIST TESSALINE_TEST_SUBJECTS)
  return()
endif()
tessaline_test(tools LIBRARIES fmt::fmt nlohmann_json::nlohmann_json PNG::PNG)
file(GLOB tools_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/tools/*_test.cpp)
foreach(source ${tools_sources})
  cmake_path(GET source STEM stem)
  target_compile_definitions(tools_${stem} PRIVATE
    TESSALINE_TOOL="$<TARGET_FILE:tessaline-tool>" TESSALINE_SOURCE="${CMAKE_SOURCE_DIR}")
  add_dependencies(tools_${stem} tessaline-tool tessaline-board)
endforeach()
