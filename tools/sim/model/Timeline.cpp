#include "model/Timeline.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <tuple>

namespace ryxsim {

char const* verdictName(Verdict v) {
    switch (v) {
        case Verdict::InSync:
            return "in sync";
        case Verdict::Unchecked:
            return "unchecked";
        case Verdict::OutOfSync1:
            return "out of sync (1)";
        case Verdict::OutOfSync2:
            return "out of sync (2)";
        case Verdict::OutOfSync:
            return "out of sync";
        case Verdict::Dropped:
            return "dropped";
        case Verdict::Blocked:
            return "blocked";
        case Verdict::NotRun:
            return "not run";
        case Verdict::Undetermined:
            return "undetermined";
    }
    return "?";
}

bool passed(Verdict v) {
    return v == Verdict::InSync || v == Verdict::Unchecked;
}

char const* dropCauseName(DropCause c) {
    switch (c) {
        case DropCause::None:
            return "";
        case DropCause::Own:
            return "own drop";
        case DropCause::MasterDrop:
            return "master drop";
        case DropCause::Flush:
            return "flush";
        case DropCause::Refused:
            return "refused";
        case DropCause::Leave:
            return "sensor left";
    }
    return "?";
}

char const* refusalName(Refusal r) {
    switch (r) {
        case Refusal::None:
            return "";
        case Refusal::FrameInversion:
            return "frame inversion";
        case Refusal::TimeInversion:
            return "time inversion";
        case Refusal::MissingTimestamp:
            return "missing timestamp";
        case Refusal::Unknown:
            return "unknown";
    }
    return "?";
}

CameraCell* FrameRecord::cell(int sensor) {
    for (auto& c : cells) {
        if (c.sensor == sensor) {
            return &c;
        }
    }
    return nullptr;
}

CameraCell const* FrameRecord::cell(int sensor) const {
    return const_cast<FrameRecord*>(this)->cell(sensor);
}

std::optional<int64_t> FrameRecord::sofOffsetNs(int sensor) const {
    if (!firstTarget) {
        return std::nullopt;
    }
    CameraCell const* a = cell(*firstTarget);
    CameraCell const* b = cell(sensor);
    if (a == nullptr || b == nullptr || !a->sofNs || !b->sofNs || *a->sofNs == 0 ||
        *b->sofNs == 0) {
        return std::nullopt;
    }
    return *b->sofNs - *a->sofNs;
}

WaitStats waitStats(std::vector<int64_t> ns) {
    Percentiles p;
    for (int64_t v : ns) {
        p.add(v);
    }
    return p.stats();
}

std::string Timeline::label(int sensor) const {
    auto it = labels.find(sensor);
    return it != labels.end() ? it->second : std::to_string(sensor);
}

FrameRecord& Timeline::frame(int number) {
    if (frames.empty() || frames.back().frame < number) {
        frames.push_back({});
        frames.back().frame = number;
        return frames.back();
    }
    auto it = std::lower_bound(frames.begin(), frames.end(), number,
                               [](FrameRecord const& f, int n) { return f.frame < n; });
    if (it == frames.end() || it->frame != number) {
        it = frames.insert(it, FrameRecord{});
        it->frame = number;
    }
    return *it;
}

FrameRecord* Timeline::findFrame(int number) {
    auto it = std::lower_bound(frames.begin(), frames.end(), number,
                               [](FrameRecord const& f, int n) { return f.frame < n; });
    return it != frames.end() && it->frame == number ? &*it : nullptr;
}

std::vector<SensorCell> Timeline::cellsOf(int sensor) const {
    std::vector<SensorCell> v;
    for (auto const& f : frames) {
        if (CameraCell const* c = f.cell(sensor)) {
            v.push_back({f.frame, c});
        }
    }
    return v;
}

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

std::string explain(Timeline const& t, FrameRecord const& f) {
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

}  // namespace

void renameCameras(Timeline& t, std::map<int, std::string> const& labels) {
    for (auto const& [id, label] : labels) {
        std::string old = t.label(id);
        t.labels[id] = label;
        auto thread = t.threadOf.find(id);
        if (thread != t.threadOf.end() && thread->second == "sensor " + old) {
            thread->second = "sensor " + label;
        }
    }
    for (auto& s : t.sensors) {
        s.label = t.label(s.sensor);
    }
    for (auto& b : t.blocked) {
        b.label = t.label(b.sensor);
    }
    for (auto& f : t.frames) {
        if (!f.why.empty()) {
            f.why = explain(t, f);
        }
    }
}

std::string formatLogTime(LogClock const& clock, int64_t ns, std::optional<int> zoneS) {
    using Form = LogClock::Form;
    if (clock.form == Form::None) {
        return "";
    }
    if (clock.form == Form::Seconds) {
        zoneS.reset();  // epoch and monotonic seconds carry no zone
    }
    ns += zoneS.value_or(0) * int64_t{1000000000};
    int64_t scale = 1;
    for (int k = clock.digits; k < 9; ++k) {
        scale *= 10;
    }
    int64_t whole = ns >= 0 ? ns / 1000000000 : (ns - 999999999) / 1000000000;
    int64_t fraction = (ns - whole * 1000000000) / scale;
    char text[160];  // room for any value of every field, as the compiler counts them
    if (clock.form == Form::Seconds) {
        std::snprintf(text, sizeof text, "%lld.%0*lld", static_cast<long long>(whole), clock.digits,
                      static_cast<long long>(fraction));
        return text;
    }
    // Times of one capture share a few dates: the last one is kept.
    thread_local int64_t lastDays = INT64_MIN;
    thread_local std::tm civil{};
    int64_t days = (whole >= 0 ? whole : whole - 86399) / 86400, secs = whole - days * 86400;
    if (days != lastDays) {
        std::time_t seconds = static_cast<std::time_t>(days * 86400);
        gmtime_r(&seconds, &civil);
        lastDays = days;
    }
    int64_t day = civil.tm_mday, month = civil.tm_mon + 1, year = civil.tm_year + 1900LL;
    char date[24];
    if (clock.form == Form::DateWithYear) {
        std::snprintf(date, sizeof date, "%04lld-", static_cast<long long>(year));
    } else {
        date[0] = '\0';
    }
    std::snprintf(text, sizeof text, "%s%02lld-%02lld %02lld:%02lld:%02lld.%0*lld", date,
                  static_cast<long long>(month), static_cast<long long>(day),
                  static_cast<long long>(secs / 3600), static_cast<long long>(secs / 60 % 60),
                  static_cast<long long>(secs % 60), clock.digits,
                  static_cast<long long>(fraction));
    std::string out = text;
    if (zoneS) {
        int minutes = std::abs(*zoneS) / 60;
        std::snprintf(text, sizeof text, " %c%02d%02d", *zoneS < 0 ? '-' : '+', minutes / 60,
                      minutes % 60);
        out += text;
    }
    return out;
}

std::string Timeline::logTime(FrameRecord const& f) const {
    return f.logTimeNs ? formatLogTime(logClock, *f.logTimeNs, f.logZoneS) : std::string();
}

std::vector<FrameRecord const*> unpassedFrames(Timeline const& t) {
    std::vector<FrameRecord const*> v;
    for (auto const& f : t.frames) {
        if (!f.why.empty()) {
            v.push_back(&f);
        }
    }
    return v;
}

void FrameStrip::add(FrameRecord const& f) {
    if (columns.empty()) {
        firstFrame = f.frame;
    }
    auto index = [&] {
        return static_cast<size_t>(std::max(0, f.frame - firstFrame) / columnFrames);
    };
    while (index() >= kMaxColumns) {
        // Twice the frames per column: pairs of columns merged.
        std::vector<FrameColumn> merged((columns.size() + 1) / 2);
        for (size_t i = 0; i < columns.size(); ++i) {
            for (auto const& [id, c] : columns[i].bySensor) {
                FrameColumn::Counts& m = merged[i / 2].bySensor[id];
                m.passed += c.passed;
                m.flagged += c.flagged;
                m.failed += c.failed;
                m.dropped += c.dropped;
                m.stuck += c.stuck;
                m.master += c.master;
            }
        }
        columns = std::move(merged);
        columnFrames *= 2;
    }
    if (columns.size() <= index()) {
        columns.resize(index() + 1);
    }
    FrameColumn& col = columns[index()];
    for (auto const& c : f.cells) {
        FrameColumn::Counts& n = col.bySensor[c.sensor];
        switch (c.verdict) {
            case Verdict::InSync:
            case Verdict::Unchecked:
                ++n.passed;
                break;
            case Verdict::OutOfSync1:
            case Verdict::OutOfSync:
                ++n.flagged;
                break;
            case Verdict::OutOfSync2:
                ++n.failed;
                break;
            case Verdict::Dropped:
                ++n.dropped;
                break;
            case Verdict::Blocked:
            case Verdict::NotRun:
            case Verdict::Undetermined:
                ++n.stuck;
                break;
        }
        n.master += c.master;
    }
}

namespace {

// One camera's cell in its sensor's counts.
void countCell(SensorFigures& s, CameraCell const& c) {
    s.sensor = c.sensor;
    s.offered++;
    switch (c.verdict) {
        case Verdict::InSync:
            s.inSync++;
            break;
        case Verdict::Unchecked:
            s.unchecked++;
            break;
        case Verdict::OutOfSync1:
            s.outOfSync1++;
            break;
        case Verdict::OutOfSync2:
            s.outOfSync2++;
            break;
        case Verdict::OutOfSync:
            s.outOfSync++;
            break;
        case Verdict::Dropped:
            s.dropped++;
            break;
        case Verdict::Blocked:
            s.blocked++;
            break;
        case Verdict::NotRun:
            s.notRun++;
            break;
        case Verdict::Undetermined:
            s.undetermined++;
            break;
    }
    s.dropOwn += c.cause == DropCause::Own;
    s.dropMaster += c.cause == DropCause::MasterDrop;
    s.dropFlush += c.cause == DropCause::Flush;
    s.dropRefused += c.cause == DropCause::Refused;
    s.dropLeave += c.cause == DropCause::Leave;
    s.masterFrames += c.master;
    s.cropOverrides += c.cropOverride.has_value();
}

}  // namespace

namespace {

// Every pair of cameras whose starts of frame the frame shows.
void addSkews(TimelineTally& tally, FrameRecord const& f) {
    for (size_t i = 0; i < f.cells.size(); ++i) {
        for (size_t j = i + 1; j < f.cells.size(); ++j) {
            CameraCell const *a = &f.cells[i], *b = &f.cells[j];
            if (!a->sofNs || !b->sofNs) {
                continue;
            }
            if (a->sensor > b->sensor) {
                std::swap(a, b);
            }
            int64_t d = *a->sofNs - *b->sofNs;
            tally.skews[{a->sensor, b->sensor}].add(d < 0 ? -d : d);
        }
    }
}

std::vector<PairSkew> pairSkews(TimelineTally const& tally) {
    std::vector<PairSkew> v;
    for (auto const& [pair, p] : tally.skews) {
        v.push_back(
            {pair.first, pair.second, p.stats(), p.percentileUs(0.99), p.percentileUs(0.999)});
    }
    return v;
}

}  // namespace

void foldFrame(Timeline& t, FrameRecord f) {
    TimelineTally& tally = t.tally;
    int last = -1;
    int64_t firstAt = INT64_MAX, lastAt = INT64_MIN;
    size_t arrivals = 0;
    for (auto const& c : f.cells) {
        TimelineTally::Sensor& ts = tally.sensors[c.sensor];
        countCell(ts.figures, c);
        if (c.cause != DropCause::Own && c.cause != DropCause::Leave && c.arriveNs && c.releaseNs) {
            ts.wait.add(*c.releaseNs - *c.arriveNs);
            tally.wait.add(*c.releaseNs - *c.arriveNs);
        }
        if (c.arriveNs && c.cause != DropCause::Leave) {
            ++arrivals;
            firstAt = std::min(firstAt, *c.arriveNs);
            if (*c.arriveNs >= lastAt) {
                lastAt = *c.arriveNs;
                last = c.sensor;
            }
        }
    }
    addSkews(tally, f);
    bool blocked = std::any_of(f.cells.begin(), f.cells.end(),
                               [](CameraCell const& c) { return c.verdict == Verdict::Blocked; });
    if (blocked || !f.neverCame.empty()) {
        tally.neverCompleted.push_back(f.frame);
    }
    if (arrivals >= 2 && last >= 0) {
        TimelineTally::Sensor& ts = tally.sensors[last];
        ts.figures.lastToArrive++;
        ts.lateness.add(lastAt - firstAt);
    }
    tally.firstFrame = tally.any ? std::min(tally.firstFrame, f.frame) : f.frame;
    tally.lastFrame = tally.any ? std::max(tally.lastFrame, f.frame) : f.frame;
    tally.any = true;
    tally.frames++;
    t.strip.add(f);

    bool clean =
        f.neverCame.empty() && std::all_of(f.cells.begin(), f.cells.end(),
                                           [](CameraCell const& c) { return passed(c.verdict); });
    f.why = clean ? std::string() : explain(t, f);
    tally.recent.push_back(std::move(f));
    while (tally.recent.size() > t.detailFrames) {
        if (!tally.recent.front().why.empty()) {
            t.frames.push_back(std::move(tally.recent.front()));
        }
        tally.recent.pop_front();
    }
}

void finishTimeline(Timeline& t) {
    TimelineTally& tally = t.tally;
    if (!tally.any) {
        std::vector<FrameRecord> direct = std::move(t.frames);
        t.frames.clear();
        for (auto& f : direct) {
            foldFrame(t, std::move(f));
        }
    }
    for (auto& f : tally.recent) {
        t.frames.push_back(std::move(f));
    }
    tally.recent.clear();
    std::stable_sort(t.frames.begin(), t.frames.end(),
                     [](FrameRecord const& a, FrameRecord const& b) { return a.frame < b.frame; });

    // Sensors the source named (with their CPU figures), then the tallies of those with frames.
    std::map<int, SensorFigures> by;
    for (auto const& s : t.sensors) {
        by[s.sensor] = s;
    }
    for (auto const& [id, l] : t.labels) {
        by[id].sensor = id;
    }
    for (auto const& [id, ts] : tally.sensors) {
        double cpu = by[id].cpuUsPerCall;
        by[id] = ts.figures;
        by[id].cpuUsPerCall = cpu;
        by[id].wait = ts.wait.stats();
        by[id].lateness = ts.lateness.stats();
    }
    t.sensors.clear();
    for (auto& [id, s] : by) {
        s.sensor = id;
        s.label = t.label(id);
        t.sensors.push_back(s);
    }
    t.wait = tally.wait.stats();
    t.skews = pairSkews(tally);
    std::set<int> never(t.neverCompleted.begin(), t.neverCompleted.end());
    never.insert(tally.neverCompleted.begin(), tally.neverCompleted.end());
    t.neverCompleted.assign(never.begin(), never.end());

    t.frameCount = tally.frames;
    t.firstFrame = tally.any ? tally.firstFrame : 0;
    t.lastFrame = tally.any ? tally.lastFrame : 0;
    if (t.streamSeconds == 0 && t.fps > 0) {
        t.streamSeconds = t.frameCount / t.fps;
    }
}

}  // namespace ryxsim
