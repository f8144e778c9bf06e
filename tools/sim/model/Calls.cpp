#include "model/Calls.h"

#include <algorithm>
#include <set>

namespace ryxsim {

char const* kindName(CallKind kind) {
    switch (kind) {
        case CallKind::Result:
            return "result";
        case CallKind::Drop:
            return "drop";
        case CallKind::Flush:
            return "flush";
        case CallKind::Leave:
            return "leave";
        case CallKind::Crop:
            return "crop";
    }
    return "?";
}

std::optional<CallKind> kindFromName(std::string const& name) {
    for (CallKind k :
         {CallKind::Result, CallKind::Drop, CallKind::Flush, CallKind::Leave, CallKind::Crop}) {
        if (name == kindName(k)) {
            return k;
        }
    }
    return std::nullopt;
}

bool CallRow::operator==(CallRow const& o) const {
    return sensor == o.sensor && kind == o.kind && frame == o.frame && request == o.request &&
           sofNs == o.sofNs && expNs == o.expNs && master == o.master && syncIds == o.syncIds &&
           required == o.required && enable == o.enable && toleranceUs == o.toleranceUs &&
           mode == o.mode && msList == o.msList && intent == o.intent && getCrop == o.getCrop &&
           crops == o.crops && unknown == o.unknown;
}

CameraSpec const* SessionInfo::camera(int id) const {
    for (auto const& c : cameras) {
        if (c.id == id) {
            return &c;
        }
    }
    return nullptr;
}

std::string SessionInfo::sensorLabel(int id) const {
    CameraSpec const* c = camera(id);
    if (c == nullptr || c->name.empty()) {
        return std::to_string(id);
    }
    return std::to_string(id) + " " + c->name;
}

std::vector<int> Trace::sensors() const {
    std::set<int> ids;
    for (auto const& c : session.cameras) {
        ids.insert(c.id);
    }
    for (auto const& r : rows) {
        ids.insert(r.sensor);
    }
    return {ids.begin(), ids.end()};
}

bool TraceRows::next(CallRow& row) {
    if (mNext >= mTrace.rows.size()) {
        return false;
    }
    row = mTrace.rows[mNext++];
    return true;
}

bool CallOutcome::sameResultAs(CallOutcome const& o) const {
    return returned == o.returned && verdict == o.verdict && syncResult == o.syncResult &&
           halMaster == o.halMaster && appMaster == o.appMaster && masterCam == o.masterCam &&
           activeArray == o.activeArray && focalLength == o.focalLength;
}

}  // namespace ryxsim
