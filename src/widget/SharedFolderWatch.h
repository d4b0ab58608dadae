#pragma once

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>

class QSocketNotifier;

namespace corvina {

// Follows the shared folder for whoever shows what it holds (the widget's window, `--list --watch`):
// changed() comes when the mail application changed its files (the snapshot folder, an account's
// folder or file, the account list), and every `interval` besides, so that a change no watch reports
// (and the date texts, which age) is picked up all the same. A shared folder that does not exist yet
// is seen as soon as it is made: the nearest folder above it is watched.
//
// How soon: the writers replace a file whole, by renaming a new one over it, so a file renamed into
// place (or one removed, or a folder made) is complete the moment it is seen, and changed() comes at
// once. Only what follows within the gathering window (debounceMs) is gathered, into one more
// changed() at the end of that window: a burst of files costs two reads, not one a file. A file
// written in place cannot be told complete from its events, so those are gathered as they always
// were, until `debounceMs` passed without another. Names beginning with "." (the writers'
// temporary files, the locks' sidecars) are never read, so nothing happening to them alone wakes
// anyone.
class SharedFolderWatch : public QObject {
    Q_OBJECT

public:
    // How long writes in place are gathered before one changed() is emitted, and the window in
    // which changes after a complete one are gathered: the default of setGatherMs.
    static constexpr int debounceMs = 250;

    explicit SharedFolderWatch(int intervalSeconds, QObject* parent = nullptr);
    ~SharedFolderWatch() override;

    // The window after a changed() that came at once, in which further changes are gathered, and
    // the quiet that writes in place wait for (debounceMs by default; the tests make it long).
    void setGatherMs(int milliseconds) {
        m_gather.setInterval(milliseconds);
        m_settle.setInterval(milliseconds);
    }

    // Watches the folders as they are now and starts the periodic update. Emits nothing by itself:
    // the caller reads the folder once at start.
    void start();
    // The nearest folder above `path` that exists (its parent, when that exists); empty when none
    // does. Watching it tells when `path` is made.
    static QString nearestFolderAbove(const QString& path);
    // The folders watched now. A folder's watch also tells of the files in it, written in place
    // included, so files are not watched one by one.
    QStringList watchedPaths() const { return m_paths.keys(); }

signals:
    // Time to read the shared folder again. The watch list has been brought up to date already (an
    // account folder or the shared folder itself may have come or gone).
    void changed();

private:
    void watchFolders();
    void readEvents();
    // A change known to be whole: changed() now, unless one came within the gather window.
    void completeChange();
    void emitChanged();

    int m_inotify = -1;
    QSocketNotifier* m_notifier = nullptr;
    // Watched folder -> its watch descriptor, and back (one folder may be reached by two paths
    // through a link: inotify then hands out one descriptor for both).
    QHash<QString, int> m_paths;
    QHash<int, QStringList> m_descriptors;
    QTimer m_interval;
    QTimer m_settle;
    QTimer m_gather;
    // A change came within the gather window: changed() again when it ends.
    bool m_pending = false;
};

} // namespace corvina
