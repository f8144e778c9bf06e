#!/usr/bin/env bash
# Installs what the build needs, builds the library and the session simulator, and runs the
# simulator on its built-in default scenario (3 sensors, 600 frames). Arguments go to the
# simulator instead, e.g. scripts/demo.sh run --svg timeline.svg, scripts/demo.sh explain cam.txt
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/install-deps.sh" core
# Build in the repository, run from the caller's folder: paths given on the command line (a
# scenario or capture to read, an --svg or --json to write) are taken relative to where the user
# stands.
(cd "$root" && cmake --preset default >/dev/null &&
    cmake --build --preset default -j "$(nproc)" --target synchelper-sim)
[ $# -gt 0 ] || set -- run
exec "$root/build/default/tools/synchelper-sim" "$@"
