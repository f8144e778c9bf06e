#include "Watchdog.h"

#include <cstdio>
#include <cstdlib>

namespace ryxtest {

Watchdog::Watchdog(std::string what, std::chrono::milliseconds deadline) : mWhat(std::move(what)) {
    mThread = std::thread([this, deadline] {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mDone.wait_for(lock, deadline, [this] { return mDisarmed; })) {
            std::fprintf(stderr, "watchdog: '%s' did not finish within %lld ms; aborting\n",
                         mWhat.c_str(), static_cast<long long>(deadline.count()));
            std::fflush(stderr);
            std::abort();
        }
    });
}

Watchdog::~Watchdog() {
    disarm();
}

void Watchdog::join(std::vector<std::thread>& threads) {
    for (auto& t : threads) {
        if (t.joinable()) {
            t.join();
        }
    }
    disarm();
}

void Watchdog::disarm() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDisarmed = true;
    }
    mDone.notify_all();
    if (mThread.joinable()) {
        mThread.join();
    }
}

}  // namespace ryxtest
