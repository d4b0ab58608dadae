#include "GetGoodPath.h"

#include <QFile>
#include <sys/stat.h>

namespace corvina {

namespace {

// lstat, not stat: a dangling symbolic link occupies its name as much as a file does.
bool occupied(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

// The longest name a file can have on the file systems we stage to, in bytes.
constexpr qsizetype kMaxNameBytes = 255;

qsizetype utf8Size(QStringView text) {
    return QStringView(text).toUtf8().size();
}

// `base` + `suffix` + `tail` cut to fit kMaxNameBytes: characters come off the end of `base` first
// (the counter in `suffix` is what keeps the names apart, so it stays whole), then off the end of
// `tail` (the extension). Linear: every character is measured once.
QString fitted(QString base, const QString& suffix, QString tail) {
    qsizetype bytes = utf8Size(base) + utf8Size(suffix) + utf8Size(tail);
    const auto chopLast = [&bytes](QString& text) {
        qsizetype width = 1;
        if (text.size() >= 2 && text.at(text.size() - 1).isLowSurrogate() &&
            text.at(text.size() - 2).isHighSurrogate())
            width = 2;
        bytes -= utf8Size(QStringView(text).right(width));
        text.chop(width);
    };
    while (bytes > kMaxNameBytes && !base.isEmpty())
        chopLast(base);
    while (bytes > kMaxNameBytes && !tail.isEmpty())
        chopLast(tail);
    return base + suffix + tail;
}

} // namespace

QString GetGoodPath(const QString& name, const QString& folder) {
    // The last extension is what follows the last dot, unless that dot starts the name (".profile"
    // has no extension) or nothing follows it.
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString tail = hasExtension ? QLatin1Char('.') + name.mid(dot + 1) : QString();

    QString prefix = folder;
    if (!prefix.endsWith(QLatin1Char('/')))
        prefix += QLatin1Char('/');

    QString suffix;
    for (quint64 counter = 1;; ++counter) {
        // A name at the length limit still gets its counter: the base is shortened to make room.
        QString path = prefix + fitted(base, suffix, tail);
        if (!occupied(path))
            return path;
        suffix = QStringLiteral("_%1").arg(counter);
    }
}

} // namespace corvina
