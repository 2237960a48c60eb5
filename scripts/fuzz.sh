#!/bin/sh
# Runs every libFuzzer target for SECONDS each (default 30) and reports executions and
# crashes. Builds build-fuzz first (clang, DORVIK_FUZZ=ON). The checked-in seed corpus of a
# target is copied into a working corpus under build-fuzz; a crash leaves its input in
# build-fuzz/fuzz-artifacts/<target>/ (copy it into fuzz/corpus/<target>/ with the fix).
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]
#
# Exit status: 0 when no target crashed, 1 otherwise.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-30}
[ $# -gt 0 ] && shift
build="$root/build-fuzz"

launcher=""
command -v ccache >/dev/null 2>&1 && launcher="-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
        -DDORVIK_FUZZ=ON -DDORVIK_BUILD_TESTS=OFF $launcher >/dev/null
fi
nice -n 5 cmake --build "$build" --target dorvik_fuzz

targets=${*:-$(cd "$build/fuzz" && ls fuzz_* | sort)}
failed=0
printf '%-16s %12s %10s %8s  %s\n' target executions exec/s corpus result
for t in $targets; do
    work="$build/fuzz-work/$t"
    artifacts="$build/fuzz-artifacts/$t"
    mkdir -p "$work" "$artifacts"
    cp -n "$root/fuzz/corpus/$t/"* "$work/" 2>/dev/null || true
    dict="$root/fuzz/dict/$t.dict"
    [ -f "$dict" ] || dict="$root/fuzz/dict/json.dict"
    log="$build/fuzz-artifacts/$t.log"
    # 256 KiB inputs hold documents nested 100,000 levels deep.
    set +e
    "$build/fuzz/$t" -max_total_time="$seconds" -max_len=262144 -timeout=20 -rss_limit_mb=2048 \
        -dict="$dict" -print_final_stats=1 -artifact_prefix="$artifacts/" "$work" >"$log" 2>&1
    status=$?
    set -e
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n1)
    persec=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n1)
    files=$(ls "$work" | wc -l)
    if [ "$status" -eq 0 ]; then
        result=ok
    else
        result="CRASH (status $status, see $log)"
        failed=1
    fi
    printf '%-16s %12s %10s %8s  %s\n' "$t" "${runs:-?}" "${persec:-?}" "$files" "$result"
done
exit $failed
