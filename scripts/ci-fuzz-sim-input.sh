#!/usr/bin/env bash
# The simulator's input readers (Android log capture, trace, scenario) under libFuzzer with
# AddressSanitizer and UBSan for a bounded time: any input must end in a report or a file:line
# error, never a crash, a hang (-timeout) or unbounded memory (-rss_limit_mb, -malloc_limit_mb).
#
# Usage: scripts/ci-fuzz-sim-input.sh [seconds]     (default 60; scripts/ci-fuzz.sh calls it)
# Seeds: fuzz/corpus-sim-input (first byte L, T or S picks the reader); new inputs go to
# fuzz/corpus-work-sim-input (not versioned). A failure leaves its input in
# build/qa-fuzz-sim/artifacts/; replay it with build/qa-fuzz-sim/fuzz/sim_input_fuzz <file>.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
cmake -S . -B build/qa-fuzz-sim -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++-14 -DRYX_BUILD_FUZZ=ON -DRYX_BUILD_TESTS=OFF \
    -DRYX_BUILD_TOOLS=ON -DRYX_BUILD_BENCH=OFF \
    "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=address,undefined" >/dev/null
cmake --build build/qa-fuzz-sim -j2 --target sim_input_fuzz
fuzzer=build/qa-fuzz-sim/fuzz/sim_input_fuzz
work=fuzz/corpus-work-sim-input
mkdir -p "$work" build/qa-fuzz-sim/artifacts
"$fuzzer" -runs=1 fuzz/corpus-sim-input/* >/dev/null 2>&1 || {
    echo "ci-fuzz-sim-input: a seed fails on its own:" >&2
    "$fuzzer" -runs=1 fuzz/corpus-sim-input/* 2>&1 | tail -40 >&2
    exit 1
}
log=build/qa-fuzz-sim/fuzz.log
set +e
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
"$fuzzer" "$work" fuzz/corpus-sim-input -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=1024 -malloc_limit_mb=512 -max_len=32768 -print_final_stats=1 \
    -artifact_prefix=build/qa-fuzz-sim/artifacts/ >"$log" 2>&1
rc=$?
set -e
if [ "$rc" -ne 0 ]; then
    echo "ci-fuzz-sim-input: the fuzzer found a failure (exit $rc):" >&2
    grep -vE '^#[0-9]+' "$log" | tail -60 >&2
    ls -1 build/qa-fuzz-sim/artifacts/ >&2
    exit 1
fi
execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
units=$(find "$work" fuzz/corpus-sim-input -type f | wc -l)
echo "ci-fuzz-sim-input: ${execs} executions in ${seconds} s (${speed}/s), ${units} corpus" \
     "units, no failure"
