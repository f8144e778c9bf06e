#include "LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace ryxtest {

using NSCam::Utils::ULog::ULogger;

namespace {
struct Sink {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<AndroidLine> lines;
};
Sink& sink() {
    static Sink* s = new Sink();
    return *s;
}
void captureLogger(const struct __android_logger_data* data, const char* message) {
    AndroidLine line;
    line.priority = data->priority;
    line.tag = data->tag != nullptr ? data->tag : "";
    line.text = message != nullptr ? message : "";
    Sink& s = sink();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.lines.push_back(std::move(line));
    }
    s.changed.notify_all();
}
}  // namespace

LogCapture::LogCapture(uint32_t mode, uint32_t detailsLevel, uint32_t mask)
    : mSavedMode(ULogger::sMode),
      mSavedLevel(ULogger::sDetailsLevel),
      mSavedMask(ULogger::sNormalDetailsMask),
      mSavedLogger(ULogger::sULogger) {
    clear();
    __android_log_set_logger(captureLogger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    ULogger::install(&mULog);
    ULogger::sMode = mode;
    ULogger::sDetailsLevel = detailsLevel;
    ULogger::sNormalDetailsMask = mask;
}

LogCapture::~LogCapture() {
    ULogger::sMode = mSavedMode;
    ULogger::sDetailsLevel = mSavedLevel;
    ULogger::sNormalDetailsMask = mSavedMask;
    ULogger::install(mSavedLogger);
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
}

std::vector<AndroidLine> LogCapture::android() const {
    Sink& s = sink();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.lines;
}

void LogCapture::clear() {
    Sink& s = sink();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.lines.clear();
    }
    mULog.clear();
}

std::vector<AndroidLine> LogCapture::androidMatching(const std::string& needle,
                                                     const std::string& tag) const {
    std::vector<AndroidLine> out;
    for (auto const& line : android()) {
        if (line.text.find(needle) != std::string::npos && (tag.empty() || line.tag == tag)) {
            out.push_back(line);
        }
    }
    return out;
}

bool LogCapture::ulogHas(const std::string& needle) const {
    auto lines = mULog.lines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](auto const& l) { return l.text.find(needle) != std::string::npos; });
}

bool LogCapture::waitForAndroid(const std::string& needle,
                                std::chrono::milliseconds timeout) const {
    return waitForAndroidCount(needle, 1, timeout);
}

bool LogCapture::waitForAndroidCount(const std::string& needle, size_t count,
                                     std::chrono::milliseconds timeout) const {
    Sink& s = sink();
    std::unique_lock<std::mutex> lock(s.mutex);
    return s.changed.wait_for(lock, timeout, [&] {
        size_t n = 0;
        for (auto const& line : s.lines) {
            n += line.text.find(needle) != std::string::npos ? 1 : 0;
        }
        return n >= count;
    });
}

}  // namespace ryxtest
