# What `cmake --install` puts where. One component a Debian package: runtime
# (libtessaline1), development (libtessaline-dev), tools, board.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(PACKAGING ${CMAKE_SOURCE_DIR}/packaging)
set(CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tessaline)
set(PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# --- The library

set_target_properties(tessaline-board PROPERTIES EXPORT_NAME board)
install(TARGETS tessaline EXPORT tessaline
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS tessaline-board EXPORT tessaline-board
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT board)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/tessaline
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${CMAKE_SOURCE_DIR}/board/include/tessaline/board.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessaline COMPONENT board)

# --- find_package(tessaline), with the board where it is installed

install(EXPORT tessaline FILE tessaline-targets.cmake NAMESPACE tessaline::
  DESTINATION ${CONFIG_DIR} COMPONENT development)
install(EXPORT tessaline-board FILE tessaline-board-targets.cmake NAMESPACE tessaline::
  DESTINATION ${CONFIG_DIR} COMPONENT board)
configure_package_config_file(${PACKAGING}/tessaline-config.cmake.in tessaline-config.cmake
  INSTALL_DESTINATION ${CONFIG_DIR})
write_basic_package_version_file(tessaline-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tessaline-config.cmake
  ${CMAKE_BINARY_DIR}/tessaline-config-version.cmake
  DESTINATION ${CONFIG_DIR} COMPONENT development)

# --- pkg-config. Relative, so that an installed tree may be moved.

file(RELATIVE_PATH PREFIX_FROM_PKGCONFIG /prefix/${PKGCONFIG_DIR} /prefix)
foreach(module tessaline:development tessaline-board:board)
  string(REPLACE ":" ";" module ${module})
  list(GET module 0 name)
  list(GET module 1 component)
  configure_file(${PACKAGING}/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${name}.pc DESTINATION ${PKGCONFIG_DIR} COMPONENT ${component})
endforeach()

# --- Commands

file(RELATIVE_PATH LIBDIR_FROM_BINDIR
  /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
configure_file(${PACKAGING}/tessaline-board.in tessaline-board @ONLY)
install(PROGRAMS ${CMAKE_BINARY_DIR}/tessaline-board
  DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT board)
install(FILES ${PACKAGING}/tessaline-board.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT board)
if(TARGET tessaline-tool)
  install(TARGETS tessaline-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(TARGET tessaline-tool-documents)
  add_custom_target(tessaline-installed-documents ALL)
  add_dependencies(tessaline-installed-documents tessaline-tool-documents)
  install(DIRECTORY ${TESSALINE_MAN_PAGES}/
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools FILES_MATCHING PATTERN "*.1")
  install(FILES ${TESSALINE_COMPLETION}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()

# --- To copy from

install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(FILES ${PACKAGING}/60-tessaline.rules ${PACKAGING}/tessaline-application.service
  ${PACKAGING}/tessaline.sysusers
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
