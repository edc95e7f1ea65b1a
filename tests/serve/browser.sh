#!/bin/sh
# Opens the page in a browser and uses it as a user does.
#   browser.sh FOLDER_FOR_PACKAGES [SCRIPT [ARGUMENT...]]   the checks, or another script of browser/
# TESSALINE_SERVE names the daemon, else it is that of the preset dev. Exits with 77, and says why,
# if something is missing.
set -eu
tests=$(dirname "$(readlink -f "$0")")/browser
packages=$1
shift
[ $# -gt 0 ] || set -- run.mjs
script=$tests/$1
shift
: "${TESSALINE_SERVE:=$(readlink -f "$tests/../../../build/dev/tessaline-serve")}"
skip() {
  echo "SKIPPED: $1"
  exit 77
}
command -v node >/dev/null || skip "there is no node"
[ -x /usr/bin/chromium ] || skip "there is no /usr/bin/chromium: scripts/setup chromium"
mkdir -p "$packages"
cp "$tests/package.json" "$tests/package-lock.json" "$packages"
(cd "$packages" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error) ||
  skip "the packages of npm cannot be had"
folder=$(mktemp -d)
export TESSALINE_SOCKET="$folder/serve.sock"
"$TESSALINE_SERVE" --virtual K3610 --port 0 --recordings "$folder/recordings" --json \
  >"$folder/said" &
daemon=$!
trap 'kill -INT $daemon 2>/dev/null; wait $daemon || true; rm -rf "$folder"' EXIT
until grep -q url "$folder/said"; do
  kill -0 $daemon || exit 1
  sleep 0.1
done
url=$(sed -n 's/.*"url":"\([^"]*\)".*/\1/p' "$folder/said")
cd "$packages"
node "$script" "$url" "$(cat "$folder/serve.sock.token")" "$@"
