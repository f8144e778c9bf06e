// Expanding a scenario into its calls, frame by frame, from the seed's picks.
#include "sources/scenario/ScenarioRows.h"

#include "sources/scenario/Rng.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

namespace ryxsim {

namespace {

// The control of one sensor's frame, every setting resolved.
struct Resolved {
    std::optional<std::vector<int32_t>> group;
    std::optional<std::vector<int32_t>> syncIds;
    bool syncIdsGiven = false;
    bool required = true;
    std::optional<int32_t> enable;
    std::optional<int64_t> toleranceUs = 1000;
    std::optional<int32_t> mode = 1;
    std::optional<int32_t> master;
    std::optional<std::vector<int32_t>> msList;
    bool msListGiven = false;
    std::optional<int32_t> intent = 1;
    bool getCrop = false;
    int64_t sofOffsetUs = 0;
    int64_t expOffsetUs = 0;
    bool drop = false;
};

void apply(Control const& c, Resolved& r) {
    if (c.group.given) {
        r.group = c.group.value;
    }
    if (c.syncIds.given) {
        r.syncIds = c.syncIds.value;
        r.syncIdsGiven = c.syncIds.value.has_value();
    }
    if (c.required.given) {
        r.required = c.required.value.value_or(false);
    }
    if (c.enable.given) {
        r.enable = c.enable.value;
    }
    if (c.toleranceUs.given) {
        r.toleranceUs = c.toleranceUs.value;
    }
    if (c.mode.given) {
        r.mode = c.mode.value;
    }
    if (c.master.given) {
        r.master = c.master.value;
    }
    if (c.msList.given) {
        r.msList = c.msList.value;
        r.msListGiven = true;
    }
    if (c.intent.given) {
        r.intent = c.intent.value;
    }
    if (c.getCrop.given) {
        r.getCrop = c.getCrop.value.value_or(false);
    }
    if (c.sofOffsetUs.given) {
        r.sofOffsetUs += c.sofOffsetUs.value.value_or(0);
    }
    if (c.expOffsetUs.given) {
        r.expOffsetUs += c.expOffsetUs.value.value_or(0);
    }
    if (c.drop.given) {
        r.drop = c.drop.value.value_or(false);
    }
}

class Expander {
  public:
    explicit Expander(Scenario const& s) : mS(s) {
        mBase.group = std::vector<int32_t>();
        for (auto const& ss : s.sensors) {
            mBase.group->push_back(ss.camera.id);
        }
        mBase.master = s.sensors.front().camera.id;
        mBase.getCrop = s.cropEvery > 0 ||
                        std::any_of(s.events.begin(), s.events.end(),
                                    [](EventSpec const& e) { return e.kind == CallKind::Crop; });
        apply(s.control, mBase);
        for (auto const& e : s.events) {
            if (e.kind == CallKind::Leave) {
                auto it = mLeaveAt.find(e.sensor);
                mLeaveAt[e.sensor] = it == mLeaveAt.end() ? e.frame : std::min(it->second, e.frame);
            }
        }
    }

    Resolved resolve(int sensor, int frame) const {
        Resolved r = mBase;
        for (auto const& range : mS.ranges) {
            if (frame < range.first || frame > range.last) {
                continue;
            }
            if (!range.sensors.empty() && std::find(range.sensors.begin(), range.sensors.end(),
                                                    sensor) == range.sensors.end()) {
                continue;
            }
            apply(range.control, r);
        }
        return r;
    }

    bool present(int sensor, int frame) const {
        auto it = mLeaveAt.find(sensor);
        return it == mLeaveAt.end() || frame < it->second;
    }

    // Members of the frame's group that are still in the session.
    std::vector<int32_t> members(Resolved const& r, int frame) const {
        std::vector<int32_t> out;
        if (r.group) {
            for (int32_t id : *r.group) {
                if (present(id, frame) && std::find(out.begin(), out.end(), id) == out.end()) {
                    out.push_back(id);
                }
            }
        }
        return out;
    }

    // The row of `sensor` for `frame`, with its control tags; kind Result or Drop.
    CallRow row(int sensor, int frame, Resolved const& r) const {
        CallRow row;
        row.sensor = sensor;
        row.frame = frame;
        row.request = mS.firstRequest + (frame - mS.firstFrame);
        row.kind = r.drop ? CallKind::Drop : CallKind::Result;
        auto m = members(r, frame);
        bool inGroup = std::find(m.begin(), m.end(), sensor) != m.end();
        if (r.syncIdsGiven) {
            row.syncIds = r.syncIds;
        } else if (inGroup && m.size() > 1) {
            std::vector<int32_t> ids;
            for (int32_t id : m) {
                if (id != sensor) {
                    ids.push_back(id);
                }
            }
            row.syncIds = ids;
        }
        bool sync = row.syncIds.has_value();
        row.required = sync && r.required;
        row.enable = r.enable;
        row.toleranceUs = r.toleranceUs;
        row.mode = r.mode;
        row.master = r.master;
        if (r.msListGiven) {
            row.msList = r.msList;
        } else if (sync && r.master) {
            std::vector<int32_t> l{*r.master};
            for (int32_t id : m) {
                if (id != *r.master) {
                    l.push_back(id);
                }
            }
            row.msList = l;
        }
        row.intent = r.intent;
        row.getCrop = row.kind == CallKind::Result && r.getCrop;
        return row;
    }

  private:
    Scenario const& mS;
    Resolved mBase;
    std::map<int, int> mLeaveAt;
};

NSCam::MRect zoomed(NSCam::MRect const& a, double zoom) {
    int32_t w = static_cast<int32_t>(std::lround(a.width / zoom)) & ~1;
    int32_t h = static_cast<int32_t>(std::lround(a.height / zoom)) & ~1;
    return NSCam::MRect(a.left + (a.width - w) / 2, a.top + (a.height - h) / 2, w, h);
}

}  // namespace

// Crop sets ahead of the frames they serve, flushes and sensors leaving: issued before the
// results of a frame.
struct ScenarioRows::State {
    State(Scenario const& scenario, uint64_t seed)
        : s(scenario), ex(s), rng(seed), first(s.firstFrame), end(s.firstFrame + s.frames) {}

    Scenario const s;
    Expander const ex;
    Rng rng;
    int const first, end;
    int64_t periodNs = 0;
    int cropSteps = 0;
    SessionInfo session;
    GenerationPlan plan;
    std::set<int> busy;  // frames named by an event, or picked
    std::set<std::pair<int, int>> slaveDrops, dropEvents;
    std::map<std::pair<int, int>, int64_t> shiftNs;
    std::map<int, std::vector<CallRow>> eventsBefore;
    int frame = 0;  // the next frame to expand
    std::deque<CallRow> pending;

    // A sensor of the frame drops it by its control: the random picks leave such frames alone.
    bool dropsAt(int f) const {
        return std::any_of(s.sensors.begin(), s.sensors.end(), [&](SensorSpec const& ss) {
            return ex.present(ss.camera.id, f) && ex.resolve(ss.camera.id, f).drop;
        });
    }

    // The sensors that deliver a synced result for the frame.
    std::vector<int> resultSensors(int f) const {
        std::vector<int> out;
        for (auto const& ss : s.sensors) {
            int id = ss.camera.id;
            if (!ex.present(id, f)) {
                continue;
            }
            Resolved r = ex.resolve(id, f);
            auto m = ex.members(r, f);
            if (!r.drop && std::find(m.begin(), m.end(), id) != m.end() && m.size() > 1) {
                out.push_back(id);
            }
        }
        return out;
    }

    CallRow cropRow(int sensor, int f, std::map<int, NSCam::MRect> crops) const {
        CallRow row;
        row.kind = CallKind::Crop;
        row.sensor = sensor;
        row.frame = f;
        row.request = s.firstRequest + (f - first);
        row.crops = std::move(crops);
        return row;
    }

    // The periodic crop set of frame first + k * cropEvery.
    CallRow periodicCrop(int k) const {
        int pos = cropSteps > 0 ? k % (2 * cropSteps) : 0;
        double zoom = s.zoomFrom + (pos <= cropSteps ? pos : 2 * cropSteps - pos) * s.zoomStep;
        std::map<int, NSCam::MRect> crops;
        for (auto const& ss : s.sensors) {
            crops[ss.camera.id] = zoomed(ss.camera.activeArray, zoom);
        }
        return cropRow(s.cropSensor, first + k * s.cropEvery, crops);
    }

    void pick();
    void expand(int f);
};

void ScenarioRows::State::pick() {
    for (auto const& e : s.events) {
        if (e.kind != CallKind::Crop) {
            busy.insert(e.frame);
        }
    }
    auto pickFrame = [&](auto accept) -> int {
        for (int64_t attempt = 0; attempt < 64 * int64_t{s.frames}; ++attempt) {
            int f = static_cast<int>(rng.uniform(first, end - 1));
            if (busy.count(f) == 0 && !dropsAt(f) && accept(f)) {
                return f;
            }
        }
        return INT32_MIN;
    };
    auto slavesOf = [&](int f) {
        std::vector<int> slaves;
        for (int id : resultSensors(f)) {
            auto r = ex.resolve(id, f);
            if (!r.master || *r.master != id) {
                slaves.push_back(id);
            }
        }
        return slaves;
    };
    for (int i = 0; i < s.slaveDrops; ++i) {
        int f = pickFrame([&](int f) { return !slavesOf(f).empty(); });
        if (f == INT32_MIN) {
            break;
        }
        std::vector<int> slaves = slavesOf(f);
        int id =
            slaves[static_cast<size_t>(rng.uniform(0, static_cast<int64_t>(slaves.size()) - 1))];
        slaveDrops.insert({f, id});
        plan.slaveDrops.push_back({f, id});
        busy.insert(f);
    }
    for (int i = 0; i < s.outOfTolerance; ++i) {
        int f = pickFrame([&](int f) { return resultSensors(f).size() > 1; });
        if (f == INT32_MIN) {
            break;
        }
        auto rs = resultSensors(f);
        int id = rs[static_cast<size_t>(rng.uniform(0, static_cast<int64_t>(rs.size()) - 1))];
        int64_t mag = rng.uniform(s.shiftMinUs, s.shiftMaxUs) * 1000;
        shiftNs[{f, id}] = rng.uniform(0, 1) ? mag : -mag;
        plan.outOfTolerance.push_back({f, id});
        busy.insert(f);
    }
    std::sort(plan.slaveDrops.begin(), plan.slaveDrops.end());
    std::sort(plan.outOfTolerance.begin(), plan.outOfTolerance.end());
}

void ScenarioRows::State::expand(int f) {
    std::vector<CallRow> pre;
    if (s.cropEvery > 0) {
        // Each set is issued cropLead frames ahead of the frame it serves, the early ones at the
        // first frame.
        int lastK = f == first ? s.cropLead / s.cropEvery : (f - first + s.cropLead) / s.cropEvery;
        int firstK = f == first ? 0 : lastK;
        if (f > first && (f - first + s.cropLead) % s.cropEvery != 0) {
            firstK = lastK + 1;
        }
        for (int k = firstK; k <= lastK && first + int64_t{k} * s.cropEvery < end; ++k) {
            pre.push_back(periodicCrop(k));
        }
    }
    auto ev = eventsBefore.find(f);
    if (ev != eventsBefore.end()) {
        pre.insert(pre.end(), ev->second.begin(), ev->second.end());
    }
    for (auto const& row : pre) {
        if (row.kind == CallKind::Leave || ex.present(row.sensor, f)) {
            pending.push_back(row);
        }
    }
    int64_t const baseNs = 1000000000;
    std::vector<CallRow> frameRows;
    for (auto const& ss : s.sensors) {
        int id = ss.camera.id;
        Resolved r = ex.resolve(id, f);
        int64_t jitter = rng.uniform(-ss.jitterUs * 1000, ss.jitterUs * 1000);
        if (!ex.present(id, f)) {
            continue;
        }
        CallRow row = ex.row(id, f, r);
        if (slaveDrops.count({f, id}) || dropEvents.count({f, id})) {
            row.kind = CallKind::Drop;
            row.getCrop = false;
        }
        auto sh = shiftNs.find({f, id});
        row.sofNs = baseNs + int64_t{f - first} * periodNs +
                    (ss.sofOffsetUs + r.sofOffsetUs) * 1000 + jitter +
                    (sh == shiftNs.end() ? 0 : sh->second);
        row.expNs = row.sofNs - ss.exposureUs * 1000 + r.expOffsetUs * 1000;
        frameRows.push_back(row);
    }
    std::stable_sort(frameRows.begin(), frameRows.end(),
                     [](CallRow const& a, CallRow const& b) { return a.sofNs < b.sofNs; });
    pending.insert(pending.end(), frameRows.begin(), frameRows.end());
}

ScenarioRows::ScenarioRows(Scenario const& scenario, uint64_t seed)
    : mState(std::make_unique<State>(scenario, seed)) {
    State& st = *mState;
    Scenario const& s = st.s;
    st.periodNs = static_cast<int64_t>(std::llround(1e9 / s.fps));
    st.cropSteps = s.zoomStep > 0
                       ? static_cast<int>(std::floor((s.zoomMax - s.zoomFrom) / s.zoomStep + 1e-9))
                       : 0;
    st.pick();
    // Crop events go after the periodic sets issued at the same frame, as they always have.
    for (auto const& e : s.events) {
        if (e.kind == CallKind::Crop) {
            st.eventsBefore[std::max(st.first, e.frame - s.cropLead)].push_back(
                st.cropRow(e.sensor, e.frame, e.crops));
        } else if (e.kind == CallKind::Drop) {
            st.dropEvents.insert({e.frame, e.sensor});
        } else {
            CallRow row;
            row.kind = e.kind;
            row.sensor = e.sensor;
            row.frame = e.frame;
            row.request = s.firstRequest + (e.frame - st.first);
            st.eventsBefore[e.frame].push_back(row);
        }
    }
    st.session.name = s.name;
    st.session.sessionKey = s.sessionKey;
    st.session.allowCropReplace = s.allowCropReplace;
    st.session.fps = s.fps;
    for (auto const& ss : s.sensors) {
        st.session.cameras.push_back(ss.camera);
    }
    std::sort(st.session.cameras.begin(), st.session.cameras.end(),
              [](CameraSpec const& a, CameraSpec const& b) { return a.id < b.id; });
    st.frame = st.first;
}

ScenarioRows::~ScenarioRows() = default;

SessionInfo const& ScenarioRows::session() const {
    return mState->session;
}

std::vector<int> ScenarioRows::sensors() const {
    std::vector<int> ids;
    for (auto const& c : mState->session.cameras) {
        ids.push_back(c.id);
    }
    return ids;
}

GenerationPlan const& ScenarioRows::plan() const {
    return mState->plan;
}

bool ScenarioRows::next(CallRow& row) {
    State& st = *mState;
    while (st.pending.empty() && st.frame < st.end) {
        st.expand(st.frame++);
    }
    if (st.pending.empty()) {
        return false;
    }
    row = std::move(st.pending.front());
    st.pending.pop_front();
    return true;
}

}  // namespace ryxsim
