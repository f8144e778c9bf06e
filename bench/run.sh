#!/usr/bin/env bash
# Runs every comparison of synchelper_bench run by run, library and baseline interleaved (their
# order alternating between rounds), each in a process of its own, both free and with every
# thread on one core (taskset -c 0), then prints medians and ranges of both and the ratio of the
# medians. On a 2-core machine 3 or 4 threads give bimodal timings: read the ranges.
#
# Usage: bench/run.sh [rounds] [min-time-seconds]     (defaults: 5 rounds, 0.3 s)
# Env:   RYX_BENCH_BUILD (default build/qa-bench), RYX_BENCH_MEMORY_FRAMES (default 1000000)
set -euo pipefail
cd "$(dirname "$0")/.."
rounds="${1:-5}"
min_time="${2:-0.3}"
build="${RYX_BENCH_BUILD:-build/qa-bench}"

bash bench/build-target.sh "$build" synchelper_bench
bin="$build/bench/synchelper_bench"

# library benchmark | its baseline
pairs=()
for t in 2 3 4; do
    pairs+=("BM_Rendezvous_SyncHelper/real_time/threads:$t|BM_Rendezvous_Plain/real_time/threads:$t")
    pairs+=("BM_ReleaseLatency_SyncHelper/real_time/threads:$t|BM_ReleaseLatency_Plain/real_time/threads:$t")
done
if "$bin" --benchmark_list_tests | grep -q MessageFilters; then
    pairs+=("BM_Rendezvous_SyncHelper/real_time/threads:3|BM_Rendezvous_MessageFilters/real_time/threads:3")
fi
pairs+=("BM_SingleCamera_UpdateData|BM_SingleCamera_MetadataBaseline")
pairs+=("BM_SingleCamera_SyncResultCheck|BM_SingleCamera_MetadataBaseline")
pairs+=("BM_Log_GatedOffDebug|BM_Log_EmptyLoop")
pairs+=("BM_Trace_PointOff|BM_Log_EmptyLoop")
pairs+=("BM_Rendezvous_SyncHelperTraced/real_time/threads:3|BM_Rendezvous_SyncHelper/real_time/threads:3")

out="$build/bench-runs"
rm -rf "$out"
mkdir -p "$out"
run() {  # mode, round, benchmark name
    local prefix=()
    [ "$1" = pinned ] && prefix=(taskset -c 0)
    local file="$out/$1.$2.$(echo "$3" | tr '/:' '__').json"
    [ -e "$file" ] && return 0  # a baseline shared by two pairs runs once per round
    "${prefix[@]}" "$bin" --benchmark_filter="^$3\$" --benchmark_min_time="$min_time" \
        --benchmark_format=json --benchmark_out="$file" --benchmark_out_format=json \
        >/dev/null 2>>"$out/stderr.log"
}
for mode in free pinned; do
    for round in $(seq 1 "$rounds"); do
        echo "bench: $mode round $round/$rounds" >&2
        for pair in "${pairs[@]}"; do
            lib="${pair%%|*}" base="${pair##*|}"
            if [ $((round % 2)) -eq 1 ]; then run "$mode" "$round" "$lib"; run "$mode" "$round" "$base"
            else run "$mode" "$round" "$base"; run "$mode" "$round" "$lib"; fi
        done
    done
done
echo "bench: memory" >&2
"$bin" --benchmark_filter='^BM_Memory_Frames' --benchmark_format=json \
    --benchmark_out="$out/memory.json" --benchmark_out_format=json >/dev/null 2>>"$out/stderr.log"

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')," \
     "load average $(cut -d' ' -f1-3 /proc/loadavg), $(date -u +%Y-%m-%dT%H:%MZ)"
python3 bench/summarize.py "$out" "${pairs[@]}"
