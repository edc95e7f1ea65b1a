#!/bin/sh
# The library exports the functions that its header declares, all of them and nothing else. It has
# no way to allocate memory.
#   check_exports.sh NM LIBRARY HEADER
set -eu
exported=$("$1" -D --defined-only "$2" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | sort)
declared=$(sed -n 's/^[a-z].*[ *]\(tessaline_[a-z_]*\)(.*/\1/p' "$3" | sort)
[ -n "$declared" ]
if [ "$exported" != "$declared" ]; then
  printf 'exported:\n%s\ndeclared:\n%s\n' "$exported" "$declared"
  exit 1
fi
if "$1" -D --undefined-only "$2" | grep -wE 'malloc|calloc|realloc|reallocarray|aligned_alloc|posix_memalign|mmap|_Zn[wa].*'; then
  echo "a profile is to be made without allocating"
  exit 1
fi
