# What the pages tell their readers to type, typed.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/docs/*.md)
foreach(page ${pages})
  # A page whose blocks are all left out would be a test that runs nothing.
  file(STRINGS ${page} commands REGEX "^```sh( by-hand)?$")
  if(NOT commands)
    continue()
  endif()
  cmake_path(GET page STEM stem)
  add_test(NAME docs/${stem}
    COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/tests/docs/run_commands.py
      ${page} ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR})
  set_tests_properties(docs/${stem} PROPERTIES LABELS docs TIMEOUT 300)
endforeach()
