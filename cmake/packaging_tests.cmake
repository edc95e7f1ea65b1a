# What `cmake --install` makes, used from outside. A sanitizer's run-time library wants to
# be the first of a process, so its builds are not installed.
set(INSTALLED ${CMAKE_BINARY_DIR}/installed)
add_test(NAME packaging/Install.IntoAPrefix
  COMMAND sh -c "rm -rf '${INSTALLED}' && '${CMAKE_COMMAND}' --install '${CMAKE_BINARY_DIR}' --prefix '${INSTALLED}'")
add_test(NAME packaging/Consumers.BuildAndRunFromTheInstalledTree
  COMMAND ${CMAKE_SOURCE_DIR}/tests/packaging/check_consumers.sh
    ${INSTALLED} ${CMAKE_BINARY_DIR}/consumers)
add_test(NAME packaging/Runner.TakesItsArguments
  COMMAND ${CMAKE_SOURCE_DIR}/tests/packaging/check_runner.sh ${INSTALLED})
set_tests_properties(packaging/Install.IntoAPrefix
  PROPERTIES FIXTURES_SETUP installed)
set_tests_properties(packaging/Consumers.BuildAndRunFromTheInstalledTree
  packaging/Runner.TakesItsArguments PROPERTIES FIXTURES_REQUIRED installed)
set_tests_properties(packaging/Consumers.BuildAndRunFromTheInstalledTree PROPERTIES
  ENVIRONMENT "CC=${CMAKE_C_COMPILER};CXX=${CMAKE_CXX_COMPILER};CMAKE=${CMAKE_COMMAND}")
set_tests_properties(packaging/Install.IntoAPrefix packaging/Runner.TakesItsArguments
  packaging/Consumers.BuildAndRunFromTheInstalledTree PROPERTIES LABELS packaging TIMEOUT 300)
