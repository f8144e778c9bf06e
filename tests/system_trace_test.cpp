// The system-trace reader: every form of line atrace and the kernel print, and hand-made traces
// of the library among a phone's other events, read into verdicts, causes and gaps.

#include "sources/logcat/LogcatSource.h"
#include "sources/systrace/TraceLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ryxsim;

TEST(TraceLines, EveryFormTheKernelPrintsIsRead) {
    using K = TraceLine::Kind;
    struct Case {
        char const* line;
        K kind;
        int tid, pid;
        int64_t ns;
        char const* task;
        char const* name;
    } const cases[] = {
        // atrace with the tgid column and the flags
        {"         sensor0-3120  ( 3101) [002] ...1  8123.456789: tracing_mark_write: "
         "B|3101|RyxSync f12 cam0",
         K::Begin, 3120, 3101, 8123456789000, "sensor0", "RyxSync f12 cam0"},
        // a task name with a dash and a space, the tgid unknown, the marker's pid wins
        {"  Binder:1 2-x-4471  (-----) [000] d..2 12.000001: tracing_mark_write: E|4400", K::End,
         4471, 4400, 12000001000, "Binder:1 2-x", ""},
        // no tgid column, no flags (old kernels), a bare E
        {"  CamPipe-88 [001] 7.5: tracing_mark_write: E", K::End, 88, -1, 7500000000, "CamPipe",
         ""},
        // a counter, nanosecond digits
        {"  sensor2-9  ( 7) [003] .... 1.123456789: tracing_mark_write: C|7|RyxSync master|2",
         K::Counter, 9, 7, 1123456789, "sensor2", "RyxSync master"},
        // the kernel's loss, another event, text that is no trace line
        {"CPU:2 [LOST 118 EVENTS]", K::Lost, 0, -1, 0, "", ""},
        {"  <idle>-0  (-----) [001] d..2 5.000000: sched_switch: prev_comm=swapper/1", K::Other, 0,
         -1, 0, "", ""},
        {"11-25 10:00:00.000  100  200 D RyxCam/SyncQueue: ( 10) [enque] x", K::Other, 0, -1, 0, "",
         ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.line);
        TraceLine t = readTraceLine(c.line);
        EXPECT_EQ(t.kind, c.kind);
        if (t.kind == K::Other || t.kind == K::Lost) {
            EXPECT_EQ(t.lost, c.kind == K::Lost ? 118 : 0);
            continue;
        }
        EXPECT_EQ(t.tid, c.tid);
        EXPECT_EQ(t.pid, c.pid);
        EXPECT_EQ(t.ns, c.ns);
        EXPECT_EQ(t.task, c.task);
        EXPECT_EQ(t.name, c.name);
    }
    EXPECT_EQ(
        readTraceLine("  s-9  ( 7) [003] .... 1.5: tracing_mark_write: C|7|RyxSync master|2").value,
        2);
}

namespace {

// A trace's lines: "<tid> <seconds> <marker>" each, printed as atrace prints them, process 300.
std::string atrace(std::vector<std::string> const& lines) {
    std::string text = "# tracer: nop\n#\n";
    for (auto const& l : lines) {
        size_t a = l.find(' '), b = l.find(' ', a + 1);
        text += "  thread-" + l.substr(0, a) + " (  300) [000] .... " + l.substr(a + 1, b - a - 1) +
                ": tracing_mark_write: " + l.substr(b + 1) + "\n";
    }
    return text;
}

std::string const kV0 = "; sof 1000000000; tolerance 1000 us; mode 1; master";
std::string const kV1 = "; sof 1000100000; tolerance 1000 us; mode 1";

// Frame 5 passes; frame 6 is refused for a frame inversion the master's warning names; frame 7
// is flushed; camera 1 drops frame 8 itself. The pipeline's own sections wrap the library's.
std::vector<std::string> session() {
    std::vector<std::string> s = {"10 1.0 B|300|RyxSync session 7 cameras 0,1", "10 1.0 E|300"};
    for (int f = 5; f <= 7; ++f) {
        std::string n = std::to_string(f), t = "2." + n;
        std::string w0 = f == 5 ? "passed" : "dropped", w1 = w0;
        s.insert(s.end(), {"11 " + t + " B|300|processCaptureResult",
                           "11 " + t + " B|300|RyxSync f" + n + " cam0",
                           "12 " + t + " B|300|RyxSync f" + n + " cam1"});
        if (f == 6) {
            s.push_back("12 " + t +
                        " B|300|RyxSync W masterId(0), f(6) frame inversion:previous "
                        "master(0), f(9)");
            s.push_back("12 " + t + " E|300");
        }
        if (f == 7) {
            s.insert(s.end(), {"13 " + t + " B|300|RyxSync flush f7", "13 " + t + " E|300"});
        }
        s.insert(s.end(),
                 {"12 " + t + " B|300|RyxSync f" + n + " cam1 " + w1 + kV1, "12 " + t + " E|300",
                  "12 " + t + " E|300", "11 " + t + " B|300|RyxSync f" + n + " cam0 " + w0 + kV0,
                  "11 " + t + " E|300", "11 " + t + " E|300", "11 " + t + " E|300"});
    }
    s.insert(s.end(), {"12 2.8 B|300|RyxSync drop f8 cam1",
                       "12 2.8 B|300|RyxSync f8 cam1 dropped by its sensor; sof 0", "12 2.8 E|300",
                       "12 2.8 E|300"});
    return s;
}

Verdict verdictOf(Timeline const& t, int frame, int cam) {
    for (auto const& f : t.frames) {
        if (f.frame == frame && f.cell(cam) != nullptr) {
            return f.cell(cam)->verdict;
        }
    }
    return Verdict::NotRun;
}

}  // namespace

TEST(SystemTrace, TheLibrarysPointsAreReadAmongThePipelinesAndOtherProcesses) {
    std::vector<std::string> lines = session();
    lines.push_back("10 3.0 B|300|RyxSync session 7 end");
    lines.push_back("10 3.0 E|300");
    std::string text = atrace(lines) +
                       "  surfaceflinger-612 (  612) [001] .... 2.7: tracing_mark_write: "
                       "B|612|RyxSync f5 cam0 dropped; sof 1\n";
    std::vector<Timeline> t = readLogcat(text, "phone.trace");
    ASSERT_EQ(t.size(), 2u);  // the library's session, and one of process 612
    Timeline const& s = t[0];
    EXPECT_EQ(s.name, "session 7 of process 300");
    EXPECT_EQ(verdictOf(s, 5, 0), Verdict::InSync);
    EXPECT_EQ(verdictOf(s, 5, 1), Verdict::InSync);
    FrameRecord const* f6 = nullptr;
    for (auto const& f : s.frames) {
        f6 = f.frame == 6 ? &f : f6;
    }
    ASSERT_NE(f6, nullptr);
    EXPECT_EQ(f6->cell(1)->cause, DropCause::Refused);
    EXPECT_EQ(f6->refusal, Refusal::FrameInversion);
    EXPECT_TRUE(f6->cell(0)->master);
    EXPECT_EQ(*f6->cell(1)->sofNs - *f6->cell(0)->sofNs, 100000);
    EXPECT_EQ(verdictOf(s, 7, 0), Verdict::Dropped);
    EXPECT_EQ(s.flushes.size(), 1u);
    EXPECT_EQ(verdictOf(s, 8, 1), Verdict::Dropped);
    EXPECT_TRUE(s.capture.gaps.empty());
}

TEST(SystemTrace, WhatACutOrALossHidesIsUndeterminedAndNamedAtItsLine) {
    std::vector<std::string> lines = session();
    // The end is not shown: frames 6 and 7 may yet be flushed or dropped by the master.
    std::vector<Timeline> t = readLogcat(atrace(lines), "cut.trace");
    ASSERT_EQ(t.size(), 1u);
    EXPECT_EQ(verdictOf(t[0], 5, 0), Verdict::InSync);
    EXPECT_EQ(verdictOf(t[0], 6, 1), Verdict::Undetermined);
    EXPECT_EQ(verdictOf(t[0], 7, 1), Verdict::Dropped);  // its flush is in the trace
    ASSERT_EQ(t[0].capture.gaps.size(), 1u);
    EXPECT_EQ(t[0].capture.gaps[0].what, "the trace ends before this session does");
    EXPECT_EQ(t[0].capture.gaps[0].frames, std::vector<int>{6});

    // Without the creation and with a loss in frame 6: the start is not shown, the loss splits
    // what follows from what came before, and frame 6's cameras lost their verdicts.
    lines.erase(lines.begin(), lines.begin() + 2);
    auto lossAt = std::find_if(lines.begin(), lines.end(), [](std::string const& l) {
        return l.find("f6 cam1 dropped") != std::string::npos;
    });
    lines.erase(lossAt, lossAt + 6);
    std::string text = atrace(lines);
    text.insert(text.find("  thread-11 (  300) [000] .... 2.7"), "CPU:0 [LOST 6 EVENTS]\n");
    t = readLogcat(text, "lost.trace");
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(verdictOf(t[0], 5, 0), Verdict::InSync);
    EXPECT_EQ(verdictOf(t[0], 6, 0), Verdict::Undetermined);
    EXPECT_NE(t[0].description.find("the session started before the trace"), std::string::npos);
    EXPECT_EQ(t[0].capture.gaps.back().what,
              "the kernel lost 6 events here (its trace buffer "
              "was full)");
    EXPECT_EQ(t[0].capture.gaps.back().line, 19);  // the loss's own line
    EXPECT_NE(t[1].description.find("after lost events"), std::string::npos);
    EXPECT_EQ(verdictOf(t[1], 7, 0), Verdict::Dropped);
}

TEST(SystemTrace, ATraceWithoutTheLibrarySaysHowToRecordIt) {
    std::vector<Timeline> t = readLogcat(
        "# tracer: nop\n  surfaceflinger-612 (  612) [001] .... 2.7: tracing_mark_write: "
        "B|612|onMessageReceived\n",
        "other.trace");
    ASSERT_EQ(t.size(), 1u);
    ASSERT_FALSE(t[0].notes.empty());
    EXPECT_NE(t[0].notes.back().find("'atrace camera'"), std::string::npos);
}
