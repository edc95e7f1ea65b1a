# libtessaline.so, and its objects once more for the tests of the inner classes:
# both are the same object code.
file(GLOB_RECURSE TESSALINE_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/*.cpp)

# Register tables that only the makers of the sensors can fill, see docs/sensor-tables.md.
set(TESSALINE_SENSOR_TABLES "" CACHE PATH
  "Directory with a folder sensor_tables/, whose headers stand in for those of src/Devices/sensor/tables/sensor_tables")
if(TESSALINE_SENSOR_TABLES)
  if(NOT IS_DIRECTORY "${TESSALINE_SENSOR_TABLES}/sensor_tables")
    message(FATAL_ERROR "TESSALINE_SENSOR_TABLES: there is no folder ${TESSALINE_SENSOR_TABLES}/sensor_tables")
  endif()
  file(GLOB supplied_tables CONFIGURE_DEPENDS ${TESSALINE_SENSOR_TABLES}/sensor_tables/*)
  foreach(table ${supplied_tables})
    cmake_path(GET table FILENAME table_name)
    if(NOT EXISTS ${CMAKE_SOURCE_DIR}/src/Devices/sensor/tables/sensor_tables/${table_name})
      message(FATAL_ERROR "TESSALINE_SENSOR_TABLES: the library has no table ${table_name}")
    endif()
    message(STATUS "Register table of yours: ${table_name}")
  endforeach()
  # A compiler's notes on what it read say nothing of a header that was not there yet.
  file(GLOB_RECURSE table_users ${CMAKE_SOURCE_DIR}/src/Devices/sensor/*.cpp)
  set_property(SOURCE ${table_users} APPEND PROPERTY OBJECT_DEPENDS ${supplied_tables})
endif()

add_library(tessaline_objects OBJECT ${TESSALINE_SOURCES})
target_include_directories(tessaline_objects PUBLIC ${TESSALINE_SENSOR_TABLES}
  ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/src/Devices/sensor/tables)
target_compile_options(tessaline_objects PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden)
target_link_libraries(tessaline_objects PUBLIC tessaline_options)
# The sanitizers check more, in ways of their own.
if(NOT TESSALINE_SANITIZED)
  target_compile_options(tessaline_objects PRIVATE -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

if(CMAKE_CXX_FLAGS MATCHES "sanitize=thread")
  target_sources(tessaline_objects PRIVATE ${CMAKE_SOURCE_DIR}/cmake/tsan_clocklock.cpp)
endif()

set(TESSALINE_EXPORTS ${CMAKE_SOURCE_DIR}/src/libtessaline.map)
add_library(tessaline SHARED $<TARGET_OBJECTS:tessaline_objects>)
set_target_properties(tessaline PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${TESSALINE_EXPORTS})
target_include_directories(tessaline INTERFACE
  $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
# Stays loaded when an application closes it: its threads and its SIGINT handler run on.
target_link_options(tessaline PRIVATE -Wl,--version-script=${TESSALINE_EXPORTS} -Wl,-z,nodelete)
if(NOT TESSALINE_SANITIZED)
  target_link_options(tessaline PRIVATE -Wl,-z,defs -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
elseif(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  # A C program gets the sanitizers' run-time library for C only, by itself.
  target_link_options(tessaline INTERFACE $<$<LINK_LANGUAGE:C>:-fsanitize-link-c++-runtime>)
  target_link_libraries(tessaline INTERFACE $<$<LINK_LANGUAGE:C>:stdc++>)
endif()
target_link_libraries(tessaline PRIVATE Threads::Threads)
