#!/usr/bin/env bash
# Runs the stress binary (tests/stress, ctest label "stress") in three builds: plain, with
# AddressSanitizer + UBSan, and with ThreadSanitizer. Any sanitizer report, blocked thread or
# broken invariant fails the script.
#
# Usage: scripts/ci-stress.sh [frames]     (default: RYX_STRESS_FRAMES, else 100000 frames per
#                                           configuration of 3 and of 4 sensors)
set -euo pipefail
cd "$(dirname "$0")/.."
frames="${1:-${RYX_STRESS_FRAMES:-100000}}"
start=$SECONDS

bash scripts/install-deps.sh core

common=(-G Ninja -DRYX_BUILD_BENCH=OFF -DRYX_BUILD_TOOLS=OFF -DRYX_BUILD_FUZZ=OFF)
configure() {  # build-dir, sanitizer flags
    local dir=$1 flags=$2
    cmake -S . -B "$dir" "${common[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        "-DCMAKE_CXX_FLAGS=$flags" "-DCMAKE_EXE_LINKER_FLAGS=$flags" \
        "-DCMAKE_SHARED_LINKER_FLAGS=$flags" >/dev/null
    cmake --build "$dir" -j2 --target synchelper_stress
}
configure build/qa-stress ""
configure build/qa-stress-asan "-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
configure build/qa-stress-tsan "-fsanitize=thread -fno-omit-frame-pointer"

export RYX_STRESS_FRAMES="$frames"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
for dir in build/qa-stress build/qa-stress-asan build/qa-stress-tsan; do
    echo "ci-stress: ${dir#build/}"
    ctest --test-dir "$dir" -L stress -V | grep -E "^[0-9]+: (stress:|churn:|\[  )|tests passed|Failed|\*\*\*"
done
echo "ci-stress: ${frames} frames x {3,4} sensors clean in plain, asan+ubsan and tsan builds;" \
     "done in $((SECONDS - start)) s"
