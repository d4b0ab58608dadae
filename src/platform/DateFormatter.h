#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

namespace corvina {

// Turns points in time into text and back, by the user's locale styles or by a fixed pattern, in
// the system time zone or in UTC. Configure it once, then share it: the conversions are const and
// safe for any number of concurrent callers.
class DateFormatter {
public:
    enum class Style { None, Short };

    void setLocale(const QLocale& locale) { m_locale = locale; }
    void setUtc(bool utc) { m_utc = utc; }
    void setDateStyle(Style style) { m_dateStyle = style; }
    void setTimeStyle(Style style) { m_timeStyle = style; }
    // Qt date-time format ("yyyyMMdd", "yyyy-MM-dd'T'HH:mm:ss'Z'"); replaces the styles.
    void setDateFormat(const QString& pattern) { m_pattern = pattern; }

    const QLocale& locale() const { return m_locale; }
    bool isUtc() const { return m_utc; }
    Style dateStyle() const { return m_dateStyle; }
    Style timeStyle() const { return m_timeStyle; }
    const QString& dateFormat() const { return m_pattern; }

    // The calendar day of `date` in the formatter's zone (system or UTC).
    QDate calendarDay(const QDateTime& date) const;
    // "" for an invalid date.
    QString stringFromDate(const QDateTime& date) const;
    // Null QDateTime when `text` does not match the pattern exactly. Pattern formatters only.
    QDateTime dateFromString(const QString& text) const;

private:
    QLocale m_locale;
    bool m_utc = false;
    Style m_dateStyle = Style::None;
    Style m_timeStyle = Style::None;
    QString m_pattern;
};

} // namespace corvina
