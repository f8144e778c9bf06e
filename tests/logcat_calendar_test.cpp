// A capture's calendar: dates printed without their year placed in the year they belong to, past
// 31 December and 29 February, and zoned times read in UTC and printed back in their own zone.
// (Whole captures across a year's end or the end of summer time, printed by liblog, are the
// ground-truth judge's: its capture forms cross both.)

#include "sources/logcat/LogCalendar.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <ctime>
#include <optional>

using namespace ryxsim;

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
