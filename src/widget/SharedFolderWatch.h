#pragma once

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>

class QSocketNotifier;

namespace corvina {

class DayTurnTimer;

// Follows the shared folder for whoever shows what it holds (the widget's window, `--list --watch`):
// changed() comes when the mail application changed its files (the snapshot folder, an account's
// folder or file, the account list), when the rows' date texts age (the local day turned, the clock
// was set: DayTurnTimer), and every `interval` when one was asked for. Nothing else: a widget that
// reads a large shared folder costs nothing while nothing changes. A shared folder that does not
// exist yet is seen as soon as it is made: the nearest folder above it is watched.
//
// When the watch cannot be trusted (the kernel gave no watch, a folder could not be watched, the
// watch limit reached, no day timer), the folder is read every fallbackIntervalSeconds as well, as
// long as that lasts; events lost to a full queue are made good by reading everything at once and
// watching every folder afresh. Each is logged.
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

    // The pace of the periodic update while the watch cannot be trusted (when no interval was asked
    // for): the old default of the periodic update.
    static constexpr int fallbackIntervalSeconds = 60;

    // `intervalSeconds`: a periodic update every so many seconds besides the changes; 0 for none.
    explicit SharedFolderWatch(int intervalSeconds, QObject* parent = nullptr);
    ~SharedFolderWatch() override;

    // The window after a changed() that came at once, in which further changes are gathered, and
    // the quiet that writes in place wait for (debounceMs by default; the tests make it long).
    void setGatherMs(int milliseconds) {
        m_gather.setInterval(milliseconds);
        m_settle.setInterval(milliseconds);
    }

    // The fallback pace, in milliseconds (fallbackIntervalSeconds by default; the tests make it short).
    void setFallbackIntervalMs(int milliseconds) { m_fallbackMs = milliseconds; }

    // Watches the folders as they are now and starts the periodic update, if any. Emits nothing by
    // itself: the caller reads the folder once at start.
    void start();
    // Whether every change is seen (the watch and the day timer working): false while the fallback
    // pace reads.
    bool isTrusted() const { return m_problem.isNull(); }
    // Whether a periodic update is running now (asked for, or the fallback pace).
    bool isReadingPeriodically() const { return m_interval.isActive(); }
    // The timer of the day's turn (the tests arm it for a moment from now).
    DayTurnTimer* dayTurn() const { return m_dayTurn; }
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
    // Events were lost: every folder is watched afresh (one removed and made again meanwhile holds
    // a watch that no longer works) and everything read.
    void overflowed();
    // The watch can be trusted, or not (`problem`: why, for the log); the periodic update follows.
    void setProblem(const QString& problem);

    int m_inotify = -1;
    QSocketNotifier* m_notifier = nullptr;
    // Watched folder -> its watch descriptor, and back (one folder may be reached by two paths
    // through a link: inotify then hands out one descriptor for both).
    QHash<QString, int> m_paths;
    QHash<int, QStringList> m_descriptors;
    QTimer m_interval;
    int m_intervalMs = 0;
    int m_fallbackMs = fallbackIntervalSeconds * 1000;
    // Why the watch cannot be trusted now; null when it can.
    QString m_problem;
    // Why the kernel gave no watch at all (null when it did): it will not give one later.
    QString m_noInotify;
    DayTurnTimer* m_dayTurn = nullptr;
    bool m_dayTimerWorks = false;
    QString m_noDayTimer;
    bool m_started = false;
    QTimer m_settle;
    QTimer m_gather;
    // A change came within the gather window: changed() again when it ends.
    bool m_pending = false;
};

} // namespace corvina
