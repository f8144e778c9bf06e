#include "sources/run/LogSetup.h"

#include <NSCam/ULogger.h>
#include <android/log.h>

namespace ryxsim {

using NSCam::Utils::ULog::ULogger;

std::optional<LogLevel> logLevelFromName(std::string const& name) {
    if (name == "quiet") {
        return LogLevel::Quiet;
    }
    if (name == "error") {
        return LogLevel::Error;
    }
    if (name == "warn") {
        return LogLevel::Warn;
    }
    if (name == "info") {
        return LogLevel::Info;
    }
    if (name == "debug") {
        return LogLevel::Debug;
    }
    return std::nullopt;
}

void configureLogging(LogLevel level, bool toStderr) {
    struct Words {
        uint32_t details;
        android_LogPriority minimum;
    };
    Words w{2, ANDROID_LOG_SILENT};
    switch (level) {
        case LogLevel::Quiet:
            break;
        case LogLevel::Error:
            w = {2, ANDROID_LOG_ERROR};
            break;
        case LogLevel::Warn:
            w = {2, ANDROID_LOG_WARN};
            break;
        case LogLevel::Info:
            w = {3, ANDROID_LOG_INFO};
            break;
        case LogLevel::Debug:
            w = {5, ANDROID_LOG_DEBUG};
            break;
    }
    bool print = toStderr && level != LogLevel::Quiet;
    ULogger::sMode = print ? 0x9 : 0x8;
    ULogger::sDetailsLevel = w.details;
    __android_log_set_minimum_priority(print ? w.minimum : ANDROID_LOG_SILENT);
    ULogger::sNormalDetailsMask = 0xFFFFFFFFu;
}

}  // namespace ryxsim
