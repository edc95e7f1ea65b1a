#!/bin/sh
# How fast messages go through a server by its makers' own measure: one publisher, one subscriber,
# nothing stored. Debian has the benchmark package of the Go client, but not the program around it.
#   bench_tool.sh [BYTES] [MESSAGES] [FILE]
# 117000 bytes: ten strips of a K3610. FILE: where the program is kept, or already is.
# Needs golang-go, golang-github-nats-io-go-nats-dev and nats-server.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server"; rm -rf "$folder"' EXIT
program=${3:-$folder/bench_tool}
[ -x "$program" ] ||
  GO111MODULE=off GOPROXY=off GOPATH=/usr/share/gocode GOFLAGS= GOCACHE="$folder/cache" \
    go build -o "$program" "$here/bench_tool/main.go"
nats-server -a 127.0.0.1 -p -1 --ports_file_dir "$folder" >"$folder/log" 2>&1 &
server=$!
until ls "$folder"/nats-server_*.ports >/dev/null 2>&1; do sleep 0.1; done
url=$(sed -n 's/.*"\(nats:[^"]*\)".*/\1/p' "$folder"/nats-server_*.ports)
"$program" "$url" "${1:-117000}" "${2:-20000}"
