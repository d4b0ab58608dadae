// ExtensionUtilities: the staging folders through which extensions hand files to the mail application.

#include "ExtensionUtilities.h"
#include "GetGoodPath.h"
#include "platform/Exception.h"
#include "platform/FileCoordinator.h"
#include "platform/FileDescriptor.h"
#include "platform/Log.h"
#include "platform/RegularFile.h"
#include "shared/ConstVars.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QFile>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
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

// The staging folder, or the reason there is none (no shared folder, a bad name, a data folder that
// is a symbolic link). Checked before the lock is taken, because taking it creates the lock sidecar
// in the data folder, which must not happen through a link either.
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
    struct stat status {};
    if (::lstat(QFile::encodeName(data->toLocalFile()).constData(), &status) == 0 &&
        S_ISLNK(status.st_mode)) {
        *problem = QStringLiteral("the data folder %1 is a symbolic link; nothing is staged through one")
                       .arg(data->toLocalFile());
        return std::nullopt;
    }
    return QUrl::fromLocalFile(data->toLocalFile() + QLatin1Char('/') + folder);
}

// Folders nested deeper than this in a staging folder are not removed: every level holds a
// descriptor open while it is emptied, and a planted tree must not exhaust them.
constexpr int kMaxRemovalDepth = 128;

// Removes everything inside the open folder `folder`. Works only through descriptors and never
// follows a symbolic link, so that whatever someone links into a staging folder stays where it is.
// Answers 0 or an errno value (ELOOP for a tree nested too deeply).
int emptyFolder(int folder, int depth) {
    if (depth > kMaxRemovalDepth)
        return ELOOP;
    // The names first, then the removals: a folder is not changed while it is being read.
    QList<QByteArray> names;
    {
        const int listing = ::dup(folder);
        if (listing < 0)
            return errno;
        DIR* stream = ::fdopendir(listing);
        if (!stream) {
            const int code = errno;
            ::close(listing);
            return code;
        }
        ::rewinddir(stream);
        while (const dirent* entry = ::readdir(stream)) {
            if (qstrcmp(entry->d_name, ".") != 0 && qstrcmp(entry->d_name, "..") != 0)
                names << QByteArray(entry->d_name);
        }
        ::closedir(stream);
    }
    for (const QByteArray& name : std::as_const(names)) {
        if (::unlinkat(folder, name.constData(), 0) == 0 || errno == ENOENT)
            continue;
        if (errno != EISDIR && errno != EPERM)
            return errno;
        const int refusal = errno;
        FileDescriptor inner(
            ::openat(folder, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!inner.isValid())
            return errno == ENOTDIR || errno == ELOOP ? refusal : errno;
        if (const int failure = emptyFolder(inner.get(), depth + 1))
            return failure;
        inner.reset();
        if (::unlinkat(folder, name.constData(), AT_REMOVEDIR) != 0 && errno != ENOENT)
            return errno;
    }
    return 0;
}

QString removalError(const QString& path, int code) {
    return QStringLiteral("cannot remove %1: %2")
        .arg(path, code == ELOOP
                       ? QStringLiteral("folders nested more than %1 levels deep").arg(kMaxRemovalDepth)
                       : systemError(code));
}

// The data folder, opened without following a symbolic link at its own name: the container is
// where the user's settings put it (links on the way there are theirs to make), but nothing below
// it is ever reached through a link, so that no link can turn a staging operation onto other
// files. With `create`, a missing container and data folder are made first. Answers the open
// folder, or an invalid one with the reason in `error`.
FileDescriptor openDataFolder(bool create, QString* error) {
    const std::optional<QUrl> group = ExtensionUtilities::GroupPath();
    if (!group) {
        *error = QStringLiteral("no shared folder");
        return FileDescriptor();
    }
    const QString containerPath = group->toLocalFile();
    const QByteArray name = QFile::encodeName(ExtensionUtilities::GroupFolderName());
    const QString dataPath = containerPath + QLatin1Char('/') + ExtensionUtilities::GroupFolderName();
    if (create) {
        std::error_code ignored; // a failure shows when the folder is opened below
        std::filesystem::create_directories(
            std::filesystem::path(QFile::encodeName(containerPath).toStdString()), ignored);
    }
    FileDescriptor container(
        ::open(QFile::encodeName(containerPath).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!container.isValid()) {
        *error = QStringLiteral("%1: %2").arg(containerPath, systemError(errno));
        return FileDescriptor();
    }
    if (create && ::mkdirat(container.get(), name.constData(), 0755) != 0 && errno != EEXIST) {
        *error = QStringLiteral("%1: %2").arg(dataPath, systemError(errno));
        return FileDescriptor();
    }
    FileDescriptor data(
        ::openat(container.get(), name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!data.isValid()) {
        const int code = errno;
        struct stat status {};
        const bool link = ::fstatat(container.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISLNK(status.st_mode);
        *error = link ? QStringLiteral("the data folder %1 is a symbolic link").arg(dataPath)
                      : QStringLiteral("%1: %2").arg(dataPath, systemError(code));
    }
    return data;
}

// Removes the item `name` in the open data folder `data`: a folder with all its content; anything
// else, a symbolic link included, is removed itself, never followed. Sets `error` only on failure
// (nothing there counts as a failure).
void removeItem(int data, const QString& name, const QString& path, QString* error) {
    const QByteArray native = QFile::encodeName(name);
    struct stat status {};
    if (::fstatat(data, native.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        *error = removalError(path, errno);
        return;
    }
    if (!S_ISDIR(status.st_mode)) {
        if (::unlinkat(data, native.constData(), 0) != 0)
            *error = removalError(path, errno);
        return;
    }
    FileDescriptor folder(
        ::openat(data, native.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isValid()) {
        *error = removalError(path, errno);
        return;
    }
    if (const int failure = emptyFolder(folder.get(), 1)) {
        *error = removalError(path, failure);
        return;
    }
    folder.reset();
    if (::unlinkat(data, native.constData(), AT_REMOVEDIR) != 0)
        *error = removalError(path, errno);
}

// Creates the folder `name` in the open data folder `data`. Sets `error` only on failure, leaving
// an earlier error in place otherwise.
void createFolder(int data, const QString& name, const QString& path, QString* error) {
    const QByteArray native = QFile::encodeName(name);
    if (::mkdirat(data, native.constData(), 0755) == 0)
        return;
    int code = errno;
    struct stat status {};
    if (code == EEXIST && ::fstatat(data, native.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(status.st_mode))
        return;
    *error = QStringLiteral("cannot create %1: %2").arg(path, systemError(code));
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

// The open staging folder, or why there is none. Opened once per staging call, through the data
// folder and without following a symbolic link at either name.
struct StagingFolder {
    FileDescriptor fd;
    QString problem; // why there is no folder: "the staging folder is a symbolic link", a system error
};

StagingFolder openStagingFolder(const QString& folder) {
    StagingFolder staging;
    FileDescriptor data = openDataFolder(false, &staging.problem);
    if (!data.isValid())
        return staging;
    const QByteArray name = QFile::encodeName(folder);
    staging.fd.reset(::openat(data.get(), name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!staging.fd.isValid()) {
        const int code = errno;
        struct stat status {};
        const bool link = ::fstatat(data.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISLNK(status.st_mode);
        staging.problem = link ? QStringLiteral("the staging folder is a symbolic link") : systemError(code);
    }
    return staging;
}

// Writes the file `name` into the open staging folder all at once: the content goes to a hidden
// temporary file in the same folder, which is renamed to its name only when complete, and only if
// nothing has appeared under that name meanwhile. The names inside the folder are opened and renamed
// without following a symbolic link, so that a link left there never redirects a write elsewhere.
// `fill` writes the content to the descriptor it is given and answers 0, or an errno value.
bool stageFile(const StagingFolder& folder, const QString& destination, const QString& name,
               const std::function<int(int fd)>& fill, QString* error) {
    if (!folder.fd.isValid()) {
        *error = QStringLiteral("cannot write %1: %2").arg(destination, folder.problem);
        return false;
    }
    // The temporary name is short whatever the final one: a final name may take all 255 bytes a
    // name can have. Unique per process and call; a name left by a crashed writer is skipped.
    static QAtomicInteger<quint64> serial;
    QByteArray temporary;
    FileDescriptor file;
    for (int attempt = 0; attempt < 100 && !file.isValid(); ++attempt) {
        temporary = QByteArrayLiteral(".") + QByteArray::number(QCoreApplication::applicationPid()) + '-' +
                    QByteArray::number(serial.fetchAndAddRelaxed(1)) + QByteArrayLiteral(".part");
        file.reset(::openat(folder.fd.get(), temporary.constData(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (!file.isValid() && errno != EEXIST)
            break;
    }
    if (!file.isValid()) {
        *error = QStringLiteral("cannot write %1: %2").arg(destination, systemError(errno));
        return false;
    }
    const QByteArray finalName = QFile::encodeName(name);
    const int fd = folder.fd.get();
    int failure = fill(file.get());
    if (failure == 0 && ::fsync(file.get()) != 0)
        failure = errno;
    if (failure == 0 && ::close(file.release()) != 0)
        failure = errno;
    if (failure == 0 &&
        ::renameat2(fd, temporary.constData(), fd, finalName.constData(), RENAME_NOREPLACE) != 0) {
        failure = errno;
        if (failure == EINVAL || failure == ENOSYS) {
            // file systems without the no-replace rename: a hard link fails just the same on a taken name
            failure = ::linkat(fd, temporary.constData(), fd, finalName.constData(), 0) == 0 ? 0 : errno;
            if (failure == 0)
                ::unlinkat(fd, temporary.constData(), 0);
        }
    }
    if (failure != 0) {
        ::unlinkat(fd, temporary.constData(), 0);
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
    QString path = element.toString();
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

// Copies the regular file `source` into the staging folder as `name` (`destination` is its path).
bool copyFile(const QString& source, const StagingFolder& folder, const QString& destination,
              const QString& name, QString* error) {
    // opened without waiting: a source swapped for a FIFO after it was checked is refused, not read
    RegularFile input = RegularFile::open(source);
    if (!input.isOpen()) {
        *error = input.error();
        return false;
    }
    return stageFile(
        folder, destination, name,
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
QStringList stageEach(
    const QString& folder, const QVariantList& items, const QString& operation,
    const std::function<bool(const QVariant& item, const StagingFolder& staging, const QString& folderPath,
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
            const StagingFolder staging = openStagingFolder(folder);
            try {
                for (const QVariant& item : items) {
                    QString destination;
                    QString error;
                    if (stageOne(item, staging, folderPath, &destination, &error))
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
// the data folder itself or a place outside it, and ShareInit empties what it is given. For the
// same reason it is none of the items the mail application keeps next to the staging folders:
// ShareInit("Today") would remove every snapshot, and a staging folder named like a lock sidecar
// would replace the file a lock lives on. Hidden names are all refused, as the mail application
// and the staging code themselves use them for sidecars and temporary files.
std::optional<QString> ExtensionUtilities::StagingFolderNameProblem(const QString& folder) {
    if (folder.isEmpty())
        return QStringLiteral("no staging folder name");
    if (folder == QLatin1String(".") || folder == QLatin1String("..") || folder.contains(QLatin1Char('/')) ||
        folder.contains(QChar(0)))
        return QStringLiteral("not a plain folder name: \"%1\"").arg(folder);
    if (folder.startsWith(QLatin1Char('.')))
        return QStringLiteral("a hidden name, kept for lock files and temporary files: \"%1\"").arg(folder);
    // Without regard to case: on a file system that ignores it, "today" is the snapshots' folder.
    for (const QString& reserved :
         {ConstVars::todayFolder, ConstVars::accountsFile, ConstVars::contactsFolder}) {
        if (folder.compare(reserved, Qt::CaseInsensitive) == 0)
            return QStringLiteral("the mail application's own \"%1\" is no staging folder: \"%2\"")
                .arg(reserved, folder);
    }
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
        *location, FileCoordinator::WritingForDeleting, &problem, [&folder](const QUrl& url) {
            const QString path = url.toLocalFile();
            // One error for both steps, not cleared in between: a failed removal is reported by
            // the create line too. Deliberate; see the header.
            QString error;
            QString dataProblem;
            const FileDescriptor data = openDataFolder(true, &dataProblem);
            if (!data.isValid()) {
                error = QStringLiteral("cannot remove %1: %2").arg(path, dataProblem);
                Log::error(QStringLiteral("[%@] shareInit delete %@"), {error});
                Log::error(QStringLiteral("[%@] shareInit create %@"), {error});
                return;
            }
            removeItem(data.get(), folder, path, &error);
            if (!error.isNull())
                Log::error(QStringLiteral("[%@] shareInit delete %@"), {error});
            createFolder(data.get(), folder, path, &error);
            if (!error.isNull())
                Log::error(QStringLiteral("[%@] shareInit create %@"), {error});
        });
    if (!coordinated)
        Log::error(QStringLiteral("[%@] shareInit %@"), {problem});
}

QStringList ExtensionUtilities::ShareFiles(const QString& folder, const QVariantList& paths) {
    return stageEach(folder, paths, QStringLiteral("shareFiles"),
                     [](const QVariant& item, const StagingFolder& staging, const QString& folderPath,
                        QString* destination, QString* error) {
                         const QString source = sourcePath(item);
                         *destination = GetGoodPath(lastPathComponent(source), folderPath);
                         return copyFile(source, staging, *destination, lastPathComponent(*destination),
                                         error);
                     });
}

QStringList ExtensionUtilities::ShareDatas(const QString& folder, const QVariantList& datas) {
    return stageEach(
        folder, datas, QStringLiteral("shareDatas"),
        [](const QVariant& item, const StagingFolder& staging, const QString& folderPath,
           QString* destination, QString* error) {
            const QByteArray data = blob(item);
            *destination = GetGoodPath(QStringLiteral("image.png"), folderPath);
            return stageFile(
                staging, *destination, lastPathComponent(*destination),
                [&data](int fd) { return writeAll(fd, data.constData(), data.size()) ? 0 : errno; }, error);
        });
}

} // namespace corvina
