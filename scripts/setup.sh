#!/usr/bin/env bash
# Installs the Debian packages the project builds, runs and tests with.
# Idempotent: does nothing when everything is present.
# Usage: scripts/setup.sh              the packages of make run
#        scripts/setup.sh --test       those and the ones make test adds (the
#                                      browser and its driver for the pages)
#        scripts/setup.sh PACKAGE...   those packages instead (make bench asks
#                                      for wrk, make test-aarch64 for the arm64
#                                      tool chain; a name ending in ":arm64"
#                                      adds that architecture to dpkg first)
set -euo pipefail

test_packages=()
if [ "${1:-}" = --test ]; then
  shift
  test_packages=(chromium chromium-driver python3-selenium nginx openssl clang-format shellcheck)
fi
packages=("$@")
if [ ${#packages[@]} -eq 0 ]; then
  packages=(cmake g++ make pkg-config libfcgi-dev libfcgi-bin libcjson-dev
            lighttpd spawn-fcgi libgtest-dev iproute2 psmisc net-tools
            libjpeg62-turbo-dev util-linux procps curl "${test_packages[@]}")
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

foreign=()
for p in "${missing[@]}"; do
  [[ $p == *:* ]] && foreign+=("${p##*:}")
done

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]}" >&2
  for a in "${foreign[@]}"; do echo "setup: run as root:  dpkg --add-architecture $a" >&2; done
  echo "setup: run as root:  apt-get update && apt-get install -y ${missing[*]}" >&2
  exit 1
fi
# Adding an architecture may upgrade a few host libraries to the versions
# its packages must match.
for a in "${foreign[@]}"; do dpkg --add-architecture "$a"; done
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# The web servers' packages would start their own service on the host's
# port 80: the Debian switch that keeps a package from starting any, for the
# time of the install (only when no such switch is in place already).
policy=/usr/sbin/policy-rc.d
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' >"$policy" && chmod 0755 "$policy"
  trap 'rm -f "$policy"' EXIT
fi
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
# The project starts its own web servers on ports of its own; what the
# packages set up on the host is left alone, and not started.
exit 0
