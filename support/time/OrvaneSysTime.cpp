#include "support/time/OrvaneSysTime.h"

#include <chrono>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

namespace {

const int64_t kSecondsPerDay = 86400;
// fromUnixTime clamps to this span so that the year always fits an int.
const int64_t kMaxAbsUnixTime = int64_t(10000000000000000);  // ~317 million years

int64_t floorDiv(int64_t a, int64_t b) {
    int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

int64_t floorMod(int64_t a, int64_t b) {
    return a - floorDiv(a, b) * b;
}

// Days from 1970-01-01 to y-m-d in the proleptic Gregorian calendar (m 1..12,
// d counted from 1 and allowed past the month's end). Eras of 400 years make
// the leap rules exact without tables.
int64_t daysFromCivil(int64_t y, int64_t m, int64_t d) {
    y -= (m <= 2) ? 1 : 0;
    const int64_t era = floorDiv(y, 400);
    const int64_t yoe = y - era * 400;                                    // 0..399
    const int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;  // from March 1
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(int64_t z, int64_t& y, int& m, int& d) {
    z += 719468;
    const int64_t era = floorDiv(z, 146097);
    const int64_t doe = z - era * 146097;                                       // 0..146096
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;  // 0..399
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 400 + (m <= 2 ? 1 : 0);
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Reads exactly n decimal digits at p.
bool readDigits(const char*& p, int n, int& value) {
    int v = 0;
    for (int i = 0; i < n; ++i) {
        if (!isDigit(p[i])) return false;
        v = v * 10 + (p[i] - '0');
    }
    p += n;
    value = v;
    return true;
}

struct AsnTimeFields {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millis = 0;
    int offsetMinutes = 0;  // local time minus UTC
};

// Parses "MMDDHHMM[SS[fraction]](Z|+hhmm|-hhmm)" after the year. Sets why to a
// short reason on failure.
bool parseAfterYear(const char* p, bool allowFraction, AsnTimeFields& f, const char*& why) {
    if (!readDigits(p, 2, f.month) || !readDigits(p, 2, f.day) || !readDigits(p, 2, f.hour) ||
        !readDigits(p, 2, f.minute)) {
        why = "expected digits for month, day, hour and minute";
        return false;
    }
    if (isDigit(*p)) {
        if (!readDigits(p, 2, f.second)) {
            why = "seconds need two digits";
            return false;
        }
        if (allowFraction && (*p == '.' || *p == ',')) {
            ++p;
            if (!isDigit(*p)) {
                why = "fraction without digits";
                return false;
            }
            int scale = 100;
            while (isDigit(*p)) {
                f.millis += (*p - '0') * scale;
                scale /= 10;
                ++p;
            }
        }
    }
    if (*p == 'Z') {
        ++p;
    } else if (*p == '+' || *p == '-') {
        const int sign = (*p == '-') ? -1 : 1;
        ++p;
        int oh = 0, om = 0;
        if (!readDigits(p, 2, oh) || !readDigits(p, 2, om)) {
            why = "offset needs four digits";
            return false;
        }
        if (oh > 23 || om > 59) {
            why = "offset out of range";
            return false;
        }
        f.offsetMinutes = sign * (oh * 60 + om);
    } else {
        why = "missing time zone (Z or +hhmm/-hhmm)";
        return false;
    }
    if (*p != '\0') {
        why = "unexpected text after the time zone";
        return false;
    }
    if (f.month < 1 || f.month > 12) {
        why = "month out of range";
        return false;
    }
    if (f.day < 1 || f.day > OrvaneSysTime::daysInMonth(f.year, f.month)) {
        why = "day out of range for the month";
        return false;
    }
    if (f.hour > 23 || f.minute > 59 || f.second > 60) {
        why = "time of day out of range";
        return false;
    }
    return true;
}

// Moves the parsed local time to UTC. A leap second stays at :60 by converting
// from :59 and restoring it afterwards.
void storeUtc(const AsnTimeFields& f, OrvaneSysTime& out) {
    const bool leap = (f.second == 60);
    OrvaneSysTime t =
        OrvaneSysTime::fromFields(f.year, f.month, f.day, f.hour, f.minute, leap ? 59 : f.second);
    t.fromUnixTime(t.toUnixTime() - int64_t(f.offsetMinutes) * 60);
    if (leap) t.m_second = 60;
    t.m_millisecond = f.millis;
    out = t;
}

void logBadTime(LogBase& log, const char* errorLine, const char* name, const char* text,
                const char* why) {
    log.logError(errorLine);
    if (text) {
        // Bounded, so that a garbage buffer cannot flood the log.
        StringBuffer sb;
        unsigned n = 0;
        while (text[n] && n < 64) ++n;
        sb.appendN(text, n);
        log.logData(name, sb.getString());
    }
    log.logData("reason", why);
}

}  // namespace

OrvaneSysTime OrvaneSysTime::fromFields(int year, int month, int day, int hour, int minute,
                                        int second, int millisecond) {
    OrvaneSysTime t;
    t.m_year = year;
    t.m_month = month;
    t.m_day = day;
    t.m_hour = hour;
    t.m_minute = minute;
    t.m_second = second;
    t.m_millisecond = millisecond;
    return t;
}

bool OrvaneSysTime::isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int OrvaneSysTime::daysInMonth(int year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    if (month == 2 && isLeapYear(year)) return 29;
    return kDays[month - 1];
}

bool OrvaneSysTime::isValid() const {
    return m_month >= 1 && m_month <= 12 && m_day >= 1 && m_day <= daysInMonth(m_year, m_month) &&
           m_hour >= 0 && m_hour <= 23 && m_minute >= 0 && m_minute <= 59 && m_second >= 0 &&
           m_second <= 60 && m_millisecond >= 0 && m_millisecond <= 999;
}

bool OrvaneSysTime::fromAsnUtcDateTime(const char* text, LogBase& log) {
    const char* why = nullptr;
    AsnTimeFields f;
    const char* p = text;
    if (!p || !readDigits(p, 2, f.year)) {
        logBadTime(log, "Invalid UTCTime.", "utcTime", text, "expected a two-digit year");
        return false;
    }
    // RFC 5280 4.1.2.5.1: YY >= 50 is 19YY, YY < 50 is 20YY.
    f.year += (f.year < 50) ? 2000 : 1900;
    if (!parseAfterYear(p, false, f, why)) {
        logBadTime(log, "Invalid UTCTime.", "utcTime", text, why);
        return false;
    }
    storeUtc(f, *this);
    return true;
}

bool OrvaneSysTime::fromAsnGeneralizedTime(const char* text, LogBase& log) {
    const char* why = nullptr;
    AsnTimeFields f;
    const char* p = text;
    if (!p || !readDigits(p, 4, f.year)) {
        logBadTime(log, "Invalid GeneralizedTime.", "generalizedTime", text,
                   "expected a four-digit year");
        return false;
    }
    if (!parseAfterYear(p, true, f, why)) {
        logBadTime(log, "Invalid GeneralizedTime.", "generalizedTime", text, why);
        return false;
    }
    OrvaneSysTime t;
    storeUtc(f, t);
    if (t.m_year < 0 || t.m_year > 9999) {
        logBadTime(log, "Invalid GeneralizedTime.", "generalizedTime", text,
                   "the offset moves the time outside the years 0000..9999");
        return false;
    }
    *this = t;
    return true;
}

int64_t OrvaneSysTime::toUnixTime() const {
    const int64_t monthIndex = int64_t(m_month) - 1;
    const int64_t year = int64_t(m_year) + floorDiv(monthIndex, 12);
    const int64_t month = floorMod(monthIndex, 12) + 1;
    const int64_t days = daysFromCivil(year, month, 1) + int64_t(m_day) - 1;
    return days * kSecondsPerDay + int64_t(m_hour) * 3600 + int64_t(m_minute) * 60 +
           int64_t(m_second);
}

void OrvaneSysTime::fromUnixTime(int64_t t) {
    if (t > kMaxAbsUnixTime) t = kMaxAbsUnixTime;
    if (t < -kMaxAbsUnixTime) t = -kMaxAbsUnixTime;
    const int64_t days = floorDiv(t, kSecondsPerDay);
    const int64_t secs = t - days * kSecondsPerDay;
    int64_t year = 0;
    civilFromDays(days, year, m_month, m_day);
    m_year = static_cast<int>(year);
    m_hour = static_cast<int>(secs / 3600);
    m_minute = static_cast<int>((secs % 3600) / 60);
    m_second = static_cast<int>(secs % 60);
    m_millisecond = 0;
    // 1970-01-01 was a Thursday.
    m_dayOfWeek = static_cast<int>(floorMod(days + 4, 7));
}

void OrvaneSysTime::setCurrentTime() {
    using namespace std::chrono;
    const int64_t ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    fromUnixTime(floorDiv(ms, 1000));
    m_millisecond = static_cast<int>(floorMod(ms, 1000));
}

int OrvaneSysTime::compare(const OrvaneSysTime& other) const {
    const int64_t a = toUnixTime() * 1000 + m_millisecond;
    const int64_t b = other.toUnixTime() * 1000 + other.m_millisecond;
    return (a < b) ? -1 : (a > b ? 1 : 0);
}
