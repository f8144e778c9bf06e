#include "cli/AdbLogcat.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace ryxsim::cli {

namespace {

bool onPath(std::string const& program) {
    char const* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    size_t from = 0;
    while (from <= dirs.size()) {
        size_t to = dirs.find(':', from);
        std::string dir =
            dirs.substr(from, to == std::string::npos ? std::string::npos : to - from);
        std::string file = (dir.empty() ? "." : dir) + "/" + program;
        if (::access(file.c_str(), X_OK) == 0) {
            return true;
        }
        if (to == std::string::npos) {
            break;
        }
        from = to + 1;
    }
    return false;
}

}  // namespace

AdbLogcat::~AdbLogcat() {
    if (mFd >= 0) {
        ::close(mFd);
    }
    if (mPid > 0) {
        ::kill(mPid, SIGTERM);
        ::waitpid(mPid, nullptr, 0);
    }
}

std::string AdbLogcat::start(std::string const& serial) {
    if (!onPath("adb")) {
        return "adb is not on PATH (Debian: apt install adb)";
    }
    std::vector<std::string> args{"adb"};
    if (!serial.empty()) {
        args.insert(args.end(), {"-s", serial});
    }
    args.insert(args.end(), {"logcat", "-v", "threadtime", "-v", "usec", "-v", "printable"});
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) {
        return std::string("cannot start adb: ") + std::strerror(errno);
    }
    mPid = ::fork();
    if (mPid < 0) {
        return std::string("cannot start adb: ") + std::strerror(errno);
    }
    if (mPid == 0) {
        ::dup2(pipeEnds[1], 1);
        ::close(pipeEnds[0]);
        ::close(pipeEnds[1]);
        std::vector<char*> argv;
        for (auto& a : args) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        ::execvp("adb", argv.data());
        std::fprintf(stderr, "synchelper-sim: error: cannot run adb: %s\n", std::strerror(errno));
        ::_exit(127);
    }
    ::close(pipeEnds[1]);
    mFd = pipeEnds[0];
    return "";
}

std::string AdbLogcat::wait() {
    if (mFd >= 0) {
        ::close(mFd);  // adb still writing gets SIGPIPE
        mFd = -1;
    }
    int status = 0;
    while (::waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        return "adb logcat exited with status " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) != SIGINT && WTERMSIG(status) != SIGPIPE) {
        return std::string("adb logcat ended by signal ") + strsignal(WTERMSIG(status));
    }
    return "";
}

}  // namespace ryxsim::cli
