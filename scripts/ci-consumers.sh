#!/usr/bin/env bash
# The library as a dependency: installs it into a temporary prefix and builds the example
# (examples/) as an external project three ways (find_package, pkg-config, add_subdirectory),
# runs each build and the installed synchelper-sim with no LD_LIBRARY_PATH, from the prefix, from
# a moved copy of it and from a /usr/local layout staged with DESTDIR.
# Usage: scripts/ci-consumers.sh   (from anywhere)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/install-deps.sh" core
unset LD_LIBRARY_PATH

fail() { echo "consumers: FAIL: $*" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

# The library and the tool, without tests or benchmarks, installed into the prefix.
build="$root/build/consumers"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRYX_BUILD_TESTS=OFF \
    -DRYX_BUILD_BENCH=OFF -DRYX_BUILD_FUZZ=OFF >/dev/null
cmake --build "$build" -j2
cmake --install "$build" --prefix "$prefix" >/dev/null
pcdir=$(dirname "$(find "$prefix" -name ryxcam_synchelper.pc)")

# Runs a built example and checks its own verdict line.
run_example() {  # way, binary
    local out
    out=$("$2" 2>"$work/$1.log") || { cat "$work/$1.log" >&2; fail "$1: the example exited $?"; }
    grep -qx "all verdicts as expected" <<<"$out" || fail "$1: $out"
    echo "consumers: $1: built and ran: $(grep -c "^f[0-9]" <<<"$out") frame lines, all as expected"
}
example() {  # way, extra configure arguments...
    local way=$1 dir="$work/example-$1"
    shift
    cmake -S "$root/examples" -B "$dir" -G Ninja -DRYX_CONSUME="$way" "$@" >"$work/$way.cfg" 2>&1 ||
        { cat "$work/$way.cfg" >&2; fail "$way: configure"; }
    cmake --build "$dir" -j2 >"$work/$way.build" 2>&1 || { cat "$work/$way.build" >&2; fail "$way: build"; }
    # A consumer of the installed package needs neither liblog's headers nor the test packages.
    if grep -qE '^(AndroidLog_INCLUDE_DIR|GTest_DIR|CLI11_DIR|benchmark_DIR)' "$dir/CMakeCache.txt" &&
        [ "$way" != subdirectory ]; then
        fail "$way: the consumer looked for a package it should not need"
    fi
    run_example "$way" "$dir/two_sensor_pipeline"
}

example find_package -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
PKG_CONFIG_PATH="$pcdir" example pkg-config
example subdirectory -DRYX_SOURCE_DIR="$root"
# Built beside a consumer, the project adds no tests, tool or benchmarks of its own.
if grep -qE '^(GTest_DIR|CLI11_DIR|benchmark_DIR|nlohmann_json_DIR)' "$work/example-subdirectory/CMakeCache.txt"; then
    fail "subdirectory: the project looked for its test, tool or benchmark packages"
fi
ninja -C "$work/example-subdirectory" -t targets all | grep -qE '^(synchelper-sim|facade_unit_test|synchelper_bench):' &&
    fail "subdirectory: tests, tool or benchmarks were built"

# The installed tool, from the prefix, from a moved copy and from a /usr/local layout.
run_sim() {  # where, binary
    "$2" run --frames 20 --quiet >"$work/sim.out" 2>&1 || { cat "$work/sim.out" >&2; fail "$1: synchelper-sim exited $?"; }
    echo "consumers: synchelper-sim runs from $1: $(sed -n 2p "$work/sim.out")"
    # Its help points to the documents installed beside it, wherever the prefix went.
    local help named=0
    help=$("$2" run --help; "$2" replay --help)
    for path in $(grep -oE '/[^ ]*/share/synchelper-sim/[^ ]*' <<<"$help"); do
        [ -e "$path" ] || fail "$1: the help names $path, which is not there"
        case "$path" in "$(dirname "$(dirname "$2")")"/*) named=$((named + 1)) ;; *) fail "$1: the help names $path, outside the prefix" ;; esac
    done
    [ "$named" -ge 3 ] || fail "$1: the help names $named installed documents, expected the README, the trace format and the scenarios"
    echo "consumers: synchelper-sim's help from $1 names $named installed documents, all there"
}
run_sim "the prefix" "$prefix/bin/synchelper-sim"
mv "$prefix" "$work/moved"
run_sim "a moved prefix" "$work/moved/bin/synchelper-sim"
DESTDIR="$work/stage" cmake --install "$build" --prefix /usr/local >/dev/null
run_sim "a staged /usr/local" "$work/stage/usr/local/bin/synchelper-sim"

# The README's consumer lines, as written, with HOME and /tmp in a scratch folder.
readme_home="$work/home"
mkdir -p "$readme_home" "$work/tmp"
python3 - "$root/README.md" >"$work/readme-lines.sh" <<'PY'
import re, sys
text = open(sys.argv[1]).read()
block = re.search(r"<!-- consumer lines -->\n```sh\n(.*?)```", text, re.S).group(1)
print(block)
PY
[ -s "$work/readme-lines.sh" ] || fail "README: no consumer lines found"
sed -i "s|/tmp/|$work/tmp/|g" "$work/readme-lines.sh"
(cd "$root" && HOME="$readme_home" bash -euo pipefail "$work/readme-lines.sh" >"$work/readme.out" 2>&1) ||
    { cat "$work/readme.out" >&2; fail "README: the consumer lines did not run as written"; }
[ "$(grep -c "^all verdicts as expected" "$work/readme.out")" = 2 ] ||
    { cat "$work/readme.out" >&2; fail "README: the examples did not both pass"; }
echo "consumers: README's consumer lines ran as written (CMake, pkg-config, the tool)"
echo "consumers: ok"
