#!/bin/sh
# Runs every libFuzzer target for SECONDS each (default 30) and reports executions and
# crashes. Builds build-fuzz first (clang, DORVIK_FUZZ=ON) unless FUZZ_BUILD names a tree
# configured with DORVIK_FUZZ=ON already (CI passes its test tree). FUZZ_JOBS targets run at
# once (default 1). An input that runs longer than FUZZ_TIMEOUT seconds (default 20, wall
# clock: raise it when the machine is loaded) counts as a hang. The checked-in seed corpus of a target is copied into a working corpus
# under the build tree; a crash leaves its input in <build>/fuzz-artifacts/<target>/ (copy it
# into fuzz/corpus/<target>/ with the fix).
#
#   [FUZZ_BUILD=dir] [FUZZ_JOBS=n] [FUZZ_TIMEOUT=s] scripts/fuzz.sh [SECONDS] [TARGET...]
#
# Exit status: 0 when no target crashed, 1 otherwise.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-30}
[ $# -gt 0 ] && shift
jobs=${FUZZ_JOBS:-1}

launcher=""
command -v ccache >/dev/null 2>&1 && launcher="-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"
if [ -n "${FUZZ_BUILD:-}" ]; then
    build=$(cd "$FUZZ_BUILD" && pwd)
else
    build="$root/build-fuzz"
    if [ ! -f "$build/CMakeCache.txt" ]; then
        cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
            -DDORVIK_FUZZ=ON -DDORVIK_BUILD_TESTS=OFF $launcher >/dev/null
    fi
fi
# The targets named, or all of them.
nice -n 5 cmake --build "$build" --target ${*:-dorvik_fuzz}

# (the programs only: the folder also holds the targets' generated-source folders)
targets=${*:-$(cd "$build/fuzz" && find . -maxdepth 1 -type f -perm -u+x -name 'fuzz_*' | sed 's|^\./||' | sort)}
results="$build/fuzz-artifacts/results"
mkdir -p "$results"
rm -f "$results"/*

run_one() {
    t=$1
    work="$build/fuzz-work/$t"
    artifacts="$build/fuzz-artifacts/$t"
    mkdir -p "$work" "$artifacts"
    cp -n "$root/fuzz/corpus/$t/"* "$work/" 2>/dev/null || true
    dict="$root/fuzz/dict/$t.dict"
    [ -f "$dict" ] || dict="$root/fuzz/dict/json.dict"
    log="$build/fuzz-artifacts/$t.log"
    # 256 KiB inputs hold documents nested 100,000 levels deep.
    set +e
    "$build/fuzz/$t" -max_total_time="$seconds" -max_len=262144 -timeout="${FUZZ_TIMEOUT:-20}" -rss_limit_mb=2048 \
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
    fi
    printf '%-16s %12s %10s %8s  %s\n' "$t" "${runs:-?}" "${persec:-?}" "$files" "$result" >"$results/$t"
}

running=0
for t in $targets; do
    run_one "$t" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait
        running=0
    fi
done
wait

printf '%-16s %12s %10s %8s  %s\n' target executions exec/s corpus result
failed=0
for t in $targets; do
    if [ -f "$results/$t" ]; then
        cat "$results/$t"
        grep -q ' ok$' "$results/$t" || failed=1
    else
        printf '%-16s %s\n' "$t" "no result"
        failed=1
    fi
done
exit $failed
