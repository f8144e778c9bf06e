#include "sources/run/RunLogCollector.h"

#include "sources/LibraryMessages.h"

#include <cstdio>
#include <ctime>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace ryxsim {

void RunLogCollector::output(uint32_t, const char* tag, uint32_t level, const char* text, int) {
    if (text == nullptr) {
        return;
    }
    std::string_view func, rest;
    bool framed = splitFrame(text, func, rest);
    // The calling thread is about to wait in the rendezvous.
    if (mOnWait && level == 5 && framed && func == "enque" &&
        readMessage(rest, RYX_MSG_QUEUE_WAIT, kSkip, kSkip, kSkip, kSkip)) {
        mOnWait();
    }
    if (level > mMaxLevel) {
        return;
    }
    if (mLogcat != nullptr) {
        static char const kLevels[] = "?EWIVD";
        writeLogcat(level < 6 ? kLevels[level] : 'V', tag, text);
    }
    LoggedAnomaly a{};
    bool keep = framed && anomalyOf(rest, a);
    std::lock_guard<std::mutex> lock(mMutex);
    if (level == 1) {
        mLastError = text;
        mLastTag = tag != nullptr ? tag : "";
    }
    if (keep) {
        a.text = text;
        mAnomalies.push_back(a);
    }
}

void RunLogCollector::flush(int reason) {
    std::string last;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        last = mLastError;
    }
    if (mLogcat != nullptr) {
        // What the abort itself prints on a device.
        writeLogcat('F', mLastTag.c_str(), last.c_str());
        mLogcat->flush();
    }
    std::fprintf(stderr,
                 "synchelper-sim: the library ended the process (fatal %d): %s\n"
                 "synchelper-sim: the call flow of this trace is broken for the library; "
                 "no report was written\n",
                 reason, last.c_str());
    std::fflush(stderr);
}

std::vector<LoggedAnomaly> RunLogCollector::take() {
    std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mAnomalies, {});
}

void RunLogCollector::writeLogcat(char level, const char* tag, const char* text) {
    std::lock_guard<std::mutex> lock(mLogcatMutex);  // lines in time order
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    tm local{};
    localtime_r(&ts.tv_sec, &local);
    char head[64];
    std::snprintf(head, sizeof head, "%02d-%02d %02d:%02d:%02d.%03ld %5d %5d %c ", local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, ts.tv_nsec / 1000000,
                  static_cast<int>(getpid()), static_cast<int>(syscall(SYS_gettid)), level);
    *mLogcat << head << (tag != nullptr ? tag : "") << ": " << text << '\n';
}

}  // namespace ryxsim
