#include "sinks/TextSink.h"

#include "sinks/Explanation.h"
#include "sinks/WhatIfSink.h"

#include "model/Words.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace ryxsim {

namespace {

std::string fmtUs(double us) {
    char buf[32];
    if (us >= 1000.0) {
        std::snprintf(buf, sizeof buf, "%.2f ms", us / 1000.0);
    } else {
        std::snprintf(buf, sizeof buf, "%.0f us", us);
    }
    return buf;
}

std::string frameList(std::vector<LoggedAnomaly> const& v) {
    if (v.empty()) {
        return "none";
    }
    std::string s;
    for (auto const& a : v) {
        s += (s.empty() ? "" : ", ") + ("f" + std::to_string(a.frame)) + " (master " +
             std::to_string(a.master) + ")";
    }
    return s;
}

// What a capture at the default level cannot show is unknown, not none.
bool seesCalls(Timeline const& r) {
    return !r.imported || r.capture.callsSeen;
}

size_t labelWidth(Timeline const& r) {
    size_t w = 6;
    for (auto const& f : r.sensors) {
        w = std::max(w, f.label.size());
    }
    return w;
}

void writeRunHeader(std::ostream& out, Timeline const& r) {
    char line[512];
    std::string pace = "paced at the frame rate";
    if (!r.blocked.empty()) {
        pace = "stopped: threads blocked";
    } else if (!r.run.realtime) {
        double speed = r.run.wallSeconds > 0 ? r.streamSeconds / r.run.wallSeconds : 0;
        pace = speed >= 1.5 ? std::to_string(static_cast<long>(std::lround(speed))) +
                                  "x faster than real time"
                            : "about real time or slower";
    }
    std::snprintf(line, sizeof line,
                  "%s, %s (f%d..f%d) at %g fps = %.1f s of stream, run in %.2f s (%s)\n",
                  plural(static_cast<long long>(r.sensors.size()), "sensor", "sensors").c_str(),
                  plural(r.frameCount, "frame", "frames").c_str(), r.firstFrame, r.lastFrame, r.fps,
                  r.streamSeconds, r.run.wallSeconds, pace.c_str());
    out << line;
    out << plural(static_cast<long long>(r.run.calls), "call", "calls") << ":";
    bool first = true;
    for (auto const& [kind, n] : r.run.callsByKind) {
        out << (first ? " " : ", ") << n << " " << kind;
        first = false;
    }
    out << "\n";
    for (auto const& n : r.notes) {
        out << "  note: " << n << "\n";
    }
    out << "\n";
}

void writeImportedHeader(std::ostream& out, Timeline const& r) {
    char line[512];
    std::snprintf(line, sizeof line,
                  "%s, %s (f%d..f%d), process %d; times from the log's clock (%s)\n",
                  plural(static_cast<long long>(r.sensors.size()), "sensor", "sensors").c_str(),
                  plural(r.frameCount, "frame", "frames").c_str(), r.firstFrame, r.lastFrame,
                  r.capture.pid, r.clock.c_str());
    out << line;
    for (auto const& n : r.notes) {
        out << "  note: " << n << "\n";
    }
    if (!r.fatal.empty()) {
        out << "  the library aborted the process: " << r.fatal << "\n";
        out << "    its message: " << r.fatalText << "\n";
    }
    out << "\n";
}

void writeSensorTable(std::ostream& out, Timeline const& r) {
    char line[512];
    bool stuck = std::any_of(r.sensors.begin(), r.sensors.end(),
                             [](SensorFigures const& f) { return f.blocked > 0 || f.notRun > 0; });
    bool unknownMode = std::any_of(r.sensors.begin(), r.sensors.end(),
                                   [](SensorFigures const& f) { return f.outOfSync > 0; });
    bool undetermined = std::any_of(r.sensors.begin(), r.sensors.end(),
                                    [](SensorFigures const& f) { return f.undetermined > 0; });
    int w = static_cast<int>(labelWidth(r));
    std::snprintf(line, sizeof line, "%-*s %8s %8s %10s %8s %8s %8s %7s", w, "sensor", "offered",
                  "in sync", "unchecked", "out (1)", "out (2)", "dropped", "master");
    out << line << (unknownMode ? "  out (?)" : "") << (stuck ? "  blocked  not run" : "")
        << (undetermined ? "  undetermined" : "") << "\n";
    for (auto const& f : r.sensors) {
        std::snprintf(line, sizeof line, "%-*s %8d %8d %10d %8d %8d %8d %7d", w, f.label.c_str(),
                      f.offered, f.inSync, f.unchecked, f.outOfSync1, f.outOfSync2, f.dropped,
                      f.masterFrames);
        out << line;
        if (unknownMode) {
            std::snprintf(line, sizeof line, " %8d", f.outOfSync);
            out << line;
        }
        if (stuck) {
            std::snprintf(line, sizeof line, " %8d %8d", f.blocked, f.notRun);
            out << line;
        }
        if (undetermined) {
            std::snprintf(line, sizeof line, " %13d", f.undetermined);
            out << line;
        }
        out << "\n";
    }
    out << "  out (1): out of sync, RYX_FRAMESYNC_RESULT 1 (delivered); out (2): "
           "RYX_FRAMESYNC_RESULT 2 (failed);\n  unchecked: delivered without a timestamp verdict; "
           "master: frames with bMasterCam set\n";
    if (unknownMode) {
        out << "  out (?): out of sync, 1 or 2: the log does not carry the mode\n";
    }
    if (undetermined) {
        out << "  undetermined: the capture cannot tell (see its notes); never counted in sync\n";
    }
    out << "dropped by cause, and crop overrides written:\n";
    for (auto const& f : r.sensors) {
        std::snprintf(line, sizeof line,
                      "  %-*s own drop %d, master drop %d, flush %d, refused %d; crop overrides "
                      "%d\n",
                      w, f.label.c_str(), f.dropOwn, f.dropMaster, f.dropFlush, f.dropRefused,
                      f.cropOverrides);
        out << line;
        if (f.dropLeave > 0) {
            out << "  " << std::string(static_cast<size_t>(w), ' ') << " left the session with "
                << plural(f.dropLeave, "frame", "frames") << " pending\n";
        }
    }
}

// "lines 120-134" or "line 120".
std::string lineRange(char const* what, int first, int last) {
    return std::string(what) + (last != first ? "s " : " ") + std::to_string(first) +
           (last != first ? "-" + std::to_string(last) : "");
}

// " [lines 120-134, 01-02 03:04:05.678]" for a frame of a log capture, " [trace lines 40-52]"
// for one of a system trace, both for a frame that a log and a trace show.
std::string whereInCapture(Timeline const& r, FrameRecord const& f) {
    std::string s;
    if (f.firstLine) {
        std::string time = r.logTime(f);
        s += " [" + lineRange("line", *f.firstLine, *f.lastLine) +
             (time.empty() ? "" : ", " + time) + "]";
    }
    if (f.traceFirstLine) {
        s += " [" + lineRange("trace line", *f.traceFirstLine, *f.traceLastLine) + "]";
    }
    return s;
}

// "f3, f5-f9" for ascending frame numbers.
std::string frameRange(std::vector<int> const& frames) {
    std::string s;
    for (size_t i = 0; i < frames.size(); ++i) {
        size_t j = i;
        while (j + 1 < frames.size() && frames[j + 1] == frames[j] + 1) {
            ++j;
        }
        s += (s.empty() ? "f" : ", f") + std::to_string(frames[i]);
        if (j > i) {
            s += "-f" + std::to_string(frames[j]);
        }
        i = j;
    }
    return s;
}

void writeUnpassed(std::ostream& out, Timeline const& r) {
    auto frames = unpassedFrames(r);
    out << "\nframes that did not pass or passed flagged: " << frames.size() << "\n";
    for (FrameRecord const* f : frames) {
        out << unpassedLine(r, *f) << "\n";
    }
}

void writeGaps(std::ostream& out, Timeline const& r) {
    if (!r.imported) {
        return;
    }
    out << "\ngaps in the capture: "
        << (r.capture.gaps.empty() ? "none seen" : std::to_string(r.capture.gaps.size())) << "\n";
    for (auto const& g : r.capture.gaps) {
        out << "  line " << g.line << ": " << g.what;
        if (!g.frames.empty()) {
            out << "; " << plural(static_cast<long long>(g.frames.size()), "frame", "frames")
                << " touched: " << frameRange(g.frames);
        }
        out << "\n";
    }
}

// Per camera pair, how far apart the starts of frame were and what tolerance would have passed.
void writeSkews(std::ostream& out, Timeline const& r) {
    if (r.skews.empty()) {
        return;
    }
    out << "  start-of-frame difference per camera pair (tolerance that passes 99 % / 99.9 %):\n";
    for (auto const& p : r.skews) {
        out << "    " << r.label(p.a) << " - " << r.label(p.b) << ": p50 " << fmtUs(p.skew.p50Us)
            << ", p99 " << fmtUs(p.skew.p99Us) << ", max " << fmtUs(p.skew.maxUs) << " over "
            << plural(static_cast<long long>(p.skew.count), "frame", "frames") << "; "
            << fmtUs(p.tolerance99Us) << " / " << fmtUs(p.tolerance999Us) << "\n";
    }
}

void writeTiming(std::ostream& out, Timeline const& r) {
    char line[512];
    int w = static_cast<int>(labelWidth(r));
    out << "\ntiming\n";
    if (r.wait.count == 0) {
        out << (seesCalls(r) ? "  no syncResultCheck call returned\n"
                             : "  rendezvous wait: unknown (calls are not logged at this level)\n");
    } else {
        out << "  rendezvous wait (time in syncResultCheck): p50 " << fmtUs(r.wait.p50Us)
            << ", p99 " << fmtUs(r.wait.p99Us) << ", max " << fmtUs(r.wait.maxUs) << " over "
            << plural(static_cast<long long>(r.wait.count), "call", "calls") << "\n";
        for (auto const& f : r.sensors) {
            std::snprintf(line, sizeof line, "    %-*s p50 %s, p99 %s, max %s\n", w,
                          f.label.c_str(), fmtUs(f.wait.p50Us).c_str(), fmtUs(f.wait.p99Us).c_str(),
                          fmtUs(f.wait.maxUs).c_str());
            out << line;
        }
    }
    if (!seesCalls(r)) {
        out << "  last to arrive: unknown (arrivals are not logged at this level)\n";
        return;
    }
    out << "  last to arrive (the camera the others waited for), lateness after the frame's "
           "first arrival:\n";
    for (auto const& f : r.sensors) {
        std::snprintf(line, sizeof line, "    %-*s %6d %s", w, f.label.c_str(), f.lastToArrive,
                      f.lastToArrive == 1 ? "frame" : "frames");
        out << line;
        if (f.lateness.count > 0) {
            out << ", p50 " << fmtUs(f.lateness.p50Us) << ", p99 " << fmtUs(f.lateness.p99Us)
                << ", max " << fmtUs(f.lateness.maxUs);
        }
        out << "\n";
    }
    writeSkews(out, r);
    if (!r.imported) {
        std::snprintf(line, sizeof line,
                      "  library CPU: %.1f us per frame (all sensors), %.1f us per call; process "
                      "CPU %.2f s\n",
                      r.run.libCpuUsPerFrame, r.run.libCpuUsPerCall, r.run.cpuSeconds);
        out << line;
    }
}

std::string eventList(Timeline const& r, std::vector<Timeline::Event> const& events) {
    if (!seesCalls(r)) {
        return "unknown (not logged at this level)";
    }
    std::string s;
    for (auto const& e : events) {
        s += (s.empty() ? "f" : ", f") + std::to_string(e.frame);
        if (e.sensor >= 0) {
            s += " (" + r.label(e.sensor) + ")";
        }
    }
    return s.empty() ? "none" : s;
}

void writeEvents(std::ostream& out, Timeline const& r) {
    out << "\nevents\n";
    out << "  flushes:                 " << eventList(r, r.flushes) << "\n";
    out << "  master drops:            " << eventList(r, r.masterDrops) << "\n";
    out << "  sensors that left:       " << eventList(r, r.leaves) << "\n";
}

// The calls left inside the library: a run's blocked threads, or a capture's calls still
// waiting at its end.
void writeStuckCalls(std::ostream& out, Timeline const& r) {
    if (!r.imported) {
        out << "  threads still blocked:   " << (r.blocked.empty() ? "none" : "") << "\n";
        char line[512];
        for (auto const& b : r.blocked) {
            std::snprintf(line, sizeof line, "    sensor %s in %s for f%d (r%d), for %.1f s\n",
                          b.label.c_str(), b.call.c_str(), b.frame, b.request, b.seconds);
            out << line;
        }
        return;
    }
    std::string waiting;
    for (auto const& f : r.frames) {
        for (auto const& c : f.cells) {
            if (c.verdict == Verdict::Blocked) {
                waiting += "\n    " + r.label(c.sensor) + " in f" + std::to_string(f.frame);
            }
        }
    }
    std::string none = seesCalls(r) ? "none" : "unknown (not logged at this level)";
    out << "  calls waiting at the end: " << (waiting.empty() ? none : waiting) << "\n";
}

void writeAnomalies(std::ostream& out, Timeline const& r) {
    out << "\nanomalies\n";
    out << "  frame inversions:        " << frameList(r.frameInversions) << "\n";
    out << "  time inversions:         " << frameList(r.timeInversions) << "\n";
    out << "  missing timestamps:      " << frameList(r.missingTimestamps) << "\n";
    out << "  frames never completed:  ";
    if (r.neverCompleted.empty()) {
        out << (seesCalls(r) ? "none" : "unknown (not logged at this level)");
    }
    for (size_t i = 0; i < r.neverCompleted.size(); ++i) {
        out << (i ? ", " : "") << "f" << r.neverCompleted[i];
    }
    out << "\n";
    writeStuckCalls(out, r);
}

}  // namespace

std::string unpassedLine(Timeline const& r, FrameRecord const& f) {
    char head[32];
    std::snprintf(head, sizeof head, "  f%-5d ", f.frame);
    return head + explainFrame(r, f) + whereInCapture(r, f);
}

void writeText(std::ostream& out, Timeline const& r) {
    out << "synchelper-sim: " << r.name;
    if (r.run.seed) {
        out << " (seed " << *r.run.seed << ")";
    }
    if (!r.source.empty()) {
        out << ", " << r.source;
    }
    if (!r.capture.section.empty()) {
        out << ", section " << r.capture.section
            << (r.capture.section == "LAST LOGCAT" ? " (the previous boot)" : "");
    }
    out << "\n";
    if (!r.description.empty()) {
        out << r.description << "\n";
    }
    if (r.imported) {
        writeImportedHeader(out, r);
    } else {
        writeRunHeader(out, r);
    }
    writeSensorTable(out, r);
    writeUnpassed(out, r);
    writeGaps(out, r);
    writeEvents(out, r);
    writeTiming(out, r);
    writeAnomalies(out, r);
    writeWhatIfText(out, r);
}

}  // namespace ryxsim
