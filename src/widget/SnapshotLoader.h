#pragma once

#include "UpdateResult.h"
#include "model/ExtensionMessage.h"
#include "platform/Exception.h"
#include "platform/PropertyList.h"

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace corvina {

// Reads the mail application's snapshots: the folder "Today" of the shared data folder holds one
// folder per account, named by the account's address, and each of those holds property-list files
// {"folder": ..., "account": ..., "data": [message dictionaries]}. Only the folders of enabled
// accounts are read; names beginning with "." are skipped at both levels.
//
// The widget's controller and `corvina-today --list` both load through this class, so that the
// list a script sees is the list the widget shows.
class SnapshotLoader {
public:
    // Every message of the enabled accounts' snapshot files, newest first, messages without a date
    // last. Never fails: what cannot be read is skipped (see the log lines in the implementation)
    // and an exception while reading keeps what was collected before it.
    ExtensionMessageList updateData();

    // The first `count` messages that updateData would list among those whose "folderStid" `keep`
    // accepts, in its order, found without building the others: every file is read and parsed as
    // updateData reads it, but a message is made a record only when it may be among the newest.
    // For rows on the screen before the whole read is done; what updateData returns is the list
    // that counts. Logs nothing and changes nothing that updateData reports. The files are parsed
    // in two halves side by side (the records are made on the calling thread): `keep` is called
    // from both threads.
    ExtensionMessageList newest(qsizetype count, const std::function<bool(const QVariant& folderStid)>& keep);
    // Fewer files than this are parsed on the calling thread alone: a thread's start would cost
    // more than it saves.
    static constexpr qsizetype MinimumFilesForTwoScans = 8;

    // The entries of the folder at `path` as full paths, in the order the file system lists them,
    // without names that begin with ".". Empty when there is no folder at `path`; nothing when the
    // folder cannot be listed.
    static std::optional<QStringList> directoryContent(const QString& path);

    // One snapshot file's bytes into `collected`: parsed, checked to be an envelope with "folder",
    // "account" and "data", each element of "data" made a message. False when the file gives
    // nothing (logged where it is no property list or no dictionary). Raises an Exception when
    // "data" is no collection.
    static bool readSnapshotData(const QByteArray& bytes, ExtensionMessageList& collected);
    // The same, for a property list already read.
    static bool takeEnvelope(const PropertyList::Result& parsed, ExtensionMessageList& collected);
    // The same, for a list kept in libplist's form: each message is built from its node, and
    // nothing else of the list is converted. What the loader itself reads through.
    static bool takeEnvelope(const PlistDocument& parsed, ExtensionMessageList& collected);

    // The outcome of the last updateData: NoData until an envelope with all three keys was taken,
    // then NewData; Failed after a lock or read failure. Kept for inspection only: the widget reports
    // its own result to its host, and nothing reads this to decide anything.
    UpdateResult::Value updateStatus() const { return m_status; }

    // Why the last updateData read no account list although one was there (it was refused: see
    // ExtensionUtilities::Accounts); empty when it was read, or when there was none.
    QString accountsRefusal() const { return m_accountsRefusal; }

private:
    // The addresses of the enabled accounts; sets accountsRefusal().
    QSet<QString> enabledAccounts();
    // The snapshot files of the enabled accounts in the order updateData reads them, each handed to
    // `visit`, inside the folder's coordinated read; an Exception from `visit` ends the walk and
    // goes to `stopped`; `finish` runs after the last file, still within the coordinated read (and
    // its Exception goes to `stopped` too). False when the coordinated read was refused (`error`
    // says why).
    static bool walkSnapshotFiles(const QSet<QString>& enabled,
                                  const std::function<void(const QString&)>& visit,
                                  const std::function<void(const Exception&)>& stopped, QString* error,
                                  const std::function<void()>& finish = {});

    UpdateResult::Value m_status = UpdateResult::NoData;
    QString m_accountsRefusal;
};

} // namespace corvina
