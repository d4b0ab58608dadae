#pragma once

#include "AccountSync.h"
#include "WakePipe.h"
#include "bridge/config/BridgeConfig.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <atomic>
#include <functional>
#include <optional>

namespace corvina {

// Follows one account for as long as the bridge runs, on a thread of its own (run() blocks): reads
// every list, then waits in IDLE on the inbox until the server reports a change, and reads again.
// Lists IDLE does not cover are read again every `poll` seconds; a server without IDLE has its
// inbox polled too. A failure (the server gone, a refused login) is reported and tried again after
// 1 s, doubling up to 5 minutes, so that one failing account never stops the others nor floods
// its server.
//
// The worker talks to the network only. Its results reach the owner's thread by queued signals;
// writing the shared folder and the status file is the owner's job. stop() and syncNow() may be
// called from any thread: they wake the worker through a pipe, whether it waits in IDLE or before
// a retry.
class AccountWorker : public QObject {
    Q_OBJECT
public:
    // What the account logs in with (a password or a token), or nothing with `error` set. Called
    // on the worker's thread before each login, so that a password changed meanwhile is used for
    // the next connection.
    using PasswordSource = AccountSync::CredentialSource;

    struct Timing {
        int timeoutSeconds = 30; // every network wait
        // Servers may end an IDLE after 30 minutes; it is renewed well before.
        int idleSeconds = 25 * 60;
        int firstRetrySeconds = 1;
        int maxRetrySeconds = 300;
    };

    AccountWorker(BridgeConfig::Account account, Timing timing, PasswordSource passwords,
                  QObject* parent = nullptr);

    const BridgeConfig::Account& account() const { return m_account; }

    // Follows the account until stop(); blocks the calling thread.
    void run();
    // Ends run() soon: a wait in IDLE or before a retry ends at once, and the connection says
    // goodbye within about a second.
    void stop();
    // Blocks the process's signals (stop, sync now) on the calling thread: they are the main
    // thread's, and a network thread interrupted in the middle of a call would take it for a lost
    // connection. Called first on every thread that talks to a server.
    static void blockProcessSignals();

    // Reads every list again on a fresh connection at once (after a resume from suspend, when the
    // old connection is most likely dead), and forgets the retry delay.
    void syncNow();

signals:
    // Every list was read; `snapshots` are ready for the shared folder. `readStarted`: when the
    // read began (AccountSync::Result::readStarted).
    void synced(const QString& account, const QList<corvina::AccountSync::Snapshot>& snapshots,
                const QDateTime& when, qint64 readStarted);
    // A sync failed or the connection was lost; the next try comes after `retrySeconds`.
    void failed(const QString& account, const QString& error, const QDateTime& when, int retrySeconds);
    // Something worth a line in the log (how the account is followed).
    void note(const QString& account, const QString& line);

private:
    enum class FollowEnd { SyncDue, Interrupted, Lost };
    // Waits for a reason to read again on the connection `sync` has just used.
    FollowEnd follow(AccountSync& sync, const AccountSync::Result& last, QString* error);
    bool interrupted() const { return m_stop.load() || m_fresh.load(); }

    BridgeConfig::Account m_account;
    Timing m_timing;
    PasswordSource m_passwords;
    WakePipe m_wake;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_fresh{false};
};

} // namespace corvina
