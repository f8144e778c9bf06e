#!/usr/bin/env bash
# Builds libryxcam_synchelper.so from Android.bp on the host with Debian's mini-soong, and checks
# that Android.bp lists exactly the library's sources and that the result exports the factory.
# Usage: scripts/ci-android-bp.sh   (from anywhere; works on a copy of the tree)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/install-deps.sh" android-bp

fail() { echo "android-bp: FAIL: $*" >&2; exit 1; }

# 1. Android.bp and the library directory agree on the sources.
listed=$(grep -o '"hw/camsys/cam_coordinator/SyncHelper/[^"]*\.cpp"' "$root/Android.bp" | tr -d '"' | sort)
present=$(cd "$root" && ls hw/camsys/cam_coordinator/SyncHelper/*.cpp | sort)
if [ "$listed" != "$present" ]; then
    diff <(echo "$listed") <(echo "$present") >&2 || true
    fail "Android.bp srcs differ from hw/camsys/cam_coordinator/SyncHelper/*.cpp (< Android.bp, > tree)"
fi
listed=$(grep -o '"src/[^"]*\.cpp"' "$root/platform/Android.bp" | tr -d '"' | sort)
present=$(cd "$root/platform" && ls src/*.cpp | sort)
[ "$listed" = "$present" ] || fail "platform/Android.bp srcs differ from platform/src/*.cpp"

# 2. mini-soong turns the blueprints into a Makefile; build in a scratch copy.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$root/Android.bp" "$root/include" "$root/hw" "$root/platform" "$work/"
cd "$work"
mini-soong '**/Android.bp' Makefile
# mini-soong drops -Werror from module flags; put it back for the whole build. It also only adds
# "-L." for modules of blueprints it read earlier, and platform/Android.bp is read after the
# top-level one, so the library directory is given here.
printf 'include Makefile\nCXXFLAGS += -Werror -O2\nLDFLAGS += -L.\n' > Werror.mk
make -s -f Werror.mk build CC=g++ -j2
so=$(ls libryxcam_synchelper.so.* | head -n1)
[ -n "$so" ] || fail "no libryxcam_synchelper.so was built"

# 3. The result is usable by a pipeline: the factory is exported, the queue is not.
exports=$(nm -DC --defined-only "$so")
echo "$exports" | grep -q 'ISyncHelper::createInstance' || fail "$so does not export ISyncHelper::createInstance"
if echo "$exports" | grep -q 'SyncQueue::'; then fail "$so exports SyncQueue internals"; fi
sh "$root/tests/exports_match.sh" nm "$so" "$root/tests/libryxcam_synchelper.exports" ||
    fail "$so does not export exactly tests/libryxcam_synchelper.exports (version_script)"
echo "android-bp: built $so from Android.bp with mini-soong; exports checked"

# 4. On a phone the trace points go to libcutils' trace API (<cutils/trace.h>): the same sources,
#    built that way against Debian's libcutils, link with no symbol left undefined and call it.
libdir=$(dirname "$(find /usr/lib -path '*android/libcutils.so' | head -n1)")
g++ -std=c++17 -Wall -Wextra -Werror -O2 -fPIC -shared -DRYX_TRACE_CUTILS \
    -I include -I hw/camsys/cam_coordinator/SyncHelper -I platform/include -I/usr/include/android \
    hw/camsys/cam_coordinator/SyncHelper/*.cpp platform/src/*.cpp \
    -L"$libdir" -lcutils -llog -lpthread -Wl,--no-undefined -o libcutils-seam.so
nm -D --undefined-only libcutils-seam.so | grep -q 'atrace_begin_body' ||
    fail "the trace points built with RYX_TRACE_CUTILS do not call libcutils' atrace_begin_body"
echo "android-bp: the trace points build and link against libcutils' trace API"
