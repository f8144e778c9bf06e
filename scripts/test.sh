#!/usr/bin/env bash
# Installs what the build needs, builds the default preset and runs every test (the stress
# binary, which CI runs in its own stage, excepted).
# Usage: scripts/test.sh [preset]   (default, asan, tsan or clang-tsa; default: default)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
preset="${1:-default}"
bash "$root/scripts/install-deps.sh" core
cd "$root"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)" -LE stress
