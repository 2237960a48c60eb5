#!/bin/sh
# Runs a program against a real gnome-keyring on a private D-Bus session, with a throw-away
# home, so that no keyring of the machine's user is read or written.
#
#   keyring-session.sh [--mode MODE] <program> [args...]
#
#   unlocked    (default) a "login" keyring is created with a password and left unlocked
#   missing     the keyring daemon runs but no keyring exists yet
#   locked      the "login" keyring exists and is locked
#   no-service  a session bus on which no secret service runs or can be started
#   no-bus      no session bus at all
#
# The environment is emptied; only the sanitizer settings and DORVIK_KEYCHAIN_RIG pass.
set -eu

mode=unlocked
if [ "${1:-}" = "--mode" ]; then
  mode=$2
  shift 2
fi
[ $# -ge 1 ] || { echo "usage: $0 [--mode unlocked|missing|locked|no-service|no-bus] <program> [args...]" >&2; exit 2; }

rig=$(mktemp -d "${TMPDIR:-/tmp}/dorvik-keyring-XXXXXX")
trap 'rm -rf "$rig"' EXIT INT TERM
mkdir -p "$rig/home" "$rig/xdg"
chmod 700 "$rig/xdg"

case "$mode" in
  unlocked) start='echo -n rig-password | gnome-keyring-daemon --unlock --components=secrets >/dev/null' ;;
  missing) start='gnome-keyring-daemon --start --components=secrets >/dev/null' ;;
  locked) start='echo -n rig-password | gnome-keyring-daemon --unlock --components=secrets >/dev/null
    gdbus call --session --dest org.freedesktop.secrets --object-path /org/freedesktop/secrets \
      --method org.freedesktop.Secret.Service.Lock "[objectpath \"/org/freedesktop/secrets/collection/login\"]" >/dev/null' ;;
  no-service | no-bus) start=':' ;;
  *) echo "unknown mode: $mode" >&2; exit 2 ;;
esac

clean_env() {
  env -i PATH=/usr/bin:/bin HOME="$rig/home" XDG_RUNTIME_DIR="$rig/xdg" LANG=C.UTF-8 \
    ${ASAN_OPTIONS+ASAN_OPTIONS="$ASAN_OPTIONS"} \
    ${UBSAN_OPTIONS+UBSAN_OPTIONS="$UBSAN_OPTIONS"} \
    ${LSAN_OPTIONS+LSAN_OPTIONS="$LSAN_OPTIONS"} \
    ${TSAN_OPTIONS+TSAN_OPTIONS="$TSAN_OPTIONS"} \
    ${DORVIK_KEYCHAIN_RIG+DORVIK_KEYCHAIN_RIG="$DORVIK_KEYCHAIN_RIG"} \
    "$@"
}

. "$(dirname "$0")/session-bus.sh"
write_session_bus_conf "$rig"

status=0
if [ "$mode" = no-bus ]; then
  clean_env "$@" || status=$?
elif [ "$mode" = no-service ]; then
  clean_env dbus-run-session --config-file="$rig/bus.conf" -- "$@" || status=$?
else
  # The keyring daemon lives on the private bus and ends with it.
  clean_env dbus-run-session -- sh -c "$start"'
    exec "$@"' rig "$@" || status=$?
fi
exit $status
