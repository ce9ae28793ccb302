#!/usr/bin/env bash
# Runs a command in private IPC, network and mount namespaces with a /tmp of
# its own (and a /mnt): the System V queues and segments it makes on the camera's fixed
# keys, the ports it binds and the files it leaves in /tmp vanish with it and
# never meet another run's (the resolver's file too);
# a test may also mount a small file system of its own (a full disk) without
# the host seeing it. As root directly; as an ordinary user through a user
# namespace of its own.
inner='ip link set lo up 2>/dev/null; mount -t tmpfs -o mode=1777 private-tmp /tmp 2>/dev/null
mount -t tmpfs -o mode=0755 private-mnt /mnt 2>/dev/null
: >/tmp/resolv.conf && mount --bind /tmp/resolv.conf /etc/resolv.conf 2>/dev/null; exec "$@"'
if [ "$(id -u)" -eq 0 ]; then
  exec unshare --ipc --mount --net -- sh -c "$inner" sh "$@"
fi
exec unshare --user --map-root-user --ipc --mount --net -- sh -c "$inner" sh "$@"
