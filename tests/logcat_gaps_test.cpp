// What a capture may have lost, read back from a simulated run's own log: logd's chatty lines, a
// capture that starts mid-session or ends in a call, time going back. Each gap is named at its
// capture line, the frames it touches are marked, no frame is called in sync that the run did not
// pass in sync, and every frame the gap did not touch reads as the run gave it. (Lines cut short,
// mid-capture or last, are the ground-truth judge's, which holds every gap to a real loss.)

#include "SimulatedCapture.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

using namespace ryxsim;
using namespace ryxtest;

namespace {

constexpr int kFirstEntryLine = 2;  // after "--------- beginning of main"

size_t firstEntryOf(std::vector<LogEntry> const& entries, int frame) {
    std::string const key = "[f" + std::to_string(frame) + "]";
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].message.find(key) != std::string::npos) {
            return i;
        }
    }
    ADD_FAILURE() << "no entry of f" << frame;
    return 0;
}

// The first line that drops a frame of a camera that called for it: what a lost line can hide.
// Which of them a run writes depends on when each camera came; a sensor's own drop is always
// there.
size_t firstDropEntry(std::vector<LogEntry> const& entries, int& frame) {
    for (std::regex const& drop : {std::regex(R"(need drop frame\((\d+)\))"),
                                   std::regex(R"(frame\((\d+)\) is equal to DROP)"),
                                   std::regex(R"(Frame:(\d+) Update cameraDropList)"),
                                   std::regex(R"(Frame:(\d+) Drop slave)")}) {
        for (size_t i = 0; i < entries.size(); ++i) {
            std::smatch m;
            if (std::regex_search(entries[i].message, m, drop)) {
                frame = std::stoi(m[1]);
                return i;
            }
        }
    }
    ADD_FAILURE() << "the run drops no frame";
    return 0;
}

Timeline readOne(std::string const& text) {
    auto sessions = readLogcat(text, "capture");
    EXPECT_EQ(sessions.size(), 1u);
    return sessions.at(0);
}

CaptureGap const* gapNamed(Timeline const& t, std::string const& words) {
    for (auto const& g : t.capture.gaps) {
        if (g.what.find(words) != std::string::npos) {
            return &g;
        }
    }
    ADD_FAILURE() << "no gap says '" << words << "'";
    return nullptr;
}

// Never a wrong "in sync"; outside the frames the gaps touched, the run's own verdicts.
void expectHonest(Timeline const& t) {
    Verdicts const want = verdictsOf(debugRun().timeline);
    std::set<int> touched;
    for (auto const& g : t.capture.gaps) {
        touched.insert(g.frames.begin(), g.frames.end());
    }
    for (auto const& [cell, v] : verdictsOf(t)) {
        auto it = want.find(cell);
        ASSERT_NE(it, want.end()) << "f" << cell.first << " camera " << cell.second;
        if (v == Verdict::InSync || touched.count(cell.first) == 0) {
            EXPECT_EQ(v, it->second) << "f" << cell.first << " camera " << cell.second;
        }
    }
}

}  // namespace

TEST(LogcatGaps, LogdsChattyLinesMarkTheFramesTheyTook) {
    for (std::string said : {"expire 40 lines", "identical 40 lines"}) {
        SCOPED_TRACE(said);
        std::vector<LogEntry> entries = debugRun().entries;
        int dropped = 0;
        size_t at = firstDropEntry(entries, dropped) - 20;
        LogEntry chatty = entries[at];
        entries.erase(entries.begin() + static_cast<long>(at),
                      entries.begin() + static_cast<long>(at + 40));
        chatty.tag = "chatty";
        chatty.priority = ANDROID_LOG_INFO;
        chatty.message = "uid=1047(cameraserver) CameraThread " + said;
        entries.insert(entries.begin() + static_cast<long>(at), chatty);

        Timeline t = readOne(formatCapture(entries, {"threadtime"}));
        CaptureGap const* gap = gapNamed(t, "logd left lines out (\"chatty: " + said + "\")");
        ASSERT_NE(gap, nullptr);
        EXPECT_EQ(gap->line, static_cast<int>(at) + kFirstEntryLine);
        // The frame whose drop was taken out is marked, or has no line left at all.
        Timeline& read = t;
        EXPECT_TRUE(read.findFrame(dropped) == nullptr ||
                    std::find(gap->frames.begin(), gap->frames.end(), dropped) != gap->frames.end())
            << "f" << dropped << " " << gap->what;
        expectHonest(t);
    }
}

// Chatty lines of another process say nothing of this session.
TEST(LogcatGaps, ChattyLinesOfAnotherProcessAreNoGap) {
    std::vector<LogEntry> entries = debugRun().entries;
    size_t at = firstEntryOf(entries, 100);
    LogEntry chatty = entries[at];
    chatty.pid += 1;
    chatty.tag = "chatty";
    chatty.message = "uid=1000(system) Binder:12_3 expire 12 lines";
    entries.insert(entries.begin() + static_cast<long>(at), chatty);
    Timeline t = readOne(formatCapture(entries, {"threadtime"}));
    EXPECT_TRUE(t.capture.gaps.empty());
    EXPECT_EQ(verdictsOf(t), verdictsOf(debugRun().timeline));
}

TEST(LogcatGaps, ACaptureStartingMidSessionMarksItsFirstFrames) {
    std::vector<LogEntry> entries = debugRun().entries;
    int dropped = 0;
    firstDropEntry(entries, dropped);
    size_t at = firstEntryOf(entries, dropped) + 2;  // inside the calls of a frame to be dropped
    entries.erase(entries.begin(), entries.begin() + static_cast<long>(at));
    Timeline t = readOne(formatCapture(entries, {"threadtime"}));
    CaptureGap const* gap = gapNamed(t, "the capture starts after the session did");
    ASSERT_NE(gap, nullptr);
    EXPECT_EQ(gap->line, kFirstEntryLine);
    EXPECT_NE(std::find(gap->frames.begin(), gap->frames.end(), dropped), gap->frames.end());
    expectHonest(t);
}

// A capture that stops right after a camera entered its call, before the call reached its
// rendezvous: the call is under way, not a flushed arrival, and the frame is one the end left
// open. (Found when a cut line of one thread came just after another thread's entry line.)
TEST(LogcatGaps, ACallCutOnItsWayToTheRendezvousIsLeftOpenByTheEnd) {
    std::vector<LogEntry> entries = debugRun().entries;
    size_t entry = firstEntryOf(entries, 100);
    ASSERT_NE(entries[entry].message.find("[syncResultCheck] [f100] +"), std::string::npos);
    entries.resize(entry + 1);
    Timeline t = readOne(formatCapture(entries, {"threadtime"}));
    CaptureGap const* gap = gapNamed(t, "the capture ends with");
    ASSERT_NE(gap, nullptr);
    EXPECT_NE(std::find(gap->frames.begin(), gap->frames.end(), 100), gap->frames.end());
    FrameRecord const* f = t.findFrame(100);
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(f->cells.size(), 1u);
    EXPECT_EQ(f->cells[0].verdict, Verdict::Undetermined);
    EXPECT_NE(f->undeterminedWhy.find("on its way to the rendezvous"), std::string::npos);
    expectHonest(t);
}

TEST(LogcatGaps, TimeGoingBackIsNamedWithItsLine) {
    std::vector<LogEntry> entries = debugRun().entries;
    int dropped = 0;
    size_t at = firstDropEntry(entries, dropped);
    for (size_t i = at; i < entries.size(); ++i) {
        entries[i].sec -= 30;
    }
    Timeline t = readOne(formatCapture(entries, {"threadtime"}));
    CaptureGap const* gap = gapNamed(t, "the log's time goes back by ");
    ASSERT_NE(gap, nullptr);
    // The step is measured from the latest time read so far: 30 s less the time between the two
    // lines, or more where threads stamped their lines out of order (more so on a loaded machine).
    double const back = std::stod(gap->what.substr(gap->what.find(" by ") + 4));
    EXPECT_GT(back, 29.0) << gap->what;
    EXPECT_LT(back, 31.0) << gap->what;
    EXPECT_EQ(gap->line, static_cast<int>(at) + kFirstEntryLine);
    EXPECT_NE(std::find(gap->frames.begin(), gap->frames.end(), dropped), gap->frames.end());
    expectHonest(t);
}

// Every explained frame can be found in the capture: its first line names it, at the log time
// the report gives.
TEST(LogcatGaps, ExplainedFramesCarryTheirCaptureLinesAndLogTime) {
    for (std::vector<std::string> formats : std::vector<std::vector<std::string>>{
             {"threadtime"}, {"threadtime", "monotonic", "usec"}, {"long", "year"}}) {
        std::string text = formatCapture(debugRun().entries, formats);
        std::vector<std::string> lines = linesOf(text);
        Timeline t = readOne(text);
        auto unpassed = unpassedFrames(t);
        ASSERT_GT(unpassed.size(), 5u);
        for (FrameRecord const* f : unpassed) {
            ASSERT_TRUE(f->firstLine && f->lastLine) << "f" << f->frame;
            ASSERT_LT(static_cast<size_t>(*f->lastLine), lines.size());
            EXPECT_LE(*f->firstLine, *f->lastLine);
            // 'long' puts the time on the header line before the message.
            bool longFormat = formats[0] == "long";
            std::string const& header = lines[*f->firstLine - (longFormat ? 1 : 0)];
            EXPECT_NE(lines[*f->firstLine].find(std::to_string(f->frame)), std::string::npos)
                << lines[*f->firstLine];
            EXPECT_NE(header.find(t.logTime(*f)), std::string::npos)
                << t.logTime(*f) << " not on " << header;
        }
    }
}
