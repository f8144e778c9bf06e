#include "sources/InputChecks.h"

#include "model/Words.h"
#include "sources/LibraryMessages.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <map>

namespace ryxsim {

IntegerVerdict readInteger(std::string_view text, int64_t lo, int64_t hi, int64_t& out) {
    if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) {
        return IntegerVerdict::NotANumber;
    }
    int64_t v = 0;
    auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    bool whole = p == text.data() + text.size();
    if (whole && ec == std::errc::result_out_of_range) {
        return IntegerVerdict::OutOfRange;
    }
    if (!whole || ec != std::errc()) {
        // Not plain decimal: scientific or fractional notation.
        std::string copy(text);
        char* end = nullptr;
        errno = 0;
        long double d = std::strtold(copy.c_str(), &end);
        if (end != copy.c_str() + copy.size() || std::isnan(d)) {
            return IntegerVerdict::NotANumber;
        }
        if (!(d >= static_cast<long double>(lo) && d <= static_cast<long double>(hi))) {
            return IntegerVerdict::OutOfRange;
        }
        if (d != std::floor(d)) {
            return IntegerVerdict::Fractional;
        }
        v = static_cast<int64_t>(d);
    }
    if (v < lo || v > hi) {
        return IntegerVerdict::OutOfRange;
    }
    out = v;
    return IntegerVerdict::Ok;
}

std::string integerProblem(IntegerVerdict verdict, std::string_view text, int64_t lo, int64_t hi) {
    std::string t(text);
    switch (verdict) {
        case IntegerVerdict::OutOfRange:
            return "value " + t + " is out of range [" + std::to_string(lo) + ", " +
                   std::to_string(hi) + "]";
        case IntegerVerdict::Fractional:
            return "expected an integer, got the fractional number " + t;
        default:
            return "expected an integer, got '" + t + "'";
    }
}

namespace {

std::string firstCall(ControlChecker::Seen const& s) {
    return plural(static_cast<long long>(s.calls), "call", "calls") + ", the first sensor " +
           std::to_string(s.sensor) + " f" + std::to_string(s.frame) +
           (s.line > 0 ? " (line " + std::to_string(s.line) + ")" : "");
}

void see(ControlChecker::Seen& s, CallRow const& row) {
    if (s.calls++ == 0) {
        s.sensor = row.sensor;
        s.frame = row.frame;
        s.line = row.sourceLine;
    }
}

}  // namespace

void ControlChecker::add(CallRow const& row) {
    if (row.kind != CallKind::Result) {
        return;
    }
    if (row.toleranceUs && *row.toleranceUs < 0) {
        see(mTolerances[*row.toleranceUs], row);
    }
    if (row.mode && *row.mode != 0 && *row.mode != 1) {
        see(mModes[*row.mode], row);
    }
}

std::vector<std::string> ControlChecker::warnings() const {
    std::vector<std::string> out;
    for (auto const& [tol, s] : mTolerances) {
        // The library compares whole milliseconds, the tolerance divided by 1000 toward zero.
        std::string effect = tol <= -1000 ? "no difference is within it: every frame it judges is "
                                            "out of sync"
                                          : "it counts as 0 ms: only frames whose starts fall in "
                                            "the same whole millisecond are in sync";
        out.push_back("tolerance_us " + std::to_string(tol) + " is negative on " + firstCall(s) +
                      "; " + effect);
    }
    for (auto const& [mode, s] : mModes) {
        out.push_back("mode " + std::to_string(mode) + " is neither 0 nor 1 on " + firstCall(s) +
                      "; it acts as 0: a frame out of tolerance gets RESULT 1 and still passes");
    }
    return out;
}

std::vector<std::string> controlWarnings(Trace const& trace) {
    ControlChecker check;
    for (CallRow const& row : trace.rows) {
        check.add(row);
    }
    return check.warnings();
}

std::string propertyWarning(std::string const& name, std::string const& value) {
    static std::map<std::string, int> const kRead = {
        {RYX_PROP_CROP_REPLACE, RYX_PROP_CROP_REPLACE_DEFAULT},
        {RYX_PROP_UPDATER_LOG, RYX_PROP_UPDATER_LOG_DEFAULT}};
    auto it = kRead.find(name);
    if (it == kRead.end()) {
        return "--prop " + name + ": the library never reads this property (it reads " +
               RYX_PROP_CROP_REPLACE + " and " + RYX_PROP_UPDATER_LOG + ")";
    }
    // Read as the property layer does: base from the prefix, the whole text, within int32.
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(value.c_str(), &end, 0);
    if (value.empty() || *end != '\0' || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) {
        return "--prop " + name + "=" + value +
               ": not a whole number, so the library ignores it and uses its default (" +
               std::to_string(it->second) + ")";
    }
    return "";
}

}  // namespace ryxsim
