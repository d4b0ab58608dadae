#include "LocalTime.h"

#include <QDateTime>
#include <QMutex>
#include <QMutexLocker>
#include <cstdlib>
#include <ctime>
#include <string>

namespace corvina {

namespace {

// The range in which the date type itself converts through localtime_r: from 1970 to the last
// second of 2037. Outside it, it applies rules of its own (no daylight saving before 1970, a
// borrowed year after 2037), which this class does not repeat.
constexpr qint64 LastPlainSecond = 2145916799;

struct ZoneLook {
    QMutex mutex;
    bool looked = false;
    bool tzSet = false;
    std::string tz;
    qint64 at = 0;
};

ZoneLook& zoneLook() {
    static ZoneLook look;
    return look;
}

// Makes the C library read the zone settings again when TZ has changed or a second has passed.
void refreshZone() {
    // read the way tzset reads it
    const char* tz = std::getenv("TZ");
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    ZoneLook& look = zoneLook();
    QMutexLocker lock(&look.mutex);
    const bool changed = !look.looked || look.tzSet != (tz != nullptr) || (tz && look.tz != tz);
    if (changed || now - look.at > 1000 || now < look.at) {
        ::tzset();
        look.looked = true;
        look.tzSet = tz != nullptr;
        look.tz = tz ? tz : "";
        look.at = now;
    }
}

} // namespace

bool LocalTime::split(qint64 msecsSinceEpoch, QDate* date, QTime* time) {
    if (msecsSinceEpoch < 0 || msecsSinceEpoch > LastPlainSecond * 1000 + 999) {
        return false;
    }
    refreshZone();
    const time_t seconds = static_cast<time_t>(msecsSinceEpoch / 1000);
    tm local{};
    // localtime_r, unlike localtime, does not look at the zone settings again
    if (!::localtime_r(&seconds, &local)) {
        return false;
    }
    *date = QDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    *time = QTime(local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(msecsSinceEpoch % 1000));
    return date->isValid() && time->isValid();
}

} // namespace corvina
