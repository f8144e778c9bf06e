#!/usr/bin/env bash
# Counts the instructions of a frame under callgrind (repeatable whatever the machine is doing):
# a 3-sensor frame through syncResultCheck with logging gated off, split into facade, queue work
# and each updater; the required-work baseline (a plain 3-thread rendezvous plus exactly the
# metadata reads and writes a 3-camera frame needs); the single-camera path and its metadata
# edits; and the ratios. Prints figures only: the goals are checked by reading.
#
# Usage: bench/callgrind.sh [frames]     (default 2000 per phase, after 200 of warm-up)
# Env:   RYX_BENCH_BUILD (default build/qa-bench, shared with bench/run.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
frames="${1:-2000}"
build="${RYX_BENCH_BUILD:-build/qa-bench}"

bash bench/build-target.sh "$build" synchelper_callgrind

out="$build/callgrind"
rm -rf "$out"
mkdir -p "$out"
valgrind --tool=callgrind --callgrind-out-file="$out/cg.out" "$build/bench/synchelper_callgrind" \
    "$frames" 2>"$out/valgrind.log"
python3 bench/callgrind_figures.py "$frames" "$out"/cg.out.*
