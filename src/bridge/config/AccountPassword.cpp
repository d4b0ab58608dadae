#include "AccountPassword.h"

#include "PasswordCommand.h"

namespace corvina {

SecretStore::Key AccountPassword::keyOf(const BridgeConfig::Account& account) {
    return {account.name, account.user, account.host};
}

QString AccountPassword::labelOf(const BridgeConfig::Account& account) {
    return QStringLiteral("Corvina mail password for %1 (%2 on %3)")
        .arg(account.mail, account.user, account.host);
}

std::optional<QString> AccountPassword::obtain(const BridgeConfig::Account& account, QString* error,
                                               int timeoutMs) {
    if (!account.passwordCommand.isEmpty())
        return PasswordCommand::run(account.passwordCommand, error, timeoutMs);
    const SecretStore::Lookup found = SecretStore(timeoutMs).lookup(keyOf(account));
    if (!found.error.isEmpty()) {
        if (error)
            *error = found.error;
        return std::nullopt;
    }
    if (!found.password || found.password->isEmpty()) {
        if (error)
            *error = QStringLiteral("no password stored for %1 (%2 on %3): run corvina-mail-bridge account "
                                    "password %4, or set a passwordCommand")
                         .arg(account.mail, account.user, account.host, account.name);
        return std::nullopt;
    }
    return found.password;
}

} // namespace corvina
