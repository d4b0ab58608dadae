#include "FileWatch.h"

#include "SharedFolderWatch.h"

#include <QFileInfo>

namespace corvina {

FileWatch::FileWatch(QString path, QObject* parent) : QObject(parent), m_path(std::move(path)) {
    // Gathered as the shared folder's changes are: a file written in place is read once it is
    // whole, not when it was just emptied.
    m_settle.setSingleShot(true);
    m_settle.setInterval(SharedFolderWatch::debounceMs);
    connect(&m_settle, &QTimer::timeout, this, [this] {
        watch(); // a file replaced by a new one is a new file to watch
        emit changed();
    });
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_settle, qOverload<>(&QTimer::start));
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, &m_settle, qOverload<>(&QTimer::start));
}

void FileWatch::start() {
    watch();
}

void FileWatch::watch() {
    const QString folder = QFileInfo(m_path).absolutePath();
    // The folder: the file made or replaced; the file: the file written in place.
    QStringList wanted;
    if (QFileInfo(folder).isDir()) {
        wanted << folder;
    } else if (const QString above = SharedFolderWatch::nearestFolderAbove(folder); !above.isEmpty()) {
        wanted << above;
    }
    if (QFileInfo(m_path).isFile()) {
        wanted << QFileInfo(m_path).absoluteFilePath();
    }
    const QStringList watched = watchedPaths();
    for (const QString& path : watched) {
        if (!wanted.contains(path)) {
            m_watcher.removePath(path);
        }
    }
    for (const QString& path : wanted) {
        if (!watched.contains(path)) {
            m_watcher.addPath(path);
        }
    }
}

} // namespace corvina
