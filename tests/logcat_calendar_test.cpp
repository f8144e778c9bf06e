// A capture's calendar: dates printed without their year that run past 31 December, and times
// printed with their zone across the end of summer time. Read back from a simulated run's own log
// printed by liblog, such a capture tells what the same capture away from the crossing tells: the
// same verdicts, no gap, the same times between frames, and each frame's time as its line shows
// it. (A followed capture and a bugreport's section pass their lines through the same decoder.)

#include "SimulatedCapture.h"
#include "sources/logcat/LogCalendar.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>

using namespace ryxsim;
using namespace ryxtest;

namespace {

constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

// TZ for liblog's localtime while the test runs.
class ZoneScope {
  public:
    explicit ZoneScope(char const* tz) {
        if (char const* old = std::getenv("TZ")) {
            mOld = old;
        }
        ::setenv("TZ", tz, 1);
        ::tzset();
    }
    ~ZoneScope() {
        if (mOld) {
            ::setenv("TZ", mOld->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

  private:
    std::optional<std::string> mOld;
};

int64_t utc(int year, int month, int day, int hour) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    return timegm(&tm);
}

// The run's entries moved so that the middle one is logged at `boundary` (UTC seconds): the
// capture's first half before it, the second half at or after it.
std::vector<LogEntry> straddling(int64_t boundary) {
    std::vector<LogEntry> entries = debugRun().entries;
    LogEntry const& middle = entries[entries.size() / 2];
    int64_t shift = boundary * 1000000000 - (middle.sec * 1000000000 + middle.nsec);
    for (auto& e : entries) {
        int64_t ns = e.sec * 1000000000 + e.nsec + shift;
        e.sec = ns / 1000000000;
        e.nsec = ns % 1000000000;
    }
    return entries;
}

Timeline readOne(std::string const& text) {
    auto sessions = readLogcat(text, "capture");
    EXPECT_EQ(sessions.size(), 1u);
    return sessions.at(0);
}

// Frame -> its log time after the session's first line.
std::map<int, int64_t> frameTimes(Timeline const& t) {
    std::map<int, int64_t> out;
    for (auto const& f : t.frames) {
        if (f.logTimeNs && t.capture.logOriginNs) {
            out[f.frame] = *f.logTimeNs - *t.capture.logOriginNs;
        }
    }
    return out;
}

std::string gapsOf(Timeline const& t) {
    std::string s;
    for (auto const& g : t.capture.gaps) {
        s += std::to_string(g.line) + ": " + g.what + "\n";
    }
    return s;
}

// `crossed` tells the story of `plain`, and every frame's time is the one on its first line
// ('long': on the header before it).
void expectSameStory(Timeline const& crossed, Timeline const& plain, std::string const& text,
                     bool longFormat) {
    EXPECT_TRUE(crossed.capture.gaps.empty()) << gapsOf(crossed);
    EXPECT_EQ(verdictsOf(crossed), verdictsOf(plain));
    EXPECT_EQ(frameTimes(crossed), frameTimes(plain));
    EXPECT_EQ(crossed.capture.endNs, plain.capture.endNs);
    std::vector<std::string> lines = linesOf(text);
    ASSERT_GT(crossed.frames.size(), 200u);
    for (auto const& f : crossed.frames) {
        ASSERT_TRUE(f.firstLine) << "f" << f.frame;
        std::string const& header = lines.at(*f.firstLine - (longFormat ? 1 : 0));
        std::string time = crossed.logTime(f);
        ASSERT_FALSE(time.empty()) << "f" << f.frame;
        EXPECT_NE(header.find(time), std::string::npos) << time << " not on " << header;
    }
}

void expectCrossingReadsAsPlain(int64_t boundary, std::vector<std::string> const& formats,
                                std::string const& before, std::string const& after) {
    std::string text = formatCapture(straddling(boundary), formats);
    std::string plainText = formatCapture(debugRun().entries, formats);
    // The capture does cross: lines on both sides, and the crossing within it.
    size_t first = text.find(before), last = text.rfind(after);
    ASSERT_NE(first, std::string::npos) << before;
    ASSERT_NE(last, std::string::npos) << after;
    ASSERT_LT(first, last);
    Timeline plain = readOne(plainText);
    ASSERT_TRUE(plain.capture.gaps.empty()) << gapsOf(plain);
    expectSameStory(readOne(text), plain, text, formats[0] == "long");
}

std::string joined(std::vector<std::string> const& formats) {
    std::string name;
    for (auto const& f : formats) {
        name += f + " ";
    }
    return name;
}

}  // namespace

// Without -v year the dates step from 12-31 to 01-01: the next year, not a year back. In central
// Europe, so that a zoned capture's year ends at its own midnight (23:00 UTC).
TEST(LogcatCalendar, YearlessDatesRunPastTheYearsEnd) {
    ZoneScope zone(kCentralEurope);
    int64_t newYear = utc(2025, 1, 1, 0) - 3600;
    for (std::vector<std::string> formats :
         std::vector<std::vector<std::string>>{{"threadtime"},
                                               {"threadtime", "usec"},
                                               {"threadtime", "zone"},
                                               {"long"},
                                               {"long", "zone", "nsec"},
                                               {"time"}}) {
        SCOPED_TRACE(joined(formats));
        expectCrossingReadsAsPlain(newYear, formats, "12-31 23:59:5", "01-01 00:00:0");
    }
    // The same with the year printed: it never needed the calendar, and still reads alike.
    expectCrossingReadsAsPlain(newYear, {"threadtime", "year"}, "2024-12-31 23:59:5",
                               "2025-01-01 00:00:0");
}

// With -v zone the local time steps back an hour when summer time ends (27 October 2024, 01:00
// UTC: 03:00 +0200 becomes 02:00 +0100); in UTC it runs on.
TEST(LogcatCalendar, ZonedTimesRunPastTheEndOfSummerTime) {
    ZoneScope zone(kCentralEurope);
    int64_t winter = utc(2024, 10, 27, 1);
    for (std::vector<std::string> formats :
         std::vector<std::vector<std::string>>{{"threadtime", "zone"},
                                               {"threadtime", "year", "zone"},
                                               {"threadtime", "zone", "usec"},
                                               {"long", "zone"},
                                               {"time", "zone"}}) {
        SCOPED_TRACE(joined(formats));
        expectCrossingReadsAsPlain(winter, formats, "02:59:5", "02:00:0");
        std::string text = formatCapture(straddling(winter), formats);
        // The frames' times are printed in the zone of their lines: both sides are there.
        Timeline t = readOne(text);
        std::string times;
        for (auto const& f : t.frames) {
            times += t.logTime(f) + "\n";
        }
        EXPECT_NE(times.find("02:59:5"), std::string::npos);
        EXPECT_NE(times.find(" +0200\n"), std::string::npos);
        EXPECT_NE(times.find(" +0100\n"), std::string::npos);
    }
}

// Lines placed one after another: each one's time after the first line's, in ms.
TEST(LogCalendar, PlacesEachYearlessDateInItsYear) {
    auto ms = [](int year, int month, int day, int hour, int minute = 0) {
        std::tm tm{};
        tm.tm_year = year - 1900;
        tm.tm_mon = month - 1;
        tm.tm_mday = day;
        tm.tm_hour = hour;
        tm.tm_min = minute;
        return static_cast<int64_t>(timegm(&tm)) * 1000;
    };
    int64_t const day = 86400000;
    struct Case {
        char const* what;
        std::vector<std::string> times;
        std::vector<int64_t> afterFirstMs;
    } const cases[] = {
        {"the year's end", {"12-31 23:59:59.900", "01-01 00:00:00.100"}, {0, 200}},
        {"a line stamped before the year's end and logged after it",
         {"12-31 23:59:59.900", "01-01 00:00:00.100", "12-31 23:59:59.950", "01-01 00:00:00.200"},
         {0, 200, 50, 300}},
        {"a step back of less than half a year is no new year",
         {"09-01 10:00:00.000", "03-05 10:00:00.000"},
         {0, ms(2000, 3, 5, 10) - ms(2000, 9, 1, 10)}},
        // A clock set forward on a capture that never crossed a year's end stays ahead.
        {"a clock set forward",
         {"01-01 00:00:05.000", "11-24 10:00:00.000"},
         {0, ms(2000, 11, 24, 10) - ms(2000, 1, 1, 0) - 5000}},
        // The first year has a 29 February, the next ones are the years after it.
        {"two years' ends, and 1 March of a year without 29 February",
         {"12-31 23:00:00.000", "01-01 01:00:00.000", "02-28 12:00:00.000", "03-01 12:00:00.000",
          "06-01 00:00:00.000", "10-01 00:00:00.000", "12-31 23:00:00.000", "01-01 01:00:00.000",
          "03-01 12:00:00.000"},
         {0, 2 * 3600000, ms(2001, 2, 28, 12) - ms(2000, 12, 31, 23),
          ms(2001, 2, 28, 12) - ms(2000, 12, 31, 23) + day,
          ms(2001, 6, 1, 0) - ms(2000, 12, 31, 23), ms(2001, 10, 1, 0) - ms(2000, 12, 31, 23),
          365 * day, 365 * day + 2 * 3600000, ms(2002, 3, 1, 12) - ms(2000, 12, 31, 23)}},
        {"zoned: the year ends at the zone's midnight",
         {"12-31 23:59:59.900 +0100", "01-01 00:00:00.100 +0100", "01-01 00:30:00.000 -0500"},
         {0, 200, 6 * 3600000 + 30 * 60000 + 100}},
        {"zoned: 1 March begins at the zone's midnight, in a year without 29 February",
         {"12-31 23:00:00.000 +0100", "01-01 01:00:00.000 +0100", "03-01 00:30:00.000 +0100"},
         {0, 2 * 3600000, ms(2001, 2, 28, 23, 30) - ms(2000, 12, 31, 22)}},
        {"zoned: the end of summer time",
         {"10-27 02:59:59.900 +0200", "10-27 02:00:00.100 +0100"},
         {0, 200}},
        {"dates with their year", {"2024-12-31 23:59:59.900", "2025-01-01 00:00:00.100"}, {0, 200}},
        {"epoch seconds", {"1735689599.900", "1735689600.100"}, {0, 200}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        LogCalendar calendar;
        std::vector<int64_t> got;
        std::optional<int64_t> first;
        for (auto const& time : c.times) {
            std::string text = time + "  1  2 I T: x";
            LogLine l;
            ASSERT_TRUE(parseLogLine(text, l)) << text;
            calendar.place(l);
            first = first.value_or(*l.timeNs);
            got.push_back((*l.timeNs - *first) / 1000000);
        }
        EXPECT_EQ(got, c.afterFirstMs);
    }
}

// A zoned line's time is kept in UTC, and printed back in its own zone.
TEST(LogLineZone, ZonedTimesAreReadInUtcAndPrintedAsShown) {
    struct Case {
        char const* line;
        int zoneS;
        char const* utc;
    } const cases[] = {
        {"10-27 02:59:59.900 +0200  1  2 I T: x", 7200, "10-27 00:59:59.900"},
        {"10-27 02:00:00.100 +0100  1  2 I T: x", 3600, "10-27 01:00:00.100"},
        {"03-10 09:15:00.250 -0530  1  2 I T: x", -19800, "03-10 14:45:00.250"},
        {"2024-12-31 23:30:00.000 +0100  1  2 I T: x", 3600, "2024-12-31 22:30:00.000"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.line);
        LogLine l;
        ASSERT_TRUE(parseLogLine(c.line, l));
        ASSERT_TRUE(l.zoneS);
        EXPECT_EQ(*l.zoneS, c.zoneS);
        LogClock clock;
        clock.form = l.timeForm == LogLine::TimeForm::Date ? LogClock::Form::Date
                                                           : LogClock::Form::DateWithYear;
        EXPECT_EQ(formatLogTime(clock, *l.timeNs), c.utc);
        std::string shown(c.line);
        shown = shown.substr(0, shown.find("  "));
        EXPECT_EQ(formatLogTime(clock, *l.timeNs, l.zoneS), shown);
    }
    // Epoch seconds are UTC already: a zone after them changes nothing.
    LogLine a, b;
    ASSERT_TRUE(parseLogLine("1735689599.900 +0200  1  2 I T: x", a));
    ASSERT_TRUE(parseLogLine("1735689599.900  1  2 I T: x", b));
    EXPECT_EQ(a.timeNs, b.timeNs);
    EXPECT_FALSE(a.zoneS);
}
