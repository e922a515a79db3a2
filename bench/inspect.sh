# Runs on the simulated device, behind rounds.sh: harbix-inspect on the archives that harbix has left there, beside programs that
# read as much.

readonly readers=(verify list verify_pipe cat_pipe checksums sha256sum)

# read_archive SHARE READER ARCHIVE
# shellcheck disable=SC2016  # expanded by the inner shell
read_archive() {
  local share=$1 archive=$3
  case $2 in
    verify) take_time_quietly "$share" verify inspect harbix-inspect verify "$archive" ;;
    list) take_time_quietly "$share" verify bsdtar bsdtar -tf "$archive" ;;
    verify_pipe) take_time "$share" verify-pipe inspect bash -c 'cat "$1" | harbix-inspect verify - >/dev/null' pipe "$archive" ;;
    cat_pipe) take_time "$share" verify-pipe cat bash -c 'cat "$1" | cat >/dev/null' pipe "$archive" ;;
    checksums) take_time_quietly "$share" checksums inspect harbix-inspect checksums "$archive" ;;
    sha256sum) take_time_quietly "$share" checksums sha256sum sha256sum "$archive" ;;
  esac
}

read_rounds() {
  local share=$1 count=$2 archive=/tmp/$1-harbix.tar round turn
  cat "$archive" >/dev/null  # in memory
  for ((round = 0; round < count; ++round)); do
    for turn in "${!readers[@]}"; do
      read_archive "$share" "${readers[(round + turn) % ${#readers[@]}]}" "$archive"
    done
  done
}

for share in large small; do read_rounds "$share" "$2"; done
