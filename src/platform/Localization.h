#pragma once

#include <QLocale>
#include <QString>

namespace corvina {

// The program's string table: Qt translations keyed by the English text. A key without a
// translation in the user's language answers the key itself, so English needs no table.
class Localization {
public:
    // The translation of `key` for the current language, or `key` where there is none.
    static QString text(const QString& key);
    // The same for a key written as a UTF-8 literal in the code.
    static QString text(const char* key) { return text(QString::fromUtf8(key)); }

    // The language used; the first call picks the user's locale (LANG, LC_ALL, LC_MESSAGES).
    static QLocale locale();
    // Switches the language for every later call (tests, and a host that changes language).
    static void setLocale(const QLocale& locale);
};

} // namespace corvina
