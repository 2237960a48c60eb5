#!/usr/bin/env bash
# The client's main job on one machine: starts the provider simulator on 127.0.0.1, connects
# with the headless client over the simulated dialing back-end (the access concentrator of the
# simulator checks the dial name), keeps the heartbeat for a while, hangs up and shows what the
# simulator verified.
#
#   ./scripts/demo.sh [seconds] [area]      (seconds 0: until Ctrl-C)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-40}
area=${2:-1001}

bash scripts/setup.sh >/dev/null
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target dorvik-cli dorvik-sim

work=$(mktemp -d)
sim_pid=""
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# Keep the demo's preferences and logs out of the user's own.
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"

./build/bin/dorvik-sim --area "$area" --account demo:demo123 >"$work/sim.out" 2>"$work/sim.err" &
sim_pid=$!
for _ in $(seq 50); do grep -q '"ready"' "$work/sim.out" 2>/dev/null && break; sleep 0.1; done
echo "simulator: $(head -n1 "$work/sim.out")"

echo "connecting as demo (area $area); heartbeat pauses shortened fourfold for the demo"
echo demo123 | ./build/bin/dorvik-cli connect --user demo --password-stdin --backend simulated \
  --area "$area" --heartbeat-scale 4 &
cli_pid=$!
if [ "$seconds" -gt 0 ]; then
  ( sleep "$seconds"; kill -INT "$cli_pid" 2>/dev/null ) &
fi
set +e
wait "$cli_pid"
rc=$?
set -e

kill -INT "$sim_pid"; wait "$sim_pid" 2>/dev/null || true; sim_pid=""
echo "simulator: $(tail -n1 "$work/sim.out")"
exit $rc
