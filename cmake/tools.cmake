# The command "tessaline": sees the public headers alone, but for one file that counts
# what is in the register tables of this build.
find_package(PNG REQUIRED)
find_package(CLI11 REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)

file(GLOB_RECURSE TESSALINE_TOOL_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/*.cpp)
add_executable(tessaline-tool ${TESSALINE_TOOL_SOURCES})
# Some files at a time, because each reads the same long headers.
set_target_properties(tessaline-tool PROPERTIES OUTPUT_NAME tessaline
  UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 10 DISABLE_PRECOMPILE_HEADERS OFF)
target_compile_options(tessaline-tool PRIVATE ${TESSALINE_QUICK_COMPILE})
target_include_directories(tessaline-tool PRIVATE ${CMAKE_SOURCE_DIR}/tools)
set_source_files_properties(${CMAKE_SOURCE_DIR}/tools/Application.cpp PROPERTIES
  COMPILE_DEFINITIONS TESSALINE_VERSION="${PROJECT_VERSION}")
set_source_files_properties(${CMAKE_SOURCE_DIR}/tools/SensorTables.cpp PROPERTIES
  INCLUDE_DIRECTORIES "${TESSALINE_SENSOR_TABLES};${CMAKE_SOURCE_DIR}/src;${CMAKE_SOURCE_DIR}/src/Devices/sensor/tables")
target_link_libraries(tessaline-tool PRIVATE tessaline_options tessaline
  fmt::fmt nlohmann_json::nlohmann_json PNG::PNG CLI11::CLI11 Threads::Threads ${CMAKE_DL_LIBS})
if(TESSALINE_SANITIZED)
  # A sanitizer wants to be the first library of a process, so the board cannot be
  # loaded in front of it. Without TESSALINE_BOARD it stands aside.
  target_link_libraries(tessaline-tool PRIVATE -Wl,--no-as-needed tessaline-board)
endif()
target_precompile_headers(tessaline-tool PRIVATE <CLI/CLI.hpp> <nlohmann/json.hpp> <fmt/core.h>)

# Manual pages and completion, made by the program from what its --help shows.
set(TESSALINE_MAN_PAGES ${CMAKE_BINARY_DIR}/man)
set(TESSALINE_COMPLETION ${CMAKE_BINARY_DIR}/completion/tessaline)
if(NOT CMAKE_CROSSCOMPILING)
  add_custom_command(OUTPUT ${TESSALINE_MAN_PAGES}/tessaline.1 ${TESSALINE_COMPLETION}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${TESSALINE_MAN_PAGES} ${CMAKE_BINARY_DIR}/completion
    COMMAND tessaline-tool --write-man-pages ${TESSALINE_MAN_PAGES}
    COMMAND tessaline-tool --write-completion > ${TESSALINE_COMPLETION}
    DEPENDS tessaline-tool VERBATIM)
  add_custom_target(tessaline-tool-documents
    DEPENDS ${TESSALINE_MAN_PAGES}/tessaline.1 ${TESSALINE_COMPLETION})
endif()
