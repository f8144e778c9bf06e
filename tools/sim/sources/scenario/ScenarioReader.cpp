// Reading a scenario document: every field checked, every problem named with its line.
#include "sources/scenario/Scenario.h"

#include "sources/scenario/JsonLines.h"
#include "sources/scenario/Rng.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace ryxsim {

using nlohmann::json;

namespace {

// Typed access to the parsed JSON; every problem names the file, the line and the field.
class Reader {
  public:
    Reader(std::string const& file, JsonLines const& lines) : mFile(file), mLines(lines) {}

    [[noreturn]] void fail(std::string const& path, std::string const& problem) const {
        throw ParseError(mFile, mLines.lineOf(path), path, problem);
    }

    static std::string join(std::string const& parent, std::string const& key) {
        return parent.empty() ? key : parent + "." + key;
    }
    static std::string at(std::string const& parent, size_t i) {
        return parent + "[" + std::to_string(i) + "]";
    }

    void allowKeys(json const& obj, std::string const& path,
                   std::initializer_list<char const*> keys) const {
        if (!obj.is_object()) {
            fail(path, "expected an object");
        }
        for (auto it = obj.begin(); it != obj.end(); ++it) {
            bool known = false;
            for (char const* k : keys) {
                known = known || it.key() == k;
            }
            if (!known) {
                std::string list;
                for (char const* k : keys) {
                    list += (list.empty() ? "" : ", ") + std::string(k);
                }
                fail(join(path, it.key()), "unknown field (known here: " + list + ")");
            }
        }
    }

    int64_t integer(json const& v, std::string const& path, int64_t lo, int64_t hi) const {
        if (v.is_number_float()) {
            // 1e6 is a whole number; 1e30 and integers too large to parse as one are out of range.
            long double d = v.get<double>();
            if (!(d >= static_cast<long double>(lo) && d <= static_cast<long double>(hi))) {
                fail(path, "value " + v.dump() + " is out of range [" + std::to_string(lo) + ", " +
                               std::to_string(hi) + "]");
            }
            if (d != std::floor(d)) {
                fail(path, "expected an integer, got the fractional number " + v.dump());
            }
            return static_cast<int64_t>(d);
        }
        if (!v.is_number_integer()) {
            fail(path, std::string("expected an integer, got ") + describe(v));
        }
        int64_t x =
            v.is_number_unsigned() && v.get<uint64_t>() > INT64_MAX ? INT64_MAX : v.get<int64_t>();
        if (x < lo || x > hi) {
            fail(path, "value " + v.dump() + " is out of range [" + std::to_string(lo) + ", " +
                           std::to_string(hi) + "]");
        }
        return x;
    }

    double number(json const& v, std::string const& path, double lo, double hi) const {
        if (!v.is_number()) {
            fail(path, std::string("expected a number, got ") + describe(v));
        }
        double x = v.get<double>();
        if (!(x >= lo && x <= hi)) {
            fail(path, "value " + v.dump() + " is out of range [" + trimNum(lo) + ", " +
                           trimNum(hi) + "]");
        }
        return x;
    }

    bool boolean(json const& v, std::string const& path) const {
        if (!v.is_boolean()) {
            fail(path, std::string("expected true or false, got ") + describe(v));
        }
        return v.get<bool>();
    }

    std::string string(json const& v, std::string const& path) const {
        if (!v.is_string()) {
            fail(path, std::string("expected a string, got ") + describe(v));
        }
        return v.get<std::string>();
    }

    std::vector<int32_t> intList(json const& v, std::string const& path) const {
        if (!v.is_array()) {
            fail(path, std::string("expected a list of integers, got ") + describe(v));
        }
        std::vector<int32_t> out;
        for (size_t i = 0; i < v.size(); ++i) {
            out.push_back(static_cast<int32_t>(integer(v[i], at(path, i), INT32_MIN, INT32_MAX)));
        }
        return out;
    }

    NSCam::MRect rect(json const& v, std::string const& path) const {
        auto l = intList(v, path);
        if (l.size() != 4) {
            fail(path, "expected [left, top, width, height]");
        }
        return NSCam::MRect(l[0], l[1], l[2], l[3]);
    }

    static char const* describe(json const& v) {
        switch (v.type()) {
            case json::value_t::null:
                return "null";
            case json::value_t::boolean:
                return "a boolean";
            case json::value_t::string:
                return "a string";
            case json::value_t::array:
                return "a list";
            case json::value_t::object:
                return "an object";
            case json::value_t::number_float:
                return "a fractional number";
            default:
                return "a number";
        }
    }

    static std::string trimNum(double d) {
        std::ostringstream s;
        s << d;
        return s.str();
    }

  private:
    std::string const& mFile;
    JsonLines const& mLines;
};

template <typename T, typename F>
void readSetting(json const& obj, char const* key, std::string const& path, bool nullable,
                 Reader const& r, Setting<T>& out, F convert) {
    if (!obj.contains(key)) {
        return;
    }
    json const& v = obj.at(key);
    std::string p = Reader::join(path, key);
    out.given = true;
    if (v.is_null()) {
        if (!nullable) {
            r.fail(p, "cannot be null here");
        }
        out.value.reset();
        return;
    }
    out.value = convert(v, p);
}

void readControl(json const& obj, std::string const& path, Reader const& r, Control& c) {
    auto i32 = [&](json const& v, std::string const& p) {
        return static_cast<int32_t>(r.integer(v, p, INT32_MIN, INT32_MAX));
    };
    auto i64 = [&](json const& v, std::string const& p) {
        return r.integer(v, p, INT64_MIN / 2, INT64_MAX / 2);
    };
    auto list = [&](json const& v, std::string const& p) { return r.intList(v, p); };
    auto boolean = [&](json const& v, std::string const& p) { return r.boolean(v, p); };
    auto sensorList = [&](json const& v, std::string const& p) {
        auto l = r.intList(v, p);
        for (size_t i = 0; i < l.size(); ++i) {
            if (l[i] < 0) {
                r.fail(Reader::at(p, i), "a sensor id is never negative");
            }
        }
        return l;
    };
    readSetting(obj, "group", path, true, r, c.group, sensorList);
    readSetting(obj, "sync_ids", path, true, r, c.syncIds, list);
    readSetting(obj, "required", path, false, r, c.required, boolean);
    readSetting(obj, "enable", path, true, r, c.enable, i32);
    readSetting(obj, "tolerance_us", path, true, r, c.toleranceUs, i64);
    readSetting(obj, "mode", path, true, r, c.mode, i32);
    readSetting(obj, "master", path, true, r, c.master, i32);
    readSetting(obj, "master_slave_list", path, true, r, c.msList, list);
    readSetting(obj, "intent", path, true, r, c.intent, [&](json const& v, std::string const& p) {
        return static_cast<int32_t>(r.integer(v, p, 0, 255));
    });
    readSetting(obj, "get_crop", path, false, r, c.getCrop, boolean);
    readSetting(obj, "sof_offset_us", path, false, r, c.sofOffsetUs, i64);
    readSetting(obj, "exp_offset_us", path, false, r, c.expOffsetUs, i64);
    readSetting(obj, "drop", path, false, r, c.drop, boolean);
}

#define RYX_CONTROL_KEYS                                                         \
    "group", "sync_ids", "required", "enable", "tolerance_us", "mode", "master", \
        "master_slave_list", "intent", "get_crop", "sof_offset_us", "exp_offset_us", "drop"

}  // namespace

namespace {

json parseDocument(std::string const& text, std::string const& fileName, JsonLines const& lines) {
    try {
        return json::parse(text);
    } catch (json::parse_error const& e) {
        std::string what = e.what();
        size_t colon = what.find(": ", what.find("column"));
        std::string problem = colon == std::string::npos ? what : what.substr(colon + 2);
        size_t at = e.byte > 0 ? e.byte - 1 : 0;
        auto [field, fieldLine] = lines.fieldBefore(at);
        (void)fieldLine;
        throw ParseError(fileName, lines.lineAt(std::min(at, text.size())),
                         field.empty() ? "(document)" : field,
                         "malformed JSON after this field: " + problem);
    }
}

// Reads a scenario document part by part, checking every field against the ones before it
// (sensors against 'sensors', frames against the session's frames).
class ScenarioParser {
  public:
    ScenarioParser(json const& doc, Reader const& r, JsonLines const& lines)
        : mDoc(doc), mR(r), mLines(lines) {}

    Scenario parse() {
        mR.allowKeys(mDoc, "",
                     {"name", "description", "seed", "fps", "frames", "first_frame",
                      "first_request", "session_key", "allow_crop_replace", "sensors", "control",
                      "ranges", "events", "random", "crop_sets"});
        readSession();
        readSensors();
        if (mDoc.contains("control")) {
            mR.allowKeys(mDoc["control"], "control", {RYX_CONTROL_KEYS});
            readControl(mDoc["control"], "control", mR, mS.control);
            checkControl(mS.control, "control");
        }
        readList("ranges", "expected a list of frame ranges", &ScenarioParser::readRange);
        readList("events", "expected a list of events", &ScenarioParser::readEvent);
        readRandom();
        readCropSets();
        return mS;
    }

  private:
    template <typename T>
    void readIf(char const* key, T& out, std::function<T(json const&)> const& read) {
        if (mDoc.contains(key)) {
            out = read(mDoc[key]);
        }
    }

    void readSession() {
        readIf<std::string>("name", mS.name, [&](json const& v) {
            std::string name = mR.string(v, "name");
            if (name.empty() || name.find_first_of(" \t,") != std::string::npos) {
                mR.fail("name", "must be one word without commas");
            }
            return name;
        });
        readIf<std::string>("description", mS.description,
                            [&](json const& v) { return mR.string(v, "description"); });
        readIf<uint64_t>("seed", mS.seed, [&](json const& v) {
            return static_cast<uint64_t>(mR.integer(v, "seed", 0, INT64_MAX));
        });
        readIf<double>("fps", mS.fps,
                       [&](json const& v) { return mR.number(v, "fps", 0.1, 1000); });
        readIf<int>("frames", mS.frames, [&](json const& v) {
            return static_cast<int>(mR.integer(v, "frames", 1, kMaxFrames));
        });
        readIf<int>("first_frame", mS.firstFrame, [&](json const& v) {
            return static_cast<int>(mR.integer(v, "first_frame", -1000000, 1000000000));
        });
        readIf<int>("first_request", mS.firstRequest, [&](json const& v) {
            return static_cast<int>(mR.integer(v, "first_request", -1000000, 1000000000));
        });
        readIf<uint64_t>("session_key", mS.sessionKey, [&](json const& v) {
            return static_cast<uint64_t>(mR.integer(v, "session_key", 0, INT64_MAX));
        });
        readIf<bool>("allow_crop_replace", mS.allowCropReplace,
                     [&](json const& v) { return mR.boolean(v, "allow_crop_replace"); });
    }

    void readSensors() {
        if (!mDoc.contains("sensors")) {
            mR.fail("sensors", "missing: a scenario needs at least one sensor");
        }
        json const& sensors = mDoc["sensors"];
        if (!sensors.is_array() || sensors.empty()) {
            mR.fail("sensors", "expected a non-empty list of sensors");
        }
        for (size_t i = 0; i < sensors.size(); ++i) {
            mS.sensors.push_back(readSensor(sensors[i], Reader::at("sensors", i)));
        }
    }

    SensorSpec readSensor(json const& o, std::string const& p) {
        mR.allowKeys(o, p,
                     {"id", "name", "active_array", "focal_length", "sof_offset_us", "jitter_us",
                      "exposure_us"});
        if (!o.contains("id")) {
            mR.fail(p, "missing field 'id'");
        }
        SensorSpec ss;
        ss.camera.id = static_cast<int>(mR.integer(o["id"], p + ".id", 0, 1023));
        if (!mIds.insert(ss.camera.id).second) {
            mR.fail(p + ".id", "sensor " + std::to_string(ss.camera.id) + " is declared twice");
        }
        if (o.contains("name")) {
            ss.camera.name = mR.string(o["name"], p + ".name");
            if (ss.camera.name.find_first_of(" \t,") != std::string::npos) {
                mR.fail(p + ".name", "must be one word without commas");
            }
        }
        if (o.contains("active_array")) {
            ss.camera.activeArray = mR.rect(o["active_array"], p + ".active_array");
        }
        if (o.contains("focal_length")) {
            ss.camera.focalLength =
                static_cast<float>(mR.number(o["focal_length"], p + ".focal_length", 0, 1000));
        }
        auto micros = [&](char const* key, int64_t lo, int64_t hi, int64_t& out) {
            if (o.contains(key)) {
                out = mR.integer(o[key], p + "." + key, lo, hi);
            }
        };
        micros("sof_offset_us", -1000000, 1000000, ss.sofOffsetUs);
        micros("jitter_us", 0, 1000000, ss.jitterUs);
        micros("exposure_us", 0, 10000000, ss.exposureUs);
        return ss;
    }

    void checkSensor(int id, std::string const& path) const {
        if (mIds.count(id) == 0) {
            mR.fail(path, "sensor " + std::to_string(id) + " is not declared in 'sensors'");
        }
    }

    void checkFrame(int f, std::string const& path) const {
        int lastFrame = mS.firstFrame + mS.frames - 1;
        if (f < mS.firstFrame || f > lastFrame) {
            mR.fail(path, "frame " + std::to_string(f) + " is outside the session's frames " +
                              std::to_string(mS.firstFrame) + ".." + std::to_string(lastFrame));
        }
    }

    void checkControl(Control const& c, std::string const& path) const {
        if (c.group.given && c.group.value) {
            for (size_t i = 0; i < c.group.value->size(); ++i) {
                checkSensor((*c.group.value)[i], Reader::at(Reader::join(path, "group"), i));
            }
        }
        if (c.master.given && c.master.value && *c.master.value >= 0) {
            checkSensor(*c.master.value, Reader::join(path, "master"));
        }
    }

    void readList(char const* key, char const* notAList,
                  void (ScenarioParser::*readOne)(json const&, std::string const&)) {
        if (!mDoc.contains(key)) {
            return;
        }
        json const& list = mDoc[key];
        if (!list.is_array()) {
            mR.fail(key, notAList);
        }
        for (size_t i = 0; i < list.size(); ++i) {
            (this->*readOne)(list[i], Reader::at(key, i));
        }
    }

    void readRange(json const& o, std::string const& p) {
        mR.allowKeys(o, p, {"frames", "sensors", RYX_CONTROL_KEYS});
        RangeSpec rs;
        rs.line = mLines.lineOf(p);
        if (!o.contains("frames")) {
            mR.fail(p, "missing field 'frames' ([first, last] or one frame number)");
        }
        json const& fr = o["frames"];
        if (fr.is_number_integer()) {
            rs.first = rs.last =
                static_cast<int>(mR.integer(fr, p + ".frames", INT32_MIN, INT32_MAX));
        } else {
            auto l = mR.intList(fr, p + ".frames");
            if (l.size() != 2 || l[0] > l[1]) {
                mR.fail(p + ".frames", "expected [first, last] with first <= last");
            }
            rs.first = l[0];
            rs.last = l[1];
        }
        checkFrame(rs.first, p + ".frames");
        checkFrame(rs.last, p + ".frames");
        if (o.contains("sensors")) {
            auto l = mR.intList(o["sensors"], p + ".sensors");
            for (size_t k = 0; k < l.size(); ++k) {
                checkSensor(l[k], Reader::at(p + ".sensors", k));
            }
            rs.sensors.assign(l.begin(), l.end());
        }
        readControl(o, p, mR, rs.control);
        checkControl(rs.control, p);
        mS.ranges.push_back(rs);
    }

    void readEvent(json const& o, std::string const& p) {
        mR.allowKeys(o, p, {"kind", "frame", "sensor", "crops"});
        EventSpec ev;
        ev.line = mLines.lineOf(p);
        if (!o.contains("kind")) {
            mR.fail(p, "missing field 'kind' (drop, flush, leave or crop)");
        }
        std::string kind = mR.string(o["kind"], p + ".kind");
        auto k = kindFromName(kind);
        if (!k || *k == CallKind::Result) {
            mR.fail(p + ".kind", "expected drop, flush, leave or crop, got '" + kind + "'");
        }
        ev.kind = *k;
        for (char const* need : {"frame", "sensor"}) {
            if (!o.contains(need)) {
                mR.fail(p, std::string("missing field '") + need + "'");
            }
        }
        ev.frame = static_cast<int>(mR.integer(o["frame"], p + ".frame", INT32_MIN, INT32_MAX));
        checkFrame(ev.frame, p + ".frame");
        ev.sensor = static_cast<int>(mR.integer(o["sensor"], p + ".sensor", 0, 1023));
        checkSensor(ev.sensor, p + ".sensor");
        if (ev.kind == CallKind::Crop) {
            ev.crops = readCrops(o, p);
        } else if (o.contains("crops")) {
            mR.fail(p + ".crops", "only crop events carry crops");
        }
        mS.events.push_back(ev);
    }

    std::map<int, NSCam::MRect> readCrops(json const& o, std::string const& p) const {
        if (!o.contains("crops") || !o["crops"].is_object() || o["crops"].empty()) {
            mR.fail(p + ".crops",
                    "a crop event needs crops: {\"SENSOR\": [left, top, width, height]}");
        }
        std::map<int, NSCam::MRect> crops;
        for (auto it = o["crops"].begin(); it != o["crops"].end(); ++it) {
            std::string cp = p + ".crops." + it.key();
            int id = -1;
            try {
                size_t used = 0;
                id = std::stoi(it.key(), &used);
                id = used == it.key().size() ? id : -1;
            } catch (...) {
            }
            if (id < 0) {
                mR.fail(cp, "crop keys are sensor ids");
            }
            checkSensor(id, cp);
            crops[id] = mR.rect(it.value(), cp);
        }
        return crops;
    }

    void readRandom() {
        if (!mDoc.contains("random")) {
            return;
        }
        json const& o = mDoc["random"];
        mR.allowKeys(o, "random", {"out_of_tolerance", "shift_us", "slave_drops"});
        if (o.contains("out_of_tolerance")) {
            mS.outOfTolerance = static_cast<int>(
                mR.integer(o["out_of_tolerance"], "random.out_of_tolerance", 0, mS.frames));
        }
        if (o.contains("shift_us")) {
            auto l = mR.intList(o["shift_us"], "random.shift_us");
            if (l.size() != 2 || l[0] < 0 || l[0] > l[1]) {
                mR.fail("random.shift_us", "expected [min, max] with 0 <= min <= max");
            }
            mS.shiftMinUs = l[0];
            mS.shiftMaxUs = l[1];
        }
        if (o.contains("slave_drops")) {
            mS.slaveDrops =
                static_cast<int>(mR.integer(o["slave_drops"], "random.slave_drops", 0, mS.frames));
        }
    }

    void readCropSets() {
        if (!mDoc.contains("crop_sets")) {
            return;
        }
        json const& o = mDoc["crop_sets"];
        mR.allowKeys(o, "crop_sets",
                     {"every_frames", "sensor", "lead", "zoom_from", "zoom_step", "zoom_max"});
        auto whole = [&](char const* key, int64_t lo, int64_t hi, int& out) {
            if (o.contains(key)) {
                out = static_cast<int>(mR.integer(o[key], std::string("crop_sets.") + key, lo, hi));
            }
        };
        auto real = [&](char const* key, double lo, double hi, double& out) {
            if (o.contains(key)) {
                out = mR.number(o[key], std::string("crop_sets.") + key, lo, hi);
            }
        };
        whole("every_frames", 0, 1000000, mS.cropEvery);
        mS.cropSensor = mS.sensors.front().camera.id;
        whole("sensor", 0, 1023, mS.cropSensor);
        if (o.contains("sensor")) {
            checkSensor(mS.cropSensor, "crop_sets.sensor");
        }
        whole("lead", 0, 1000, mS.cropLead);
        real("zoom_from", 1, 100, mS.zoomFrom);
        real("zoom_step", 0, 100, mS.zoomStep);
        real("zoom_max", mS.zoomFrom, 100, mS.zoomMax);
    }

    json const& mDoc;
    Reader const& mR;
    JsonLines const& mLines;
    Scenario mS;
    std::set<int> mIds;
};

}  // namespace

Scenario parseScenario(std::string const& text, std::string const& fileName) {
    JsonLines lines(text);
    json doc = parseDocument(text, fileName, lines);
    Reader r(fileName, lines);
    return ScenarioParser(doc, r, lines).parse();
}

Scenario readScenarioFile(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ParseError(path, 0, "", "cannot open the file");
    }
    std::stringstream ss;
    ss << in.rdbuf();
    return parseScenario(ss.str(), path);
}

}  // namespace ryxsim
