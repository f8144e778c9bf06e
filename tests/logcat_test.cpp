// synchelper-sim's log reader: line formats and noise, and what hand-made device captures
// explain (per-frame verdicts and causes, sessions, default level, fatal aborts, non-logs).

#include "sinks/Explanation.h"
#include "sinks/TextSink.h"
#include "sources/logcat/LogLine.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

using namespace ryxsim;

namespace {

std::string const kData = RYX_LOGCAT_DATA;

std::tuple<int, int, char, std::string, std::string> fields(LogLine const& l) {
    return {l.pid, l.tid, l.level, std::string(l.tag), std::string(l.message)};
}

using Cause = std::pair<Verdict, DropCause>;

Cause causeOf(FrameRecord const& f, int sensor) {
    CameraCell const* c = f.cell(sensor);
    return c ? Cause{c->verdict, c->cause} : Cause{Verdict::NotRun, DropCause::None};
}

FrameRecord const& frameOf(Timeline& t, int frame) {
    FrameRecord const* f = t.findFrame(frame);
    EXPECT_NE(f, nullptr) << "f" << frame;
    static FrameRecord const none;
    return f ? *f : none;
}

}  // namespace

TEST(LogLineFormats, EveryFormatYieldsTheSameFields) {
    std::string const msg = "(  50) [SyncQueue] 2020/01/14 - create type (15)";
    std::string const tag = "RyxCam/SyncQueue";
    struct Case {
        std::string line;
        int tid;
        int digits;
    } const cases[] = {
        {"11-22 21:48:47.438  1234  1301 D " + tag + ": " + msg, 1301, 3},
        {"2026-11-22 21:48:47.438  1234  1301 D " + tag + ": " + msg, 1301, 3},
        {"1795124927.438  1234  1301 D " + tag + ": " + msg, 1301, 3},
        {"11-22 21:48:47.438123 +0000  1047  1234  1301 D " + tag + ": " + msg, 1301, 6},
        {"11-22 21:48:47.438  cameraserver  1234  1301 D " + tag + ": " + msg + "\r", 1301, 3},
        {"11-22 21:48:47.438 D/" + tag + "( 1234): " + msg, -1, 3},
        {"11-22 21:48:47.438 D/" + tag + "( 1047: 1234): " + msg, -1, 3},
        {"11-22 21:48:47.438 D/" + tag + "(u0_a88: 1234): " + msg, -1, 3},
        {"D/" + tag + "( 1234): " + msg, -1, 0},
        {tag + " D 11-22 21:48:47  1234  1301 " + msg, 1301, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.line);
        LogLine l;
        ASSERT_TRUE(parseLogLine(c.line, l));
        EXPECT_EQ(fields(l), std::make_tuple(1234, c.tid, 'D', tag, msg));
        EXPECT_EQ(l.fractionDigits, c.digits);
        EXPECT_EQ(l.timeNs.has_value(), c.line[0] != 'D');
    }
    // Times: the same clock across a day and a month boundary, to the digit given.
    LogLine a, b;
    ASSERT_TRUE(parseLogLine("01-31 23:59:59.250  1 2 I T: x", a));
    ASSERT_TRUE(parseLogLine("02-01 00:00:01.000500  1 2 I T: y", b));
    EXPECT_EQ(*b.timeNs - *a.timeNs, 1750500000);
    // A tag holding parentheses in the time format; an empty message.
    ASSERT_TRUE(parseLogLine("11-22 21:48:47.438 W/a(b)c(  77): hi", a));
    EXPECT_EQ(fields(a), std::make_tuple(77, -1, 'W', std::string("a(b)c"), std::string("hi")));
    ASSERT_TRUE(parseLogLine("11-22 21:48:47.438  5  6 E Tag:", a));
    EXPECT_EQ(fields(a), std::make_tuple(5, 6, 'E', std::string("Tag"), std::string()));
    // Regression: a 'tag' line whose message ends in "(15)" was read as a brief line with an
    // empty message, so the queue's creation line was lost.
    std::string const tagLine = "D/" + tag + ": " + msg;
    ASSERT_TRUE(parseLogLine(tagLine, a));
    EXPECT_EQ(fields(a), std::make_tuple(-1, -1, 'D', tag, msg));
    // Regression: a 'process' line cut before its tag was no line at all, so the loss of the
    // updater's line it was went unseen.
    ASSERT_TRUE(parseLogLine("D( 1234) ( 14", a));
    EXPECT_EQ(fields(a), std::make_tuple(1234, -1, 'D', std::string(), std::string("( 14")));
    // Regression: a 'tag' line's tag kept logcat's padding, so logd's "chatty  " went unseen.
    ASSERT_TRUE(parseLogLine("I/chatty  : uid=1047(cameraserver) expire 3 lines", a));
    EXPECT_EQ(a.tag, "chatty");
}

TEST(LogLineFormats, NoiseIsNoLine) {
    for (char const* noise :
         {"", "\r", "--------- beginning of main", "random text",
          "11-22 21:48:47.549  1234  1301 D RyxCam/SyncHel", "11-22 21:4",
          "13-40 21:48:47.438  1 2 D T: month 13", "11-22 21:48:47.43  1 2 D T: two digits",
          "D/T 1234 no colon", "T X 11-22 21:48:47  1  2 not a level",
          "( 12 ) [f] not the library's frame", "D( x) no ids"}) {
        LogLine l;
        EXPECT_FALSE(parseLogLine(noise, l)) << noise;
    }
}

// A debug-level capture with other processes' lines, separators, CRLF, unknown texts of our
// tags and a cut last line: every frame is rebuilt.
TEST(LogcatCaptures, DebugCaptureGivesEveryFramesCause) {
    auto sessions = readLogcatFile(kData + "/threadtime_debug_noisy.txt");
    ASSERT_EQ(sessions.size(), 1u);
    Timeline& t = sessions[0];
    EXPECT_EQ(t.capture.pid, 1234);
    EXPECT_EQ(t.clock, "log clock, resolution 1 ms");
    EXPECT_TRUE(t.fatal.empty());

    Cause const inSync{Verdict::InSync, DropCause::None};
    Cause const outOfSync{Verdict::OutOfSync, DropCause::None};
    for (int s : {0, 1, 2}) {
        SCOPED_TRACE(s);
        EXPECT_EQ(causeOf(frameOf(t, 0), s), inSync);
        EXPECT_EQ(causeOf(frameOf(t, 14), s), outOfSync);
        EXPECT_EQ(causeOf(frameOf(t, 65), s),
                  (s == 2 ? Cause{Verdict::Dropped, DropCause::Own} : inSync));
        EXPECT_EQ(causeOf(frameOf(t, 240), s), (Cause{Verdict::Dropped, DropCause::Flush}));
        EXPECT_EQ(causeOf(frameOf(t, 450), s),
                  (Cause{Verdict::Dropped, s == 2 ? DropCause::Own : DropCause::MasterDrop}));
    }
    FrameRecord const& f14 = frameOf(t, 14);
    EXPECT_EQ(f14.firstTarget, 2);
    EXPECT_EQ(f14.toleranceUs, 1000);
    EXPECT_EQ(f14.sofOffsetNs(0), 1458932101 - 1466649669);
    // The frame that completed f0, its master and its crop override.
    FrameRecord const& f0 = frameOf(t, 0);
    EXPECT_TRUE(f0.cell(2)->completed && !f0.cell(0)->completed && !f0.cell(1)->completed);
    EXPECT_TRUE(f0.cell(0)->master);
    EXPECT_EQ(f0.cell(1)->cropOverride, (NSCam::MRect{0, 0, 3264, 2448}));
    ASSERT_TRUE(f0.cell(1)->arriveNs && f0.cell(1)->releaseNs);
    EXPECT_LE(*f0.cell(1)->arriveNs, *f0.cell(1)->releaseNs);
    // The capture ends in a cut line of camera 0's thread while f599 waits: what camera 0 did
    // there (f598's drop check on its way out, or its f599 call) is not in the capture, so both
    // are undetermined, not "camera 0 never came".
    FrameRecord const& f599 = frameOf(t, 599);
    EXPECT_EQ(f599.neverCame, std::vector<int>{});
    EXPECT_EQ(causeOf(f599, 1).first, Verdict::Undetermined);
    ASSERT_EQ(t.capture.gaps.size(), 1u);
    EXPECT_EQ(t.capture.gaps[0].line, 147);
    EXPECT_EQ(t.capture.gaps[0].frames, (std::vector<int>{598, 599}));
    ASSERT_EQ(t.masterDrops.size(), 1u);
    EXPECT_EQ(std::make_pair(t.masterDrops[0].frame, t.masterDrops[0].sensor),
              std::make_pair(450, 2));
    EXPECT_EQ(t.findFrame(9999), nullptr);  // a line of our tag in an unknown shape

    std::ostringstream text;
    writeText(text, t);
    for (char const* line :
         {"  f240   flushed: dropped for camera 0, camera 1 and camera 2 [lines 93-107, 11-22 "
          "21:48:47.492]\n",
          "  f450   dropped by the master: camera 2 (master) dropped it, so it failed on camera 0 "
          "and camera 1 [lines 109-124, 11-22 21:48:47.527]\n",
          "  f599   undetermined on camera 1 and camera 2: the capture may not hold all its lines "
          "(line 147: a library line cut short) [lines 140-146, 11-22 21:48:47.549]\n",
          "gaps in the capture: 1\n  line 147: a library line cut short; 2 frames touched: "
          "f598-f599\n",
          // Against the camera that started first, whichever arrived first: both others are
          // out of tolerance of camera 0.
          "  f14    out of sync: camera 2 started 7.7 ms after camera 0, camera 1 started 7.8 ms "
          "after camera 0, tolerance 1.0 ms, mode not in the log -> RESULT 1 (delivered, flagged) "
          "or 2 (failed) on all 3 [lines 63-79, 11-22 21:48:47.456]\n",
          "frames that did not pass or passed flagged: 6\n"}) {
        EXPECT_NE(text.str().find(line), std::string::npos) << line << text.str();
    }
}

// Warnings only, two processes: two sessions, out-of-sync frames with their skews and an
// inversion, and a plain word that the rest was not logged.
TEST(LogcatCaptures, DefaultLevelShowsWhatItCanAndSaysWhatItCannot) {
    auto sessions = readLogcatFile(kData + "/time_default_two_processes.txt");
    ASSERT_EQ(sessions.size(), 2u);
    EXPECT_EQ(std::make_pair(sessions[0].capture.pid, sessions[1].capture.pid),
              std::make_pair(2001, 2002));
    for (auto& t : sessions) {
        ASSERT_FALSE(t.notes.empty());
        EXPECT_EQ(t.notes[0].rfind("only warnings and errors in this capture", 0), 0u);
        for (auto const& f : t.frames) {
            EXPECT_TRUE(unpassed(f)) << "f" << f.frame << " passed, yet only warnings exist";
        }
    }
    EXPECT_EQ(sessions[0].frames.size(), 5u);
    Timeline& two = sessions[1];
    FrameRecord const& f127 = frameOf(two, 127);
    EXPECT_EQ(f127.firstTarget, 1);
    EXPECT_EQ(f127.sofOffsetNs(0), 5233175471 - 5228352936);
    EXPECT_EQ(causeOf(f127, 0).first, Verdict::OutOfSync);
    EXPECT_EQ(frameOf(two, 150).refusal, Refusal::TimeInversion);
    ASSERT_EQ(two.timeInversions.size(), 1u);
    EXPECT_EQ(two.timeInversions[0].master, 1);
    EXPECT_EQ(causeOf(frameOf(two, 150), 1), (Cause{Verdict::Dropped, DropCause::Refused}));
}

// A session that hangs on its first frame: the cameras it was created with say who never came.
TEST(LogcatCaptures, AFrameStillWaitingNamesTheCameraThatNeverCame) {
    auto sessions = readLogcatFile(kData + "/threadtime_first_frame_waits.txt");
    ASSERT_EQ(sessions.size(), 1u);
    FrameRecord const& f0 = frameOf(sessions[0], 0);
    EXPECT_EQ(f0.neverCame, std::vector<int>{2});
    EXPECT_EQ(explainFrame(sessions[0], f0),
              "still waiting when the capture ended: camera 0 and camera 1 came, camera 2 "
              "never did");
    EXPECT_EQ(sessions[0].neverCompleted, std::vector<int>{0});
}

TEST(LogcatCaptures, FatalAbortsAreToldAsTheRuleTheyBroke) {
    auto dup = readLogcatFile(kData + "/host_fatal_duplicate.txt");
    ASSERT_EQ(dup.size(), 1u);
    EXPECT_EQ(dup[0].fatal, "camera 2 entered frame 37 twice");
    EXPECT_EQ(dup[0].fatalText.rfind("(input) Duplicate insert! frameno(37) input cam(2)", 0), 0u);
    EXPECT_EQ(dup[0].clock, "log clock, resolution 1 s");
    EXPECT_EQ(causeOf(frameOf(dup[0], 36), 2).first, Verdict::InSync);

    auto flight = readLogcatFile(kData + "/brief_fatal_in_flight.txt");
    ASSERT_EQ(flight.size(), 1u);
    EXPECT_EQ(flight[0].fatal,
              "an 11th frame (f40) was put in flight while frames 30-39 waited for camera 1");
    EXPECT_EQ(flight[0].clock, "log clock, resolution none (no times in this format)");
    EXPECT_EQ(frameOf(flight[0], 35).neverCame, std::vector<int>{1});
    std::ostringstream text;
    writeText(text, flight[0]);
    EXPECT_NE(text.str().find("  the library aborted the process: an 11th frame (f40) was put in "
                              "flight while frames 30-39 waited for camera 1\n"),
              std::string::npos);
}

TEST(LogcatCaptures, ANonLogIsAnErrorWithItsLineAndNoiseAloneIsNoSession) {
    try {
        readLogcatFile(kData + "/not_a_log.csv");
        FAIL() << "no error";
    } catch (ParseError const& e) {
        EXPECT_EQ(std::string(e.what()), kData +
                                             "/not_a_log.csv:1: not an Android log line (expected "
                                             "a logcat capture in any of its "
                                             "formats, or the host liblog format)");
    }
    EXPECT_THROW(readLogcat("", "empty.txt"), ParseError);
    EXPECT_THROW(readLogcat(std::string("\x7f"
                                        "ELF\0\0\1",
                                        7),
                            "bin"),
                 ParseError);
    auto none = readLogcat("--------- beginning of main\n11-22 21:48:47.438  1  2 I Other: x\n",
                           "other.txt");
    ASSERT_EQ(none.size(), 1u);
    EXPECT_TRUE(none[0].frames.empty());
    EXPECT_EQ(none[0].notes, std::vector<std::string>{
                                 "no line of the library's tags (RyxCam/...) in this capture"});
}
