#!/usr/bin/env bash
# How fast `explain` gets through a test lab's night: generates a pile of bugreport zips (each a
# session of the simulator's own run among other processes' lines, one zip cut short), explains
# the whole folder into one table with one worker and with one per core, and prints captures per
# second and megabytes per second (of the bugreports' text, unpacked) in all and per core.
# Figures only: nothing fails on them.
#
# Usage: scripts/pile-speed.sh [captures] [frames]     (defaults 100 and 1800; in build/speed/)
set -euo pipefail
cd "$(dirname "$0")/.."
count="${1:-100}"
frames="${2:-1800}"
out=build/speed/pile
if [ ! -x build/default/tools/synchelper-sim ]; then
    cmake --preset default >/dev/null
fi
cmake --build build/default -j2 --target synchelper-sim >/dev/null
sim=build/default/tools/synchelper-sim
rm -rf "$out"
python3 scripts/make-bugreport-pile.py "$sim" "$out" "$count" "$frames"
read -r zipped text < <(python3 - "$out" <<'PY'
import os, sys, zipfile
zipped = text = 0
for name in sorted(os.listdir(sys.argv[1])):
    path = os.path.join(sys.argv[1], name)
    zipped += os.path.getsize(path)
    try:
        with zipfile.ZipFile(path) as z:
            text += sum(i.file_size for i in z.infolist())
    except zipfile.BadZipFile:
        pass
print(zipped, text)
PY
)
cores=$(nproc)
echo "pile: $count bugreports, $((zipped / 1000000)) MB zipped, $((text / 1000000)) MB of text"
for jobs in 1 "$cores"; do
    start=$(date +%s.%N)
    status=0
    "$sim" explain "$out" --jobs "$jobs" --summary build/speed/pile.csv >/dev/null || status=$?
    end=$(date +%s.%N)
    python3 - "$start" "$end" "$count" "$text" "$jobs" "$status" <<'PY'
import sys
start, end, count, text, jobs, status = map(float, sys.argv[1:])
s = end - start
print(f"jobs {int(jobs)}: {s:.2f} s, {count / s:.1f} captures/s, {text / 1e6 / s:.1f} MB/s, "
      f"{text / 1e6 / s / jobs:.1f} MB/s per core (exit status {int(status)})")
PY
done
