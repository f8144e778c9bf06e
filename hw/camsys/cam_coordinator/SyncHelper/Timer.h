#pragma once
// Wall-clock interval timer: getTimeDiff() returns the seconds since the previous call (or since
// construction) and restarts the interval.
//
// Thread-safe: the last time point is one atomic word, replaced only by a clock reading taken
// after it was loaded, so concurrent callers (the masters of different frames printing their
// check interval at once) each get the interval since whichever call came last before theirs,
// never a negative one from a reading that lost the race, and no call is lost.

#include <atomic>
#include <chrono>
#include <cstdint>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class Timer {
  public:
    Timer() : mLastUs(nowUs()) {}
    ~Timer() {}

    double getTimeDiff() {
        int64_t last = mLastUs.load(std::memory_order_acquire);
        int64_t current = nowUs();
        // Another caller stored a later reading between our load and our clock read: read again.
        while (!mLastUs.compare_exchange_weak(last, current, std::memory_order_acq_rel,
                                              std::memory_order_acquire)) {
            current = nowUs();
        }
        return static_cast<double>(current - last) / 1000000.0;
    }

  private:
    // Microseconds of the system clock since its epoch.
    static int64_t nowUs() {
        return std::chrono::time_point_cast<std::chrono::microseconds>(
                   std::chrono::system_clock::now())
            .time_since_epoch()
            .count();
    }

    std::atomic<int64_t> mLastUs;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
