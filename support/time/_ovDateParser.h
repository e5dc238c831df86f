// _ovDateParser: RFC 3339 text from date records, and record normalisation.
#pragma once

class OrvaneSysTime;
class StringBuffer;

class _ovDateParser {
  public:
    // Appends the record as RFC 3339 text, "YYYY-MM-DDThh:mm:ss[.sss](Z|+00:00)".
    // The record is not modified; a normalised copy (checkFixSystemTime) is
    // formatted, so the text is valid RFC 3339 whatever the fields hold.
    //
    //   withMillis      true: append ".sss" when the milliseconds are not zero.
    //                   false: whole seconds only (milliseconds are dropped).
    //   keepLeapSecond  true: a record at 23:59:60 is written as "23:59:60"
    //                   (RFC 3339 allows it there). false: it rolls forward to
    //                   00:00:00 of the next day, as everywhere else.
    //   zulu            true: the zone is written "Z"; false: "+00:00".
    //
    // Returns false only when the text could not be appended (out of memory).
    static bool SysTimeToRfc3339(const OrvaneSysTime& t, bool withMillis, bool keepLeapSecond,
                                 StringBuffer& out, bool zulu);

    // Brings every field into range by carrying the excess into the next larger
    // unit: millisecond 1500 is one second more, second 60 rolls to the next
    // minute, day 32 of January is February 1st, month 13 is January of the next
    // year, negative values borrow. Years are then clamped to 0000..9999 (to
    // 0000-01-01T00:00:00.000 and 9999-12-31T23:59:59.999). m_dayOfWeek is set.
    static void checkFixSystemTime(OrvaneSysTime& t);
};
