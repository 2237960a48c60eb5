#!/bin/sh
# Runs a program on a virtual X server with a private D-Bus session and a throw-away home,
# with or without a tray host:
#
#   tray-session.sh [--host sni|none|trayer|tint2] <program> [args...]
#
#   sni      (default) a StatusNotifier host on the private bus (sni-watcher.py)
#   none     no tray at all: neither a StatusNotifier host nor an XEmbed tray
#   trayer   the trayer panel (an XEmbed tray) on the X server
#   tint2    the tint2 panel (an XEmbed tray) on the X server
set -eu

host=sni
if [ "${1:-}" = "--host" ]; then
  host=$2
  shift 2
fi
[ $# -ge 1 ] || { echo "usage: $0 [--host sni|none|trayer|tint2] <program> [args...]" >&2; exit 2; }

here=$(cd "$(dirname "$0")" && pwd)
. "$here/session-bus.sh"
rig=$(mktemp -d "${TMPDIR:-/tmp}/dorvik-tray-XXXXXX")
pids=""
cleanup() {
  for pid in $pids; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$rig"
}
trap cleanup EXIT INT TERM
mkdir -p "$rig/home" "$rig/xdg" "$rig/bus"
chmod 700 "$rig/xdg"
write_session_bus_conf "$rig/bus"

# The X server picks a free display itself (several rigs may start at once) and names it.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$rig/display" 2>"$rig/xvfb.log" &
pids="$pids $!"
for _ in $(seq 200); do [ -s "$rig/display" ] && break; sleep 0.05; done
display=$(cat "$rig/display")
[ -n "$display" ] || { cat "$rig/xvfb.log" >&2; exit 1; }

dbus-daemon --config-file="$rig/bus/bus.conf" --fork --print-address=1 --print-pid=1 >"$rig/bus/info"
address=$(sed -n 1p "$rig/bus/info")
pids="$pids $(sed -n 2p "$rig/bus/info")"

export DISPLAY=":$display" DBUS_SESSION_BUS_ADDRESS="$address" HOME="$rig/home" XDG_RUNTIME_DIR="$rig/xdg" \
  QT_QPA_PLATFORM=xcb LANG=C.UTF-8
unset XDG_CURRENT_DESKTOP WAYLAND_DISPLAY || true

case "$host" in
  sni)
    /usr/bin/python3 "$here/sni-watcher.py" >"$rig/watcher.log" 2>&1 &
    pids="$pids $!"
    for _ in $(seq 100); do grep -q ready "$rig/watcher.log" 2>/dev/null && break; sleep 0.05; done
    grep -q ready "$rig/watcher.log" || { cat "$rig/watcher.log" >&2; exit 1; }
    ;;
  trayer)
    trayer --edge top --align center --widthtype pixel --width 120 --heighttype pixel --height 28 \
      --tint 0x303030 --transparent true --alpha 0 >"$rig/panel.log" 2>&1 &
    pids="$pids $!"
    sleep 1
    ;;
  tint2)
    tint2 >"$rig/panel.log" 2>&1 &
    pids="$pids $!"
    sleep 1
    ;;
  none) ;;
  *) echo "unknown host: $host" >&2; exit 2 ;;
esac

"$@"
