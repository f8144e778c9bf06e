#!/usr/bin/env bash
# The diagnosis judged against the truth over many random sessions: each seed runs random
# sessions through the real library, prints their log as a phone would (every logcat format,
# debug, info and warning level, with the changes real captures have) and checks every statement
# explain makes of it. Prints, per format and level, the statements, the false ones, and the share
# of the frames the capture could decide that the report decided. Figures only.
#
# Usage: scripts/truth-campaign.sh [SESSIONS] [FIRST_SEED]   (default 10000 from seed 1)
#   RYX_TRUTH_FREE=1  sensor threads race as pipelines do (default: calls in trace order, so that
#                     a seed gives the same case every time)
#   RYX_TRUTH_KEEP=DIR keep the capture of every case with a false statement
set -euo pipefail
cd "$(dirname "$0")/.."
count="${1:-10000}"
first="${2:-1}"
if [ ! -d build/default ]; then
    cmake --preset default >/dev/null
fi
cmake --build build/default -j2 --target diagnosis_truth_test >/dev/null
RYX_TRUTH_SEEDS="$first:$count" build/default/tests/diagnosis_truth_test | grep -v '^\['
