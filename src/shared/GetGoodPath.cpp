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

} // namespace

QString GetGoodPath(const QString& name, const QString& folder) {
    // The last extension is what follows the last dot, unless that dot starts the name (".profile"
    // has no extension) or nothing follows it.
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot + 1) : QString();

    QString prefix = folder;
    if (!prefix.endsWith(QLatin1Char('/')))
        prefix += QLatin1Char('/');

    QString candidate = base;
    for (quint64 counter = 1;; ++counter) {
        QString path = prefix + candidate;
        if (!extension.isEmpty())
            path += QLatin1Char('.') + extension;
        if (!occupied(path))
            return path;
        candidate = base + QStringLiteral("_%1").arg(counter);
    }
}

} // namespace corvina
