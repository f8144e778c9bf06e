// Random sessions through the real library, their own log printed as phones print it and changed
// as real captures are, read back by the log reader, and every statement of the diagnosis judged
// against what really happened. RYX_TRUTH_SEEDS=FIRST:COUNT picks the seeds (a campaign runs
// thousands: scripts/truth-campaign.sh). A failure names its seed: RYX_TRUTH_SEEDS=SEED:1 runs
// the same sessions again (their calls in trace order), though the threads' lines may interleave
// otherwise in the log, so RYX_TRUTH_KEEP=DIR keeps the capture of every case that failed.
// Each capture is also followed as it is written, and must tell what it tells read whole.

#include "SeenCell.h"
#include "TruthJudge.h"
#include "sinks/Explanation.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

using namespace ryxtest;

namespace {

// Per format and level: what was said, what was false, what the capture could decide and did.
struct Tally {
    size_t cases = 0, statements = 0, falseOnes = 0, decidable = 0, decided = 0;
    std::map<std::string, size_t> unknowns;
};

void printTallies(std::map<std::string, Tally> const& tallies, double seconds) {
    Tally all;
    std::printf("%-12s %5s %6s %10s %6s %10s %8s  %s\n", "format", "level", "cases", "statements",
                "false", "decidable", "decided", "undetermined, by what is lacking");
    for (auto const& [key, t] : tallies) {
        std::string unknown;
        for (auto const& [why, n] : t.unknowns) {
            unknown += (unknown.empty() ? "" : "; ") + std::to_string(n) + " " + why;
            all.unknowns[why] += n;
        }
        std::printf("%-18s %6zu %10zu %6zu %10zu %7.1f%%  %s\n", key.c_str(), t.cases, t.statements,
                    t.falseOnes, t.decidable, t.decidable ? 100.0 * t.decided / t.decidable : 100.0,
                    unknown.c_str());
        all.cases += t.cases;
        all.statements += t.statements;
        all.falseOnes += t.falseOnes;
    }
    std::printf("sessions judged: %zu cases, %zu statements, %zu false, in %.1f s\n", all.cases,
                all.statements, all.falseOnes, seconds);
}

bool holdsLibraryLine(Capture const& c) {
    return std::any_of(c.origin.begin(), c.origin.end(),
                       [](LineOrigin const& o) { return o.session >= 0; });
}

void keep(uint64_t seed, Capture const& c) {
    if (char const* dir = std::getenv("RYX_TRUTH_KEEP")) {
        std::ofstream(std::string(dir) + "/truth-" + std::to_string(seed) + ".txt",
                      std::ios::binary)
            << c.text;
    }
}

// What a report says of its sessions, frame by frame: each camera's cell, each not passed
// frame's explanation with its lines, each gap, each note.
std::vector<std::string> storyOf(std::vector<ryxsim::Timeline> const& sessions) {
    std::vector<std::string> story;
    for (auto const& t : sessions) {
        story.push_back("session of " + std::to_string(t.frameCount) + " frames");
        for (auto const& f : t.frames) {
            for (auto const& c : f.cells) {
                Seen seen = seenOf(f, c);
                story.push_back("f" + std::to_string(f.frame) + " camera " +
                                std::to_string(c.sensor) + ": " +
                                std::to_string(static_cast<int>(seen.verdict)) + "/" +
                                std::to_string(static_cast<int>(seen.cause)) + "/" +
                                std::to_string(static_cast<int>(seen.refusal)));
            }
            if (unpassed(f)) {
                story.push_back(ryxsim::explainFrame(t, f) + " @" +
                                std::to_string(f.firstLine.value_or(0)) + "-" +
                                std::to_string(f.lastLine.value_or(0)));
            }
        }
        for (auto const& g : t.capture.gaps) {
            story.push_back("gap at " + std::to_string(g.line) + ": " + g.what + ", " +
                            std::to_string(g.frames.size()) + " frames");
        }
        story.insert(story.end(), t.notes.begin(), t.notes.end());
    }
    return story;
}

// Followed as it is written, a capture tells the story it tells read whole, and each frame is
// handed over once, a frame that did not pass with the report's explanation.
void expectFollowedAsWhole(uint64_t seed, Capture const& capture,
                           std::vector<ryxsim::Timeline> const& whole) {
    // One file a process: ctest runs this binary's tests side by side.
    std::string path = testing::TempDir() + "truth-followed-" + std::to_string(::getpid()) + ".txt";
    std::ofstream(path, std::ios::binary) << capture.text;
    size_t handed = 0;
    std::vector<std::string> explained, wholeExplained;
    ryxsim::FollowOptions follow;
    follow.folded = [&](ryxsim::Timeline const& t, ryxsim::FrameRecord const& f) {
        ++handed;
        if (unpassed(f)) {
            explained.push_back(ryxsim::explainFrame(t, f));
        }
    };
    std::vector<ryxsim::Timeline> followed = ryxsim::readLogcatFile(path, "capture", &follow);
    std::remove(path.c_str());
    size_t frames = 0;
    for (auto const& t : whole) {
        frames += static_cast<size_t>(t.frameCount);
        for (ryxsim::FrameRecord const* f : unpassedFrames(t)) {
            wholeExplained.push_back(ryxsim::explainFrame(t, *f));
        }
    }
    std::sort(explained.begin(), explained.end());
    std::sort(wholeExplained.begin(), wholeExplained.end());
    std::string const where =
        "seed " + std::to_string(seed) + " (" + capture.form.describe() + ") followed";
    EXPECT_EQ(storyOf(followed), storyOf(whole)) << where;
    EXPECT_EQ(handed, frames) << where;
    EXPECT_EQ(explained, wholeExplained) << where;
}

// Each frame's time is given back as its first line shows it ('long': on the header before it),
// whatever the format prints: a date with or without its year and zone, seconds since the epoch
// or since boot, in ms, us or ns.
void expectTimesAsShown(uint64_t seed, Capture const& capture,
                        std::vector<ryxsim::Timeline> const& report) {
    if (capture.form.utf16) {
        return;  // its lines are not the text's
    }
    std::vector<std::string> lines{""};
    std::istringstream in(capture.text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    bool longFormat = capture.form.formats[0] == "long";
    for (auto const& t : report) {
        for (auto const& f : t.frames) {
            std::string time = t.logTime(f);
            if (time.empty() || !f.firstLine) {
                continue;
            }
            size_t at = static_cast<size_t>(*f.firstLine - (longFormat ? 1 : 0));
            ASSERT_LT(at, lines.size());
            EXPECT_NE(lines[at].find(time), std::string::npos)
                << "seed " << seed << " (" << capture.form.describe() << "): f" << f.frame << " at "
                << time << ", its line " << at << " shows " << lines[at];
        }
    }
}

// One case: the seed's sessions, their capture, the report read from it, judged. Failures are
// added to the running test; the figures go to `tallies`.
void judgeSeed(uint64_t seed, std::map<std::string, Tally>& tallies) {
    std::mt19937_64 rng(seed * 7919);
    CaptureForm form = randomForm(rng);
    TrueProcessLog truth = runTrueSessions(seed, captureStartSec(form, rng));
    crossMidSession(truth, form, seed);
    Capture capture = makeCapture(truth, form, rng);
    std::vector<ryxsim::Timeline> report;
    try {
        report = ryxsim::readLogcat(capture.text, "capture");
    } catch (std::exception const& e) {
        if (!holdsLibraryLine(capture) && (!form.otherLines || form.formats[0] == "raw")) {
            return;  // no log line to read (raw text is no log line unless it is ours)
        }
        keep(seed, capture);
        ADD_FAILURE() << "seed " << seed << " (" << form.describe() << "): " << e.what();
        return;
    }
    Judgement j = judge(truth, capture, report);
    expectFollowedAsWhole(seed, capture, report);
    expectTimesAsShown(seed, capture, report);
    Tally& t = tallies[form.formats[0] + " " + std::to_string(form.level)];
    ++t.cases;
    t.statements += j.statements;
    t.falseOnes += j.falseOnes.size();
    t.decidable += j.decidable;
    t.decided += j.decided;
    for (auto const& [why, n] : j.unknowns) {
        t.unknowns[why] += n;
    }
    if (!j.falseOnes.empty()) {
        keep(seed, capture);
        std::string first;
        for (size_t i = 0; i < j.falseOnes.size() && i < 5; ++i) {
            first += "\n  " + j.falseOnes[i];
        }
        ADD_FAILURE() << "seed " << seed << " (" << form.describe() << "), "
                      << truth.sessions.size() << " sessions: " << j.falseOnes.size()
                      << " false statements" << first;
    }
}

}  // namespace

TEST(DiagnosisTruth, EveryStatementOfTheDiagnosisIsTrue) {
    SeedRange seeds = seedsFrom("RYX_TRUTH_SEEDS", 150);
    std::map<std::string, Tally> tallies;
    auto start = std::chrono::steady_clock::now();
    for (uint64_t seed = seeds.first; seed < seeds.first + seeds.count; ++seed) {
        judgeSeed(seed, tallies);
    }
    printTallies(tallies,
                 std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

// Seeds of the long campaign that each found a fault, kept so that it stays found.
TEST(DiagnosisTruth, SeedsThatFoundAFaultStayTrue) {
    struct Found {
        uint64_t seed;
        char const* fault;
    } const found[] = {
        {969, "a camera waiting in a master drop read as flushed once the drop's list was lost"},
        {2222, "two sessions' frames of one number fused: a missing time after a check"},
        {2294, "the same in a raw capture, whose refusal lines show no level"},
        {2348, "a call of another session taken for one never made"},
        {3238, "an inversion before the check of the same frame read as one session"},
        {6033, "a camera named in a refused frame's drop list read as in sync"},
        {4397, "a missing time given to the frame named before a cut line"},
        {9779, "a 'process' line cut before its tag taken for no line"},
        {4179, "a frame an earlier gap touched said to be cut by the capture's end"},
        {7963, "a frame dropped while live called flushed when the dropper's next line is lost"},
        {9168, "the destructor's cut line taken to touch the last frame"},
        {8024, "the same live drop without thread ids, its process gone after it"},
        {3905, "the last check before a reconnect, without the master it dropped, read in sync"},
        {4629, "two sessions fused at info level where the second's creation line was cut"},
        {2775, "sync switched off read as a flush next to a frame whose calls the end cut"},
    };
    std::map<std::string, Tally> tallies;
    for (auto const& f : found) {
        SCOPED_TRACE(f.fault);
        judgeSeed(f.seed, tallies);
    }
}
