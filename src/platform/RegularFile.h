#pragma once

#include "FileDescriptor.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace corvina {

// A file opened for reading only when it is a regular file.
//
// The files we read come from another program, or from a user's command line, and any of them may
// be a FIFO, a socket or a device instead (or a symbolic link to one, or swapped for one after a
// check). Opening a FIFO for reading waits for a writer, possibly forever, and that while we may be
// holding the shared folder's lock. So the file is opened without blocking and its type is taken
// from the open descriptor itself: nothing but a regular file is ever read, and no check-then-open
// race is left. A final symbolic link is followed (the caller decides where links may lead).
class RegularFile {
public:
    // What stopped the file from being opened.
    enum class Problem {
        None,
        CannotOpen, // missing, no permission, a dangling link: the system's reason is in error()
        Folder,     // a folder
        NotPlain,   // a FIFO, socket or device
    };

    static RegularFile open(const QString& path);

    bool isOpen() const { return m_problem == Problem::None; }
    Problem problem() const { return m_problem; }
    // "cannot read <path>: <reason>" (the system's, or "not a plain file" for anything but a
    // regular file); empty while open.
    QString error() const { return m_error; }
    int descriptor() const { return m_fd.get(); }
    // The size the file had when it was opened.
    qint64 size() const { return m_size; }

    // The whole file, when it holds at most `limit` bytes. Nothing, with error() set, on a read
    // error; nothing with `tooLarge` set when there is more than `limit` (at most limit + 1 bytes are
    // ever read, so a file that grows meanwhile costs no more memory than the limit).
    std::optional<QByteArray> readAll(qint64 limit, bool* tooLarge = nullptr);
    // The same into `bytes`, whose memory is used again where it is large enough (a reader of many
    // files keeps one buffer); false where readAll answers nothing.
    bool readAllInto(QByteArray& bytes, qint64 limit, bool* tooLarge = nullptr);

private:
    RegularFile() = default;

    FileDescriptor m_fd;
    Problem m_problem = Problem::CannotOpen;
    QString m_path;
    QString m_error;
    qint64 m_size = 0;
};

} // namespace corvina
