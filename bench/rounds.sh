# Runs on the simulated device, behind measure.sh: measures $2 rounds on the shares in the folder $1. The programs take
# turns, and another one begins each round.

readonly work=$1 rounds=$2
readonly programs=(harbix gnutar bsdtar)

# In memory, where it is made of small pages. The page cache of a disk takes large ones for large writes, and a virtual
# machine may have to fetch those from its host: the same run was seen to take 0.19 and 1.5 s.
archive_name() { echo "/dev/shm/$1-$2.tar"; }

back_up() {
  local share=$1 program=$2 archive
  archive=$(archive_name "$share" "$program")
  case $program in
    harbix) measure_backup "$share" harbix "$archive" harbix -f "$archive" media ;;
    gnutar) measure_backup "$share" gnutar "$archive" tar -C "$SHARED" -cf "$archive" . ;;
    bsdtar) measure_backup "$share" bsdtar "$archive" bsdtar -C "$SHARED" -cf "$archive" . ;;
  esac
}

# For bash: PROGRAM ARCHIVE TARGET. harbix has succeeded when everything is on the medium, so the other programs get the
# system's wait for that behind them.
# shellcheck disable=SC2016  # expanded by the inner shell
readonly EXTRACT='"$1" -C "$3" -xf "$2" && sync --file-system "$3"'

# Each into an empty folder of its own. Nothing is deleted in between: for some seconds after many files have been
# deleted, ext4 searches long for an inode that was not in use of late, for any program.
restore() {
  local share=$1 program=$2 target=$3 archive
  archive=/tmp/$share-$program.tar
  make_empty_share "$target"
  cat "$archive" >/dev/null  # in memory, as it is for a program that has just received it
  case $program in
    harbix) with_share "$target" measure "$share" restore harbix harbix -r -f "$archive" media ;;
    gnutar) measure "$share" restore gnutar bash -c "$EXTRACT" extract tar "$archive" "$target" ;;
    bsdtar) measure "$share" restore bsdtar bash -c "$EXTRACT" extract bsdtar "$archive" "$target" ;;
  esac
  require_same "$work/$share" "$target"
}

backup_rounds() {
  local share=$1 round turn
  cat "$SHARED"/*/* "$SHARED"/*/*/* >/dev/null 2>&1 || true  # one of the two patterns finds nothing
  for ((round = 0; round < rounds; ++round)); do
    for turn in 0 1 2; do back_up "$share" "${programs[(round + turn) % 3]}"; done
  done
}

restore_rounds() {
  local share=$1 round turn program
  for ((round = 0; round < rounds; ++round)); do
    for turn in 0 1 2; do
      program=${programs[(round + turn) % 3]}
      restore "$share" "$program" "$work/restored/$share-$program-$round"
      # Eight inodes do not slow anything down, and half a gigabyte a run would fill the disk.
      [ "$share" = small ] || rm -r "$work/restored/$share-$program-$round"
    done
  done
}

# The wipe that begins a restore, here of an archive of nothing, beside the removal of the same tree.
wipe() {
  local program=$1 round=$2 share
  case $program in
    harbix)
      share=$work/restored/small-harbix-$round
      with_share "$share" measure small wipe harbix harbix -r -f /tmp/nothing.tar media
      require_wiped "$share"
      ;;
    rm) measure small wipe rm rm -rf "$work/restored/small-gnutar-$round" ;;
  esac
}

# Last, as deleted files slow down the making of others.
wipe_rounds() {
  local round turn removers=(harbix rm)
  tar -cf /tmp/nothing.tar -T /dev/null
  for ((round = 0; round < rounds; ++round)); do
    for turn in 0 1; do wipe "${removers[(round + turn) % 2]}" "$round"; done
  done
}

size_rounds() {
  local round
  for ((round = 0; round < rounds; ++round)); do measure_size small size 20000; done
}

for share in large small; do with_share "$work/$share" backup_rounds "$share"; done
mv /dev/shm/*.tar /tmp
with_share "$work/small" size_rounds
for share in large small; do restore_rounds "$share"; done
wipe_rounds
