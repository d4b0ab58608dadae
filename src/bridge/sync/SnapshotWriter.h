#pragma once

#include "AccountSync.h"
#include "bridge/config/BridgeConfig.h"

#include <QList>
#include <QString>
#include <QVariantList>
#include <optional>

namespace corvina {

// Writes the bridge's side of the shared folder by the protocol the widget reads by: Accounts.plist
// under the exclusive lock of its sidecar, the snapshot files of an account under the exclusive lock
// of the Today folder, each file replaced whole (a hidden temporary in the same folder, fsync,
// rename, fsync of the folder). Content is serialised before a lock is taken, and a file whose bytes
// would not change is left alone, so that the widget is not woken for nothing.
class SnapshotWriter {
public:
    // Writes into `dataFolder` (the container's SharedData), creating it when missing.
    explicit SnapshotWriter(QString dataFolder);

    // The data folder the widget of this environment reads, or nothing when there is no shared folder.
    static std::optional<QString> defaultDataFolder();

    // Accounts.plist from the configuration: every account with a usable mail, in file order.
    static QVariantList accountsFromConfig(const BridgeConfig& config);

    bool writeAccounts(const QVariantList& accounts, QString* error);
    // Replaces the snapshots of one account: each of `snapshots` as Today/<mail>/<file>, and removes
    // the bridge's own list files of that account that are no longer configured (a memo list that
    // was switched off). Files the bridge does not name are never touched.
    bool writeSnapshots(const QString& mail, const QList<AccountSync::Snapshot>& snapshots, QString* error);

    // Removes the temporaries that a writer killed in the middle of a write left behind: hidden
    // regular files of this user named exactly as this class names them (".inbox.plist.Ab3xYz.tmp":
    // the file's name, six letters or digits, ".tmp"), for Accounts.plist in the data folder and for
    // the list files in every account's folder under Today. Nothing else is touched, however alike.
    // Each folder is swept under the exclusive lock its files are written under. Every writer makes
    // its temporary and renames it away (or removes it) while it holds that lock, and the kernel
    // lets go of a killed writer's lock, so a temporary found under the lock belongs to no write in
    // progress: another bridge, or a --once beside a running bridge, is never robbed of one.
    // The number of files removed; -1, with `error` set, when a lock could not be had or a leftover
    // could not be removed (those found until then are removed).
    int removeLeftovers(QString* error);
    // Whether `name` is a name that replace() gives the temporary of the file `file`.
    static bool isTemporaryOf(const QString& name, const QString& file);

    // Files replaced so far (unchanged ones are not counted).
    int filesWritten() const { return m_filesWritten; }

private:
    // Replaces `path` with `bytes` unless it holds them already; the caller holds the lock.
    bool replace(const QString& path, const QByteArray& bytes, QString* error);
    // Removes the leftover temporaries of `files` in `folder`; the caller holds the lock.
    bool removeTemporaries(const QString& folder, const QStringList& files, int* removed, QString* error);

    QString m_data;
    int m_filesWritten = 0;
};

} // namespace corvina
