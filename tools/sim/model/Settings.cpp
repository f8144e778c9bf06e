#include "model/Settings.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <map>

namespace ryxsim {

namespace {

bool readInteger(std::string const& text, long long lo, long long hi, long long& out) {
    char* end = nullptr;
    errno = 0;
    double v = std::strtod(text.c_str(), &end);  // "2e3" as the other options take it
    if (text.empty() || *end != '\0' || errno != 0 || v != std::floor(v) || v < lo || v > hi) {
        return false;
    }
    out = static_cast<long long>(v);
    return true;
}

}  // namespace

std::string settingsHelp() {
    return "tolerance_us=US, mode=0|1, master=CAMERA, sync=on|off, enable=N, intent=0-255, "
           "timeout=SECONDS";
}

std::string parseSetting(std::string const& text, Settings& s) {
    size_t eq = text.find('=');
    std::string name = text.substr(0, eq),
                value = eq == std::string::npos ? "" : text.substr(eq + 1);
    std::string error = "--set " + text + ": ";
    long long n = 0;
    if (eq == std::string::npos) {
        return error + "expected NAME=VALUE (" + settingsHelp() + ")";
    } else if (name == "tolerance_us" || name == "tolerance") {
        if (!readInteger(value, INT64_MIN / 2, INT64_MAX / 2, n)) {
            return error + "the tolerance is a whole number of microseconds";
        }
        s.toleranceUs = n;
    } else if (name == "mode") {
        if (!readInteger(value, INT32_MIN, INT32_MAX, n)) {
            return error + "the mode is a whole number (1 fails out-of-sync frames)";
        }
        s.mode = static_cast<int32_t>(n);
    } else if (name == "master") {
        if (!readInteger(value, 0, INT32_MAX, n)) {
            return error + "the master is a camera id";
        }
        s.master = static_cast<int32_t>(n);
    } else if (name == "sync") {
        if (value != "on" && value != "off") {
            return error + "sync is on or off";
        }
        s.enable = value == "on" ? 1 : 0;
    } else if (name == "enable") {
        if (!readInteger(value, INT32_MIN, INT32_MAX, n)) {
            return error + "enable is a whole number (bit 0 clear skips synchronisation)";
        }
        s.enable = static_cast<int32_t>(n);
    } else if (name == "intent") {
        if (!readInteger(value, 0, 255, n)) {
            return error + "the capture intent is 0 to 255";
        }
        s.intent = static_cast<int32_t>(n);
    } else if (name == "timeout") {
        char* end = nullptr;
        double seconds = std::strtod(value.c_str(), &end);
        if (value.empty() || *end != '\0' || !(seconds > 0) || seconds > 3600) {
            return error + "the timeout is seconds, more than 0 and at most 3600";
        }
        s.timeoutS = seconds;
    } else {
        return error + "unknown setting '" + name + "' (" + settingsHelp() + ")";
    }
    s.given.push_back(text);
    return "";
}

void applySettings(Settings const& s, Trace& trace) {
    for (CallRow& row : trace.rows) {
        if (row.kind != CallKind::Result && row.kind != CallKind::Drop) {
            continue;
        }
        auto set = [&row](auto const& value, auto& field, char const* column) {
            if (value) {
                field = *value;
                row.unknown.erase(column);
            }
        };
        set(s.toleranceUs, row.toleranceUs, "tolerance_us");
        set(s.mode, row.mode, "mode");
        set(s.master, row.master, "master");
        set(s.enable, row.enable, "enable");
        set(s.intent, row.intent, "intent");
    }
}

std::string unknownValues(Trace const& trace, std::string const& file) {
    CallRow const* first = nullptr;
    size_t calls = 0, firstIndex = 0;
    std::map<std::string, size_t> byColumn;
    for (size_t i = 0; i < trace.rows.size(); ++i) {
        CallRow const& row = trace.rows[i];
        if (row.unknown.empty()) {
            continue;
        }
        firstIndex = first ? firstIndex : i;
        first = first ? first : &row;
        calls++;
        for (auto const& column : row.unknown) {
            byColumn[column]++;
        }
    }
    if (first == nullptr) {
        return "";
    }
    std::string columns;
    for (auto const& [column, count] : byColumn) {
        columns += (columns.empty() ? "" : ", ") + column + " (" + std::to_string(count) + ")";
    }
    std::string where = first->sourceLine > 0 ? ":" + std::to_string(first->sourceLine)
                                              : ", call " + std::to_string(firstIndex + 1);
    return file + where + ": cam" + std::to_string(first->sensor) + " f" +
           std::to_string(first->frame) + " " + kindName(first->kind) + ": " +
           std::to_string(calls) + (calls == 1 ? " call lacks" : " calls lack") +
           " values the capture did not hold ('?'): " + columns +
           ". Give tolerance_us, mode, master, enable or intent with --set NAME=VALUE; " +
           "a system trace of the library ('atrace camera') holds every value";
}

}  // namespace ryxsim
