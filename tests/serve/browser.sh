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
od -An -N16 -tx1 /dev/urandom | tr -d ' \n' >"$folder/token"
chmod 600 "$folder/token"

# The daemon is started again, at the same address, until this script ends.
serve() {
  port=0
  while [ ! -e "$folder/end" ]; do
    "$TESSALINE_SERVE" --virtual K3610 --port $port --recordings "$folder/recordings" \
      --token-file "$folder/token" --json >"$folder/said" &
    echo $! >"$folder/pid"
    wait $! || true
    port=$(sed -n 's/.*"url":"[^"]*:\([0-9]*\).*/\1/p' "$folder/said")
    [ -n "$port" ] || break
  done
}
serve &
serving=$!
finish() {
  touch "$folder/end"
  kill -INT "$(cat "$folder/pid")" 2>/dev/null || true
  wait $serving || true
  rm -rf "$folder"
}
trap finish EXIT
until grep -q url "$folder/said" 2>/dev/null; do
  kill -0 $serving || exit 1
  sleep 0.1
done
url=$(sed -n 's/.*"url":"\([^"]*\)".*/\1/p' "$folder/said")
cd "$packages"
RESTART_DAEMON="kill -INT \$(cat $folder/pid)" node "$script" "$url" "$(cat "$folder/token")" "$@"
