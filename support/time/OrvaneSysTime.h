// OrvaneSysTime: a calendar date and time in UTC.
#pragma once

#include <cstdint>

class LogBase;

// A plain UTC calendar record. Fields are not normalised by assignment;
// _ovDateParser::checkFixSystemTime brings out-of-range fields into range.
class OrvaneSysTime {
public:
    OrvaneSysTime() = default;
    ~OrvaneSysTime() = default;

    int m_year = 1970;   // full year, e.g. 2049
    int m_month = 1;     // 1..12
    int m_day = 1;       // 1..31
    int m_hour = 0;      // 0..23
    int m_minute = 0;    // 0..59
    int m_second = 0;    // 0..59 (60 is kept as read for a leap second)
    int m_millisecond = 0;
    int m_dayOfWeek = 4;  // 0 = Sunday; derived, set by the setters below

    // Sets from ASN.1 UTCTime text "YYMMDDHHMM[SS](Z|+hhmm|-hhmm)"; a two-digit
    // year below 50 is 20YY, otherwise 19YY. Offsets are applied so the record
    // is in UTC. False (record unchanged) on malformed text.
    bool fromAsnUtcDateTime(const char* text, LogBase& log);
    // Sets from ASN.1 GeneralizedTime "YYYYMMDDHHMM[SS[.fff]](Z|+hhmm|-hhmm)".
    bool fromAsnGeneralizedTime(const char* text, LogBase& log);

    // Seconds since 1970-01-01T00:00:00Z (negative before), from the fields as
    // they stand (days past a month's end roll over).
    int64_t toUnixTime() const;
    void fromUnixTime(int64_t t);
    void setCurrentTime();

    // -1, 0, 1 as this is before, equal to or after other (to the millisecond).
    int compare(const OrvaneSysTime& other) const;
};
