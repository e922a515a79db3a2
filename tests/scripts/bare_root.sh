#!/usr/bin/env bash
# Runs both commands of the README as on a new machine: in a Debian 12 root with nothing but what every one has, below a
# path with blanks. And what they say in a root where no device can run, or while another apt-get is at work. Run by hand,
# as root; needs mmdebstrap, this machine's package sources, 3 GB below TMPDIR and ten minutes:
# tests/scripts/bare_root.sh [demo|test]... runs one of both only. What git knows at HEAD is run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=$(mktemp -d)
trap 'rm -rf --one-file-system "$folder"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
readonly bare=$folder/root checkout="/root/a path with blanks/harbix"
failures=0

make_root() {
  local sources=/etc/apt/sources.list
  apt-config dump --format '%F "%v";%n' Acquire::http Acquire::https Acquire::Check-Valid-Until Acquire::Check-Date \
    >"$folder/apt.conf"
  # Those of Debian alone, where a machine has them in a file of their own.
  if [ -e /etc/apt/sources.list.d/debian.sources ]; then sources=/etc/apt/sources.list.d/debian.sources; fi
  chmod 0755 "$folder"
  mmdebstrap --quiet --mode=root --variant=minbase --aptopt="$folder/apt.conf" bookworm "$bare" - <"$sources"
  git clone --quiet "$root" "$bare$checkout"
}

# inside SCRIPT: runs it in the checkout. All of it ends with its namespaces. Nothing of this shell's environment comes in
# but what leads to the network.
inside() {
  # shellcheck disable=SC2016  # expanded by the inner shell
  unshare --mount --propagation private --pid --fork --kill-child bash -euc '
    mount --bind "$1" "$1"
    mount --rbind /dev "$1/dev"
    mount -t proc proc "$1/proc"
    mount -t tmpfs tmpfs "$1/run"
    exec chroot "$1" env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb \
      ${http_proxy:+"http_proxy=$http_proxy"} ${https_proxy:+"https_proxy=$https_proxy"} \
      bash -c "cd \"\$1\" || exit; $3" bash "$2"' bash "$bare" "$checkout" "$1" </dev/null
}

# expect CLAIM EXPECTED FOUND
expect() {
  if [ "$2" = "$3" ]; then
    echo "as expected: $1"
    return
  fi
  failures=$((failures + 1))
  printf 'FAILED: %s\nexpected:\n%s\nfound:\n%s\n' "$1" "$2" "$3"
}

# runs SCRIPT: whether it ends with 0, with its output to be seen.
runs() {
  local status=0 began_at=$SECONDS
  inside "$1" || status=$?
  expect "$1, in $((SECONDS - began_at)) s" 0 "$status"
  expect "$1 leaves no temporary file" '' "$(ls -A "$bare/tmp")"
}

refusals() {
  expect 'a plain chroot is told to be none where a device can run' \
    "demo: / is not a mount point; run 'mount --bind FOLDER FOLDER' before 'chroot FOLDER'"$'\nstatus 77' \
    "$(unshare --mount --propagation private bash -c "mount --rbind /dev '$bare/dev' &&
        mount -t proc proc '$bare/proc' && exec chroot '$bare' bash -c 'cd \"$checkout\" && scripts/demo; echo status \$?'" 2>&1)"
  expect 'no FUSE is told' \
    "demo: /dev/fuse cannot be opened; run 'modprobe fuse', and give /dev/fuse to a container"$'\nstatus 77' \
    "$(inside 'mount -t tmpfs none /dev && mknod /dev/null c 1 3; scripts/demo; echo status $?' 2>&1)"
  expect 'no root is told' $'test: only root can start a simulated device; run it as root\nstatus 77' \
    "$(inside 'chmod -R a+rX /root; setpriv --reuid 1000 --clear-groups scripts/test; echo status $?' 2>&1)"
  # The lock of "apt-get update", for which apt-get itself does not wait.
  # shellcheck disable=SC2016  # expanded inside
  expect 'a locked apt-get is told' \
    "$(printf '%s\n' 'setup: waiting for another program that installs packages' \
      'setup: another program that installs packages has not ended for 5 s; try again when it has' 'status 70')" \
    "$(inside 'perl -e "use Fcntl; open F, qq(>>), qq(/var/lib/apt/lists/lock); \$lock = pack(q(ssx4qqlx4), F_WRLCK, 0, 0, 0, 0); fcntl(F, F_SETLK, \$lock) or die; sleep 600" &
      sleep 1; scripts/setup --wait 5 demo; echo status $?' 2>&1 | sed '/^setup: installing/d')"
}

make_root
refusals
for name in "${@:-demo test}"; do
  for script in $name; do runs "scripts/$script"; done
done
[ "$failures" -eq 0 ]
