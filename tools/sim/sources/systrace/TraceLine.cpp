#include "sources/systrace/TraceLine.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace ryxsim {

namespace {

constexpr std::string_view kMarker = ": tracing_mark_write: ";

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && s.front() == ' ') {
        s.remove_prefix(1);
    }
    while (!s.empty() && s.back() == ' ') {
        s.remove_suffix(1);
    }
    return s;
}

template <typename T>
bool number(std::string_view s, T& out) {
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && end == s.data() + s.size() && !s.empty();
}

// "8123.456789" (seconds with microseconds, or more digits) as ns.
bool seconds(std::string_view s, int64_t& ns) {
    size_t dot = s.find('.');
    int64_t whole = 0, fraction = 0;
    if (dot == std::string_view::npos || !number(s.substr(0, dot), whole)) {
        return false;
    }
    std::string_view digits = s.substr(dot + 1, 9);
    if (!number(digits, fraction)) {
        return false;
    }
    for (size_t i = digits.size(); i < 9; ++i) {
        fraction *= 10;
    }
    ns = whole * 1000000000 + fraction;
    return true;
}

// "<task>-<tid> (<tgid>) [cpu] flags <seconds>" before the event's name.
bool readHead(std::string_view head, TraceLine& t) {
    size_t cpu = head.rfind('[');
    size_t space = head.rfind(' ');
    if (cpu == std::string_view::npos || space == std::string_view::npos || space < cpu ||
        !seconds(head.substr(space + 1), t.ns)) {
        return false;
    }
    std::string_view left = trimmed(head.substr(0, cpu));
    if (!left.empty() && left.back() == ')') {
        size_t open = left.rfind('(');
        if (open == std::string_view::npos) {
            return false;
        }
        int tgid = -1;
        if (number(trimmed(left.substr(open + 1, left.size() - open - 2)), tgid)) {
            t.pid = tgid;
        }
        left = trimmed(left.substr(0, open));
    }
    size_t dash = left.rfind('-');
    if (dash == std::string_view::npos || !number(left.substr(dash + 1), t.tid)) {
        return false;
    }
    t.task = left.substr(0, dash);
    return true;
}

// "B|pid|name", "E|pid", "E", "C|pid|name|value".
bool readMarker(std::string_view m, TraceLine& t) {
    if (m.size() < 1 || (m.size() > 1 && m[1] != '|')) {
        return false;
    }
    char kind = m[0];
    std::string_view rest = m.size() > 2 ? m.substr(2) : std::string_view();
    size_t bar = rest.find('|');
    int pid = -1;
    if (!rest.empty() && number(rest.substr(0, bar), pid)) {
        t.pid = pid;
    }
    std::string_view after =
        bar == std::string_view::npos ? std::string_view() : rest.substr(bar + 1);
    if (kind == 'B') {
        t.kind = TraceLine::Kind::Begin;
        t.name = after;
        return true;
    }
    if (kind == 'E') {
        t.kind = TraceLine::Kind::End;
        return true;
    }
    size_t last = after.rfind('|');
    if (kind == 'C' && last != std::string_view::npos && number(after.substr(last + 1), t.value)) {
        t.kind = TraceLine::Kind::Counter;
        t.name = after.substr(0, last);
        return true;
    }
    return false;
}

}  // namespace

TraceLine readTraceLine(std::string_view line) {
    TraceLine t;
    size_t at = line.find(kMarker);
    if (at == std::string_view::npos) {
        size_t lost = line.find("[LOST ");
        if (lost != std::string_view::npos &&
            line.find(" EVENTS]", lost) != std::string_view::npos) {
            std::string_view count = line.substr(lost + 6);
            count = count.substr(0, count.find(' '));
            if (number(count, t.lost)) {
                t.kind = TraceLine::Kind::Lost;
            }
        }
        return t;
    }
    std::string_view marker = line.substr(at + kMarker.size());
    while (!marker.empty() && (marker.back() == '\r' || marker.back() == '\n')) {
        marker.remove_suffix(1);
    }
    TraceLine read;
    if (readHead(line.substr(0, at), read) && readMarker(marker, read)) {
        return read;
    }
    return t;
}

bool readEntriesHeader(std::string_view line, long long& held, long long& written) {
    return std::sscanf(std::string(line.substr(0, 120)).c_str(),
                       "# entries-in-buffer/entries-written: %lld/%lld", &held, &written) == 2;
}

}  // namespace ryxsim
