#!/usr/bin/env bash
# Configures BUILD-DIR for the benchmarks (RelWithDebInfo, g++, no tests or tools), installs what
# they need and builds TARGET. Used by bench/run.sh and bench/callgrind.sh.
# Usage: bench/build-target.sh BUILD-DIR TARGET
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh bench
cmake -S . -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRYX_BUILD_BENCH=ON \
    -DRYX_BUILD_TESTS=OFF -DRYX_BUILD_TOOLS=OFF >/dev/null
cmake --build "$1" -j2 --target "$2" >/dev/null
