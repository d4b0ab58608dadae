#pragma once

#include "ConfigWatch.h"
#include "SignInPrompt.h"
#include "bridge/commands/CommandCenter.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/AccountSync.h"
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
#include <functional>
#include <memory>
#include <optional>
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
//
// Its once mode (syncOnce) is `corvina-mail-bridge --once`: every enabled account read one time on
// the calling thread, into the same files, and then done.
class LiveBridge : public QObject {
    Q_OBJECT
public:
    // What the program starts the bridge for; `create` checks what that needs.
    enum class Purpose {
        Follow,       // the foreground mode: follow every enabled account
        SyncOnce,     // --once: every enabled account read once (syncOnce)
        CommandsOnly, // open URL... carried out by this process: no account is followed
    };

    // The bridge as corvina-mail-bridge runs it, the same for each purpose: snapshots into the
    // shared folder, the status file in the user's state folder, each account's password from its
    // passwordCommand or the Secret Service, `timeoutSeconds` for each wait on a server. Nothing,
    // with `error` set to one line, when the accounts file does not exist (to follow or sync: there
    // is nothing to do) or there is no shared folder.
    static std::unique_ptr<LiveBridge> create(BridgeConfig config, Purpose purpose, int timeoutSeconds,
                                              QString* error);

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
    // The once mode, instead of start(): removes what an interrupted write left behind (quietly,
    // unless it cannot), writes Accounts.plist, then reads every enabled account once, one after the
    // other, each within one deadline of the timeout for its whole attempt (connection, login, every
    // list, goodbye), writes its snapshots and keeps the status file. An account that fails gets its
    // line through `log` ("name: why") and the others go on; a problem of the bridge as a whole
    // goes through `problem`. True when every account synced and every file was written.
    bool syncOnce();
    // `corvina-mail-bridge check` for one account: what is wrong with its configuration, else its
    // password, then a connection, a login and each configured folder opened, all within one
    // deadline of `timeoutSeconds` as --once has. Not ok, with the first failure, when any fails.
    static AccountSync::Result checkAccount(const BridgeConfig::Account& account, int timeoutSeconds);
    // The same check with a password the person typed and nothing stored yet: what the Accounts
    // window's "Test connection" runs before the account is saved.
    static AccountSync::Result checkAccount(const BridgeConfig::Account& account, const QString& password,
                                            int timeoutSeconds);
    // "Test connection" with the server's folders to choose from: the same check (with `password`
    // when given, else what the account logs in with), then on the same connection and within the
    // same deadline the server's folders (ImapSession::listFolders). The folders are empty, with
    // `listError` one line, when the check passed but the list could not be had.
    struct FolderCheck {
        AccountSync::Result check;
        QStringList folders;
        bool moreFolders = false; // the server listed more than ImapSession::MostFolders
        QString listError;
    };
    static FolderCheck checkAndListFolders(const BridgeConfig::Account& account,
                                           const std::optional<QString>& password, int timeoutSeconds);
    // Carries out the command URLs of one request (see CommandCenter::open).
    void openUris(const QStringList& uris, const QVariantMap& platformData);
    CommandCenter& commands() { return m_commands; }
    // Every account reads all its lists again on a fresh connection (after a resume from suspend).
    void syncNow(const QString& reason);
    // The same for one account (its group name), after its sign-in was renewed.
    void syncAccountNow(const QString& account, const QString& reason);
    // Reads bridge.conf again and follows what it says now (start() calls it whenever the file
    // changes): an account added is followed, one removed or turned off is stopped (its files stay,
    // as after `account remove`; Accounts.plist and the status file follow the file), one whose
    // group changed in any key is stopped and followed again with the new settings, and every other
    // account is left running on its connection. A file that is gone or cannot be read as INI is
    // refused with one line and the accounts go on as they were.
    void reloadConfig();
    // The Accounts window's nudge, after a change it made: bridge.conf is read again, then every
    // account waiting to try again (a failed login, a sign-in needed, a lost connection in its
    // back-off) tries at once. Accounts that work are left alone.
    void retryNow(const QString& reason);
    const BridgeConfig& config() const { return m_config; }
    // The notification that asks for a sign-in when an account's has run out.
    SignInPrompt& signInPrompt() { return m_signIn; }
    // Asks every account to stop and waits up to `timeoutMs` for them; results that arrived
    // meanwhile are still written. False when some account is still busy (a server that does not
    // answer); the caller may then leave without it, as everything written so far is complete.
    bool stop(int timeoutMs);

    int accountsFollowed() const { return static_cast<int>(m_workers.size()); }

signals:
    // One short line for the log, starting with the account's name when it is about one.
    void log(const QString& line);
    // The once mode's lines about the bridge as a whole (the shared folder, the status file), not
    // about one account: a person running --once by hand reads them with the program's name first.
    void problem(const QString& line);

private slots:
    void accountSynced(const QString& account, const QList<corvina::AccountSync::Snapshot>& snapshots,
                       const QDateTime& when, qint64 readStarted);
    void accountFailed(const QString& account, const QString& error, const QDateTime& when, int retrySeconds);
    void commandDone(corvina::CommandKind kind, const QString& mail, bool ok, const QString& error);

private:
    // The thread goes first (declared last): it is waited for, then the worker it ran.
    struct Running {
        std::unique_ptr<AccountWorker> worker;
        std::unique_ptr<QThread> thread;
        int id = 0; // tells a stopped worker's late results from the current one's
    };
    void writeStatus();
    void startWorker(const BridgeConfig::Account& account);
    // Asks the worker at `index` to stop and keeps it until its thread has ended, without waiting.
    void retireWorker(size_t index);
    bool isCurrent(int id) const;
    // One account's attempt of --once (a whole sync) or of check (`checkOnly`): a person reads
    // --timeout as "this account is given up after that long", so one deadline holds for the whole
    // attempt (password, connection, login, every list, goodbye), not only for each wait.
    // `afterCheck`: called with the logged-in sync when a check passed, before the goodbye.
    static AccountSync::Result attempt(const BridgeConfig::Account& account,
                                       const AccountWorker::PasswordSource& passwords, int timeoutSeconds,
                                       bool checkOnly,
                                       const std::function<void(AccountSync&)>& afterCheck = {});
    // What an earlier bridge, killed while writing, left in the shared folder.
    void removeLeftovers();

    BridgeConfig m_config;
    SnapshotWriter m_writer;
    BridgeStatus m_status;
    AccountWorker::PasswordSource m_passwords;
    AccountWorker::Timing m_timing;
    CommandCenter m_commands;
    SignInPrompt m_signIn;
    std::vector<Running> m_workers;
    std::vector<Running> m_retired; // stopped, their threads not yet ended
    int m_nextWorkerId = 1;
    std::unique_ptr<ConfigWatch> m_watch;
    QString m_refusal;              // why bridge.conf was last refused; said once per reason
    QMap<QString, QString> m_mails; // account name -> mail
    QMap<QString, bool> m_failing;  // account name -> whether its last attempt failed
    // account name -> when the read last written began: the account's thread and a command each
    // read the lists, and a read that began earlier but ended later is not written over a newer one
    QMap<QString, qint64> m_writtenRead;
};

} // namespace corvina
