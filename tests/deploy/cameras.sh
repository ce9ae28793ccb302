#!/usr/bin/env bash
# `make run CAMERAS=3`: three cameras on three ports, each its own (name,
# serial number, address, MAC); stopping the script stops them all.
# Usage: tests/deploy/cameras.sh BUILD_DIR
set -uo pipefail
REPO=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:?usage: cameras.sh BUILD_DIR}
export CAMERA_RUN_DIR=$REPO/run/cameras-test
# shellcheck source=../../scripts/camera-common.sh
. "$REPO/scripts/camera-common.sh"
camera_wipe "$CAMERA_RUN_DIR" || exit 1
mkdir -p "$CAMERA_RUN_DIR"
port=
for _ in $(seq 20); do
  p=$(free_port) && ! port_in_use $((p + 1)) && ! port_in_use $((p + 2)) && { port=$p; break; }
done
[ -n "$port" ] || { echo "cameras: no three free ports" >&2; exit 1; }

CAMERAS=3 PORT=$port "$REPO/scripts/run.sh" "$build" >"$CAMERA_RUN_DIR/run.out" 2>&1 &
runner=$!
passed=0 failed=0
check() { if eval "$2"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi; }

for _ in $(seq 600); do grep -q 'cameras are running' "$CAMERA_RUN_DIR/run.out" && break; sleep 0.1; done
check "three cameras came up" "grep -q 'cameras are running' '$CAMERA_RUN_DIR/run.out'"
ids=()
for i in 0 1 2; do
  summary=$(curl -s --max-time 10 "http://127.0.0.1:$((port + i))/controlhub" | tr -d ' \t\n')
  eth=$(curl -s --max-time 10 -G --data-urlencode 'func=get{"ethernet":{"eth0":{"ip":true,"mac":true}}}' \
    "http://127.0.0.1:$((port + i))/cgi-bin/web.fcgi" | tr -d ' \t\n')
  ids+=("$summary$eth")
  check "camera $((i + 1)) is PTZ-4K$((i + 1))" "[[ '$summary' == *'\"name\":\"PTZ-4K$((i + 1))\"'* ]]"
done
check "names, serials, addresses and MACs all differ" \
  "[ \$(printf '%s\n' \"\${ids[@]}\" | sort -u | wc -l) -eq 3 ] && [[ '${ids[1]}' != *'\"sn\":\"PTZ4K1000001\"'* ]]"
pids=$(cat "$CAMERA_RUN_DIR"/cam*/sandbox.pid 2>/dev/null)

kill -TERM "$runner"
for _ in $(seq 300); do kill -0 "$runner" 2>/dev/null || break; sleep 0.1; done
check "the script ended" "! kill -0 $runner 2>/dev/null"
left=0
for p in $pids; do kill -0 "$p" 2>/dev/null && left=$((left + 1)); done
check "no sandbox stayed behind" "[ $left -eq 0 ]"
check "no web server stayed behind" "! ss -Hltn 'sport = :$port' | grep -q . && ! ss -Hltn 'sport = :$((port + 2))' | grep -q ."
[ $failed -eq 0 ] || { cat "$CAMERA_RUN_DIR/run.out" >&2; kill -KILL "$runner" 2>/dev/null; }
echo "cameras: $passed passed, $failed failed"
[ $failed -eq 0 ] && camera_wipe "$CAMERA_RUN_DIR"
[ $failed -eq 0 ]
