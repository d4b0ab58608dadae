#include "ExtensionDate.h"

#include "platform/Log.h"
#include "platform/Object.h"

#include <QMutexLocker>

namespace corvina {

ExtensionDate& ExtensionDate::shared() {
    // A function-local static is made once, and other first callers wait until it is complete, so
    // nobody sees the instance before its formatters exist.
    static ExtensionDate* const instance = [] {
        auto* date = new ExtensionDate; // lives until the process ends
        date->Initialize();
        return date;
    }();
    return *instance;
}

void ExtensionDate::Initialize() {
    const QLocale userLocale; // the user's locale (QLocale's default: the system's unless changed)

    auto central = std::make_shared<DateFormatter>();
    central->setLocale(userLocale);
    central->setDateStyle(DateFormatter::Style::None);
    central->setTimeStyle(DateFormatter::Style::Short);
    setDateCentrale(central);

    auto central2 = std::make_shared<DateFormatter>();
    central2->setLocale(userLocale);
    central2->setDateStyle(DateFormatter::Style::Short);
    central2->setTimeStyle(DateFormatter::Style::None);
    setDateCentrale2(central2);

    auto day = std::make_shared<DateFormatter>();
    day->setLocale(userLocale);
    day->setDateFormat(QStringLiteral("yyyyMMdd"));
    setDataDay(day);

    // Independent of the user's settings on purpose: the text is always UTC in this one form.
    auto exchange = std::make_shared<DateFormatter>();
    exchange->setLocale(QLocale::c());
    exchange->setUtc(true);
    exchange->setDateFormat(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
    setDateExchange(exchange);
}

qint64 ExtensionDate::IntDate(const QDateTime& date) const {
    if (!date.isValid()) {
        return 0;
    }
    const DateFormatterPtr day = dataDay();
    // the number dataDay's "yyyyMMdd" writes, computed without going through locale digits
    const QDate d = day ? day->calendarDay(date) : date.toLocalTime().date();
    return qint64(d.year()) * 10000 + d.month() * 100 + d.day();
}

bool ExtensionDate::isToday(const QDateTime& date) const {
    const DateFormatterPtr day = dataDay();
    const bool utc = day && day->isUtc();
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    // a change of TZ shows at once; a change of the system's zone file within a second
    const QByteArray zone = qgetenv("TZ");
    QMutexLocker lock(&m_todayLock);
    TodayBounds& today = m_today;
    if (today.utc != utc || today.zone != zone || now < today.start || now >= today.end ||
        now - today.madeAt > 1000 || now < today.madeAt) {
        const QDate calendarDay = utc ? QDateTime::currentDateTimeUtc().date() : QDate::currentDate();
        const Qt::TimeSpec spec = utc ? Qt::UTC : Qt::LocalTime;
        today = {calendarDay.startOfDay(spec).toMSecsSinceEpoch(),
                 calendarDay.addDays(1).startOfDay(spec).toMSecsSinceEpoch(), now, utc, zone};
    }
    const qint64 at = date.toMSecsSinceEpoch();
    return at >= today.start && at < today.end;
}

QString ExtensionDate::centralDate(const QDateTime& date) const {
    if (!date.isValid()) {
        return Object::emptyString();
    }
    const DateFormatterPtr formatter = isToday(date) ? dateCentrale() : dateCentrale2();
    return formatter ? formatter->stringFromDate(date) : Object::emptyString();
}

QDateTime ExtensionDate::exchangeDate(const QString& text) {
    if (text.isNull()) {
        return {};
    }
    QMutexLocker lock(&m_lock);
    Log::write(QStringLiteral("exchangeDate %@"), {text});
    const DateFormatterPtr exchange = dateExchange();
    return exchange ? exchange->dateFromString(text) : QDateTime();
}

} // namespace corvina
