#!/bin/sh
# Runs a test program beside a real NetworkManager of its own: a private system bus, a
# private network namespace with two veth pairs, and NetworkManager in a private mount
# namespace (read-only /sys so it does not wait for udev; its /run and state directory in
# the rig; /usr/sbin/pppd replaced by the stand-in, since this kernel has no PPP).
#
#   nm-rig.sh <test program> [arguments...]
#
# The program runs inside the namespace with DBUS_SYSTEM_BUS_ADDRESS pointing at the private
# bus and DORVIK_NM_RIG naming the rig directory (see rig.env there). When the rig cannot be
# built (not root, no "ip netns", no NetworkManager) the program still runs, with
# DORVIK_NM_RIG_SKIP saying why, so that it can skip its tests with that message.
# Everything the rig starts is stopped by PID at the end; set DORVIK_KEEP_RIG=1 to keep the
# directory (logs) for a look afterwards.

here=$(cd "$(dirname "$0")" && pwd)

# Runs the program with the reason the rig is missing; the EXIT trap still tears down.
skip() {
    msg=$1
    shift
    echo "nm-rig: $msg" >&2
    DORVIK_NM_RIG_SKIP="$msg" "$@"
    exit $?
}
[ $# -ge 1 ] || { echo "usage: nm-rig.sh <program> [args...]" >&2; exit 2; }

reason=""
[ "$(id -u)" = 0 ] || reason="needs root for network namespaces"
for tool in ip unshare dbus-daemon busctl NetworkManager mount; do
    [ -n "$reason" ] && break
    command -v "$tool" >/dev/null 2>&1 || [ -x "/usr/sbin/$tool" ] || reason="$tool is not installed"
done
[ -n "$reason" ] || [ -x /usr/bin/python3 ] || reason="/usr/bin/python3 (TUN holder) is missing"
if [ -n "$reason" ]; then
    DORVIK_NM_RIG_SKIP="$reason" exec "$@"
fi
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export PATH

id=dv$$
ns=dorvik-$id
rig=$(mktemp -d /tmp/dorvik-nmrig-XXXXXX)
chmod 755 "$rig"
dbus_pid=""
nm_pid=""

teardown() {
    status=$?
    [ -n "$nm_pid" ] && kill -TERM "$nm_pid" 2>/dev/null
    for f in "$rig"/pids/*; do
        [ -f "$f" ] && kill -TERM "$(cat "$f")" 2>/dev/null
    done
    [ -n "$nm_pid" ] && wait "$nm_pid" 2>/dev/null
    [ -n "$dbus_pid" ] && kill -TERM "$dbus_pid" 2>/dev/null && wait "$dbus_pid" 2>/dev/null
    ip netns del "$ns" 2>/dev/null
    if [ "${DORVIK_KEEP_RIG:-0}" = 1 ]; then
        echo "nm-rig: kept $rig" >&2
    else
        rm -rf "$rig"
    fi
    exit $status
}
trap teardown EXIT
trap 'exit 130' INT TERM

mkdir -p "$rig/dbus" "$rig/connections" "$rig/run" "$rig/var" "$rig/empty" "$rig/pids"

# --- private system bus: the stock system policy (with NetworkManager's rules) on our socket
sed -e "s|@RIG@|$rig|g" "$here/system-bus.conf.in" >"$rig/dbus/system.conf"
dbus-daemon --config-file="$rig/dbus/system.conf" --nofork --print-address=1 >"$rig/dbus/address" &
dbus_pid=$!
DBUS_SYSTEM_BUS_ADDRESS="unix:path=$rig/dbus/system_bus_socket"
export DBUS_SYSTEM_BUS_ADDRESS
i=0
until [ -S "$rig/dbus/system_bus_socket" ]; do
    i=$((i + 1)); [ $i -gt 100 ] && skip "the private system bus did not start" "$@"
    sleep 0.05
done

# --- network namespace: a0 (carrier), b0 (no carrier: its peer stays down) and the
# unmanaged a1/b1 ends
if ! ip netns add "$ns" 2>"$rig/netns.err"; then
    skip "ip netns add failed: $(cat "$rig/netns.err")" "$@"
fi
ip link add "${id}a0" type veth peer name "${id}a1" &&
    ip link add "${id}b0" type veth peer name "${id}b1" &&
    for l in a0 a1 b0 b1; do ip link set "${id}$l" netns "$ns" || exit 1; done &&
    ip -n "$ns" link set lo up &&
    ip -n "$ns" link set "${id}a0" up && ip -n "$ns" link set "${id}a1" up && ip -n "$ns" link set "${id}b0" up ||
    skip "veth pairs could not be set up" "$@"

# --- NetworkManager
sed -e "s|@RIG@|$rig|g" -e "s|@UNMANAGED@|interface-name:lo;interface-name:${id}a1;interface-name:${id}b1|g" \
    "$here/NetworkManager.conf.in" >"$rig/NetworkManager.conf"
sed -e "s|@RIG@|$rig|g" -e "s|@BUS@|$DBUS_SYSTEM_BUS_ADDRESS|g" "$here/pppd-standin.sh" >"$rig/pppd"
cp "$here/tun-holder.py" "$rig/tun-holder.py"
chmod 755 "$rig/pppd"

ip netns exec "$ns" unshare -m --propagation private sh -c "
    mount --bind '$rig/run' /run &&
    mount -o remount,bind,ro /sys &&
    mkdir -p /run/NetworkManager &&
    mount --bind '$rig/var' /var/lib/NetworkManager &&
    mount --bind '$rig/pppd' /usr/sbin/pppd &&
    exec NetworkManager --no-daemon --debug --config='$rig/NetworkManager.conf' \
        --config-dir='$rig/empty' --system-config-dir='$rig/empty' \
        --state-file='$rig/var/NetworkManager.state' --intern-config='$rig/var/NetworkManager-intern.conf'
" >"$rig/nm.log" 2>&1 &
nm_pid=$!

i=0
until busctl --address="$DBUS_SYSTEM_BUS_ADDRESS" status org.freedesktop.NetworkManager >/dev/null 2>&1; do
    i=$((i + 1))
    if [ $i -gt 200 ] || ! kill -0 "$nm_pid" 2>/dev/null; then
        tail -20 "$rig/nm.log" >&2
        skip "NetworkManager did not come up on the private bus" "$@"
    fi
    sleep 0.05
done

cat >"$rig/rig.env" <<EOF
wired=${id}a0
nocarrier=${id}b0
nocarrierpeer=${id}b1
unmanaged=${id}a1
connections=$rig/connections
rundir=$rig/run/NetworkManager
expect=$rig/expect
pppdlog=$rig/pppd.log
nmlog=$rig/nm.log
EOF

DORVIK_NM_RIG="$rig" ip netns exec "$ns" "$@"
