#!/usr/bin/env bash
# Cross-builds the library, its tests and the simulator for AArch64 (the phone's processor) and
# runs the whole test suite under qemu-aarch64 through ctest.
#
# Usage: scripts/ci-aarch64.sh [build-dir]        (default: build/qa-aarch64)
# Env:   CTEST_ARGS  extra ctest arguments (for example "-L unit")
#
# Needs root (or sudo) the first time: installs the cross toolchain and the arm64 multiarch
# packages (scripts/install-deps.sh aarch64), and registers qemu-aarch64 with binfmt_misc so
# that a test binary can re-execute itself (gtest's "threadsafe" death tests do). Without
# binfmt_misc the tests that re-execute are left out and the script says so.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/qa-aarch64}"
start=$SECONDS

bash scripts/install-deps.sh aarch64

# binfmt_misc: lets the kernel hand AArch64 executables to qemu, as a device would run them.
exclude=()
binfmt=/proc/sys/fs/binfmt_misc
conf=/usr/lib/binfmt.d/qemu-aarch64.conf
if [ ! -e "$binfmt/qemu-aarch64" ]; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo"
    if [ ! -e "$binfmt/register" ]; then
        $SUDO mount -t binfmt_misc binfmt_misc "$binfmt" 2>/dev/null || true
    fi
    if [ -e "$binfmt/register" ] && [ -r "$conf" ]; then
        $SUDO sh -c "cat '$conf' > '$binfmt/register'" 2>/dev/null || true
    fi
fi
if [ -e "$binfmt/qemu-aarch64" ] && grep -qx enabled "$binfmt/qemu-aarch64"; then
    echo "ci-aarch64: binfmt_misc qemu-aarch64 registered"
else
    echo "ci-aarch64: WARNING: binfmt_misc unavailable; death tests that re-execute the test" \
         "binary cannot run under emulation and are left out (-E DeathTest)"
    exclude=(-E DeathTest)
fi

cmake -S . -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux-gnu.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DRYX_BUILD_TESTS=ON -DRYX_BUILD_TOOLS=ON -DRYX_BUILD_BENCH=OFF -DRYX_BUILD_FUZZ=OFF
cmake --build "$build" -j2

# Every binary must really be AArch64 code, or the run below proves nothing.
for f in "$build"/libryxcam_synchelper.so "$build"/tests/*_test; do
    [ -e "$f" ] || continue
    if ! readelf -h "$f" | grep -q 'Machine:.*AArch64'; then
        echo "ci-aarch64: $f is not an AArch64 binary" >&2
        exit 1
    fi
done

# qemu is several times slower than the host: give each test a generous timeout.
# shellcheck disable=SC2086
ctest --test-dir "$build" -j2 --output-on-failure --timeout 600 -LE stress \
    "${exclude[@]}" ${CTEST_ARGS:-}
echo "ci-aarch64: done in $((SECONDS - start)) s"
