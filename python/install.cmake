# What `cmake --install` does with the package: the component python (python3-tessaline).
#
# Debian's Python looks below /usr/local in a folder with its version; the package for Debian sets
# the one without it. Another Python's folders are not known here.
execute_process(
  COMMAND ${Python3_EXECUTABLE} -c
    "import sysconfig; assert 'deb_system' in sysconfig.get_scheme_names()"
  RESULT_VARIABLE other_python OUTPUT_QUIET ERROR_QUIET)
set(site "")
if(NOT other_python AND NOT CMAKE_CROSSCOMPILING)
  set(site lib/python${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}/dist-packages)
endif()
set(TESSALINE_PYTHON_SITE "${site}" CACHE STRING
  "Where the Python package is installed, below the prefix; empty: not at all")
if(TESSALINE_PYTHON_SITE STREQUAL "")
  return()
endif()

install(TARGETS tessaline_device tessaline_virtual tessaline_profile_module tessaline_python_rules
  tessaline_python_recordings
  LIBRARY DESTINATION ${TESSALINE_PYTHON_SITE}/tessaline COMPONENT python)
install(DIRECTORY tessaline
  DESTINATION ${TESSALINE_PYTHON_SITE} COMPONENT python
  FILES_MATCHING PATTERN "*.py" PATTERN "*.pyi" PATTERN py.typed
  PATTERN __pycache__ EXCLUDE)
install(DIRECTORY ${about} DESTINATION ${TESSALINE_PYTHON_SITE} COMPONENT python)
