// OrvaneSysTime: a calendar date and time in UTC.
#pragma once

#include <cstdint>

class LogBase;

// A plain UTC calendar record. Fields are not normalised by assignment;
// _ovDateParser::checkFixSystemTime brings out-of-range fields into range.
//
// All arithmetic is proleptic Gregorian on the fields alone: nothing here asks
// the machine for its time zone, so results are the same under any TZ.
class OrvaneSysTime {
  public:
    OrvaneSysTime() = default;
    ~OrvaneSysTime() = default;

    int m_year = 1970;  // full year, e.g. 2049
    int m_month = 1;    // 1..12
    int m_day = 1;      // 1..31
    int m_hour = 0;     // 0..23
    int m_minute = 0;   // 0..59
    int m_second = 0;   // 0..59 (60 is kept as read for a leap second)
    int m_millisecond = 0;
    int m_dayOfWeek = 4;  // 0 = Sunday; derived, set by the setters below

    // A record holding exactly these fields, not normalised; m_dayOfWeek keeps
    // its default.
    static OrvaneSysTime fromFields(int year, int month, int day, int hour, int minute, int second,
                                    int millisecond = 0);

    // Sets from ASN.1 UTCTime text "YYMMDDHHMM[SS](Z|+hhmm|-hhmm)"; a two-digit
    // year below 50 is 20YY, otherwise 19YY. Offsets are applied so the record
    // is in UTC. False (record unchanged) on malformed text, with an error line
    // "Invalid UTCTime." and the reason under "reason".
    bool fromAsnUtcDateTime(const char* text, LogBase& log);
    // Sets from ASN.1 GeneralizedTime "YYYYMMDDHHMM[SS[(.|,)f...]](Z|+hhmm|-hhmm)";
    // the fraction is kept to the millisecond (further digits are truncated).
    // False (record unchanged) on malformed text or when applying the offset
    // leaves the years 0000..9999, with an error line "Invalid GeneralizedTime.".
    bool fromAsnGeneralizedTime(const char* text, LogBase& log);

    // Seconds since 1970-01-01T00:00:00Z (negative before), from the fields as
    // they stand (days past a month's end roll over). Milliseconds are ignored.
    int64_t toUnixTime() const;
    // Sets every field from seconds since the epoch; milliseconds become 0.
    // Values beyond about +-300 million years are clamped to that range.
    void fromUnixTime(int64_t t);
    // Sets the current UTC time, to the millisecond.
    void setCurrentTime();

    // -1, 0, 1 as this is before, equal to or after other (to the millisecond).
    int compare(const OrvaneSysTime& other) const;

    // Whether every field lies in its documented range and the day exists in
    // that month (second 60 counts as valid).
    bool isValid() const;

    static bool isLeapYear(int year);
    // Days in the month (1..12) of the year; 0 for a month out of range.
    static int daysInMonth(int year, int month);
};
