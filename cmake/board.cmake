# The virtual board: for LD_PRELOAD and for linking into tests. Its symbols are
# bound at load time: a thread may be cancelled in the first call it makes, which
# must not be inside the dynamic linker.
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)

file(GLOB_RECURSE TESSALINE_BOARD_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/board/*.cpp)
if(TESSALINE_SANITIZED)
  # The sanitizers look after the process's heap, so the board's memory comes from there.
  list(FILTER TESSALINE_BOARD_SOURCES EXCLUDE REGEX "/Heap.cpp$")
endif()
set(TESSALINE_BOARD_EXPORTS ${CMAKE_SOURCE_DIR}/board/libtessaline-board.map)
add_library(tessaline-board SHARED ${TESSALINE_BOARD_SOURCES})
set_target_properties(tessaline-board PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${TESSALINE_BOARD_EXPORTS})
target_include_directories(tessaline-board
  PUBLIC $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/board/include>
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>
  PRIVATE ${CMAKE_SOURCE_DIR}/board)
# A thread's own variables are there from its beginning: a signal handler may be the first
# to use them.
target_compile_options(tessaline-board PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden
  -ftls-model=initial-exec)
target_link_options(tessaline-board PRIVATE -Wl,-z,now
  -Wl,--version-script=${TESSALINE_BOARD_EXPORTS})
# All of what the board allocates comes from its own heap only if what allocates for it is
# its own: the standard library, and the formatting.
target_link_libraries(tessaline-board PRIVATE tessaline_options fmt::fmt-header-only
  nlohmann_json::nlohmann_json Threads::Threads ${CMAKE_DL_LIBS})
if(NOT TESSALINE_SANITIZED)
  target_link_options(tessaline-board PRIVATE -static-libstdc++)
endif()

if(CMAKE_CXX_FLAGS MATCHES "sanitize=thread")
  # The thread sanitizer stands in front of the board's calls and does not see
  # the locks a blocking one takes inside; like the kernel, the board is left out.
  target_compile_options(tessaline-board PRIVATE -fno-sanitize=thread)
endif()
