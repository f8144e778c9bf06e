#pragma once
// 'adb logcat' started by the tool, its output on a pipe: the capture a live phone gives, in
// threadtime with microseconds and printable text (what the log reader reads best).

#include <sys/types.h>
#include <string>

namespace ryxsim::cli {

class AdbLogcat {
  public:
    AdbLogcat() = default;
    AdbLogcat(AdbLogcat const&) = delete;
    AdbLogcat& operator=(AdbLogcat const&) = delete;
    ~AdbLogcat();

    // Starts `adb [-s SERIAL] logcat -v threadtime -v usec -v printable`, found on PATH. Empty when
    // it started, else why not ("adb is not on PATH (Debian: apt install adb)").
    std::string start(std::string const& serial);
    // The read end of adb's standard output.
    int fd() const { return mFd; }
    // Waits for adb to end (it ends when the phone goes or on Ctrl-C). Empty when it exited 0 or
    // by the interrupt, else how it ended ("adb logcat exited with status 1").
    std::string wait();

  private:
    pid_t mPid = -1;
    int mFd = -1;
};

}  // namespace ryxsim::cli
