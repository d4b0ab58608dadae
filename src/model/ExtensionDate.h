#pragma once

#include "platform/AtomicProperty.h"
#include "platform/DateFormatter.h"

#include <QByteArray>
#include <QDateTime>
#include <QMutex>
#include <QString>
#include <memory>

namespace corvina {

using DateFormatterPtr = std::shared_ptr<const DateFormatter>;

// The one shared date service: the short text a row shows for a message date, the calendar-day
// key of a date, and the parser of the fixed UTC timestamps exchanged with the mail application.
// Formatters are costly to make, so the four are made once and kept for the life of the process;
// the display ones capture the user's locale when they are made, and later changes of the user's
// settings do not reach them.
class ExtensionDate {
public:
    // The one instance; the first call makes it and runs Initialize, exactly once even when many
    // threads call at the same moment.
    static ExtensionDate& shared();

    // A separate instance is for tests that need a locale of their own; the program uses shared().
    ExtensionDate() = default;
    ExtensionDate(const ExtensionDate&) = delete;
    ExtensionDate& operator=(const ExtensionDate&) = delete;

    // Makes the four formatters, in the order dateCentrale, dateCentrale2, dataDay, dateExchange.
    void Initialize();

    // year * 10000 + month * 100 + day of `date` in the system time zone (20231114); 0 for null.
    qint64 IntDate(const QDateTime& date) const;
    // The time alone for a date of today (system time zone), the short date otherwise; "" for null.
    QString centralDate(const QDateTime& date) const;
    // Parses "2023-11-14T22:13:20Z" as UTC; null for null or for text off the pattern. Every
    // non-null call logs "exchangeDate <text>", under the instance's lock.
    QDateTime exchangeDate(const QString& text);

    DateFormatterPtr dateExchange() const { return m_dateExchange.get(); }
    void setDateExchange(DateFormatterPtr formatter) { m_dateExchange.set(std::move(formatter)); }
    DateFormatterPtr dataDay() const { return m_dataDay.get(); }
    void setDataDay(DateFormatterPtr formatter) { m_dataDay.set(std::move(formatter)); }
    DateFormatterPtr dateCentrale() const { return m_dateCentrale.get(); }
    void setDateCentrale(DateFormatterPtr formatter) { m_dateCentrale.set(std::move(formatter)); }
    DateFormatterPtr dateCentrale2() const { return m_dateCentrale2.get(); }
    void setDateCentrale2(DateFormatterPtr formatter) { m_dateCentrale2.set(std::move(formatter)); }

private:
    // Whether `date` falls on today's calendar day in dataDay's zone. The same answer as comparing
    // IntDate of the date and of now, without two zone conversions per call: rows are dated by
    // the thousand, and each conversion makes the C library look at the zone file again.
    bool isToday(const QDateTime& date) const;

    AtomicProperty<DateFormatterPtr> m_dateExchange;
    AtomicProperty<DateFormatterPtr> m_dataDay;
    AtomicProperty<DateFormatterPtr> m_dateCentrale;
    AtomicProperty<DateFormatterPtr> m_dateCentrale2;
    QMutex m_lock;

    // today's bounds in milliseconds since 1970, remembered briefly (see isToday)
    struct TodayBounds {
        qint64 start = 0;
        qint64 end = 0;
        qint64 madeAt = 0;
        bool utc = false;
        QByteArray zone;
    };
    mutable QMutex m_todayLock;
    mutable TodayBounds m_today;
};

} // namespace corvina
