# Runs on the simulated device, in front of what is measured there. Each measured run becomes one line on standard
# output, fields separated by tabs: share, operation, program, seconds, processor seconds, peak memory in KiB.
set -euo pipefail
export LC_ALL=C  # a point in numbers

readonly SHARED=/accounts/1000/shared

# Puts memory that was in use a moment ago on top of what is free, in small pieces and in large ones. In a virtual
# machine, memory that has been free for long may have to be fetched from the host, which was seen to take four times as
# long as the run itself and slows the program that runs first.
warm_memory() {
  head -c 768M /dev/zero >/dev/shm/warm
  dd if=/dev/zero of=/var/tmp/warm bs=1M count=768 status=none
  rm /dev/shm/warm /var/tmp/warm
}

# take_time SHARE OPERATION PROGRAM COMMAND...
take_time() {
  local share=$1 operation=$2 program=$3 begin end usage
  shift 3
  usage=$(mktemp /run/usage.XXXXXX)
  begin=${EPOCHREALTIME/./}
  if ! /usr/bin/time --quiet --format '%U %S %M' --output "$usage" "$@" </dev/null >&2; then
    echo "bench: failed: $*" >&2
    exit 2
  fi
  end=${EPOCHREALTIME/./}
  awk -v run="$share\t$operation\t$program" -v microseconds=$((end - begin)) \
    '{ printf "%s\t%.6f\t%.2f\t%d\n", run, microseconds / 1e6, $1 + $2, $3 }' "$usage"
  rm "$usage"
}

# take_time_quietly SHARE OPERATION PROGRAM COMMAND...: without what it prints on standard output.
# shellcheck disable=SC2016  # expanded by the inner shell
take_time_quietly() { take_time "${@:1:3}" bash -c 'exec "$@" >/dev/null' quietly "${@:4}"; }

# measure SHARE OPERATION PROGRAM COMMAND...
measure() {
  sync  # what the run before left to be written must not disturb this one
  warm_memory
  take_time "$@"
}

# measure_backup SHARE PROGRAM ARCHIVE COMMAND...: the second of two runs, which writes its archive into the memory that
# the first one's has just given back.
measure_backup() {
  local share=$1 program=$2 archive=$3
  shift 3
  rm -f "$archive"
  "$@" </dev/null >&2
  rm "$archive"
  sync
  take_time "$share" backup "$program" "$@"
}

# A folder that can be put in the place of the share.
make_empty_share() {
  mkdir -p "$1"
  chown media:1000_shared "$1"
  chmod 0770 "$1"
}

# with_share FOLDER COMMAND...: COMMAND finds FOLDER in the place of the share.
with_share() {
  mount --bind "$1" "$SHARED"
  shift
  "$@"
  umount "$SHARED"
}

# Dies when the second tree is not the first one's equal in names, types and contents.
require_same() {
  diff --recursive --no-dereference "$1" "$2" >&2 && return
  echo "bench: $2 is not what was backed up" >&2
  exit 2
}

# Dies when a wipe has left more of a share than its top-level folders, which stay.
require_wiped() {
  [ -z "$(find "$1" -mindepth 2 -print -quit)" ] && return
  echo "bench: $1 is not wiped" >&2
  exit 2
}

# Measures the size query, which has to answer COUNT: measure_size SHARE OPERATION COUNT
measure_size() {
  local report=/run/size
  measure "$1" "$2" harbix harbix -f "$report" -s media
  grep -qx "count=$3" "$report" && return
  echo "bench: the size query did not count $3 items:" >&2
  cat "$report" >&2
  exit 2
}
