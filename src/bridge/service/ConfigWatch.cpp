#include "ConfigWatch.h"

#include <QFileInfo>

namespace corvina {

ConfigWatch::ConfigWatch(QString path, int gatherMs, QObject* parent)
    : QObject(parent), m_path(std::move(path)) {
    m_gather.setSingleShot(true);
    m_gather.setInterval(gatherMs);
    connect(&m_gather, &QTimer::timeout, this, [this] {
        // A file replaced meanwhile is a new file: its watch is made again before anyone reads it.
        watchFile();
        emit changed();
    });
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &ConfigWatch::noticed);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &ConfigWatch::noticed);
    m_watching = m_watcher.addPath(QFileInfo(m_path).absolutePath());
    watchFile();
}

void ConfigWatch::noticed() {
    // Restarted on every change, so that a burst ends in one read of the finished file.
    m_gather.start();
}

void ConfigWatch::watchFile() {
    if (!m_watcher.files().contains(m_path) && QFileInfo::exists(m_path))
        m_watcher.addPath(m_path);
}

} // namespace corvina
