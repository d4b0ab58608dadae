#include "AccountCredential.h"

#include "AccountPassword.h"
#include "OAuthTokens.h"
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
        if (account.tokenCommand.isEmpty()) {
            // The bridge's own sign-in: the line of a refused refresh starts with SignInNeeded.
            OAuthTokens::Failure failure = OAuthTokens::Failure::None;
            std::optional<QString> token = OAuthTokens::accessToken(account, error, &failure, timeoutMs);
            if (!token)
                return std::nullopt;
            return AccountCredential::token(std::move(*token));
        }
        std::optional<QString> token = PasswordCommand::run(
            account.tokenCommand, error, timeoutMs, QStringLiteral("tokenCommand"), QStringLiteral("token"));
        if (!token)
            return std::nullopt;
        return AccountCredential::token(std::move(*token));
    }
    case BridgeConfig::Auth::Goa:
        break;
    }
    // The key is read so that a group written for a later bridge is understood, but this one cannot
    // ask the desktop's online accounts yet: the account fails with a line saying what to do.
    return fail(QStringLiteral("auth = goa: this bridge cannot use the desktop's online accounts yet; "
                               "set auth = oauth2 or password"));
}

void AccountCredential::refused(const BridgeConfig::Account& account) {
    // A tokenCommand is asked again at the next obtain(): nothing is kept for it to forget.
    if (account.auth == BridgeConfig::Auth::OAuth2 && account.tokenCommand.isEmpty())
        OAuthTokens::forget(account);
}

} // namespace corvina
