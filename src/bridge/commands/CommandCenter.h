#pragma once

#include "MessageCommand.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/AccountSync.h"
#include "bridge/sync/AccountWorker.h"
#include "model/CommandKind.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace corvina {

class CommandWorker;
class DesktopNotifier;
class HostCommand;
class MailClient;

// Carries out the command URLs that reach the bridge as the mail application (the widget's open,
// reply, archive and delete; the share command's compose): each message command on its account's
// own CommandWorker, the mail client started for open, reply and compose, and every failure shown
// as a desktop notification and reported for the status file. A malformed URL is refused with a
// log line and nothing else.
//
// Lives on the main thread; what the commands read from the server again comes back through
// `synced`, for the owner to write like any other sync.
class CommandCenter : public QObject {
    Q_OBJECT
public:
    CommandCenter(BridgeConfig config, AccountWorker::PasswordSource passwords, int timeoutSeconds,
                  QString cacheFolder, QObject* parent = nullptr);
    ~CommandCenter() override;

    // The URLs of one request, in order, with the caller's platform data (its activation token
    // goes on to the mail client, so that the client may come to the front).
    void open(const QStringList& uris, const QVariantMap& platformData);
    // Nothing queued, under way, or waiting for a mail client to start.
    bool isIdle() const { return m_pending == 0; }
    // Lets the commands under way finish (up to `timeoutMs`) and drops the queued ones.
    bool stop(int timeoutMs);
    // The accounts as bridge.conf says now (the running bridge read it again): commands for an
    // account added are taken, for one removed or turned off refused. The connection kept for an
    // account whose settings changed is closed, so that its next command uses the new ones; one
    // with a command under way keeps it until that is done.
    void setConfig(const BridgeConfig& config);

    // Whether failures are shown as desktop notifications (the default); the log and the status
    // file hear of them either way.
    void setNotifying(bool notifying) { m_notifying = notifying; }

    // The title of the notification that a command of `kind` failed, in the person's language:
    // what they asked for and did not get.
    static QString failureTitle(CommandKind kind);

signals:
    void log(const QString& line);
    // The lists of `account` (its group name) as read right after a command changed them.
    void synced(const QString& account, const QList<corvina::AccountSync::Snapshot>& snapshots,
                const QDateTime& when, qint64 readStarted);
    // A command was carried out, or failed with `error`; `mail` is the account as the command named it.
    void commandDone(corvina::CommandKind kind, const QString& mail, bool ok, const QString& error);
    // A URL that is no command the bridge carries out; it was logged and nothing was done.
    void refused(const QString& uri, const QString& error);
    // The last pending command ended.
    void idle();

private:
    struct Pending {
        CommandKind kind = CommandKind::Open;
        QString mail;
        QString account;
        QString token;
    };

    void start(const HostCommand& command, const QString& token);
    CommandWorker* workerFor(const BridgeConfig::Account& account);
    void commandFinished(int ticket, const MessageCommand::Outcome& outcome);
    // The end of one pending command.
    void finish(CommandKind kind, const QString& mail, bool ok, const QString& error);
    // The hand-off to the mail client, which ends the command when the client has started.
    void handOff(CommandKind kind, const QString& mail, bool started, const QString& error);
    const BridgeConfig::Account* accountFor(const QString& mail, QString* error) const;

    BridgeConfig m_config;
    AccountWorker::PasswordSource m_passwords;
    int m_timeoutSeconds;
    QString m_cacheFolder;
    QHash<QString, CommandWorker*> m_workers; // by account name
    QHash<int, Pending> m_tickets;
    int m_nextTicket = 1;
    int m_pending = 0;
    bool m_notifying = true;
    MailClient* m_mailClient = nullptr;
    DesktopNotifier* m_notifier = nullptr;
};

} // namespace corvina
