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
#include <functional>
#include <memory>
#include <sys/stat.h>
#include <thread>
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

QSet<QString> SnapshotLoader::enabledAccounts() {
    QSet<QString> enabled;
    m_accountsRefusal.clear();
    for (const ExtensionAccountPtr& account : ExtensionUtilities::Accounts(&m_accountsRefusal)) {
        // an account's address is null only after a failed read of its dictionary, which also left
        // it disabled; such an account cannot name a folder
        if (account->enabled() && !account->mail().isNull()) {
            enabled.insert(account->mail());
        }
    }
    return enabled;
}

bool SnapshotLoader::walkSnapshotFiles(const QSet<QString>& enabled,
                                       const std::function<void(const QString&)>& visit,
                                       const std::function<void(const Exception&)>& stopped, QString* error,
                                       const std::function<void()>& finish) {
    const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
    if (!data) {
        return true;
    }
    const QUrl today = QUrl::fromLocalFile(data->toLocalFile() + QLatin1Char('/') + ConstVars::todayFolder);
    FileCoordinator coordinator;
    return coordinator.coordinateReadingItemAtURL(
        today, FileCoordinator::ReadingWithoutChanges, error, [&](const QUrl& url) {
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
                        if (fileStaysInside(file, root)) {
                            visit(file);
                        }
                    }
                }
                if (finish) {
                    finish();
                }
            } catch (const Exception& exception) {
                stopped(exception);
            }
        });
}

ExtensionMessageList SnapshotLoader::updateData() {
    // Built outside the read's guard, as the accounts are needed before anything is read.
    const QSet<QString> enabled = enabledAccounts();
    ExtensionMessageList collected;
    m_status = UpdateResult::NoData;
    QString error;
    const bool coordinated = walkSnapshotFiles(
        enabled,
        [&](const QString& file) {
            if (readSnapshot(file, collected)) {
                m_status = UpdateResult::NewData;
            }
        },
        [&](const Exception& exception) {
            Log::error(QStringLiteral("[%@] updateData exception %@"), {exception.description()});
            m_status = UpdateResult::Failed;
        },
        &error);
    if (!coordinated) {
        m_status = UpdateResult::Failed;
        Log::error(QStringLiteral("[%@] updateData coordinator %@"), {error});
    }
    return newestFirst(std::move(collected));
}

namespace {

// A message that may be among the newest: its place in the reading order (file, then element), its
// date as the record would have it, and either its node (kept with its document) or, for the rare
// shapes read the whole way, its record.
struct Candidate {
    bool dated = false;
    qint64 msecs = 0;
    qsizetype file = 0;
    qsizetype element = 0;
    std::shared_ptr<const PlistDocument> document;
    PlistNode node;
    ExtensionMessagePtr message;
};

// Ordered as updateData orders its list: dated before undated, newer first, and in reading order
// among equals.
bool comesBefore(const Candidate& a, const Candidate& b) {
    if (a.dated != b.dated) {
        return a.dated;
    }
    if (a.dated && a.msecs != b.msecs) {
        return a.msecs > b.msecs;
    }
    return a.file != b.file ? a.file < b.file : a.element < b.element;
}

// The best `count` candidates met so far, the worst of them first (a heap).
class Best {
public:
    explicit Best(qsizetype count) : m_count(count) {}
    bool takes(const Candidate& candidate) const {
        return qsizetype(m_kept.size()) < m_count || comesBefore(candidate, m_kept.front());
    }
    void offer(Candidate candidate) {
        m_kept.push_back(std::move(candidate));
        std::push_heap(m_kept.begin(), m_kept.end(), comesBefore);
        if (qsizetype(m_kept.size()) > m_count) {
            std::pop_heap(m_kept.begin(), m_kept.end(), comesBefore);
            m_kept.pop_back();
        }
    }
    std::vector<Candidate>& kept() { return m_kept; }

private:
    qsizetype m_count;
    std::vector<Candidate> m_kept;
};

// What one scan of a run of files found: the best candidates, and the first file whose "data" is
// no array (read the whole way on the main thread, where records are made), or -1.
struct Scan {
    explicit Scan(qsizetype count) : best(count) {}
    Best best;
    qsizetype rareShapeAt = -1;
};

// Scans files [from, to) of `files`: parses each and takes each message's date and kind from its
// node, without making a record; a document is kept only while one of its messages is a candidate.
// Stops at the first file of a rare shape. Makes no record and logs nothing, so it may run on any
// thread.
void scanFiles(const QStringList& files, qsizetype from, qsizetype to,
               const std::function<bool(const QVariant&)>& keep, Scan& scan) {
    const Log::Silence silence;
    for (qsizetype file = from; file < to; ++file) {
        auto parsed = std::make_shared<const PlistDocument>(PropertyList::parseFile(files.at(file)));
        if (parsed->unreadable() || !parsed->ok() || !parsed->root().isDictionary()) {
            continue;
        }
        using Key = SnapshotFormat::EnvelopeKey;
        PlistNode envelope[SnapshotFormat::EnvelopeKeyCount];
        parsed->root().valuesForKeys(SnapshotFormat::envelopeKeys, SnapshotFormat::EnvelopeKeyCount,
                                     envelope);
        const PlistNode& data = envelope[static_cast<int>(Key::Data)];
        if (envelope[static_cast<int>(Key::Folder)].isNull() ||
            envelope[static_cast<int>(Key::Account)].isNull() || data.isNull()) {
            continue;
        }
        if (!data.isArray()) {
            scan.rareShapeAt = file;
            return;
        }
        struct Cursor {
            void* at = nullptr;
            ~Cursor() { PlistNode::endElements(at); }
        } cursor;
        qsizetype element = 0;
        for (PlistNode node = data.nextElement(cursor.at); !node.isNull();
             node = data.nextElement(cursor.at)) {
            const ExtensionMessage::SortKey key = ExtensionMessage::sortKeyOfNode(node);
            Candidate candidate;
            candidate.dated = key.date.isValid();
            candidate.msecs = candidate.dated ? key.date.toMSecsSinceEpoch() : 0;
            candidate.file = file;
            candidate.element = element++;
            if (keep(key.folderStandardId) && scan.best.takes(candidate)) {
                candidate.document = parsed;
                candidate.node = node;
                scan.best.offer(std::move(candidate));
            }
        }
    }
}

} // namespace

ExtensionMessageList SnapshotLoader::newest(qsizetype count,
                                            const std::function<bool(const QVariant&)>& keep) {
    if (count <= 0) {
        return {};
    }
    // Silent: the read that counts follows and logs what this one met. The account list's refusal,
    // the status and what updateData keeps are left as they were.
    const Log::Silence silence;
    const QString refusal = m_accountsRefusal;
    const QSet<QString> enabled = enabledAccounts();
    m_accountsRefusal = refusal;

    QStringList files;
    Best best(count);
    QString error;
    walkSnapshotFiles(
        enabled, [&](const QString& file) { files.append(file); },
        [](const Exception&) {
            // updateData stops where this stops; what was found before stays
        },
        &error,
        // Inside the folder's coordinated read, as updateData reads. The parsing is most of the
        // time and each file stands alone: the two halves of the files are parsed side by side.
        [&] {
            qsizetype from = 0;
            while (from < files.size()) {
                const qsizetype middle = from + (files.size() - from) / 2;
                Scan first(count);
                Scan second(count);
                std::thread other;
                if (middle > from && files.size() - middle >= MinimumFilesForTwoScans) {
                    other = std::thread([&] { scanFiles(files, middle, files.size(), keep, second); });
                    scanFiles(files, from, middle, keep, first);
                    other.join();
                } else {
                    scanFiles(files, from, files.size(), keep, first);
                }
                for (Candidate& candidate : first.best.kept()) {
                    best.offer(std::move(candidate));
                }
                qsizetype rare = first.rareShapeAt;
                if (rare < 0) {
                    // what the second half found counts only when nothing before it stopped the read
                    for (Candidate& candidate : second.best.kept()) {
                        best.offer(std::move(candidate));
                    }
                    rare = second.rareShapeAt;
                }
                if (rare < 0) {
                    return;
                }
                // The rare shapes go the whole way, here, as updateData takes them; one that raises
                // ends the read there, as in updateData.
                ExtensionMessageList collected;
                readSnapshot(files.at(rare), collected);
                qsizetype element = 0;
                for (const ExtensionMessagePtr& message : collected) {
                    Candidate candidate;
                    const QDateTime date = message ? message->date() : QDateTime();
                    candidate.dated = date.isValid();
                    candidate.msecs = candidate.dated ? date.toMSecsSinceEpoch() : 0;
                    candidate.file = rare;
                    candidate.element = element++;
                    candidate.message = message;
                    if (message && keep(message->folderStandardId()) && best.takes(candidate)) {
                        best.offer(std::move(candidate));
                    }
                }
                from = rare + 1;
            }
        });

    // Only the candidates become records, here on the main thread, as updateData makes them; their
    // own values decide their place (they differ from the node's only where a value of the wrong
    // shape stopped the record early).
    std::vector<Candidate>& kept = best.kept();
    ExtensionMessage::RepeatedTexts repeated;
    for (Candidate& candidate : kept) {
        if (!candidate.message) {
            candidate.message = ExtensionMessage::initWithNode(candidate.node, repeated);
            const QDateTime date = candidate.message->date();
            candidate.dated = date.isValid();
            candidate.msecs = candidate.dated ? date.toMSecsSinceEpoch() : 0;
        }
        candidate.node = PlistNode();
        candidate.document.reset();
    }
    kept.erase(std::remove_if(kept.begin(), kept.end(),
                              [&keep](const Candidate& c) { return !keep(c.message->folderStandardId()); }),
               kept.end());
    std::sort(kept.begin(), kept.end(), comesBefore);
    ExtensionMessageList rows;
    rows.reserve(qsizetype(kept.size()));
    for (Candidate& candidate : kept) {
        rows.append(std::move(candidate.message));
    }
    return rows;
}

} // namespace corvina
