#!/usr/bin/env bash
# Line coverage of the library reached by a fuzz corpus: builds the target with profile
# instrumentation (build/qa-fuzz-cov), replays the corpus directories once and prints one line
# per library file, then "<target>: library <pct>, SyncQueue.cpp <pct>".
#
# Usage: scripts/fuzz-coverage.sh TARGET CORPUS_DIR...     (TARGET: synchelper_fuzz, schedule_fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."
target="$1"
shift
out=build/qa-fuzz-cov
cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
    -DRYX_BUILD_FUZZ=ON -DRYX_BUILD_TESTS=OFF -DRYX_BUILD_TOOLS=OFF -DRYX_BUILD_BENCH=OFF \
    "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link -fprofile-instr-generate -fcoverage-mapping" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fprofile-instr-generate" >/dev/null
nice -n 10 cmake --build "$out" -j2 --target "$target" >/dev/null
rm -f "$out"/"$target"-*.profraw
LLVM_PROFILE_FILE="$PWD/$out/$target-%p.profraw" "$out/fuzz/$target" -runs=1 "$@" >/dev/null 2>&1
llvm-profdata-14 merge -sparse "$out"/"$target"-*.profraw -o "$out/$target.profdata"
llvm-cov-14 report "$out/fuzz/$target" -instr-profile="$out/$target.profdata" \
    hw/camsys/cam_coordinator/SyncHelper/ >"$out/$target-coverage.txt"
awk '/\.cpp|^TOTAL/ {printf "  %-34s lines %5s  missed %4s  cover %s\n", $1, $8, $9, $10}' \
    "$out/$target-coverage.txt"
total=$(awk '/^TOTAL/ {print $10}' "$out/$target-coverage.txt")
queue=$(awk '/SyncQueue\.cpp/ {print $10}' "$out/$target-coverage.txt")
echo "$target: library ${total}, SyncQueue.cpp ${queue}"
