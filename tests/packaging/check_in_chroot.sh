#!/bin/sh
# Installs the packages of a directory in a fresh Debian 12. Uses them as the guide to the first
# scan and the tutorial of the Python package do, and to build applications. Then removes them and
# compares the files with those from before. Needs root and the network.
#   check_in_chroot.sh PACKAGES
set -eu
"$(dirname "$0")/../../scripts/setup" debootstrap
packages=$(readlink -f "$1")
tests=$(dirname "$(readlink -f "$0")")
guide=$tests/../../docs/first-scan.md
root=$(mktemp -d)
trap 'umount "$root/proc" 2>/dev/null || true; rm -rf --one-file-system "$root"' EXIT
debootstrap --variant=minbase bookworm "$root" >"$packages/debootstrap.log"
mkdir "$root/packages"
for package in "$packages"/*.deb; do
  case "$package" in *-dbgsym_*) ;; *) cp "$package" "$root/packages" ;; esac
done
cp -r "$tests" "$root/tests"
mkdir "$root/python"
cp -r "$tests/../../docs" "$tests/../../examples" "$tests/../../README.md" "$root"
cp -r "$tests/../../python/tests" "$root/python"
# The commands of the guide, except those that install.
awk '/^```sh$/ { typed = 1; next } /^```/ { typed = 0 } typed' "$guide" >"$root/first-scan"
grep -q 'tessaline capture strips' "$root/first-scan"

mount -t proc proc "$root/proc"  # where a program finds itself

# Uses none of this shell's settings, which refer to the host's installation.
in_root() {
  env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    http_proxy="${http_proxy:-}" https_proxy="${https_proxy:-}" "$(command -v chroot)" "$root" sh -euc "$1"
}
quietly() { in_root "$1" >"$packages/chroot.log" 2>&1 || { tail -20 "$packages/chroot.log"; exit 1; }; }
files() { (cd "$root" && find etc lib usr var -xdev ! -path 'var/cache/*' ! -path 'var/lib/dpkg/*' \
  ! -path 'var/lib/apt/*' ! -path 'var/log/*' ! -name ld.so.cache | sort); }

# Installs all dependencies first, so that only the packages themselves make a difference.
quietly 'apt-get update && apt-get install -y --no-install-recommends \
  adduser cmake gcc g++ libc6-dev libcli11-dev libfastcdr1 libpng-dev libfmt9 \
  libprometheus-cpp-core1.0 libsqlite3-0 libssl3 libsystemd0 ninja-build pkg-config \
  python3-matplotlib python3-numpy python3-pytest'
files >"$packages/before"
quietly 'apt-get install -y --no-install-recommends /packages/*.deb'
echo "the first scan"
in_root 'mkdir /tmp/scan && cd /tmp/scan && sh -eux /first-scan && ls -l'
echo "applications"
in_root 'sh /tests/check_consumers.sh /usr /tmp/consumers
  cc -std=gnu11 $(pkg-config --cflags tessaline) /tests/consumer/scan.c $(pkg-config --libs tessaline) -o /tmp/scan.out
  tessaline-board run --model K4010 -- /tmp/scan.out K4010'
echo "recordings"
in_root 'sh /tests/check_tools.sh /usr /tmp/tools'
echo "the daemon"
in_root 'sh /tests/check_serve.sh /usr /tmp/serve'
echo "Python"
in_root 'cd /python/tests && export PYTHONDONTWRITEBYTECODE=1
  python3 -m pytest -q -p no:cacheprovider test_tutorial.py test_examples.py
  sh /tests/check_python.sh /usr /tmp/python'
quietly 'apt-get remove -y tessaline-board'
in_root 'python3 /tmp/python/no_board.py'
quietly 'apt-get purge -y libtessaline1 libtessaline-profile1 libtessaline-dev python3-tessaline \
  tessaline-serve tessaline-tools tessaline-board'
files >"$packages/after"
diff "$packages/before" "$packages/after" || {
  echo "the packages leave these differences behind"
  exit 1
}
echo "installed, used and removed without a trace"
