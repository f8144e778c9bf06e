#include <NSCam/ULogger.h>

#include <algorithm>

namespace NSCam {
namespace Utils {
namespace ULog {

uint32_t ULogger::sMode = 1;
uint32_t ULogger::sDetailsLevel = 4;
uint32_t ULogger::sNormalDetailsMask = 0xFFFFFFFFu;
ULogger* ULogger::sULogger = &RecordingULogger::hostDefault();

ULogger* ULogger::install(ULogger* logger) {
    ULogger* previous = sULogger;
    sULogger = logger;
    return previous;
}

RecordingULogger& RecordingULogger::hostDefault() {
    // Never destroyed: statements may run during static destruction of other objects.
    static RecordingULogger* instance = new RecordingULogger();
    return *instance;
}

void RecordingULogger::output(uint32_t moduleId, const char* tag, uint32_t level, const char* text,
                              int length) {
    ULogLine line;
    line.moduleId = moduleId;
    line.tag = tag != nullptr ? tag : "";
    line.level = level;
    line.text = text != nullptr ? text : "";
    line.length = length;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mCapacity > 0 && mLines.size() >= mCapacity) {
            mLines.pop_front();
        }
        mLines.push_back(std::move(line));
    }
    mChanged.notify_all();
}

void RecordingULogger::flush(int /*reason*/) {
    std::lock_guard<std::mutex> lock(mMutex);
    ++mFlushCount;
}

std::vector<ULogLine> RecordingULogger::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return std::vector<ULogLine>(mLines.begin(), mLines.end());
}

void RecordingULogger::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
    mFlushCount = 0;
}

int RecordingULogger::flushCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mFlushCount;
}

bool RecordingULogger::waitForLine(const std::string& needle,
                                   std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] {
        return std::any_of(mLines.begin(), mLines.end(), [&](ULogLine const& l) {
            return l.text.find(needle) != std::string::npos;
        });
    });
}

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
