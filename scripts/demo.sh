#!/usr/bin/env bash
# Installs what the build needs, builds the library and the session simulator, and runs the
# simulator on its built-in default scenario (3 sensors, 600 frames). Arguments go to the
# simulator instead, e.g. scripts/demo.sh run --svg timeline.svg, scripts/demo.sh explain cam.txt
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
# The set-up and the build speak only when they fail: the demo's output is the report.
log="$(mktemp)"
trap 'rm -f "$log"' EXIT
quietly() {
    if ! "$@" >"$log" 2>&1; then
        cat "$log" >&2
        echo "demo: '$*' failed (its output is above)" >&2
        exit 1
    fi
}
quietly bash "$root/scripts/install-deps.sh" core
# Build in the repository, run from the caller's folder: paths given on the command line (a
# scenario or capture to read, an --svg or --json to write) are taken relative to where the user
# stands.
quietly cmake -S "$root" --preset default
quietly cmake --build "$root/build/default" -j "$(nproc)" --target synchelper-sim
[ $# -gt 0 ] || set -- run
rm -f "$log"
trap - EXIT
exec "$root/build/default/tools/synchelper-sim" "$@"
