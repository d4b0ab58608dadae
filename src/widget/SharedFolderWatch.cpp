#include "SharedFolderWatch.h"

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

} // namespace

SharedFolderWatch::SharedFolderWatch(int intervalSeconds, QObject* parent) : QObject(parent) {
    m_interval.setInterval(std::max(1, intervalSeconds) * 1000);
    connect(&m_interval, &QTimer::timeout, this, &SharedFolderWatch::changed);
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
    }
    // Without a watch (the system's limit on them reached) the periodic update still reads.
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
    watchFolders();
    m_interval.start();
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
                complete = true; // events were lost: read everything now
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
    if (m_inotify < 0)
        return;
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
    for (const QString& path : wanted) {
        if (m_paths.contains(path))
            continue;
        const int descriptor =
            ::inotify_add_watch(m_inotify, QFile::encodeName(path).constData(), FolderEvents);
        if (descriptor < 0)
            continue; // gone meanwhile, or no watch left: the periodic update still reads it
        m_paths.insert(path, descriptor);
        m_descriptors[descriptor].append(path);
    }
}

} // namespace corvina
