#include "BridgeCommand.h"

#include "bridge/service/LiveBridge.h"

namespace corvina {

BridgeCommand::BridgeCommand(BridgeConfig config, QTextStream& out, QTextStream& err, int timeoutSeconds)
    : m_config(std::move(config)), m_out(out), m_err(err), m_timeoutSeconds(timeoutSeconds) {}

int BridgeCommand::once() {
    QString error;
    const std::unique_ptr<LiveBridge> bridge =
        LiveBridge::create(m_config, LiveBridge::Purpose::SyncOnce, m_timeoutSeconds, &error);
    if (!bridge) {
        m_err << "corvina-mail-bridge: " << error << Qt::endl;
        return AccountFailed;
    }
    QObject::connect(bridge.get(), &LiveBridge::log, bridge.get(),
                     [this](const QString& line) { m_err << line << Qt::endl; });
    QObject::connect(bridge.get(), &LiveBridge::problem, bridge.get(),
                     [this](const QString& line) { m_err << "corvina-mail-bridge: " << line << Qt::endl; });
    return bridge->syncOnce() ? Ok : AccountFailed;
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
        const AccountSync::Result result = LiveBridge::checkAccount(account, m_timeoutSeconds);
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
