#include "CommandCenter.h"

#include "CommandWorker.h"
#include "HostCommand.h"
#include "MailClient.h"
#include "platform/DesktopNotifier.h"
#include "platform/Localization.h"

#include <QSet>

namespace corvina {

namespace {

// Long URLs are cut in the log: a line is for a person, and the URL may be huge.
constexpr int LoggedUrlLength = 200;

QString shortened(const QString& url) {
    return url.size() <= LoggedUrlLength ? url : url.left(LoggedUrlLength) + QStringLiteral("...");
}

} // namespace

// Translated like the widget's texts (Localization, keyed by the English text); the line under
// the title is the log's and stays in English.
QString CommandCenter::failureTitle(CommandKind kind) {
    switch (kind) {
    case CommandKind::Archive:
        return Localization::text(QStringLiteral("Could not archive the message"));
    case CommandKind::Delete:
        return Localization::text(QStringLiteral("Could not move the message to the trash"));
    case CommandKind::Open:
        return Localization::text(QStringLiteral("Could not open the message"));
    case CommandKind::Reply:
        return Localization::text(QStringLiteral("Could not start a reply"));
    case CommandKind::Compose:
    case CommandKind::Message:
    case CommandKind::Send:
        break;
    }
    return Localization::text(QStringLiteral("Could not hand the message to your mail client"));
}

CommandCenter::CommandCenter(BridgeConfig config, AccountWorker::PasswordSource passwords, int timeoutSeconds,
                             QString cacheFolder, QObject* parent)
    : QObject(parent), m_config(std::move(config)), m_passwords(std::move(passwords)),
      m_timeoutSeconds(timeoutSeconds), m_cacheFolder(std::move(cacheFolder)),
      m_mailClient(new MailClient(this)), m_notifier(new DesktopNotifier(this)) {}

CommandCenter::~CommandCenter() {
    stop(-1);
}

bool CommandCenter::stop(int timeoutMs) {
    bool all = true;
    for (CommandWorker* worker : std::as_const(m_workers))
        all = worker->stop(timeoutMs) && all;
    return all;
}

void CommandCenter::setConfig(const BridgeConfig& config) {
    m_config = config;
    QSet<QString> busy;
    for (const Pending& pending : std::as_const(m_tickets))
        busy.insert(pending.account);
    for (auto it = m_workers.begin(); it != m_workers.end();) {
        const BridgeConfig::Account* now = m_config.account(it.key());
        if ((now && *now == it.value()->account()) || busy.contains(it.key())) {
            ++it;
            continue;
        }
        // Nothing under way: the thread ends at once, bounded by the goodbye on its connection.
        delete it.value();
        it = m_workers.erase(it);
    }
}

void CommandCenter::open(const QStringList& uris, const QVariantMap& platformData) {
    // Only a foreground command carries a token; it lets the mail client come to the front.
    const QString token = platformData.value(QStringLiteral("activation-token")).toString();
    for (const QString& uri : uris) {
        QString error;
        const std::optional<HostCommand> command = HostCommand::parse(uri, &error);
        if (!command) {
            emit log(QStringLiteral("refused %1: %2").arg(shortened(uri), error));
            emit refused(uri, error);
            continue;
        }
        start(*command, token);
    }
}

const BridgeConfig::Account* CommandCenter::accountFor(const QString& mail, QString* error) const {
    const BridgeConfig::Account* found = nullptr;
    for (const BridgeConfig::Account& account : m_config.accounts()) {
        if (account.mail == mail) {
            found = &account;
            break;
        }
        // Addresses are compared without regard to case when no account has exactly this one.
        if (!found && account.mail.compare(mail, Qt::CaseInsensitive) == 0)
            found = &account;
    }
    if (!found) {
        *error = QStringLiteral("no account with the mail %1 in %2").arg(mail, m_config.path());
        return nullptr;
    }
    if (!found->problem.isEmpty()) {
        *error = QStringLiteral("account %1: %2").arg(found->name, found->problem);
        return nullptr;
    }
    if (!found->enabled) {
        *error = QStringLiteral("account %1 (%2) is disabled in %3")
                     .arg(found->name, found->mail, m_config.path());
        return nullptr;
    }
    return found;
}

void CommandCenter::start(const HostCommand& command, const QString& token) {
    const CommandKind kind = command.kind();
    ++m_pending;
    QString error;
    if (kind == CommandKind::Compose) {
        if (!command.note().isEmpty())
            emit log(command.note());
        // A draft need not name an account; when it names one of ours, that account's
        // composeCommand is used.
        const BridgeConfig::Account* account =
            command.account().isEmpty() ? nullptr : accountFor(command.account(), &error);
        const QString mail = command.account();
        m_mailClient->compose(
            account ? account->composeCommand : QString(), command.draft(), token,
            [this, kind, mail](bool ok, const QString& failure) { handOff(kind, mail, ok, failure); });
        return;
    }

    const BridgeConfig::Account* account = accountFor(command.account(), &error);
    if (!account) {
        finish(kind, command.account(), false, QStringLiteral("%1: %2").arg(commandName(kind), error));
        return;
    }
    const int ticket = m_nextTicket++;
    m_tickets.insert(ticket, Pending{kind, command.account(), account->name, token});
    workerFor(*account)->enqueue(kind, command.messageId(), ticket);
}

CommandWorker* CommandCenter::workerFor(const BridgeConfig::Account& account) {
    CommandWorker*& worker = m_workers[account.name];
    if (!worker) {
        worker = new CommandWorker(account, m_cacheFolder, m_timeoutSeconds, m_passwords, this);
        connect(worker, &CommandWorker::finished, this, &CommandCenter::commandFinished,
                Qt::QueuedConnection);
    }
    return worker;
}

void CommandCenter::commandFinished(int ticket, const MessageCommand::Outcome& outcome) {
    const Pending pending = m_tickets.take(ticket);
    if (outcome.synced)
        emit synced(pending.account, outcome.snapshots, QDateTime::currentDateTimeUtc(), outcome.readStarted);
    if (!outcome.note.isEmpty())
        emit log(QStringLiteral("%1: %2").arg(pending.account, outcome.note));
    if (!outcome.ok) {
        finish(pending.kind, pending.mail, false, outcome.error);
        return;
    }

    const BridgeConfig::Account* account = m_config.account(pending.account);
    if (pending.kind == CommandKind::Open) {
        m_mailClient->openMessage(account ? account->openCommand : QString(), outcome.messageFile,
                                  outcome.messageIdHeader, pending.token,
                                  [this, pending](bool ok, const QString& failure) {
                                      handOff(pending.kind, pending.mail, ok, failure);
                                  });
        return;
    }
    if (pending.kind == CommandKind::Reply) {
        m_mailClient->compose(account ? account->composeCommand : QString(), outcome.reply, pending.token,
                              [this, pending](bool ok, const QString& failure) {
                                  handOff(pending.kind, pending.mail, ok, failure);
                              });
        return;
    }
    finish(pending.kind, pending.mail, true, QString());
}

void CommandCenter::handOff(CommandKind kind, const QString& mail, bool started, const QString& error) {
    finish(kind, mail, started, started ? QString() : QStringLiteral("%1: %2").arg(commandName(kind), error));
}

void CommandCenter::finish(CommandKind kind, const QString& mail, bool ok, const QString& error) {
    const QString name = commandName(kind);
    if (ok) {
        emit log(QStringLiteral("%1 for %2: done").arg(name, mail));
    } else {
        emit log(error);
        if (m_notifying)
            m_notifier->notify(failureTitle(kind), error);
    }
    emit commandDone(kind, mail, ok, error);
    if (--m_pending == 0)
        emit idle();
}

} // namespace corvina
