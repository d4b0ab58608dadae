#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

namespace corvina {

// Tells the running bridge that bridge.conf may have changed. `account add`, the Accounts window and
// most editors replace the file whole (a temporary renamed over it), which a watch on the file
// alone would lose with the old file: the folder is watched too, and the file's watch renewed after
// each change. A burst (a rename, then the folder's own change, or several saves in a row) is
// gathered for `gatherMs` and reported once.
class ConfigWatch : public QObject {
    Q_OBJECT
public:
    static constexpr int DefaultGatherMs = 300;

    explicit ConfigWatch(QString path, int gatherMs = DefaultGatherMs, QObject* parent = nullptr);

    // Whether the folder of the file could be watched (it must exist).
    bool isWatching() const { return m_watching; }

signals:
    // The file was written, replaced, created or removed; read it again.
    void changed();

private:
    void noticed();
    void watchFile();

    QString m_path;
    QFileSystemWatcher m_watcher;
    QTimer m_gather;
    bool m_watching = false;
};

} // namespace corvina
