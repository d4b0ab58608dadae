// When the rows' date texts age: the start of the next local day, on ordinary days and on the days
// the clocks change, and the kernel's timer that says so.
#include "widget/DayTurnTimer.h"

#include "support/ScopedZone.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::ScopedTimeZone;

namespace {

QDateTime utc(const char* text) {
    return QDateTime::fromString(QString::fromLatin1(text), Qt::ISODate).toUTC();
}

} // namespace

TEST(DayTurnTimer, TheNextDayStartsAtLocalMidnight) {
    ScopedTimeZone zone("Europe/Berlin");
    // 12:00 in Berlin (UTC+1 in winter): the next day starts at 23:00 UTC
    EXPECT_EQ(DayTurnTimer::nextDayStart(utc("2026-01-14T11:00:00Z")).toUTC(), utc("2026-01-14T23:00:00Z"));
    // one second before midnight, and midnight itself: the day after
    EXPECT_EQ(DayTurnTimer::nextDayStart(utc("2026-01-14T22:59:59Z")).toUTC(), utc("2026-01-14T23:00:00Z"));
    EXPECT_EQ(DayTurnTimer::nextDayStart(utc("2026-01-14T23:00:00Z")).toUTC(), utc("2026-01-15T23:00:00Z"));
}

// 29 March 2026 in Berlin is 23 hours long (02:00 becomes 03:00), 25 October 25 hours: the next
// midnight is counted on the clock, not 24 hours on.
TEST(DayTurnTimer, DaysWhenTheClocksChange) {
    ScopedTimeZone zone("Europe/Berlin");
    // the spring day's own start is 23:00 UTC the day before (UTC+1); its end 22:00 UTC (UTC+2)
    EXPECT_EQ(DayTurnTimer::nextDayStart(utc("2026-03-28T23:00:00Z")).toUTC(), utc("2026-03-29T22:00:00Z"));
    // the autumn day starts at 22:00 UTC the day before (UTC+2) and ends at 23:00 UTC (UTC+1)
    EXPECT_EQ(DayTurnTimer::nextDayStart(utc("2026-10-24T22:00:00Z")).toUTC(), utc("2026-10-25T23:00:00Z"));
}

// In São Paulo the clocks went forward at midnight on 4 November 2018: that day had no 00:00 and
// began at 01:00 (UTC-2), 03:00 UTC.
TEST(DayTurnTimer, ADayWithoutAMidnightStartsAtItsFirstTime) {
    ScopedTimeZone zone("America/Sao_Paulo");
    EXPECT_EQ(DayTurnTimer::nextDayStart(utc("2018-11-03T15:00:00Z")).toUTC(), utc("2018-11-04T03:00:00Z"));
}

// The kernel's timer fires at the wall-clock time it was armed for, and is armed again for the next
// day's start.
TEST(DayTurnTimer, FiresAndIsArmedForTheNextDay) {
    DayTurnTimer timer;
    QSignalSpy turned(&timer, &DayTurnTimer::turned);
    ASSERT_TRUE(timer.armAt(QDateTime::currentDateTime().addMSecs(300)));
    ASSERT_TRUE(turned.wait(10000));
    EXPECT_EQ(turned.count(), 1);
    EXPECT_EQ(timer.armedFor(), DayTurnTimer::nextDayStart(QDateTime::currentDateTime()));
}

TEST(DayTurnTimer, StartArmsForTheNextDayStart) {
    DayTurnTimer timer;
    EXPECT_FALSE(timer.armedFor().isValid());
    ASSERT_TRUE(timer.start());
    EXPECT_EQ(timer.armedFor(), DayTurnTimer::nextDayStart(QDateTime::currentDateTime()));
}
