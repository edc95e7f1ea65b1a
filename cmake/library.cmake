# libtessaline.so, and its objects once more for the tests of the inner classes:
# both are the same object code.
file(GLOB_RECURSE TESSALINE_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/*.cpp)

add_library(tessaline_objects OBJECT ${TESSALINE_SOURCES})
target_include_directories(tessaline_objects PUBLIC ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/src)
target_compile_options(tessaline_objects PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden)
target_link_libraries(tessaline_objects PUBLIC tessaline_options)

set(TESSALINE_EXPORTS ${CMAKE_SOURCE_DIR}/src/libtessaline.map)
add_library(tessaline SHARED $<TARGET_OBJECTS:tessaline_objects>)
set_target_properties(tessaline PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${TESSALINE_EXPORTS})
target_include_directories(tessaline INTERFACE
  $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
target_link_options(tessaline PRIVATE -Wl,--version-script=${TESSALINE_EXPORTS})
if(NOT TESSALINE_SANITIZED)
  target_link_options(tessaline PRIVATE -Wl,-z,defs)
endif()
target_link_libraries(tessaline PRIVATE Threads::Threads)
