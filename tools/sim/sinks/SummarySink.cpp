#include "sinks/SummarySink.h"

#include "model/Strings.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <ostream>

namespace ryxsim {

namespace {

char const* const kColumns[] = {"capture",     "section",      "process",     "session",
                                "every_call",  "sensors",      "frames",      "not_passed",
                                "out_of_sync", "own_drop",     "master_drop", "flush",
                                "refused",     "sensor_left",  "stuck",       "undetermined",
                                "gaps",        "tolerance_99", "build",       "error"};

std::string tolerances(SessionSummary const& s) {
    std::vector<std::string> pairs;
    for (auto const& p : s.tolerance99) {
        pairs.push_back(std::to_string(p.a) + "-" + std::to_string(p.b) + ":" +
                        std::to_string(std::lround(p.us)));
    }
    return join(pairs, " ");
}

std::vector<std::string> cells(SessionSummary const& s) {
    if (!s.error.empty()) {
        std::vector<std::string> row(std::size(kColumns));
        row.front() = s.capture;
        row.back() = s.error;
        return row;
    }
    auto n = [](int v) { return std::to_string(v); };
    return {s.capture,
            s.section,
            s.pid >= 0 ? n(s.pid) : "",
            s.session,
            s.everyCall ? "yes" : "no",
            join(s.sensors, " "),
            n(s.frames),
            n(s.notPassed()),
            n(s.outOfSync),
            n(s.ownDrop),
            n(s.masterDrop),
            n(s.flush),
            n(s.refused),
            n(s.left),
            n(s.stuck),
            n(s.undetermined),
            n(s.gaps),
            tolerances(s),
            s.build,
            s.fatal ? "the library aborted" : ""};
}

// A CSV field, quoted when it holds a separator, a quote or a line end.
std::string csvField(std::string const& v) {
    if (v.find_first_of(",\"\r\n") == std::string::npos) {
        return v;
    }
    std::string q = "\"";
    for (char c : v) {
        q += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return q + "\"";
}

}  // namespace

void writeSummaryCsv(std::ostream& out, std::vector<SessionSummary> const& rows) {
    out << join(std::vector<std::string>(std::begin(kColumns), std::end(kColumns)), ",") << "\n";
    for (auto const& r : rows) {
        std::vector<std::string> fields;
        for (auto const& c : cells(r)) {
            fields.push_back(csvField(c));
        }
        out << join(fields, ",") << "\n";
    }
}

void writeSummaryJsonLines(std::ostream& out, std::vector<SessionSummary> const& rows) {
    for (auto const& r : rows) {
        nlohmann::json j = {{"capture", r.capture}};
        if (!r.error.empty()) {
            j["error"] = r.error;
        } else {
            nlohmann::json tol = nlohmann::json::object();
            for (auto const& p : r.tolerance99) {
                tol[std::to_string(p.a) + "-" + std::to_string(p.b)] = std::lround(p.us);
            }
            j.update({{"section", r.section},
                      {"process", r.pid},
                      {"session", r.session},
                      {"every_call", r.everyCall},
                      {"sensors", r.sensors},
                      {"frames", r.frames},
                      {"not_passed", r.notPassed()},
                      {"out_of_sync", r.outOfSync},
                      {"own_drop", r.ownDrop},
                      {"master_drop", r.masterDrop},
                      {"flush", r.flush},
                      {"refused", r.refused},
                      {"sensor_left", r.left},
                      {"stuck", r.stuck},
                      {"undetermined", r.undetermined},
                      {"gaps", r.gaps},
                      {"tolerance_99_us", tol},
                      {"build", r.build},
                      {"aborted", r.fatal}});
        }
        out << j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    }
}

void writeSummaryText(std::ostream& out, std::vector<SessionSummary> const& rows) {
    std::vector<std::vector<std::string>> table;
    table.emplace_back(std::begin(kColumns), std::end(kColumns));
    for (auto const& r : rows) {
        table.push_back(cells(r));
    }
    std::vector<size_t> width(std::size(kColumns), 0);
    for (auto const& row : table) {
        for (size_t i = 0; i < row.size(); ++i) {
            width[i] = std::max(width[i], row[i].size());
        }
    }
    for (auto const& row : table) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            if (width[i] == 0) {
                continue;  // a column no row fills
            }
            line += row[i] + std::string(width[i] - row[i].size() + 2, ' ');
        }
        out << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
    }
}

}  // namespace ryxsim
