#include "DateFormatter.h"

#include "LocalTime.h"
#include "Object.h"

#include <QTimeZone>

namespace corvina {

QDate DateFormatter::calendarDay(const QDateTime& date) const {
    if (!date.isValid()) {
        return {};
    }
    if (!m_utc) {
        QDate day;
        QTime time;
        if (LocalTime::split(date.toMSecsSinceEpoch(), &day, &time)) {
            return day;
        }
    }
    return (m_utc ? date.toUTC() : date.toLocalTime()).date();
}

QString DateFormatter::shortTime(const QTime& time) const {
    // The C locale (no locale set, LANG=C or POSIX) writes its short time with seconds, "14:05:00":
    // a list of messages shows hours and minutes, as every other locale's short form does.
    if (m_locale.language() == QLocale::C) {
        return time.toString(QStringLiteral("HH:mm"));
    }
    return m_locale.toString(time, QLocale::ShortFormat);
}

QString DateFormatter::stringFromDate(const QDateTime& date) const {
    if (!date.isValid()) {
        return Object::emptyString(); // deliberately empty, not null
    }
    const bool hasDate = m_dateStyle != Style::None;
    const bool hasTime = m_timeStyle != Style::None;
    // A date alone or a time alone needs only the wall clock, which LocalTime gives without the
    // zone look-up of a conversion; the rest may name the zone, and converts.
    if (m_pattern.isEmpty() && !m_utc && hasDate != hasTime) {
        QDate day;
        QTime time;
        if (LocalTime::split(date.toMSecsSinceEpoch(), &day, &time)) {
            const qint64 key = hasDate ? day.toJulianDay() : time.msecsSinceStartOfDay();
            QMutexLocker lock(&m_texts->mutex);
            const auto known = m_texts->byKey.constFind(key);
            if (known != m_texts->byKey.constEnd()) {
                return *known;
            }
            QString text = hasDate ? m_locale.toString(day, QLocale::ShortFormat) : shortTime(time);
            if (m_texts->byKey.size() >= MostTexts) {
                m_texts->byKey.clear();
            }
            m_texts->byKey.insert(key, text);
            return text;
        }
    }
    const QDateTime at = m_utc ? date.toUTC() : date.toLocalTime();
    if (!m_pattern.isEmpty()) {
        return m_locale.toString(at, m_pattern);
    }
    if (hasDate && hasTime) {
        return m_locale.toString(at, QLocale::ShortFormat);
    }
    if (hasDate) {
        return m_locale.toString(at.date(), QLocale::ShortFormat);
    }
    if (hasTime) {
        return shortTime(at.time());
    }
    return Object::emptyString();
}

QDateTime DateFormatter::dateFromString(const QString& text) const {
    if (m_pattern.isEmpty() || text.isEmpty()) {
        return {};
    }
    if (!m_utc) {
        QDateTime parsed = m_locale.toDateTime(text, m_pattern);
        return parsed.isValid() ? parsed : QDateTime();
    }
    // Qt reads a pattern without a zone field as local time, where some wall-clock times do not
    // exist (daylight-saving gaps). Reading the text with an explicit UTC zone field appended keeps
    // the result independent of the machine's zone.
    QDateTime parsed = m_locale.toDateTime(text + QStringLiteral(" UTC"), m_pattern + QStringLiteral(" t"));
    if (!parsed.isValid()) {
        return {};
    }
    return parsed.toUTC();
}

} // namespace corvina
