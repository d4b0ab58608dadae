#include "RegularFile.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvina {

namespace {

QString systemError(int code) {
    return QString::fromLocal8Bit(std::strerror(code));
}

} // namespace

RegularFile RegularFile::open(const QString& path) {
    RegularFile file;
    file.m_path = path;
    // O_NONBLOCK: opening a FIFO for reading returns at once instead of waiting for a writer;
    // O_NOCTTY: a terminal named here never becomes ours.
    file.m_fd.reset(
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.m_fd.isValid()) {
        file.m_error = QStringLiteral("cannot read %1: %2").arg(path, systemError(errno));
        return file;
    }
    struct stat status {};
    if (::fstat(file.m_fd.get(), &status) != 0) {
        file.m_error = QStringLiteral("cannot read %1: %2").arg(path, systemError(errno));
        file.m_fd.reset();
        return file;
    }
    if (S_ISDIR(status.st_mode)) {
        file.m_problem = Problem::Folder;
        file.m_error = QStringLiteral("cannot read %1: not a plain file").arg(path);
        file.m_fd.reset();
        return file;
    }
    if (!S_ISREG(status.st_mode)) {
        file.m_problem = Problem::NotPlain;
        file.m_error = QStringLiteral("cannot read %1: not a plain file").arg(path);
        file.m_fd.reset();
        return file;
    }
    // a regular file never blocks, but reads should not see EAGAIN either
    const int flags = ::fcntl(file.m_fd.get(), F_GETFL);
    if (flags >= 0)
        ::fcntl(file.m_fd.get(), F_SETFL, flags & ~O_NONBLOCK);
    file.m_problem = Problem::None;
    file.m_size = static_cast<qint64>(status.st_size);
    return file;
}

std::optional<QByteArray> RegularFile::readAll(qint64 limit, bool* tooLarge) {
    QByteArray bytes;
    if (!readAllInto(bytes, limit, tooLarge)) {
        return std::nullopt;
    }
    return bytes;
}

bool RegularFile::readAllInto(QByteArray& bytes, qint64 limit, bool* tooLarge) {
    if (tooLarge)
        *tooLarge = false;
    if (!isOpen())
        return false;
    if (m_size > limit) {
        if (tooLarge)
            *tooLarge = true;
        return false;
    }
    // the measured size, and one byte more to see a file that grew meanwhile
    bytes.resize(m_size + 1);
    qint64 filled = 0;
    for (;;) {
        if (filled == bytes.size()) {
            if (filled > limit) {
                if (tooLarge)
                    *tooLarge = true;
                return false;
            }
            bytes.resize(std::min<qint64>(limit + 1, std::max<qint64>(filled * 2, 4096)));
        }
        const ssize_t got =
            ::read(m_fd.get(), bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            m_error = QStringLiteral("cannot read %1: %2").arg(m_path, systemError(errno));
            return false;
        }
        if (got == 0)
            break;
        filled += got;
    }
    if (filled > limit) {
        if (tooLarge)
            *tooLarge = true;
        return false;
    }
    bytes.truncate(filled);
    return true;
}

} // namespace corvina
