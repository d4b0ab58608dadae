#include "SnapshotLoader.h"

#include "platform/Exception.h"
#include "platform/FileCoordinator.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"
#include "platform/PropertyList.h"
#include "shared/ExtensionUtilities.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <vector>

namespace corvina {

namespace {

// Reads one snapshot file into `collected`; false when the file was skipped. A file that cannot
// be read at all (a folder among the files, no permission) is skipped without a word.
bool readSnapshot(const QString& path, ExtensionMessageList& collected) {
    const PropertyList::Result parsed = PropertyList::readFile(path);
    return !parsed.unreadable && SnapshotLoader::takeEnvelope(parsed, collected);
}

// The path with every symbolic link resolved; null when it cannot be resolved (missing, a loop).
QString resolved(const QString& path) {
    char* real = ::realpath(QFile::encodeName(path).constData(), nullptr);
    if (!real) {
        return QString();
    }
    QString out = QFile::decodeName(real);
    std::free(real);
    return out;
}

// Whether `path` stays inside the folder whose resolved path is `root` once its links are followed.
// An account folder or a snapshot file that is a link out of the shared folder is not followed:
// what lies elsewhere on the disk is no snapshot of the mail application's, whatever it holds.
bool staysInside(const QString& path, const QString& root) {
    const QString real = resolved(path);
    return !real.isNull() && !root.isNull() && real.startsWith(root) &&
           (real.size() == root.size() || real.at(root.size()) == QLatin1Char('/') ||
            root == QLatin1String("/"));
}

// Newest first; a message without a date goes after every dated one. Stable, so messages of the
// same date keep the order in which they were read. The dates are taken once, not per comparison.
ExtensionMessageList newestFirst(const ExtensionMessageList& messages) {
    struct Keyed {
        bool dated;
        qint64 msecs;
        qsizetype index;
    };
    std::vector<Keyed> keys;
    keys.reserve(static_cast<size_t>(messages.size()));
    for (qsizetype i = 0; i < messages.size(); ++i) {
        const QDateTime date = messages.at(i)->date();
        keys.push_back({date.isValid(), date.isValid() ? date.toMSecsSinceEpoch() : 0, i});
    }
    std::stable_sort(keys.begin(), keys.end(), [](const Keyed& a, const Keyed& b) {
        if (a.dated != b.dated) {
            return a.dated;
        }
        return a.msecs > b.msecs;
    });
    ExtensionMessageList sorted;
    sorted.reserve(messages.size());
    for (const Keyed& key : keys) {
        sorted.append(messages.at(key.index));
    }
    return sorted;
}

} // namespace

bool SnapshotLoader::readSnapshotData(const QByteArray& bytes, ExtensionMessageList& collected) {
    return takeEnvelope(PropertyList::read(bytes), collected);
}

bool SnapshotLoader::takeEnvelope(const PropertyList::Result& parsed, ExtensionMessageList& collected) {
    if (!parsed.ok()) {
        Log::write(QStringLiteral("updateData error deserialize %@"), {parsed.error});
        return false;
    }
    if (!PlistValue::isDictionary(parsed.value)) {
        Log::write(QStringLiteral("updateData error deserialize no dictionary in return"));
        return false;
    }
    const QVariant folder = PlistValue::objectForKey(parsed.value, QStringLiteral("folder"));
    const QVariant account = PlistValue::objectForKey(parsed.value, QStringLiteral("account"));
    const QVariant data = PlistValue::objectForKey(parsed.value, QStringLiteral("data"));
    if (!folder.isValid() || !account.isValid() || !data.isValid()) {
        return false;
    }
    // raises for a "data" that is no collection; the caller's guard abandons the rest of the read
    for (const QVariant& element : PlistValue::enumerate(data)) {
        if (ExtensionMessagePtr message = ExtensionMessage::initWithDictonary(element)) {
            collected.append(message);
        }
    }
    return true;
}

std::optional<QStringList> SnapshotLoader::directoryContent(const QString& path) {
    if (!QFileInfo(path).isDir()) {
        return QStringList();
    }
    DIR* dir = ::opendir(QFile::encodeName(path).constData());
    if (!dir) {
        return std::nullopt;
    }
    QStringList entries;
    const QString prefix = path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
    while (const dirent* entry = ::readdir(dir)) {
        const QString name = QFile::decodeName(entry->d_name);
        // also drops "." and ".."
        if (!name.startsWith(QLatin1Char('.'))) {
            entries.append(prefix + name);
        }
    }
    ::closedir(dir);
    return entries;
}

ExtensionMessageList SnapshotLoader::updateData() {
    // Built outside the read's guard, as the accounts are needed before anything is read.
    QSet<QString> enabled;
    for (const ExtensionAccountPtr& account : ExtensionUtilities::Accounts()) {
        // an account's address is null only after a failed read of its dictionary, which also left
        // it disabled; such an account cannot name a folder
        if (account->enabled() && !account->mail().isNull()) {
            enabled.insert(account->mail());
        }
    }

    ExtensionMessageList collected;
    m_status = NoData;
    const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
    if (data) {
        const QUrl today = QUrl::fromLocalFile(data->toLocalFile() + QStringLiteral("/Today"));
        FileCoordinator coordinator;
        QString error;
        const bool coordinated = coordinator.coordinateReadingItemAtURL(
            today, FileCoordinator::ReadingWithoutChanges, &error, [&](const QUrl& url) {
                try {
                    const QString root = resolved(data->toLocalFile());
                    const std::optional<QStringList> accounts = directoryContent(url.toLocalFile());
                    if (!accounts) {
                        return;
                    }
                    for (const QString& accountPath : *accounts) {
                        // exact, case-sensitive match with an enabled account's address
                        if (!enabled.contains(QFileInfo(accountPath).fileName()) ||
                            !staysInside(accountPath, root)) {
                            continue;
                        }
                        const std::optional<QStringList> files = directoryContent(accountPath);
                        if (!files) {
                            continue;
                        }
                        for (const QString& file : *files) {
                            if (staysInside(file, root) && readSnapshot(file, collected)) {
                                m_status = NewData;
                            }
                        }
                    }
                } catch (const Exception& exception) {
                    Log::error(QStringLiteral("[%@] updateData exception %@"), {exception.description()});
                    m_status = Failed;
                }
            });
        if (!coordinated) {
            m_status = Failed;
            Log::error(QStringLiteral("[%@] updateData coordinator %@"), {error});
        }
    }
    return newestFirst(collected);
}

} // namespace corvina
