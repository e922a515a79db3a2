# Runs on a simulated device in memory, behind measure.sh: one backup and one restore of $1 settings, half of them PPS objects
# and half plain files in a whitelisted folder.

readonly count=$1
readonly archive=/tmp/settings.tar scripts=/base/scripts/backup_and_restore/settings folder=/accounts/1000/settings/bench

make_items() {
  local number
  mkdir -p /pps/bench "$folder"
  # shellcheck disable=SC2016  # "$1" is for the script that is written
  printf '#!/bin/sh\n[ "$1" = whitelist ] && echo whitelist %s || true\n' "$folder" >"$scripts/bench"
  chmod 0755 "$scripts/bench"
  for ((number = 0; number < count / 2; ++number)); do
    printf 'level:n:%d\nstate::on\n' "$number" >>"/pps/bench/object$number"
    printf 'level = %d\n' "$number" >"$folder/file$number.conf"
  done
}

require_items() {
  local found
  found=$(bsdtar -tf "$archive" | grep -c '/bench/' || true)  # none is no failure of grep's
  [ "$found" -eq $((count / 2 * 2)) ] && return
  echo "bench: $found settings in the archive instead of $count" >&2
  exit 2
}

make_items
measure settings "backup$count" harbix harbix -f "$archive" settings
require_items
measure settings "restore$count" harbix bash -c "exec harbix -r -f $archive settings 2>/tmp/log"
