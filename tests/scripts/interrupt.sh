#!/usr/bin/env bash
# Interrupts each script at many moments, as Ctrl-C and as a signal for the script alone, and looks what is left. Run by
# hand, as root, while nothing else on the machine mounts anything; takes about half an hour: tests/scripts/interrupt.sh
# [SCRIPT...] tries some scripts only. Builds in a copy.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
readonly copy="$folder/a copy"
export TMPDIR="$folder/for temporary files" HARBIX_INTERRUPTED=$folder
mkdir "$TMPDIR"
git clone --quiet "$root" "$copy"
cd "$copy"
tries=0
failures=0

# All that the script has started has its environment.
processes() { grep -l -s -a -F -z -x "HARBIX_INTERRUPTED=$folder" /proc/[0-9]*/environ | cut -d / -f 3 | sort; }
mounts() { cut -d ' ' -f 5 /proc/self/mountinfo | sort; }
loop_devices() { losetup --list --noheadings --raw --output NAME,BACK-FILE | sort; }

# left OUR_PROCESSES MOUNTS LOOP_DEVICES: a line for each thing that was not there before.
left() {
  local process
  # What this shell itself runs has gone when it is looked at.
  for process in $(comm -13 <(echo "$1") <(processes)); do
    tr '\0' ' ' 2>/dev/null <"/proc/$process/cmdline" | sed 's/^/process: /; s/$/\n/' || true
  done
  comm -13 <(echo "$2") <(mounts) | sed 's/^/mount: /'
  comm -13 <(echo "$3") <(loop_devices) | sed 's/^/loop device: /'
  find "$TMPDIR" -mindepth 1 -maxdepth 1 -printf 'folder or file: %p\n'
  [ ! -e build/bench/disk.img ] || echo 'file: build/bench/disk.img'
}

# interrupt SECONDS SIGNAL WHOM COMMAND...: WHOM is "group", as the terminal does, or "script".
interrupt() {
  local delay=$1 signal=$2 whom=$3 before=() status=0 found target
  shift 3
  before=("$(processes)" "$(mounts)" "$(loop_devices)")
  set -m
  # A shell that runs this in its background has it ignore them.
  env --default-signal=INT,TERM,HUP "$@" >"$folder/output" 2>&1 </dev/null &
  set +m
  target=$!
  sleep "$delay"
  if [ "$whom" = group ]; then target=-$target; fi
  kill -s "$signal" -- "$target" 2>/dev/null || status=over
  wait $! 2>/dev/null || status=$?
  tries=$((tries + 1))
  found=$(left "${before[@]}")
  if [ "$status" = over ] || [ "$status" = 0 ]; then
    echo "over before: $* after $delay s"
  elif [ "$status" -ne $((128 + $(kill -l "$signal"))) ]; then
    found="status $status"$'\n'"$(tail -n 5 "$folder/output")"$'\n'$found
  fi
  printf '%s %s after %s s: %s\n' "$signal" "$whom" "$delay" "$*"
  [ -n "$found" ] || return 0
  failures=$((failures + 1))
  echo "LEFT: $found"
}

# interrupt_often SECONDS... -- COMMAND...
interrupt_often() {
  local delays=() delay
  while [ "$1" != -- ]; do delays+=("$1") && shift; done
  shift
  for delay in "${delays[@]}"; do
    interrupt "$delay" INT group "$@"
    interrupt "$delay" TERM script "$@"
  done
  interrupt "${delays[-1]}" HUP script "$@"
}

for script in "${@:-build tidy demo test bench}"; do
  for name in $script; do
    case $name in
      build) interrupt_often 0.05 0.2 1 3 10 -- scripts/build release ;;
      tidy) interrupt_often 0.2 3 8 -- scripts/tidy '/src/platform/' ;;
      demo)
        scripts/build release harbix harbix_device
        interrupt_often 0.1 0.5 1 1.5 2 2.5 3 4 5 6 8 10 12 15 -- scripts/demo
        ;;
      test)
        scripts/build release
        interrupt_often 0.2 1 3 5 10 20 40 -- scripts/test
        ;;
      bench)
        interrupt_often 1 5 10 20 -- scripts/bench --rounds 1
        # With data, so that later moments come.
        scripts/bench --rounds 1 >/dev/null 2>&1 || true  # targets that are missed are none of this test's
        interrupt_often 5 15 30 45 60 -- scripts/bench --rounds 1
        ;;
    esac
  done
done
echo "$tries interrupts, $failures left something"
[ "$failures" -eq 0 ]
