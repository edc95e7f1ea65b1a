#!/bin/sh
# Uses the Python package of an installed tree: imports it, takes frames, finds its fixtures with
# pytest, runs its examples, and asks for a virtual board where there is none.
#   check_python.sh PREFIX WORK
set -eu
prefix=$(readlink -f "$1")
examples=$(dirname "$(readlink -f "$0")")/../../examples/python
rm -rf "$2"
mkdir -p "$2"
cd "$2"
package=$(dirname "$(find "$prefix/lib" -path '*-packages/tessaline/__init__.py')")
libdir=$(dirname "$(find "$prefix" -name libtessaline.so.1)")
# Nothing from the build tree may be used.
export LD_LIBRARY_PATH="$libdir" PYTHONPATH="${package%/*}" PYTHONDONTWRITEBYTECODE=1
unset LD_PRELOAD TESSALINE_BOARD
PATH=$prefix/bin:$PATH

for module in "$package"/*.so; do
  if readelf -d "$module" | grep -E 'RPATH|RUNPATH'; then
    echo "$module looks for libraries where it was built"
    exit 1
  fi
done

cat >use.py <<'EOF'
import sys
import tessaline
from importlib import metadata

assert tessaline.__file__.startswith(sys.argv[1]), tessaline.__file__
assert metadata.version("tessaline") == "1.0.0"
assert tessaline.check("K3610", virtual=True, passive=True)
with tessaline.Sensor("K3610", virtual=True) as sensor:
    profiles = sensor.profiles(30)
print(profiles)
EOF
/usr/bin/python3 use.py "$package"

cat >test_fixture.py <<'EOF'
def test_sensor(tessaline_sensor):
    assert tessaline_sensor.image().shape == (1088, 1456)
EOF
/usr/bin/python3 -m pytest -q -p no:cacheprovider test_fixture.py
MPLCONFIGDIR=$PWD /usr/bin/python3 "$examples/stair_steps.py"

# The same libraries without the board's.
mkdir libraries
for library in "$libdir"/libtessaline*.so.*; do
  case $library in *board*) ;; *) ln -s "$library" libraries ;; esac
done
cat >no_board.py <<'EOF'
import tessaline

try:
    tessaline.Sensor("K3610", virtual=True)
except tessaline.StartUpError as error:
    assert error.advice == "install the package tessaline-board", error
    print(error)
else:
    raise SystemExit("there is a virtual board without its library")
try:
    tessaline.Sensor("K3610")
except tessaline.StartUpError as error:
    assert "/dev/" in str(error), error
EOF
# Where the libraries are the system's, the caller removes the package.
[ "$prefix" = /usr ] || LD_LIBRARY_PATH=$PWD/libraries /usr/bin/python3 no_board.py
