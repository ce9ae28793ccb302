#!/usr/bin/env bash
# Runs the camera's back end as it runs on the camera, inside Linux namespaces,
# without touching the host:
#   IPC   - the fixed System V keys are private to the sandbox;
#   net   - "eth0" 192.168.1.100/24, default gateway 192.168.1.1 on the other
#           end of a veth pair that lives in a second namespace (the LAN);
#   mount - /opt, /tmp, /mnt, /etc (overlay), /dev and /run are the
#           sandbox's own; /dev/ambad is run/ambad.img;
#   PID   - ending the sandbox's first process ends everything in it.
# As an ordinary user the same happens inside a user namespace.
#
# Usage: scripts/sandbox.sh BUILD_DIR
#   CAMERA_RUN_DIR  state directory (default: <repo>/run). Visible from the host:
#     root/{opt,tmp,mnt,etc}  what the camera sees as /opt, /tmp, /mnt, /etc
#     web.sock                the responder's FastCGI socket (mode 0600; run as
#                             root, it belongs to www-data, the web servers'
#                             account, as on the camera)
#     shell.log               journal of the firmware stand-ins
#     board/ndi               the encoder board's export (mounted at /mnt/fpga)
#     ambad.img               the register device (sparse, 4 GiB)
#     web.log, console.log    the responder's output, writes to /dev/console
#     <sim>.out               output of the simulators
#     sandbox.ready           exists while the sandbox serves
#     sandbox.pid             host id of the sandbox's first process
#     web.restarts            how often the responder ended and was started
#                             again (absent: never)
# SIGTERM or SIGINT stops the sandbox and everything in it.
set -uo pipefail

# One block, read whole before it runs: editing this file cannot disturb a
# running copy.
{

say() { echo "sandbox: $*" >&2; }
# shellcheck source=proc.sh
. "$(dirname "$0")/proc.sh"
# The allocator's settings of the installed service, for the responder.
WEB_TUNABLES=$(sed -n 's/^Environment=GLIBC_TUNABLES=//p' "$(dirname "$0")/../deploy/web.service.in")

# Identity of the simulated camera's network port: camera n of several
# (CAMERA_INDEX, default 1) is 192.168.1.(98 + 2n), with a MAC of its own
# (never .101, the encoder board's address).
CAMERA_INDEX=${CAMERA_INDEX:-1}
export CAMERA_INDEX
readonly CAM_ADDR=192.168.1.$((98 + 2 * CAMERA_INDEX))/24
readonly LAN_ADDR=192.168.1.1/24
readonly GATEWAY=192.168.1.1
CAM_MAC=$(printf '02:00:c0:a8:01:%02x' $((98 + 2 * CAMERA_INDEX)))
readonly CAM_MAC
readonly LAN_MAC=02:00:c0:a8:01:01
readonly CAM_NAME=PTZ-4K$CAMERA_INDEX

# Firmware programs that would act on the host or need hardware: found on the
# PATH, or at their absolute camera paths.
readonly PATH_STANDINS=(date hwclock sd-automount mkfs.vfat mkntfs mount umount dmesg)
readonly FIRMWARE_STANDINS=(/opt/ipnc/dhcpcd/dhcpcd /opt/ipnc/sys_update /opt/ipnc/websocketserver)
# Simulated peers, started in this order before the responder.
readonly SIMULATORS=(logcollector syssim camsim)

# ---------------------------------------------------------------------------
# Inside the namespaces (this script re-enters itself as their first process).
# ---------------------------------------------------------------------------
inside() {
  local build=$1 run=$2

  finish() {
    trap '' TERM INT HUP
    rm -f "$run/sandbox.ready"
    # Leaving ends the PID namespace: the kernel kills whatever is left.
    exit 0
  }
  trap finish TERM INT HUP

  mount --make-rprivate / || { say "cannot make the mounts private"; exit 1; }

  # /run of our own: nothing the firmware removes there reaches the host,
  # and it gives a place for paths that the mounts below would hide.
  mount -t tmpfs -o mode=0755 sandbox-run /run || { say "cannot mount /run"; exit 1; }
  relocate() {  # prints a path to $1 that stays visible after the mounts
    local p=$1 name=$2
    case "$p/" in
      /tmp/*|/opt/*|/mnt/*|/etc/*|/run/*)
        mkdir -p "/run/$name" && mount --bind "$p" "/run/$name" && echo "/run/$name" ;;
      *) echo "$p" ;;
    esac
  }
  # /run was just covered, so a path under it is gone already; say so.
  case "$run/" in /run/*) say "the run directory must not lie under /run"; exit 1 ;; esac
  case "$build/" in /run/*) say "the build directory must not lie under /run"; exit 1 ;; esac
  run=$(relocate "$run" camera-run) || exit 1
  build=$(relocate "$build" camera-build) || exit 1

  local d
  for d in opt mnt; do
    mount --bind "$run/root/$d" "/$d" || { say "cannot mount /$d"; exit 1; }
  done
  # /etc: an overlay whose upper layer is run/root/etc, so resolv.conf,
  # srs.conf and anything else the firmware rewrites stay in run/.
  mkdir -p "$run/.etc-work"
  if ! mount -t overlay sandbox-etc -o "lowerdir=/etc,upperdir=$run/root/etc,workdir=$run/.etc-work" /etc 2>/dev/null &&
     ! mount -t overlay sandbox-etc -o "lowerdir=/etc,upperdir=$run/root/etc,workdir=$run/.etc-work,userxattr" /etc 2>/dev/null; then
    say "no overlay on /etc; binding resolv.conf only"
    mount --bind "$run/root/etc/resolv.conf" /etc/resolv.conf || { say "cannot mount /etc/resolv.conf"; exit 1; }
    [ -e /etc/srs.conf ] && mount --bind "$run/root/etc/srs.conf" /etc/srs.conf
  fi
  # /dev of our own: the host's common nodes, and the chip's debug device
  # /dev/ambad, backed by run/ambad.img (a sparse file as large as the 32-bit
  # physical address space: a register written at an address lands at that
  # offset).
  mkdir -p /run/host-dev && mount --rbind /dev /run/host-dev &&
    mount -t tmpfs -o mode=0755,size=64k sandbox-dev /dev || { say "cannot make /dev"; exit 1; }
  for d in null zero full random urandom tty console ambad; do : >"/dev/$d"; done
  for d in null zero full random urandom tty; do mount --bind "/run/host-dev/$d" "/dev/$d"; done
  mkdir -p /dev/pts /dev/shm
  mount --rbind /run/host-dev/pts /dev/pts 2>/dev/null
  mount -t tmpfs -o mode=1777 sandbox-shm /dev/shm
  ln -s /proc/self/fd /dev/fd && ln -s fd/0 /dev/stdin && ln -s fd/1 /dev/stdout && ln -s fd/2 /dev/stderr
  ln -s pts/ptmx /dev/ptmx
  mount --bind "$run/ambad.img" /dev/ambad || say "no register device"
  # Firmware commands write to the console; keep that in a journal.
  : >>"$run/console.log"
  mount --bind "$run/console.log" /dev/console 2>/dev/null || say "cannot redirect /dev/console"
  mount --bind "$run/root/tmp" /tmp || { say "cannot mount /tmp"; exit 1; }

  # The SD card: a small file system of its own at /mnt/sd with a few
  # recordings, fresh at every start.
  if mount -t tmpfs -o size=8m,mode=0755 sandbox-sd /mnt/sd; then
    mkdir -p /mnt/sd/DCIM
    for f in REC_0001.mp4 REC_0002.mp4 REC_0003.mp4; do
      head -c 65536 /dev/zero >"/mnt/sd/DCIM/$f"
    done
  else
    say "cannot mount the SD card"
  fi

  # Network: the camera end is eth0, the LAN end sits in a namespace held
  # open by a sleeping process.
  ip link set lo up
  ip link add eth0 address "$CAM_MAC" type veth peer name lan0 address "$LAN_MAC" ||
    { say "cannot create eth0"; exit 1; }
  unshare --net sleep infinity &
  local lan=$! i
  for ((i = 0; i < 100; i++)); do
    [ "$(readlink "/proc/$lan/ns/net" 2>/dev/null)" != "$(readlink /proc/self/ns/net)" ] && break
    sleep 0.02
  done
  ip link set lan0 netns "$lan" || { say "cannot move lan0"; exit 1; }
  nsenter --net="/proc/$lan/ns/net" sh -c \
    "ip link set lo up && ip addr add $LAN_ADDR dev lan0 && ip link set lan0 up" ||
    { say "cannot configure the LAN end"; exit 1; }
  ip addr add "$CAM_ADDR" brd + dev eth0 && ip link set eth0 up &&
    ip route add default via "$GATEWAY" || { say "cannot configure eth0"; exit 1; }
  # sysfs of this network namespace (/sys/class/net/eth0/...).
  mount -t sysfs sandbox-sys /sys 2>/dev/null || say "cannot mount /sys for this network"

  # Within a request the responder's shell lines run with the request's
  # environment, which has no PATH: the shell then looks in /usr/local/sbin
  # first, and there it finds the stand-ins.
  if [ -d /usr/local/sbin ]; then
    mount --bind "$run/bin" /usr/local/sbin || say "cannot cover /usr/local/sbin"
  else
    say "no /usr/local/sbin: requests will run the host's programs"
  fi

  # From here on the processes find the stand-ins first, and none of them
  # may set the host's clock or load kernel modules, whatever it runs.
  export PATH="$run/bin:$PATH"
  # shellcheck disable=SC2054  # one argument: the capabilities setpriv drops
  local confine=(setpriv --bounding-set -sys_time,-sys_module --)
  export CAMERA_RUN_DIR="$run"
  cd / || exit 1

  # A fresh camera starts with every fault switch off, whatever an earlier
  # run left behind. The files are there from the start (empty), so that
  # the simulators can watch them instead of looking for them at every
  # packet.
  : >"$run/camsim.ctl"
  : >"$run/syssim.ctl"

  local name bin
  for name in "${SIMULATORS[@]}"; do
    bin=$build/$name
    if [ ! -x "$bin" ]; then
      say "$name not built; going on without it"
      continue
    fi
    "${confine[@]}" "$bin" >"$run/$name.out" 2>&1 &
    WHILE_RUNNING=$! wait_until 10 grep -q '^ready' "$run/$name.out" 2>/dev/null ||
      say "$name is not ready (see $run/$name.out)"
  done

  # The responder, restarted whenever it ends, as on the camera, with the
  # C library's allocator set as the service files set it.
  rm -f "$run/web.sock"
  (
    trap - TERM INT HUP
    while :; do
      GLIBC_TUNABLES=$WEB_TUNABLES "${confine[@]}" spawn-fcgi -n -s "$run/web.sock" -M 0600 ${SOCKET_USER:+-U "$SOCKET_USER" -G "$SOCKET_USER"} \
        -- "$build/web" >>"$run/web.log" 2>&1 &
      echo $! >"$run/web.pid"
      wait $!
      echo "sandbox: responder ended ($?), restarting" >>"$run/web.log"
      # Counted, so that a crash hidden by the restart is still seen.
      echo $(($(cat "$run/web.restarts" 2>/dev/null || echo 0) + 1)) >"$run/web.restarts"
      sleep 0.2
    done
  ) 2>>"$run/web.log" &

  # The watchdog: every 10 s one request that needs no peer; a responder that
  # has not answered it within 75 s (longer than any legitimate request
  # waits: 40 s for the camera, 10 s for the system server) is stuck, and is
  # ended so that the loop above starts a new one.
  (
    trap - TERM INT HUP
    while :; do
      sleep 10
      [ -S "$run/web.sock" ] || continue
      QUERY_STRING=nonsense REQUEST_METHOD=GET timeout 75 \
        cgi-fcgi -bind -connect "$run/web.sock" >/dev/null 2>&1
      [ $? -eq 124 ] || continue
      pid=$(cat "$run/web.pid" 2>/dev/null)
      [ -n "$pid" ] && kill -KILL "$pid" 2>/dev/null &&
        echo "sandbox: responder stopped answering, ended" >>"$run/web.log"
    done
  ) 2>>"$run/web.log" &

  wait_until 10 test -S "$run/web.sock" || say "the responder's socket did not appear (see $run/web.log)"
  echo $$ >"$run/sandbox.ready"

  # Wait for a stop signal. A short sleep rather than one long wait: bash
  # runs a trap that arrived just before it blocked only when the wait ends.
  while :; do
    sleep 0.5 &
    wait $!
  done
}

if [ "${1:-}" = "--inside" ]; then
  inside "$2" "$3"
  exit 0
fi

# ---------------------------------------------------------------------------
# On the host: prepare run/, then enter the namespaces.
# ---------------------------------------------------------------------------
[ $# -ge 1 ] || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
repo=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" 2>/dev/null && pwd) || { say "no build directory $1"; exit 2; }
run=${CAMERA_RUN_DIR:-$repo/run}
mkdir -p "$run" && run=$(cd "$run" && pwd) || { say "cannot create $run"; exit 1; }
[ -x "$build/web" ] || { say "$build/web is not built"; exit 1; }
for tool in unshare nsenter setpriv ip spawn-fcgi cgi-fcgi; do
  command -v "$tool" >/dev/null || { say "$tool is missing (run scripts/setup.sh)"; exit 1; }
done

seed() {  # seed FILE TEXT: writes TEXT unless FILE exists (state survives restarts)
  [ -e "$1" ] || printf '%b' "$2" >"$1"
}
# Where run/ is seen from inside the sandbox (see relocate above).
case "$run/" in
  /tmp/*|/opt/*|/mnt/*|/etc/*) run_inside=/run/camera-run ;;
  *) run_inside=$run ;;
esac
# standin PATH [NAME]: the stand-in NAME of sim/standins (default: the one
# that only journals its call) put at PATH, for the journals at $run_inside.
standin() {
  local from=$repo/sim/standins/${2:-standin}
  [ -e "$from" ] || from=$repo/sim/standins/standin
  sed -e "s|@RUN@|$run_inside|g" -e "s|@REAL_MOUNT@|$real_mount|" -e "s|@REAL_UMOUNT@|$real_umount|" \
    "$from" >"$1"
  chmod 0755 "$1"
}

mkdir -p "$run"/root/{opt,tmp,mnt,etc} "$run/bin" \
  "$run"/root/opt/{params,ipnc/www/config,ipnc/www/images,ipnc/dhcpcd} \
  "$run/root/mnt/sd/DCIM" "$run/root/mnt/fpga"
chmod 1777 "$run/root/tmp"
seed "$run/root/opt/params/print.conf" 'FASTCGI info\n'
seed "$run/root/opt/ipnc/www/config/lighttpd.conf" \
  'server.document-root = "/opt/ipnc/www"\nserver.port = 80\n'
# The camera's own pages, fresh from the tree at every start.
cp -R "$repo/src/www/." "$run/root/opt/ipnc/www/"
seed "$run/root/etc/resolv.conf" 'nameserver 192.168.1.1\n'
seed "$run/root/etc/srs.conf" 'listen\t\t1935;\nmax_connections\t1000;\n'
touch "$run/shell.log"
# mount and umount bind the encoder board's export (sim/standins say how).
real_mount=$(PATH=/usr/sbin:/usr/bin:/sbin:/bin command -v mount)
real_umount=$(PATH=/usr/sbin:/usr/bin:/sbin:/bin command -v umount)
for p in "${PATH_STANDINS[@]}"; do standin "$run/bin/$p" "$p"; done
[ -e "$run/ambad.img" ] || truncate -s 4G "$run/ambad.img"
mkdir -p "$run/board/ndi"
# The board's configuration as it leaves the factory (its device name is the camera's).
[ -e "$run/board/ndi/ndi_config.json" ] ||
  sed "s/PTZ-4K1/$CAM_NAME/" "$repo/sim/fixtures/ndi_config.json" >"$run/board/ndi/ndi_config.json"
# The card reader's status as the storage service leaves it: a card is in.
seed "$run/root/tmp/sd.status" '1\n'
seed "$run/root/tmp/sddev" 'mmcblk0p1\n'
seed "$run/root/opt/params/camera.ini" "[camera]\\nname=$CAM_NAME\\n"
mkdir -p "$run/root/opt/ipnc/www"
for p in "${FIRMWARE_STANDINS[@]}"; do standin "$run/root$p"; done

flags=(--ipc --net --mount --pid --fork --mount-proc --kill-child=SIGKILL)
[ "$(id -u)" -eq 0 ] || flags+=(--user --map-root-user)
# SOCKET_USER (from the caller): the account the socket is made for, the one
# the web servers run as; unset, the sandbox's own.
# (spawn-fcgi takes no -U for the account it already runs as, root least).
[ "$(id -u)" -eq 0 ] || SOCKET_USER=
[ "${SOCKET_USER:-}" = "$(id -un)" ] && SOCKET_USER=
export SOCKET_USER=${SOCKET_USER:-}
rm -f "$run/sandbox.ready"
unshare "${flags[@]}" -- bash "$repo/scripts/sandbox.sh" --inside "$build" "$run" &
upid=$!
# The host's id of the sandbox's first process, for tools that enter it
# (nsenter -t PID -a).
for ((i = 0; i < 50; i++)); do
  init=$(pgrep -P "$upid" 2>/dev/null | head -n 1)
  [ -n "$init" ] && { echo "$init" >"$run/sandbox.pid"; break; }
  sleep 0.02
done

tidy() {  # what only a running sandbox needs; the overlay's work directory
  # (mode 000) would otherwise stop an ordinary user's `rm -rf run`
  rm -f "$run/web.sock" "$run/sandbox.ready" "$run/sandbox.pid"
  chmod -R u+rwx "$run/.etc-work" 2>/dev/null
  rm -rf "$run/.etc-work"
}

stop() {
  trap '' TERM INT HUP
  local init i
  init=$(pgrep -P "$upid" 2>/dev/null | head -n 1)
  [ -n "$init" ] && kill -TERM "$init" 2>/dev/null
  wait_until 3 eval '! running "$upid"'
  # unshare takes its child (the namespace's first process) with it. No
  # `wait` here: called from a trap it can hang on an already reaped child.
  kill -KILL "$upid" 2>/dev/null
  wait_until 3 eval '! running "$upid"'
  tidy
  exit 0
}
trap stop TERM INT HUP

while kill -0 "$upid" 2>/dev/null; do
  sleep 0.5 &
  wait $!
done
wait "$upid"
status=$?
tidy
say "the sandbox ended"
exit "$status"
}
