#!/usr/bin/env bash
# Runs a command in private IPC and mount namespaces: the System V queues and
# segments it makes on the camera's fixed keys vanish with it and never meet
# another run's, and a test may mount a small file system of its own (a full
# disk) without the host seeing it. As root directly; as an ordinary user
# through a user namespace of its own.
if [ "$(id -u)" -eq 0 ]; then
  exec unshare --ipc --mount -- "$@"
fi
exec unshare --user --map-root-user --ipc --mount -- "$@"
