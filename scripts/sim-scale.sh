#!/usr/bin/env bash
# synchelper-sim at session scale: the built-in scenario run at growing frame counts, printing
# frames per second and the peak resident memory of each run. Figures only; nothing is judged.
#
#   scripts/sim-scale.sh [BUILD_DIR] [FRAMES...]     (default: build/default, 1e5 1e6 1e7)
#   SIM_SCALE_ARGS="FILE" scripts/sim-scale.sh ...   (another scenario, other options)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/default}
shift || true
sizes=("$@")
[[ ${#sizes[@]} -gt 0 ]] || sizes=(100000 1000000 10000000)
bin=$build/tools/synchelper-sim
[[ -x $bin ]] || { echo "sim-scale: $bin not built (cmake --build $build --target synchelper-sim)" >&2; exit 2; }

printf '%-10s %7s %10s %10s %12s  %s\n' frames status seconds frames/s "peak RSS MB" note
for n in "${sizes[@]}"; do
  python3 - "$bin" "$n" ${SIM_SCALE_ARGS:-} <<'PY'
import resource, subprocess, sys, time
binary, frames, extra = sys.argv[1], sys.argv[2], sys.argv[3:]
start = time.monotonic()
run = subprocess.run([binary, "run", "--frames", frames, "--quiet"] + extra, stdout=subprocess.DEVNULL,
                     stderr=subprocess.PIPE, text=True)
seconds = time.monotonic() - start
peak_mb = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
note = "" if run.returncode == 0 else (run.stderr.strip().splitlines() or [""])[0]
rate = f"{int(frames) / seconds:.0f}" if run.returncode == 0 else "-"
print(f"{frames:<10} {run.returncode:>7} {seconds:>10.1f} {rate:>10} {peak_mb:>12.1f}  {note}")
PY
done
