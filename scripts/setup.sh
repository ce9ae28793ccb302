#!/usr/bin/env bash
# Installs the Debian packages the project builds, runs and tests with.
# Idempotent: does nothing when everything is present.
set -euo pipefail

packages=(cmake g++ make pkg-config libfcgi-dev libfcgi-bin libcjson-dev
          lighttpd spawn-fcgi libgtest-dev iproute2 psmisc net-tools
          libjpeg62-turbo-dev util-linux procps curl)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]}" >&2
  echo "setup: run as root:  apt-get update && apt-get install -y ${missing[*]}" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
# The project starts its own web server on its own port; whatever the
# package set up on the host is left alone.
exit 0
