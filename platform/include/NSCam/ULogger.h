#pragma once
// Host implementation of the camera stack's unified logger.
//
// Process-wide words, read without locking by every log statement of the camera stack:
//   sMode              bit 0 (1): Android log; bits 1 or 3 (mask 0xA): this logger.
//   sDetailsLevel      verbosity threshold (debug needs 5, info 3, warning 2).
//   sNormalDetailsMask module mask; debug and info need all bits of the module's mask set.
//   sULogger           receiver of the unified-logger output and of the fatal flush.
// Change the words only while no statement can run concurrently (before threads start), or
// accept that a statement may see the old value.
//
// Host defaults: sMode 1 (Android log only), sDetailsLevel 4 (info and above),
// sNormalDetailsMask 0xFFFFFFFF, sULogger a RecordingULogger.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace NSCam {
namespace Utils {
namespace ULog {

class ULogger {
  public:
    static uint32_t sMode;
    static uint32_t sDetailsLevel;
    static uint32_t sNormalDetailsMask;
    static ULogger* sULogger;

    virtual ~ULogger() = default;

    // Receives one formatted statement. `text` is NUL-terminated and at most 1023 characters;
    // `length` is the formatter's result, which may exceed the text when it was cut.
    virtual void output(uint32_t moduleId, const char* tag, uint32_t level, const char* text,
                        int length) = 0;

    // Called once before a fatal assertion ends the process; `reason` is 1 for an assertion.
    virtual void flush(int reason) = 0;

    // Puts `logger` in place (nullptr disables unified output) and returns the previous one.
    // The caller keeps ownership of both.
    static ULogger* install(ULogger* logger);
};

// One statement as a RecordingULogger kept it.
struct ULogLine {
    uint32_t moduleId = 0;
    std::string tag;
    uint32_t level = 0;
    std::string text;
    int length = 0;
};

// The host's default logger: keeps the latest `capacity` lines in memory so that tests and tools
// can read them, and lets a reader wait for a line to appear. Thread-safe.
class RecordingULogger : public ULogger {
  public:
    explicit RecordingULogger(size_t capacity = 4096) : mCapacity(capacity) {}

    void output(uint32_t moduleId, const char* tag, uint32_t level, const char* text,
                int length) override;
    void flush(int reason) override;

    std::vector<ULogLine> lines() const;
    void clear();
    int flushCount() const;

    // Blocks until a kept line contains `needle` or `timeout` passes; true when found.
    bool waitForLine(const std::string& needle, std::chrono::milliseconds timeout) const;

    // The process-wide instance installed at start-up.
    static RecordingULogger& hostDefault();

  private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::deque<ULogLine> mLines;  // guarded by mMutex
    size_t mCapacity;
    int mFlushCount = 0;  // guarded by mMutex
};

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
