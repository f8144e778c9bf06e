// Following a capture while it is written: every capture tells the same story followed as read
// whole (verdicts, explanations, gaps, notes), and each frame is handed over once. That a frame
// is explained while the input is still open is the command line's test (sim_live_test).

#include "SimulatedCapture.h"
#include "sinks/Explanation.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <fstream>
#include <thread>

using namespace ryxsim;
using namespace ryxtest;

namespace {

struct Followed {
    std::vector<Timeline> sessions;
    std::vector<std::pair<int, int>> handed;  // (pid, frame) of every frame handed over
    std::vector<std::string> explained;       // the explanations handed over
};

void writeAll(int fd, std::string const& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, std::min<size_t>(text.size() - done, 4096));
        ASSERT_GT(n, 0);
        done += static_cast<size_t>(n);
    }
}

Followed follow(std::string const& text) {
    Watchdog dog("following a capture", 60s);
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    std::thread writer([&] {
        writeAll(ends[1], text);
        ::close(ends[1]);
    });
    Followed out;
    FollowOptions options;
    options.folded = [&](Timeline const& t, FrameRecord const& f) {
        out.handed.push_back({t.capture.pid, f.frame});
        if (unpassed(f)) {
            out.explained.push_back(explainFrame(t, f));
        }
    };
    out.sessions = followLogcat(ends[0], "pipe", options);
    writer.join();
    ::close(ends[0]);
    return out;
}

std::vector<std::string> whysOf(std::vector<Timeline> const& sessions) {
    std::vector<std::string> v;
    for (auto const& t : sessions) {
        for (FrameRecord const* f : unpassedFrames(t)) {
            v.push_back(explainFrame(t, *f) + " @" + std::to_string(f->firstLine.value_or(0)) +
                        "-" + std::to_string(f->lastLine.value_or(0)));
        }
    }
    return v;
}

void expectSameStory(std::string const& text) {
    auto whole = readLogcat(text, "pipe");
    Followed followed = follow(text);
    ASSERT_EQ(followed.sessions.size(), whole.size());
    for (size_t i = 0; i < whole.size(); ++i) {
        Timeline const& a = whole[i];
        Timeline const& b = followed.sessions[i];
        EXPECT_EQ(verdictsOf(b), verdictsOf(a));
        EXPECT_EQ(b.notes, a.notes);
        ASSERT_EQ(b.capture.gaps.size(), a.capture.gaps.size());
        for (size_t g = 0; g < a.capture.gaps.size(); ++g) {
            EXPECT_EQ(b.capture.gaps[g].line, a.capture.gaps[g].line);
            EXPECT_EQ(b.capture.gaps[g].what, a.capture.gaps[g].what);
            EXPECT_EQ(b.capture.gaps[g].frames, a.capture.gaps[g].frames);
        }
        EXPECT_EQ(b.frameCount, a.frameCount);
        EXPECT_EQ(b.masterChanges, a.masterChanges);
    }
    EXPECT_EQ(whysOf(followed.sessions), whysOf(whole));
    // Each frame handed over once; the explanations handed over are the report's (in the order
    // frames were decided, which interleaves processes).
    size_t frames = 0;
    std::vector<std::string> whys;
    for (auto const& t : whole) {
        frames += static_cast<size_t>(t.frameCount);
        for (FrameRecord const* f : unpassedFrames(t)) {
            whys.push_back(explainFrame(t, *f));
        }
    }
    EXPECT_EQ(followed.handed.size(), frames);
    std::sort(whys.begin(), whys.end());
    std::sort(followed.explained.begin(), followed.explained.end());
    EXPECT_EQ(followed.explained, whys);
}

std::vector<LogEntry> withChattyGap(std::vector<LogEntry> entries, size_t at) {
    LogEntry chatty = entries[at];
    entries.erase(entries.begin() + static_cast<long>(at),
                  entries.begin() + static_cast<long>(at + 40));
    chatty.tag = "chatty";
    chatty.priority = ANDROID_LOG_INFO;
    chatty.message = "uid=1047(cameraserver) CameraThread expire 40 lines";
    entries.insert(entries.begin() + static_cast<long>(at), chatty);
    return entries;
}

}  // namespace

TEST(LogcatFollow, FollowedOrReadWholeACaptureTellsTheSameStory) {
    std::vector<LogEntry> const& run = debugRun().entries;
    {
        SCOPED_TRACE("threadtime");
        expectSameStory(formatCapture(run, {"threadtime"}));
    }
    {
        SCOPED_TRACE("time: no thread ids");
        expectSameStory(formatCapture(run, {"time"}));
    }
    {
        SCOPED_TRACE("a chatty gap in the middle");
        expectSameStory(formatCapture(withChattyGap(run, run.size() / 2), {"threadtime"}));
    }
    {
        SCOPED_TRACE("a capture starting mid-session");
        std::vector<LogEntry> late(run.begin() + static_cast<long>(run.size() / 3), run.end());
        expectSameStory(formatCapture(late, {"threadtime", "usec"}));
    }
    {
        SCOPED_TRACE("two sessions of one process, one after the other");
        std::vector<LogEntry> twice = run;
        for (LogEntry e : run) {
            e.sec += 600;
            twice.push_back(e);
        }
        expectSameStory(formatCapture(twice, {"threadtime"}));
    }
    for (char const* file : {"threadtime_debug_noisy.txt", "time_default_two_processes.txt",
                             "threadtime_first_frame_waits.txt", "brief_fatal_in_flight.txt"}) {
        SCOPED_TRACE(file);
        std::ifstream in(std::string(RYX_LOGCAT_DATA) + "/" + file);
        std::stringstream s;
        s << in.rdbuf();
        expectSameStory(s.str());
    }
}
