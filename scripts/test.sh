#!/usr/bin/env bash
# Installs what is missing, checks the formatting, builds from scratch with warnings as errors and with
# AddressSanitizer + UndefinedBehaviorSanitizer, runs the whole test suite, then every fuzz
# target briefly.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# Formatting first: every tracked C++ file as .clang-format wants it (fix with clang-format -i).
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git ls-files -z -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror
else
  dirs=$(ls -d src tools tests bench app fuzz 2>/dev/null || true)
  find $dirs \( -name '*.cpp' -o -name '*.h' \) -print0 | xargs -0 -r clang-format --dry-run --Werror
fi
build=build-test
rm -rf "$build"
# A compiler cache kept outside the clone, when there is one: a fresh clone then rebuilds
# only what changed since the last run on this machine.
launcher=()
if command -v ccache >/dev/null 2>&1; then
  export CCACHE_DIR=${CCACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/dorvik-ccache}
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
# One tree for everything: clang with AddressSanitizer + UndefinedBehaviorSanitizer and the
# fuzzing instrumentation, so that the test programs and the libFuzzer targets (clang only)
# come from the same objects. Line tables are all the sanitizers' stack traces need; the
# shared headers are precompiled once (DORVIK_PCH, on by default).
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
  -DDORVIK_WERROR=ON -DDORVIK_SANITIZE=ON -DDORVIK_FUZZ=ON "${launcher[@]}"
cmake --build "$build"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$build" --output-on-failure --timeout 600 -j2
# Every fuzz target for 30 seconds, two at a time, from the checked-in seeds.
env -u ASAN_OPTIONS FUZZ_BUILD="$build" FUZZ_JOBS=2 ./scripts/fuzz.sh 30
bash scripts/package.sh # the .deb from a Release build of the shipped programs, its checks, a scratch install
