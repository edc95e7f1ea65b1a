# The virtual board: for LD_PRELOAD and for linking into tests. Its symbols are
# bound at load time: a thread may be cancelled in the first call it makes, which
# must not be inside the dynamic linker.
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)

file(GLOB_RECURSE TESSALINE_BOARD_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/board/*.cpp)
add_library(tessaline-board SHARED ${TESSALINE_BOARD_SOURCES})
set_target_properties(tessaline-board PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(tessaline-board
  PUBLIC $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/board/include>
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>
  PRIVATE ${CMAKE_SOURCE_DIR}/board)
target_compile_options(tessaline-board PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden)
set(TESSALINE_BOARD_EXPORTS ${CMAKE_SOURCE_DIR}/board/libtessaline-board.map)
target_link_options(tessaline-board PRIVATE -Wl,-z,now)
if(TESSALINE_SANITIZED)
  # The sanitizers have a heap of their own, which does not like another one.
  set_source_files_properties(${CMAKE_SOURCE_DIR}/board/Heap.cpp PROPERTIES HEADER_FILE_ONLY ON)
else()
  # board/Heap.cpp: the standard library allocates there too.
  target_link_options(tessaline-board PRIVATE -static-libstdc++ -Wl,--exclude-libs,ALL
    -Wl,--version-script=${TESSALINE_BOARD_EXPORTS})
  set_target_properties(tessaline-board PROPERTIES LINK_DEPENDS ${TESSALINE_BOARD_EXPORTS})
endif()
target_link_libraries(tessaline-board PRIVATE tessaline_options fmt::fmt-header-only
  nlohmann_json::nlohmann_json Threads::Threads ${CMAKE_DL_LIBS})

if(CMAKE_CXX_FLAGS MATCHES "sanitize=thread")
  # The thread sanitizer stands in front of the board's calls and does not see
  # the locks a blocking one takes inside; like the kernel, the board is left out.
  target_compile_options(tessaline-board PRIVATE -fno-sanitize=thread)
endif()
