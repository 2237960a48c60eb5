#!/usr/bin/env bash
# Installs what is missing, builds from scratch with warnings as errors and with
# AddressSanitizer + UndefinedBehaviorSanitizer, and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
build=build-test
rm -rf "$build"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DDORVIK_WERROR=ON -DDORVIK_SANITIZE=ON
cmake --build "$build"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$build" --output-on-failure --timeout 600 -j2
