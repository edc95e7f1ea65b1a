#!/bin/sh
# Checks what the command tessaline-board does with its arguments.
#   check_runner.sh PREFIX
set -eu
export runner="$1/bin/tessaline-board"
unset TESSALINE_BOARD LD_PRELOAD
failed=0

expect() { # STATUS PATTERN ARGUMENT...
  wanted=$1 pattern=$2
  shift 2
  status=0
  text=$("$runner" "$@" 2>&1) || status=$?
  [ "$status" = "$wanted" ] && printf '%s\n' "$text" | grep -q -e "$pattern" && return
  echo "tessaline-board $*: status $status, \"$text\"; wanted $wanted, \"$pattern\""
  failed=1
}

expect 0 '^Usage: tessaline-board ' --help
expect 0 '^Usage: tessaline-board run ' run --help
expect 0 '^tessaline-board 1\.' --version
expect 2 'no command given'
expect 2 'no command "walk"' walk
expect 2 'which program' run --model K3610
expect 2 'which program' run --
expect 2 '--model: 1 required' run --model
expect 2 'not expected: --modell' run --modell K3610 -- true
expect 2 'no board of model "X1"' run --model X1 -- true
expect 127 'no-such-program' run -- no-such-program
expect 7 '' run -- sh -c 'exit 7'
expect 0 '^K3610,$' run -- sh -c 'echo "$TESSALINE_BOARD,${TESSALINE_BOARD_PACE:-}"'
expect 0 '^K4010 free 0 3 a b$' run --model K4010 --pace free --sleep 0 --strips 3 \
  sh -c 'echo "$TESSALINE_BOARD $TESSALINE_BOARD_PACE $TESSALINE_BOARD_SLEEP $TESSALINE_BOARD_STRIPS $*"' sh a b
expect 0 '^absent eeprom$' run --faults 'absent eeprom' -- printenv TESSALINE_BOARD_FAULTS
expect 0 '^real:7 plane,tilt=2$' run --optics real:7 --scene plane,tilt=2 \
  sh -c 'echo "$TESSALINE_BOARD_OPTICS $TESSALINE_BOARD_SCENE"'
expect 2 '^TESSALINE_BOARD_SCENE: there is no scene "ball"' run --scene ball -- true
# The rest is in tests/standard_tools/test_run.py.
# The program runs on the board, and its calls are in the transcript.
transcript=$(mktemp)
trap 'rm -f "$transcript"' EXIT
temperature=/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw
expect 0 '^[0-9]*$' run --transcript "$transcript" -- cat "$temperature"
grep -q '^iio read in_temp0_raw' "$transcript" || {
  echo "the transcript lacks the temperature:"
  cat "$transcript"
  failed=1
}
exit "$failed"
