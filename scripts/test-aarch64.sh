#!/usr/bin/env bash
# The AArch64 build, tested on this machine: cross-builds with Debian's
# cross compiler and arm64 multiarch libraries, runs the unit tests under
# qemu-user (each in private IPC and mount namespaces), and the end-to-end
# tests with the aarch64 responder and simulators under a private
# binfmt_misc instance in a user namespace of its own (Linux 6.7 and later),
# so nothing on the host changes. Without that the end-to-end tests are
# skipped, and it says why.
# Usage: scripts/test-aarch64.sh
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh crossbuild-essential-arm64 qemu-user libfcgi-dev:arm64 libcjson-dev:arm64 \
  libgtest-dev:arm64 libjpeg62-turbo-dev:arm64

cmake --preset aarch64 >/dev/null
cmake --build --preset aarch64 -j "$(nproc)"
ctest --preset aarch64 -L unit

# The product alone, as the camera gets it: its stripped size.
cmake --preset aarch64-size >/dev/null
cmake --build --preset aarch64-size -j "$(nproc)" >/dev/null
echo "test-aarch64: stripped size-preset responder: $(stat -c %s build-aarch64-size/web.stripped) bytes"

# The ELF header of an aarch64 executable, and which of its bytes count.
magic='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
qemu=$(command -v qemu-aarch64)
e2e_inside='
  mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null || exit 77
  printf ":qemu-aarch64:M::%s:%s:%s:F" "$1" "$2" "$3" >/proc/sys/fs/binfmt_misc/register || exit 77
  E2E_BROWSER=0 exec ctest --preset aarch64 -L e2e -E "^cameras\$"'
# The end-to-end state of an earlier run may hold files of the web servers'
# account, which the user namespace below cannot remove: it goes first. The
# pages and several cameras do not depend on the responder's architecture:
# the emulated run leaves them to the native one.
chmod -R u+rwx run/e2e 2>/dev/null
rm -rf run/e2e
set +e
unshare --user --map-root-user --mount --fork -- bash -c "$e2e_inside" e2e "$magic" "$mask" "$qemu"
status=$?
set -e
if [ "$status" -eq 77 ]; then
  echo "test-aarch64: end-to-end tests skipped: this kernel ($(uname -r)) gives no private binfmt_misc" \
       "to a user namespace (Linux 6.7 and later do), and the host's is not ours to change" >&2
  exit 0
fi
exit "$status"
