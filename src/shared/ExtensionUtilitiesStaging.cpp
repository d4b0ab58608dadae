// ExtensionUtilities: the staging folders through which extensions hand files to the mail application.

#include "ExtensionUtilities.h"
#include "GetGoodPath.h"
#include "platform/Exception.h"
#include "platform/FileCoordinator.h"
#include "platform/FileDescriptor.h"
#include "platform/Log.h"
#include "platform/RegularFile.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QFile>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace corvina {

namespace {

QString systemError(int code) {
    return QString::fromLocal8Bit(std::strerror(code));
}

// The staging folder, or the reason there is none (no shared folder, a bad name).
std::optional<QUrl> stagingURL(const QString& folder, QString* problem) {
    if (const std::optional<QString> bad = ExtensionUtilities::StagingFolderNameProblem(folder)) {
        *problem = *bad;
        return std::nullopt;
    }
    const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
    if (!data) {
        *problem = QStringLiteral("no shared folder");
        return std::nullopt;
    }
    return QUrl::fromLocalFile(data->toLocalFile() + QLatin1Char('/') + folder);
}

// Removes the item at `path`, a folder with all its content; a symbolic link is removed itself,
// never followed. Sets `error` only on failure (nothing there counts as a failure).
void removeItem(const QString& path, QString* error) {
    const std::filesystem::path native(QFile::encodeName(path).toStdString());
    std::error_code failure;
    if (!std::filesystem::exists(std::filesystem::symlink_status(native, failure))) {
        *error = QStringLiteral("cannot remove %1: %2").arg(path, systemError(ENOENT));
        return;
    }
    std::filesystem::remove_all(native, failure);
    if (failure)
        *error = QStringLiteral("cannot remove %1: %2").arg(path, QString::fromStdString(failure.message()));
}

// Creates the folder `path` with its parents. Sets `error` only on failure, leaving an earlier
// error in place otherwise.
void createFolder(const QString& path, QString* error) {
    const std::filesystem::path native(QFile::encodeName(path).toStdString());
    std::error_code failure;
    std::filesystem::create_directories(native, failure);
    if (failure) {
        *error = QStringLiteral("cannot create %1: %2").arg(path, QString::fromStdString(failure.message()));
        return;
    }
    if (!std::filesystem::is_directory(std::filesystem::symlink_status(native, failure)))
        *error = QStringLiteral("cannot create %1: %2").arg(path, systemError(EEXIST));
}

bool writeAll(int fd, const char* data, qint64 size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

// Writes the file `name` into the folder `folderPath` all at once: the content goes to a hidden
// temporary file in the same folder, which is renamed to its name only when complete, and only if
// nothing has appeared under that name meanwhile. The folder is opened without following a symbolic
// link, and the names inside it are opened and renamed without following one either, so that a link
// left in or as the staging folder never redirects a write elsewhere.
// `fill` writes the content to the descriptor it is given and answers 0, or an errno value.
bool stageFile(const QString& folderPath, const QString& name, const std::function<int(int fd)>& fill,
               QString* error) {
    const QString destination = folderPath + QLatin1Char('/') + name;
    FileDescriptor folder(
        ::open(QFile::encodeName(folderPath).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder.get() < 0) {
        const int code = errno;
        struct stat status {};
        const bool link =
            ::lstat(QFile::encodeName(folderPath).constData(), &status) == 0 && S_ISLNK(status.st_mode);
        *error = QStringLiteral("cannot write %1: %2")
                     .arg(destination,
                          link ? QStringLiteral("the staging folder is a symbolic link") : systemError(code));
        return false;
    }
    static QAtomicInteger<quint64> serial;
    const QByteArray temporary = QStringLiteral(".%1.%2-%3.part")
                                     .arg(name)
                                     .arg(QCoreApplication::applicationPid())
                                     .arg(serial.fetchAndAddRelaxed(1))
                                     .toLocal8Bit();
    const QByteArray finalName = QFile::encodeName(name);
    FileDescriptor file(::openat(folder.get(), temporary.constData(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (file.get() < 0) {
        *error = QStringLiteral("cannot write %1: %2").arg(destination, systemError(errno));
        return false;
    }
    int failure = fill(file.get());
    if (failure == 0 && ::fsync(file.get()) != 0)
        failure = errno;
    if (failure == 0 && ::close(file.release()) != 0)
        failure = errno;
    if (failure == 0 && ::renameat2(folder.get(), temporary.constData(), folder.get(), finalName.constData(),
                                    RENAME_NOREPLACE) != 0) {
        failure = errno;
        if (failure == EINVAL || failure == ENOSYS) {
            // file systems without the no-replace rename: a hard link fails just the same on a taken name
            failure =
                ::linkat(folder.get(), temporary.constData(), folder.get(), finalName.constData(), 0) == 0
                    ? 0
                    : errno;
            if (failure == 0)
                ::unlinkat(folder.get(), temporary.constData(), 0);
        }
    }
    if (failure != 0) {
        ::unlinkat(folder.get(), temporary.constData(), 0);
        *error = QStringLiteral("cannot write %1: %2").arg(destination, systemError(failure));
        return false;
    }
    return true;
}

// How a value of the wrong kind is named in the exception line: its type, "null" for no value.
QString typeName(const QVariant& element) {
    const char* name = element.metaType().name();
    return QString::fromLatin1(name ? name : "null");
}

// The path a paths element stands for. Raises for what no file system can take, as the platform's
// own file operations do: an element that is not a text, or a path holding a NUL character (which
// would silently name another file once handed to the system).
QString sourcePath(const QVariant& element) {
    if (element.typeId() != QMetaType::QString)
        throw Exception(QStringLiteral("not a file path: a value of type %1").arg(typeName(element)));
    const QString path = element.toString();
    if (path.contains(QChar(0)))
        throw Exception(QStringLiteral("file path with a NUL character: \"%1\"")
                            .arg(QString(path).replace(QChar(0), QLatin1Char('?'))));
    return path;
}

QByteArray blob(const QVariant& element) {
    if (element.typeId() != QMetaType::QByteArray)
        throw Exception(QStringLiteral("not data: a value of type %1").arg(typeName(element)));
    return element.toByteArray();
}

// The last path component, as the platform's path operations see it: trailing slashes do not count.
QString lastPathComponent(QString path) {
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

// Copies the regular file `source` to `destination` (in `folderPath`, named `name`).
bool copyFile(const QString& source, const QString& folderPath, const QString& name, QString* error) {
    // opened without waiting: a source swapped for a FIFO after it was checked is refused, not read
    RegularFile input = RegularFile::open(source);
    if (!input.isOpen()) {
        *error = input.error();
        return false;
    }
    return stageFile(
        folderPath, name,
        [&input](int fd) {
            char buffer[64 * 1024];
            for (;;) {
                const ssize_t read = ::read(input.descriptor(), buffer, sizeof buffer);
                if (read < 0) {
                    if (errno == EINTR)
                        continue;
                    return errno;
                }
                if (read == 0)
                    return 0;
                if (!writeAll(fd, buffer, read))
                    return errno;
            }
        },
        error);
}

// What ShareFiles and ShareDatas have in common: the coordinated access, the per-item loop with
// its guarded block, and the three lines, named by `operation`.
QStringList stageEach(const QString& folder, const QVariantList& items, const QString& operation,
                      const std::function<bool(const QVariant& item, const QString& folderPath,
                                               QString* destination, QString* error)>& stageOne) {
    QStringList staged;
    QString problem;
    const std::optional<QUrl> location = stagingURL(folder, &problem);
    if (!location) {
        Log::error(QStringLiteral("[%@] Error %1 %@").arg(operation), {problem});
        return staged;
    }
    FileCoordinator coordinator;
    const bool coordinated = coordinator.coordinateWritingItemAtURL(
        *location, FileCoordinator::WritingForDeleting, &problem, [&](const QUrl& url) {
            const QString folderPath = url.toLocalFile();
            try {
                for (const QVariant& item : items) {
                    QString destination;
                    QString error;
                    if (stageOne(item, folderPath, &destination, &error))
                        staged << destination;
                    else
                        Log::error(QStringLiteral("[%@] Error writing file %1 %@").arg(operation), {error});
                }
            } catch (const Exception& exception) {
                Log::error(QStringLiteral("[%@] Exception %1 %@").arg(operation), {exception.description()});
            }
        });
    if (!coordinated)
        Log::error(QStringLiteral("[%@] Error %1 %@").arg(operation), {problem});
    return staged;
}

} // namespace

// A staging folder name is one plain path component; anything else could make the staging folder
// the data folder itself or a place outside it, and ShareInit empties what it is given.
std::optional<QString> ExtensionUtilities::StagingFolderNameProblem(const QString& folder) {
    if (folder.isEmpty())
        return QStringLiteral("no staging folder name");
    if (folder == QLatin1String(".") || folder == QLatin1String("..") || folder.contains(QLatin1Char('/')) ||
        folder.contains(QChar(0)))
        return QStringLiteral("not a plain folder name: \"%1\"").arg(folder);
    return std::nullopt;
}

void ExtensionUtilities::ShareInit(const QString& folder) {
    QString problem;
    const std::optional<QUrl> location = stagingURL(folder, &problem);
    if (!location) {
        Log::error(QStringLiteral("[%@] shareInit %@"), {problem});
        return;
    }
    FileCoordinator coordinator;
    const bool coordinated = coordinator.coordinateWritingItemAtURL(
        *location, FileCoordinator::WritingForDeleting, &problem, [](const QUrl& url) {
            const QString path = url.toLocalFile();
            // One error for both steps, not cleared in between: a failed removal is reported by
            // the create line too. Deliberate; see the header.
            QString error;
            removeItem(path, &error);
            if (!error.isNull())
                Log::error(QStringLiteral("[%@] shareInit delete %@"), {error});
            createFolder(path, &error);
            if (!error.isNull())
                Log::error(QStringLiteral("[%@] shareInit create %@"), {error});
        });
    if (!coordinated)
        Log::error(QStringLiteral("[%@] shareInit %@"), {problem});
}

QStringList ExtensionUtilities::ShareFiles(const QString& folder, const QVariantList& paths) {
    return stageEach(
        folder, paths, QStringLiteral("shareFiles"),
        [](const QVariant& item, const QString& folderPath, QString* destination, QString* error) {
            const QString source = sourcePath(item);
            *destination = GetGoodPath(lastPathComponent(source), folderPath);
            return copyFile(source, folderPath, lastPathComponent(*destination), error);
        });
}

QStringList ExtensionUtilities::ShareDatas(const QString& folder, const QVariantList& datas) {
    return stageEach(
        folder, datas, QStringLiteral("shareDatas"),
        [](const QVariant& item, const QString& folderPath, QString* destination, QString* error) {
            const QByteArray data = blob(item);
            *destination = GetGoodPath(QStringLiteral("image.png"), folderPath);
            return stageFile(
                folderPath, lastPathComponent(*destination),
                [&data](int fd) { return writeAll(fd, data.constData(), data.size()) ? 0 : errno; }, error);
        });
}

} // namespace corvina
