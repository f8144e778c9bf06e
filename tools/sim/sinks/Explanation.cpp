#include "sinks/Explanation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <tuple>

namespace ryxsim {

namespace {

// "tele", or "camera 2" when the camera has no name.
std::string shortName(Timeline const& t, int sensor) {
    std::string l = t.label(sensor);
    size_t sp = l.find(' ');
    return sp == std::string::npos ? "camera " + l : l.substr(sp + 1);
}

std::string ms(int64_t ns) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f ms", std::abs(static_cast<double>(ns)) / 1e6);
    return buf;
}

std::string names(Timeline const& t, std::vector<int> const& ids) {
    std::string s;
    for (size_t i = 0; i < ids.size(); ++i) {
        s += (i == 0 ? "" : (i + 1 == ids.size() ? " and " : ", ")) + shortName(t, ids[i]);
    }
    return s;
}

// The camera whose frame started first (the lowest id among equals): the fixed reference an
// out-of-sync frame is explained against, so that the words do not follow the arrival order.
CameraCell const* earliestStart(FrameRecord const& f) {
    CameraCell const* ref = nullptr;
    for (auto const& c : f.cells) {
        if (c.sofNs && (ref == nullptr || *c.sofNs < *ref->sofNs ||
                        (*c.sofNs == *ref->sofNs && c.sensor < ref->sensor))) {
            ref = &c;
        }
    }
    return ref;
}

// The frame's skews against the camera that started first, for every camera beyond the
// tolerance (all of them when the tolerance is unknown).
std::string skews(Timeline const& t, FrameRecord const& f) {
    CameraCell const* ref = earliestStart(f);
    std::vector<CameraCell const*> later;
    for (auto const& c : f.cells) {
        if (ref != nullptr && &c != ref && c.sofNs) {
            later.push_back(&c);
        }
    }
    std::sort(later.begin(), later.end(), [](CameraCell const* a, CameraCell const* b) {
        return std::tie(*a->sofNs, a->sensor) < std::tie(*b->sofNs, b->sensor);
    });
    std::string s;
    for (CameraCell const* c : later) {
        // The library compares whole milliseconds.
        int64_t d = std::abs(*ref->sofNs / 1000000 - *c->sofNs / 1000000);
        if (f.toleranceUs && d <= *f.toleranceUs / 1000) {
            continue;
        }
        s += (s.empty() ? "" : ", ") + shortName(t, c->sensor) + " started " +
             ms(*c->sofNs - *ref->sofNs) + " after " + shortName(t, ref->sensor);
    }
    return s.empty() ? "start-of-frame times not known" : s;
}

std::string outOfSyncWhy(Timeline const& t, FrameRecord const& f) {
    std::string s = "out of sync: " + skews(t, f);
    if (f.toleranceUs) {
        char buf[48];
        std::snprintf(buf, sizeof buf, ", tolerance %.1f ms", *f.toleranceUs / 1000.0);
        s += buf;
    }
    size_t n = 0;
    bool failed = false, delivered = false;
    for (auto const& c : f.cells) {
        if (c.verdict == Verdict::OutOfSync1 || c.verdict == Verdict::OutOfSync2 ||
            c.verdict == Verdict::OutOfSync) {
            ++n;
            failed = failed || c.verdict == Verdict::OutOfSync2;
            delivered = delivered || c.verdict == Verdict::OutOfSync1;
        }
    }
    std::string on =
        " on " + (n == f.cells.size() ? "all " + std::to_string(n) : std::to_string(n));
    if (f.mode) {
        s += ", mode " + std::to_string(*f.mode);
    } else {
        s += ", mode not in the log";
    }
    if (failed) {
        return s + " -> failed" + on;
    }
    if (delivered) {
        return s + " -> delivered flagged" + on;
    }
    return s + " -> RESULT 1 (delivered, flagged) or 2 (failed)" + on;
}

// A frame's cameras sorted by what happened to them.
struct FrameParts {
    std::vector<int> own, master, flush, refused, left, blocked, notRun, undetermined;
    bool outOfSync = false;
};

FrameParts partsOf(FrameRecord const& f) {
    FrameParts p;
    auto& [own, master, flush, refused, left, blocked, notRun, undetermined, outOfSync] = p;
    for (auto const& c : f.cells) {
        switch (c.cause) {
            case DropCause::Own:
                own.push_back(c.sensor);
                break;
            case DropCause::MasterDrop:
                master.push_back(c.sensor);
                break;
            case DropCause::Flush:
                flush.push_back(c.sensor);
                break;
            case DropCause::Refused:
                refused.push_back(c.sensor);
                break;
            case DropCause::Leave:
                left.push_back(c.sensor);
                break;
            case DropCause::None:
                break;
        }
        outOfSync = outOfSync || c.verdict == Verdict::OutOfSync1 ||
                    c.verdict == Verdict::OutOfSync2 || c.verdict == Verdict::OutOfSync;
        if (c.verdict == Verdict::Blocked) {
            blocked.push_back(c.sensor);
        } else if (c.verdict == Verdict::NotRun && c.cause == DropCause::None) {
            notRun.push_back(c.sensor);
        } else if (c.verdict == Verdict::Undetermined) {
            undetermined.push_back(c.sensor);
        }
    }
    // Named by id, not in arrival order, so that a frame reads the same every run.
    for (auto* ids : {&own, &master, &flush, &refused, &left, &blocked, &notRun, &undetermined}) {
        std::sort(ids->begin(), ids->end());
    }
    return p;
}

}  // namespace

std::string explainFrame(Timeline const& t, FrameRecord const& f) {
    if (!unpassed(f)) {
        return {};
    }
    auto [own, master, flush, refused, left, blocked, notRun, undetermined, outOfSync] = partsOf(f);
    int dropper = -1;
    for (auto const& e : t.masterDrops) {
        if (e.frame == f.frame) {
            dropper = e.sensor;
        }
    }
    std::vector<std::string> parts;
    if (!f.neverCame.empty()) {
        std::vector<int> came;
        for (auto const& c : f.cells) {
            if (c.arriveNs || c.verdict != Verdict::NotRun) {
                came.push_back(c.sensor);
            }
        }
        std::sort(came.begin(), came.end());
        parts.push_back("still waiting when the " + std::string(t.imported ? "capture" : "run") +
                        " ended: " + (came.empty() ? std::string("nobody") : names(t, came)) +
                        " came, " + names(t, f.neverCame) + " never did");
    }
    if (!master.empty()) {
        std::string who = dropper >= 0 ? shortName(t, dropper) + " (master)" : "the master";
        parts.push_back("dropped by the master: " + who + " dropped it, so it failed on " +
                        names(t, master));
    }
    if (!flush.empty()) {
        parts.push_back("flushed: dropped for " + names(t, flush));
    }
    if (!refused.empty()) {
        std::string why = f.refusal == Refusal::None || f.refusal == Refusal::Unknown
                              ? "the updaters refused it"
                              : std::string(refusalName(f.refusal));
        if (f.refusal == Refusal::MissingTimestamp) {
            why = "a start-of-frame timestamp was missing";
        }
        parts.push_back("refused (" + why + ") on " + names(t, refused));
    }
    if (!left.empty()) {
        parts.push_back(names(t, left) + " left the session (notifyDropBySensor)");
    }
    for (int s : own) {
        if (s != dropper) {
            parts.push_back(shortName(t, s) + " dropped its own frame");
        }
    }
    if (outOfSync) {
        parts.push_back(outOfSyncWhy(t, f));
    }
    if (!blocked.empty() && f.neverCame.empty()) {
        parts.push_back(t.imported ? "still waiting when the capture ended: " + names(t, blocked) +
                                         " came; no earlier frame shows which camera was to come"
                                   : "never returned on " + names(t, blocked));
    }
    if (!notRun.empty() && f.neverCame.empty()) {
        parts.push_back("never called on " + names(t, notRun));
    }
    if (!undetermined.empty()) {
        parts.push_back("undetermined on " + names(t, undetermined) + ": " +
                        (f.undeterminedWhy.empty() ? "the capture does not show how it came out"
                                                   : f.undeterminedWhy));
    }
    std::string s;
    for (auto const& p : parts) {
        s += (s.empty() ? "" : "; ") + p;
    }
    return s;
}

}  // namespace ryxsim
