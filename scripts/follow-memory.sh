#!/usr/bin/env bash
# What following a phone's log costs in memory over hours: a debug-level stream of a
# three-camera, 30 fps session (the simulator's own run writing logcat threadtime to a pipe) is
# followed by 'explain --follow -' for each length given, and the follower's peak resident memory
# is printed with the growth per hour between lengths; beside it, the same stream read whole
# ('explain -'). The figures it keeps exactly (wait,
# lateness and skew percentiles) hold up to 2^19 values each, about 4.9 hours at 30 fps, then
# turn into fixed histograms. Figures only, nothing fails on them.
#
# Usage: scripts/follow-memory.sh [minutes...]   (default 10 60 360)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$#" -eq 0 ]; then
    set -- 10 60 360
fi
if [ ! -x build/default/tools/synchelper-sim ]; then
    cmake --preset default >/dev/null
fi
cmake --build build/default -j2 --target synchelper-sim >/dev/null
sim=build/default/tools/synchelper-sim

python3 - "$sim" "$@" <<'PY'
import os, subprocess, sys
sim, lengths = sys.argv[1], [int(m) for m in sys.argv[2:]]

def peak_mb(minutes, how):
    """Peak resident memory of 'explain [--follow] -' fed a stream of this many minutes."""
    run = subprocess.Popen([sim, "run", "--frames", str(minutes * 60 * 30), "--log", "debug",
                            "--write-logcat", "-", "--no-progress"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    tool = subprocess.Popen([sim, "explain"] + how + ["-"], stdin=run.stdout,
                            stdout=subprocess.DEVNULL)
    run.stdout.close()
    _, status, usage = os.wait4(tool.pid, 0)
    if run.wait() != 0 or status != 0:
        sys.exit(f"follow-memory: the {minutes}-minute stream failed")
    return usage.ru_maxrss / 1024

previous = None
for minutes in lengths:
    peaks = (peak_mb(minutes, ["--follow"]), peak_mb(minutes, []))
    line = f"follow-memory: {minutes} min of stream: peak RSS followed {peaks[0]:.1f} MB"
    if previous:
        hours = (minutes - previous[0]) / 60
        line += f" ({(peaks[0] - previous[1][0]) / hours:.1f} MB/h since {previous[0]} min)"
    line += f", read whole {peaks[1]:.1f} MB"
    if previous:
        line += f" ({(peaks[1] - previous[1][1]) / hours:.1f} MB/h)"
    print(line, flush=True)
    previous = (minutes, peaks)
PY
