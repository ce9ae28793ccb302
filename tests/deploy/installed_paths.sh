#!/bin/sh
# An install under another prefix writes service files that name what it
# installed there, and puts every file where the README says.
set -eu
build=${1:?usage: installed_paths.sh BUILD_DIR}
dest=$(mktemp -d)
trap 'rm -rf "$dest"' EXIT
DESTDIR=$dest cmake --install "$build" --prefix /opt/camera >/dev/null
fail=0
check() { grep -q -- "$2" "$dest$1" || { echo "installed_paths: $1 lacks '$2'" >&2; fail=1; }; }
check /opt/camera/share/web/web.service 'ExecStart=/usr/bin/spawn-fcgi .* -- /opt/camera/sbin/web$'
check /opt/camera/share/web/web.service '-U www-data'
check /opt/camera/share/web/web.run '/opt/camera/sbin/web$'
for f in /opt/camera/sbin/web /opt/camera/share/web/lighttpd.conf /opt/camera/share/web/nginx.conf \
         /opt/ipnc/www/index.html /opt/ipnc/www/js/api.js; do
  [ -e "$dest$f" ] || { echo "installed_paths: $f is missing" >&2; fail=1; }
done
[ -x "$dest/opt/camera/share/web/web.run" ] || { echo "installed_paths: web.run is not executable" >&2; fail=1; }
[ $fail -eq 0 ] && echo "installed_paths: 1 passed, 0 failed"
exit $fail
