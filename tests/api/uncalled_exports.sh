#!/bin/sh
# Fails if there are exported symbols that no test program refers to, and prints them. Needs all
# test programs, because a program that was not built could be the one that uses a symbol.
#   uncalled_exports.sh NM EXPORTS PROGRAM...
set -eu
export LC_ALL=C
nm=$1 exports=$2
shift 2

absent=0
for program in "$@"; do
  [ -e "$program" ] && continue
  [ "$absent" = 1 ] || echo "cannot tell what the tests call, not built:"
  echo "$program"
  absent=1
done
[ "$absent" = 0 ] || exit 1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A function that a program calls is undefined there. An object that it reads may be copied into it.
# The list also contains the name of the interface version, which is never called.
"$nm" -D "$@" >"$work/symbols"
awk 'NF >= 2 { sub("@.*", "", $NF); print $NF }' "$work/symbols" | sort -u >"$work/called"
grep -v '^TESSALINE_' "$exports" | sort >"$work/exported"
comm -13 "$work/called" "$work/exported" >"$work/uncalled"
if [ -s "$work/uncalled" ]; then
  echo "exported, but called by no test:"
  cat "$work/uncalled"
  exit 1
fi
echo "all $(wc -l <"$work/exported") exported symbols are called by the tests"
