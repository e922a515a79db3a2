# Runs on the simulated device, behind measure.sh: measures $2 rounds of backups of the shares in the folder $1 that are not in
# memory, onto the same disk. The programs take turns, and another one begins each round.

readonly work=$1 rounds=$2
readonly programs=(harbix gnutar bsdtar)
# For bash: PROGRAM ARCHIVE. harbix has succeeded when the archive is on the medium, so the other programs get the system's
# wait for that behind them.
# shellcheck disable=SC2016  # expanded by the inner shell
readonly ARCHIVE='"$1" -C "$3" -cf "$2" . && sync "$2"'

# Takes everything out of memory but the programs.
drop_caches() {
  sync
  echo 3 >/proc/sys/vm/drop_caches
  local program
  for program in harbix tar bsdtar bash sync awk /usr/bin/time; do
    "$program" --version >/dev/null 2>&1 || true  # that it is read is all that matters
  done
}

back_up() {
  local share=$1 program=$2 archive=/tmp/cold.tar
  rm -f "$archive"
  drop_caches
  case $program in
    harbix) take_time "$share" cold harbix harbix -f "$archive" media ;;
    gnutar) take_time "$share" cold gnutar bash -c "$ARCHIVE" archive tar "$archive" "$SHARED" ;;
    bsdtar) take_time "$share" cold bsdtar bash -c "$ARCHIVE" archive bsdtar "$archive" "$SHARED" ;;
  esac
  rm "$archive"
}

backup_rounds() {
  local share=$1 round turn
  for ((round = 0; round < rounds; ++round)); do
    for turn in 0 1 2; do back_up "$share" "${programs[(round + turn) % 3]}"; done
  done
}

for share in large small; do with_share "$work/$share" backup_rounds "$share"; done
