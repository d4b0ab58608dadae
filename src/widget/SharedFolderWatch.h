#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QStringList>
#include <QTimer>

namespace corvina {

// Follows the shared folder for whoever shows what it holds (the widget's window, `--list --watch`):
// changed() comes `debounceMs` after the mail application last touched its files (the snapshot
// folder, an account's folder or file, the account list), and every `interval` besides, so that a
// change no watch reports (and the date texts, which age) is picked up all the same. A shared folder
// that does not exist yet is seen as soon as it is made: the nearest folder above it is watched.
class SharedFolderWatch : public QObject {
    Q_OBJECT

public:
    // How long file changes are gathered before one changed() is emitted.
    static constexpr int debounceMs = 250;

    explicit SharedFolderWatch(int intervalSeconds, QObject* parent = nullptr);

    // Watches the folders as they are now and starts the periodic update. Emits nothing by itself:
    // the caller reads the folder once at start.
    void start();
    // The nearest folder above `path` that exists (its parent, when that exists); empty when none
    // does. Watching it tells when `path` is made.
    static QString nearestFolderAbove(const QString& path);
    // The folders and files watched now.
    QStringList watchedPaths() const { return m_watcher.directories() + m_watcher.files(); }

signals:
    // Time to read the shared folder again. The watch list has been brought up to date already (an
    // account folder or the shared folder itself may have come or gone).
    void changed();

private:
    void watchFolders();

    QTimer m_interval;
    QTimer m_debounce;
    QFileSystemWatcher m_watcher;
};

} // namespace corvina
