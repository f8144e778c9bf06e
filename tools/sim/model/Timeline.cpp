#include "model/Timeline.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <tuple>

namespace ryxsim {

namespace {
std::atomic<size_t> gDefaultDetailFrames{kDefaultDetailFrames};
}  // namespace

size_t defaultDetailFrames() {
    return gDefaultDetailFrames.load(std::memory_order_relaxed);
}

void setDefaultDetailFrames(size_t frames) {
    gDefaultDetailFrames.store(frames, std::memory_order_relaxed);
}

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

bool unpassed(FrameRecord const& f) {
    return !f.neverCame.empty() || std::any_of(f.cells.begin(), f.cells.end(),
                                               [](auto const& c) { return !passed(c.verdict); });
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
    return f.logTimeNs ? formatLogTime(capture.logClock, *f.logTimeNs, f.logZoneS) : std::string();
}

std::vector<FrameRecord const*> unpassedFrames(Timeline const& t) {
    std::vector<FrameRecord const*> v;
    for (auto const& f : t.frames) {
        if (unpassed(f)) {
            v.push_back(&f);
        }
    }
    return v;
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
            // The library compares whole milliseconds of each start (truncated): the tolerance
            // that passes a frame is that difference, which may be a millisecond more.
            int64_t ms = *a->sofNs / 1000000 - *b->sofNs / 1000000;
            tally.comparedGaps[{a->sensor, b->sensor}].add((ms < 0 ? -ms : ms) * 1000000);
        }
    }
}

std::vector<PairSkew> pairSkews(TimelineTally const& tally) {
    std::vector<PairSkew> v;
    for (auto const& [pair, p] : tally.skews) {
        Percentiles const& compared = tally.comparedGaps.at(pair);
        v.push_back({pair.first, pair.second, p.stats(), compared.percentileUs(0.99),
                     compared.percentileUs(0.999)});
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
    t.outcomes.add(f);

    tally.recent.push_back(std::move(f));
    while (tally.recent.size() > t.detailFrames) {
        if (unpassed(tally.recent.front())) {
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
