#!/bin/sh
# Runs the benchmarks briefly and checks that every row exists and has plausible figures: positive
# times, and ratios that a busy machine can reach. It does not check how long anything takes. The
# programs themselves fail if a reordered image differs from the one made in the plain way.
#   check_table.sh BENCH_HOT_PATHS BENCH_APPLICATION
set -eu
table=$("$1" --quick && "$2" --quick)
points=$("$1" --quick --growth && "$2" --quick --growth)
profile=$("$2" --quick --profile)
printf '%s\n' "$table"
printf '%s\n' "$table" | awk -F'|' '
  BEGIN {
    wanted["image reorder "] = 9
    wanted[" / bare walk, "] = 3
    wanted[" / reading their bytes"] = 4
    wanted[" / reading cached bytes"] = 1
    wanted[", waiting in poll / not waiting"] = 2
    wanted["poll of a device and a wake-up, "] = 1
    wanted["pages of 160 touched "] = 1
    wanted["register read / its four calls, "] = 2
    wanted["register write / its four calls, "] = 2
    wanted["register change / a read and a write, "] = 2
    wanted[" / bare DQBUF and QBUF"] = 4
    wanted["inverting them in place"] = 1
    wanted["allocations of the library in "] = 2
    wanted["resident memory without frame buffers, "] = 2
    wanted[": dequeue to handler, "] = 6
    wanted["start-up of a "] = 5
    wanted["size of the stripped library"] = 1
    for (name in wanted) rows += wanted[name]
  }
  function complain(text) { print "wrong: " text; failed = 1 }
  /^\|  / || /^\|--/ { next }
  {
    lines++
    found = 0
    for (name in wanted) if (index($2, name)) { seen[name]++; found = 1 }
    if (!found) complain("a row nobody expects:" $2)
    if ($2 ~ /allocations/) {
      if ($2 !~ /in [1-9]/ || $3 + 0 != 0) complain($0)
    } else if ($3 !~ /[0-9] *(ns|us|ms|s|\/s|MB|kB)? *$/ || $3 + 0 <= 0) complain($0)
    if ($2 ~ /pages/ && $3 + 0 != 4) complain($0)
    if ($4 ~ /[^ ]/ && $5 ~ /[^ ]/ && ($5 + 0 < 0.001 || $5 + 0 > 1000)) complain($0)
    if ($6 ~ /inf|nan/) complain($0)
    if ($2 ~ / \/ / && $5 !~ /[0-9] \([0-9.]+ \.\. [0-9.]+\)/) complain($0)
  }
  END {
    for (name in wanted) if (seen[name] != wanted[name]) complain(seen[name] + 0 " rows of:" name)
    if (lines != rows) complain(lines " rows, not " rows)
    exit failed
  }'
for series in reorder strips points profile delivered latency; do
  printf '%s\n' "$points" | awk -v series=$series '
    $1 == series && NF == 8 && $2 > 0 && $3 > 0 && ($4 > 0 && $6 > 0 || $5 > 0) { good = 1 }
    $1 == "#" && $3 == series && NF == 15 && $5 != 0 && $7 != 0 && $9 != 0 { judged = 1 }
    END { if (!good || !judged) print "wrong: no points of " series; exit !(good && judged) }'
done
printf '%s\n' "$profile" | awk -F'|' '
  $2 ~ /^ K/ && NF == 13 {
    good = 1
    for (i = 3; i <= NF - 1; i++) if (i != 6 && i != 7 && i != 8 && $i + 0 <= 0) good = 0
  }
  END { if (!good) print "wrong: no profile"; exit !good }'
