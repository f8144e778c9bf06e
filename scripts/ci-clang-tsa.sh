#!/usr/bin/env bash
# Builds everything with clang++ and -Wthread-safety -Wthread-safety-beta (as errors, through the
# project's -Werror): the lock annotations of ThreadAnnotations.h are checked at compile time.
#
# Usage: scripts/ci-clang-tsa.sh [build-dir]      (default: build/qa-tsa)
#
# Before the build, a probe proves that the analysis is live with the project's own annotation
# header: an unguarded write to a guarded member must be rejected, and the same write under its
# lock accepted. A build that is green because the macros expand to nothing would otherwise pass.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/qa-tsa}"
start=$SECONDS

bash scripts/install-deps.sh clang

probe_dir="$(mktemp -d)"
trap 'rm -rf "$probe_dir"' EXIT
cat > "$probe_dir/probe.cpp" <<'EOF'
#include "ThreadAnnotations.h"
using NSCam::camsys::camcoordinator::Mutex;
using NSCam::camsys::camcoordinator::MutexLock;
struct Probe {
    Mutex mLock;
    int mValue RYX_GUARDED_BY(mLock) = 0;
    void locked() { MutexLock l(mLock); mValue = 1; }
#ifdef RYX_PROBE_VIOLATION
    void unlocked() { mValue = 2; }
#endif
};
int main() { Probe p; p.locked(); return 0; }
EOF
probe_flags=(-std=c++17 -fsyntax-only -Wthread-safety -Wthread-safety-beta -Werror
             -Ihw/camsys/cam_coordinator/SyncHelper)
if ! clang++ "${probe_flags[@]}" "$probe_dir/probe.cpp"; then
    echo "ci-clang-tsa: the correctly locked probe does not compile" >&2
    exit 1
fi
if clang++ "${probe_flags[@]}" -DRYX_PROBE_VIOLATION "$probe_dir/probe.cpp" \
        2> "$probe_dir/violation.log"; then
    echo "ci-clang-tsa: an unguarded write was accepted: the analysis is not active" >&2
    exit 1
fi
if ! grep -q 'requires holding mutex' "$probe_dir/violation.log"; then
    echo "ci-clang-tsa: the probe failed for another reason:" >&2
    cat "$probe_dir/violation.log" >&2
    exit 1
fi
echo "ci-clang-tsa: probe ok (unguarded write rejected, locked write accepted)"

cmake --preset clang-tsa -B "$build"
cmake --build "$build" -j2
if ! grep -q -- '-Wthread-safety' "$build/compile_commands.json"; then
    echo "ci-clang-tsa: the build did not use -Wthread-safety" >&2
    exit 1
fi
units=$(grep -c '"file":' "$build/compile_commands.json")
echo "ci-clang-tsa: ${units} translation units compiled with -Wthread-safety (warnings are errors)," \
     "in $((SECONDS - start)) s"
