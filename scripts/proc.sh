# shellcheck shell=bash
# The scripts' one small library for processes (sourced, not run): whether a
# process runs, waiting until something holds, and stopping a process this
# script started, by its id.

# running PID: true while the process runs (a zombie counts as ended).
# Stopping polls with this instead of `wait`, which can hang in a trap.
running() {
  local _pid _comm state
  read -r _pid _comm state _ 2>/dev/null <"/proc/$1/stat" || return 1
  [ "$state" != Z ]
}

# wait_until SECONDS COMMAND...: runs COMMAND every 50 ms until it succeeds;
# false when it still fails after SECONDS. With WHILE_RUNNING=PID it gives
# up as soon as that process has ended.
wait_until() {
  local limit=$1 i
  shift
  for ((i = 0; i < limit * 20; i++)); do
    "$@" && return 0
    [ -n "${WHILE_RUNNING:-}" ] && ! running "$WHILE_RUNNING" && break
    sleep 0.05
  done
  "$@"
}

# stop_process PID SECONDS: SIGTERM (repeated each second), then SIGKILL;
# false when it had to be killed.
stop_process() {
  local pid=$1 i
  for ((i = 0; i < $2 * 10; i++)); do
    running "$pid" || return 0
    ((i % 10 == 0)) && kill -TERM "$pid" 2>/dev/null
    sleep 0.1
  done
  kill -KILL "$pid" 2>/dev/null
  return 1
}
