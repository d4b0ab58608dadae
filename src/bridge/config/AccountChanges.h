#pragma once

#include "AccountGroup.h"
#include "BridgeConfig.h"
#include "SecretStore.h"

#include <QString>
#include <optional>

namespace corvina {

// The changes to the accounts that keep bridge.conf and the Secret Service in step: an account
// added with its password, a password replaced, an account removed with whatever the keyring held
// for it. `corvina-mail-bridge account add | password | remove` and the Accounts window both make
// them through here, so that the two cannot come to differ.
//
// Each call may wait for the keyring (up to the store's timeout, longer when it asks the person to
// unlock it): a window calls it off its GUI thread. The errors are one line, in the words the
// command line prints after its "account add: " (or password, remove).
class AccountChanges {
public:
    explicit AccountChanges(QString configPath, int secretTimeoutMs = SecretStore::DefaultTimeoutMs);

    const QString& configPath() const { return m_path; }

    // Stores `password` for the account `group` makes (`account`: the group as the bridge reads it,
    // AccountGroup::read), then writes the group into bridge.conf. The password goes first: a group
    // without a password to go with it would only fail. When the file cannot be written the stored
    // password is taken out again. False, with `error` set, when anything failed: then nothing was
    // written.
    bool addWithPassword(const AccountGroup& group, const BridgeConfig::Account& account,
                         const QString& password, QString* error) const;
    // Writes `edited` (the account's group as it is to be: AccountGroup::readFrom, then with) in
    // place of the group of `before`. It is read as the bridge reads it first, and what the bridge
    // would refuse is refused with nothing written. When the server or login name changed for an
    // account whose password is in the keyring (movesPassword), the password for the new ones,
    // `newPassword`, is needed and stored first; a given `newPassword` is stored in any case. Once
    // the group is written, the password of the old server or login name is taken out of the
    // keyring: nothing would ever ask for it again.
    bool edit(const BridgeConfig::Account& before, const AccountGroup& edited,
              const std::optional<QString>& newPassword, QString* error) const;
    // Whether the keyring's password of `before` no longer serves `after`: the keyring keys a
    // password by account, login name and server, and never hands it to another server.
    static bool movesPassword(const BridgeConfig::Account& before, const BridgeConfig::Account& after);
    // Turns `account` on or off (its key `enabled`; on is the bridge's default, so the key goes).
    // The bridge honours it when it starts: a turned off account is not synced.
    bool setEnabled(const BridgeConfig::Account& account, bool enabled, QString* error) const;
    // Replaces the stored password of `account`.
    bool replacePassword(const BridgeConfig::Account& account, const QString& password, QString* error) const;
    // Takes `account` out of bridge.conf, and every password and sign-in the keyring holds for it.
    // An account that takes its password from a command, or its secret from the desktop's online
    // accounts, may never have had one stored: without a Secret Service it is still removed, and
    // `keyringCleared` (when given) says false.
    bool remove(const BridgeConfig::Account& account, QString* error, bool* keyringCleared = nullptr) const;

private:
    QString m_path;
    SecretStore m_secrets;
};

} // namespace corvina
