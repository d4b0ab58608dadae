#pragma once

#include "MessageCommand.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/AccountWorker.h"

#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>
#include <memory>
#include <optional>

namespace corvina {

// Carries out the widget's commands for one account, one after the other, on a thread of its own
// with a connection of its own: the account's follower stays in IDLE meanwhile, and a slow server
// never holds up the main thread, which must answer the next D-Bus call at once.
//
// The connection is kept for the next command (a person archiving five messages in a row pays
// for one login) and closed after a while without commands.
class CommandWorker : public QObject {
    Q_OBJECT
public:
    // How long a connection without commands is kept.
    static constexpr int IdleCloseMs = 5 * 60 * 1000;

    CommandWorker(BridgeConfig::Account account, QString cacheFolder, int timeoutSeconds,
                  AccountWorker::PasswordSource passwords, QObject* parent = nullptr);
    // Waits for the command under way (bounded by the network timeout).
    ~CommandWorker() override;

    const BridgeConfig::Account& account() const { return m_account; }

    // IdleCloseMs unless set, before the first enqueue() (the worker's thread reads it).
    int idleCloseMs() const { return m_idleCloseMs; }
    void setIdleCloseMs(int milliseconds) { m_idleCloseMs = milliseconds; }

    // Queues a command; `ticket` comes back with its outcome.
    void enqueue(MessageCommand::Action action, const QString& messageId, int ticket);
    // Lets the command under way finish and drops the queued ones; waits up to `timeoutMs`.
    bool stop(int timeoutMs);

signals:
    // Emitted on the worker's thread; connect queued.
    void finished(int ticket, const corvina::MessageCommand::Outcome& outcome);

private:
    BridgeConfig::Account m_account;
    QString m_cacheFolder;
    int m_timeoutSeconds;
    AccountWorker::PasswordSource m_passwords;
    std::unique_ptr<QThread> m_thread;
    // All three live on m_thread and are destroyed there when it finishes.
    std::unique_ptr<QObject> m_context; // the queue is its event queue
    std::unique_ptr<MessageCommand> m_command;
    std::unique_ptr<QTimer> m_idleClose;           // started again after each command; closes the connection
    std::optional<AccountCredential> m_credential; // used on m_thread only
    int m_idleCloseMs = IdleCloseMs;
};

} // namespace corvina
