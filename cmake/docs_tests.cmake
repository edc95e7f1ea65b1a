# What the pages tell their readers to type, typed.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/docs/*.md)
foreach(page ${pages})
  file(STRINGS ${page} commands REGEX "^```sh")
  if(NOT commands)
    continue()
  endif()
  cmake_path(GET page STEM stem)
  add_test(NAME docs/${stem}
    COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/tests/docs/run_commands.py
      ${page} ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR})
  set_tests_properties(docs/${stem} PROPERTIES LABELS docs TIMEOUT 300)
endforeach()
