#include "Log.h"

namespace corvina {

const QString Log::ErrorTag = QStringLiteral("***ERROR***");

namespace {

thread_local int t_silenced = 0;

} // namespace

Log::Silence::Silence() {
    ++t_silenced;
}

Log::Silence::~Silence() {
    --t_silenced;
}

const QLoggingCategory& Log::category() {
    static const QLoggingCategory cat("corvina");
    return cat;
}

QString Log::format(const QString& format, const QStringList& args) {
    // A plain left-to-right scan, so an argument that itself holds "%@" is never filled again.
    QString out;
    out.reserve(format.size() + 32);
    qsizetype next = 0;
    for (qsizetype i = 0; i < format.size(); ++i) {
        if (format[i] == QLatin1Char('%') && i + 1 < format.size() && format[i + 1] == QLatin1Char('@') &&
            next < args.size()) {
            out += args[next++];
            ++i;
        } else {
            out += format[i];
        }
    }
    return out;
}

void Log::write(const QString& fmt, const QStringList& args) {
    if (t_silenced > 0)
        return;
    qCInfo(category()).noquote() << format(fmt, args);
}

void Log::error(const QString& fmt, const QStringList& args) {
    QStringList all;
    all.reserve(args.size() + 1);
    all << ErrorTag << args;
    write(fmt, all);
}

} // namespace corvina
