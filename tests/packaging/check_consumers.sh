#!/bin/sh
# Builds an application in C and one in C++ from an installed tree, with find_package and with
# pkg-config. Also builds the installed examples. Runs all of them on the installed virtual board.
#   check_consumers.sh PREFIX WORK     (CC, CXX and CMAKE name other programs)
set -eu
prefix=$(readlink -f "$1")
source=$(dirname "$(readlink -f "$0")")/consumer
rm -rf "$2"
mkdir -p "$2"
cd "$2"
cc=${CC:-cc} cxx=${CXX:-c++} cmake=${CMAKE:-cmake}

libdir=$(dirname "$(find "$prefix" -name libtessaline.so)")
# Nothing from the build tree may be used.
export LD_LIBRARY_PATH="$libdir"
export PKG_CONFIG_LIBDIR="$libdir/pkgconfig"
unset PKG_CONFIG_PATH CFLAGS CXXFLAGS LDFLAGS

run() { # DIRECTORY MODEL
  "$prefix/bin/tessaline-board" run --model "$2" -- "$1/scan" "$2"
  "$1/scan_on_board" "$2"
  "$1/profile"
  for program in scan scan_on_board; do
    ldd "$1/$program" | grep -q "$libdir/libtessaline.so.1" || {
      echo "$1/$program runs with another libtessaline:"
      ldd "$1/$program"
      exit 1
    }
  done
  ldd "$1/profile" >"$1/profile.libraries"
  grep -q "$libdir/libtessaline-profile.so.1" "$1/profile.libraries"
  if grep -E 'libtessaline\.so|libstdc' "$1/profile.libraries"; then
    echo "$1/profile needs more than libtessaline-profile"
    exit 1
  fi
}

echo "== find_package"
"$cmake" -G Ninja -S "$source" -B with_cmake -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
"$cmake" --build with_cmake
run with_cmake K3920

echo "== pkg-config"
mkdir with_pkg_config

pkg-config --modversion tessaline tessaline-profile tessaline-board
$cc -std=gnu11 -Wall -Werror $(pkg-config --cflags tessaline) "$source/scan.c" \
  $(pkg-config --libs tessaline) -o with_pkg_config/scan
$cc -std=c11 -Wall -Werror $(pkg-config --cflags tessaline-profile) "$source/profile.c" \
  $(pkg-config --libs tessaline-profile) -o with_pkg_config/profile
$cxx -std=c++20 -Wall -Werror $(pkg-config --cflags tessaline tessaline-board) \
  "$source/scan_on_board.cpp" $(pkg-config --libs tessaline tessaline-board) \
  -o with_pkg_config/scan_on_board
run with_pkg_config K3610

echo "== examples"
mkdir with_examples
examples=$(dirname "$(find "$prefix/share/doc" -name scan_demo.cpp)")
$cc -std=gnu11 -Wall -Werror $(pkg-config --cflags tessaline) "$examples/strips.c" \
  $(pkg-config --libs tessaline) -o with_examples/strips
for example in images scan_demo; do
  $cxx -std=c++20 -Wall -Werror $(pkg-config --cflags tessaline) "$examples/$example.cpp" \
    $(pkg-config --libs tessaline) -lpng -o with_examples/$example
done
"$prefix/bin/tessaline-board" run --model K3610 -- with_examples/scan_demo --model K3610 \
  --profiles 60 --output with_examples >/dev/null
ls with_examples/height_map.png with_examples/camera_image.png
