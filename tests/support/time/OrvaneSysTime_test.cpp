#include "support/time/OrvaneSysTime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "TzGuard.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/time/_ovDateParser.h"

namespace {

// Parses with the given parser and renders the result (leap second kept), or
// returns "fail" with the record checked to be untouched.
std::string parsed(bool generalized, const char* text, LogTree& log) {
    OrvaneSysTime t;
    t.m_year = 1234;  // sentinel: a failed parse must not touch the record
    const bool ok =
        generalized ? t.fromAsnGeneralizedTime(text, log) : t.fromAsnUtcDateTime(text, log);
    if (!ok) {
        EXPECT_EQ(t.m_year, 1234);
        return "fail";
    }
    StringBuffer sb;
    _ovDateParser::SysTimeToRfc3339(t, true, true, sb, true);
    return sb.getString();
}

TEST(OrvaneSysTime, ParsesUtcTime) {
    struct Case {
        const char* name;
        const char* text;
        const char* want;  // RFC 3339, or "fail"
    } cases[] = {
        {"last year of the 20YY window", "491231235959Z", "2049-12-31T23:59:59Z"},
        {"first year of the 19YY window", "500101000000Z", "1950-01-01T00:00:00Z"},
        {"00 is 2000", "000101000000Z", "2000-01-01T00:00:00Z"},
        {"99 is 1999", "991231235959Z", "1999-12-31T23:59:59Z"},
        {"before 1970", "691231235959Z", "1969-12-31T23:59:59Z"},
        {"seconds omitted", "2403151230Z", "2024-03-15T12:30:00Z"},
        {"leap day 2000", "000229120000Z", "2000-02-29T12:00:00Z"},
        {"leap day 2048", "480229000000Z", "2048-02-29T00:00:00Z"},
        {"leap second kept", "161231235960Z", "2016-12-31T23:59:60Z"},
        {"positive offset crosses back a year", "0001010030+0100", "1999-12-31T23:30:00Z"},
        {"negative offset crosses a leap day", "000228233000-0100", "2000-02-29T00:30:00Z"},
        {"odd offset", "2401010000+0545", "2023-12-31T18:15:00Z"},
        {"offset crosses the pivot", "491231230000-0200", "2050-01-01T01:00:00Z"},
        {"not a leap year", "990229000000Z", "fail"},
        {"2100 is not a leap year either, but 00 means 2000", "000230000000Z", "fail"},
        {"month 13", "491331235959Z", "fail"},
        {"month 0", "490031235959Z", "fail"},
        {"day 0", "491200235959Z", "fail"},
        {"day 31 of April", "490431000000Z", "fail"},
        {"hour 24", "491231240000Z", "fail"},
        {"minute 60", "491231236000Z", "fail"},
        {"second 61", "491231235961Z", "fail"},
        {"no zone", "491231235959", "fail"},
        {"lower-case z", "491231235959z", "fail"},
        {"one seconds digit", "4912312359 5Z", "fail"},
        {"odd digit count", "49123123595Z", "fail"},
        {"fraction is not UTCTime", "491231235959.5Z", "fail"},
        {"four-digit year", "20491231235959Z", "fail"},
        {"trailing space", "491231235959Z ", "fail"},
        {"leading space", " 491231235959Z", "fail"},
        {"sign inside", "49-231235959Z", "fail"},
        {"short offset", "4912312359+01", "fail"},
        {"offset hour 24", "4912312359+2400", "fail"},
        {"offset minute 60", "4912312359+0060", "fail"},
        {"text after offset", "4912312359+0100Z", "fail"},
        {"empty", "", "fail"},
        {"too short", "4912", "fail"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        EXPECT_EQ(parsed(false, c.text, log), c.want);
        const bool failed = std::string(c.want) == "fail";
        EXPECT_EQ(log.hasError("Invalid UTCTime."), failed) << log.text();
        std::string reason;
        EXPECT_EQ(log.findData("reason", reason), failed);
    }
}

TEST(OrvaneSysTime, NullTextFailsWithALogLine) {
    LogTree log;
    OrvaneSysTime t;
    EXPECT_FALSE(t.fromAsnUtcDateTime(nullptr, log));
    EXPECT_FALSE(t.fromAsnGeneralizedTime(nullptr, log));
    EXPECT_TRUE(log.hasError("Invalid UTCTime."));
    EXPECT_TRUE(log.hasError("Invalid GeneralizedTime."));
}

TEST(OrvaneSysTime, ParsesGeneralizedTime) {
    struct Case {
        const char* name;
        const char* text;
        const char* want;
    } cases[] = {
        {"plain", "20491231235959Z", "2049-12-31T23:59:59Z"},
        {"beyond the UTCTime window", "20500101000000Z", "2050-01-01T00:00:00Z"},
        {"year 9999", "99991231235959Z", "9999-12-31T23:59:59Z"},
        {"year 0000 is a leap year", "00000229000000Z", "0000-02-29T00:00:00Z"},
        {"1900 not a leap year", "19000229000000Z", "fail"},
        {"2100 not a leap year", "21000229000000Z", "fail"},
        {"2400 is a leap year", "24000229000000Z", "2400-02-29T00:00:00Z"},
        {"before 1970", "19691231235959Z", "1969-12-31T23:59:59Z"},
        {"minutes only", "202403151230Z", "2024-03-15T12:30:00Z"},
        {"one fraction digit", "20000229120000.5Z", "2000-02-29T12:00:00.500Z"},
        {"comma fraction", "20000101000000,25Z", "2000-01-01T00:00:00.250Z"},
        {"fraction truncated to ms", "20000101000000.1239Z", "2000-01-01T00:00:00.123Z"},
        {"fraction with offset", "20000101000000.75+0100", "1999-12-31T23:00:00.750Z"},
        {"fraction without digits", "20000101000000.Z", "fail"},
        {"fraction without seconds", "200001010000.5Z", "fail"},
        {"offset past 9999", "99991231235959-0001", "fail"},
        {"offset before 0000", "00000101000000+0001", "fail"},
        {"local time without zone", "20000101000000", "fail"},
        {"two-digit year", "491231235959Z", "fail"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        EXPECT_EQ(parsed(true, c.text, log), c.want);
        EXPECT_EQ(log.hasError("Invalid GeneralizedTime."), std::string(c.want) == "fail");
    }
}

// The C library's gmtime is an independent implementation of the same
// calendar, so it serves as the oracle for the day arithmetic.
void expectMatchesGmtime(int64_t t) {
    SCOPED_TRACE(t);
    const time_t tt = static_cast<time_t>(t);
    struct tm g;
    ASSERT_NE(gmtime_r(&tt, &g), nullptr);
    OrvaneSysTime s;
    s.fromUnixTime(t);
    EXPECT_EQ(s.m_year, g.tm_year + 1900);
    EXPECT_EQ(s.m_month, g.tm_mon + 1);
    EXPECT_EQ(s.m_day, g.tm_mday);
    EXPECT_EQ(s.m_hour, g.tm_hour);
    EXPECT_EQ(s.m_minute, g.tm_min);
    EXPECT_EQ(s.m_second, g.tm_sec);
    EXPECT_EQ(s.m_dayOfWeek, g.tm_wday);
    EXPECT_EQ(s.toUnixTime(), t);
}

TEST(OrvaneSysTime, UnixTimeAgreesWithGmtime) {
    const int64_t fixed[] = {0,
                             -1,
                             86399,
                             86400,
                             951782400,      // 2000-02-29
                             951868800,      // 2000-03-01
                             2524607999,     // 2049-12-31T23:59:59
                             2524608000,     // 2050-01-01
                             -2203977600,    // 1900-02-28
                             -2203891200,    // 1900-03-01
                             4107542400,     // 2100-03-01
                             253402300799,   // 9999-12-31T23:59:59
                             -62167219200,   // 0000-01-01
                             -62162035200};  // 0000-03-01
    for (int64_t t : fixed) expectMatchesGmtime(t);

    // A deterministic spread over years 0000..9999.
    uint64_t x = 88172645463325252ull;
    const uint64_t span = 253402300799ull + 62167219200ull;
    for (int i = 0; i < 20000; ++i) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        expectMatchesGmtime(static_cast<int64_t>(x % span) - 62167219200);
        if (HasFailure()) break;
    }
}

TEST(OrvaneSysTime, ToUnixTimeRollsFieldsOver) {
    struct Case {
        const char* name;
        int y, mo, d, h, mi, s;
        int64_t want;
    } cases[] = {
        {"January 32 is February 1", 2000, 1, 32, 0, 0, 0, 949363200},
        {"February 30 of a leap year is March 1", 2000, 2, 30, 0, 0, 0, 951868800},
        {"month 13 is January of the next year", 1999, 13, 1, 0, 0, 0, 946684800},
        {"month 0 is December of the year before", 2000, 0, 1, 0, 0, 0, 944006400},
        {"day 0 is the last of the month before", 2000, 3, 0, 0, 0, 0, 951782400},
        {"hour 24", 1999, 12, 31, 24, 0, 0, 946684800},
        {"second 60", 1999, 12, 31, 23, 59, 60, 946684800},
        {"negative minutes borrow", 2000, 1, 1, 0, -1, 0, 946684740},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        OrvaneSysTime t;
        t.m_year = c.y;
        t.m_month = c.mo;
        t.m_day = c.d;
        t.m_hour = c.h;
        t.m_minute = c.mi;
        t.m_second = c.s;
        EXPECT_EQ(t.toUnixTime(), c.want);
    }
}

TEST(OrvaneSysTime, ComparesToTheMillisecond) {
    OrvaneSysTime a, b;
    a.fromUnixTime(1000);
    b.fromUnixTime(1000);
    EXPECT_EQ(a.compare(b), 0);
    b.m_millisecond = 1;
    EXPECT_EQ(a.compare(b), -1);
    EXPECT_EQ(b.compare(a), 1);
    a.fromUnixTime(1001);
    EXPECT_EQ(a.compare(b), 1);
    // Unnormalised fields compare by the instant they denote.
    OrvaneSysTime c;
    c.fromUnixTime(1000);
    c.m_second -= 60;
    c.m_minute += 1;
    b.m_millisecond = 0;
    EXPECT_EQ(c.compare(b), 0);
    // Before the epoch.
    OrvaneSysTime d;
    d.fromUnixTime(-5);
    EXPECT_EQ(d.compare(b), -1);
}

TEST(OrvaneSysTime, CurrentTimeIsUtcWhateverTheZone) {
    for (const char* tz : {"UTC0", "ABC-13:45", "XYZ+11:30"}) {
        SCOPED_TRACE(tz);
        TzGuard guard(tz);
        const time_t before = time(nullptr);
        OrvaneSysTime t;
        t.setCurrentTime();
        const time_t after = time(nullptr);
        EXPECT_GE(t.toUnixTime(), static_cast<int64_t>(before));
        EXPECT_LE(t.toUnixTime(), static_cast<int64_t>(after));
        EXPECT_GE(t.m_millisecond, 0);
        EXPECT_LE(t.m_millisecond, 999);
        EXPECT_TRUE(t.isValid());
    }
}

TEST(OrvaneSysTime, LeapYearsAndMonthLengths) {
    EXPECT_TRUE(OrvaneSysTime::isLeapYear(2000));
    EXPECT_TRUE(OrvaneSysTime::isLeapYear(2024));
    EXPECT_FALSE(OrvaneSysTime::isLeapYear(1900));
    EXPECT_FALSE(OrvaneSysTime::isLeapYear(2100));
    EXPECT_EQ(OrvaneSysTime::daysInMonth(2000, 2), 29);
    EXPECT_EQ(OrvaneSysTime::daysInMonth(2100, 2), 28);
    EXPECT_EQ(OrvaneSysTime::daysInMonth(2023, 4), 30);
    EXPECT_EQ(OrvaneSysTime::daysInMonth(2023, 13), 0);
}

}  // namespace
