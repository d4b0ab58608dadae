#include "model/ExtensionDate.h"

#include "support/LogCapture.h"
#include "support/ScopedZone.h"

#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace corvina;
using corvina::test::ScopedLocale;
using corvina::test::ScopedTimeZone;

namespace {

const QLocale enUS(QLocale::English, QLocale::UnitedStates);
const QLocale deDE(QLocale::German, QLocale::Germany);
const QLocale enGB(QLocale::English, QLocale::UnitedKingdom);

// A service made under `locale`, the way shared() makes the program's one.
std::unique_ptr<ExtensionDate> serviceFor(const QLocale& locale) {
    ScopedLocale pin(locale);
    auto service = std::make_unique<ExtensionDate>();
    service->Initialize();
    return service;
}

QDateTime todayAt(int h, int m, int s = 0) {
    return QDateTime(QDate::currentDate(), QTime(h, m, s), Qt::LocalTime);
}

// Runs `check` and runs it once more if the calendar day changed meanwhile (a run across midnight).
template <typename F> void onOneDay(F check) {
    const QDate before = QDate::currentDate();
    check();
    if (QDate::currentDate() != before) {
        check();
    }
}

} // namespace

TEST(ExtensionDate, SharedIsOneInstanceWithItsFormattersMade) {
    ExtensionDate& a = ExtensionDate::shared();
    ExtensionDate& b = ExtensionDate::shared();
    EXPECT_EQ(&a, &b);
    ASSERT_TRUE(a.dateCentrale());
    ASSERT_TRUE(a.dateCentrale2());
    ASSERT_TRUE(a.dataDay());
    ASSERT_TRUE(a.dateExchange());
    EXPECT_EQ(a.dataDay()->dateFormat(), QStringLiteral("yyyyMMdd"));
    EXPECT_EQ(a.dateExchange()->dateFormat(), QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
    EXPECT_TRUE(a.dateExchange()->isUtc());
    EXPECT_FALSE(a.dateCentrale()->isUtc());
    EXPECT_EQ(a.dateCentrale()->timeStyle(), DateFormatter::Style::Short);
    EXPECT_EQ(a.dateCentrale()->dateStyle(), DateFormatter::Style::None);
    EXPECT_EQ(a.dateCentrale2()->dateStyle(), DateFormatter::Style::Short);
    EXPECT_EQ(a.dateCentrale2()->timeStyle(), DateFormatter::Style::None);
}

TEST(ExtensionDate, NullDatesGiveEmptyTextAndZero) {
    auto service = serviceFor(enUS);
    EXPECT_EQ(service->IntDate(QDateTime()), 0);
    const QString text = service->centralDate(QDateTime());
    EXPECT_TRUE(text.isEmpty());
    EXPECT_FALSE(text.isNull());
}

TEST(ExtensionDate, IntDateIsTheCalendarDayInTheSystemZone) {
    auto service = serviceFor(enUS);
    const QDateTime instant = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC); // 2023-11-14 22:13:20 UTC
    {
        ScopedTimeZone zone("UTC");
        EXPECT_EQ(service->IntDate(instant), 20231114);
    }
    {
        ScopedTimeZone zone("Asia/Tokyo");
        EXPECT_EQ(service->IntDate(instant), 20231115);
    }
    {
        ScopedTimeZone zone("America/Los_Angeles");
        EXPECT_EQ(service->IntDate(instant), 20231114);
    }
}

TEST(ExtensionDate, TodayShowsTheTimeInTheUsersClock) {
    onOneDay([] {
        auto us = serviceFor(enUS);
        auto de = serviceFor(deDE);
        auto gb = serviceFor(enGB);
        ScopedTimeZone zone("Europe/Berlin");
        // later today is still today: a time, not a date
        EXPECT_EQ(us->centralDate(todayAt(14, 5)), QStringLiteral("2:05 PM"));
        EXPECT_EQ(de->centralDate(todayAt(14, 5)), QStringLiteral("14:05"));
        EXPECT_EQ(gb->centralDate(todayAt(14, 5)), QStringLiteral("14:05"));
    });
}

// With no locale set (LANG=C or POSIX) the time is hours and minutes, as everywhere else, not the
// C locale's own form with seconds ("14:05:00").
TEST(ExtensionDate, TodayInTheCLocaleShowsHoursAndMinutes) {
    onOneDay([] {
        auto c = serviceFor(QLocale::c());
        auto posix = serviceFor(QLocale(QStringLiteral("POSIX")));
        ScopedTimeZone zone("Europe/Berlin");
        EXPECT_EQ(c->centralDate(todayAt(14, 5)), QStringLiteral("14:05"));
        EXPECT_EQ(posix->centralDate(todayAt(14, 5)), QStringLiteral("14:05"));
        EXPECT_EQ(c->centralDate(todayAt(0, 0)), QStringLiteral("00:00"));
    });
}

TEST(ExtensionDate, MidnightTodayShowsItsTimeAndOneSecondEarlierIsYesterday) {
    onOneDay([] {
        auto us = serviceFor(enUS);
        auto de = serviceFor(deDE);
        ScopedTimeZone zone("America/New_York");
        const QDateTime midnight = todayAt(0, 0, 0);
        const QDateTime before = midnight.addSecs(-1);
        const QDate yesterday = QDate::currentDate().addDays(-1);
        EXPECT_EQ(us->centralDate(midnight), QStringLiteral("12:00 AM"));
        EXPECT_EQ(de->centralDate(midnight), QStringLiteral("00:00"));
        EXPECT_EQ(us->centralDate(before), yesterday.toString(QStringLiteral("M/d/yy")));
        EXPECT_EQ(de->centralDate(before), yesterday.toString(QStringLiteral("dd.MM.yy")));
    });
}

TEST(ExtensionDate, TomorrowShowsADateNotATime) {
    onOneDay([] {
        auto us = serviceFor(enUS);
        ScopedTimeZone zone("UTC");
        const QDateTime tomorrow = todayAt(9, 30).addDays(1);
        EXPECT_EQ(us->centralDate(tomorrow), tomorrow.date().toString(QStringLiteral("M/d/yy")));
        // no relative words for yesterday either
        const QDateTime yesterday = todayAt(9, 30).addDays(-1);
        EXPECT_EQ(us->centralDate(yesterday), yesterday.date().toString(QStringLiteral("M/d/yy")));
    });
}

TEST(ExtensionDate, TheEpochIsTheLastDayOf1969WestOfUtc) {
    const QDateTime epoch = QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
    auto us = serviceFor(enUS);
    auto de = serviceFor(deDE);
    auto gb = serviceFor(enGB);
    {
        ScopedTimeZone zone("America/New_York");
        EXPECT_EQ(us->centralDate(epoch), QStringLiteral("12/31/69"));
        EXPECT_EQ(de->centralDate(epoch), QStringLiteral("31.12.69"));
        EXPECT_EQ(gb->centralDate(epoch), QStringLiteral("31/12/1969"));
    }
    {
        ScopedTimeZone zone("Europe/Berlin");
        EXPECT_EQ(us->centralDate(epoch), QStringLiteral("1/1/70"));
        EXPECT_EQ(de->centralDate(epoch), QStringLiteral("01.01.70"));
    }
}

TEST(ExtensionDate, DisplayFormattersKeepTheLocaleTheyWereMadeWith) {
    auto us = serviceFor(enUS);
    ScopedLocale later(deDE); // the user changes settings while the widget runs
    ScopedTimeZone zone("America/New_York");
    EXPECT_EQ(us->centralDate(QDateTime::fromSecsSinceEpoch(0, Qt::UTC)), QStringLiteral("12/31/69"));
}

TEST(ExtensionDate, ExchangeDateIsUtcWhateverTheUsersSettings) {
    for (const char* tz : {"UTC", "Asia/Tokyo", "America/Los_Angeles", "Australia/Lord_Howe"}) {
        for (const QLocale& locale : {enUS, deDE, QLocale(QLocale::Arabic, QLocale::Egypt)}) {
            auto service = serviceFor(locale);
            ScopedTimeZone zone(tz);
            test::LogCapture capture;
            const QDateTime parsed = service->exchangeDate(QStringLiteral("2023-11-14T22:13:20Z"));
            ASSERT_TRUE(parsed.isValid()) << tz;
            EXPECT_EQ(parsed.toSecsSinceEpoch(), 1700000000) << tz;
            EXPECT_EQ(capture.lines(), QStringList{QStringLiteral("exchangeDate 2023-11-14T22:13:20Z")});
        }
    }
}

TEST(ExtensionDate, ExchangeDateReadsWallClockTimesThatDoNotExistLocally) {
    auto service = serviceFor(enUS);
    ScopedTimeZone zone("Europe/Berlin"); // 02:30 on 26 March 2023 was skipped there
    test::LogCapture capture;
    EXPECT_EQ(service->exchangeDate(QStringLiteral("2023-03-26T02:30:00Z")).toSecsSinceEpoch(), 1679797800);
}

TEST(ExtensionDate, ExchangeDateRefusesOtherFormsAfterLoggingThem) {
    auto service = serviceFor(enUS);
    test::LogCapture capture;
    const QStringList rejected = {QStringLiteral("2023-11-14T22:13:20.000Z"),
                                  QStringLiteral("2023-11-14 22:13:20"),
                                  QStringLiteral("2023-11-14T22:13:20+01:00"),
                                  QStringLiteral("2023-11-14T22:13:20"),
                                  QStringLiteral(""),
                                  QStringLiteral("yesterday")};
    for (const QString& text : rejected) {
        EXPECT_FALSE(service->exchangeDate(text).isValid()) << text.toStdString();
    }
    QStringList expected;
    for (const QString& text : rejected) {
        expected << QStringLiteral("exchangeDate ") + text;
    }
    EXPECT_EQ(capture.lines(), expected);
}

TEST(ExtensionDate, ExchangeDateOfNullLogsNothing) {
    auto service = serviceFor(enUS);
    test::LogCapture capture;
    EXPECT_FALSE(service->exchangeDate(QString()).isValid());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionDate, ManyThreadsShareOneServiceSafely) {
    test::LogCapture capture;
    constexpr int Threads = 16;
    constexpr int Rounds = 200;
    const QDateTime epoch = QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
    const QString expectedEpoch = ExtensionDate::shared().centralDate(epoch);
    std::atomic<int> mismatches{0};
    std::vector<ExtensionDate*> seen(Threads, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < Rounds; ++i) {
                ExtensionDate& service = ExtensionDate::shared();
                seen[t] = &service;
                if (service.centralDate(epoch) != expectedEpoch) {
                    ++mismatches;
                }
                if (service.IntDate(QDateTime::currentDateTimeUtc()) < 20000101) {
                    ++mismatches;
                }
                if (service.exchangeDate(QStringLiteral("2023-11-14T22:13:20Z")).toSecsSinceEpoch() !=
                    1700000000) {
                    ++mismatches;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
    for (ExtensionDate* s : seen) {
        EXPECT_EQ(s, &ExtensionDate::shared());
    }
    EXPECT_EQ(capture.count(QStringLiteral("exchangeDate 2023-11-14T22:13:20Z")), Threads * Rounds);
}

TEST(ExtensionDate, ASwitchOfTimeZoneIsSeenAtOnce) {
    // Today's bounds are remembered between calls; a new zone must not be answered with the old
    // zone's day. The zones' days are 26 hours apart, so hourly dates over three days fall on
    // today in one zone and not in the other somewhere.
    auto de = serviceFor(deDE);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (int round = 0; round < 2; ++round) {
        for (const char* name : {"Etc/GMT-14", "Etc/GMT+12", "Europe/Berlin"}) {
            ScopedTimeZone zone(name);
            onOneDay([&] {
                for (int hours = -36; hours <= 36; ++hours) {
                    const QDateTime date = now.addSecs(hours * 3600);
                    const bool today = de->IntDate(date) == de->IntDate(QDateTime::currentDateTimeUtc());
                    EXPECT_EQ(de->centralDate(date),
                              (today ? de->dateCentrale() : de->dateCentrale2())->stringFromDate(date))
                        << name << " " << hours;
                }
            });
        }
    }
}
