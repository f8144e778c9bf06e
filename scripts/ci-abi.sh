#!/usr/bin/env bash
# Checks the binary interface of libryxcam_synchelper.so against the committed baseline
# (abi/libryxcam_synchelper.abi, libabigail's abixml) with abidiff. Any difference fails: a
# reordered virtual operation, a changed layout of a record the interface passes, an added or
# removed exported symbol. abidiff's own report is printed.
# Usage: scripts/ci-abi.sh            check
#        scripts/ci-abi.sh --update   rewrite the baseline from this tree (a deliberate change)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/install-deps.sh" abi
baseline="$root/abi/libryxcam_synchelper.abi"
suppressions="$root/abi/suppressions.abignore"

# The library alone, with debug information, as the default preset builds it.
build="$root/build/abi"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRYX_BUILD_TESTS=OFF \
    -DRYX_BUILD_TOOLS=OFF -DRYX_BUILD_BENCH=OFF -DRYX_BUILD_FUZZ=OFF >/dev/null
cmake --build "$build" -j2 --target ryxcam_synchelper
so="$build/libryxcam_synchelper.so"

# What the library exports and every type reachable from it; paths made relative to the tree.
dump() {  # output file
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --exported-interfaces-only "$so" |
        sed "s|$root/||g" >"$1"
}

if [ "${1:-}" = --update ]; then
    dump "$baseline"
    echo "abi: baseline written to abi/libryxcam_synchelper.abi; commit it with the change"
    exit 0
fi
current=$(mktemp)
trap 'rm -f "$current"' EXIT
dump "$current"
status=0
abidiff --suppressions "$suppressions" --no-unreferenced-symbols "$baseline" "$current" || status=$?
if [ $status -ne 0 ]; then
    echo "abi: FAIL: libryxcam_synchelper.so differs from abi/libryxcam_synchelper.abi" \
        "(abidiff exit $status). For a deliberate change: bash scripts/ci-abi.sh --update" >&2
    exit 1
fi
echo "abi: libryxcam_synchelper.so matches abi/libryxcam_synchelper.abi"
