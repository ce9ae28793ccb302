# shellcheck shell=bash
# Shared by scripts/run.sh and scripts/e2e.sh (sourced, not run): starting and
# stopping the sandboxed camera and the web server in front of it.
#
# The caller sets: REPO (repository root), BUILD (build directory),
# CAMERA_RUN_DIR (state directory, exported).

# shellcheck source=proc.sh
. "$REPO/scripts/proc.sh"

SANDBOX_PID=
LIGHTTPD_PID=
EXTRA_PIDS=()   # further web servers and responders this script started

# Starts scripts/sandbox.sh in the background and waits (at most $1 seconds)
# until it serves. Returns non-zero when it did not come up. With
# CAMERA_CPUS set (a taskset list) the whole camera runs on those CPUs.
camera_start() {
  local timeout=${1:-20} i
  rm -f "$CAMERA_RUN_DIR/sandbox.ready"
  SOCKET_USER=$(web_account)
  export SOCKET_USER
  ${CAMERA_CPUS:+taskset -c "$CAMERA_CPUS"} "$REPO/scripts/sandbox.sh" "$BUILD" &
  SANDBOX_PID=$!
  serving() { [ -e "$CAMERA_RUN_DIR/sandbox.ready" ] && [ -S "$CAMERA_RUN_DIR/web.sock" ]; }
  WHILE_RUNNING=$SANDBOX_PID wait_until "$timeout" serving && return 0
  echo "camera: the sandbox did not come up within ${timeout}s" >&2
  return 1
}

# The account the web servers run as and the responder's socket belongs to:
# as on the camera, www-data when the sandbox runs as root and that account
# can reach the state directory; otherwise the invoking user.
web_account() {
  if [ "$(id -u)" -eq 0 ] && runuser -u www-data -- test -x "$CAMERA_RUN_DIR" 2>/dev/null; then
    echo www-data
  else
    id -un
  fi
}

# A directory the web server's account may write (request bodies it keeps
# while they arrive).
web_scratch() {
  local dir=$CAMERA_RUN_DIR/$1
  mkdir -p "$dir"
  [ "$(id -u)" -eq 0 ] && chown "$(web_account)" "$dir"
  echo "$dir"
}

# The user files of the access variants: the same HTTP Basic file for both
# servers (user admin, password camera, as `openssl passwd -apr1` makes it),
# and lighttpd's Digest file.
web_users() {
  openssl passwd -apr1 camera | sed 's/^/admin:/' >"$CAMERA_RUN_DIR/web.htpasswd"
  printf 'admin:camera:%s\n' "$(printf 'admin:camera:camera' | md5sum | cut -d' ' -f1)" >"$CAMERA_RUN_DIR/web.users"
}

# Writes the web server's configuration for the host: the shipped one with
# the document root, port and responder socket of the sandbox. A second
# argument names a variant: "auth" switches the shipped HTTP Basic block on
# (user admin, password camera), "digest" lighttpd's Digest block instead;
# "floor" hands the responder route to $CAMERA_RUN_DIR/floor.sock. The
# camera's /tmp is served under /tmp/ as the camera's link into its web root
# would serve it (through the shipped log rules).
lighttpd_config() {
  local port=$1 variant=${2:-} name=lighttpd socket=$CAMERA_RUN_DIR/web.sock
  [ -n "$variant" ] && name=lighttpd-$variant
  [ "$variant" = floor ] && socket=$CAMERA_RUN_DIR/floor.sock
  local conf=$CAMERA_RUN_DIR/$name.conf edits=() block
  for block in auth digest; do
    if [ "$variant" = "$block" ]; then edits+=(-e "s|^#\(.*\)# site: $block\$|\1|")
    else edits+=(-e "/# site: $block\$/d"); fi
  done
  [ "$(web_account)" = www-data ] || edits+=(-e '/# site: user$/d')
  if [ "$variant" = auth ] || [ "$variant" = digest ]; then web_users; fi
  {
    sed -e "s|^server.document-root *=.*# site: document root|server.document-root = \"$CAMERA_RUN_DIR/root/opt/ipnc/www\"|" \
        -e "s|^server.port *=.*# site: port|server.port = $port|" \
        -e "s|^var.web_socket *=.*# site: responder socket|var.web_socket = \"$socket\"|" \
        -e "s|/opt/params/web.htpasswd|$CAMERA_RUN_DIR/web.htpasswd|" \
        -e "s|/opt/params/web.users|$CAMERA_RUN_DIR/web.users|" \
        "${edits[@]}" \
        "$REPO/deploy/lighttpd.conf"
    cat <<EOF

# Host side of the sandbox.
server.modules       += ( "mod_alias" )
server.bind           = "127.0.0.1"
server.pid-file       = "$CAMERA_RUN_DIR/$name.pid"
server.errorlog       = "$CAMERA_RUN_DIR/$name.log"
server.upload-dirs    = ( "$(web_scratch "$name-uploads")" )
# The camera links /tmp into its web root; on the host that would be the
# host's /tmp: links are not followed, and /tmp/ is the camera's.
server.follow-symlink = "disable"
alias.url             = ( "/tmp/" => "$CAMERA_RUN_DIR/root/tmp/" )
EOF
  } >"$conf"
  echo "$conf"
}

# The same for nginx: a main configuration of the sandbox's own around the
# shipped server block. Its workers run as nginx's default account on Debian
# (www-data) when started as root. Variants: "" or "auth".
nginx_config() {
  local port=$1 variant=${2:-} name=nginx
  [ -n "$variant" ] && name=nginx-$variant
  local conf=$CAMERA_RUN_DIR/$name.conf tmp edits=(-e '/# site: auth$/d')
  if [ "$variant" = auth ]; then
    edits=(-e 's|^\( *\)# \(.*# site: auth\)$|\1\2|')
    web_users
  fi
  tmp=$(web_scratch "$name-tmp")
  sed -e "s|^\( *\)listen 80;.*# site: port|\1listen 127.0.0.1:$port;|" \
      -e "s|^\( *\)root /opt/ipnc/www;.*# site: document root|\1root $CAMERA_RUN_DIR/root/opt/ipnc/www;|" \
      -e "s|unix:/run/web/web.sock;.*# site: responder socket|unix:$CAMERA_RUN_DIR/web.sock;|" \
      -e "s|include fastcgi_params;.*# site: fastcgi params|include /etc/nginx/fastcgi_params;|" \
      -e "s|/opt/params/web.htpasswd|$CAMERA_RUN_DIR/web.htpasswd|" \
      -e "s|^\( *\)location ^~ /tmp/ {|&\n\1    root $CAMERA_RUN_DIR/root;|" \
      "${edits[@]}" \
      "$REPO/deploy/nginx.conf" >"$CAMERA_RUN_DIR/$name-site.conf"
  cat >"$conf" <<EOF
# Host side of the sandbox: nginx in front of the simulated camera.
$([ "$(id -u)" -eq 0 ] && echo "user $(web_account);")
daemon off;
worker_processes 1;
pid $CAMERA_RUN_DIR/$name.pid;
error_log $CAMERA_RUN_DIR/$name.log;
events { worker_connections 256; }
http {
    include /etc/nginx/mime.types;
    default_type application/octet-stream;
    access_log off;
    client_body_temp_path $tmp/body;
    proxy_temp_path $tmp/proxy;
    fastcgi_temp_path $tmp/fastcgi;
    uwsgi_temp_path $tmp/uwsgi;
    scgi_temp_path $tmp/scgi;
    include $CAMERA_RUN_DIR/$name-site.conf;
}
EOF
  echo "$conf"
}

port_in_use() {
  ss -Hltn "sport = :$1" 2>/dev/null | grep -q .
}

# Starts a web server (lighttpd, or nginx: $3, default $WEB_SERVER or
# lighttpd) on 127.0.0.1:$1 in the foreground mode, in the background; $2
# names a variant of its configuration. The main server's pid goes to
# LIGHTTPD_PID, any other's to EXTRA_PIDS.
web_start() {
  local port=$1 variant=${2:-} server=${3:-${WEB_SERVER:-lighttpd}} conf i pid
  case $server in
    lighttpd)
      conf=$(lighttpd_config "$port" "$variant")
      lighttpd -tt -f "$conf" >/dev/null || { echo "camera: bad web server configuration $conf" >&2; return 1; }
      : >"${conf%.conf}.log"
      # It opens its log after giving up root.
      [ "$(id -u)" -eq 0 ] && chown "$(web_account)" "${conf%.conf}.log"
      lighttpd -D -f "$conf" &
      ;;
    nginx)
      conf=$(nginx_config "$port" "$variant")
      : >"${conf%.conf}.log"
      nginx -t -q -e "${conf%.conf}.log" -c "$conf" 2>/dev/null || {
        echo "camera: bad web server configuration $conf" >&2
        tail -n 5 "${conf%.conf}.log" >&2
        return 1
      }
      nginx -e "${conf%.conf}.log" -c "$conf" &
      ;;
    *) echo "camera: no web server '$server' (lighttpd or nginx)" >&2; return 1 ;;
  esac
  pid=$!
  if [ -n "$variant" ] || [ "$server" != "${WEB_SERVER:-lighttpd}" ]; then EXTRA_PIDS+=("$pid"); else LIGHTTPD_PID=$pid; fi
  WHILE_RUNNING=$pid wait_until 5 port_in_use "$port" && return 0
  echo "camera: the web server did not start on port $port:" >&2
  tail -n 5 "${conf%.conf}.log" >&2
  [ "$pid" = "$LIGHTTPD_PID" ] && LIGHTTPD_PID=
  return 1
}
lighttpd_start() { web_start "$1" "${2:-}" lighttpd; }

# kB of a process's private dirty pages.
private_dirty() {
  awk '/^Private_Dirty/ {s += $2} END {print s + 0}' "/proc/$1/smaps_rollup" 2>/dev/null
}
# The host's id of the product responder in this run's sandbox.
web_pid() {
  local pid p
  for p in $(pgrep -x web); do
    [ "$(readlink "/proc/$p/ns/pid")" = "$(readlink "/proc/$(cat "$CAMERA_RUN_DIR/sandbox.pid")/ns/pid")" ] && pid=$p
  done
  echo "${pid:-}"
}

# A free port from a high range, tried in a random order.
free_port() {
  local i p
  for ((i = 0; i < 50; i++)); do
    p=$((20000 + RANDOM % 20000))
    port_in_use "$p" || { echo "$p"; return 0; }
  done
  return 1
}

camera_stop() {
  if [ -n "$LIGHTTPD_PID" ]; then
    stop_process "$LIGHTTPD_PID" 5
    LIGHTTPD_PID=
  fi
  local pid
  for pid in "${EXTRA_PIDS[@]}"; do stop_process "$pid" 5; done
  EXTRA_PIDS=()
  if [ -n "$SANDBOX_PID" ]; then
    local unshare_pid
    unshare_pid=$(pgrep -P "$SANDBOX_PID" -x unshare 2>/dev/null | head -n 1)
    # Last resort: unshare takes the whole sandbox with it.
    stop_process "$SANDBOX_PID" 10 || { [ -n "$unshare_pid" ] && kill -KILL "$unshare_pid" 2>/dev/null; }
    SANDBOX_PID=
  fi
}

# Removes a state directory, including files a root-owned sandbox left and
# the overlay's work directory (mode 000).
camera_wipe() {
  local dir=$1
  [ -e "$dir" ] || return 0
  chmod -R u+rwx "$dir" 2>/dev/null
  rm -rf "$dir" 2>/dev/null || {
    echo "camera: cannot remove $dir (left by another user?)" >&2
    return 1
  }
}

# Stops everything this script started and exits with $1.
camera_finish() {
  trap '' INT TERM HUP
  camera_stop
  exit "${1:-1}"
}

# A fresh state directory; INT, TERM and HUP stop what was started.
camera_fresh() {
  trap 'camera_finish 130' INT
  trap 'camera_finish 143' TERM HUP
  camera_wipe "$CAMERA_RUN_DIR" || exit 1
  mkdir -p "$CAMERA_RUN_DIR"
}
