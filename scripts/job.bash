# Sourced by the scripts: long work as a job that ends, with all that it has started, when the script is told to end.
# Bash looks at a signal only between two commands. So what takes long runs beside the script, in a process group of its
# own: Ctrl-C at the terminal and a signal for the script alone then take the same way.
# shellcheck shell=bash

job=        # the number of the process, and of its group
starting=no
pending=    # the number of a signal that came while a job was starting
scratch=    # a temporary folder

# start_job COMMAND...: the terminal's keys are not for it.
start_job() {
  starting=yes
  # Only so has a command in the background a group of its own, and SIGINT is not ignored in it. Bash would take the
  # terminal for its jobs, and with it Ctrl-C from who called: it looks for the terminal at its standard error.
  { set -m; } 2>/dev/null
  "$@" </dev/null &
  job=$!
  { set +m; } 2>/dev/null
  starting=no
  [ -z "$pending" ] || stop "$pending"
}

# wait_job: the job's status.
wait_job() {
  local status=0
  # Bash reports a job that a signal has ended.
  wait "$job" 2>/dev/null || status=$?
  job=
  return "$status"
}

run_job() {
  start_job "$@"
  wait_job
}

job_is_running() { kill -0 "$job" 2>/dev/null; }

# For a job that needs another end than this, the script defines it again.
end_job() {
  local turn
  kill -s TERM -- "-$job" 2>/dev/null || true  # It may have ended by itself.
  for ((turn = 0; turn < 100; ++turn)); do
    kill -0 -- "-$job" 2>/dev/null || break  # nothing of its group is there any more
    sleep 0.1
  done
  kill -s KILL -- "-$job" 2>/dev/null || true  # Ten seconds are enough for anything that ends in order.
  wait_job || true  # The script's own status shows the signal.
} 2>/dev/null  # Bash reports a job that a signal has ended.

# make_scratch NAME: the folder is known before it is there, so that at no moment a signal leaves it behind.
make_scratch() {
  scratch=${TMPDIR:-/tmp}/harbix-$1-$$-$RANDOM$RANDOM
  mkdir -m 0700 "$scratch" && return
  scratch=  # It may be another's.
  exit 70
}

# For a script that leaves more than the folder, it defines this again.
clean_up() { [ -z "$scratch" ] || rm -rf "$scratch"; }

# stop NUMBER: ends with a shell's status for the signal of that number.
stop() {
  if [ "$starting" = yes ]; then
    pending=$1
    return
  fi
  trap '' INT TERM HUP QUIT
  [ -z "$job" ] || end_job
  exit $((128 + $1))
}

trap 'clean_up' EXIT
trap 'stop 1' HUP
trap 'stop 2' INT
trap 'stop 3' QUIT
trap 'stop 15' TERM
