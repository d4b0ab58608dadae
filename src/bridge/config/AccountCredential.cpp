#include "AccountCredential.h"

#include "AccountPassword.h"
#include "PasswordCommand.h"

namespace corvina {

AccountCredential AccountCredential::token(QString token) {
    return AccountCredential(std::move(token), true);
}

std::optional<AccountCredential> AccountCredential::obtain(const BridgeConfig::Account& account,
                                                           QString* error, int timeoutMs) {
    auto fail = [error](const QString& why) -> std::optional<AccountCredential> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    switch (account.auth) {
    case BridgeConfig::Auth::Password: {
        std::optional<QString> password = AccountPassword::obtain(account, error, timeoutMs);
        if (!password)
            return std::nullopt;
        return AccountCredential(std::move(*password));
    }
    case BridgeConfig::Auth::OAuth2: {
        if (account.tokenCommand.isEmpty())
            return fail(QStringLiteral("auth = oauth2 with oauthProvider %1: this bridge cannot sign in "
                                       "with a provider; use a tokenCommand")
                            .arg(account.oauthProvider));
        std::optional<QString> token = PasswordCommand::run(
            account.tokenCommand, error, timeoutMs, QStringLiteral("tokenCommand"), QStringLiteral("token"));
        if (!token)
            return std::nullopt;
        return AccountCredential::token(std::move(*token));
    }
    case BridgeConfig::Auth::Goa:
        break;
    }
    return fail(QStringLiteral("auth = goa: this bridge cannot read the desktop's online accounts"));
}

void AccountCredential::refused(const BridgeConfig::Account& account) {
    // A tokenCommand is asked again at the next obtain(): nothing is kept here to forget.
    Q_UNUSED(account);
}

} // namespace corvina
