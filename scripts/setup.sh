#!/usr/bin/env bash
# Installs every Debian 12 package needed to build dorvik and run its whole test suite.
# Idempotent; run as root (or through sudo) on a fresh machine.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config clang-format ccache
  # fuzz targets (libFuzzer comes with clang)
  clang
  # libraries the client links
  qt6-base-dev qt6-base-dev-tools qt6-httpserver-dev libqt6websockets6-dev
  # the online view's web page (optional at build time, on when found)
  qt6-webengine-dev
  nlohmann-json3-dev libssl-dev openssl libsecret-1-dev libglib2.0-dev libqrencode-dev
  # the update installer unpacks packages with libarchive
  libarchive-dev
  # the windowed client: Qt Widgets, a font with Chinese glyphs; the window tests and the
  # headless demo run it on a virtual X server and drive and capture it there
  fonts-wqy-microhei xvfb xauth xdotool x11-utils imagemagick
  # unit tests
  libgtest-dev libgmock-dev
  # real components the integration tests start: a keyring, a notification service,
  # NetworkManager with pppd in a private network namespace, and their D-Bus plumbing
  dbus dbus-bin dbus-daemon gnome-keyring python3-dbusmock
  network-manager ppp iproute2 util-linux systemd python3 curl
  # desktop integration: icons drawn from SVG at build time, the Debian package and its checks,
  # and tray hosts for the tray tests (a StatusNotifier host in Python, XEmbed panels)
  librsvg2-bin dpkg-dev fakeroot lintian desktop-file-utils appstream
  python3-dbus python3-gi trayer tint2
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
echo "setup: installed ${missing[*]}"
