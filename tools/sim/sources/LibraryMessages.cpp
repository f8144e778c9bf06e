#include "sources/LibraryMessages.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace ryxsim {

namespace {

// A signed or unsigned decimal number at text[i], as printf writes them (a width pads with
// spaces before the digits).
bool readNumber(std::string_view text, size_t& i, long long& value) {
    size_t start = i;
    bool negative = i < text.size() && text[i] == '-';
    i += i < text.size() && (text[i] == '-' || text[i] == '+') ? 1 : 0;
    while (i < text.size() && text[i] == ' ') {
        ++i;
    }
    size_t digits = i;
    unsigned long long n = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        n = n * 10 + static_cast<unsigned long long>(text[i++] - '0');
    }
    if (i == digits) {
        i = start;
        return false;
    }
    value = negative ? -static_cast<long long>(n) : static_cast<long long>(n);
    return true;
}

bool readDecimal(std::string_view text, size_t& i, double& value) {
    char const* begin = text.data() + i;
    auto [end, error] = std::from_chars(begin, text.data() + text.size(), value);
    if (error != std::errc()) {
        return false;
    }
    i += static_cast<size_t>(end - begin);
    return true;
}

// The literal text of `format` from f up to its next conversion.
std::string_view literalAt(char const* f) {
    size_t n = 0;
    while (f[n] != '\0' && !(f[n] == '%' && f[n + 1] != '%')) {
        n += f[n] == '%' ? 2 : 1;
    }
    return std::string_view(f, n);
}

struct Store {
    long long number = 0;
    double decimal = 0;
    std::string text;
    void operator()(int* p) const { *p = static_cast<int>(number); }
    void operator()(long* p) const { *p = static_cast<long>(number); }
    void operator()(long long* p) const { *p = number; }
    void operator()(unsigned long* p) const { *p = static_cast<unsigned long>(number); }
    void operator()(double* p) const { *p = decimal; }
    void operator()(std::string* p) const { *p = text; }
    void operator()(Skip) const {}
};

}  // namespace

long matchFormat(std::string_view text, char const* format, Field const* fields, size_t count) {
    size_t i = 0, next = 0;
    for (char const* f = format; *f != '\0';) {
        if (*f != '%' || f[1] == '%') {  // a literal character ("%%" is one '%')
            if (i >= text.size() || text[i] != *f) {
                return -1;
            }
            ++i;
            f += *f == '%' ? 2 : 1;
            continue;
        }
        ++f;
        while (*f != '\0' && std::strchr("0123456789.-+ #", *f) != nullptr) {
            ++f;  // flags, width, precision
        }
        while (*f == 'l' || *f == 'h' || *f == 'z' || *f == 'j') {
            ++f;
        }
        char conversion = *f++;
        Store value;
        bool ok = true;
        if (conversion == 'd' || conversion == 'i' || conversion == 'u') {
            ok = readNumber(text, i, value.number);
        } else if (conversion == 'f' || conversion == 'e' || conversion == 'g') {
            ok = readDecimal(text, i, value.decimal);
        } else if (conversion == 's' || conversion == 'p') {
            std::string_view until = literalAt(f);
            size_t end = until.empty() ? text.size() : text.find(until, i);
            end = end == std::string_view::npos ? text.size() : end;
            value.text.assign(text.substr(i, end - i));
            i = end;
        } else {
            return -1;
        }
        if (!ok || next >= count) {
            return -1;
        }
        std::visit(value, fields[next++]);
    }
    return next == count ? static_cast<long>(i) : -1;
}

bool splitFrame(std::string_view m, std::string_view& func, std::string_view& rest) {
    if (m.empty() || m[0] != '(') {
        return false;
    }
    size_t close = m.find(") [");
    if (close == std::string_view::npos || close > 8) {
        return false;
    }
    size_t end = m.find("] ", close + 3);
    if (end == std::string_view::npos) {
        if (m.back() != ']') {
            return false;
        }
        end = m.size() - 1;
    }
    func = m.substr(close + 3, end - close - 3);
    rest = end + 2 <= m.size() ? m.substr(end + 2) : std::string_view();
    return true;
}

namespace {

size_t conversionsOf(char const* format) {
    size_t conversions = 0;
    for (char const* f = format; *f != '\0'; ++f) {
        if (*f == '%') {
            conversions += f[1] == '%' ? 0 : 1;
            f += f[1] == '%' ? 1 : 0;
        }
    }
    return conversions;
}

// A message's format with its number of conversions, counted once.
struct Known {
    char const* format;
    size_t conversions;
};

std::vector<Known> formatsOf(char severity) {
    std::vector<Known> out;
    for (LibraryMessage const& m : libraryMessages()) {
        if (m.severity == severity) {
            out.push_back({m.format, conversionsOf(m.format)});
        }
    }
    return out;
}

bool startsWithKnown(std::string_view text, Known const& k) {
    static std::vector<Field> const skips(16, Field(kSkip));  // more than any message has
    return k.conversions <= skips.size() &&
           matchFormat(text, k.format, skips.data(), k.conversions) >= 0;
}

}  // namespace

bool startsWithMessage(std::string_view text, char const* format) {
    return startsWithKnown(text, {format, conversionsOf(format)});
}

std::vector<LibraryMessage> const& libraryMessages() {
#define RYX_MESSAGE_ENTRY(name, severity, format, meaning) {#name, severity, format, meaning},
    static std::vector<LibraryMessage> const all{RYX_SYNC_MESSAGES(RYX_MESSAGE_ENTRY)};
#undef RYX_MESSAGE_ENTRY
    return all;
}

}  // namespace ryxsim

namespace ryxsim {

bool refusalMessage(std::string_view framed) {
    std::string_view func, rest;
    if (!splitFrame(framed, func, rest)) {
        return false;
    }
    static std::vector<Known> const refusals = {
        {RYX_MSG_FRAME_INVERSION, conversionsOf(RYX_MSG_FRAME_INVERSION)},
        {RYX_MSG_TIME_INVERSION, conversionsOf(RYX_MSG_TIME_INVERSION)},
        {RYX_MSG_SOF_MISSING, conversionsOf(RYX_MSG_SOF_MISSING)},
        {RYX_MSG_EXPOSURE_MISSING, conversionsOf(RYX_MSG_EXPOSURE_MISSING)}};
    return std::any_of(refusals.begin(), refusals.end(),
                       [&](Known const& k) { return startsWithKnown(rest, k); });
}

bool anomalyOf(std::string_view message, LoggedAnomaly& a) {
    using Kind = LoggedAnomaly::Kind;
    if (readPrefix(message, RYX_MSG_FRAME_INVERSION, &a.master, &a.frame, kSkip, kSkip)) {
        a.kind = Kind::FrameInversion;
    } else if (readPrefix(message, RYX_MSG_TIME_INVERSION, &a.master, &a.frame, kSkip, kSkip)) {
        a.kind = Kind::TimeInversion;
    } else if (readPrefix(message, RYX_MSG_SOF_MISSING, &a.master, &a.frame) ||
               readPrefix(message, RYX_MSG_EXPOSURE_MISSING, &a.master, &a.frame)) {
        a.kind = Kind::MissingTimestamp;
    } else {
        return false;
    }
    return true;
}

bool fatalMessage(std::string_view text) {
    static std::vector<Known> const fatal = formatsOf('F');
    return std::any_of(fatal.begin(), fatal.end(),
                       [&](Known const& k) { return startsWithKnown(text, k); });
}

}  // namespace ryxsim
