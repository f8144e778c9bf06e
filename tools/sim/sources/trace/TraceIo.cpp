#include "sources/trace/TraceIo.h"

#include "model/Strings.h"
#include "sources/InputChecks.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <limits>
#include <sstream>

namespace ryxsim {

namespace {

char const* const kColumns[] = {
    "sensor",   "kind",   "frame",        "request", "sof_ns",  "exp_ns", "master",   "sync_ids",
    "required", "enable", "tolerance_us", "mode",    "ms_list", "intent", "get_crop", "crops"};

std::vector<std::string> words(std::string const& s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    std::string w;
    while (in >> w) {
        out.push_back(w);
    }
    return out;
}

// Reads one field of one line; every problem becomes a ParseError naming the line and field.
class FieldReader {
  public:
    FieldReader(std::string const& file, int line) : mFile(file), mLine(line) {}

    [[noreturn]] void fail(std::string const& field, std::string const& problem) const {
        throw ParseError(mFile, mLine, field, problem);
    }

    int64_t integer(std::string const& field, std::string const& text, int64_t lo,
                    int64_t hi) const {
        int64_t v = 0;
        IntegerVerdict verdict = readInteger(text, lo, hi, v);
        if (verdict != IntegerVerdict::Ok) {
            fail(field, integerProblem(verdict, text, lo, hi));
        }
        return v;
    }

    template <typename T>
    std::optional<T> optional(std::string const& field, std::string const& text) const {
        if (text.empty()) {
            return std::nullopt;
        }
        return static_cast<T>(
            integer(field, text, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
    }

    bool flag(std::string const& field, std::string const& text) const {
        if (text.empty() || text == "0") {
            return false;
        }
        if (text == "1") {
            return true;
        }
        fail(field, "expected 0, 1 or nothing, got '" + text + "'");
    }

    std::optional<std::vector<int32_t>> list(std::string const& field,
                                             std::string const& text) const {
        if (text.empty()) {
            return std::nullopt;
        }
        std::vector<int32_t> out;
        for (auto const& w : words(text)) {
            out.push_back(static_cast<int32_t>(integer(field, w, INT32_MIN, INT32_MAX)));
        }
        return out;
    }

    NSCam::MRect rect(std::string const& field, std::string const& text) const {
        auto parts = split(text, ':');
        if (parts.size() != 4) {
            fail(field, "expected LEFT:TOP:WIDTH:HEIGHT, got '" + text + "'");
        }
        int32_t v[4];
        for (int i = 0; i < 4; ++i) {
            v[i] = static_cast<int32_t>(integer(field, trim(parts[i]), INT32_MIN, INT32_MAX));
        }
        return NSCam::MRect(v[0], v[1], v[2], v[3]);
    }

    std::map<int, NSCam::MRect> crops(std::string const& field, std::string const& text) const {
        std::map<int, NSCam::MRect> out;
        for (auto const& item : split(text, ';')) {
            std::string t = trim(item);
            if (t.empty()) {
                continue;
            }
            size_t eq = t.find('=');
            if (eq == std::string::npos) {
                fail(field, "expected SENSOR=LEFT:TOP:WIDTH:HEIGHT, got '" + t + "'");
            }
            int id = static_cast<int>(integer(field, trim(t.substr(0, eq)), 0, INT32_MAX));
            if (out.count(id) != 0) {
                fail(field, "sensor " + std::to_string(id) + " appears twice");
            }
            out[id] = rect(field, trim(t.substr(eq + 1)));
        }
        return out;
    }

  private:
    std::string const& mFile;
    int mLine;
};

void parseDirective(std::string const& body, FieldReader const& fr, SessionInfo& session) {
    auto toks = words(body);
    if (toks.empty()) {
        fr.fail("#@", "empty directive");
    }
    std::map<std::string, std::string> kv;
    for (size_t i = 1; i < toks.size(); ++i) {
        size_t eq = toks[i].find('=');
        if (eq == std::string::npos) {
            fr.fail(toks[0], "expected KEY=VALUE, got '" + toks[i] + "'");
        }
        kv[toks[i].substr(0, eq)] = toks[i].substr(eq + 1);
    }
    if (toks[0] == "session") {
        for (auto const& [k, v] : kv) {
            if (k == "name") {
                session.name = v;
            } else if (k == "key") {
                session.sessionKey =
                    static_cast<uint64_t>(fr.integer("session.key", v, 0, INT64_MAX));
            } else if (k == "crop_replace") {
                session.allowCropReplace = fr.flag("session.crop_replace", v);
            } else if (k == "fps") {
                char* end = nullptr;
                double fps = std::strtod(v.c_str(), &end);
                if (v.empty() || *end != '\0' || !(fps > 0 && fps <= 1000)) {
                    fr.fail("session.fps", "expected a frame rate in (0, 1000], got '" + v + "'");
                }
                session.fps = fps;
            } else {
                fr.fail("session." + k, "unknown session key");
            }
        }
    } else if (toks[0] == "camera") {
        CameraSpec cam;
        if (kv.count("id") == 0) {
            fr.fail("camera.id", "missing");
        }
        for (auto const& [k, v] : kv) {
            if (k == "id") {
                cam.id = static_cast<int>(fr.integer("camera.id", v, 0, INT32_MAX));
            } else if (k == "name") {
                cam.name = v;
            } else if (k == "active") {
                cam.activeArray = fr.rect("camera.active", v);
            } else if (k == "focal") {
                char* end = nullptr;
                float f = std::strtof(v.c_str(), &end);
                if (v.empty() || *end != '\0') {
                    fr.fail("camera.focal", "expected a number, got '" + v + "'");
                }
                cam.focalLength = f;
            } else {
                fr.fail("camera." + k, "unknown camera key");
            }
        }
        if (session.camera(cam.id) != nullptr) {
            fr.fail("camera.id", "camera " + std::to_string(cam.id) + " is declared twice");
        }
        session.cameras.push_back(cam);
        std::sort(session.cameras.begin(), session.cameras.end(),
                  [](CameraSpec const& a, CameraSpec const& b) { return a.id < b.id; });
    } else {
        fr.fail("#@", "unknown directive '" + toks[0] + "' (expected session or camera)");
    }
}

// The columns a capture may not show: "?" in them marks the value as not known.
char const* const kUnknowable[] = {"sof_ns", "exp_ns",       "master", "sync_ids", "required",
                                   "enable", "tolerance_us", "mode",   "ms_list",  "intent"};

bool unknowable(std::string const& column) {
    return std::find(std::begin(kUnknowable), std::end(kUnknowable), column) !=
           std::end(kUnknowable);
}

void takeUnknown(std::map<std::string, std::string>& fields, FieldReader const& fr, CallRow& row) {
    for (auto& [column, value] : fields) {
        if (value != kUnknownField) {
            continue;
        }
        if (!unknowable(column)) {
            fr.fail(column, "'?' (not known) is taken only in the controls and the times");
        }
        row.unknown.insert(column);
        value.clear();
    }
}

CallRow parseRow(std::vector<std::string> const& header, std::vector<std::string> const& cells,
                 FieldReader const& fr) {
    if (cells.size() != header.size()) {
        fr.fail("", "expected " + std::to_string(header.size()) + " fields, found " +
                        std::to_string(cells.size()));
    }
    std::map<std::string, std::string> f;
    for (size_t i = 0; i < header.size(); ++i) {
        f[header[i]] = trim(cells[i]);
    }
    CallRow row;
    takeUnknown(f, fr, row);
    auto get = [&](char const* name) -> std::string {
        auto it = f.find(name);
        return it == f.end() ? std::string() : it->second;
    };

    std::string sensor = get("sensor");
    if (sensor.empty()) {
        fr.fail("sensor", "missing");
    }
    row.sensor = static_cast<int>(fr.integer("sensor", sensor, 0, INT32_MAX));
    std::string kind = get("kind");
    auto k = kindFromName(kind);
    if (!k) {
        fr.fail("kind", "expected result, drop, flush, leave or crop, got '" + kind + "'");
    }
    row.kind = *k;
    bool perFrame = row.kind == CallKind::Result || row.kind == CallKind::Drop;
    std::string frame = get("frame");
    if (frame.empty() && (perFrame || row.kind == CallKind::Flush)) {
        fr.fail("frame", std::string("missing (a ") + kind + " row needs a frame number)");
    }
    if (!frame.empty()) {
        row.frame = static_cast<int>(fr.integer("frame", frame, INT32_MIN, INT32_MAX));
    }
    std::string request = get("request");
    if (!request.empty()) {
        row.request = static_cast<int>(fr.integer("request", request, INT32_MIN, INT32_MAX));
    } else if (row.kind == CallKind::Crop) {
        fr.fail("request", "missing (a crop row needs the request number of its set)");
    } else {
        row.request = row.frame;
    }
    row.sofNs = fr.optional<int64_t>("sof_ns", get("sof_ns")).value_or(0);
    row.expNs = fr.optional<int64_t>("exp_ns", get("exp_ns")).value_or(0);
    row.master = fr.optional<int32_t>("master", get("master"));
    row.syncIds = fr.list("sync_ids", get("sync_ids"));
    row.required = fr.flag("required", get("required"));
    row.enable = fr.optional<int32_t>("enable", get("enable"));
    row.toleranceUs = fr.optional<int64_t>("tolerance_us", get("tolerance_us"));
    row.mode = fr.optional<int32_t>("mode", get("mode"));
    row.msList = fr.list("ms_list", get("ms_list"));
    std::string intent = get("intent");
    if (!intent.empty()) {
        row.intent = static_cast<int32_t>(fr.integer("intent", intent, 0, 255));
    }
    row.getCrop = fr.flag("get_crop", get("get_crop"));
    std::string crops = get("crops");
    if (row.kind == CallKind::Crop) {
        if (crops.empty()) {
            fr.fail("crops", "missing (a crop row needs at least one SENSOR=L:T:W:H)");
        }
        row.crops = fr.crops("crops", crops);
    } else if (!crops.empty()) {
        fr.fail("crops",
                std::string("only crop rows carry a crop set, this is a ") + kind + " row");
    }
    if (row.getCrop && row.kind != CallKind::Result) {
        fr.fail("get_crop", "only result rows can ask for their crop");
    }
    return row;
}

}  // namespace

Trace parseTrace(std::string const& text, std::string const& fileName) {
    Trace trace;
    std::vector<std::string> header;
    std::istringstream in(text);
    std::string raw;
    int lineNo = 0;
    while (std::getline(in, raw)) {
        ++lineNo;
        std::string line = trim(raw);
        FieldReader fr(fileName, lineNo);
        if (line.empty()) {
            continue;
        }
        if (startsWith(line, "#@")) {
            if (!header.empty()) {
                fr.fail("#@", "directives must come before the header row");
            }
            parseDirective(line.substr(2), fr, trace.session);
            continue;
        }
        if (line[0] == '#') {
            continue;
        }
        auto cells = split(line, ',');
        if (header.empty()) {
            for (auto& c : cells) {
                c = trim(c);
                if (std::find(std::begin(kColumns), std::end(kColumns), c) == std::end(kColumns)) {
                    fr.fail(c,
                            "unknown column (the header row must name columns of the trace "
                            "format, starting with sensor,kind,frame)");
                }
                if (std::count(cells.begin(), cells.end(), c) > 1) {
                    fr.fail(c, "column appears twice");
                }
            }
            for (char const* need : {"sensor", "kind", "frame"}) {
                if (std::find(cells.begin(), cells.end(), need) == cells.end()) {
                    fr.fail(need, "the header row lacks this column");
                }
            }
            header = cells;
            continue;
        }
        CallRow row = parseRow(header, cells, fr);
        row.sourceLine = lineNo;
        trace.rows.push_back(std::move(row));
    }
    if (header.empty()) {
        // An empty file is reported at its first line, where the header belongs.
        throw ParseError(fileName, std::max(lineNo, 1), "",
                         lineNo == 0 ? "the file is empty (expected a header row "
                                       "sensor,kind,frame,... and one row per call)"
                                     : "no header row (expected sensor,kind,frame,...)");
    }
    if (trace.rows.empty()) {
        throw ParseError(fileName, lineNo, "", "no calls after the header row");
    }
    return trace;
}

Trace readTraceFile(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ParseError(path, 0, "", "cannot open the file");
    }
    std::stringstream ss;
    ss << in.rdbuf();
    return parseTrace(ss.str(), path);
}

namespace {

template <typename T>
std::string opt(std::optional<T> const& v) {
    return v ? std::to_string(*v) : std::string();
}

std::string list(std::optional<std::vector<int32_t>> const& v) {
    if (!v) {
        return "";
    }
    std::string s;
    for (size_t i = 0; i < v->size(); ++i) {
        s += (i ? " " : "") + std::to_string((*v)[i]);
    }
    return s;
}

std::string rect(NSCam::MRect const& r) {
    return std::to_string(r.left) + ":" + std::to_string(r.top) + ":" + std::to_string(r.width) +
           ":" + std::to_string(r.height);
}

std::string shortFloat(double v) {
    char buf[64];
    auto [p, ec] = std::to_chars(buf, buf + sizeof buf, static_cast<float>(v));
    return ec == std::errc() ? std::string(buf, p) : std::to_string(v);
}

}  // namespace

void writeTraceHeader(std::ostream& out, SessionInfo const& s) {
    out << "# synchelper-sim trace: one pipeline call per row, each sensor's calls in row order\n";
    out << "#@ session name=" << (s.name.empty() ? "trace" : s.name) << " key=" << s.sessionKey
        << " crop_replace=" << (s.allowCropReplace ? 1 : 0) << " fps=" << shortFloat(s.fps) << "\n";
    for (auto const& c : s.cameras) {
        out << "#@ camera id=" << c.id;
        if (!c.name.empty()) {
            out << " name=" << c.name;
        }
        out << " active=" << rect(c.activeArray) << " focal=" << shortFloat(c.focalLength) << "\n";
    }
    for (size_t i = 0; i < std::size(kColumns); ++i) {
        out << (i ? "," : "") << kColumns[i];
    }
    out << "\n";
}

namespace {

// `text`, or "?" when the row's source did not know the column's value.
std::string known(CallRow const& r, char const* column, std::string text) {
    return r.unknown.count(column) != 0 ? std::string(kUnknownField) : text;
}

}  // namespace

void writeTraceRow(std::ostream& out, CallRow const& r) {
    bool perFrame = r.kind == CallKind::Result || r.kind == CallKind::Drop;
    std::string crops;
    for (auto const& [id, rc] : r.crops) {
        crops += (crops.empty() ? "" : ";") + std::to_string(id) + "=" + rect(rc);
    }
    bool hasFrame = r.kind != CallKind::Crop && r.kind != CallKind::Leave ? true : r.frame >= 0;
    out << r.sensor << ',' << kindName(r.kind) << ',' << (hasFrame ? std::to_string(r.frame) : "")
        << ','
        << (r.request != r.frame || r.kind == CallKind::Crop ? std::to_string(r.request)
                                                             : std::string())
        << ',' << known(r, "sof_ns", perFrame && r.sofNs ? std::to_string(r.sofNs) : "") << ','
        << known(r, "exp_ns", perFrame && r.expNs ? std::to_string(r.expNs) : "") << ','
        << known(r, "master", opt(r.master)) << ',' << known(r, "sync_ids", list(r.syncIds)) << ','
        << known(r, "required", r.required ? "1" : "") << ',' << known(r, "enable", opt(r.enable))
        << ',' << known(r, "tolerance_us", opt(r.toleranceUs)) << ','
        << known(r, "mode", opt(r.mode)) << ',' << known(r, "ms_list", list(r.msList)) << ','
        << known(r, "intent", opt(r.intent)) << ',' << (r.getCrop ? "1" : "") << ',' << crops
        << "\n";
}

void writeTrace(std::ostream& out, Trace const& trace) {
    writeTraceHeader(out, trace.session);
    for (auto const& r : trace.rows) {
        writeTraceRow(out, r);
    }
}

bool RecordedRows::next(CallRow& row) {
    if (!mHeaderWritten) {
        writeTraceHeader(mOut, mSource.session());
        mHeaderWritten = true;
    }
    if (!mSource.next(row)) {
        return false;
    }
    writeTraceRow(mOut, row);
    return true;
}

std::string traceToString(Trace const& trace) {
    std::ostringstream out;
    writeTrace(out, trace);
    return out.str();
}

}  // namespace ryxsim
