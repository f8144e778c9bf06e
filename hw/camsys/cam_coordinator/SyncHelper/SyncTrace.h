#pragma once
// The library's system-trace points, under the camera tag. On a phone (and with RYX_TRACE_CUTILS)
// they go to libcutils' trace API, that is to the kernel's trace_marker, where atrace and Perfetto
// record them; on the host to the platform layer's stand-in (NSCam/SystemTrace.h).
//
// on() is the one check a call makes while tracing is off: a load of the enabled-tags word.
// Everything else here formats, so callers test on() first and build names only when it holds.

#include <cstdint>

#if defined(__ANDROID__) || defined(RYX_TRACE_CUTILS)
#include <cutils/trace.h>
#else
#include <NSCam/SystemTrace.h>
#endif

namespace NSCam {
namespace camsys {
namespace camcoordinator {
namespace synctrace {

#if defined(__ANDROID__) || defined(RYX_TRACE_CUTILS)
inline bool on() {
    return atrace_is_tag_enabled(ATRACE_TAG_CAMERA) != 0;
}
inline void begin(const char* name) {
    atrace_begin(ATRACE_TAG_CAMERA, name);
}
inline void end() {
    atrace_end(ATRACE_TAG_CAMERA);
}
inline void counter(const char* name, int64_t value) {
    atrace_int64(ATRACE_TAG_CAMERA, name, value);
}
#else
inline bool on() {
    return NSCam::Utils::SystemTrace::isTagEnabled(NSCam::Utils::SystemTrace::kTagCamera);
}
inline void begin(const char* name) {
    NSCam::Utils::SystemTrace::beginSection(name);
}
inline void end() {
    NSCam::Utils::SystemTrace::endSection();
}
inline void counter(const char* name, int64_t value) {
    NSCam::Utils::SystemTrace::setCounter(name, value);
}
#endif

// A point in time on the caller's thread: a section that ends where it begins, which every
// trace viewer draws (atrace's text form has no instant event that all of them read).
void mark(const char* name);
// A mark named by a printf format ("RyxSync flush f12"), formatted only here.
void markf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace synctrace
}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
