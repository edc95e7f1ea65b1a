# Register tables supplied by an integrator, and the listing of the library's own.
set(TABLES_GUIDE ${CMAKE_SOURCE_DIR}/docs/sensor-tables.md)
set(SUPPLIED_TABLES ${CMAKE_BINARY_DIR}/supplied_tables)
set(SHORT_TABLE ${CMAKE_BINARY_DIR}/short_table)

# The guide's examples, word for word.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${TABLES_GUIDE})
file(READ ${TABLES_GUIDE} guide)
foreach(table Imx252FixedSettings.h Gmax2509Init.h)
  if(NOT guide MATCHES "our-tables/sensor_tables/${table}`:\n\n```cpp\n([^`]*)```")
    message(FATAL_ERROR "${TABLES_GUIDE}: there is no example of a ${table}")
  endif()
  file(CONFIGURE OUTPUT ${SUPPLIED_TABLES}/sensor_tables/${table} CONTENT "${CMAKE_MATCH_1}" @ONLY)
endforeach()
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/misnamed_table/sensor_tables/Imx252.h CONTENT "" @ONLY)
# One entry fewer than the sensor takes.
string(REPLACE "kInitEntries - " "kInitEntries - 1 - " short "${CMAKE_MATCH_1}")
file(CONFIGURE OUTPUT ${SHORT_TABLE}/sensor_tables/Gmax2509Init.h CONTENT "${short}" @ONLY)

# A test with drivers compiled once more, for the tables of a directory. The library
# comes as an archive, of which a linker takes only what is not there already.
add_library(tessaline_archive STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:tessaline_objects>)
function(supplied_tables_test name tables)
  list(TRANSFORM ARGN PREPEND ${CMAKE_SOURCE_DIR}/src/Devices/ OUTPUT_VARIABLE drivers)
  add_executable(sensor_tables_${name} ${CMAKE_SOURCE_DIR}/tests/sensor_tables/${name}.cpp
    ${drivers})
  target_include_directories(sensor_tables_${name} PRIVATE ${tables}
    $<TARGET_PROPERTY:tessaline_objects,INTERFACE_INCLUDE_DIRECTORIES>
    ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/tests/Devices)
  target_link_libraries(sensor_tables_${name} PRIVATE tessaline_options
    tessaline_archive tessaline-board GTest::gmock GTest::gtest_main)
  gtest_discover_tests(sensor_tables_${name} TEST_PREFIX "sensor_tables/"
    DISCOVERY_TIMEOUT 60 PROPERTIES LABELS sensor_tables TIMEOUT 120)
endfunction()
supplied_tables_test(supplied_table_test ${SUPPLIED_TABLES} GMAX2509.cpp IMX252.cpp)
supplied_tables_test(gsprint_supplied_tables_test
  ${CMAKE_SOURCE_DIR}/tests/sensor_tables/gsprint GSPRINT6502BSI.cpp)
supplied_tables_test(e2v_supplied_tables_test ${CMAKE_SOURCE_DIR}/tests/sensor_tables/e2v
  E2vFlash4k.cpp E2vFlash4kInit.cpp E2vFlash4kRegisters.cpp E2vFlash4kSensing.cpp)

# What a build's tables amount to, and the drivers that include them.
file(GLOB table_users CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/src/Devices/E2vFlash4k*.cpp ${CMAKE_SOURCE_DIR}/src/Devices/GMAX2509.cpp
  ${CMAKE_SOURCE_DIR}/src/Devices/GSPRINT6502BSI.cpp ${CMAKE_SOURCE_DIR}/src/Devices/IMX252.cpp)
add_library(sensor_tables_users OBJECT EXCLUDE_FROM_ALL ${table_users})
add_executable(sensor_tables_check_listing
  ${CMAKE_SOURCE_DIR}/tests/sensor_tables/check_listing.cpp)
foreach(target sensor_tables_users sensor_tables_check_listing)
  target_include_directories(${target} PRIVATE
    $<TARGET_PROPERTY:tessaline_objects,INTERFACE_INCLUDE_DIRECTORIES>)
  target_link_libraries(${target} PRIVATE tessaline_options)
endforeach()

# The documentation speaks of the library's own tables.
if(NOT TESSALINE_SENSOR_TABLES)
  add_test(NAME sensor_tables/Documentation.ListsEveryTable
    COMMAND sensor_tables_check_listing ${TABLES_GUIDE} all)
  set_tests_properties(sensor_tables/Documentation.ListsEveryTable
    PROPERTIES LABELS sensor_tables TIMEOUT 60)
endif()

add_test(NAME sensor_tables/Gmax2509.DoesNotCompileWithAnotherNumberOfEntries
  COMMAND ${CMAKE_CXX_COMPILER} -std=c++20 -fsyntax-only -I${SHORT_TABLE} -I${CMAKE_SOURCE_DIR}/src
    -I${CMAKE_SOURCE_DIR}/src/Devices/tables -I${CMAKE_SOURCE_DIR}/include
    ${CMAKE_SOURCE_DIR}/src/Devices/GMAX2509.cpp)
set_tests_properties(sensor_tables/Gmax2509.DoesNotCompileWithAnotherNumberOfEntries
  PROPERTIES LABELS sensor_tables TIMEOUT 120
  PASS_REGULAR_EXPRESSION "the GMAX2509 takes 98 entries")

# The whole project, configured for the supplied tables of this machine's own processor.
if(CMAKE_CROSSCOMPILING)
  return()
endif()
add_test(NAME sensor_tables/Option.PutsTheSuppliedTablesInFront
  COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test
    ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/with_supplied_tables
    --build-generator ${CMAKE_GENERATOR}
    --build-options -DTESSALINE_SENSOR_TABLES=${SUPPLIED_TABLES} -DTESSALINE_BENCH=OFF
      -DCMAKE_C_COMPILER=${CMAKE_C_COMPILER} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
    --build-target sensor_tables_users --build-target sensor_tables_check_listing
    --test-command ${CMAKE_BINARY_DIR}/with_supplied_tables/sensor_tables_check_listing
      ${CMAKE_SOURCE_DIR}/tests/sensor_tables/supplied_tables.txt)
add_test(NAME sensor_tables/Option.RefusesADirectoryWithoutTables
  COMMAND ${CMAKE_COMMAND} -S ${CMAKE_SOURCE_DIR} -B ${CMAKE_BINARY_DIR}/without_tables
    -G ${CMAKE_GENERATOR} -DTESSALINE_SENSOR_TABLES=${CMAKE_SOURCE_DIR}/docs)
add_test(NAME sensor_tables/Option.RefusesATableThatNoSensorHas
  COMMAND ${CMAKE_COMMAND} -S ${CMAKE_SOURCE_DIR} -B ${CMAKE_BINARY_DIR}/with_a_misnamed_table
    -G ${CMAKE_GENERATOR} -DTESSALINE_SENSOR_TABLES=${CMAKE_BINARY_DIR}/misnamed_table)
set_tests_properties(sensor_tables/Option.PutsTheSuppliedTablesInFront
  PROPERTIES LABELS sensor_tables TIMEOUT 600)
set_tests_properties(sensor_tables/Option.RefusesADirectoryWithoutTables
  PROPERTIES LABELS sensor_tables TIMEOUT 120 PASS_REGULAR_EXPRESSION "there is no folder")
set_tests_properties(sensor_tables/Option.RefusesATableThatNoSensorHas
  PROPERTIES LABELS sensor_tables TIMEOUT 120
  PASS_REGULAR_EXPRESSION "the library has no table Imx252.h")
