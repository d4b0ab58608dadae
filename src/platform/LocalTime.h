#pragma once

#include <QDate>
#include <QTime>

namespace corvina {

// The calendar day and wall-clock time of a point in time in the system's time zone, without
// asking the C library to look at the zone again for every call.
//
// QDateTime::toLocalTime re-reads the zone settings on each call (one check of the zone file per
// call), which is most of what formatting a few thousand message dates costs. Here the zone is
// looked at again only when TZ changes (at once, so a program or a test that sets TZ sees the new
// zone on the next call) or when a second has passed since the last look (so a change of the
// system's zone file shows within a second).
class LocalTime {
public:
    // The day and time of `msecsSinceEpoch` in the system zone, as QDateTime::toLocalTime gives
    // them. False for points that the date type places by rules of its own rather than by the C
    // library (before 1970, after 2037): callers then go through QDateTime::toLocalTime.
    static bool split(qint64 msecsSinceEpoch, QDate* date, QTime* time);
};

} // namespace corvina
