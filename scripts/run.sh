#!/usr/bin/env bash
# `make run`: the simulated camera in its sandbox with the web server in front
# on http://127.0.0.1:$PORT (default 8080). Ctrl-C stops everything.
# Usage: PORT=8080 scripts/run.sh BUILD_DIR
#   CAMERAS=N     N cameras, each on its own port from PORT on, with its own
#                 identity (address, MAC, serial number, name) and state
#                 under run/camN (CAMERA_RUN_DIR/camN)
#   SERVER=nginx  nginx in front instead of lighttpd
# State: <repo>/run (the camera's files are kept from one run to the next,
# like its flash; the journals start empty).
set -uo pipefail

# One block, read whole before it runs: editing this file cannot disturb a
# running copy.
{

[ $# -ge 1 ] || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
REPO=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$1" 2>/dev/null && pwd) || { echo "run: no build directory $1" >&2; exit 2; }
PORT=${PORT:-8080}
CAMERAS=${CAMERAS:-1}
export WEB_SERVER=${SERVER:-lighttpd}
[[ $CAMERAS =~ ^[1-9][0-9]?$ ]] && [ "$CAMERAS" -le 78 ] || { echo "run: CAMERAS is a number from 1 to 78" >&2; exit 2; }

# Several cameras: one copy of this script each, stopped together.
if [ "$CAMERAS" -gt 1 ]; then
  base=${CAMERA_RUN_DIR:-$REPO/run}
  cameras=()
  stop_all() {
    trap '' INT TERM HUP
    echo
    echo "run: stopping $CAMERAS cameras"
    for pid in "${cameras[@]}"; do kill -TERM "$pid" 2>/dev/null; done
    wait
    exit "${1:-0}"
  }
  trap 'stop_all 0' INT TERM HUP
  for ((i = 1; i <= CAMERAS; i++)); do
    CAMERAS=1 CAMERA_INDEX=$i PORT=$((PORT + i - 1)) CAMERA_RUN_DIR=$base/cam$i RUN_QUIET=1 \
      "$0" "$BUILD" &
    cameras+=($!)
  done
  for ((i = 1; i <= CAMERAS; i++)); do
    for ((t = 0; t < 300; t++)); do
      [ -e "$base/cam$i/sandbox.ready" ] && curl -s -o /dev/null "http://127.0.0.1:$((PORT + i - 1))/controlhub" && break
      kill -0 "${cameras[i - 1]}" 2>/dev/null || stop_all 1
      sleep 0.1
    done
  done
  echo
  echo "$CAMERAS simulated cameras are running (Ctrl-C stops them all):"
  for ((i = 1; i <= CAMERAS; i++)); do
    echo "  camera $i: http://127.0.0.1:$((PORT + i - 1))/  PTZ-4K$i, 192.168.1.$((98 + 2 * i)), state in ${base#"$REPO"/}/cam$i"
  done
  while :; do
    for pid in "${cameras[@]}"; do kill -0 "$pid" 2>/dev/null || { echo "run: a camera ended unexpectedly" >&2; stop_all 1; }; done
    sleep 1 &
    wait $!
  done
fi

export CAMERA_RUN_DIR=${CAMERA_RUN_DIR:-$REPO/run}
# shellcheck source=camera-common.sh
. "$REPO/scripts/camera-common.sh"

finish() {
  trap '' INT TERM HUP
  [ -n "${RUN_QUIET:-}" ] || echo
  [ -n "${RUN_QUIET:-}" ] || echo "run: stopping the camera"
  camera_stop
  exit "${1:-0}"
}
trap 'finish 0' INT TERM HUP

if port_in_use "$PORT"; then
  echo "run: port $PORT is in use; choose another with PORT=..." >&2
  exit 1
fi
mkdir -p "$CAMERA_RUN_DIR"
for j in shell syscmd visca app console web; do : >"$CAMERA_RUN_DIR/$j.log" 2>/dev/null; done
rm -f "$CAMERA_RUN_DIR/web.restarts"
camera_start 20 || finish 1
web_start "$PORT" || finish 1

url="http://127.0.0.1:$PORT"
rel=${CAMERA_RUN_DIR#"$REPO"/}
[ -n "${RUN_QUIET:-}" ] || cat <<EXAMPLES

The simulated camera is running; its web server ($WEB_SERVER) is $url
Open $url/ in a browser (user admin, password admin), or try
(Ctrl-C stops everything):

  curl '$url/cgi-bin/web.fcgi?nonsense'
  curl '$url/cgi-bin/web.fcgi?func=get%7B%22image%22:%7B%22focus_mode%22:true%7D%7D'
  curl '$url/cgi-bin/aw_ptz?cmd=%23APC&res=1'
  curl '$url/cgi-bin/aw_cam?cmd=QSH&res=1'
  curl '$url/live/camdata.html'
  curl '$url/controlhub'
  curl -o preview.jpg '$url/mw-api/v1/preview/image'
  curl -d '{"type":9,"speed":5}' '$url/cgi-bin/web.fcgi?path=sendPTZ'

Journals: $rel/visca.log (camera commands), $rel/syscmd.log (system commands),
          $rel/app.log (log lines), $rel/shell.log (firmware programs run)
EXAMPLES

# Until Ctrl-C, or until the sandbox or the web server ends on its own; a
# responder that ended and was started again is said at once.
restarts=0
while kill -0 "$SANDBOX_PID" 2>/dev/null && kill -0 "$LIGHTTPD_PID" 2>/dev/null; do
  now=$(cat "$CAMERA_RUN_DIR/web.restarts" 2>/dev/null || echo 0)
  if [ "$now" != "$restarts" ]; then
    restarts=$now
    echo "run: the responder ended and was started again ($restarts so far; see $rel/web.log)" >&2
  fi
  sleep 1 &
  wait $!
done
echo "run: the camera or its web server ended unexpectedly" >&2
finish 1
}
