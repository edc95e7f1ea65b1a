# What scripts/board-kit packs for a board: libraries, headers, examples, the tool.
include(GNUInstallDirs)
set(programs scan_demo)
if(TARGET tessaline-tool)
  list(APPEND programs tessaline-tool)
endif()
set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
# Found for the libraries of their libraries as well. The programs need not be fast, and
# optimising them as a whole takes minutes; the library's file is the one that is shipped.
if(CMAKE_CROSSCOMPILING)
  set_target_properties(${programs} PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
  foreach(program ${programs})
    target_link_options(${program} PRIVATE -Wl,--disable-new-dtags)
  endforeach()
endif()
install(TARGETS ${programs} RUNTIME DESTINATION bin COMPONENT board-kit EXCLUDE_FROM_ALL)
install(TARGETS tessaline tessaline-profile
  LIBRARY DESTINATION lib COMPONENT board-kit EXCLUDE_FROM_ALL)
if(TARGET tessaline-recorder)
  install(TARGETS tessaline-recorder
    LIBRARY DESTINATION lib/tessaline COMPONENT board-kit EXCLUDE_FROM_ALL)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tessaline
  ${PROJECT_SOURCE_DIR}/profile/include/tessaline DESTINATION include
  COMPONENT board-kit EXCLUDE_FROM_ALL)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION .
  COMPONENT board-kit EXCLUDE_FROM_ALL PATTERN CMakeLists.txt EXCLUDE PATTERN python EXCLUDE)
file(GLOB kit_pages ${PROJECT_SOURCE_DIR}/docs/on-a-board.md ${PROJECT_SOURCE_DIR}/docs/*-format.md
  ${PROJECT_SOURCE_DIR}/docs/bring-up.md ${PROJECT_SOURCE_DIR}/docs/tool.md
  ${PROJECT_SOURCE_DIR}/docs/recordings.md ${PROJECT_SOURCE_DIR}/docs/what-to-send.md
  ${PROJECT_SOURCE_DIR}/docs/time.md
  ${PROJECT_SOURCE_DIR}/docs/sensor-tables.md ${PROJECT_SOURCE_DIR}/docs/profile.md)
install(FILES ${kit_pages} DESTINATION docs COMPONENT board-kit EXCLUDE_FROM_ALL)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION . COMPONENT board-kit EXCLUDE_FROM_ALL)
