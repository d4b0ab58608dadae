#pragma once

#include <QDateTime>
#include <QHash>
#include <QLocale>
#include <QMutex>
#include <QString>
#include <memory>

namespace corvina {

// Turns points in time into text and back, by the user's locale styles or by a fixed pattern, in
// the system time zone or in UTC. Configure it once, then share it: the conversions are const and
// safe for any number of concurrent callers.
class DateFormatter {
public:
    enum class Style { None, Short };

    void setLocale(const QLocale& locale) {
        m_locale = locale;
        forgetTexts();
    }
    void setUtc(bool utc) {
        m_utc = utc;
        forgetTexts();
    }
    void setDateStyle(Style style) {
        m_dateStyle = style;
        forgetTexts();
    }
    void setTimeStyle(Style style) {
        m_timeStyle = style;
        forgetTexts();
    }
    // Qt date-time format ("yyyyMMdd", "yyyy-MM-dd'T'HH:mm:ss'Z'"); replaces the styles.
    void setDateFormat(const QString& pattern) {
        m_pattern = pattern;
        forgetTexts();
    }

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
    // A time alone in the short style; see the .cpp for the C locale.
    QString shortTime(const QTime& time) const;
    // The texts already made by a formatter of a date alone or a time alone, by calendar day or by
    // time of day: messages come by the thousand and share a few days, and the locale's formatting
    // is far costlier than a look-up. A text is shared, not copied. Bounded; emptied by any setter.
    struct Texts {
        QMutex mutex;
        QHash<qint64, QString> byKey;
    };
    static constexpr qsizetype MostTexts = 4096;
    void forgetTexts() { m_texts = std::make_shared<Texts>(); }

    QLocale m_locale;
    std::shared_ptr<Texts> m_texts = std::make_shared<Texts>();
    bool m_utc = false;
    Style m_dateStyle = Style::None;
    Style m_timeStyle = Style::None;
    QString m_pattern;
};

} // namespace corvina
