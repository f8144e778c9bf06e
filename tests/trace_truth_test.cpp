// Random sessions through the real library with its system-trace points on, the trace printed
// as atrace prints it and changed as real traces are (other processes' events around the
// library's, a trace that starts or ends mid-session, events the kernel lost), read back by
// `explain`, and every camera's verdict judged against what the run itself decided.
// RYX_TRACE_TRUTH_SEEDS=FIRST:COUNT picks the seeds.

#include "TruthSessions.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <tuple>

using namespace ryxtest;
using ryxsim::CameraCell;
using ryxsim::Timeline;
using ryxsim::Verdict;

namespace {

enum class Change { None, OtherProcesses, CutStart, CutEnd, LostEvents };
constexpr Change kChanges[] = {Change::None, Change::OtherProcesses, Change::CutStart,
                               Change::CutEnd, Change::LostEvents};
char const* changeName(Change c) {
    static char const* const names[] = {"whole", "other processes", "cut start", "cut end",
                                        "lost events"};
    return names[static_cast<int>(c)];
}

// The sessions' traces as one: the header once, then every session's lines.
std::vector<std::string> traceLines(TrueProcessLog const& truth, std::string& header) {
    std::vector<std::string> lines;
    for (auto const& s : truth.sessions) {
        std::istringstream in(s.systemTrace);
        for (std::string l; std::getline(in, l);) {
            if (!l.empty() && l[0] == '#') {
                header += lines.empty() && truth.sessions.front().systemTrace == s.systemTrace
                              ? l + "\n"
                              : "";
            } else {
                lines.push_back(l);
            }
        }
    }
    return lines;
}

// Lines of processes other than the library's, as a phone's trace holds them.
std::vector<std::string> otherLines(std::mt19937_64& rng, std::string const& near) {
    std::string stamp = near.substr(near.find("] ") + 2);
    stamp = stamp.substr(stamp.find(' ') + 1);
    stamp = stamp.substr(0, stamp.find(':'));
    int pid = 600 + static_cast<int>(rng() % 50);
    std::string head = "   surfaceflinge-" + std::to_string(pid) + "   (" + std::to_string(pid) +
                       ") [001] .... " + stamp + ": ";
    return {head + "tracing_mark_write: B|" + std::to_string(pid) + "|onMessageReceived 1234",
            head + "sched_switch: prev_comm=surfaceflinger prev_pid=612 next_comm=swapper/1",
            head + "tracing_mark_write: C|" + std::to_string(pid) + "|VSYNC-app|1",
            head + "tracing_mark_write: E|" + std::to_string(pid)};
}

std::string changed(std::vector<std::string> lines, std::string const& header, Change c,
                    std::mt19937_64& rng) {
    auto at = [&](size_t n) { return n == 0 ? 0 : static_cast<size_t>(rng() % n); };
    if (c == Change::OtherProcesses) {
        for (int n = 0; n < 40 && !lines.empty(); ++n) {
            size_t i = at(lines.size());
            auto other = otherLines(rng, lines[i]);
            lines.insert(lines.begin() + static_cast<long>(i), other.begin(), other.end());
        }
    } else if (c == Change::CutStart) {
        lines.erase(lines.begin(), lines.begin() + static_cast<long>(at(lines.size())));
    } else if (c == Change::CutEnd) {
        lines.resize(at(lines.size()) + 1);
    } else if (c == Change::LostEvents && !lines.empty()) {
        size_t i = at(lines.size());
        size_t n = std::min(lines.size() - i, size_t{1} + at(40));
        lines.erase(lines.begin() + static_cast<long>(i), lines.begin() + static_cast<long>(i + n));
        lines.insert(lines.begin() + static_cast<long>(i), "CPU:1 [LOST 57 EVENTS]");
    }
    std::string text = header;
    for (auto const& l : lines) {
        text += l + "\n";
    }
    return text;
}

struct Tally {
    size_t cells = 0, undetermined = 0;
    std::vector<std::string> falseOnes;
};

std::string where(uint64_t seed, Change c, Timeline const& t, int frame, int cam) {
    return "seed " + std::to_string(seed) + " (" + changeName(c) + "), " + t.name + ", f" +
           std::to_string(frame) + " camera " + std::to_string(cam) + ": ";
}

// A reported cell against the run's own.
void judgeCell(CameraCell const& said, CameraCell const& real, ryxsim::FrameRecord const& sf,
               ryxsim::FrameRecord const& rf, std::string const& at, Tally& tally) {
    if (said.verdict != real.verdict || said.cause != real.cause) {
        tally.falseOnes.push_back(at + "said " + verdictName(said.verdict) + "/" +
                                  dropCauseName(said.cause) + ", was " + verdictName(real.verdict) +
                                  "/" + dropCauseName(real.cause));
    } else if (said.cause == ryxsim::DropCause::Refused && sf.refusal != rf.refusal) {
        tally.falseOnes.push_back(at + "refusal said " + refusalName(sf.refusal) + ", was " +
                                  refusalName(rf.refusal));
    } else if (said.master != real.master || said.sofNs != real.sofNs) {
        tally.falseOnes.push_back(at + "master or start of frame differs");
    }
}

// Every cell of `report` against `truth`; with nothing lost, every cell of the truth is there
// and decided.
void judgeSession(Timeline const& report, Timeline const& truth, uint64_t seed, Change c,
                  Tally& tally) {
    bool whole = c == Change::None || c == Change::OtherProcesses;
    size_t reported = 0;
    for (auto const& f : report.frames) {
        ryxsim::FrameRecord const* real = nullptr;
        for (auto const& r : truth.frames) {
            real = r.frame == f.frame ? &r : real;
        }
        std::map<int, int> seen;  // a camera's drop and check of one frame, in order
        for (auto const& cell : f.cells) {
            ++tally.cells;
            ++reported;
            std::string at = where(seed, c, report, f.frame, cell.sensor);
            int nth = seen[cell.sensor]++;
            CameraCell const* realCell = nullptr;
            for (size_t i = 0; real != nullptr && i < real->cells.size(); ++i) {
                if (real->cells[i].sensor == cell.sensor && nth-- == 0) {
                    realCell = &real->cells[i];
                }
            }
            if (realCell == nullptr) {
                tally.falseOnes.push_back(at + "a call the run never made");
            } else if (cell.verdict == Verdict::Undetermined) {
                ++tally.undetermined;
                if (whole) {
                    tally.falseOnes.push_back(
                        at + "undetermined in a whole trace: " + f.undeterminedWhy);
                }
            } else {
                judgeCell(cell, *realCell, f, *real, at, tally);
            }
        }
    }
    size_t real = 0;
    for (auto const& r : truth.frames) {
        real += r.cells.size();
    }
    if (whole && reported != real) {
        tally.falseOnes.push_back("seed " + std::to_string(seed) + " (" + changeName(c) + "), " +
                                  report.name + ": " + std::to_string(reported) + " of " +
                                  std::to_string(real) + " calls shown");
    }
}

// The run's session that shares the most of `report`'s calls (frame, camera and start of frame,
// which the scenario's jitter makes its own): a changed trace may hold part of a session, or a
// session split where events were lost. Calls whose verdict the trace lost carry no start of
// frame; a session of only such calls is the first, from `previous` on (sessions keep their
// order), that holds each of its frames and cameras.
size_t likeliest(Timeline const& report, TrueProcessLog const& truth, size_t previous) {
    using Call = std::tuple<int, int, int64_t>;
    size_t best = std::min(previous + 1, truth.sessions.size() - 1), bestShared = 0;
    for (size_t i = 0; i < truth.sessions.size(); ++i) {
        std::set<Call> calls;
        for (auto const& f : truth.sessions[i].truth.frames) {
            for (auto const& c : f.cells) {
                calls.insert({f.frame, c.sensor, c.sofNs.value_or(0)});
            }
        }
        size_t shared = 0;
        for (auto const& f : report.frames) {
            for (auto const& c : f.cells) {
                shared += c.sofNs ? calls.count({f.frame, c.sensor, *c.sofNs}) : 0;
            }
        }
        if (shared > bestShared) {
            best = i;
            bestShared = shared;
        }
    }
    for (size_t i = previous == SIZE_MAX ? 0 : previous;
         bestShared == 0 && i < truth.sessions.size(); ++i) {
        std::set<std::pair<int, int>> calls;
        for (auto const& f : truth.sessions[i].truth.frames) {
            for (auto const& c : f.cells) {
                calls.insert({f.frame, c.sensor});
            }
        }
        bool holds = true;
        for (auto const& f : report.frames) {
            for (auto const& c : f.cells) {
                holds = holds && calls.count({f.frame, c.sensor}) != 0;
            }
        }
        if (holds) {
            return i;
        }
    }
    return best;
}

void judgeSeed(uint64_t seed, Tally& tally) {
    std::mt19937_64 rng(seed * 104729);
    TrueProcessLog truth = runTrueSessions(seed, 1000);
    std::string header;
    std::vector<std::string> lines = traceLines(truth, header);
    for (Change c : kChanges) {
        std::vector<Timeline> report =
            ryxsim::readLogcat(changed(lines, header, c, rng), "trace.txt");
        if (report.size() == 1 && report[0].frames.empty() && c != Change::None) {
            continue;  // the change left none of the library's points
        }
        if (c != Change::CutStart && c != Change::CutEnd && c != Change::LostEvents &&
            report.size() != truth.sessions.size()) {
            tally.falseOnes.push_back("seed " + std::to_string(seed) + " (" + changeName(c) +
                                      "): " + std::to_string(report.size()) + " sessions read, " +
                                      std::to_string(truth.sessions.size()) + " run");
            continue;
        }
        bool whole = c == Change::None || c == Change::OtherProcesses;
        size_t previous = SIZE_MAX;
        for (size_t i = 0; i < report.size(); ++i) {
            previous = whole ? i : likeliest(report[i], truth, previous);
            judgeSession(report[i], truth.sessions[previous].truth, seed, c, tally);
        }
    }
}

}  // namespace

TEST(SystemTraceTruth, EveryVerdictReadFromATraceIsTheRunsOwn) {
    auto [first, count] = seedsFrom("RYX_TRACE_TRUTH_SEEDS", 60);
    Tally tally;
    for (uint64_t seed = first; seed < first + count; ++seed) {
        judgeSeed(seed, tally);
    }
    std::printf("traces judged: %zu seeds x %zu forms, %zu cells, %zu undetermined, %zu false\n",
                static_cast<size_t>(count), std::size(kChanges), tally.cells, tally.undetermined,
                tally.falseOnes.size());
    for (size_t i = 0; i < tally.falseOnes.size() && i < 20; ++i) {
        ADD_FAILURE() << tally.falseOnes[i];
    }
    EXPECT_TRUE(tally.falseOnes.empty());
    EXPECT_GT(tally.cells, 0u);
}
