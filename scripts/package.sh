#!/usr/bin/env bash
# Builds the Debian package from a Release tree of only the shipped programs (build-package),
# checks it (lintian without errors, desktop-file-validate, appstreamcli validate) and installs
# it into a scratch root with dpkg -x, where dorvik-cli --version and dorvik --version must
# report the project's version. Prints the package's path and its dependencies.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh >/dev/null
build=${DORVIK_PACKAGE_BUILD_DIR:-build-package}
launcher=()
if command -v ccache >/dev/null 2>&1; then
  export CCACHE_DIR=${CCACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/dorvik-ccache}
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
# cpack must not build every target first: only dorvik_shipped is built.
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DDORVIK_BUILD_TESTS=OFF \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON "${launcher[@]}" >/dev/null
cmake --build "$build" --target dorvik_shipped
rm -f "$build"/dorvik_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/dorvik_*.deb)
echo "package: $deb"
dpkg-deb --field "$deb" Depends

# lintian: errors fail the build; warnings and notes are shown.
lintian --fail-on error --tag-display-limit 0 "$deb"

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg -x "$deb" "$root"
desktop-file-validate "$root/usr/share/applications/net.dorvik.Dorvik.desktop"
appstreamcli validate --no-net --explain "$root/usr/share/metainfo/net.dorvik.Dorvik.metainfo.xml"

# The installed programs start from the scratch root and report the package's version.
want=$(dpkg-deb --field "$deb" Version)
want=${want%-*}
for program in dorvik-cli dorvik; do
  got=$(env -u DISPLAY -u WAYLAND_DISPLAY "$root/usr/bin/$program" --version)
  echo "$program --version: $got"
  case "$got" in
    *"$want"*) ;;
    *) echo "package: $program reports '$got', the package is $want" >&2; exit 1 ;;
  esac
done
echo "package: ok"
