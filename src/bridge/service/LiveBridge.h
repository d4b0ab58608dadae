#pragma once

#include "bridge/commands/CommandCenter.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/AccountWorker.h"
#include "bridge/sync/BridgeStatus.h"
#include "bridge/sync/SnapshotWriter.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QVariantMap>
#include <memory>
#include <vector>

class QThread;

namespace corvina {

// The bridge running in the foreground: one AccountWorker per enabled account, each on a thread of
// its own, and on the owner's (main) thread everything that touches files: Accounts.plist at the
// start, each account's snapshots as its worker reports them, and the status file after every sync
// or failure. An account that fails is retried by its own worker; the others go on.
//
// It also carries out the command URLs the bridge receives as the mail application (CommandCenter):
// the lists a command changed are written at once, like any sync, and each command's outcome goes
// into the status file.
class LiveBridge : public QObject {
    Q_OBJECT
public:
    LiveBridge(BridgeConfig config, QString dataFolder, QString statusPath,
               AccountWorker::PasswordSource passwords, AccountWorker::Timing timing = {},
               QObject* parent = nullptr);
    ~LiveBridge() override;

    // Removes the temporaries an earlier bridge killed while writing left behind (a line says how
    // many), writes Accounts.plist and starts following every enabled account (unless `follow` is false:
    // commands only). An account with a bad configuration gets its line and its status; the others
    // start. False, with `error` set, when there is no account that can be followed or the shared
    // folder cannot be written.
    bool start(QString* error, bool follow = true);
    // Carries out the command URLs of one request (see CommandCenter::open).
    void openUris(const QStringList& uris, const QVariantMap& platformData);
    CommandCenter& commands() { return m_commands; }
    // Every account reads all its lists again on a fresh connection (after a resume from suspend).
    void syncNow(const QString& reason);
    // Asks every account to stop and waits up to `timeoutMs` for them; results that arrived
    // meanwhile are still written. False when some account is still busy (a server that does not
    // answer); the caller may then leave without it, as everything written so far is complete.
    bool stop(int timeoutMs);

    int accountsFollowed() const { return static_cast<int>(m_workers.size()); }

signals:
    // One short line for the log, starting with the account's name when it is about one.
    void log(const QString& line);

private slots:
    void accountSynced(const QString& account, const QList<corvina::AccountSync::Snapshot>& snapshots,
                       const QDateTime& when);
    void accountFailed(const QString& account, const QString& error, const QDateTime& when, int retrySeconds);
    void commandDone(const QString& command, const QString& mail, bool ok, const QString& error);

private:
    // The thread goes first (declared last): it is waited for, then the worker it ran.
    struct Running {
        std::unique_ptr<AccountWorker> worker;
        std::unique_ptr<QThread> thread;
    };
    void writeStatus();
    // What an earlier bridge, killed while writing, left in the shared folder.
    void removeLeftovers();

    BridgeConfig m_config;
    SnapshotWriter m_writer;
    BridgeStatus m_status;
    AccountWorker::PasswordSource m_passwords;
    AccountWorker::Timing m_timing;
    CommandCenter m_commands;
    std::vector<Running> m_workers;
    QMap<QString, QString> m_mails; // account name -> mail
    QMap<QString, bool> m_failing;  // account name -> whether its last attempt failed
};

} // namespace corvina
