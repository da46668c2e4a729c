#!/usr/bin/env bash
# A time-boxed libFuzzer run of the call-anything harness from the seed corpus, in a clang build
# with the sanitizers, read-only jailed when bubblewrap works (see docs/conformance.md).
#   tests/fuzz/run_fuzz.sh [seconds (default 90)] [build directory (default build-fuzz)]
set -euo pipefail
seconds=${1:-90}
src=$(cd "$(dirname "$0")/../.." && pwd)
build=$(mkdir -p "${2:-$src/build-fuzz}" && cd "${2:-$src/build-fuzz}" && pwd)

cmake -S "$src" -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DQAV_FUZZ=ON \
    -DQAV_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target call_anything_fuzz >/dev/null

run="$build/fuzz-run"
rm -rf "$run"
mkdir -p "$run/corpus" "$run/artifacts"
jail=()
if command -v bwrap >/dev/null && bwrap --ro-bind / / --dev /dev true 2>/dev/null; then
    # A checkout or build under /tmp stays visible (read-only) under the private /tmp.
    jail=(bwrap --ro-bind / / --dev /dev --proc /proc --tmpfs /tmp --tmpfs /dev/shm --ro-bind "$src" "$src"
          --ro-bind "$build" "$build" --bind "$run" "$run")
else
    echo "fuzz: bubblewrap unavailable, running without the read-only jail"
fi

# Scripts may ask for capacities and byte counts of gigabytes: as on the device, whose memory pool
# has limits, a single allocation above 256 MB fails with null instead of ending the run.
status=0
ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=256 "${jail[@]}" "$build/bin/call_anything_fuzz" \
    -max_total_time="$seconds" -max_len=512 -timeout=10 -rss_limit_mb=4096 -malloc_limit_mb=4000000 \
    -artifact_prefix="$run/artifacts/" -print_final_stats=1 "$run/corpus" "$src/tests/fuzz/corpus" \
    >"$run/log" 2>&1 || status=$?
grep -E 'call-anything finding|ERROR|SUMMARY|stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)' \
    "$run/log" || true
if [ "$status" -ne 0 ]; then
    echo "fuzz: finding, input kept in $run/artifacts (replay: $build/bin/call_anything_fuzz FILE)"
    tail -40 "$run/log"
    exit 1
fi
# libFuzzer ends a clean run with "Done N runs"; without it the log was cut short (a call that
# took the fuzzer's output away would otherwise pass unseen).
if ! grep -qE '^Done [0-9]+ runs' "$run/log"; then
    echo "fuzz: the run ended without libFuzzer's final report"
    tail -20 "$run/log"
    exit 1
fi
echo "fuzz: no finding in ${seconds} s"
