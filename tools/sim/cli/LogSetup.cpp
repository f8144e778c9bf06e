#include "cli/LogSetup.h"

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

void configureLogging(LogLevel level) {
    switch (level) {
        case LogLevel::Quiet:
            ULogger::sMode = 0x8;
            ULogger::sDetailsLevel = 2;
            __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
            break;
        case LogLevel::Error:
            ULogger::sMode = 0x9;
            ULogger::sDetailsLevel = 2;
            __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
            break;
        case LogLevel::Warn:
            ULogger::sMode = 0x9;
            ULogger::sDetailsLevel = 2;
            __android_log_set_minimum_priority(ANDROID_LOG_WARN);
            break;
        case LogLevel::Info:
            ULogger::sMode = 0x9;
            ULogger::sDetailsLevel = 3;
            __android_log_set_minimum_priority(ANDROID_LOG_INFO);
            break;
        case LogLevel::Debug:
            ULogger::sMode = 0x9;
            ULogger::sDetailsLevel = 5;
            __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
            break;
    }
    ULogger::sNormalDetailsMask = 0xFFFFFFFFu;
}

}  // namespace ryxsim
