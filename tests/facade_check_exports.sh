#!/bin/sh
# Checks the symbols a library defines: what a pipeline needs must be there, the library's
# internal classes must not.
#   facade_check_exports.sh <nm> <library> [nm options...]   (default options: -DC --defined-only)
set -u
NM=$1 LIB=$2
shift 2
[ $# -gt 0 ] || set -- -DC --defined-only
SYMS=$("$NM" "$@" "$LIB") || { echo "cannot list the symbols of $LIB"; exit 2; }

NS='NSCam::camsys::camcoordinator::'
status=0
for need in "typeinfo for ${NS}ISyncHelper" "vtable for ${NS}ISyncHelper" \
    "${NS}ISyncHelper::createInstance(" "typeinfo for ${NS}SyncHelper" \
    "${NS}SyncHelper::updateData(" "${NS}SyncHelper::getSensorCropRegion("; do
    printf '%s\n' "$SYMS" | grep -qF -- "$need" || { echo "missing export: $need"; status=1; }
done
for internal in SyncQueue SyncQueue_ResultCheck_Cb SyncElement TimestampSyncDataUpdater \
    MasterCamSyncDataUpdater ActiveSyncDataUpdater PhysicalMetaSyncDataUpdater synclog; do
    LEAKED=$(printf '%s\n' "$SYMS" | grep -E -- "camcoordinator::${internal}([^A-Za-z0-9_]|\$)")
    if [ -n "$LEAKED" ]; then
        echo "internal symbol exported: ${internal} ($(printf '%s\n' "$LEAKED" | wc -l))"
        printf '%s\n' "$LEAKED" | head -3
        status=1
    fi
done
[ $status -eq 0 ] && echo "exports ok"
exit $status
