#pragma once
// Captures what the library logs, on both channels, for assertions on exact lines.
//
// While a LogCapture lives, liblog's output goes to it (priority, tag and final text, error
// suffix included), the unified logger is a recording one, and the logger words are as given to
// the constructor. The destructor puts everything back. One LogCapture at a time per process.

#include <NSCam/ULogger.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace ryxtest {

struct AndroidLine {
    int priority = 0;
    std::string tag;
    std::string text;
};

class LogCapture {
  public:
    // Defaults: both channels on, every severity, module admitted.
    explicit LogCapture(uint32_t mode = 0x9, uint32_t detailsLevel = 5,
                        uint32_t mask = 0xFFFFFFFFu);
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    std::vector<AndroidLine> android() const;
    std::vector<NSCam::Utils::ULog::ULogLine> ulog() const { return mULog.lines(); }
    void clear();

    // Android lines whose text contains `needle` (optionally only of `tag`).
    std::vector<AndroidLine> androidMatching(const std::string& needle,
                                             const std::string& tag = "") const;
    bool androidHas(const std::string& needle) const { return !androidMatching(needle).empty(); }
    // Unified-logger lines whose text contains `needle`.
    bool ulogHas(const std::string& needle) const;

    // Blocks until an Android line containing `needle` has been seen, or `timeout` passes.
    bool waitForAndroid(const std::string& needle,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    // Counts Android lines containing `needle`, blocking until there are `count` of them.
    bool waitForAndroidCount(const std::string& needle, size_t count,
                             std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

  private:
    uint32_t mSavedMode;
    uint32_t mSavedLevel;
    uint32_t mSavedMask;
    NSCam::Utils::ULog::ULogger* mSavedLogger;
    NSCam::Utils::ULog::RecordingULogger mULog{100000};
};

}  // namespace ryxtest
