#!/usr/bin/env bash
# Tests that scripts/ end with the status of their work, with compilers and tests that are played. Needs root.
# shellcheck disable=SC2016  # what is played is expanded when it runs
set -euo pipefail
# shellcheck source=tests/scripts/support.bash
source "$(dirname "${BASH_SOURCE[0]}")/support.bash"

cd "$copy"
play dpkg-query <<<'echo installed'
play cmake <<<'echo "cmake $*"; exit "${cmake_status:-0}"'
play run-clang-tidy <<<'for ((i = 0; i < ${files:-1}; ++i)); do echo "clang-tidy -p=build file"; done; exit "${tidy_status:-0}"'

expect 'a build that succeeds is silent' 'status 0' "$(outcome scripts/build debug)"
expect 'a build of one target makes that one' $'cmake --preset debug\ncmake --build --preset debug --target a b' \
  "$(scripts/build debug a b </dev/null && cat build/debug.log)"
expect 'a build that fails shows all of its output' \
  $'cmake --preset debug\nbuild: the preset \'debug\' cannot be built; the text above is kept in build/debug.log\nstatus 1' \
  "$(cmake_status=3 outcome scripts/build debug)"
expect 'clang-tidy that succeeds is silent' 'status 0' "$(outcome scripts/tidy)"
expect 'clang-tidy that fails shows its output' \
  $'cmake --preset tidy -D CMAKE_UNITY_BUILD=ON\nclang-tidy -p=build file\ntidy: not clean; the text above is kept in build/tidy.log\nstatus 1' \
  "$(tidy_status=1 outcome scripts/tidy)"
expect 'clang-tidy of files that are named looks at them one by one' 'cmake --preset tidy -D CMAKE_UNITY_BUILD=OFF' \
  "$(scripts/tidy src/base </dev/null && head -n 1 build/tidy.log)"
expect 'clang-tidy that looks at no file is a failure' $'tidy: no source file matches: src/toast\nstatus 1' \
  "$(files=0 outcome scripts/tidy src/toast)"

play cmake <<<'echo "cc1plus: No space left on device"; exit 1'
expect 'a full disk is told as one' \
  $'cc1plus: No space left on device\nbuild: the preset \'debug\' cannot be built: no space is left on the disk of build/debug.log, or in /tmp; make room and try again\nstatus 70' \
  "$(unset TMPDIR && outcome scripts/build debug)"

# A folder is in the way of each log.
rm -r build && mkdir -p build/debug.log build/tidy.log
play cmake <<<'echo ran >>"$calls"'
export calls=$folder/calls
: >"$calls"
for script in 'build debug' tidy; do
  name=${script% *}
  log=build/${script#* }.log
  # shellcheck disable=SC2086  # the script and its argument
  expect "scripts/$script is no success when its log cannot be written" \
    "$name: nothing was done, as $log cannot be written"$'\nstatus 70' \
    "$(outcome scripts/$script | sed '/Is a directory/d')"
done
expect 'nothing runs without its log' '' "$(cat "$calls")"

# scripts/test with tests that leave something behind.
rm -r build
play cmake <<<''
play ctest <<'END'
while [ "$1" != --output-log ]; do shift; done
eval "$work"
printf '%s\n' "${lines[@]:-100% tests passed, 0 tests failed out of 7}" >"$2"
exit "${ctest_status:-0}"
END
# tested WORK: what scripts/test says of tests that do WORK. What differs from run to run is left out.
tested() {
  work=$1 outcome scripts/test --preset debug | sed -E 's/, in [0-9]+ s$//; s|(harbix-tests-)[0-9-]+/left$|\1X/left|; s/process: [0-9]+/process:/'
}
passed=$'test: building (debug)\ntest: 7 passed, 0 failed, 0 skipped'
bad_end=$'test: failed; all output is in build/debug-tests.log\nstatus 1'
export work TMPDIR=$folder
expect 'tests that leave nothing behind pass' "$passed"$'\nstatus 0' "$(tested :)"
expect 'a folder that is left is told' \
  "$passed"$'\ntest: left behind by the tests:\nfolder or file: '"$folder/harbix-tests-X/left"$'\n'"$bad_end" \
  "$(tested 'mkdir "$TMPDIR/left"')"
expect 'a process that is left is told' "$passed"$'\ntest: left behind by the tests:\nprocess: sleep 600\n'"$bad_end" \
  "$(tested 'setsid sleep 600 &')"
expect 'a mount that is left is told' \
  "$passed"$'\ntest: left behind by the tests:\nmount: '"$copy/build/on"$'\n'"$bad_end" \
  "$(tested 'mkdir build/on && mount -t tmpfs none build/on')"
expect 'a process of a moment is none that is left' "$passed"$'\nstatus 0' "$(tested 'setsid sleep 1 &')"
expect 'nothing is there afterwards' "$(printf '%s\n' 'a copy' calls programs)" "$(ls "$folder")"
expect 'no process is there afterwards' '' "$(pgrep -f 'sleep 600' || true)"

expect 'too little room is told before anything is done' \
  "test: 700 MiB are needed in $folder/small, and 1 are free; make room, or set TMPDIR to another folder"$'\nstatus 70' \
  "$(mkdir "$folder/small" && unshare --mount bash -c 'mount -t tmpfs -o size=1m none "$0" && TMPDIR=$0 scripts/test' \
    "$folder/small" 2>&1; echo "status $?")"

play ctest <<'END'
while [ "$1" != --output-log ]; do shift; done
printf '%b\n' "50% tests passed$no_colour, ${red}2 tests failed$no_colour out of 4" '' 'The following tests FAILED:' \
  "\t$red  3 - Names.AreClaims (Failed)$no_colour" "\t${red}204 - Rows/Names.Of/\"a+\" (Timeout)$no_colour" >"$2"
exit 8
END
export red no_colour
for red in '' '\e[0;31m'; do
  no_colour=${red:+'\e[0;0m'}
  expect 'tests that fail are named, also where CTest colours its log' \
    "$(printf '%s\n' 'test: building (debug)' 'test: 2 passed, 2 failed, 0 skipped' 'test: failed: Names.AreClaims' \
      'test: failed: Rows/Names.Of/"a+"' "test: to run one again: ctest --preset debug -R '^Names.AreClaims\$'" \
      'test: to run all of them again: ctest --preset debug --rerun-failed' \
      'test: failed; all output is in build/debug-tests.log' 'status 8')" "$(tested :)"
done

finish
