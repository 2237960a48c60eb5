#!/bin/sh
# Runs a test program with a system bus on which NetworkManager is not running (a private
# bus of its own). Without dbus-run-session the program runs with DORVIK_NM_RIG_SKIP set.
#
#   bus-without-nm.sh <test program> [arguments...]
if ! command -v dbus-run-session >/dev/null 2>&1; then
    DORVIK_NM_RIG_SKIP="dbus-run-session is not installed" exec "$@"
fi
exec dbus-run-session -- sh -c 'DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SESSION_BUS_ADDRESS; export DBUS_SYSTEM_BUS_ADDRESS; exec "$@"' sh "$@"
