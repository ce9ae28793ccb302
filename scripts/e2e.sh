#!/usr/bin/env bash
# End-to-end tests: a fresh simulated camera in its sandbox, the web server in
# front of it on a free port, then BUILD_DIR/e2e_tests against both.
# Usage: scripts/e2e.sh BUILD_DIR [gtest arguments, e.g. --gtest_filter=Rewrite*]
# State: <repo>/run/e2e (removed first), so that `make run` can go on beside.
set -uo pipefail

# One block, read whole before it runs: editing this file cannot disturb a
# running copy.
{

[ $# -ge 1 ] || { echo "usage: $0 BUILD_DIR [gtest args]" >&2; exit 2; }
REPO=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$1" 2>/dev/null && pwd) || { echo "e2e: no build directory $1" >&2; exit 2; }
shift
export CAMERA_RUN_DIR=${E2E_RUN_DIR:-$REPO/run/e2e}
# One run at a time per state directory: a second run waits for the first.
mkdir -p "$(dirname "$CAMERA_RUN_DIR")"
exec 9>"$(dirname "$CAMERA_RUN_DIR")/.e2e.lock" || exit 1
flock 9
# shellcheck source=camera-common.sh
. "$REPO/scripts/camera-common.sh"

[ -x "$BUILD/e2e_tests" ] || { echo "e2e: $BUILD/e2e_tests is not built" >&2; exit 1; }

show_logs() {
  local f
  for f in "$CAMERA_RUN_DIR"/*.log "$CAMERA_RUN_DIR"/*.out; do
    [ -s "$f" ] || continue
    echo "---- last lines of ${f#"$REPO"/}" >&2
    tail -n 20 "$f" >&2
  done
}

camera_fresh
camera_start 20 || { show_logs; camera_finish 1; }

started=0
for _ in 1 2 3; do
  port=$(free_port) || break
  lighttpd_start "$port" && { started=1; break; }
done
[ "$started" -eq 1 ] || { echo "e2e: no web server" >&2; show_logs; camera_finish 1; }
export WEB_HTTP_PORT=$port
# The same camera behind the web server with its access block switched on.
for _ in 1 2 3; do
  auth_port=$(free_port) || break
  lighttpd_start "$auth_port" auth && { export WEB_AUTH_PORT=$auth_port; break; }
done

"$BUILD/e2e_tests" "$@"
status=$?
# The pages in a real browser, then the README's examples, last (some of
# them readdress the camera); only on a whole run, not when a filter picks
# some tests. The pages do not depend on the responder's architecture:
# E2E_BROWSER=0 leaves the browser out (the emulated run does).
if [ $# -eq 0 ]; then
  [ "${E2E_BROWSER:-1}" = 0 ] || SCREENSHOTS=$BUILD/screenshots /usr/bin/python3 "$REPO/tests/browser/test_live.py" || status=1
  "$REPO/tests/doc/readme_examples.sh" "$port" || status=1
fi
[ "$status" -eq 0 ] || show_logs
camera_finish "$status"
}
