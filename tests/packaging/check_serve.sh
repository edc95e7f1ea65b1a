#!/bin/sh
# Starts the installed daemon on the virtual board. Reads its page and its figures, and changes a
# setting by the command.
#   check_serve.sh PREFIX FOLDER
set -eu
prefix=$1
mkdir -p "$2"
cd "$2"
export TESSALINE_SOCKET="$PWD/serve.sock" PATH="$prefix/bin:$PATH"
tessaline serve --virtual K3610 --port 0 --json >said &
daemon=$!
trap 'kill "$daemon" 2>/dev/null || true' EXIT
until grep -q url said; do
  kill -0 $daemon
  sleep 0.1
done
url=$(sed -n 's/.*"url":"\([^"]*\)".*/\1/p' said)
tessaline exposure 123
python3 - "$url" <<'PYTHON'
import json
import sys
import urllib.request

url = sys.argv[1].rstrip("/")
read = lambda path: urllib.request.urlopen(url + path, timeout=10).read().decode()
assert "<title>" in read("/")
assert json.loads(read("/api/v1/settings"))["exposure_us"] in (123, [123])
assert "\ntessaline_frames_total{" in read("/metrics")
PYTHON
kill "$daemon"
wait "$daemon" || true
[ ! -e "$TESSALINE_SOCKET" ]
test -s "$prefix/lib/systemd/system/tessaline-serve.service" ||
  test -s /lib/systemd/system/tessaline-serve.service
echo "the daemon serves"
