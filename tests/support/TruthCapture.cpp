#include "TruthCapture.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace ryxtest {

namespace {

using Rng = std::mt19937_64;

int pick(Rng& rng, int lo, int hi) {
    return std::uniform_int_distribution<int>(lo, std::max(lo, hi))(rng);
}

bool chance(Rng& rng, double p) {
    return std::bernoulli_distribution(p)(rng);
}

// One line (or 'long' record) of the capture before it is printed.
struct Item {
    enum Kind { Entry, Text } kind = Entry;
    LogEntry entry;
    std::string text;  // Text: printed as it stands
    LineOrigin origin;
    bool cut = false;  // printed cut short
};

LogEntry noise(Rng& rng, LogEntry const& near, int pid, int tid) {
    static char const* const kTags[] = {
        "CameraService", "ActivityManager", "SurfaceFlinger", "CameraHalPipe", "ISP", "Sensor"};
    static char const* const kTexts[] = {"processCaptureResult frame 12 done",
                                         "onResult: (1234) [x] not ours",
                                         "Displayed com.example.camera/.Main: +412ms",
                                         "vsync 60Hz",
                                         "f(12) timing ok",
                                         "stream 0x7b config 4000x3000 fmt 0x23"};
    LogEntry e = near;
    e.pid = pid;
    e.tid = tid;
    e.uid = 1000;
    e.priority = static_cast<android_LogPriority>(pick(rng, ANDROID_LOG_DEBUG, ANDROID_LOG_WARN));
    e.tag = kTags[pick(rng, 0, 5)];
    e.message = kTexts[pick(rng, 0, 5)];
    return e;
}

struct Forge {
    TrueProcessLog const& log;
    CaptureForm const& form;
    Rng& rng;
    std::vector<int> pids;
    std::vector<std::pair<int, size_t>> order;  // every (session, entry) in time order
    std::vector<Item> items;
    Capture out;
    bool systemNamed = false;

    void chattyRun(size_t& i, size_t to, int piece);
    void piece(size_t from, size_t to, int number);
    void others(LogEntry const& near);
    void print();
};

// Other processes' lines, the camera process's other threads, another buffer's late lines.
void Forge::others(LogEntry const& near) {
    if (!form.otherLines || !chance(rng, 0.15)) {
        return;
    }
    Item it;
    bool sameProcess = chance(rng, 0.4);
    it.entry =
        noise(rng, near, sameProcess ? near.pid : 700 + pick(rng, 0, 50), pick(rng, 9000, 9100));
    if (form.stepBack && chance(rng, 0.2)) {  // the system buffer's lines, seconds late
        if (!systemNamed) {                   // logcat names a buffer once, before its first line
            items.push_back({Item::Text, {}, "--------- beginning of system", {}, false});
            systemNamed = true;
        }
        it.entry.pid = 600;
        it.entry.sec -= pick(rng, 2, 6);
    }
    items.push_back(it);
}

// logd left a run of the process's lines out and says how many.
void Forge::chattyRun(size_t& i, size_t to, int piece) {
    auto [s, first] = order[i];
    int n = 0;
    LogEntry const head = log.sessions[s].log[first];
    while (i < to && order[i].first == s && n < 6) {
        auto [ss, e] = order[i];
        if (log.sessions[ss].log[e].priority >= minimumPriority(form.level)) {
            out.shown[piece][ss].lost.insert(e);
            ++n;
        }
        ++i;
    }
    Item it;
    it.entry = head;
    it.entry.pid = pids[s];  // logd speaks for the process whose lines it left out
    it.entry.tag = "chatty";
    it.entry.priority = ANDROID_LOG_INFO;
    it.entry.message = "uid=1047(cameraserver) camera_pipe " +
                       std::string(chance(rng, 0.5) ? "identical " : "expire ") +
                       std::to_string(n) + (n == 1 ? " line" : " lines");
    items.push_back(it);
}

void Forge::piece(size_t from, size_t to, int number) {
    out.shown.emplace_back(log.sessions.size());
    for (size_t i = from; i < to; ++i) {
        auto [s, e] = order[i];
        Shown& sh = out.shown[number][s];
        sh.from = sh.any() ? sh.from : e;
        sh.to = e + 1;
    }
    bool chattyDone = !form.chatty, cutDone = !form.cutLine;
    for (size_t i = from; i < to;) {
        auto [s, e] = order[i];
        LogEntry entry = log.sessions[s].log[e];
        entry.pid = pids[s];
        others(entry);
        if (entry.priority < minimumPriority(form.level)) {
            ++i;
            continue;
        }
        if (!chattyDone && chance(rng, 0.02)) {
            chattyDone = true;
            chattyRun(i, to, number);
            continue;
        }
        Item it{Item::Entry, entry, {}, {s, static_cast<int>(e), number}, false};
        if (!cutDone && chance(rng, 0.02)) {
            cutDone = it.cut = true;
            out.shown[number][s].lost.insert(e);
        }
        items.push_back(it);
        ++i;
    }
}

std::string cutShort(std::string const& line, Rng& rng) {
    size_t bracket = line.find("] ");  // inside the library's "(  12) [func] " frame
    size_t open = line.rfind('(', bracket);
    if (bracket == std::string::npos || open == std::string::npos) {
        return line.substr(0, line.size() / 2) + "\n";
    }
    return line.substr(0, static_cast<size_t>(pick(rng, static_cast<int>(open) + 1,
                                                   static_cast<int>(bracket) - 1))) +
           "\n";
}

void Forge::print() {
    AndroidLogFormat* format = logcatFormat(form.formats);
    out.origin.push_back({});
    for (auto const& it : items) {
        std::string text = it.kind == Item::Text ? it.text + "\n" : formatEntry(format, it.entry);
        if (it.cut) {
            text = cutShort(text, rng);
        }
        out.text += text;
        for (char c : text) {
            if (c == '\n') {
                out.origin.push_back(it.origin);
            }
        }
    }
    android_log_format_free(format);
}

// The changes made to the capture's whole text: a bugreport around it, line ends, encoding.
void wrap(Capture& c, CaptureForm const& form) {
    if (form.bugreport) {
        static char const kHead[] =
            "========================================================\n"
            "== dumpstate: 2026-11-24 10:00:00\n"
            "========================================================\n"
            "\n"
            "Build: test-build\n"
            "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------\n";
        c.text = kHead + c.text + "------ 0.512s was the duration of 'SYSTEM LOG' ------\n";
        c.origin.insert(c.origin.begin() + 1, 6, LineOrigin{});
        c.origin.push_back({});
    }
    if (form.crlf) {
        std::string crlf;
        for (char ch : c.text) {
            crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
        }
        c.text = crlf;
    }
    if (form.utf16) {  // the capture is ASCII: each byte one 16-bit unit, little endian
        std::string wide = "\xFF\xFE";
        for (char ch : c.text) {
            wide += ch;
            wide += '\0';
        }
        c.text = wide;
    }
}

class TimeZone {
  public:
    explicit TimeZone(char const* tz) {
        char const* old = std::getenv("TZ");
        mOld = old ? old : "";
        mHad = old != nullptr;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~TimeZone() {
        mHad ? setenv("TZ", mOld.c_str(), 1) : unsetenv("TZ");
        tzset();
    }

  private:
    std::string mOld;
    bool mHad = false;
};

}  // namespace

Capture makeCapture(TrueProcessLog const& log, CaptureForm const& form, Rng& rng) {
    Forge f{log, form, rng, {}, {}, {}, {}, false};
    f.out.form = form;
    int pidBase = 1000 + pick(rng, 0, 8000);
    for (auto const& s : log.sessions) {
        f.pids.push_back(pidBase + s.process * 17);
    }
    for (size_t s = 0; s < log.sessions.size(); ++s) {
        for (size_t e = 0; e < log.keptEntries[s]; ++e) {
            f.order.emplace_back(static_cast<int>(s), e);
        }
    }
    size_t n = f.order.size();
    size_t from = form.startMid ? static_cast<size_t>(pick(rng, 1, static_cast<int>(n / 3))) : 0;
    size_t to =
        form.endMid
            ? static_cast<size_t>(pick(rng, static_cast<int>(2 * n / 3), static_cast<int>(n) - 1))
            : n;
    f.items.push_back({Item::Text, {}, "--------- beginning of main", {}, false});
    if (form.reconnect && to > from + 2) {
        size_t at =
            static_cast<size_t>(pick(rng, static_cast<int>(from) + 1, static_cast<int>(to) - 1));
        size_t again = at - static_cast<size_t>(
                                pick(rng, 1, static_cast<int>(std::min<size_t>(200, at - from))));
        f.piece(from, at, 0);
        f.items.push_back({Item::Text, {}, "--------- beginning of main", {}, false});
        f.systemNamed = false;  // a new logcat names its buffers again
        f.piece(again, to, 1);
        f.out.pieces = 2;
    } else {
        f.piece(from, to, 0);
    }
    if (form.cutLast) {
        for (auto it = f.items.rbegin(); it != f.items.rend(); ++it) {
            if (it->kind == Item::Entry && it->origin.session >= 0) {
                it->cut = true;
                f.out.shown[it->origin.piece][it->origin.session].lost.insert(it->origin.entry);
                f.items.erase(std::next(it).base() + 1, f.items.end());
                break;
            }
        }
    }
    {
        TimeZone tz(form.zoneChange ? "CET-1CEST,M3.5.0,M10.5.0/3" : "UTC0");
        f.print();
    }
    if (form.cutLast && !f.out.text.empty()) {
        f.out.text.pop_back();  // no line end: the capture was cut in its last line
    }
    wrap(f.out, form);
    return std::move(f.out);
}

namespace {

constexpr int64_t kNewYearSec = 1767225600;     // 2026-01-01 00:00:00 UTC
constexpr int64_t kSummerEndsSec = 1761440400;  // 2025-10-26 01:00:00 UTC: CEST ends

}  // namespace

int64_t captureStartSec(CaptureForm const& form, Rng& rng) {
    if (form.yearEnd) {
        return kNewYearSec - pick(rng, 5, 40);
    }
    if (form.zoneChange) {
        return kSummerEndsSec - pick(rng, 5, 40);
    }
    return 1764000000 + pick(rng, 0, 86400 * 20);
}

void crossMidSession(TrueProcessLog& log, CaptureForm const& form, uint64_t seed) {
    if (!form.yearEnd && !form.zoneChange) {
        return;
    }
    std::vector<LogEntry const*> kept;  // in time order
    for (size_t s = 0; s < log.sessions.size(); ++s) {
        for (size_t e = 0; e < log.keptEntries[s]; ++e) {
            kept.push_back(&log.sessions[s].log[e]);
        }
    }
    if (kept.size() < 4) {
        return;
    }
    Rng rng(seed * 6007);
    int n = static_cast<int>(kept.size());
    LogEntry const& at = *kept[static_cast<size_t>(pick(rng, n / 4, 3 * n / 4))];
    int64_t const boundary = (form.yearEnd ? kNewYearSec : kSummerEndsSec) * 1000000000;
    int64_t const shift = boundary - (at.sec * 1000000000 + at.nsec);
    for (auto& s : log.sessions) {
        for (auto& e : s.log) {
            int64_t ns = e.sec * 1000000000 + e.nsec + shift;
            e.sec = ns / 1000000000;
            e.nsec = ns % 1000000000;
        }
    }
}

bool CaptureForm::hasThreadIds() const {
    for (auto const& f : formats) {
        if (f == "threadtime" || f == "thread" || f == "long") {
            return true;
        }
    }
    return false;
}

bool CaptureForm::hasPids() const {
    for (auto const& f : formats) {
        if (f == "tag" || f == "raw") {
            return false;
        }
    }
    return true;
}

std::string CaptureForm::name() const {
    std::string n;
    for (auto const& f : formats) {
        n += (n.empty() ? "" : ",") + f;
    }
    return n;
}

std::string CaptureForm::describe() const {
    std::string d = "-v " + name() + ", level " + std::to_string(level);
    auto add = [&](bool on, char const* what) { d += on ? std::string(", ") + what : ""; };
    add(otherLines, "other lines");
    add(stepBack, "lines stepping back");
    add(chatty, "chatty");
    add(cutLine, "a cut line");
    add(cutLast, "a cut last line");
    add(startMid, "starts mid-session");
    add(endMid, "ends mid-session");
    add(reconnect, "a reconnect");
    add(bugreport, "in a bugreport");
    add(yearEnd, "across the year end");
    add(zoneChange, "across the end of summer time");
    add(crlf, "CRLF");
    add(utf16, "UTF-16");
    return d;
}

CaptureForm randomForm(Rng& rng) {
    static std::vector<std::vector<std::string>> const kFormats = {
        {"threadtime"}, {"threadtime"}, {"threadtime"}, {"thread"}, {"long"},
        {"time"},       {"brief"},      {"process"},    {"tag"},    {"raw"}};
    static char const* const kModifiers[] = {"usec", "nsec", "uid", "printable", "color", "epoch"};
    CaptureForm f;
    f.formats = kFormats[pick(rng, 0, static_cast<int>(kFormats.size()) - 1)];
    for (char const* m : kModifiers) {
        if (chance(rng, 0.15)) {
            f.formats.push_back(m);
        }
    }
    int const levels[] = {5, 5, 4, 2};
    f.level = levels[pick(rng, 0, 3)];
    f.otherLines = chance(rng, 0.7);
    f.stepBack = chance(rng, 0.3);
    f.chatty = chance(rng, 0.2);
    f.cutLine = chance(rng, 0.15);
    f.cutLast = chance(rng, 0.1);
    f.startMid = chance(rng, 0.2);
    f.endMid = chance(rng, 0.2);
    f.reconnect = chance(rng, 0.1);
    f.bugreport = chance(rng, 0.15);
    bool dated = f.name().find("epoch") == std::string::npos && f.formats[0] != "brief" &&
                 f.formats[0] != "process" && f.formats[0] != "tag" && f.formats[0] != "raw" &&
                 f.formats[0] != "thread";
    f.yearEnd = dated && chance(rng, 0.15);
    f.zoneChange = dated && !f.yearEnd && chance(rng, 0.15);
    if (f.zoneChange) {
        f.formats.push_back("zone");
    }
    f.crlf = chance(rng, 0.1);
    f.utf16 = !f.bugreport && chance(rng, 0.1);
    return f;
}

int minimumPriority(int level) {
    return level >= 5 ? ANDROID_LOG_DEBUG : level >= 3 ? ANDROID_LOG_INFO : ANDROID_LOG_WARN;
}

}  // namespace ryxtest
