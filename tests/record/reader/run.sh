#!/bin/sh
# Reads a recording, and a bag made of one, with the packages in package.json, which npm puts into
# FOLDER.
#   run.sh SAMPLE FOLDER    SAMPLE: the program record_sample
# Exits with 77, and says why, if there is no npm or it does not reach its registry.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
sample=$1
folder=$2

command -v npm >/dev/null || {
  echo "SKIPPED: no npm; install it with: scripts/setup npm"
  exit 77
}
mkdir -p "$folder"
cd "$folder"
# They are fetched again only when the list has changed.
if ! cmp -s "$here/package-lock.json" installed-package-lock.json; then
  cp "$here/package.json" "$here/package-lock.json" .
  if ! npm ci --ignore-scripts --no-audit --no-fund --fetch-retries 1 >npm.log 2>&1; then
    cat npm.log
    # What the lock file or the scripts got wrong would be in here under another name.
    grep -qE '(code|errno) (E(USAGE|INTEGRITY|JSONPARSE|RESOLVE)|ETARGET|E404)' npm.log && exit 1
    echo "SKIPPED: npm does not get the packages from its registry"
    exit 77
  fi
  cp "$here/package-lock.json" installed-package-lock.json
fi
cp "$here/read_recording.js" .
rm -rf sample
mkdir sample
"$sample" sample
node read_recording.js sample/run.db3 sample/run.json EVERY
node read_recording.js sample/bag sample/bag.json
