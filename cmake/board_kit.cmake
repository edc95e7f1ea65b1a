# What scripts/board-kit packs for a board: library, headers, examples, the tool.
include(GNUInstallDirs)
set(programs scan_demo)
if(TARGET tessaline-tool)
  list(APPEND programs tessaline-tool)
endif()
set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
# Found for the libraries of their libraries as well.
if(CMAKE_CROSSCOMPILING)
  foreach(program ${programs})
    target_link_options(${program} PRIVATE -Wl,--disable-new-dtags)
  endforeach()
endif()
install(TARGETS ${programs} RUNTIME DESTINATION bin COMPONENT board-kit EXCLUDE_FROM_ALL)
install(TARGETS tessaline LIBRARY DESTINATION lib COMPONENT board-kit EXCLUDE_FROM_ALL)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/tessaline DESTINATION include
  COMPONENT board-kit EXCLUDE_FROM_ALL)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples DESTINATION .
  COMPONENT board-kit EXCLUDE_FROM_ALL)
file(GLOB kit_pages ${CMAKE_SOURCE_DIR}/docs/on-a-board.md ${CMAKE_SOURCE_DIR}/docs/*-format.md
  ${CMAKE_SOURCE_DIR}/docs/sensor-tables.md)
install(FILES ${kit_pages} DESTINATION docs COMPONENT board-kit EXCLUDE_FROM_ALL)
