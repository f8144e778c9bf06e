#pragma once
// A deadline for threaded tests: a hang fails the test run instead of blocking CI.
//
//   ryxtest::Watchdog dog("two-camera rendezvous", std::chrono::seconds(20));
//   ... start threads ...
//   dog.join(threads);   // joins them; aborts the process with a message past the deadline
//
// On expiry the watchdog prints which test hung and aborts, since a thread blocked in a
// condition wait cannot be cancelled.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ryxtest {

class Watchdog {
  public:
    Watchdog(std::string what, std::chrono::milliseconds deadline);
    ~Watchdog();  // disarms
    Watchdog(Watchdog const&) = delete;
    Watchdog& operator=(Watchdog const&) = delete;

    void join(std::vector<std::thread>& threads);
    void disarm();

  private:
    std::string mWhat;
    std::mutex mMutex;
    std::condition_variable mDone;
    bool mDisarmed = false;  // guarded by mMutex
    std::thread mThread;
};

}  // namespace ryxtest
