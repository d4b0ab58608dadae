#pragma once

#include "bridge/AccountSync.h"
#include "bridge/BridgeConfig.h"

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

    // Files replaced so far (unchanged ones are not counted).
    int filesWritten() const { return m_filesWritten; }

private:
    // Replaces `path` with `bytes` unless it holds them already; the caller holds the lock.
    bool replace(const QString& path, const QByteArray& bytes, QString* error);

    QString m_data;
    int m_filesWritten = 0;
};

} // namespace corvina
