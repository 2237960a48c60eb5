#!/bin/sh
# Builds the project with ThreadSanitizer in build-tsan and runs the test suite under it.
# Any data race fails the test that met it (halt_on_error); scripts/tsan.supp lists the reports
# that are known benign, each with the reason.
#
#   scripts/tsan.sh [ctest arguments...]     e.g. scripts/tsan.sh -R test_bcom
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-tsan"
launcher=""
command -v ccache >/dev/null 2>&1 && launcher="-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DDORVIK_WERROR=ON -DDORVIK_TSAN=ON $launcher >/dev/null
fi
nice -n 5 cmake --build "$build"
# Child processes started from an instrumented program are made fork-style (see the shim's comment).
cc -shared -fPIC -O2 -o "$build/tsan-clone-shim.so" "$root/scripts/tsan-clone-shim.c" -ldl
export LD_PRELOAD="$build/tsan-clone-shim.so${LD_PRELOAD:+:$LD_PRELOAD}"
# Debian's Qt is not built with ThreadSanitizer: its own locks (event queues, QWaitCondition,
# the network access manager's thread) are invisible, so the allocations and copies Qt makes
# inside its libraries would look unordered. ignore_noninstrumented_modules drops only the
# events of code outside our build; every access our code (and the Qt code inlined into it)
# makes is still checked.
# die_after_fork=0: the end-to-end tests start the programs as child processes (QProcess)
# while their own threads run; the sanitizer would end such a child if anything in it started
# a thread before its exec. Each child is a program of this build, checked in its own right.
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:history_size=4:ignore_noninstrumented_modules=1:die_after_fork=0}:suppressions=$root/scripts/tsan.supp"
exec ctest --test-dir "$build" --output-on-failure --timeout 900 -j2 "$@"
