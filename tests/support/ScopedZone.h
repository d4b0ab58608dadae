#pragma once

#include <QByteArray>
#include <QLocale>

namespace corvina::test {

// Runs a block of a test in another system time zone (TZ), restoring the previous one after.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone);
    ~ScopedTimeZone();
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    QByteArray m_saved;
    bool m_had;
};

// Makes `locale` the user's locale (QLocale's default) for a block of a test.
class ScopedLocale {
public:
    explicit ScopedLocale(const QLocale& locale);
    ~ScopedLocale();
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    QLocale m_saved;
};

// Switches the program's string table to `locale`'s language for a block of a test.
class ScopedLanguage {
public:
    explicit ScopedLanguage(const QLocale& locale);
    ~ScopedLanguage();
    ScopedLanguage(const ScopedLanguage&) = delete;
    ScopedLanguage& operator=(const ScopedLanguage&) = delete;

private:
    QLocale m_saved;
};

} // namespace corvina::test
