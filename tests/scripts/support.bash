# Sourced by the tests of scripts/: a copy of the scripts whose path has blanks, with programs that play others' part.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
failures=0

copy="$folder/a copy"
programs=$folder/programs
mkdir "$copy" "$programs"
cp -r "$root/scripts" "$copy"
PATH=$programs:$PATH

# play NAME: standard input is the script that stands in for the program NAME.
play() {
  { echo '#!/usr/bin/env bash' && cat; } >"$programs/$1"
  chmod 0755 "$programs/$1"
}

# expect CLAIM EXPECTED FOUND
expect() {
  [ "$2" != "$3" ] || return 0
  failures=$((failures + 1))
  printf 'failed: %s\nexpected:\n%s\nfound:\n%s\n' "$1" "$2" "$3"
}

# outcome COMMAND...: all its output, and its status.
outcome() {
  local status=0
  "$@" 2>&1 </dev/null || status=$?
  echo "status $status"
}

finish() {
  [ "$failures" -eq 0 ] || exit 1
  echo "all as expected"
}
