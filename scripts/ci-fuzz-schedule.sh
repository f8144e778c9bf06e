#!/usr/bin/env bash
# The schedule-exploring target in CI: fuzzes it under AddressSanitizer and UBSan for a bounded
# time, replays its whole corpus under ThreadSanitizer, and prints the line coverage the corpus
# reaches (the queue's is the figure to watch).
#
# Usage: scripts/ci-fuzz-schedule.sh [seconds]     (default 60; scripts/ci-fuzz.sh calls it)
# Seeds: fuzz/corpus-schedule; new inputs go to fuzz/corpus-work-schedule (not versioned). A
# failure leaves its input in build/qa-fuzz/artifacts/; replay it with
# build/qa-fuzz/fuzz/schedule_fuzz <file>, which prints the calls of the schedule in order.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
common=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14
        -DRYX_BUILD_FUZZ=ON -DRYX_BUILD_TESTS=OFF -DRYX_BUILD_TOOLS=OFF -DRYX_BUILD_BENCH=OFF)
cmake -S . -B build/qa-fuzz "${common[@]}" \
    "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=address,undefined" >/dev/null
cmake --build build/qa-fuzz -j2 --target schedule_fuzz
fuzzer=build/qa-fuzz/fuzz/schedule_fuzz
work=fuzz/corpus-work-schedule
mkdir -p "$work" build/qa-fuzz/artifacts
log=build/qa-fuzz/schedule-fuzz.log
set +e
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
"$fuzzer" "$work" fuzz/corpus-schedule -max_total_time="$seconds" -timeout=20 \
    -rss_limit_mb=2048 -max_len=512 -print_final_stats=1 \
    -artifact_prefix=build/qa-fuzz/artifacts/ >"$log" 2>&1
rc=$?
set -e
if [ "$rc" -ne 0 ]; then
    echo "ci-fuzz-schedule: the fuzzer found a failure (exit $rc):" >&2
    grep -vE '^#[0-9]+|^    #' "$log" | tail -60 >&2
    exit 1
fi
execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")

# The same schedules under ThreadSanitizer: each input replayed once. No coverage counters in
# this build: libFuzzer's counters are shared by all threads without synchronisation.
cmake -S . -B build/qa-fuzz-tsan "${common[@]}" \
    "-DCMAKE_CXX_FLAGS=-fsanitize=thread -fno-omit-frame-pointer" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread" >/dev/null
cmake --build build/qa-fuzz-tsan -j2 --target schedule_fuzz
# Files, not directories: without coverage counters libFuzzer would find nothing "interesting".
find "$work" fuzz/corpus-schedule -type f -print0 |
    TSAN_OPTIONS="halt_on_error=1" \
    xargs -0 build/qa-fuzz-tsan/fuzz/schedule_fuzz -timeout=60 \
    -artifact_prefix=build/qa-fuzz-tsan/ >build/qa-fuzz-tsan/replay.log 2>&1 || {
    echo "ci-fuzz-schedule: the TSan replay failed:" >&2
    grep -vE '^#[0-9]+' build/qa-fuzz-tsan/replay.log | tail -60 >&2
    exit 1
}
units=$(find "$work" fuzz/corpus-schedule -type f | wc -l)
bash scripts/fuzz-coverage.sh schedule_fuzz "$work" fuzz/corpus-schedule
echo "ci-fuzz-schedule: ${execs} executions in ${seconds} s (${speed}/s), ${units} corpus units" \
     "replayed clean under TSan, no failure"
