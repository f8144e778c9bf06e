#!/usr/bin/env bash
# Fuzzes the helper with clang 14's libFuzzer under AddressSanitizer and UBSan for a bounded time,
# then measures the line coverage of the library reached by the resulting corpus.
#
# Usage: scripts/ci-fuzz.sh [seconds]             (default: 60; env FUZZ_SECONDS works too)
# Builds: build/qa-fuzz (fuzzer + sanitizers), build/qa-fuzz-cov (profile instrumentation).
# Corpus: fuzz/corpus holds the seeds (fuzz/make_corpus.py writes them); new inputs found go to
# fuzz/corpus-work (not versioned). A crash leaves its input in build/qa-fuzz/artifacts/ and
# fails the script; replay it with build/qa-fuzz/fuzz/synchelper_fuzz <file>, and set
# SYNCHELPER_FUZZ_TRACE=1 to see the calls it makes.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-${FUZZ_SECONDS:-60}}"
start=$SECONDS

bash scripts/install-deps.sh fuzz

common=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14
        -DRYX_BUILD_FUZZ=ON -DRYX_BUILD_TESTS=OFF -DRYX_BUILD_TOOLS=OFF -DRYX_BUILD_BENCH=OFF)
cmake -S . -B build/qa-fuzz "${common[@]}" \
    "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=address,undefined" >/dev/null
cmake --build build/qa-fuzz -j2 --target synchelper_fuzz
fuzzer=build/qa-fuzz/fuzz/synchelper_fuzz

# The seeds alone first: each must run clean.
"$fuzzer" -runs=1 fuzz/corpus/* >/dev/null 2>&1 || {
    echo "ci-fuzz: a seed fails on its own:" >&2
    "$fuzzer" -runs=1 fuzz/corpus/* 2>&1 | tail -40 >&2
    exit 1
}

mkdir -p fuzz/corpus-work build/qa-fuzz/artifacts
log=build/qa-fuzz/fuzz.log
set +e
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
"$fuzzer" fuzz/corpus-work fuzz/corpus -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1 \
    -artifact_prefix=build/qa-fuzz/artifacts/ >"$log" 2>&1
rc=$?
set -e
if [ "$rc" -ne 0 ]; then
    echo "ci-fuzz: the fuzzer found a failure (exit $rc):" >&2
    grep -vE '^#[0-9]+' "$log" | tail -60 >&2
    ls -1 build/qa-fuzz/artifacts/ >&2
    exit 1
fi
execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
done_line=$(grep -aE '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1 || true)
cov=$(echo "$done_line" | sed -n 's/.* cov: \([0-9]*\).*/\1/p')
ft=$(echo "$done_line" | sed -n 's/.* ft: \([0-9]*\).*/\1/p')
units=$(find fuzz/corpus-work fuzz/corpus -type f | wc -l)

# Line coverage of the library by the whole corpus, from a profile-instrumented replay.
cmake -S . -B build/qa-fuzz-cov "${common[@]}" \
    "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link -fprofile-instr-generate -fcoverage-mapping" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fprofile-instr-generate" >/dev/null
cmake --build build/qa-fuzz-cov -j2 --target synchelper_fuzz
rm -f build/qa-fuzz-cov/*.profraw
LLVM_PROFILE_FILE="$PWD/build/qa-fuzz-cov/replay-%p.profraw" \
    build/qa-fuzz-cov/fuzz/synchelper_fuzz -runs=1 fuzz/corpus-work fuzz/corpus >/dev/null 2>&1
llvm-profdata-14 merge -sparse build/qa-fuzz-cov/replay-*.profraw \
    -o build/qa-fuzz-cov/replay.profdata
llvm-cov-14 report build/qa-fuzz-cov/fuzz/synchelper_fuzz \
    -instr-profile=build/qa-fuzz-cov/replay.profdata \
    hw/camsys/cam_coordinator/SyncHelper/ >build/qa-fuzz-cov/coverage.txt
awk '/\.cpp|^TOTAL/ {printf "  %-34s lines %5s  missed %4s  cover %s\n", $1, $8, $9, $10}' \
    build/qa-fuzz-cov/coverage.txt
line_cov=$(awk '/^TOTAL/ {print $10}' build/qa-fuzz-cov/coverage.txt)

echo "ci-fuzz: ${execs} executions in ${seconds} s (${speed}/s), cov ${cov} edges, ft ${ft}," \
     "${units} corpus units, library line coverage ${line_cov}, no failure;" \
     "done in $((SECONDS - start)) s"

# The schedule-exploring target (real camera threads, input-chosen call order).
bash scripts/ci-fuzz-schedule.sh "$seconds"

# The simulator's input readers (log capture, trace, scenario).
bash scripts/ci-fuzz-sim-input.sh "$seconds"
