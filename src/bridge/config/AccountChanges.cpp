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

bool AccountChanges::movesPassword(const BridgeConfig::Account& before, const BridgeConfig::Account& after) {
    return before.auth == BridgeConfig::Auth::Password && before.passwordCommand.isEmpty() &&
           after.passwordCommand.isEmpty() && (before.user != after.user || before.host != after.host);
}

bool AccountChanges::edit(const BridgeConfig::Account& before, const AccountGroup& edited,
                          const std::optional<QString>& newPassword, QString* error) const {
    const BridgeConfig::Account after = edited.read();
    if (!after.problem.isEmpty()) {
        if (error)
            *error = QStringLiteral("%1; nothing was changed").arg(after.problem);
        return false;
    }
    if (movesPassword(before, after) && (!newPassword || newPassword->isEmpty())) {
        if (error)
            *error = QStringLiteral("the server or login name changed: the password for them is needed; "
                                    "nothing was changed");
        return false;
    }
    QString why;
    if (newPassword && !newPassword->isEmpty() &&
        !m_secrets.store(AccountPassword::keyOf(after), AccountPassword::labelOf(after), *newPassword,
                         &why)) {
        if (error)
            *error = QStringLiteral("%1; nothing was changed").arg(why);
        return false;
    }
    if (!edited.replaceIn(m_path, error))
        return false;
    if (movesPassword(before, after)) {
        // Deliberately not a failure of the edit when the keyring does not answer now: the edit is
        // written and its new password stored, the old one is never handed to the new server or
        // login, and `account remove` takes it out with the rest of the account's.
        QString ignored;
        m_secrets.forget(AccountPassword::keyOf(before), &ignored);
    }
    return true;
}

bool AccountChanges::setEnabled(const BridgeConfig::Account& account, bool enabled, QString* error) const {
    const std::optional<AccountGroup> group = AccountGroup::readFrom(m_path, account.name);
    if (!group) {
        if (error)
            *error = QStringLiteral("no account %1 in %2").arg(account.name, m_path);
        return false;
    }
    return group->with({{QStringLiteral("enabled"), enabled ? QString() : QStringLiteral("false")}})
        .replaceIn(m_path, error);
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
