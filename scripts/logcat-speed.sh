#!/usr/bin/env bash
# How fast synchelper-sim reads a long device capture: generates one hour of a three-camera,
# 30 fps session at debug level (the simulator's own run, written as logcat threadtime, with
# other processes' lines mixed in), then reads it back with explain and prints the wall time
# and the peak resident memory of the read. Figures only: the targets (10 s, 300 MB) are printed
# beside them, nothing fails on them.
#
# Usage: scripts/logcat-speed.sh [minutes]     (default 60; the capture goes to build/speed/)
set -euo pipefail
cd "$(dirname "$0")/.."
minutes="${1:-60}"
frames=$((minutes * 60 * 30))
out=build/speed
mkdir -p "$out"
if [ ! -x build/default/tools/synchelper-sim ]; then
    cmake --preset default >/dev/null
fi
cmake --build build/default -j2 --target synchelper-sim >/dev/null
sim=build/default/tools/synchelper-sim

"$sim" run --frames "$frames" --log debug --write-logcat "$out/library.log" --no-progress \
    >/dev/null 2>&1
python3 - "$out/library.log" "$out/capture.txt" <<'PY'
import sys
# One line of another process or tag after every second library line.
noise = ["{t}  987  1001 I ActivityManager: Displayed com.example.camera/.Main: +412ms",
         "{t}  612   640 D SurfaceFlinger: frame presented, vsync 16.6 ms",
         "{t} 1234  1299 W CameraService: request queue depth 7",
         "{t}  400   400 E chatty  : uid=1000(system) expire 4 lines"]
with open(sys.argv[1]) as src, open(sys.argv[2], "w") as dst:
    dst.write("--------- beginning of main\n")
    for i, line in enumerate(src):
        dst.write(line)
        if i % 2 == 1:
            dst.write(noise[i % 4].format(t=line[:18]) + "\n")
PY

python3 - "$sim" "$out/capture.txt" "$out/report.json" <<'PY'
import os, resource, subprocess, sys, time
sim, capture, report = sys.argv[1:]
lines = sum(1 for _ in open(capture))
ours = sum(1 for l in open(capture) if " RyxCam/" in l)
start = time.monotonic()
rc = subprocess.run([sim, "explain", capture, "--json", report],
                    stdout=subprocess.DEVNULL).returncode
wall = time.monotonic() - start
rss_mb = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
print(f"logcat-speed: {lines} lines ({ours} of the library), "
      f"{os.path.getsize(capture) / 1e6:.0f} MB, read and reported (text + JSON) in "
      f"{wall:.2f} s, peak RSS {rss_mb:.0f} MB (targets: 10 s, 300 MB); exit {rc}")
PY
