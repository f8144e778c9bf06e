#include "sources/logcat/LogLine.h"

#include <cstring>
#include <ctime>

namespace ryxsim {

namespace {

// A cursor over the line; every reader leaves the cursor alone when it fails.
struct Cursor {
    std::string_view s;
    size_t i = 0;

    bool done() const { return i >= s.size(); }
    char peek() const { return done() ? '\0' : s[i]; }
    bool isDigit() const { return peek() >= '0' && peek() <= '9'; }
    size_t spaces() {
        size_t n = 0;
        while (!done() && s[i] == ' ') {
            ++i;
            ++n;
        }
        return n;
    }
    bool eat(char c) {
        if (peek() != c) {
            return false;
        }
        ++i;
        return true;
    }
    // Exactly `n` digits when n > 0, else one or more (at most 18).
    bool digits(int64_t& v, int n = 0, int* count = nullptr) {
        size_t start = i;
        int64_t r = 0;
        int k = 0;
        while (isDigit() && (n == 0 ? k < 18 : k < n)) {
            r = r * 10 + (s[i] - '0');
            ++i;
            ++k;
        }
        if (k == 0 || (n > 0 && k != n) || (n == 0 && isDigit())) {
            i = start;
            return false;
        }
        v = r;
        if (count != nullptr) {
            *count = k;
        }
        return true;
    }
    std::string_view token() {
        size_t start = i;
        while (!done() && s[i] != ' ') {
            ++i;
        }
        return s.substr(start, i - start);
    }
};

bool isLevel(char c) {
    return c != '\0' && std::strchr("VDIWEFS", c) != nullptr;
}

constexpr int64_t kNsPerS = 1000000000;

// "MM-DD HH:MM:SS" or "YYYY-MM-DD HH:MM:SS" after its first number `a` of `n` digits: seconds
// since 1970.
bool readDate(Cursor& c, int64_t a, int n, int64_t& secs, LogLine::TimeForm& form) {
    int64_t year = kYearlessYear, b = 0, hh = 0, mm = 0, ss = 0;
    form = LogLine::TimeForm::Date;
    if (!c.eat('-') || !c.digits(b, 2)) {
        return false;
    }
    if (n == 4 && c.eat('-')) {
        year = a;
        form = LogLine::TimeForm::DateWithYear;
        a = b;
        if (!c.digits(b, 2)) {
            return false;
        }
    } else if (n != 2) {
        return false;
    }
    if (c.spaces() == 0 || !c.digits(hh, 2) || !c.eat(':') || !c.digits(mm, 2) || !c.eat(':') ||
        !c.digits(ss, 2) || a < 1 || a > 12 || b < 1 || b > 31 || hh > 23 || mm > 59 || ss > 60) {
        return false;
    }
    secs = ((daysFromCivil(year, a, b) * 24 + hh) * 60 + mm) * 60 + ss;
    return true;
}

// ".f" of 3, 6 or 9 digits, added to `ns`.
bool readFraction(Cursor& c, int64_t& ns, int& digits) {
    int64_t f = 0;
    if (!c.eat('.') || !c.digits(f, 0, &digits) || (digits != 3 && digits != 6 && digits != 9)) {
        return false;
    }
    for (int k = digits; k < 9; ++k) {
        f *= 10;
    }
    ns += f;
    return true;
}

// " +hhmm" or " -hhmm" (the zone modifier): seconds east of UTC.
bool readZone(Cursor& c, int& offsetS) {
    Cursor zone = c;
    zone.spaces();
    int sign = zone.eat('+') ? 1 : zone.eat('-') ? -1 : 0;
    int64_t z = 0;
    if (sign == 0 || !zone.digits(z, 4) || z % 100 > 59) {
        return false;
    }
    offsetS = sign * static_cast<int>(z / 100 * 3600 + z % 100 * 60);
    c = zone;
    return true;
}

// "[YYYY-]MM-DD HH:MM:SS[.f...][ +zzzz]" or "SSSSSSSSSS[.f...]" into the time fields of `out`;
// `fraction` false for the host format, whose seconds are whole.
bool readTime(Cursor& c, bool fraction, LogLine& out) {
    Cursor save = c;
    int64_t a = 0, secs = 0;
    int n = 0;
    LogLine::TimeForm form = LogLine::TimeForm::Seconds;  // epoch or monotonic seconds
    if (!c.digits(a, 0, &n)) {
        return false;
    }
    if (c.peek() == '.') {
        secs = a;
    } else if (!readDate(c, a, n, secs, form)) {
        c = save;
        return false;
    }
    int64_t ns = secs * kNsPerS;
    int digits = 0;
    if (fraction && !readFraction(c, ns, digits)) {
        c = save;
        return false;
    }
    int offsetS = 0;
    // Compared in UTC, so that the end of summer time is no step back of an hour.
    bool zoned = readZone(c, offsetS) && form != LogLine::TimeForm::Seconds;
    out.timeNs = zoned ? ns - offsetS * kNsPerS : ns;
    out.zoneS = zoned ? std::optional<int>(offsetS) : std::nullopt;
    out.fractionDigits = digits;
    out.timeForm = form;
    return true;
}

// "L/TAG(  PID): message" or "L/TAG(  UID:  PID): message"; the tag may hold '(' itself.
bool readBrief(Cursor& c, LogLine& out) {
    if (c.s.size() < c.i + 2 || !isLevel(c.s[c.i]) || c.s[c.i + 1] != '/') {
        return false;
    }
    out.level = c.s[c.i];
    size_t tagStart = c.i + 2;
    size_t close = c.s.find("): ", tagStart);
    bool bare = false;
    if (close == std::string_view::npos) {
        if (c.s.size() < 1 || c.s.back() != ')') {
            return false;
        }
        close = c.s.size() - 1;  // "): " cut to ")" on an empty message
        bare = true;
    }
    size_t open = c.s.rfind('(', close);
    if (open == std::string_view::npos || open < tagStart) {
        return false;
    }
    // A 'tag' line ("L/TAG: message") whose message ends in "(15)" or holds "(12): " is no brief
    // line: a brief tag is never followed by ": " before its PID.
    if (c.s.substr(tagStart, open - tagStart).find(": ") != std::string_view::npos) {
        return false;
    }
    Cursor p{c.s.substr(open + 1, close - open - 1)};
    p.spaces();
    int64_t pid = 0;
    if (!p.digits(pid)) {
        while (!p.done() && p.peek() != ':' && p.peek() != ' ') {
            ++p.i;  // a user name before the PID
        }
    }
    if (p.eat(':')) {
        p.spaces();
        if (!p.digits(pid)) {
            return false;
        }
    }
    p.spaces();
    if (!p.done()) {
        return false;
    }
    std::string_view tag = c.s.substr(tagStart, open - tagStart);
    while (!tag.empty() && tag.back() == ' ') {
        tag.remove_suffix(1);
    }
    out.tag = tag;
    out.pid = static_cast<int>(pid);
    out.message = bare ? std::string_view() : c.s.substr(close + 3);
    return true;
}

// After the time of a threadtime line: "[UID] PID TID L TAG: message".
bool readThreadtime(Cursor& c, LogLine& out) {
    std::string_view tokens[4];
    size_t n = 0;
    Cursor save = c;
    while (n < 4) {
        if (c.spaces() == 0) {
            c = save;
            return false;
        }
        std::string_view t = c.token();
        if (t.size() == 1 && isLevel(t[0])) {
            break;
        }
        tokens[n++] = t;
    }
    if ((n != 2 && n != 3) || c.spaces() != 1) {
        c = save;
        return false;
    }
    out.level = c.s[c.i - 2];
    int64_t ids[2];
    for (int k = 0; k < 2; ++k) {
        Cursor p{tokens[n - 2 + k]};
        if (!p.digits(ids[k]) || !p.done()) {
            c = save;
            return false;
        }
    }
    size_t colon = c.s.find(": ", c.i);
    size_t end = colon;
    if (colon == std::string_view::npos) {
        if (c.s.empty() || c.s.back() != ':') {
            c = save;
            return false;
        }
        end = c.s.size() - 1;
    }
    std::string_view tag = c.s.substr(c.i, end - c.i);
    while (!tag.empty() && tag.back() == ' ') {
        tag.remove_suffix(1);
    }
    out.tag = tag;
    out.pid = static_cast<int>(ids[0]);
    out.tid = static_cast<int>(ids[1]);
    out.message = colon == std::string_view::npos ? std::string_view() : c.s.substr(colon + 2);
    return true;
}

// "TAG L MM-DD HH:MM:SS  PID  TID message"
bool readHost(Cursor& c, LogLine& out) {
    std::string_view tag = c.token();
    if (tag.empty() || c.spaces() != 1 || c.done() || !isLevel(c.peek())) {
        return false;
    }
    out.level = c.s[c.i++];
    int64_t pid = 0, tid = 0;
    if (c.spaces() != 1 || !readTime(c, false, out) || c.spaces() == 0 || !c.digits(pid) ||
        c.spaces() == 0 || !c.digits(tid)) {
        return false;
    }
    c.eat(' ');
    out.tag = tag;
    out.pid = static_cast<int>(pid);
    out.tid = static_cast<int>(tid);
    out.message = c.s.substr(c.i);
    return true;
}

// "( [UID: ]PID[: TID])": the numbers of a process or thread line; `count` says how many.
bool readIds(Cursor& c, int64_t ids[3], int& count) {
    Cursor save = c;
    if (!c.eat('(')) {
        return false;
    }
    count = 0;
    while (count < 3) {
        c.spaces();
        int64_t v = 0;
        if (c.digits(v)) {
            ids[count++] = v;
        } else {
            while (!c.done() && c.peek() != ':' && c.peek() != ')' && c.peek() != ' ') {
                ++c.i;  // a user name for the UID
            }
            ids[count++] = -1;
        }
        if (!c.eat(':')) {
            break;
        }
    }
    if (!c.eat(')') || count == 0) {
        c = save;
        return false;
    }
    return true;
}

// "L(  PID:  TID) message" (thread) or "L(  PID) message  (TAG)" (process), with a UID first
// under the uid modifier.
bool readThreadOrProcess(Cursor& c, LogLine& out) {
    if (c.s.size() < c.i + 2 || !isLevel(c.s[c.i]) || c.s[c.i + 1] != '(') {
        return false;
    }
    Cursor p = c;
    ++p.i;
    int64_t ids[3];
    int n = 0;
    if (!readIds(p, ids, n) || !p.eat(' ')) {
        return false;
    }
    out.level = c.s[c.i];
    std::string_view message = p.s.substr(p.i);
    size_t open = message.rfind("  (");
    bool process = !message.empty() && message.back() == ')' && open != std::string_view::npos &&
                   message.find(' ', open + 3) == std::string_view::npos;
    if (process && n <= 2) {
        out.tag = message.substr(open + 3, message.size() - open - 4);
        out.message = message.substr(0, open);
        out.pid = static_cast<int>(ids[n - 1]);
        return true;
    }
    if (n < 2 && ids[0] < 0) {
        return false;
    }
    if (n < 2) {
        // A process line cut before its tag: its text is all there is.
        out.pid = static_cast<int>(ids[0]);
        out.message = message;
        return true;
    }
    out.pid = static_cast<int>(ids[n - 2]);
    out.tid = static_cast<int>(ids[n - 1]);
    out.message = message;
    return true;
}

// "L/TAG: message" (tag).
bool readTag(Cursor& c, LogLine& out) {
    if (c.s.size() < c.i + 2 || !isLevel(c.s[c.i]) || c.s[c.i + 1] != '/') {
        return false;
    }
    size_t colon = c.s.find(": ", c.i + 2);
    if (colon == std::string_view::npos) {
        return false;
    }
    out.level = c.s[c.i];
    out.tag = c.s.substr(c.i + 2, colon - c.i - 2);
    while (!out.tag.empty() && out.tag.back() == ' ') {
        out.tag.remove_suffix(1);  // logcat pads tags to eight columns
    }
    out.message = c.s.substr(colon + 2);
    return true;
}

// "[ TIME  [UID: ]PID: TID L/TAG ]" (long); the message follows on the next lines.
bool readLongHeader(Cursor& c, LogLine& out) {
    if (!c.eat('[') || c.spaces() == 0 || c.s.size() < 2 || c.s.substr(c.s.size() - 2) != " ]") {
        return false;
    }
    if (!readTime(c, true, out) || c.spaces() == 0) {
        return false;
    }
    int64_t ids[3];
    int n = 0;
    while (n < 3) {
        c.spaces();
        if (!c.digits(ids[n])) {
            std::string_view user = c.token();  // a user name for the UID
            if (user.empty() || user.back() != ':') {
                return false;
            }
            ids[n++] = -1;
            continue;
        }
        ++n;
        if (!c.eat(':')) {
            break;
        }
    }
    if (n < 2 || c.spaces() == 0 || c.done() || !isLevel(c.peek()) || c.s[c.i + 1] != '/') {
        return false;
    }
    out.level = c.s[c.i];
    out.tag = c.s.substr(c.i + 2, c.s.size() - 2 - (c.i + 2));
    while (!out.tag.empty() && out.tag.back() == ' ') {
        out.tag.remove_suffix(1);
    }
    out.pid = static_cast<int>(ids[n - 2]);
    out.tid = static_cast<int>(ids[n - 1]);
    out.longHeader = true;
    return true;
}

// A message alone (raw): taken only when it is framed as the library frames its messages,
// "( 247) [function] ...", since nothing else on the line says whose it is.
// logd's line where it left lines out, as raw prints it: "uid=1047(cameraserver) ... expire 3
// lines".
bool isChattyText(std::string_view line) {
    return line.substr(0, 4) == "uid=" && line.find('(') != std::string_view::npos &&
           (line.find(" expire ") != std::string_view::npos ||
            line.find(" identical ") != std::string_view::npos);
}

// The library's frame "( 147) [func] ...", or a piece of one cut short ("( 14", "( 147) [upd").
bool readRaw(std::string_view line, LogLine& out) {
    if (isChattyText(line)) {
        out.message = line;
        return true;
    }
    Cursor c{line};
    int64_t n = 0;
    if (!c.eat('(')) {
        return false;
    }
    c.spaces();
    bool number = c.digits(n);
    bool cut = c.done() || (number && c.eat(')') &&
                            (c.done() || (c.eat(' ') && (c.done() || c.peek() == '['))));
    if (!cut && (!number || !c.eat(')') || !c.eat(' ') || !c.eat('['))) {
        return false;
    }
    out.message = line;
    return true;
}

}  // namespace

int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
    // A capture's lines share a few dates (and the calendar asks for new year's days): the
    // last few are kept.
    struct Known {
        int64_t date = -1, days = 0;
    };
    thread_local Known known[4];
    thread_local size_t next = 0;
    int64_t date = (year * 16 + month) * 32 + day;
    for (Known const& k : known) {
        if (k.date == date) {
            return k.days;
        }
    }
    std::tm civil{};
    civil.tm_year = static_cast<int>(year - 1900);
    civil.tm_mon = static_cast<int>(month - 1);
    civil.tm_mday = static_cast<int>(day);
    int64_t days = static_cast<int64_t>(timegm(&civil)) / 86400;
    known[next++ % 4] = {date, days};
    return days;
}

bool parseLogLine(std::string_view line, LogLine& out) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    out = LogLine{};
    Cursor c{line};
    c.spaces();  // epoch and monotonic seconds are right-aligned
    if (c.isDigit()) {
        if (!readTime(c, true, out)) {
            return false;
        }
        Cursor afterTime = c;
        if (readThreadtime(c, out)) {
            return true;
        }
        c = afterTime;
        return c.spaces() > 0 && readBrief(c, out);
    }
    c = Cursor{line};
    if (c.peek() == '[') {
        return readLongHeader(c, out);
    }
    for (auto read : {readBrief, readThreadOrProcess, readTag}) {
        c = Cursor{line};
        out = LogLine{};
        if (read(c, out)) {
            return true;
        }
    }
    c = Cursor{line};
    out = LogLine{};
    if (readHost(c, out)) {
        return true;
    }
    out = LogLine{};
    return readRaw(line, out);
}

}  // namespace ryxsim
