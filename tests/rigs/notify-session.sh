#!/bin/sh
# Runs a program on a private D-Bus session with a real desktop-notification service
# (python3-dbusmock's notification daemon, advertising "body actions"), so that no
# notification of the machine's user is shown or read.
#
#   notify-session.sh [--mode MODE] <program> [args...]
#
#   service     (default) the notification service runs on the private bus
#   no-service  a private bus on which no notification service runs or can be started
#
# The program learns the mode from DORVIK_NOTIFY_RIG. The service is stopped by its PID.
set -eu

mode=service
if [ "${1:-}" = "--mode" ]; then
  mode=$2
  shift 2
fi
[ $# -ge 1 ] || { echo "usage: $0 [--mode service|no-service] <program> [args...]" >&2; exit 2; }
case "$mode" in service | no-service) ;; *) echo "unknown mode: $mode" >&2; exit 2 ;; esac

rig=$(mktemp -d "${TMPDIR:-/tmp}/dorvik-notify-XXXXXX")
trap 'rm -rf "$rig"' EXIT INT TERM

. "$(dirname "$0")/session-bus.sh"
write_session_bus_conf "$rig"

cat >"$rig/inner.sh" <<'INNER'
set -u
mode=$1
shift
mock=
if [ "$mode" = service ]; then
  /usr/bin/python3 -m dbusmock --template notification_daemon -p '{"capabilities": "body actions"}' \
    >"$RIG_DIR/mock.log" 2>&1 &
  mock=$!
  i=0
  until gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
      --method org.freedesktop.DBus.NameHasOwner org.freedesktop.Notifications 2>/dev/null | grep -q true; do
    i=$((i + 1))
    if [ $i -gt 200 ] || ! kill -0 "$mock" 2>/dev/null; then
      echo "notify-session: the notification service did not start" >&2
      cat "$RIG_DIR/mock.log" >&2
      [ -n "$mock" ] && kill "$mock" 2>/dev/null
      exit 1
    fi
    sleep 0.05
  done
fi
status=0
DORVIK_NOTIFY_RIG=$mode "$@" || status=$?
if [ -n "$mock" ]; then
  kill "$mock" 2>/dev/null || true
  wait "$mock" 2>/dev/null || true
fi
exit $status
INNER

status=0
RIG_DIR=$rig dbus-run-session --config-file="$rig/bus.conf" -- sh "$rig/inner.sh" "$mode" "$@" || status=$?
exit $status
