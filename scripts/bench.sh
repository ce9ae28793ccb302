#!/usr/bin/env bash
# The benchmark: the simulated camera with the product responder behind the
# shipped web server, and in the same run a do-nothing responder (the floor)
# behind an identical one. In order: private memory after 10,000 requests,
# the pure endpoint against the floor in interleaved rounds, each class of
# request with 1 and 10 clients (with CPU time per request), the camera
# channel's physical limit and the full image read against it. The report
# goes to the terminal and, with the date, commit, machine and load, to
# bench/RESULTS.md.
# Usage: scripts/bench.sh BUILD_DIR [seconds per measurement, default 5]
# ROUNDS=N interleaved rounds of ROUND_SECONDS each (default 15 of 2 s); CAMERA_CPUS, WRK_CPUS pin the sides.
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
# A binary just built is dirty in the page cache until it is written back,
# and its mapped pages would count as the process's own dirty memory.
sync "$BUILD/web" "$BUILD/bench_floor"
camera_fresh
camera_start 20 || camera_finish 1
# The floor's socket is made for the web servers' account, and it runs with
# the allocator's settings, as the product does.
GLIBC_TUNABLES=$(sed -n 's/^Environment=GLIBC_TUNABLES=//p' "$REPO/deploy/web.service.in") \
  taskset -c "$CAMERA_CPUS" spawn-fcgi -n -s "$CAMERA_RUN_DIR/floor.sock" -M 0600 ${SOCKET_USER:+-U "$SOCKET_USER" -G "$SOCKET_USER"} \
  -- "$BUILD/bench_floor" >/dev/null 2>&1 &
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
# Both web servers fresh for this run, with identical configurations, on the
# same CPU as the responders; wrk drives them from the other one.
start_server product || { echo "bench: no web server" >&2; camera_finish 1; }
PRODUCT_PORT=$SERVER_PORT
taskset -apc "$CAMERA_CPUS" "${EXTRA_PIDS[-1]}" >/dev/null
start_server floor || { echo "bench: no web server for the floor" >&2; camera_finish 1; }
FLOOR_PORT=$SERVER_PORT
taskset -apc "$CAMERA_CPUS" "${EXTRA_PIDS[-1]}" >/dev/null
WRK_CPUS=${WRK_CPUS:-$([ "$(nproc)" -gt 1 ] && echo 1 || echo 0)}
wait_until 5 test -S "$CAMERA_RUN_DIR/floor.sock"
# Many short rounds pair the two sides closely in time, so a drift of the
# machine's speed falls on both.
ROUNDS=${ROUNDS:-15}
ROUND_SECONDS=${ROUND_SECONDS:-2}
# The camera stand-in keeps no journal while the figures are taken: its file
# write for every packet is the stand-in's own cost, not the responder's.
# The exchanges of a full read are counted from the journal at the end.
printf 'unjournalled\n' >"$CAMERA_RUN_DIR/camsim.ctl"


enc() {  # the few characters of these queries that a URL must escape
  local s=$1
  s=${s//'{'/%7B}; s=${s//'}'/%7D}; s=${s//'"'/%22}; s=${s//' '/%20}; s=${s//','/%2C}; s=${s//':'/%3A}
  echo "$s"
}
# The full image read names every key of the section's read table, as the
# source has them (one line each).
mapfile -t IMAGE_KEYS < <(sed -n '/kReadLines = /,/^});/p' "$REPO/src/json/json_image_get.cpp" |
  sed -nE 's/^ +(num|word|fixed|unserved|built)\("([^"]+)".*/\2/p')
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

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat" 2>/dev/null || echo 0; }
HZ=$(getconf CLK_TCK)
wpid=$(web_pid)
fpid=$FLOOR_PID  # spawn-fcgi -n becomes the floor responder itself

# Private memory after 10,000 mixed requests (the classes in turn, on one
# kept-alive connection), and the floor's after as many of its own.
mixed=$CAMERA_RUN_DIR/mixed.curl floor_urls=$CAMERA_RUN_DIR/floor.curl
: >"$mixed"; : >"$floor_urls"
for ((i = 0; i < 10000; i++)); do
  entry=${CLASSES[i % ${#CLASSES[@]}]}
  echo "url = \"http://127.0.0.1:$PRODUCT_PORT${entry#*|}\"" >>"$mixed"
  echo "url = \"http://127.0.0.1:$FLOOR_PORT/cgi-bin/web.fcgi?nonsense\"" >>"$floor_urls"
done
curl -s -K "$mixed" >/dev/null
curl -s -K "$floor_urls" >/dev/null
memory="| Responder | Private_Dirty kB after 10,000 requests |
|---|---|
| product (web), mixed | $(private_dirty "$wpid") |
| floor | $(private_dirty "$fpid") |
| ratio | $(awk -v a="$(private_dirty "$wpid")" -v b="$(private_dirty "$fpid")" 'BEGIN {printf "%.2f", (b > 0 ? a / b : 0)}') |"

# measure PORT PATH CLIENTS PID: prints "requests/s median_ms p99_ms cpu_us_per_request"
measure() {
  local out rps p50 p99 n before after
  before=$(cpu_ticks "$4")
  out=$(taskset -c "$WRK_CPUS" wrk -t1 -c"$3" -d"${MEASURE_SECONDS:-$SECONDS_EACH}s" --latency "http://127.0.0.1:$1$2" 2>&1)
  after=$(cpu_ticks "$4")
  rps=$(awk '/^Requests\/sec/ {print $2}' <<<"$out")
  p50=$(awk '$1 == "50%" {print $2}' <<<"$out")
  p99=$(awk '$1 == "99%" {print $2}' <<<"$out")
  n=$(awk '/requests in/ {print $1}' <<<"$out")
  # A reply that is not a success, or a socket error, makes the figure void.
  if grep -qE 'Non-2xx|Socket errors' <<<"$out"; then
    echo "bench: $1$2 with $3 clients: $(grep -E 'Non-2xx|Socket errors' <<<"$out" | tr -s ' ' | tr '\n' ';')" >&2
    echo "0 0 0 0"
    return
  fi
  echo "${rps:-0} $(to_ms "${p50:-0}") $(to_ms "${p99:-0}") $(awk -v t=$((after - before)) -v n="${n:-0}" -v hz="$HZ" 'BEGIN {printf "%.1f", (n > 0 ? t * 1e6 / hz / n : 0)}')"
}
to_ms() {  # wrk prints 1.23ms, 456.00us, 1.20s
  awk -v v="$1" 'BEGIN { n = v + 0; if (v ~ /us$/) n /= 1000; else if (v ~ /s$/ && v !~ /ms$/) n *= 1000; printf "%.3f", n }'
}
stats() {  # min median max of the numbers given
  printf '%s\n' "$@" | sort -g | awk '{v[NR] = $1} END {m = (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; printf "%.2f %.2f %.2f", v[1], m, v[NR]}'
}

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
# The pure endpoint: product and floor in interleaved rounds (the order
# alternating), the ratio taken within each round.
endpoint_table="| Clients | Ratios min / median / max | Product req/s median | Floor req/s median | Product µs CPU/request | Floor µs CPU/request |
|---|---|---|---|---|---|"
for clients in 1 10; do
  ratios=() prps=() frps=() pcpu=() fcpu=()
  for ((r = 0; r < ROUNDS; r++)); do
    if ((r % 2 == 0)); then
      read -r pr _ _ pc <<<"$(MEASURE_SECONDS=$ROUND_SECONDS measure "$PRODUCT_PORT" /cgi-bin/web.fcgi?nonsense "$clients" "$wpid")"
      read -r fr _ _ fc <<<"$(MEASURE_SECONDS=$ROUND_SECONDS measure "$FLOOR_PORT" /cgi-bin/web.fcgi?nonsense "$clients" "$fpid")"
    else
      read -r fr _ _ fc <<<"$(MEASURE_SECONDS=$ROUND_SECONDS measure "$FLOOR_PORT" /cgi-bin/web.fcgi?nonsense "$clients" "$fpid")"
      read -r pr _ _ pc <<<"$(MEASURE_SECONDS=$ROUND_SECONDS measure "$PRODUCT_PORT" /cgi-bin/web.fcgi?nonsense "$clients" "$wpid")"
    fi
    ratios+=("$(awk -v a="$pr" -v b="$fr" 'BEGIN {printf "%.3f", (b > 0 ? a / b : 0)}')")
    prps+=("$pr") frps+=("$fr") pcpu+=("$pc") fcpu+=("$fc")
  done
  read -r rmin rmed rmax <<<"$(stats "${ratios[@]}")"
  read -r _ pm_rps _ <<<"$(stats "${prps[@]}")"
  read -r _ fm_rps _ <<<"$(stats "${frps[@]}")"
  read -r _ pc_med _ <<<"$(stats "${pcpu[@]}")"
  read -r _ fc_med _ <<<"$(stats "${fcpu[@]}")"
  [ "$clients" = 1 ] && FLOOR_CPU=$fc_med
  endpoint_table+=$'\n'"| $clients | $rmin / $rmed / $rmax | ${pm_rps%.*} | ${fm_rps%.*} | $pc_med | $fc_med |"
done

table="| Request | Clients | Product req/s | Median ms | 99% ms | µs CPU/request (floor $FLOOR_CPU) |
|---|---|---|---|---|---|"
for entry in "${CLASSES[@]:1}"; do
  name=${entry%%|*}
  path=${entry#*|}
  for clients in 1 10; do
    read -r p1 m1 q1 c1 <<<"$(measure "$PRODUCT_PORT" "$path" "$clients" "$wpid")"
    table+=$'\n'"| $name | $clients | ${p1%.*} | $m1 | $q1 | $c1 |"
  done
done
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

# The exchanges one full read makes (the camera's journal counts them), then
# the camera channel's physical limit in the same run and on the same CPU,
# in rounds with the full read and the pure endpoint: each round's camera
# part (the full read's median less the pure endpoint's, one client) over
# the exchanges at the round's limit.
: >"$CAMERA_RUN_DIR/camsim.ctl"
journal=$CAMERA_RUN_DIR/visca.log
lines_before=$(wc -l <"$journal")
curl -s -o /dev/null "http://127.0.0.1:$PRODUCT_PORT$(enc "/cgi-bin/web.fcgi?func=get$FULL_IMAGE")"
EXCHANGES=$(($(wc -l <"$journal") - lines_before))
printf 'unjournalled\n' >"$CAMERA_RUN_DIR/camsim.ctl"
full_path=$(enc "/cgi-bin/web.fcgi?func=get$FULL_IMAGE")
rtts=() parts=() limits=()
for ((r = 0; r < ${LIMIT_ROUNDS:-5}; r++)); do
  read -r _ fm _ _ <<<"$(MEASURE_SECONDS=$ROUND_SECONDS measure "$PRODUCT_PORT" "$full_path" 1 "$wpid")"
  read -r _ em _ _ <<<"$(MEASURE_SECONDS=$ROUND_SECONDS measure "$PRODUCT_PORT" /cgi-bin/web.fcgi?nonsense 1 "$wpid")"
  rtt=$(taskset -c "$CAMERA_CPUS" "$BUILD/ipc_limit" 10000)
  rtts+=("$rtt") parts+=("$(awk -v f="$fm" -v e="$em" 'BEGIN {printf "%.3f", f - e}')")
  limits+=("$(awk -v f="$fm" -v e="$em" -v n="$EXCHANGES" -v r="$rtt" 'BEGIN {printf "%.3f", (n * r > 0 ? (f - e) * 1000 / (n * r) : 0)}')")
done
: >"$CAMERA_RUN_DIR/camsim.ctl"
read -r _ RTT _ <<<"$(stats "${rtts[@]}")"
read -r _ part _ <<<"$(stats "${parts[@]}")"
read -r lmin lmed lmax <<<"$(stats "${limits[@]}")"
limit="The camera channel's limit, a bare message ping-pong between two processes on CPU $CAMERA_CPUS: $RTT µs a round trip (median of ${#rtts[@]} rounds).
A full image read (${#IMAGE_KEYS[@]} keys) makes $EXCHANGES camera exchanges: at least $(awk -v n="$EXCHANGES" -v r="$RTT" 'BEGIN {printf "%.3f", n * r / 1000}') ms.
Its camera part (the full read's median less the pure endpoint's, one client) took $part ms (median); against the limit of its own round: $lmin / $lmed / $lmax times (min / median / max)."

# The full image read once more, timed alone: the camera answering at once,
# then told to answer every inquiry 20 ms late (its time-outs must hold).
time_full() { curl -s -o /dev/null -w '%{time_total}' "http://127.0.0.1:$PRODUCT_PORT$(enc "/cgi-bin/web.fcgi?func=get$FULL_IMAGE")"; }
at_once=$(time_full)
printf 'late 20\n' >"$CAMERA_RUN_DIR/camsim.ctl"
late=$(time_full)
: >"$CAMERA_RUN_DIR/camsim.ctl"

# The responder's size, read off the binaries (the size preset's when
# `make test-aarch64` has built it).
size="Stripped responder: $(stat -c %s "$BUILD/web.stripped" 2>/dev/null || echo "?") bytes ($(uname -m), this build)"
[ -e "$REPO/build-aarch64-size/web.stripped" ] &&
  size+="; $(stat -c %s "$REPO/build-aarch64-size/web.stripped") bytes (aarch64 size preset)"

timing="Full image read alone: $(awk -v t="$at_once" 'BEGIN {printf "%.1f", t * 1000}') ms with the camera answering at once, $(awk -v t="$late" 'BEGIN {printf "%.0f", t * 1000}') ms with every reply 20 ms late."

machine="$(uname -m), $(nproc) CPUs, $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo)"
report="## $(date -u '+%Y-%m-%d %H:%M UTC') — commit $(git -C "$REPO" rev-parse --short HEAD 2>/dev/null || echo unknown)

Machine: $machine; load $load_before before, $load_after after. wrk, one
thread, ${SECONDS_EACH} s per measurement (${ROUND_SECONDS} s in rounds), on CPU $WRK_CPUS; the camera's
processes, both responders and both web servers on CPU $CAMERA_CPUS. The pure
endpoint runs product and floor in $ROUNDS interleaved rounds; each round gives
a ratio (product req/s over floor req/s). CPU per request is the responder's
user and system time over the requests wrk counted. The camera stand-in keeps
no journal during the timed runs.

$endpoint_table

$table

$limit

$memory

$timing

$size.
"
echo "$report"
# The file's standing part (everything before the first report) stays on
# top; the new report goes above the older ones.
{
  [ -s "$REPO/bench/RESULTS.md" ] || printf '# Benchmark results\n\nWritten by `make bench` (scripts/bench.sh), newest first.\n\n'
  [ -s "$REPO/bench/RESULTS.md" ] && awk '/^## (Soak )?[0-9][0-9][0-9][0-9]-/ {exit} {print}' "$REPO/bench/RESULTS.md"
  echo "$report"
  [ -s "$REPO/bench/RESULTS.md" ] && awk 'found || /^## (Soak )?[0-9][0-9][0-9][0-9]-/ {found = 1; print}' "$REPO/bench/RESULTS.md"
} >"$CAMERA_RUN_DIR/RESULTS.md"
cp "$CAMERA_RUN_DIR/RESULTS.md" "$REPO/bench/RESULTS.md"
camera_finish 0
}
