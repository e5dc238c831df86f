#include "support/time/OrvaneSysTime.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/time/_ovDateParser.h"
#include "support_common/TestUtil.h"

namespace {

auto* const make = &OrvaneSysTime::fromFields;

enum { kMillis = 1, kLeap = 2, kZulu = 4 };

// The text SysTimeToRfc3339 appends.
std::string rfc(const OrvaneSysTime& t, int flags = kMillis | kLeap | kZulu) {
    StringBuffer sb("|");
    EXPECT_TRUE(
        _ovDateParser::SysTimeToRfc3339(t, flags & kMillis, flags & kLeap, sb, flags & kZulu));
    return *sb.getString() == '|' ? sb.getString() + 1 : "replaced";
}

// The RFC 3339 text of what the UTCTime or GeneralizedTime reader made of the
// text, or its error line (checked to come with a reason, the record untouched).
std::string parse(bool generalized, const char* text) {
    LogTree log;
    OrvaneSysTime t = make(1234, 1, 1, 0, 0, 0, 0);
    const bool ok =
        generalized ? t.fromAsnGeneralizedTime(text, log) : t.fromAsnUtcDateTime(text, log);
    std::string reason;
    if (ok || t.m_year != 1234 || !log.findData("reason", reason))
        return rfc(t) + ovtest::errors(log);
    return ovtest::errors(log);
}

TEST(OrvaneSysTime, ParsesAsnTimes) {
    struct Case {
        bool generalized;
        const char *text, *want;
    } cases[] = {
        {false, "491231235959Z", "2049-12-31T23:59:59Z"},  // the 20YY / 19YY pivot
        {false, "500101000000Z", "1950-01-01T00:00:00Z"},
        {false, "000229120000Z", "2000-02-29T12:00:00Z"},
        {false, "2403151230Z", "2024-03-15T12:30:00Z"},
        {false, "161231235960Z", "2016-12-31T23:59:60Z"},
        {false, "0001010030+0100", "1999-12-31T23:30:00Z"},
        {false, "491231230000-0200", "2050-01-01T01:00:00Z"},
        {true, "20500101000000Z", "2050-01-01T00:00:00Z"},
        {true, "24000229000000Z", "2400-02-29T00:00:00Z"},
        {true, "20000101000000,25Z", "2000-01-01T00:00:00.250Z"},
        {true, "20000101000000.1239Z", "2000-01-01T00:00:00.123Z"},
        {true, "20000101000000.75+0100", "1999-12-31T23:00:00.750Z"},
    };
    for (const auto& c : cases) EXPECT_EQ(parse(c.generalized, c.text), c.want) << c.text;
    const char* badUtc[] = {"990229000000Z",   "491331235959Z",  "491231235961Z",   "491231235959",
                            "491231235959.5Z", "491231235959Z ", "4912312359+0060", nullptr};
    for (const char* t : badUtc) EXPECT_EQ(parse(false, t), "Invalid UTCTime.") << (t ? t : "null");
    const char* badGeneralized[] = {"21000229000000Z", "20000101000000.Z", "200001010000.5Z",
                                    "99991231235959-0001", nullptr};
    for (const char* t : badGeneralized)
        EXPECT_EQ(parse(true, t), "Invalid GeneralizedTime.") << (t ? t : "null");
}

// gmtime_r is an independent implementation of the same calendar. The machine's
// zone, here far from UTC, must change nothing.
TEST(OrvaneSysTime, UnixTimeAgreesWithGmtimeWhateverTheZone) {
    const char* old = getenv("TZ");
    const std::string saved = old ? old : "";
    setenv("TZ", "ABC-13:45", 1);
    tzset();
    LogNull log;
    OrvaneSysTime now;
    ASSERT_TRUE(now.fromAsnUtcDateTime("700101000000+0100", log));
    EXPECT_EQ(now.toUnixTime(), -3600);
    const time_t before = time(nullptr);
    now.setCurrentTime();
    EXPECT_TRUE(now.toUnixTime() >= before && now.toUnixTime() <= time(nullptr));
    const int64_t kYear0 = -62167219200, kYear9999End = 253402300799;
    std::mt19937_64 rng(1);
    std::uniform_int_distribution<int64_t> any(kYear0, kYear9999End);
    for (int i = 0; i < 20000; ++i) {
        const int64_t t = i == 0 ? kYear0 : i == 1 ? kYear9999End : i == 2 ? -1 : any(rng);
        const time_t tt = static_cast<time_t>(t);
        struct tm g;
        ASSERT_NE(gmtime_r(&tt, &g), nullptr);
        OrvaneSysTime s;
        s.fromUnixTime(t);
        ASSERT_EQ(s.toUnixTime(), t);
        ASSERT_EQ((std::vector<int>{s.m_year, s.m_month, s.m_day, s.m_hour, s.m_minute, s.m_second,
                                    s.m_dayOfWeek}),
                  (std::vector<int>{g.tm_year + 1900, g.tm_mon + 1, g.tm_mday, g.tm_hour, g.tm_min,
                                    g.tm_sec, g.tm_wday}))
            << t;
    }
    old ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();
}

// Formatting normalises a copy (as checkFixSystemTime does); the flags pick the
// details.
TEST(DateParser, NormalisesAndFormats) {
    struct Case {
        OrvaneSysTime t;
        int flags;
        const char* want;
    } cases[] = {
        {make(2024, 3, 15, 12, 30, 45, 7), kLeap | kZulu, "2024-03-15T12:30:45Z"},
        {make(2024, 3, 15, 12, 30, 45, 7), kMillis, "2024-03-15T12:30:45.007+00:00"},
        {make(2016, 12, 31, 23, 59, 60, 0), kMillis | kZulu, "2017-01-01T00:00:00Z"},
        {make(2016, 12, 31, 23, 59, 60, 0), kLeap | kZulu, "2016-12-31T23:59:60Z"},
        {make(10000, 1, 1, 23, 59, 60, 0), kLeap | kZulu, "9999-12-31T23:59:59Z"},
        {make(2023, 13, 5, 0, 0, 0, 0), kZulu, "2024-01-05T00:00:00Z"},
        {make(2000, 3, -1, 0, 0, 0, -1), kMillis | kZulu, "2000-02-27T23:59:59.999Z"},
        {make(INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX), kMillis | kZulu,
         "9999-12-31T23:59:59.999Z"},
        {make(INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN), kMillis | kZulu,
         "0000-01-01T00:00:00Z"},
    };
    for (const auto& c : cases) EXPECT_EQ(rfc(c.t, c.flags), c.want);

    OrvaneSysTime t = make(2000, 1, 32, 0, 0, 0, 0);
    _ovDateParser::checkFixSystemTime(t);
    EXPECT_EQ(rfc(t) + " weekday " + std::to_string(t.m_dayOfWeek),
              "2000-02-01T00:00:00Z weekday 2");
}

}  // namespace
