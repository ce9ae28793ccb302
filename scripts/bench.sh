#!/usr/bin/env bash
# The benchmark: the simulated camera with the product responder behind the
# shipped web server, and in the same run a do-nothing responder (the floor)
# behind an identical one. wrk drives both, alternating, for each class of
# request with 1 and 10 clients; the table goes to the terminal and, with the
# date, commit and machine, to bench/RESULTS.md.
# Usage: scripts/bench.sh BUILD_DIR [seconds per measurement, default 5]
# State: <repo>/run/bench (removed first). Stops everything it started.
set -uo pipefail
{

[ $# -ge 1 ] || { echo "usage: $0 BUILD_DIR [SECONDS]" >&2; exit 2; }
REPO=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$1" 2>/dev/null && pwd) || { echo "bench: no build directory $1" >&2; exit 2; }
SECONDS_EACH=${2:-5}
export CAMERA_RUN_DIR=$REPO/run/bench
# shellcheck source=camera-common.sh
. "$REPO/scripts/camera-common.sh"

# wrk is wanted only here, so only here is it installed.
"$REPO/scripts/setup.sh" wrk || exit 1
for f in web bench_floor; do
  [ -x "$BUILD/$f" ] || { echo "bench: $BUILD/$f is not built" >&2; exit 1; }
done

# The camera's processes (responder and simulators) and the floor share one
# CPU. On a virtual machine a hand-off between processes on two virtual CPUs
# pays the wake-up of a halted one, tens of microseconds each time; on one
# CPU it is a plain context switch, as on the camera's own processor.
export CAMERA_CPUS=${CAMERA_CPUS:-0}
camera_fresh
camera_start 20 || camera_finish 1
taskset -c "$CAMERA_CPUS" spawn-fcgi -n -s "$CAMERA_RUN_DIR/floor.sock" -M 0600 -- "$BUILD/bench_floor" >/dev/null 2>&1 &
FLOOR_PID=$!
EXTRA_PIDS+=("$FLOOR_PID")

start_server() {  # start_server VARIANT: the port in SERVER_PORT
  local p
  SERVER_PORT=
  for _ in 1 2 3; do
    p=$(free_port) || return 1
    lighttpd_start "$p" "$1" >/dev/null && { SERVER_PORT=$p; return 0; }
  done
  return 1
}
# Both web servers fresh for this run, with identical configurations.
start_server product || { echo "bench: no web server" >&2; camera_finish 1; }
PRODUCT_PORT=$SERVER_PORT
start_server floor || { echo "bench: no web server for the floor" >&2; camera_finish 1; }
FLOOR_PORT=$SERVER_PORT
wait_until 5 test -S "$CAMERA_RUN_DIR/floor.sock"

enc() {  # the few characters of these queries that a URL must escape
  local s=$1
  s=${s//'{'/%7B}; s=${s//'}'/%7D}; s=${s//'"'/%22}; s=${s//' '/%20}; s=${s//','/%2C}; s=${s//':'/%3A}
  echo "$s"
}
IMAGE_KEYS=("focus_mode" "focus_area" "focus_distance" "focus_sensitivity" "abs focus" "exposure_mode"
  "shutter" "anti_flicker" "exposure_brightness" "iris" "gain" "gain_limit" "WB_mode" "R_gain" "B_gain"
  "color_temperature" "mirror" "flip" "freeze" "backlight_compensation" "gamma" "digital_zoom_enable"
  "digital_zoom_limit" "digital_zoom" "WDR_enable" "WDR_level" "brightness" "sharpness" "contrast"
  "saturation" "DC_iris" "DC_iris_support" "ircut" "nd_filter" "noise_reduction_2D" "noise_reduction_3D"
  "vo_resolution" "sdi1_resolution" "sdi2_resolution" "vo_support" "phantom_power_enable"
  "genlock_status" "genlock_phase" "genlock_phase_step" "genlock_vertical" "tally_bright" "fpga_mode"
  "feature_size" "feature_set" "feature_pos" "frame_rate" "zoom" "focus" "pan" "tilt"
  "preset zoom speed" "preset move speed")
FULL_IMAGE='{"image":{'
for k in "${IMAGE_KEYS[@]}"; do FULL_IMAGE+="\"$k\":true,"; done
FULL_IMAGE="${FULL_IMAGE%,}}}"

# class name, then the path and query
CLASSES=(
  "pure endpoint|/cgi-bin/web.fcgi?nonsense"
  "device summary|/controlhub"
  "status dump|/live/camdata.html"
  "inquiry, JSON|$(enc '/cgi-bin/web.fcgi?func=get{"image":{"zoom":true}}')"
  "inquiry, aw_ptz|/cgi-bin/aw_ptz?cmd=%23APC&res=1"
  "full image read|$(enc "/cgi-bin/web.fcgi?func=get$FULL_IMAGE")"
  "settings write|$(enc '/cgi-bin/web.fcgi?func=set{"audio":{"volume":30}}')"
)

# measure PORT PATH CLIENTS: prints "requests/s median_ms p99_ms"
measure() {
  local out rps p50 p99
  out=$(wrk -t1 -c"$3" -d"${SECONDS_EACH}s" --latency "http://127.0.0.1:$1$2" 2>&1)
  rps=$(awk '/^Requests\/sec/ {print $2}' <<<"$out")
  p50=$(awk '$1 == "50%" {print $2}' <<<"$out")
  p99=$(awk '$1 == "99%" {print $2}' <<<"$out")
  echo "${rps:-0} $(to_ms "${p50:-0}") $(to_ms "${p99:-0}")"
}
to_ms() {  # wrk prints 1.23ms, 456.00us, 1.20s
  awk -v v="$1" 'BEGIN { n = v + 0; if (v ~ /us$/) n /= 1000; else if (v ~ /s$/ && v !~ /ms$/) n *= 1000; printf "%.3f", n }'
}
table="| Request | Clients | Product req/s | Median ms | 99% ms | Floor req/s | Floor median ms | Ratio to floor |
|---|---|---|---|---|---|---|---|"
for entry in "${CLASSES[@]}"; do
  name=${entry%%|*}
  path=${entry#*|}
  for clients in 1 10; do
    floor_cells="—|—|—"
    if [ "$name" != "pure endpoint" ]; then
      read -r p1 m1 q1 <<<"$(measure "$PRODUCT_PORT" "$path" "$clients")"
    else
      # Three rounds of product then floor, averaged: drift of the machine cancels.
      sums="0 0 0 0 0"
      for _ in 1 2 3; do
        read -r pr pm pq <<<"$(measure "$PRODUCT_PORT" "$path" "$clients")"
        read -r fr fm _ <<<"$(measure "$FLOOR_PORT" "$path" "$clients")"
        sums=$(awk -v s="$sums" -v a="$pr" -v b="$pm" -v c="$pq" -v d="$fr" -v e="$fm" \
          'BEGIN {split(s, t, " "); printf "%f %f %f %f %f", t[1] + a, t[2] + b, t[3] + c, t[4] + d, t[5] + e}')
      done
      read -r p1 m1 q1 f fm <<<"$(awk -v s="$sums" 'BEGIN {split(s, t, " "); printf "%.0f %.3f %.3f %.0f %.3f", t[1] / 3, t[2] / 3, t[3] / 3, t[4] / 3, t[5] / 3}')"
      ratio=$(awk -v a="$p1" -v b="$f" 'BEGIN {printf "%.2f", (b > 0 ? a / b : 0)}')
      floor_cells="$f|$fm|$ratio"
    fi
    table+=$'\n'"| $name | $clients | ${p1%.*} | $m1 | $q1 | ${floor_cells//|/ | } |"
  done
done

# The full image read once more, timed alone: the camera answering at once,
# then told to answer every inquiry 20 ms late (its time-outs must hold).
time_full() { curl -s -o /dev/null -w '%{time_total}' "http://127.0.0.1:$PRODUCT_PORT$(enc "/cgi-bin/web.fcgi?func=get$FULL_IMAGE")"; }
at_once=$(time_full)
printf 'late 20\n' >"$CAMERA_RUN_DIR/camsim.ctl"
late=$(time_full)
: >"$CAMERA_RUN_DIR/camsim.ctl"

wpid=$(web_pid)
fpid=$FLOOR_PID  # spawn-fcgi -n becomes the floor responder itself
memory="| Responder | Private_Dirty kB |
|---|---|
| product (web) | $(private_dirty "$wpid") |
| floor | $(private_dirty "$fpid") |"

# The responder's size, read off the binaries (the size preset's when
# `make test-aarch64` has built it).
size="Stripped responder: $(stat -c %s "$BUILD/web.stripped" 2>/dev/null || echo "?") bytes ($(uname -m), this build)"
[ -e "$REPO/build-aarch64-size/web.stripped" ] &&
  size+="; $(stat -c %s "$REPO/build-aarch64-size/web.stripped") bytes (aarch64 size preset)"

timing="Full image read alone: $(awk -v t="$at_once" 'BEGIN {printf "%.1f", t * 1000}') ms with the camera answering at once, $(awk -v t="$late" 'BEGIN {printf "%.0f", t * 1000}') ms with every reply 20 ms late."

machine="$(uname -m), $(nproc) CPUs, $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo)"
report="## $(date -u '+%Y-%m-%d %H:%M UTC') — commit $(git -C "$REPO" rev-parse --short HEAD 2>/dev/null || echo unknown)

Machine: $machine. wrk, one thread, ${SECONDS_EACH} s per measurement; the pure endpoint
alternates product and floor three times and averages each side. The camera's
processes and the floor run on CPU $CAMERA_CPUS, the web servers and wrk anywhere.

$table

$memory

$timing

$size.
"
echo "$report"
{
  [ -s "$REPO/bench/RESULTS.md" ] || printf '# Benchmark results\n\nWritten by `make bench` (scripts/bench.sh), newest first.\n\n'
  [ -s "$REPO/bench/RESULTS.md" ] && sed -n '1,4p' "$REPO/bench/RESULTS.md"
  echo "$report"
  [ -s "$REPO/bench/RESULTS.md" ] && sed -n '5,$p' "$REPO/bench/RESULTS.md"
} >"$CAMERA_RUN_DIR/RESULTS.md"
cp "$CAMERA_RUN_DIR/RESULTS.md" "$REPO/bench/RESULTS.md"
camera_finish 0
}
