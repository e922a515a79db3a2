# Sourced by the scripts, after job.bash: runs a job whose output goes to a file, and shows how far it is.
# shellcheck shell=bash

# progress_of LOG: how far the job is, in a line. Ninja says it in its last one; a script whose job does not defines this
# again.
progress_of() { tail -n 1 "$1"; }

# show_progress NAME LOG: on a terminal one line that changes, elsewhere a line a minute.
show_progress() {
  local line
  if [ -t 1 ]; then
    line=$(progress_of "$2" | tr -d '\000-\037')
    printf '\r\033[K%.*s' "$(tput cols 2>/dev/null || echo 80)" "$1: $line"
  elif ((SECONDS - told_at >= 60)); then
    told_at=$SECONDS
    line=$(progress_of "$2" | tr -d '\000-\037')
    printf '%s: after %d s: %.100s\n' "$1" $((SECONDS - began_at)) "$line"
  fi
}

# run_shown NAME LOG COMMAND...: the command's status. Ends the script when LOG cannot be written: nothing has run then.
run_shown() {
  local name=$1 log=$2 told_at=$SECONDS began_at=$SECONDS status=0
  shift 2
  if ! { mkdir -p "$(dirname "$log")" && : >"$log"; }; then
    echo "$name: nothing was done, as $log cannot be written" >&2
    exit 70
  fi
  start_job "$@" >"$log" 2>&1
  while job_is_running; do
    show_progress "$name" "$log"
    sleep 0.2
  done
  wait_job || status=$?
  if [ -t 1 ]; then printf '\r\033[K'; fi
  return "$status"
}

# explain_failure NAME LOG WHAT: what the log is about, and its reason where that is not in the code.
explain_failure() {
  if grep -q 'No space left on device' "$2"; then
    echo "$1: $3: no space is left on the disk of $2, or in ${TMPDIR:-/tmp}; make room and try again" >&2
    exit 70
  fi
  echo "$1: $3; the text above is kept in $2" >&2
}
