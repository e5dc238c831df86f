#include "support/time/_ovDateParser.h"

#include <cstdint>
#include <cstdio>

#include "support/base/StringBuffer.h"
#include "support/time/OrvaneSysTime.h"

namespace {

// RFC 3339 years have four digits.
const int kMinYear = 0;
const int kMaxYear = 9999;

}  // namespace

void _ovDateParser::checkFixSystemTime(OrvaneSysTime& t) {
    // Carry milliseconds first, in 64 bits, so that extreme values cannot overflow.
    int64_t ms = t.m_millisecond;
    int64_t carry = ms / 1000;
    ms %= 1000;
    if (ms < 0) {
        ms += 1000;
        carry -= 1;
    }
    int64_t secs = t.toUnixTime() + carry;

    static const int64_t kMin = OrvaneSysTime::fromFields(kMinYear, 1, 1, 0, 0, 0).toUnixTime();
    static const int64_t kMax =
        OrvaneSysTime::fromFields(kMaxYear, 12, 31, 23, 59, 59).toUnixTime();
    if (secs < kMin) {
        secs = kMin;
        ms = 0;
    } else if (secs > kMax) {
        secs = kMax;
        ms = 999;
    }
    t.fromUnixTime(secs);
    t.m_millisecond = static_cast<int>(ms);
}

bool _ovDateParser::SysTimeToRfc3339(const OrvaneSysTime& t, bool withMillis, bool keepLeapSecond,
                                     StringBuffer& out, bool zulu) {
    OrvaneSysTime n = t;
    bool leap = false;
    if (keepLeapSecond && t.m_second == 60 && t.m_millisecond >= 0 && t.m_millisecond <= 999) {
        // Only the last second of a UTC day can be a leap second.
        n.m_second = 59;
        const int64_t before = n.toUnixTime();
        checkFixSystemTime(n);
        // A clamped year is no longer the same instant, so no leap second either.
        leap = n.toUnixTime() == before && n.m_hour == 23 && n.m_minute == 59;
        if (!leap) n = t;
    }
    if (!leap) checkFixSystemTime(n);

    char buf[48];
    int len = std::snprintf(buf, sizeof(buf), "%04d-%02d-%02dT%02d:%02d:%02d", n.m_year, n.m_month,
                            n.m_day, n.m_hour, n.m_minute, leap ? 60 : n.m_second);
    if (withMillis && n.m_millisecond != 0)
        len += std::snprintf(buf + len, sizeof(buf) - len, ".%03d", n.m_millisecond);
    std::snprintf(buf + len, sizeof(buf) - len, "%s", zulu ? "Z" : "+00:00");
    return out.append(buf);
}
