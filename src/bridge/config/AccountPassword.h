#pragma once

#include "BridgeConfig.h"
#include "SecretStore.h"

#include <QString>
#include <optional>

namespace corvina {

// Where an account's password comes from: its passwordCommand when bridge.conf names one, else the
// desktop's Secret Service, where `account add` (or `account password`) put it.
class AccountPassword {
public:
    // The key an account's password is stored under in the Secret Service.
    static SecretStore::Key keyOf(const BridgeConfig::Account& account);
    // The label a person browsing the keyring sees.
    static QString labelOf(const BridgeConfig::Account& account);

    // The password, or nothing with `error` set to one line saying why and what to do.
    static std::optional<QString> obtain(const BridgeConfig::Account& account, QString* error,
                                         int timeoutMs = SecretStore::DefaultTimeoutMs);
};

} // namespace corvina
