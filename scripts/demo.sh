#!/usr/bin/env bash
# The client's main job on one machine, against the provider simulator on 127.0.0.1.
#
# With a display: starts the simulator and the windowed client `dorvik` on the simulated
# dialing back-end (two network interfaces); log in as demo / demo123 and close the window to
# end the demo.
#
# Without a display: runs `dorvik` under Xvfb, logs in by typing as a user would (xdotool) and
# writes a screenshot of each step (log-in view, area selection, interface choice, an error
# alert, the first-run guide, the SMS-code dialog, the online view with the simulator's page)
# into build/demo-screenshots/; then connects the headless client
# for a while, hangs up and shows what the simulator verified.
#
#   ./scripts/demo.sh [seconds] [area]      (seconds 0: until Ctrl-C; headless part only)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-40}
area=${2:-1001}
shots="$PWD/build/demo-screenshots"

# --- the scripted log-in, run inside Xvfb by the headless demo (internal) ---
if [ "${1:-}" = "--scripted-windows" ]; then
  shots=$2; area=$3; work=$4
  app_pid=""
  shot() { import -window "$1" "$shots/$2.png" && echo "  $2.png"; }
  window() { # title -> window id, waiting for it to appear
    local id=""
    for _ in $(seq 100); do
      id=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | tail -n1 || true)
      [ -n "$id" ] && { echo "$id"; return 0; }
      sleep 0.1
    done
    echo "demo: no window named '$1'" >&2; return 1
  }
  start_dorvik() {
    QT_QPA_PLATFORM=xcb ./build/bin/dorvik --backend simulated "$@" >>"$work/dorvik.log" 2>&1 &
    app_pid=$!
  }
  stop_dorvik() { kill -TERM "$app_pid" 2>/dev/null; wait "$app_pid" 2>/dev/null || true; }

  # A first start in a fresh home asks for the area.
  XDG_CONFIG_HOME="$work/fresh" XDG_DATA_HOME="$work/fresh" start_dorvik
  main=$(window '^dorvik$'); sleep 1
  shot "$main" 2-area
  stop_dorvik

  start_dorvik --area "$area" --heartbeat-scale 4
  main=$(window '^dorvik$'); sleep 1
  xdotool windowfocus --sync "$main"
  xdotool type --delay 40 demo; xdotool key Tab; xdotool type --delay 40 demo123
  sleep 0.3; shot "$main" 1-login
  xdotool key Return                              # connect: two interfaces, so it asks
  choice=$(window '网卡选择'); sleep 0.5
  shot "$choice" 3-interfaces
  xdotool key Down Return                         # the wireless interface is down
  alert=$(window '^错误$'); sleep 0.5
  shot "$alert" 4-error
  xdotool key Return                              # close the alert
  sleep 0.5
  xdotool windowfocus --sync "$main"; xdotool key Return
  choice=$(window '网卡选择'); sleep 0.3
  xdotool key Return                              # the wired one
  for _ in $(seq 100); do                         # the window grows when online
    [ "$(xdotool getwindowgeometry "$main" 2>/dev/null | awk '/Geometry/ {print $2}')" = "900x610" ] && break
    sleep 0.1; main=$(window '^dorvik$')
  done
  # A first online view shows the guide; hiding the title-bar buttons re-creates the window.
  sleep 1.5; main=$(window '^dorvik$'); shot "$main" 5-guide
  # The simulator asks for a text-message code: 123456.
  if sms=$(window '短信验证'); then
    sleep 0.5; xdotool windowfocus --sync "$sms"; xdotool type --delay 40 1234
    shot "$sms" 6-sms
    xdotool type --delay 40 56; xdotool key Return
    sleep 0.5
  fi
  main=$(window '^dorvik$')                       # the guide re-created the window
  xdotool mousemove --window "$main" 450 300 click 1   # a click dismisses the guide
  sleep 3; main=$(window '^dorvik$')              # (re-created again with its buttons back)
  shot "$main" 7-online                           # the provider's page, served by the simulator
  stop_dorvik
  exit 0
fi

bash scripts/setup.sh >/dev/null
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target dorvik-cli dorvik-sim dorvik

work=$(mktemp -d)
sim_pid=""
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# Keep the demo's preferences and logs out of the user's own.
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"

# The web engine of the online view's page refuses to run as root unless its sandbox is off.
[ "$(id -u)" -eq 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1

start_sim() { # extra simulator options
  ./build/bin/dorvik-sim --area "$area" --account demo:demo123 "$@" >"$work/sim.out" 2>"$work/sim.err" &
  sim_pid=$!
  for _ in $(seq 50); do grep -q '"ready"' "$work/sim.out" 2>/dev/null && break; sleep 0.1; done
  echo "simulator: $(head -n1 "$work/sim.out")"
}
stop_sim() {
  kill -INT "$sim_pid"; wait "$sim_pid" 2>/dev/null || true; sim_pid=""
  echo "simulator: $(tail -n1 "$work/sim.out")"
}

# For the windows the provider asks for a text-message code once online (the code is 123456).
start_sim --scenario sms=code

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "windowed client on the simulated back-end (area $area): log in as demo / demo123;"
  echo "once online the provider asks for a text-message code: type 123456 (any other ends the link);"
  echo "close the window to end"
  ./build/bin/dorvik --backend simulated --area "$area" --heartbeat-scale 4
  stop_sim
  exit 0
fi

echo "no display: the windowed client under Xvfb, screenshots of a scripted log-in into $shots"
rm -rf "$shots"; mkdir -p "$shots"
xvfb-run -a -s "-screen 0 1280x1024x24" bash "$0" --scripted-windows "$shots" "$area" "$work"
stop_sim
start_sim

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

stop_sim
echo "screenshots of the windowed log-in: $shots"
exit $rc
