#!/usr/bin/env bash
# `make soak`: a million mixed requests through the web server against a
# fresh simulated camera, with the camera's and the system server's faults
# switched on and off on the way (bench/soak.cpp says which and where).
# Figures at 0, 10, 50 and 100 % of the run: the responder's process id,
# resident memory, descriptors and the System V queues' depths; then the
# written members are checked against the last values written and put back.
# The table goes to the terminal and to bench/RESULTS.md.
# Usage: scripts/soak.sh BUILD_DIR [REQUESTS, default 1000000]
# State: <repo>/run/soak (removed first). Stops everything it started.
set -uo pipefail
{

[ $# -ge 1 ] || { echo "usage: $0 BUILD_DIR [REQUESTS]" >&2; exit 2; }
REPO=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$1" 2>/dev/null && pwd) || { echo "soak: no build directory $1" >&2; exit 2; }
TOTAL=${2:-1000000}
export CAMERA_RUN_DIR=$REPO/run/soak
# shellcheck source=camera-common.sh
. "$REPO/scripts/camera-common.sh"
[ -x "$BUILD/soak" ] || { echo "soak: $BUILD/soak is not built" >&2; exit 1; }

camera_fresh
camera_start 20 || camera_finish 1
port=
for _ in 1 2 3; do
  p=$(free_port) || break
  web_start "$p" && { port=$p; break; }
done
[ -n "$port" ] || { echo "soak: no web server" >&2; camera_finish 1; }

# queue depths: messages waiting on every System V queue of the sandbox
queues() {
  nsenter -t "$(cat "$CAMERA_RUN_DIR/sandbox.pid")" -i ipcs -q 2>/dev/null |
    awk '$1 ~ /^0x/ {n += $6} END {print n + 0}'
}
rows="| Requests done | Responder pid | RSS kB | Private_Dirty kB | Descriptors | Queued messages | Restarts |
|---|---|---|---|---|---|---|"
sample() {  # sample LABEL
  local pid rss fds
  pid=$(web_pid)
  rss=$(awk '/^VmRSS/ {print $2}' "/proc/$pid/status" 2>/dev/null)
  fds=$(find "/proc/$pid/fd" -mindepth 1 -maxdepth 1 2>/dev/null | wc -l)
  rows+=$'\n'"| $1 | $pid | ${rss:-?} | $(private_dirty "$pid") | $fds | $(queues) | $(cat "$CAMERA_RUN_DIR/web.restarts" 2>/dev/null || echo 0) |"
  echo "soak: $1 requests: responder $pid, RSS ${rss:-?} kB, $fds descriptors"
  [ -n "$first_pid" ] || first_pid=$pid
  [ "$pid" = "$first_pid" ] || { echo "soak: the responder changed ($first_pid, now $pid)" >&2; status=1; }
}

status=0 first_pid='' lines=''
"$BUILD/soak" "$port" "$CAMERA_RUN_DIR" save "$CAMERA_RUN_DIR/before.txt" || status=1
started=$(date +%s)
sample 0
from=0
for share in 10 50 100; do
  to=$((TOTAL * share / 100))
  out=$("$BUILD/soak" "$port" "$CAMERA_RUN_DIR" "$from" "$to" "$TOTAL") || status=1
  echo "$out"
  lines+="$out"$'\n'
  sample "$to"
  from=$to
done
out=$("$BUILD/soak" "$port" "$CAMERA_RUN_DIR" verify "$TOTAL") || status=1
echo "$out"
lines+="$out"$'\n'
"$BUILD/soak" "$port" "$CAMERA_RUN_DIR" restore "$CAMERA_RUN_DIR/before.txt" || { echo "soak: the values were not put back" >&2; status=1; }
[ -s "$CAMERA_RUN_DIR/web.restarts" ] && { echo "soak: the responder was restarted" >&2; status=1; }
elapsed=$(($(date +%s) - started))

report="## Soak $(date -u '+%Y-%m-%d %H:%M UTC') — commit $(git -C "$REPO" rev-parse --short HEAD 2>/dev/null || echo unknown)

$TOTAL mixed requests through lighttpd in $elapsed s on $(uname -m), $(nproc) CPUs ($(cut -d' ' -f1-3 /proc/loadavg) load at the end),
with the camera late, silent and out of sequence and the system server silent
for stretches of the run. $([ "$status" -eq 0 ] && echo "Every reply as expected; the responder's process id unchanged." || echo "FAILED: see below.")

$rows

\`\`\`
$lines\`\`\`
"
echo "$report"
if [ "$TOTAL" -ge 1000000 ]; then
  {
    awk '/^## (Soak )?[0-9][0-9][0-9][0-9]-/ {exit} {print}' "$REPO/bench/RESULTS.md"
    echo "$report"
    awk 'found || /^## (Soak )?[0-9][0-9][0-9][0-9]-/ {found = 1; print}' "$REPO/bench/RESULTS.md"
  } >"$CAMERA_RUN_DIR/RESULTS.md" && cp "$CAMERA_RUN_DIR/RESULTS.md" "$REPO/bench/RESULTS.md"
fi
camera_finish "$status"
}
