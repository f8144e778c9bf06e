#pragma once
// The library's one logging convention. Every class defines, before including this header:
//   #define LOG_TAG    "RyxCam/<ClassName>"
//   #define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/<ClassName>"
//
// Each statement is framed "(%4d) [%s] <message>" with the line and the enclosing function
// (inside a lambda the function is "operator()"), has one severity with its gate, and goes to
// the Android log when ULogger::sMode bit 0 is set and to the unified logger when a bit of 0xA
// is. Severities (Android priority / unified level / gate):
//   debug   3 / 5  sDetailsLevel >= 5 and the module mask 0x801000 fully set in sNormalDetailsMask
//   info    4 / 3  sDetailsLevel >= 3 and the same mask test
//   warning 5 / 2  sDetailsLevel >= 2
//   error   6 / 1  always; the Android text gains " (%s){#%d:%s}" (function, line, source)
// A statement whose gate fails reads two words and formats nothing. The arguments are evaluated
// once per enabled channel (so at most twice); statements here never rely on side effects,
// except the façade's timing line, which relies on exactly that.
//
// Warnings, errors and fatal messages also go to the system trace, whatever the log's gates, as
// a mark "RyxSync <W|E|F> <message>" on the caller's thread (SyncTrace.h), when tracing is on.
//
// RYX_LOGF is the fatal form for broken call flows: the bare message to the unified logger
// (with its fatal flush) when a bit of 0xA is set, then __android_log_assert, which ends the
// process with "<message> (%s){#%d:%s}".

#include "SyncMessages.h"
#include "SyncTrace.h"

#include <NSCam/ULogger.h>
#include <android/log.h>

#include <cstdint>

namespace NSCam {
namespace camsys {
namespace camcoordinator {
namespace synclog {

constexpr uint32_t kModuleId = 0x801006;
constexpr uint32_t kModuleMask = 0x801000;
constexpr uint32_t kULogBufferSize = 1024;

using NSCam::Utils::ULog::ULogger;

inline bool moduleAdmitted() {
    return (kModuleMask & ~ULogger::sNormalDetailsMask) == 0;
}
inline bool debugOn() {
    return ULogger::sDetailsLevel >= 5 && moduleAdmitted();
}
inline bool infoOn() {
    return ULogger::sDetailsLevel >= 3 && moduleAdmitted();
}
inline bool warnOn() {
    return ULogger::sDetailsLevel >= 2;
}
inline bool androidOn() {
    return (ULogger::sMode & 0x1u) != 0;
}
inline bool ulogOn() {
    return (ULogger::sMode & 0xAu) != 0;
}

// Formats into a cleared 1024-byte stack buffer and hands it to the unified logger with the
// formatter's own result as the length (which exceeds 1023 when the text was cut).
void emitULog(uint32_t level, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace synclog
}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam

#define RYX_SYNCLOG_FRAME "(%4d) [%s] "
#define RYX_SYNCLOG_SUFFIX " (%s){#%d:%s}"

#define RYX_SYNCLOG_EMIT(prio, level, fmt, ...)                                                \
    do {                                                                                       \
        if (::NSCam::camsys::camcoordinator::synclog::androidOn()) {                           \
            __android_log_print(prio, LOG_TAG, RYX_SYNCLOG_FRAME fmt, __LINE__, __FUNCTION__,  \
                                ##__VA_ARGS__);                                                \
        }                                                                                      \
        if (::NSCam::camsys::camcoordinator::synclog::ulogOn()) {                              \
            ::NSCam::camsys::camcoordinator::synclog::emitULog(                                \
                level, LOG_TAG, RYX_SYNCLOG_FRAME fmt, __LINE__, __FUNCTION__, ##__VA_ARGS__); \
        }                                                                                      \
    } while (0)

#define RYX_LOGD(fmt, ...)                                              \
    do {                                                                \
        if (::NSCam::camsys::camcoordinator::synclog::debugOn()) {      \
            RYX_SYNCLOG_EMIT(ANDROID_LOG_DEBUG, 5, fmt, ##__VA_ARGS__); \
        }                                                               \
    } while (0)

// Debug line with an extra condition (an updater's mLogLevel), tested first.
#define RYX_LOGD_IF(cond, fmt, ...)                                          \
    do {                                                                     \
        if ((cond) && ::NSCam::camsys::camcoordinator::synclog::debugOn()) { \
            RYX_SYNCLOG_EMIT(ANDROID_LOG_DEBUG, 5, fmt, ##__VA_ARGS__);      \
        }                                                                    \
    } while (0)

#define RYX_LOGI(fmt, ...)                                             \
    do {                                                               \
        if (::NSCam::camsys::camcoordinator::synclog::infoOn()) {      \
            RYX_SYNCLOG_EMIT(ANDROID_LOG_INFO, 3, fmt, ##__VA_ARGS__); \
        }                                                              \
    } while (0)

#define RYX_SYNCTRACE_MESSAGE(severity, fmt, ...)                                                \
    do {                                                                                         \
        if (::NSCam::camsys::camcoordinator::synctrace::on()) {                                  \
            ::NSCam::camsys::camcoordinator::synctrace::markf(RYX_TRACE_PREFIX severity " " fmt, \
                                                              ##__VA_ARGS__);                    \
        }                                                                                        \
    } while (0)

#define RYX_LOGW(fmt, ...)                                             \
    do {                                                               \
        if (::NSCam::camsys::camcoordinator::synclog::warnOn()) {      \
            RYX_SYNCLOG_EMIT(ANDROID_LOG_WARN, 2, fmt, ##__VA_ARGS__); \
        }                                                              \
        RYX_SYNCTRACE_MESSAGE("W", fmt, ##__VA_ARGS__);                \
    } while (0)

#define RYX_LOGE(fmt, ...)                                                                        \
    do {                                                                                          \
        if (::NSCam::camsys::camcoordinator::synclog::androidOn()) {                              \
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,                                       \
                                RYX_SYNCLOG_FRAME fmt RYX_SYNCLOG_SUFFIX, __LINE__, __FUNCTION__, \
                                ##__VA_ARGS__, __FUNCTION__, __LINE__, LOG_SOURCE);               \
        }                                                                                         \
        if (::NSCam::camsys::camcoordinator::synclog::ulogOn()) {                                 \
            ::NSCam::camsys::camcoordinator::synclog::emitULog(                                   \
                1, LOG_TAG, RYX_SYNCLOG_FRAME fmt, __LINE__, __FUNCTION__, ##__VA_ARGS__);        \
        }                                                                                         \
        RYX_SYNCTRACE_MESSAGE("E", fmt, ##__VA_ARGS__);                                           \
    } while (0)

#define RYX_LOGF(fmt, ...)                                                                      \
    do {                                                                                        \
        RYX_SYNCTRACE_MESSAGE("F", fmt, ##__VA_ARGS__);                                         \
        if (::NSCam::camsys::camcoordinator::synclog::ulogOn()) {                               \
            ::NSCam::camsys::camcoordinator::synclog::emitULog(1, LOG_TAG, fmt, ##__VA_ARGS__); \
            if (::NSCam::Utils::ULog::ULogger::sULogger != nullptr) {                           \
                ::NSCam::Utils::ULog::ULogger::sULogger->flush(1);                              \
            }                                                                                   \
        }                                                                                       \
        __android_log_assert(nullptr, LOG_TAG, fmt RYX_SYNCLOG_SUFFIX, ##__VA_ARGS__,           \
                             __FUNCTION__, __LINE__, LOG_SOURCE);                               \
    } while (0)
