#!/usr/bin/env bash
# Runs a command in private IPC, network and mount namespaces with a /tmp and
# a /mnt of its own: the System V queues and segments it makes on the
# camera's fixed keys, the ports it binds and the files it leaves in /tmp or
# /mnt vanish with it and never meet another run's (the resolver's file too);
# a test may also mount a small file system of its own (a full disk) without
# the host seeing it. Paths the run itself needs (the checkout, the working
# directory, the directories of absolute arguments) stay visible even when
# they lie under /tmp or /mnt. As root directly; as an ordinary user through
# a user namespace of its own.
set -u

if [ "${1:-}" != "--inside" ]; then
  flags=(--ipc --mount --net)
  [ "$(id -u)" -eq 0 ] || flags=(--user --map-root-user "${flags[@]}")
  exec unshare "${flags[@]}" -- bash "$0" --inside "$@"
fi
shift

repo=$(cd "$(dirname "$0")/.." && pwd)
keep=("$repo" "$PWD")
for arg in "$@"; do
  case "$arg" in /*) [ -e "$arg" ] && keep+=("$(dirname "$arg")") ;; esac
done

# cover DIR MODE: a fresh tmpfs over DIR; whatever of `keep` lies below DIR
# is bound back at its place, reached through a handle on the old DIR.
cover() {
  local dir=$1 mode=$2 p rel
  exec 3<"$dir" || return 0
  mount -t tmpfs -o "mode=$mode" private "$dir" 2>/dev/null || { exec 3<&-; return 0; }
  for p in "${keep[@]}"; do
    case "$p/" in
      "$dir"/*)
        rel=${p#"$dir"/}
        mkdir -p "$dir/$rel" && mount --no-canonicalize --bind "/proc/self/fd/3/$rel" "$dir/$rel" ;;
    esac
  done
  exec 3<&-
}

mount --make-rprivate / 2>/dev/null
ip link set lo up 2>/dev/null
cover /tmp 1777
cover /mnt 0755
: >/tmp/resolv.conf && mount --bind /tmp/resolv.conf /etc/resolv.conf 2>/dev/null
exec "$@"
