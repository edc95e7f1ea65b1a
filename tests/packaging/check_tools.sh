#!/bin/sh
# Records with the command of an installed tree, and plays the recording into another program of it.
#   check_tools.sh PREFIX WORK
set -eu
prefix=$(readlink -f "$1")
rm -rf "$2"
mkdir -p "$2"
cd "$2"
libdir=$(dirname "$(find "$prefix" -name libtessaline.so.1)")
# Nothing from the build tree may be used.
export LD_LIBRARY_PATH="$libdir"
unset LD_PRELOAD TESSALINE_BOARD
PATH=$prefix/bin:$PATH

# Programs do not link with what stands in front of them, so it is not where the linker looks.
recorder=$(find "$prefix" -name 'libtessaline-recorder.so')
[ "$recorder" = "$libdir/tessaline/libtessaline-recorder.so" ] || {
  echo "what stands in front of applications is in \"$recorder\""
  exit 1
}
if readelf -d "$recorder" | grep -E 'RPATH|RUNPATH'; then
  echo "$recorder looks for libraries where it was built"
  exit 1
fi

tessaline record -o run.db3 -t 1 --virtual K3610
tessaline bag check run.db3 | tee check.txt
grep -q '^run.db3: whole; closed properly' check.txt
tessaline record -o again.db3 -- \
  tessaline replay run.db3 -- tessaline capture strips -n 100 -o strips.npy --model K3610
for recording in run again; do
  tessaline bag export $recording.db3 -o $recording.raw
done
# The bytes of 100 strips; their size is that of all of them, since all columns have a point.
size=$(stat -c %s again.raw)
[ "$size" -gt 0 ]
cmp -n "$size" run.raw again.raw
