#include "CommandWorker.h"

#include <QDeadlineTimer>
#include <QMetaObject>
#include <QThread>
#include <QTimer>
#include <atomic>

namespace corvina {

CommandWorker::CommandWorker(BridgeConfig::Account account, QString cacheFolder, int timeoutSeconds,
                             AccountWorker::PasswordSource passwords, QObject* parent)
    : QObject(parent), m_account(std::move(account)), m_cacheFolder(std::move(cacheFolder)),
      m_timeoutSeconds(timeoutSeconds), m_passwords(std::move(passwords)) {
    qRegisterMetaType<corvina::MessageCommand::Outcome>();
    m_thread = std::make_unique<QThread>();
    m_thread->setObjectName(QStringLiteral("commands ") + m_account.name);
    m_context = std::make_unique<QObject>();
    m_context->moveToThread(m_thread.get());
    m_command = std::make_unique<MessageCommand>(m_account, m_cacheFolder, m_timeoutSeconds);
    m_idleClose = std::make_unique<QTimer>();
    m_idleClose->setSingleShot(true);
    m_idleClose->moveToThread(m_thread.get());
    connect(m_idleClose.get(), &QTimer::timeout, m_context.get(),
            [command = m_command.get()] { command->close(); });
    connect(m_thread.get(), &QThread::started, m_context.get(), &AccountWorker::blockProcessSignals,
            Qt::DirectConnection);
    // All three are destroyed on the thread that used them last; the owner waits for it to finish
    // before it goes. The timer first: it closes the command's connection.
    connect(m_thread.get(), &QThread::finished, m_context.get(), [this] {
        m_idleClose.reset();
        m_command.reset();
        m_context.reset();
    });
    m_thread->start();
}

CommandWorker::~CommandWorker() {
    stop(-1);
}

void CommandWorker::enqueue(MessageCommand::Action action, const QString& messageId, int ticket) {
    QMetaObject::invokeMethod(
        m_context.get(),
        [this, action, messageId, ticket] {
            // A password (or token) is asked for only when a connection must be made: the Secret
            // Service and password commands are not bothered for every command of a row of them.
            // The one that made the connection is kept for the command's own reconnection, if it
            // needs one.
            if (!m_command->isConnected()) {
                QString error;
                m_credential = m_passwords(m_account, &error);
                if (!m_credential) {
                    MessageCommand::Outcome outcome;
                    outcome.failure = MessageCommand::Failure::LoginRefused;
                    outcome.error = MessageCommand::actionName(action) + QStringLiteral(": ") + error;
                    emit finished(ticket, outcome);
                    return;
                }
            }
            MessageCommand::Outcome outcome = m_command->run(action, messageId, *m_credential);
            if (outcome.failure == MessageCommand::Failure::LoginRefused && m_credential->isToken()) {
                // A token may have run out since it was fetched: one fresh token, one more try.
                QString error;
                AccountCredential::refused(m_account);
                m_credential = m_passwords(m_account, &error);
                if (!m_credential) {
                    outcome.error = error.startsWith(QLatin1String(AccountCredential::SignInNeeded))
                                        ? MessageCommand::actionName(action) + QStringLiteral(": ") + error
                                        : outcome.error + QStringLiteral("; no new token: ") + error;
                    emit finished(ticket, outcome);
                    return;
                }
                outcome = m_command->run(action, messageId, *m_credential);
                if (outcome.failure == MessageCommand::Failure::LoginRefused)
                    outcome.error = MessageCommand::actionName(action) +
                                    QStringLiteral(": the server refused a new token too: ") +
                                    outcome.error.section(QStringLiteral(": "), 1, -1);
            }
            emit finished(ticket, outcome);
            m_idleClose->start(m_idleCloseMs);
        },
        Qt::QueuedConnection);
}

bool CommandWorker::stop(int timeoutMs) {
    // No early return on !isRunning(): that is already false while the thread is finishing, with
    // the command and its context still being destroyed there, and the owner must wait for that.
    // wait() answers at once for a thread that is done.
    m_thread->quit();
    return m_thread->wait(timeoutMs < 0 ? QDeadlineTimer(QDeadlineTimer::Forever)
                                        : QDeadlineTimer(timeoutMs));
}

} // namespace corvina
