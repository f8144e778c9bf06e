#include "SyncLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace NSCam {
namespace camsys {
namespace camcoordinator {
namespace synclog {

void emitULog(uint32_t level, const char* tag, const char* fmt, ...) {
    char buffer[kULogBufferSize];
    std::memset(buffer, 0, sizeof(buffer));
    va_list args;
    va_start(args, fmt);
    int length = std::vsnprintf(buffer, sizeof(buffer), fmt, args);
    va_end(args);
    if (length < 0) {
        return;
    }
    buffer[sizeof(buffer) - 1] = '\0';
    ULogger* logger = ULogger::sULogger;
    if (logger != nullptr) {
        logger->output(kModuleId, tag, level, buffer, length);
    }
}

}  // namespace synclog
}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
