#include "DateFormatter.h"

#include "Object.h"

#include <QTimeZone>

namespace corvina {

QDate DateFormatter::calendarDay(const QDateTime& date) const {
    if (!date.isValid()) {
        return {};
    }
    return (m_utc ? date.toUTC() : date.toLocalTime()).date();
}

QString DateFormatter::stringFromDate(const QDateTime& date) const {
    if (!date.isValid()) {
        return Object::emptyString(); // deliberately empty, not null
    }
    const QDateTime at = m_utc ? date.toUTC() : date.toLocalTime();
    if (!m_pattern.isEmpty()) {
        return m_locale.toString(at, m_pattern);
    }
    const bool hasDate = m_dateStyle != Style::None;
    const bool hasTime = m_timeStyle != Style::None;
    if (hasDate && hasTime) {
        return m_locale.toString(at, QLocale::ShortFormat);
    }
    if (hasDate) {
        return m_locale.toString(at.date(), QLocale::ShortFormat);
    }
    if (hasTime) {
        return m_locale.toString(at.time(), QLocale::ShortFormat);
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
