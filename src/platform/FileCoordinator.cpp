#include "FileCoordinator.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QThread>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace corvina {

namespace {

std::atomic<qint64> defaultTimeoutMs{5000};

QString systemError(int code) {
    return QString::fromLocal8Bit(std::strerror(code));
}

// An open sidecar, unlocked and closed on every way out of the accessor (it may throw).
class LockFile {
public:
    explicit LockFile(int fd) : m_fd(fd) {}
    ~LockFile() {
        if (m_fd >= 0) {
            ::flock(m_fd, LOCK_UN);
            ::close(m_fd);
        }
    }
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

int openSidecar(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    // a symlink planted as the sidecar is not followed
    int fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0 && (errno == EACCES || errno == EROFS)) {
        // a reader in a folder it may not write to can still lock an existing sidecar
        fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    }
    return fd;
}

} // namespace

FileCoordinator::FileCoordinator() : m_timeout(defaultTimeout()) {}

FileCoordinator::FileCoordinator(std::chrono::milliseconds timeout) : m_timeout(timeout) {}

std::chrono::milliseconds FileCoordinator::defaultTimeout() {
    return std::chrono::milliseconds(defaultTimeoutMs.load());
}

void FileCoordinator::setDefaultTimeout(std::chrono::milliseconds timeout) {
    defaultTimeoutMs.store(timeout.count());
}

QString FileCoordinator::lockPath(const QUrl& url) {
    const QFileInfo item(QDir::cleanPath(url.toLocalFile()));
    return item.absolutePath() + QStringLiteral("/.") + item.fileName() + QStringLiteral(".lock");
}

bool FileCoordinator::coordinateReadingItemAtURL(const QUrl& url, int, QString* error,
                                                 const Accessor& byAccessor) {
    return coordinate(url, false, error, byAccessor);
}

bool FileCoordinator::coordinateWritingItemAtURL(const QUrl& url, int, QString* error,
                                                 const Accessor& byAccessor) {
    return coordinate(url, true, error, byAccessor);
}

bool FileCoordinator::coordinate(const QUrl& url, bool exclusive, QString* error, const Accessor& accessor) {
    auto fail = [error](const QString& text) {
        if (error) {
            *error = text;
        }
        return false;
    };
    if (!url.isValid() || !url.isLocalFile()) {
        return fail(QStringLiteral("no file location to coordinate: \"%1\"").arg(url.toString()));
    }
    const QString sidecar = lockPath(url);
    if (!QFileInfo(QFileInfo(sidecar).absolutePath()).isDir()) {
        accessor(url);
        return true;
    }
    LockFile lock(openSidecar(sidecar));
    if (lock.fd() < 0) {
        return fail(QStringLiteral("cannot open lock file %1: %2").arg(sidecar, systemError(errno)));
    }
    const int mode = (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
    QElapsedTimer waited;
    waited.start();
    int pause = 1;
    while (::flock(lock.fd(), mode) != 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            return fail(QStringLiteral("cannot lock %1: %2").arg(sidecar, systemError(errno)));
        }
        const qint64 left = m_timeout.count() - waited.elapsed();
        if (left <= 0) {
            return fail(QStringLiteral("%1 is locked by another process; gave up after %2 ms")
                            .arg(sidecar)
                            .arg(m_timeout.count()));
        }
        // short pauses first, so that a writer's brief lock costs the reader little
        QThread::msleep(static_cast<unsigned long>(std::min<qint64>(pause, left)));
        pause = std::min(pause * 2, 50);
    }
    accessor(url);
    return true;
}

} // namespace corvina
