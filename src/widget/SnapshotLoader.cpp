#include "SnapshotLoader.h"

#include "model/SnapshotFormat.h"
#include "platform/Exception.h"
#include "platform/FileCoordinator.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"
#include "platform/PropertyList.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace corvina {

namespace {

// Reads one snapshot file into `collected`; false when the file was skipped. A file that cannot
// be read at all (a folder among the files, no permission) is skipped without a word.
bool readSnapshot(const QString& path, ExtensionMessageList& collected) {
    const PlistDocument parsed = PropertyList::parseFile(path);
    return !parsed.unreadable() && SnapshotLoader::takeEnvelope(parsed, collected);
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

// Whether a file of an account folder that stays inside `root` stays inside too. A file that is no
// link resolves to the folder's own resolved path and its name, so only links are resolved (a
// resolution looks at every component of the path: thousands of files make that count).
bool fileStaysInside(const QString& path, const QString& root) {
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0) {
        return false; // missing: it cannot be resolved either
    }
    return !S_ISLNK(info.st_mode) || staysInside(path, root);
}

// Newest first; a message without a date goes after every dated one. Stable, so messages of the
// same date keep the order in which they were read. The dates are taken once, not per comparison.
ExtensionMessageList newestFirst(ExtensionMessageList messages) {
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
    // moved, not copied: a copy would touch every record's count twice, in no order the cache likes
    for (const Keyed& key : keys) {
        sorted.append(std::move(messages[key.index]));
    }
    return sorted;
}

} // namespace

bool SnapshotLoader::readSnapshotData(const QByteArray& bytes, ExtensionMessageList& collected) {
    return takeEnvelope(PropertyList::parse(bytes), collected);
}

bool SnapshotLoader::takeEnvelope(const PlistDocument& parsed, ExtensionMessageList& collected) {
    if (!parsed.ok()) {
        Log::write(QStringLiteral("updateData error deserialize %@"), {parsed.error()});
        return false;
    }
    const PlistNode root = parsed.root();
    if (!root.isDictionary()) {
        Log::write(QStringLiteral("updateData error deserialize no dictionary in return"));
        return false;
    }
    using Key = SnapshotFormat::EnvelopeKey;
    PlistNode envelope[SnapshotFormat::EnvelopeKeyCount];
    root.valuesForKeys(SnapshotFormat::envelopeKeys, SnapshotFormat::EnvelopeKeyCount, envelope);
    const PlistNode& data = envelope[static_cast<int>(Key::Data)];
    if (envelope[static_cast<int>(Key::Folder)].isNull() ||
        envelope[static_cast<int>(Key::Account)].isNull() || data.isNull()) {
        return false;
    }
    if (!data.isArray()) {
        // a dictionary or a single value: read in the Qt form, which enumerates a dictionary's keys
        // and raises for the rest, as it always did
        for (const QVariant& element : PlistValue::enumerate(data.toVariant())) {
            collected.append(ExtensionMessage::initWithDictonary(element));
        }
        return true;
    }
    // Each message straight from its node: no copy of the list in Qt values is made.
    struct Cursor {
        void* at = nullptr;
        ~Cursor() { PlistNode::endElements(at); }
    } cursor;
    ExtensionMessage::RepeatedTexts repeated;
    for (PlistNode element = data.nextElement(cursor.at); !element.isNull();
         element = data.nextElement(cursor.at)) {
        collected.append(ExtensionMessage::initWithNode(element, repeated));
    }
    return true;
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
    using Key = SnapshotFormat::EnvelopeKey;
    const QVariant folder = PlistValue::objectForKey(parsed.value, SnapshotFormat::key(Key::Folder));
    const QVariant account = PlistValue::objectForKey(parsed.value, SnapshotFormat::key(Key::Account));
    const QVariant data = PlistValue::objectForKey(parsed.value, SnapshotFormat::key(Key::Data));
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
    m_accountsRefusal.clear();
    for (const ExtensionAccountPtr& account : ExtensionUtilities::Accounts(&m_accountsRefusal)) {
        // an account's address is null only after a failed read of its dictionary, which also left
        // it disabled; such an account cannot name a folder
        if (account->enabled() && !account->mail().isNull()) {
            enabled.insert(account->mail());
        }
    }

    ExtensionMessageList collected;
    m_status = UpdateResult::NoData;
    const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
    if (data) {
        const QUrl today =
            QUrl::fromLocalFile(data->toLocalFile() + QLatin1Char('/') + ConstVars::todayFolder);
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
                            if (fileStaysInside(file, root) && readSnapshot(file, collected)) {
                                m_status = UpdateResult::NewData;
                            }
                        }
                    }
                } catch (const Exception& exception) {
                    Log::error(QStringLiteral("[%@] updateData exception %@"), {exception.description()});
                    m_status = UpdateResult::Failed;
                }
            });
        if (!coordinated) {
            m_status = UpdateResult::Failed;
            Log::error(QStringLiteral("[%@] updateData coordinator %@"), {error});
        }
    }
    return newestFirst(std::move(collected));
}

} // namespace corvina
