#include "SharedFolderWatch.h"

#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <algorithm>

namespace corvina {

SharedFolderWatch::SharedFolderWatch(int intervalSeconds, QObject* parent) : QObject(parent) {
    m_interval.setInterval(std::max(1, intervalSeconds) * 1000);
    connect(&m_interval, &QTimer::timeout, this, &SharedFolderWatch::changed);
    m_debounce.setSingleShot(true);
    m_debounce.setInterval(debounceMs);
    connect(&m_debounce, &QTimer::timeout, this, [this] {
        watchFolders(); // an account folder may have come or gone
        emit changed();
    });
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { m_debounce.start(); });
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, [this] { m_debounce.start(); });
}

QString SharedFolderWatch::nearestFolderAbove(const QString& path) {
    QDir above = QFileInfo(path).absoluteDir();
    while (!above.exists() && !above.isRoot())
        above.setPath(QFileInfo(above.absolutePath()).absolutePath());
    return above.exists() ? above.absolutePath() : QString();
}

void SharedFolderWatch::start() {
    watchFolders();
    m_interval.start();
}

void SharedFolderWatch::watchFolders() {
    QSet<QString> wanted;
    if (const auto data = ExtensionUtilities::GroupDataPath()) {
        const QString dataPath = data->toLocalFile();
        const QString today = dataPath + QLatin1Char('/') + ConstVars::todayFolder;
        if (!QFileInfo(dataPath).isDir()) {
            // The mail application has not made its shared folder yet: watch the nearest folder above
            // it that exists, so that the folder is seen as soon as it is made, not at the next
            // periodic update.
            const QString above = nearestFolderAbove(dataPath);
            if (!above.isEmpty())
                wanted.insert(above);
        }
        // The data folder (the account list, the snapshot folder appearing), the snapshot folder
        // (account folders appearing) and each account's folder (snapshot files replaced, as the
        // mail application does, by renaming a new file over the old).
        for (const QString& folder : {dataPath, today})
            if (QFileInfo(folder).isDir())
                wanted.insert(folder);
        const QDir todayDir(today);
        for (const QString& name : todayDir.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            const QDir account(todayDir.filePath(name));
            wanted.insert(account.path());
            // A writer that rewrites a file in place changes no folder: watch the files as well.
            for (const QString& file : account.entryList(QDir::Files))
                wanted.insert(account.filePath(file));
        }
        const QString accounts = dataPath + QLatin1Char('/') + ConstVars::accountsFile;
        if (QFileInfo(accounts).isFile())
            wanted.insert(accounts);
    }
    // Sets on both sides: the bookkeeping stays linear in the number of watched paths.
    const QStringList currentList = m_watcher.directories() + m_watcher.files();
    const QSet<QString> current(currentList.cbegin(), currentList.cend());
    QStringList gone;
    for (const QString& path : current)
        if (!wanted.contains(path))
            gone << path;
    QStringList added;
    for (const QString& path : wanted)
        if (!current.contains(path))
            added << path;
    if (!gone.isEmpty())
        m_watcher.removePaths(gone);
    if (!added.isEmpty())
        m_watcher.addPaths(added);
}

} // namespace corvina
