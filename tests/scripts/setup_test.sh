#!/usr/bin/env bash
# Tests scripts/setup with a package system that is played. Changes nothing on the machine.
# shellcheck disable=SC2016  # what is played is expanded when it runs
set -euo pipefail
# shellcheck source=tests/scripts/support.bash
source "$(dirname "${BASH_SOURCE[0]}")/support.bash"

export calls=$folder/calls states=$folder/states
play id <<<'echo "${user:-0}"'
# dpkg-query -W -f FORMAT PACKAGE
play dpkg-query <<'END'
state=$(grep "^$4 " "$states")
if [ -n "$state" ]; then echo "${state#* }"; else echo installed; fi
END
play apt-get <<<'echo "${*: -1}" >>"$calls"'

# setup STATES ARGUMENT...: a line of STATES is a package that is not installed, and its state.
setup() {
  : >"$calls"
  echo "$1" >"$states"
  shift
  outcome "$copy/scripts/setup" "$@"
  echo "calls: $(tr '\n' ' ' <"$calls")"
}

expect 'installs nothing where all is there' $'status 0\ncalls: ' "$(setup '' all)"

for state in triggers-pending triggers-awaited; do
  expect "takes $state for installed" $'status 0\ncalls: ' "$(setup "g++ $state" all)"
done
for state in not-installed config-files half-installed unpacked half-configured; do
  expect "installs what is $state" $'setup: installing g++\nstatus 0\ncalls: update g++ ' "$(setup "g++ $state" all)"
done

missing=$'libgtest-dev not-installed\nlibfuse3-dev not-installed\ne2fsprogs not-installed\nclang-tidy not-installed
lintian not-installed\nbsdextrautils not-installed'
# wanted PURPOSE...: what is installed of these.
wanted() { setup "$missing" "$@" | sed -n 's/^setup: installing //p'; }
expect 'installs for programs alone' 'libfuse3-dev' "$(wanted build)"
expect 'installs for harbix-inspect' $'setup: installing libssl-dev\nstatus 0\ncalls: update libssl-dev ' \
  "$(setup 'libssl-dev not-installed' build inspect)"
expect 'installs nothing of harbix-inspect for the other programs' $'status 0\ncalls: ' \
  "$(setup 'libssl-dev not-installed' build bench)"
expect 'installs what the demo shows of harbix-inspect' 'libssl-dev' \
  "$(setup 'libssl-dev not-installed' demo | sed -n 's/^setup: installing //p')"
expect 'installs for the demo' 'bsdextrautils libfuse3-dev' "$(wanted demo)"
expect 'installs for tests' 'e2fsprogs libfuse3-dev libgtest-dev' "$(wanted test)"
expect 'installs for tests without a purpose' 'e2fsprogs libfuse3-dev libgtest-dev' "$(wanted)"
expect 'installs for clang-tidy' 'clang-tidy e2fsprogs libfuse3-dev libgtest-dev' "$(wanted tidy)"
expect 'installs for measurements' 'e2fsprogs libfuse3-dev' "$(wanted bench)"
expect 'installs for several purposes' 'bsdextrautils e2fsprogs libfuse3-dev' "$(wanted demo bench)"
expect 'installs for the check of a change' 'clang-tidy e2fsprogs libfuse3-dev libgtest-dev lintian' "$(wanted ci)"
expect 'installs for all' 'bsdextrautils clang-tidy e2fsprogs libfuse3-dev libgtest-dev lintian' "$(wanted all)"

expect 'tells without installing that something is missing' $'status 1\ncalls: ' \
  "$(setup "$missing" --installed test)"
expect 'tells without installing that nothing is missing' $'status 0\ncalls: ' "$(setup '' --installed test)"
expect 'says without root what root has to do' \
  $'setup: only root can install what is missing: apt-get install libfuse3-dev\nstatus 77\ncalls: ' \
  "$(user=1000 setup "$missing" build)"
expect 'needs no root where all is there' $'status 0\ncalls: ' "$(user=1000 setup '' build)"
expect 'refuses another purpose' 'status 64' "$(setup '' toast | grep '^status')"
expect 'refuses a time that is none' $'setup: --wait needs a number of seconds\nstatus 64\ncalls: ' \
  "$(setup '' --wait soon build)"

# Locked as long as the file "locked" has a line left.
export locked=$folder/locked
play apt-get <<'END'
echo "${*: -1}" >>"$calls"
[ -s "$locked" ] || exit 0
sed -i 1d "$locked"
echo "E: Could not get lock /var/lib/apt/lists/lock. It is held by process 7 (apt-get)" >&2
exit 100
END
play sleep <<<''
printf '1\n2\n' >"$locked"
expect 'waits for another apt-get, and says so once' \
  $'setup: installing g++\nsetup: waiting for another program that installs packages\nstatus 0\ncalls: update update update g++ ' \
  "$(setup 'g++ not-installed' build)"
seq 100 >"$locked"
expect 'gives up after a time' \
  $'setup: installing g++\nsetup: another program that installs packages has not ended for 0 s; try again when it has\nstatus 70\ncalls: update ' \
  "$(setup 'g++ not-installed' --wait 0 build)"

play apt-get <<<'echo "E: no route to host" >&2; exit 100'
expect 'hands on the reason of another failure' \
  $'setup: installing g++\nE: no route to host\nsetup: apt-get update failed; the text above says why\nstatus 70\ncalls: ' \
  "$(setup 'g++ not-installed' build)"

# apt-get ends by itself when it has come to an end that leaves no package half installed.
rm "$programs/sleep"
play apt-get <<'END'
trap 'echo told >>"$calls"' INT
[ "${*: -1}" != update ] || exit 0
echo begun >>"$calls"
for turn in {1..10}; do sleep 0.1; done
echo ended >>"$calls"
END
for signal in INT TERM HUP; do
  : >"$calls"
  echo 'g++ not-installed' >"$states"
  set -m
  # A shell that runs the tests in its background has them ignore SIGINT.
  env --default-signal=INT,TERM,HUP "$copy/scripts/setup" build >/dev/null 2>&1 &
  set +m
  until grep -q begun "$calls"; do sleep 0.05; done
  kill -s "$signal" $!
  status=0
  wait $! 2>/dev/null || status=$?
  expect "lets apt-get end after SIG$signal" \
    "$(printf 'begun\ntold\nended\n%d' $((128 + $(kill -l "$signal"))))" "$(cat "$calls" && echo "$status")"
done

finish
