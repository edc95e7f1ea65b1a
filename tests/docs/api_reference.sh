#!/bin/sh
# Generates the API reference and checks that it contains every exported function.
#   api_reference.sh SOURCE OUTPUT MAP...
set -eu
command -v doxygen >/dev/null || {
  echo "skipped: there is no doxygen (scripts/setup installs it)"
  exit 77
}
rm -rf "$2"
"$1/scripts/api-reference" "$2"
html=$2/html
missing=0
shift 2
for name in $(sed -n 's/^ *\([A-Za-z0-9_]*\);$/\1/p' "$@"); do
  grep -qr --include='*_8h.html' "class=\"memname\">.*[ *]$name *</td>" "$html" || {
    echo "exported, but not in the reference: $name"
    missing=1
  }
done
exit "$missing"
