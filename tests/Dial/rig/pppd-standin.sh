#!/bin/sh
# Stands in for /usr/sbin/pppd inside the rig's NetworkManager (the kernel has no PPP). It
# reports to NetworkManager over the PPP interface at the object path given as "ipparam", as
# NetworkManager's pppd plug-in does: it asks for the secrets, checks that the dial name and
# password are the ones the test dialled (a SHA-256 of "name\npassword" in @RIG@/expect;
# exit 19, pppd's "authentication failed", on a mismatch), then brings up a TUN device as the
# PPP link and reports its address. On SIGTERM it takes the link down and reports "dead".
rig=@RIG@
bus=@BUS@
log=$rig/pppd.log
echo "$$" >"$rig/pids/pppd.$$"

ipparam=""
user=""
prev=""
for a in "$@"; do
    case "$prev" in
    ipparam) ipparam=$a ;;
    user) user=$a ;;
    esac
    prev=$a
done
echo "started: $*" >>"$log"

ppp() {
    busctl --address="$bus" call org.freedesktop.NetworkManager "$ipparam" org.freedesktop.NetworkManager.PPP "$@"
}

tun=tn$$
holder=""
finish() {
    [ -n "$holder" ] && kill -TERM "$holder" 2>/dev/null
    ppp SetState u 1 >/dev/null 2>&1 # dead
    rm -f "$rig/pids/pppd.$$" "$rig/pids/tun.$$"
    echo "stopped" >>"$log"
    exit 0
}
trap finish TERM INT

ppp SetState u 5 >/dev/null # establish
# The secrets come back as JSON on stdin of the checker: the password never reaches an
# argument list or a file.
got=$(busctl --json=short --address="$bus" call org.freedesktop.NetworkManager "$ipparam" \
    org.freedesktop.NetworkManager.PPP NeedSecrets |
    /usr/bin/python3 -c 'import hashlib, json, sys
d = json.load(sys.stdin)["data"]
print(d[0] + " " + hashlib.sha256((d[0] + "\n" + d[1]).encode()).hexdigest())')
secret_user=${got% *}
digest=${got##* }
if [ "$secret_user" != "$user" ] || [ "$digest" != "$(cat "$rig/expect" 2>/dev/null)" ]; then
    echo "secrets mismatch for user '$secret_user' (argument '$user')" >>"$log"
    exit 19
fi
echo "secrets ok for user '$user'" >>"$log"
ppp SetState u 6 >/dev/null # authenticate

/usr/bin/python3 "$rig/tun-holder.py" "$tun" "$rig/pids/tun.$$" &
holder=$!
i=0
until [ -e "/sys/class/net/$tun" ]; do
    i=$((i + 1))
    [ $i -gt 100 ] && { echo "no TUN device" >>"$log"; exit 1; }
    sleep 0.02
done
ip link set dev "$tun" up
ifindex=$(cat "/sys/class/net/$tun/ifindex")
ppp SetState u 8 >/dev/null # network
ppp SetState u 9 >/dev/null # running
ppp SetIfindex i "$ifindex" >/dev/null
# 10.64.0.2 via 10.64.0.1 (little-endian u32 of the network-order bytes)
ppp SetIp4Config "a{sv}" 4 interface s "$tun" address u 33570826 gateway u 16793610 dns au 1 16793610 >/dev/null
echo "up on $tun ($ifindex)" >>"$log"

while :; do
    sleep 1 &
    wait $!
done
