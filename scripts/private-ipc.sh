#!/usr/bin/env bash
# Runs a command in a private IPC namespace, so that the System V queues and
# segments it makes on the camera's fixed keys vanish with it and never meet
# another run's. As root directly; as an ordinary user through a user
# namespace of its own.
if [ "$(id -u)" -eq 0 ]; then
  exec unshare --ipc -- "$@"
fi
exec unshare --user --map-root-user --ipc -- "$@"
