#include "BridgeCommand.h"

#include "bridge/config/AccountPassword.h"
#include "bridge/sync/AccountSync.h"
#include "bridge/sync/BridgeStatus.h"
#include "bridge/sync/SnapshotWriter.h"

namespace corvina {

BridgeCommand::BridgeCommand(BridgeConfig config, QTextStream& out, QTextStream& err, int timeoutSeconds)
    : m_config(std::move(config)), m_out(out), m_err(err), m_timeoutSeconds(timeoutSeconds) {}

std::optional<QString> BridgeCommand::password(const BridgeConfig::Account& account, QString* error) {
    return AccountPassword::obtain(account, error);
}

QDeadlineTimer BridgeCommand::attemptDeadline() const {
    // A person reads --timeout as "this account is given up after that long": one deadline for the
    // whole attempt (connection, login, every list, goodbye), not only for each wait.
    return QDeadlineTimer(qint64(m_timeoutSeconds) * 1000);
}

int BridgeCommand::once() {
    if (!m_config.exists()) {
        m_err << "corvina-mail-bridge: no accounts: " << m_config.path() << " does not exist" << Qt::endl;
        return AccountFailed;
    }
    const std::optional<QString> data = SnapshotWriter::defaultDataFolder();
    if (!data) {
        m_err << "corvina-mail-bridge: no shared folder (CORVINA_GROUP_CONTAINER is set but empty)"
              << Qt::endl;
        return AccountFailed;
    }
    SnapshotWriter writer(*data);
    QString error;
    // What an earlier run, killed while writing, left behind; quiet unless it cannot be removed,
    // which is said but fails nothing (the leftovers are hidden from every reader).
    if (writer.removeLeftovers(&error) < 0)
        m_err << "corvina-mail-bridge: temporary files left behind were not removed: " << error << Qt::endl;
    if (!writer.writeAccounts(SnapshotWriter::accountsFromConfig(m_config), &error)) {
        m_err << "corvina-mail-bridge: " << error << Qt::endl;
        return AccountFailed;
    }
    // The same status file as the foreground mode, so that a timer running --once keeps it too.
    BridgeStatus statusFile(BridgeStatus::defaultPath());
    QStringList names;
    int status = Ok;
    auto failed = [&](const BridgeConfig::Account& account, const QString& why) {
        m_err << account.name << ": " << why << Qt::endl;
        statusFile.recordFailure(account.name, account.mail, why, QDateTime::currentDateTimeUtc());
        status = AccountFailed;
    };
    for (const BridgeConfig::Account& account : m_config.accounts()) {
        names << account.name;
        if (!account.problem.isEmpty()) {
            failed(account, account.problem);
            continue;
        }
        if (!account.enabled)
            continue;
        const std::optional<QString> secret = password(account, &error);
        if (!secret) {
            failed(account, error);
            continue;
        }
        AccountSync sync(account, m_timeoutSeconds);
        sync.session().setDeadline(attemptDeadline());
        const AccountSync::Result result = sync.run(*secret);
        if (!result.ok) {
            failed(account, result.error);
            continue;
        }
        if (!writer.writeSnapshots(account.mail, result.snapshots, &error)) {
            failed(account, error);
            continue;
        }
        statusFile.recordSync(account.name, account.mail, QDateTime::currentDateTimeUtc());
    }
    statusFile.keepOnly(names);
    if (!statusFile.write(&error)) {
        m_err << "corvina-mail-bridge: " << error << Qt::endl;
        status = AccountFailed;
    }
    return status;
}

int BridgeCommand::listAccounts() {
    for (const BridgeConfig::Account& a : m_config.accounts()) {
        QStringList fields{a.name, a.mail, QStringLiteral("%1@%2:%3").arg(a.user, a.host).arg(a.port),
                           BridgeConfig::securityName(a.security),
                           a.enabled ? QStringLiteral("enabled") : QStringLiteral("disabled")};
        if (!a.problem.isEmpty())
            fields << QStringLiteral("problem: ") + a.problem;
        m_out << fields.join(u'\t') << Qt::endl;
    }
    if (!m_config.exists())
        m_err << "corvina-mail-bridge: " << m_config.path() << " does not exist" << Qt::endl;
    return Ok;
}

int BridgeCommand::check(const QString& name) {
    QList<BridgeConfig::Account> accounts;
    if (!name.isEmpty()) {
        const BridgeConfig::Account* account = m_config.account(name);
        if (account == nullptr) {
            m_err << "corvina-mail-bridge: no account " << name << " in " << m_config.path() << Qt::endl;
            return UsageError;
        }
        accounts.append(*account);
    } else {
        for (const BridgeConfig::Account& a : m_config.accounts()) {
            if (a.enabled || !a.problem.isEmpty())
                accounts.append(a);
        }
        if (accounts.isEmpty()) {
            m_err << "corvina-mail-bridge: no enabled account in " << m_config.path() << Qt::endl;
            return AccountFailed;
        }
    }
    int status = Ok;
    for (const BridgeConfig::Account& account : accounts) {
        if (!account.problem.isEmpty()) {
            m_out << account.name << ": " << account.problem << Qt::endl;
            status = AccountFailed;
            continue;
        }
        QString error;
        const std::optional<QString> secret = password(account, &error);
        if (!secret) {
            m_out << account.name << ": " << error << Qt::endl;
            status = AccountFailed;
            continue;
        }
        AccountSync sync(account, m_timeoutSeconds);
        sync.session().setDeadline(attemptDeadline());
        const AccountSync::Result result = sync.check(*secret);
        if (result.ok) {
            m_out << account.name << ": ok" << Qt::endl;
        } else {
            m_out << account.name << ": " << result.error << Qt::endl;
            status = AccountFailed;
        }
    }
    return status;
}

} // namespace corvina
