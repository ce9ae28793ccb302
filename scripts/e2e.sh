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

# web_up VAR SERVER [VARIANT]: a web server on a free port, the port in VAR.
web_up() {
  local p
  for _ in 1 2 3; do
    p=$(free_port) || break
    web_start "$p" "${3:-}" "$2" && { printf -v "$1" %s "$p"; export "${1?}"; return 0; }
  done
  echo "e2e: no $2 ${3:-} web server" >&2
  return 1
}
web_up WEB_HTTP_PORT lighttpd || { show_logs; camera_finish 1; }
port=$WEB_HTTP_PORT
# The same camera behind the web server with its access blocks switched on,
# and behind nginx, with and without.
web_up WEB_AUTH_PORT lighttpd auth
web_up WEB_DIGEST_PORT lighttpd digest
nginx_port='' nginx_auth_port=''
command -v nginx >/dev/null && web_up nginx_port nginx && web_up nginx_auth_port nginx auth

# A whole run (no filter among the arguments; others, such as
# --gtest_brief=1, are passed on) leaves the hostile-input table to the end:
# it leaves odd settings behind.
whole=1
[[ " $* " == *" --gtest_filter="* ]] && whole=0
if [ "$whole" = 1 ]; then "$BUILD/e2e_tests" --gtest_filter='-Hostile*' "$@"; else "$BUILD/e2e_tests" "$@"; fi
status=$?
# What depends on the web server, once more with nginx in front (not when a
# filter picked the tests).
if [ "$whole" = 0 ]; then
  :
elif [ -n "$nginx_port" ]; then
  WEB_HTTP_PORT=$nginx_port WEB_AUTH_PORT=$nginx_auth_port WEB_DIGEST_PORT='' WEB_SERVER_NAME=nginx \
    "$BUILD/e2e_tests" --gtest_filter='Rewrite*:WebServer*' "$@" || status=1
else
  echo "e2e: nginx is not installed; its form is not tested" >&2
  status=1
fi
# The pages in a real browser, then the README's examples, last (some of
# them readdress the camera); only on a whole run, not when a filter picks
# some tests. The pages do not depend on the responder's architecture:
# E2E_BROWSER=0 leaves the browser out (the emulated run does).
if [ "$whole" = 1 ]; then
  if [ "${E2E_BROWSER:-1}" != 0 ]; then
    SCREENSHOTS=$BUILD/screenshots /usr/bin/python3 "$REPO/tests/browser/test_live.py" || status=1
    SCREENSHOTS=$BUILD/screenshots /usr/bin/python3 "$REPO/tests/browser/test_settings.py" || status=1
  fi
  "$REPO/tests/doc/readme_examples.sh" "$port" || status=1
  "$BUILD/e2e_tests" --gtest_filter='Hostile*' "$@" || status=1
fi
# The crash canary: the supervisor restarts a responder that died within a
# second, so a crash shows only in its count. Every restart beyond those the
# tests caused on purpose fails the run.
restarts=$(cat "$CAMERA_RUN_DIR/web.restarts" 2>/dev/null || echo 0)
expected=$(wc -l <"$CAMERA_RUN_DIR/restarts.expected" 2>/dev/null || echo 0)
if [ "$restarts" -gt "$expected" ]; then
  echo "e2e: the responder ended $((restarts - expected)) time(s) without a test ending it (see run/${CAMERA_RUN_DIR##*/run/}/web.log)" >&2
  grep -n 'responder ended\|stopped answering' "$CAMERA_RUN_DIR/web.log" >&2
  status=1
else
  echo "e2e: the responder ended only when a test ended it ($restarts of $expected)"
fi
[ "$status" -eq 0 ] || show_logs
camera_finish "$status"
}
