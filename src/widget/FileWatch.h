#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

namespace corvina {

// Follows one file that another program writes (the widget's settings file, the bridge's status
// file): changed() comes `SharedFolderWatch::debounceMs` after the file was last made, replaced
// (a new file renamed over it), written in place or removed. The file's folder is watched, and the
// file itself; before the folder exists, the nearest folder above it (and no longer once it came:
// that may be a busy folder such as ~/.config).
class FileWatch : public QObject {
    Q_OBJECT

public:
    explicit FileWatch(QString path, QObject* parent = nullptr);

    QString path() const { return m_path; }
    // Watches what is there now. Emits nothing by itself: the caller reads the file once at start.
    void start();
    // The folders and the file watched now.
    QStringList watchedPaths() const { return m_watcher.directories() + m_watcher.files(); }

signals:
    // Time to read the file again; the watch list is up to date already.
    void changed();

private:
    void watch();

    QString m_path;
    QFileSystemWatcher m_watcher;
    QTimer m_settle;
};

} // namespace corvina
