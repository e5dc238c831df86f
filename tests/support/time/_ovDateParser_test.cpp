#include "support/time/_ovDateParser.h"

#include <gtest/gtest.h>

#include <string>

#include "TzGuard.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/time/OrvaneSysTime.h"

namespace {

OrvaneSysTime make(int y, int mo, int d, int h, int mi, int s, int ms = 0) {
    OrvaneSysTime t;
    t.m_year = y;
    t.m_month = mo;
    t.m_day = d;
    t.m_hour = h;
    t.m_minute = mi;
    t.m_second = s;
    t.m_millisecond = ms;
    return t;
}

std::string rfc(const OrvaneSysTime& t, bool a, bool b, bool c) {
    StringBuffer sb;
    EXPECT_TRUE(_ovDateParser::SysTimeToRfc3339(t, a, b, sb, c));
    return sb.getString();
}

std::string fixed(OrvaneSysTime t) {
    _ovDateParser::checkFixSystemTime(t);
    return rfc(t, true, false, true) + " dow" + std::to_string(t.m_dayOfWeek);
}

// Splits "YYYY-MM-DDThh:mm:ss[.sss](Z|+00:00)" into its six numbers; false when
// the text has any other shape.
bool splitRfc3339(const std::string& s, int f[6]) {
    const char* shape = "dddd-dd-ddTdd:dd:dd";
    if (s.size() < 20) return false;
    for (size_t i = 0; i < 19; ++i) {
        const bool digit = s[i] >= '0' && s[i] <= '9';
        if (shape[i] == 'd' ? !digit : s[i] != shape[i]) return false;
    }
    std::string rest = s.substr(19);
    if (rest.size() >= 4 && rest[0] == '.') {
        for (int i = 1; i <= 3; ++i)
            if (rest[i] < '0' || rest[i] > '9') return false;
        rest = rest.substr(4);
    }
    if (rest != "Z" && rest != "+00:00") return false;
    const int at[6] = {0, 5, 8, 11, 14, 17};
    for (int i = 0; i < 6; ++i) f[i] = std::stoi(s.substr(at[i], i == 0 ? 4 : 2));
    return true;
}

TEST(DateParser, CheckFixCarriesOutOfRangeFields) {
    struct Case {
        const char* name;
        OrvaneSysTime in;
        const char* want;
    } cases[] = {
        {"in range is kept", make(2024, 3, 15, 12, 30, 45, 250), "2024-03-15T12:30:45.250Z dow5"},
        {"second 60 rolls into the next year", make(2016, 12, 31, 23, 59, 60),
         "2017-01-01T00:00:00Z dow0"},
        {"day 32", make(2023, 1, 32, 0, 0, 0), "2023-02-01T00:00:00Z dow3"},
        {"month 13", make(2023, 13, 5, 0, 0, 0), "2024-01-05T00:00:00Z dow5"},
        {"1900-02-29 does not exist", make(1900, 2, 29, 0, 0, 0), "1900-03-01T00:00:00Z dow4"},
        {"2100-02-29 does not exist", make(2100, 2, 29, 0, 0, 0), "2100-03-01T00:00:00Z dow1"},
        {"2000-02-29 exists", make(2000, 2, 29, 0, 0, 0), "2000-02-29T00:00:00Z dow2"},
        {"milliseconds carry", make(2000, 1, 1, 0, 0, 59, 1500), "2000-01-01T00:01:00.500Z dow6"},
        {"negative milliseconds borrow", make(2000, 1, 1, 0, 0, 0, -1),
         "1999-12-31T23:59:59.999Z dow5"},
        {"negative day borrows", make(2000, 3, -1, 0, 0, 0), "2000-02-28T00:00:00Z dow1"},
        {"hour 24", make(1969, 12, 31, 24, 0, 0), "1970-01-01T00:00:00Z dow4"},
        {"year 10000 clamps", make(10000, 1, 1, 0, 0, 0), "9999-12-31T23:59:59.999Z dow5"},
        {"negative year clamps", make(-5, 6, 1, 0, 0, 0), "0000-01-01T00:00:00Z dow6"},
        {"extreme fields do not overflow",
         make(2147483647, 2147483647, 2147483647, 2147483647, 2147483647, 2147483647, 2147483647),
         "9999-12-31T23:59:59.999Z dow5"},
        {"extreme negative fields",
         make(-2147483647 - 1, -2147483647 - 1, -2147483647 - 1, -2147483647 - 1, -2147483647 - 1,
              -2147483647 - 1, -2147483647 - 1),
         "0000-01-01T00:00:00Z dow6"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(fixed(c.in), c.want);
    }
}

// The three flags as the callers use them, and the rest of the combinations.
TEST(DateParser, FlagCombinations) {
    const OrvaneSysTime plain = make(2049, 12, 31, 23, 59, 59);
    const OrvaneSysTime withMs = make(2024, 3, 15, 12, 30, 45, 7);
    const OrvaneSysTime leap = make(2016, 12, 31, 23, 59, 60);
    struct Case {
        const char* name;
        const OrvaneSysTime* t;
        bool millis, leapKept, zulu;
        const char* want;
    } cases[] = {
        {"validity text", &plain, false, false, true, "2049-12-31T23:59:59Z"},
        {"descriptive json", &plain, true, false, true, "2049-12-31T23:59:59Z"},
        {"crl thisUpdate", &plain, false, true, true, "2049-12-31T23:59:59Z"},
        {"validity text, ms dropped", &withMs, false, false, true, "2024-03-15T12:30:45Z"},
        {"descriptive json, ms shown", &withMs, true, false, true, "2024-03-15T12:30:45.007Z"},
        {"crl thisUpdate, ms dropped", &withMs, false, true, true, "2024-03-15T12:30:45Z"},
        {"validity text, leap rolls", &leap, false, false, true, "2017-01-01T00:00:00Z"},
        {"descriptive json, leap rolls", &leap, true, false, true, "2017-01-01T00:00:00Z"},
        {"crl thisUpdate, leap kept", &leap, false, true, true, "2016-12-31T23:59:60Z"},
        {"numeric zone", &withMs, false, false, false, "2024-03-15T12:30:45+00:00"},
        {"numeric zone with ms", &withMs, true, false, false, "2024-03-15T12:30:45.007+00:00"},
        {"numeric zone, leap kept", &leap, false, true, false, "2016-12-31T23:59:60+00:00"},
        {"all set", &leap, true, true, true, "2016-12-31T23:59:60Z"},
        {"none set", &leap, false, false, false, "2017-01-01T00:00:00+00:00"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rfc(*c.t, c.millis, c.leapKept, c.zulu), c.want);
    }
}

TEST(DateParser, LeapSecondIsKeptOnlyAtTheEndOfADay) {
    struct Case {
        const char* name;
        OrvaneSysTime t;
        const char* want;
    } cases[] = {
        {"mid-day second 60 rolls", make(2016, 6, 30, 12, 30, 60), "2016-06-30T12:31:00Z"},
        {"end of any day", make(2016, 6, 30, 23, 59, 60), "2016-06-30T23:59:60Z"},
        {"last day of 9999", make(9999, 12, 31, 23, 59, 60), "9999-12-31T23:59:60Z"},
        {"past 9999 clamps instead", make(10000, 1, 1, 23, 59, 60), "9999-12-31T23:59:59Z"},
        {"day 32 first normalised", make(2016, 12, 32, 23, 59, 60), "2017-01-01T23:59:60Z"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rfc(c.t, false, true, true), c.want);
    }
}

TEST(DateParser, AppendsAndLeavesTheRecordAlone) {
    OrvaneSysTime t = make(2000, 1, 32, 0, 0, 0);
    StringBuffer sb("validTo=");
    _ovDateParser::SysTimeToRfc3339(t, false, false, sb, true);
    EXPECT_STREQ(sb.getString(), "validTo=2000-02-01T00:00:00Z");
    EXPECT_EQ(t.m_day, 32);
    EXPECT_EQ(t.m_month, 1);
}

TEST(DateParser, DefaultRecordIsTheEpoch) {
    OrvaneSysTime t;
    EXPECT_EQ(rfc(t, true, false, true), "1970-01-01T00:00:00Z");
}

// Whatever the fields hold, every output must parse as RFC 3339 and name a real
// instant.
TEST(DateParser, EveryOutputIsValidRfc3339) {
    uint32_t x = 2463534242u;
    auto next = [&x](int lo, int hi) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        return lo + static_cast<int>(x % static_cast<uint32_t>(hi - lo + 1));
    };
    for (int i = 0; i < 5000; ++i) {
        OrvaneSysTime t = make(next(-50, 10050), next(-30, 30), next(-40, 70), next(-30, 50),
                               next(-70, 130), next(-70, 130), next(-3000, 3000));
        if (i % 7 == 0) t.m_second = 60;
        const int flags = i % 8;
        const std::string s = rfc(t, flags & 1, flags & 2, flags & 4);
        SCOPED_TRACE(s);
        int f[6];
        ASSERT_TRUE(splitRfc3339(s, f));
        const int y = f[0], mo = f[1], d = f[2], h = f[3], mi = f[4], sec = f[5];
        ASSERT_TRUE(mo >= 1 && mo <= 12);
        ASSERT_TRUE(d >= 1 && d <= OrvaneSysTime::daysInMonth(y, mo));
        ASSERT_TRUE(h <= 23 && mi <= 59);
        ASSERT_TRUE(sec <= 59 || (sec == 60 && h == 23 && mi == 59 && (flags & 2)));
    }
}

TEST(DateParser, OutputDoesNotDependOnTheMachineZone) {
    LogNull log;
    for (const char* tz : {"UTC0", "ABC-13:45", "XYZ+11:30", "Pacific/Chatham"}) {
        SCOPED_TRACE(tz);
        TzGuard guard(tz);
        OrvaneSysTime t;
        ASSERT_TRUE(t.fromAsnUtcDateTime("491231235959Z", log));
        EXPECT_EQ(rfc(t, false, false, true), "2049-12-31T23:59:59Z");
        ASSERT_TRUE(t.fromAsnUtcDateTime("700101000000+0100", log));
        EXPECT_EQ(rfc(t, false, false, true), "1969-12-31T23:00:00Z");
        EXPECT_EQ(t.toUnixTime(), -3600);
        t.fromUnixTime(0);
        EXPECT_EQ(rfc(t, true, false, true), "1970-01-01T00:00:00Z");
    }
}

}  // namespace
