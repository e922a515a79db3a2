# shellcheck shell=bash
# To be sourced. require_programs NAME...: ends the test when a program is missing: as skipped on a developer's machine, as
# failed where the environment has CI=true, so that no check is lost there unseen.
require_programs() {
  local name
  for name in "$@"; do
    if ! command -v "$name" >/dev/null; then
      echo "the program '$name' is missing; scripts/setup installs it" >&2
      if [ "${CI:-}" = true ]; then exit 1; fi
      exit 77
    fi
  done
}
