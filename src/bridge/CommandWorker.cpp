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
    m_thread = new QThread;
    m_thread->setObjectName(QStringLiteral("commands ") + m_account.name);
    m_context = new QObject;
    m_context->moveToThread(m_thread);
    m_command = new MessageCommand(m_account, m_cacheFolder, m_timeoutSeconds);
    connect(m_thread, &QThread::started, m_context, &AccountWorker::blockProcessSignals,
            Qt::DirectConnection);
    // Both are destroyed on the thread that used them last.
    connect(m_thread, &QThread::finished, m_context, [context = m_context, command = m_command] {
        delete command;
        delete context;
    });
    m_thread->start();
}

CommandWorker::~CommandWorker() {
    stop(-1);
    delete m_thread;
}

void CommandWorker::enqueue(MessageCommand::Action action, const QString& messageId, int ticket) {
    QMetaObject::invokeMethod(
        m_context,
        [this, action, messageId, ticket] {
            // A password is asked for only when a connection must be made: the Secret Service and
            // password commands are not bothered for every command of a row of them. The one that
            // made the connection is kept for the command's own reconnection, if it needs one.
            if (!m_command->isConnected()) {
                QString error;
                const std::optional<QString> found = m_passwords(m_account, &error);
                if (!found) {
                    MessageCommand::Outcome outcome;
                    outcome.failure = MessageCommand::Failure::LoginRefused;
                    outcome.error = MessageCommand::actionName(action) + QStringLiteral(": ") + error;
                    emit finished(ticket, outcome);
                    return;
                }
                m_password = *found;
            }
            emit finished(ticket, m_command->run(action, messageId, m_password));

            // One timer per worker, started again after each command, closes an unused connection.
            auto* idle = m_context->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
            if (!idle) {
                idle = new QTimer(m_context);
                idle->setSingleShot(true);
                connect(idle, &QTimer::timeout, m_context, [command = m_command] { command->close(); });
            }
            idle->start(IdleCloseMs);
        },
        Qt::QueuedConnection);
}

bool CommandWorker::stop(int timeoutMs) {
    if (!m_thread->isRunning())
        return true;
    m_thread->quit();
    return m_thread->wait(timeoutMs < 0 ? QDeadlineTimer(QDeadlineTimer::Forever)
                                        : QDeadlineTimer(timeoutMs));
}

} // namespace corvina
