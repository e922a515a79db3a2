# Sourced by the scripts that start simulated devices: what they need of the machine, asked for before anything is made.
# shellcheck shell=bash

# require_device_host NAME: ends the script, with 77 and one line that says what to do, where no device can run.
require_device_host() {
  local name=$1 reason=
  if [ "$(id -u)" -ne 0 ]; then
    reason="only root can start a simulated device; run it as root"
  elif ! { [ -c /dev/fuse ] && : <>/dev/fuse; } 2>/dev/null; then
    reason="/dev/fuse cannot be opened; run 'modprobe fuse', and give /dev/fuse to a container"
  elif ! mountpoint --quiet /; then
    reason="/ is not a mount point; run 'mount --bind FOLDER FOLDER' before 'chroot FOLDER'"
  elif ! unshare --mount true 2>/dev/null; then
    reason="mounting is not allowed here; start the container with the right to (CAP_SYS_ADMIN)"
  fi
  [ -n "$reason" ] || return 0
  echo "$name: $reason" >&2
  exit 77
}

# require_space NAME MIB FOLDER [ADVICE]: ends the script, with 70 and one line, where a folder's disk has too little room.
require_space() {
  local free
  free=$(df --output=avail --block-size=1M "$3" | tail -n 1) || exit 70
  ((free < $2)) || return 0
  echo "$1: $2 MiB are needed in $3, and ${free// /} are free; make room${4:+, or $4}" >&2
  exit 70
}
