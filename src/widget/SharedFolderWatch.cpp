#include "SharedFolderWatch.h"

#include "DayTurnTimer.h"
#include "platform/Log.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QSocketNotifier>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace corvina {

namespace {

// What a folder's watch reports: the folder's own entries made, removed, renamed, written or changed,
// and the folder itself going. Opening and reading are left out: every read of the folder, ours
// included, would wake the watch.
constexpr uint32_t FolderEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY |
                                  IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// Events that say a change is whole when they are seen: an entry renamed in or out, removed, or a
// folder made (an account folder, the shared folder itself). A file made, written or closed may
// still be half written (a writer in place); those wait for the quiet that follows.
bool isComplete(const inotify_event& event) {
    if (event.mask & (IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE)) {
        return true;
    }
    return (event.mask & IN_CREATE) && (event.mask & IN_ISDIR);
}

// errno said in words, for the log.
QString reason(int error) {
    if (error == ENOSPC) {
        return QStringLiteral("the system's limit on watches reached (fs.inotify.max_user_watches)");
    }
    return QString::fromLocal8Bit(std::strerror(error));
}

} // namespace

SharedFolderWatch::SharedFolderWatch(int intervalSeconds, QObject* parent)
    : QObject(parent), m_intervalMs(std::max(0, intervalSeconds) * 1000) {
    // Through emitChanged: a periodic update also tries again the folders that could not be watched.
    connect(&m_interval, &QTimer::timeout, this, &SharedFolderWatch::emitChanged);
    m_dayTurn = new DayTurnTimer(this);
    connect(m_dayTurn, &DayTurnTimer::turned, this, &SharedFolderWatch::emitChanged);
    m_settle.setSingleShot(true);
    m_settle.setInterval(debounceMs);
    connect(&m_settle, &QTimer::timeout, this, &SharedFolderWatch::emitChanged);
    m_gather.setSingleShot(true);
    m_gather.setInterval(debounceMs);
    connect(&m_gather, &QTimer::timeout, this, [this] {
        if (!m_pending) {
            return;
        }
        emitChanged();
        m_gather.start(); // a burst that goes on is read once a window
    });
    m_inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify >= 0) {
        m_notifier = new QSocketNotifier(m_inotify, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &SharedFolderWatch::readEvents);
    } else {
        // The system's limit on watching programs reached, say: the fallback pace reads instead.
        m_noInotify = reason(errno);
    }
}

SharedFolderWatch::~SharedFolderWatch() {
    if (m_inotify >= 0) {
        delete m_notifier;
        ::close(m_inotify);
    }
}

QString SharedFolderWatch::nearestFolderAbove(const QString& path) {
    QDir above = QFileInfo(path).absoluteDir();
    while (!above.exists() && !above.isRoot())
        above.setPath(QFileInfo(above.absolutePath()).absolutePath());
    return above.exists() ? above.absolutePath() : QString();
}

void SharedFolderWatch::start() {
    m_started = true;
    m_dayTimerWorks = m_dayTurn->start();
    if (!m_dayTimerWorks) {
        m_noDayTimer = reason(errno);
    }
    watchFolders();
}

void SharedFolderWatch::setProblem(const QString& problem) {
    if (problem != m_problem) {
        if (!problem.isNull()) {
            Log::write(QStringLiteral("SharedFolderWatch cannot see every change (%@): reading every %@ s"),
                       {problem, QString::number(m_fallbackMs / 1000.0)});
        } else {
            Log::write(QStringLiteral("SharedFolderWatch sees every change again"), {});
        }
        m_problem = problem;
    }
    // An interval asked for stays as it is; without one, the fallback pace runs while it must.
    const int pace = m_intervalMs > 0 ? m_intervalMs : (m_problem.isNull() ? 0 : m_fallbackMs);
    if (pace == 0) {
        m_interval.stop();
    } else if (!m_interval.isActive() || m_interval.interval() != pace) {
        m_interval.start(pace);
    }
}

void SharedFolderWatch::overflowed() {
    Log::write(QStringLiteral("SharedFolderWatch lost events: reading everything again"), {});
    // Every watch ends and is made again: a folder removed and made again among the lost events
    // would keep a watch on the folder that went.
    for (auto it = m_descriptors.cbegin(); it != m_descriptors.cend(); ++it) {
        ::inotify_rm_watch(m_inotify, it.key());
    }
    m_descriptors.clear();
    m_paths.clear();
    watchFolders();
}

void SharedFolderWatch::emitChanged() {
    m_settle.stop();
    m_pending = false; // the read that follows sees whatever was gathered
    watchFolders();    // an account folder may have come or gone
    emit changed();
}

void SharedFolderWatch::completeChange() {
    if (m_gather.isActive()) {
        m_pending = true;
        return;
    }
    emitChanged();
    m_gather.start();
}

void SharedFolderWatch::readEvents() {
    bool complete = false;
    bool partial = false;
    bool overflow = false;
    // Aligned as the events in it are.
    alignas(inotify_event) std::array<char, 64 * 1024> buffer;
    for (;;) {
        const ssize_t length = ::read(m_inotify, buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            break; // EAGAIN: all read
        }
        for (ssize_t at = 0; at < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += ssize_t(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                overflow = true; // events were lost: read everything now
                continue;
            }
            if (event->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) {
                // The folder went (or moved away, its watch going with it): its paths are watched
                // again, or no longer, at the update that follows.
                const QStringList paths = m_descriptors.take(event->wd);
                for (const QString& path : paths) {
                    m_paths.remove(path);
                }
                if (event->mask & IN_MOVE_SELF) {
                    ::inotify_rm_watch(m_inotify, event->wd); // a removed folder's watch ends by itself
                }
                complete = complete || !paths.isEmpty();
                continue;
            }
            const QString name = event->len > 0 ? QFile::decodeName(event->name) : QString();
            if (name.startsWith(QLatin1Char('.'))) {
                continue; // never read: a writer's temporary file, a lock's sidecar
            }
            if (isComplete(*event)) {
                complete = true;
            } else {
                partial = true;
            }
        }
    }
    if (overflow) {
        overflowed();
        complete = true;
    }
    if (complete) {
        completeChange();
    }
    if (partial) {
        m_settle.start(); // a write in place: read once it has been quiet for a moment
    }
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
        // mail application does, by renaming a new file over the old, or written in place).
        for (const QString& folder : {dataPath, today})
            if (QFileInfo(folder).isDir())
                wanted.insert(folder);
        const QDir todayDir(today);
        for (const QString& name : todayDir.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            wanted.insert(todayDir.filePath(name));
    }
    if (!m_started) {
        return;
    }
    if (m_inotify < 0) {
        setProblem(m_noInotify);
        return;
    }
    // Sets on both sides: the bookkeeping stays linear in the number of watched paths.
    QStringList gone;
    for (auto it = m_paths.cbegin(); it != m_paths.cend(); ++it)
        if (!wanted.contains(it.key()))
            gone << it.key();
    for (const QString& path : gone) {
        const int descriptor = m_paths.take(path);
        QStringList& paths = m_descriptors[descriptor];
        paths.removeAll(path);
        if (paths.isEmpty()) {
            m_descriptors.remove(descriptor);
            ::inotify_rm_watch(m_inotify, descriptor);
        }
    }
    QString failed;
    for (const QString& path : wanted) {
        if (m_paths.contains(path))
            continue;
        const int descriptor =
            ::inotify_add_watch(m_inotify, QFile::encodeName(path).constData(), FolderEvents);
        if (descriptor < 0) {
            // Gone meanwhile (its going is an event of the folder above): nothing is missed. Any
            // other failure leaves a folder unwatched: the fallback pace reads it until a later
            // try succeeds.
            if (errno != ENOENT && errno != ENOTDIR && failed.isNull()) {
                failed = path + QStringLiteral(": ") + reason(errno);
            }
            continue;
        }
        m_paths.insert(path, descriptor);
        m_descriptors[descriptor].append(path);
    }
    if (failed.isNull() && !m_dayTimerWorks) {
        failed = QStringLiteral("no day timer: ") + m_noDayTimer;
    }
    setProblem(failed);
}

} // namespace corvina
