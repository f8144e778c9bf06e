#pragma once
// The run's log collector: the library's unified-logger lines during a run, the anomalies the
// report lists kept, and the lines a capture would hold written as logcat -v threadtime prints
// them. On a fatal statement (the flush before the abort) it says on stderr what stopped the
// process.

#include "model/Calls.h"

#include <NSCam/ULogger.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace ryxsim {

class RunLogCollector : public NSCam::Utils::ULog::ULogger {
  public:
    // Lines above `maxLevel` (ULog levels: 1 error .. 5 debug) are only watched for the start of
    // a rendezvous wait, which `onWait` hears about on the waiting thread.
    RunLogCollector(std::ostream* logcat, uint32_t maxLevel, std::function<void()> onWait)
        : mLogcat(logcat), mMaxLevel(maxLevel), mOnWait(std::move(onWait)) {}

    void output(uint32_t, const char* tag, uint32_t level, const char* text, int) override;

    void flush(int reason) override;

    // The anomalies collected since the last call.
    std::vector<LoggedAnomaly> take();

  private:
    // One line as logcat -v threadtime prints it, on the wall clock.
    void writeLogcat(char level, const char* tag, const char* text);

    std::mutex mMutex;
    std::vector<LoggedAnomaly> mAnomalies;
    std::string mLastError;
    std::string mLastTag;
    std::ostream* mLogcat;
    uint32_t mMaxLevel;
    std::function<void()> mOnWait;
    std::mutex mLogcatMutex;
};

}  // namespace ryxsim
