#!/bin/sh
# End-to-end secret scan. Runs dorvik-cli connect twice against dorvik-sim with a password and
# an SMS verification code made for this run: once on the simulated dialing back-end, once
# through the real NetworkManager of the rig (nm-rig.sh; the pppd stand-in takes the secrets
# from NetworkManager as the real plug-in would). Both links come up, beat, pass the SMS
# verification (the code is typed on stdin) and are hung up. Then neither secret may be:
#   - in the client's standard output or error,
#   - in any file under the run's HOME / XDG directories (preferences, cache, the log files),
#     the rig's directory (NetworkManager's log and profiles, the stand-in's log) or any file
#     written under /tmp during the run,
#   - in the command line or environment of any process of the run (every process in the
#     rig's network namespace, watched the whole time by proc-watch.py).
#
#   nm-rig.sh secret-scan.sh <dorvik-cli> <dorvik-sim> <plain demo configuration>
# Exit 77 (skipped) when the rig cannot be built here.
set -u
cli=$1
sim=$2
demo=$3
here=$(cd "$(dirname "$0")" && pwd)

if [ -n "${DORVIK_NM_RIG_SKIP:-}" ] || [ -z "${DORVIK_NM_RIG:-}" ]; then
    echo "secret-scan: skipped: ${DORVIK_NM_RIG_SKIP:-not run inside nm-rig.sh}"
    exit 77
fi
rig=$DORVIK_NM_RIG
wired=$(sed -n 's/^wired=//p' "$rig/rig.env")
expect=$(sed -n 's/^expect=//p' "$rig/rig.env")

work=$(mktemp -d /tmp/dorvik-secretscan-XXXXXX)
scratch=$work/home
mkdir -p "$scratch"
touch "$work/start"
HOME=$scratch
XDG_CONFIG_HOME=$scratch/config
XDG_CACHE_HOME=$scratch/cache
XDG_DATA_HOME=$scratch/data
export HOME XDG_CONFIG_HOME XDG_CACHE_HOME XDG_DATA_HOME

sim_pid=""
cli_pid=""
watch_pid=""
cleanup() {
    status=$?
    [ -n "$cli_pid" ] && kill -TERM "$cli_pid" 2>/dev/null
    [ -n "$sim_pid" ] && kill -TERM "$sim_pid" 2>/dev/null
    touch "$work/stop"
    [ -n "$watch_pid" ] && wait "$watch_pid" 2>/dev/null
    [ -n "$sim_pid" ] && wait "$sim_pid" 2>/dev/null
    if [ "${DORVIK_KEEP_SCAN:-0}" = 1 ]; then echo "secret-scan: kept $work" >&2; else rm -rf "$work"; fi
    exit $status
}
trap cleanup EXIT
trap 'exit 130' INT TERM

failed=0
problem() {
    echo "secret-scan: FAIL: $*" >&2
    failed=1
}

# Polls <file> until <pattern> occurs <count> times, for at most <seconds>.
waitfor() {
    n=0
    while [ "$(grep -c -- "$2" "$1" 2>/dev/null)" -lt "$3" ]; do
        n=$((n + 1))
        [ $n -gt $(($4 * 10)) ] && return 1
        sleep 0.1
    done
}

# Secrets of this run, in shell variables only (never exported, never an argument): a password
# and a ten-digit SMS code that appear nowhere by chance. The scans read them from files in
# the work directory, which is the test's own and is scanned by none of them.
password="Pw$(od -An -N9 -tx1 /dev/urandom | tr -d ' \n')Zq"
code=$(printf '7%09d' $(($(od -An -N4 -tu4 /dev/urandom | tr -d ' ') % 1000000000)))
printf '%s\n' "$password" >"$work/secret-password"
printf '%s\n' "$code" >"$work/secret-code"
cat "$work/secret-password" "$work/secret-code" >"$work/secrets"
printf 'demo:%s\n' "$password" >"$work/accounts"
printf '{"service": "sms", "scenario": "code=%s"}' "$code" >"$work/sms.json"

/usr/bin/python3 "$here/proc-watch.py" "$work/secrets" "$work/stop" "$work/proc-hits" "$work/proc-seen" &
watch_pid=$!

# Area 1002: a dial name without time in it, so the pppd stand-in can be told which to expect.
area=1002
cp "$demo" "$work/system.json"
"$cli" config encrypt <"$work/system.json" >"$work/system.cfg" || exit 1
"$sim" --config "$work/system.json" --area $area --account-file "$work/accounts" --control 0 \
    >"$work/sim.out" 2>"$work/sim.err" &
sim_pid=$!
waitfor "$work/sim.out" '"event":"ready"' 1 30 || { cat "$work/sim.err" >&2; problem "dorvik-sim did not start"; exit 1; }
control=$(sed -n 's/.*"control":\([0-9]*\).*/\1/p' "$work/sim.out")
curl -sf --data-binary @"$work/sms.json" "http://127.0.0.1:$control/sim/scenario" >/dev/null ||
    { problem "the SMS scenario could not be set"; exit 1; }

smsVerified() {
    curl -sf "http://127.0.0.1:$control/sim/stats" |
        /usr/bin/python3 -c 'import json, sys; print(json.load(sys.stdin)["sms"]["verified"])'
}

# One connect: up, two heartbeats, the SMS code verified, then Ctrl-C.
connect() {
    label=$1
    shift
    before=$(smsVerified)
    printf '%s\n%s\n' "$password" "$code" |
        "$cli" connect --user demo --password-stdin --area $area --config "$work/system.cfg" \
            --heartbeat-scale 20 "$@" >"$work/$label.out" 2>"$work/$label.err" &
    cli_pid=$!
    waitfor "$work/$label.out" '"dialState":2' 1 60 || problem "$label: the link did not come up"
    waitfor "$work/$label.out" '"sent":"NOTIFY"' 2 60 || problem "$label: no heartbeat"
    n=0
    until [ "$(smsVerified)" -gt "$before" ]; do
        n=$((n + 1))
        [ $n -gt 300 ] && { problem "$label: the SMS code was not verified"; break; }
        sleep 0.1
    done
    kill -INT "$cli_pid"
    wait "$cli_pid" || problem "$label: dorvik-cli connect exited $?"
    cli_pid=""
}

connect simulated --backend simulated --ac "http://127.0.0.1:18087/pppoe/auth"

dialname=$("$cli" dialname --rules prefix,suffix --prefix campus- --suffix @campus.dorvik demo |
    sed -n 's/.*"dialName":"\([^"]*\)".*/\1/p')
printf '%s\n%s' "$dialname" "$password" | sha256sum | cut -d' ' -f1 >"$expect"
n=0
until nmcli -t -f DEVICE,STATE device status 2>/dev/null | grep -q "^$wired:disconnected"; do
    n=$((n + 1))
    [ $n -gt 300 ] && { problem "NetworkManager never made $wired available"; break; }
    sleep 0.1
done
connect networkmanager --backend networkmanager --interface "$wired"
grep -q "secrets ok" "$rig/pppd.log" 2>/dev/null || problem "the pppd stand-in never got the secrets"

kill -INT "$sim_pid"
wait "$sim_pid"
sim_pid=""
touch "$work/stop"
wait "$watch_pid"
watch_pid=""

# The scans. Each names the secret it found, never prints it.
for secret in password code; do
    for f in simulated.out simulated.err networkmanager.out networkmanager.err; do
        grep -q -a -F -f "$work/secret-$secret" "$work/$f" && problem "the $secret is in dorvik-cli's $f"
    done
    hits=$( (
        grep -r -l -a -F -f "$work/secret-$secret" "$scratch" "$rig"
        find /tmp -xdev -newer "$work/start" -type f -size -64M ! -path "$work/*" -print0 2>/dev/null |
            xargs -0 -r grep -l -a -F -f "$work/secret-$secret"
    ) 2>/dev/null)
    [ -n "$hits" ] && problem "the $secret is in: $hits"
done
ls "$XDG_DATA_HOME"/dorvik/Logs/*.log >/dev/null 2>&1 || problem "dorvik-cli wrote no log file to scan"
if [ -s "$work/proc-hits" ]; then
    problem "a secret is in a process's command line or environment: $(tr '\n' ' ' <"$work/proc-hits")"
fi
for program in dorvik-cli dorvik-sim NetworkManager pppd; do
    grep -qx "$program" "$work/proc-seen" || problem "the process watch never saw $program"
done
[ $failed = 0 ] && echo "secret-scan: PASS (password and SMS code found nowhere)"
exit $failed
