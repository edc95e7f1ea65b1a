#!/bin/sh
# Runs tests of the daemon with the Python of the system.
#   run.sh FILE...    options of pytest are passed on
# TESSALINE_SERVE names the daemon. Exits with 77, and says why, if something is missing.
set -eu
python=/usr/bin/python3
"$python" -c 'import pytest, websockets' 2>/dev/null || {
  echo "SKIPPED: install python3-pytest and python3-websockets"
  exit 77
}
PYTHONDONTWRITEBYTECODE=1 exec "$python" -m pytest -q -rs -p no:cacheprovider "$@"
