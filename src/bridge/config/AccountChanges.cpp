#include "AccountChanges.h"

#include "AccountPassword.h"

namespace corvina {

AccountChanges::AccountChanges(QString configPath, int secretTimeoutMs)
    : m_path(std::move(configPath)), m_secrets(secretTimeoutMs) {}

bool AccountChanges::addWithPassword(const AccountGroup& group, const BridgeConfig::Account& account,
                                     const QString& password, QString* error) const {
    QString why;
    if (!m_secrets.store(AccountPassword::keyOf(account), AccountPassword::labelOf(account), password,
                         &why)) {
        if (error)
            *error = QStringLiteral("%1; nothing was written (a passwordCommand in bridge.conf is the other "
                                    "way, see docs/bridge.md)")
                         .arg(why);
        return false;
    }
    if (!group.writeTo(m_path, &why)) {
        QString ignored;
        m_secrets.clear(group.name(), &ignored);
        if (error)
            *error = why;
        return false;
    }
    return true;
}

bool AccountChanges::replacePassword(const BridgeConfig::Account& account, const QString& password,
                                     QString* error) const {
    return m_secrets.store(AccountPassword::keyOf(account), AccountPassword::labelOf(account), password,
                           error);
}

bool AccountChanges::remove(const BridgeConfig::Account& account, QString* error,
                            bool* keyringCleared) const {
    QString keyringError;
    const bool cleared = m_secrets.clear(account.name, &keyringError);
    if (keyringCleared)
        *keyringCleared = cleared;
    // An account that takes its password from a command, or its secret from the desktop's online
    // accounts, may never have had one stored: without a Secret Service it can still be removed.
    if (!cleared && account.passwordCommand.isEmpty() && account.auth != BridgeConfig::Auth::Goa) {
        if (error)
            *error = QStringLiteral("%1; nothing was changed").arg(keyringError);
        return false;
    }
    return AccountGroup::removeFrom(m_path, account.name, error);
}

} // namespace corvina
