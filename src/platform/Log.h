#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QStringList>

namespace corvina {

// The one place the program writes its log lines. Lines go to Qt's message handler under the
// category "corvina" (stderr by default), one line per failure and without levels: the texts are
// what host authors and tests read, so they are fixed and filled with "%@" placeholders.
class Log {
public:
    // Tag that fills the first placeholder of every "[%@] ..." format.
    static const QString ErrorTag;

    // Writes `format` with each "%@" replaced, in order, by the next of `args`.
    static void write(const QString& format, const QStringList& args = {});
    // For "[%@] ..." formats: the tag "***ERROR***" goes first, then `args`.
    static void error(const QString& format, const QStringList& args = {});
    // The text `write` would log; placeholders without an argument are left as they are.
    static QString format(const QString& format, const QStringList& args);

    static const QLoggingCategory& category();

    // While one lives, nothing its thread writes through Log reaches the log. For a read made
    // twice on purpose (the widget's early look at its newest rows, followed by the read that
    // counts): the second one logs what both found, once.
    class Silence {
    public:
        Silence();
        ~Silence();
        Silence(const Silence&) = delete;
        Silence& operator=(const Silence&) = delete;
    };
};

} // namespace corvina
