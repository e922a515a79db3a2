# Sourced by the scripts that start simulated devices: what they need of the machine, asked for before anything is built.
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
