#pragma once
// Wall-clock interval timer: getTimeDiff() returns the seconds since the previous call (or since
// construction) and restarts the interval. Not thread-safe.

#include <chrono>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class Timer {
  public:
    Timer() : mLast(now()) {}
    ~Timer() {}

    double getTimeDiff() {
        auto current = now();
        double seconds = static_cast<double>((current - mLast).count()) / 1000000.0;
        mLast = current;
        return seconds;
    }

  private:
    using Clock = std::chrono::system_clock;
    using TimePoint = std::chrono::time_point<Clock, std::chrono::microseconds>;
    static TimePoint now() {
        return std::chrono::time_point_cast<std::chrono::microseconds>(Clock::now());
    }

    TimePoint mLast;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
