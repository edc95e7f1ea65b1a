# Debian's cross compiler for 64-bit Arm. scripts/aarch64 unpacks the libraries that it does not
# include. The built programs run under qemu's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(cache $ENV{XDG_CACHE_HOME})
if(NOT cache)
  set(cache $ENV{HOME}/.cache)
endif()
set(sysroot ${cache}/tessaline/arm64/sysroot)

set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${sysroot} /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Some headers are in a folder of the architecture, where this compiler does not look.
set(CMAKE_CXX_FLAGS_INIT "-isystem ${sysroot}/usr/include/aarch64-linux-gnu")

# zlib is not in the same directory as the others there.
set(libraries ${sysroot}/lib/aarch64-linux-gnu:${sysroot}/usr/lib/aarch64-linux-gnu)
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${libraries})
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=${libraries})
