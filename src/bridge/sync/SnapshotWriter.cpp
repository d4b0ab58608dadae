#include "SnapshotWriter.h"

#include "bridge/imap/MessageHeaders.h"
#include "model/SnapshotFormat.h"
#include "platform/FileCoordinator.h"
#include "platform/FileDescriptor.h"
#include "platform/PropertyList.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvina {

namespace {

QString systemError(const QString& what, const QString& path) {
    return QStringLiteral("%1 %2: %3").arg(what, path, QString::fromLocal8Bit(std::strerror(errno)));
}

bool writeAll(int fd, const QByteArray& bytes) {
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

bool fsyncFolder(const QString& folder) {
    FileDescriptor fd(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.isValid() && ::fsync(fd.get()) == 0;
}

// Whether the file at `path` holds exactly `bytes` (never follows a link: a link is replaced).
bool holds(const QString& path, const QByteArray& bytes) {
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isFile() || info.size() != bytes.size())
        return false;
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.readAll() == bytes;
}

} // namespace

SnapshotWriter::SnapshotWriter(QString dataFolder) : m_data(std::move(dataFolder)) {}

std::optional<QString> SnapshotWriter::defaultDataFolder() {
    const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
    if (!data)
        return std::nullopt;
    return data->toLocalFile();
}

QVariantList SnapshotWriter::accountsFromConfig(const BridgeConfig& config) {
    using Key = SnapshotFormat::AccountKey;
    QVariantList accounts;
    for (const BridgeConfig::Account& account : config.accounts()) {
        if (account.mail.isEmpty())
            continue;
        // The config's texts as the message records take them: nothing XML cannot hold.
        QVariantMap entry{{SnapshotFormat::key(Key::Mail), MessageHeaders::xmlSafe(account.mail)},
                          {SnapshotFormat::key(Key::Enabled), account.enabled}};
        entry.insert(SnapshotFormat::key(Key::Name), MessageHeaders::xmlSafe(account.displayName));
        accounts.append(entry);
    }
    return accounts;
}

bool SnapshotWriter::isTemporaryOf(const QString& name, const QString& file) {
    // "." + file + "." + the six characters mkstemps puts in place of XXXXXX + ".tmp"
    const qsizetype random = 6;
    if (name.size() != 1 + file.size() + 1 + random + 4 || !name.startsWith(u'.') ||
        !QStringView(name).mid(1).startsWith(file) || name.at(1 + file.size()) != u'.' ||
        !name.endsWith(QLatin1String(".tmp")))
        return false;
    const QStringView letters = QStringView(name).mid(1 + file.size() + 1, random);
    return std::all_of(letters.begin(), letters.end(), [](QChar c) {
        return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
    });
}

bool SnapshotWriter::removeTemporaries(const QString& folder, const QStringList& files, int* removed,
                                       QString* error) {
    const QStringList names = QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        if (!std::any_of(files.begin(), files.end(),
                         [&](const QString& f) { return isTemporaryOf(name, f); }))
            continue;
        const QByteArray path = QFile::encodeName(folder + QLatin1Char('/') + name);
        struct stat st {};
        // Only a plain file of ours: never a link, nor what another user put there.
        if (::lstat(path.constData(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid())
            continue;
        if (::unlink(path.constData()) != 0 && errno != ENOENT) {
            *error = systemError(QStringLiteral("cannot remove"), QFile::decodeName(path));
            return false;
        }
        ++*removed;
    }
    return true;
}

int SnapshotWriter::removeLeftovers(QString* error) {
    if (!QFileInfo(m_data).isDir())
        return 0;
    int removed = 0;
    bool ok = true;
    QString lockError;
    FileCoordinator coordinator;
    const QString accounts = m_data + QLatin1Char('/') + ConstVars::accountsFile;
    if (!coordinator.coordinateWritingItemAtURL(
            QUrl::fromLocalFile(accounts), 0, &lockError, [&](const QUrl&) {
                ok = removeTemporaries(m_data, {ConstVars::accountsFile}, &removed, error);
            })) {
        *error = QStringLiteral("cannot lock ") + ConstVars::accountsFile + QStringLiteral(": ") + lockError;
        return -1;
    }
    if (!ok)
        return -1;
    const QString today = m_data + QLatin1Char('/') + ConstVars::todayFolder;
    if (!QFileInfo(today).isDir())
        return removed;
    if (!coordinator.coordinateWritingItemAtURL(QUrl::fromLocalFile(today), 0, &lockError, [&](const QUrl&) {
            // Every account's folder, configured or not: an account taken out of the config may
            // have left one too. A folder that is a link is not ours to sweep.
            const QStringList folders =
                QDir(today).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks);
            const QStringList files = AccountSync::listFiles();
            for (const QString& folder : folders) {
                if (!removeTemporaries(today + QLatin1Char('/') + folder, files, &removed, error)) {
                    ok = false;
                    return;
                }
            }
        })) {
        *error = QStringLiteral("cannot lock the Today folder: ") + lockError;
        return -1;
    }
    return ok ? removed : -1;
}

bool SnapshotWriter::replace(const QString& path, const QByteArray& bytes, QString* error) {
    if (holds(path, bytes))
        return true;
    const QFileInfo target(path);
    const QString folder = target.absolutePath();
    // Hidden (readers skip names that begin with ".") and unique (a crashed writer's leftover is
    // never reused).
    QByteArray pattern =
        QFile::encodeName(folder + QStringLiteral("/.") + target.fileName() + QStringLiteral(".XXXXXX.tmp"));
    FileDescriptor fd(::mkstemps(pattern.data(), 4));
    if (!fd.isValid()) {
        *error = systemError(QStringLiteral("cannot create a temporary file in"), folder);
        return false;
    }
    const QString temporary = QFile::decodeName(pattern);
    auto abandon = [&](const QString& what) {
        *error = systemError(what, temporary);
        ::unlink(pattern.constData());
        return false;
    };
    if (::fchmod(fd.get(), 0644) != 0 || !writeAll(fd.get(), bytes) || ::fsync(fd.get()) != 0)
        return abandon(QStringLiteral("cannot write"));
    fd.reset();
    if (::rename(pattern.constData(), QFile::encodeName(path).constData()) != 0)
        return abandon(QStringLiteral("cannot rename into place"));
    if (!fsyncFolder(folder)) {
        *error = systemError(QStringLiteral("cannot sync the folder"), folder);
        return false;
    }
    ++m_filesWritten;
    return true;
}

bool SnapshotWriter::writeAccounts(const QVariantList& accounts, QString* error) {
    QString serialiseError;
    const QByteArray bytes = PropertyList::write(accounts, PropertyList::Format::Xml, &serialiseError);
    if (bytes.isNull()) {
        *error = QStringLiteral("cannot serialise the account list: ") + serialiseError;
        return false;
    }
    if (!QDir().mkpath(m_data)) {
        *error = QStringLiteral("cannot create the shared folder ") + m_data;
        return false;
    }
    const QString path = m_data + QLatin1Char('/') + ConstVars::accountsFile;
    FileCoordinator coordinator;
    bool written = false;
    QString lockError;
    const bool locked =
        coordinator.coordinateWritingItemAtURL(QUrl::fromLocalFile(path), 0, &lockError,
                                               [&](const QUrl&) { written = replace(path, bytes, error); });
    if (!locked) {
        *error = QStringLiteral("cannot lock ") + ConstVars::accountsFile + QStringLiteral(": ") + lockError;
        return false;
    }
    return written;
}

bool SnapshotWriter::writeSnapshots(const QString& mail, const QList<AccountSync::Snapshot>& snapshots,
                                    QString* error) {
    using Key = SnapshotFormat::EnvelopeKey;
    // Serialised before the lock: the lock is held only for the writing.
    QList<std::pair<QString, QByteArray>> files;
    for (const AccountSync::Snapshot& snapshot : snapshots) {
        const QVariantMap envelope{
            {SnapshotFormat::key(Key::Folder), MessageHeaders::xmlSafe(snapshot.folder)},
            {SnapshotFormat::key(Key::Account), MessageHeaders::xmlSafe(mail)},
            {SnapshotFormat::key(Key::Data), snapshot.messages}};
        QString serialiseError;
        const QByteArray bytes = PropertyList::write(envelope, PropertyList::Format::Xml, &serialiseError);
        if (bytes.isNull()) {
            *error = QStringLiteral("cannot serialise %1 of %2: %3").arg(snapshot.file, mail, serialiseError);
            return false;
        }
        files.append({snapshot.file, bytes});
    }
    const QString today = m_data + QLatin1Char('/') + ConstVars::todayFolder;
    const QString folder = today + QLatin1Char('/') + mail;
    if (!QDir().mkpath(m_data)) {
        *error = QStringLiteral("cannot create the shared folder ") + m_data;
        return false;
    }
    FileCoordinator coordinator;
    bool ok = true;
    QString lockError;
    const bool locked =
        coordinator.coordinateWritingItemAtURL(QUrl::fromLocalFile(today), 0, &lockError, [&](const QUrl&) {
            if (!QDir().mkpath(folder)) {
                *error = QStringLiteral("cannot create ") + folder;
                ok = false;
                return;
            }
            for (const auto& [name, bytes] : files) {
                if (!replace(folder + QLatin1Char('/') + name, bytes, error)) {
                    ok = false;
                    return;
                }
            }
            for (const QString& name : AccountSync::listFiles()) {
                const bool kept =
                    std::any_of(files.begin(), files.end(), [&](const auto& f) { return f.first == name; });
                const QString path = folder + QLatin1Char('/') + name;
                if (!kept && QFileInfo::exists(path) && !QFile::remove(path)) {
                    *error = QStringLiteral("cannot remove ") + path;
                    ok = false;
                    return;
                }
            }
        });
    if (!locked) {
        *error = QStringLiteral("cannot lock the Today folder: ") + lockError;
        return false;
    }
    return ok;
}

} // namespace corvina
