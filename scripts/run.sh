#!/usr/bin/env bash
# `make run`: the simulated camera in its sandbox with the web server in front
# on http://127.0.0.1:$PORT (default 8080). Ctrl-C stops everything.
# Usage: PORT=8080 scripts/run.sh BUILD_DIR
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
export CAMERA_RUN_DIR=${CAMERA_RUN_DIR:-$REPO/run}
# shellcheck source=camera-common.sh
. "$REPO/scripts/camera-common.sh"

finish() {
  trap '' INT TERM HUP
  echo
  echo "run: stopping the camera"
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
camera_start 20 || finish 1
lighttpd_start "$PORT" || finish 1

url="http://127.0.0.1:$PORT"
rel=${CAMERA_RUN_DIR#"$REPO"/}
cat <<EXAMPLES

The simulated camera is running; its web server is $url
Try (Ctrl-C stops everything):

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

# Until Ctrl-C, or until the sandbox or the web server ends on its own.
while kill -0 "$SANDBOX_PID" 2>/dev/null && kill -0 "$LIGHTTPD_PID" 2>/dev/null; do
  sleep 1 &
  wait $!
done
echo "run: the camera or its web server ended unexpectedly" >&2
finish 1
}
