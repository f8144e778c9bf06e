#!/usr/bin/env bash
# A long fuzzing campaign over both targets, one fuzzing job at a time (half the time each),
# under AddressSanitizer and UBSan, then the line coverage each corpus reaches.
#
# Usage: scripts/fuzz-campaign.sh HOURS [DIR]
#   DIR (default $FUZZ_CAMPAIGN_DIR, else ~/synchelper-fuzz-campaign) keeps the corpora, the
#   binaries the campaign ran, the logs and the findings, outside the repository. Run it again
#   with the same DIR to continue from the corpora found so far. Prints, per target: executions,
#   executions per second, edges, corpus units, findings; then the coverage per library file.
# A finding ends that target's run early and is left in DIR/<target>/findings/; replay it with
# DIR/bin/<target> <file> (SYNCHELPER_FUZZ_TRACE=1 prints the calls).
set -euo pipefail
cd "$(dirname "$0")/.."
hours="${1:?usage: scripts/fuzz-campaign.sh HOURS [DIR]}"
dir="${2:-${FUZZ_CAMPAIGN_DIR:-$HOME/synchelper-fuzz-campaign}}"
targets=(schedule_fuzz synchelper_fuzz)
per_target=$(awk -v h="$hours" -v n="${#targets[@]}" 'BEGIN {printf "%d", h * 3600 / n}')

bash scripts/install-deps.sh fuzz
cmake -S . -B build/qa-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++-14 -DRYX_BUILD_FUZZ=ON -DRYX_BUILD_TESTS=OFF \
    -DRYX_BUILD_TOOLS=OFF -DRYX_BUILD_BENCH=OFF \
    "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=address,undefined" >/dev/null
nice -n 10 cmake --build build/qa-fuzz -j2 --target "${targets[@]}"
# The campaign runs copies, so that rebuilding the tree meanwhile does not disturb it.
mkdir -p "$dir/bin"
for t in "${targets[@]}"; do cp build/qa-fuzz/fuzz/"$t" "$dir/bin/$t"; done

summary=()
for t in "${targets[@]}"; do
    corpus="$dir/$t/corpus"
    mkdir -p "$corpus" "$dir/$t/findings"
    seeds=()
    [ "$t" = synchelper_fuzz ] && seeds=(fuzz/corpus)
    echo "fuzz-campaign: $t for $per_target s, corpus $corpus"
    set +e
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    nice -n 19 "$dir/bin/$t" "$corpus" "${seeds[@]}" -max_total_time="$per_target" -timeout=20 \
        -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1 \
        -artifact_prefix="$dir/$t/findings/" >"$dir/$t/fuzz.log" 2>&1
    set -e
    log="$dir/$t/fuzz.log"
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
    cov=$(grep -aoE 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2)
    units=$(find "$corpus" -type f | wc -l)
    findings=$(find "$dir/$t/findings" -type f | wc -l)
    summary+=("$t: ${execs:-?} executions in $per_target s (${speed:-?}/s), cov ${cov:-?} edges, $units corpus units, $findings findings")
done

for t in "${targets[@]}"; do
    echo "fuzz-campaign: coverage of the library by the $t corpus"
    bash scripts/fuzz-coverage.sh "$t" "$dir/$t/corpus"
done
printf 'fuzz-campaign: %s\n' "${summary[@]}"
