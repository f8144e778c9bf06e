// synchelper-sim following a log as a phone writes it: 'explain --follow -' on a pipe the test
// holds open prints a frame's explanation before the input ends, and 'explain --adb SERIAL' runs
// the adb found on PATH (a stand-in here) with the options the reader needs.

#include "SimCommandLine.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <atomic>
#include <fstream>
#include <regex>
#include <thread>

using namespace ryxtest;

namespace {

class LiveLog : public CommandLine {
  protected:
    // A debug capture of a 300-frame run of the built-in scenario, written by the tool itself.
    void SetUp() override {
        CommandLine::SetUp();
        Result r = sim("run --frames 300 --log debug --write-logcat " + path("cap.txt"));
        ASSERT_EQ(r.status, 0) << r.err;
        whole = sim("explain " + path("cap.txt"));
        ASSERT_EQ(whole.status, 0) << whole.err;
    }

    // The explanation lines ("f14    out of sync: ... [lines 220-240, ...]") of the report
    // ("  f14 ...") or of a follow ("process 812 f14 ...").
    static std::vector<std::string> explanations(std::string const& text) {
        static std::regex const line(R"(^(?:  |process \d+ )(f\d+ .*)$)");
        std::vector<std::string> out;
        std::istringstream in(text);
        for (std::string s; std::getline(in, s);) {
            std::smatch m;
            if (std::regex_match(s, m, line)) {
                out.push_back(m[1]);
            }
        }
        return out;
    }

    // A stand-in adb on PATH: records its arguments, then prints the capture or fails as adb does.
    std::string standInAdb(bool fails) {
        std::string dir = mDir + ".bin";  // beside the folder whose files are checked
        std::system(("mkdir -p '" + dir + "'").c_str());
        std::ofstream script(dir + "/adb");
        script << "#!/bin/sh\necho \"$@\" > '" << path("adb-args") << "'\n"
               << (fails ? "echo \"error: device 'x' not found\" >&2; exit 1\n"
                         : "cat '" + path("cap.txt") + "'\n");
        script.close();
        ::chmod((dir + "/adb").c_str(), 0755);
        return dir;
    }

    Result withPath(std::string const& dirs, std::string const& args) {
        Watchdog dog("synchelper-sim " + args, 60s);
        int raw = std::system(("PATH='" + dirs + "' " + RYX_SIM_BINARY + " " + args + " >'" +
                               path("stdout") + "' 2>'" + path("stderr") + "' </dev/null")
                                  .c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp("stdout"), slurp("stderr")};
    }

    void TearDown() override {
        std::system(("rm -rf '" + mDir + ".bin'").c_str());
        CommandLine::TearDown();
    }

    Result whole;
};

}  // namespace

namespace {

// 'explain --follow -' with its standard input and output on pipes of the test's.
struct Follower {
    pid_t pid = -1;
    int in = -1, out = -1;
    std::string printed;
    std::thread writer;
    std::atomic<bool> fed{false};

    Follower() {
        int toTool[2], fromTool[2];
        if (::pipe(toTool) != 0 || ::pipe(fromTool) != 0) {
            return;
        }
        pid = ::fork();
        if (pid == 0) {
            ::dup2(toTool[0], 0);
            ::dup2(fromTool[1], 1);
            ::close(toTool[1]);
            ::close(fromTool[0]);
            ::execl(RYX_SIM_BINARY, RYX_SIM_BINARY, "explain", "--follow", "-", nullptr);
            ::_exit(127);
        }
        ::close(toTool[0]);
        ::close(fromTool[1]);
        std::signal(SIGPIPE, SIG_IGN);  // a tool that ended early fails the write, not the test
        in = toTool[1];
        out = fromTool[0];
    }
    // The whole capture written to the tool's input, which stays open, from a thread of its own:
    // the tool may print while it reads.
    void feed(std::string capture) {
        writer = std::thread([this, capture = std::move(capture)] {
            size_t done = 0;
            while (done < capture.size()) {
                ssize_t n = ::write(in, capture.data() + done, capture.size() - done);
                if (n <= 0) {
                    return;
                }
                done += static_cast<size_t>(n);
            }
            fed = true;
        });
    }
    // Reads what the tool prints until it has printed a whole line: "" once it has, else what
    // came instead (the tool ended, or printed nothing for `patience`).
    std::string firstLine(std::chrono::seconds patience) {
        char buf[4096];
        while (printed.find('\n') == std::string::npos) {
            pollfd p{out, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(patience.count() * 1000)) == 0) {
                return std::string("no line within ") + std::to_string(patience.count()) +
                       " s, the capture " + (fed ? "written whole" : "still being written");
            }
            ssize_t n = ::read(out, buf, sizeof buf);
            if (n <= 0) {
                return "the tool ended before it explained a frame";
            }
            printed.append(buf, static_cast<size_t>(n));
        }
        return "";
    }
    // Closes the tool's input once the writer is done with it.
    void endInput() {
        if (writer.joinable()) {
            writer.join();
        }
        ::close(in);
    }
    // The rest of the output, and the exit status.
    int finish() {
        char buf[4096];
        for (ssize_t n; (n = ::read(out, buf, sizeof buf)) > 0;) {
            printed.append(buf, static_cast<size_t>(n));
        }
        if (writer.joinable()) {
            writer.join();
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        ::close(out);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
};

}  // namespace

TEST_F(LiveLog, FollowExplainsAFrameWhileThePipeIsStillOpen) {
    Watchdog dog("explain --follow on an open pipe", 120s);
    Follower tool;
    std::string capture = slurp("cap.txt");
    tool.feed(capture);
    std::string late = tool.firstLine(30s);
    if (!late.empty()) {
        // Kept for a look: the run's threads make each capture anew.
        std::string kept = testing::TempDir() + "live-follow-capture.txt";
        std::ofstream(kept) << capture;
        ADD_FAILURE() << late
                      << "; the report's first explanation: " << explanations(whole.out).at(0)
                      << "; the capture is kept in " << kept;
    }
    tool.endInput();  // end of input: the report follows
    EXPECT_EQ(tool.finish(), 0) << tool.printed;
    ASSERT_TRUE(late.empty()) << tool.printed;
    EXPECT_EQ(explanations(tool.printed).at(0), explanations(whole.out).at(0));
    EXPECT_NE(tool.printed.find("frames that did not pass or passed flagged:"), std::string::npos);
    // Each explanation printed as it came, then again in the report.
    auto reported = explanations(whole.out);
    auto twice = reported;
    twice.insert(twice.end(), reported.begin(), reported.end());
    EXPECT_EQ(explanations(tool.printed), twice);
}

// Ctrl-C while the input is still open ends the follow with the report of what came.
TEST_F(LiveLog, CtrlCEndsAFollowWithTheReport) {
    Watchdog dog("explain --follow stopped by SIGINT", 60s);
    Follower tool;
    tool.feed(slurp("cap.txt"));
    ASSERT_EQ(tool.firstLine(30s), "");
    tool.writer.join();  // the whole capture read, the input still open
    ::kill(tool.pid, SIGINT);
    EXPECT_EQ(tool.finish(), 0) << tool.printed;
    ::close(tool.in);
    EXPECT_NE(tool.printed.find("frames that did not pass or passed flagged:"), std::string::npos)
        << tool.printed;
}

TEST_F(LiveLog, AdbIsRunWithTheFormatTheReaderNeeds) {
    std::string bin = standInAdb(false);
    Result r =
        withPath(bin + ":/usr/bin:/bin", "explain --adb emulator-5554 --camera-names 2=tele");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(slurp("adb-args"), "-s emulator-5554 logcat -v threadtime -v usec -v printable\n");
    EXPECT_NE(r.out.find("logcat adb logcat -s emulator-5554"), std::string::npos) << r.out;
    auto streamed = explanations(r.out);
    EXPECT_EQ(streamed.size(), 2 * explanations(whole.out).size());
    bool named = false;
    for (auto const& line : streamed) {
        named |= line.find("tele started") != std::string::npos;
    }
    EXPECT_TRUE(named) << r.out;

    Result any = withPath(bin + ":/usr/bin:/bin", "explain --adb");
    ASSERT_EQ(any.status, 0) << any.err;
    EXPECT_EQ(slurp("adb-args"), "logcat -v threadtime -v usec -v printable\n");
}

TEST_F(LiveLog, AdbMissingOrFailingIsOneClearError) {
    Result missing = withPath(path("nowhere"), "explain --adb");
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err,
              "synchelper-sim: error: adb: adb is not on PATH (Debian: apt install "
              "adb)\n");
    std::string bin = standInAdb(true);
    Result failing = withPath(bin + ":/usr/bin:/bin", "explain --adb x");
    EXPECT_EQ(failing.status, 2);
    EXPECT_NE(failing.err.find("synchelper-sim: error: adb: adb logcat exited with status 1, "
                               "before any log line"),
              std::string::npos)
        << failing.err;
    Result both = withPath(bin + ":/usr/bin:/bin", "explain --adb x " + path("cap.txt"));
    EXPECT_EQ(both.status, 2);
    EXPECT_EQ(both.err, "synchelper-sim: error: explain: give a CAPTURE or --adb, not both\n");
}
