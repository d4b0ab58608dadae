#pragma once

#include "BridgeConfig.h"
#include "SecretStore.h"

#include <QString>
#include <optional>

namespace corvina {

// What an account logs in with, by its `auth`: a password (auth = password: AccountPassword, its
// passwordCommand or the Secret Service), an OAuth 2 access token (auth = oauth2: printed by its
// tokenCommand, or from the bridge's own sign-in with an oauthProvider, OAuthTokens), or what the
// desktop's online accounts give for it (auth = goa: DesktopAccounts, a token or a password, asked
// at every call). Never logged, never written anywhere by the bridge.
class AccountCredential {
public:
    // A password: the common case, so a password converts without a word (the places that log in
    // and their tests pass one as it is).
    AccountCredential(QString password) : m_secret(std::move(password)) {} // NOLINT: deliberate
    static AccountCredential token(QString token);

    bool isToken() const { return m_token; }
    const QString& secret() const { return m_secret; }

    // How the account's `lastError` starts when a person must sign in again (a refresh the
    // provider refused); what follows names the command to run.
    static constexpr const char* SignInNeeded = "sign-in needed: ";

    // What `account` logs in with now, or nothing with `error` set to one line saying why and what
    // to do. A tokenCommand is run at every call, so a second call after a refused token gives the
    // command's new token.
    static std::optional<AccountCredential> obtain(const BridgeConfig::Account& account, QString* error,
                                                   int timeoutMs = SecretStore::DefaultTimeoutMs);
    // The server refused the token obtain() gave: whatever keeps it forgets it, so that the next
    // obtain() fetches another (for auth = goa: asks the desktop's service to check the sign-in
    // first, which makes it refresh the token).
    static void refused(const BridgeConfig::Account& account);

private:
    AccountCredential(QString secret, bool token) : m_secret(std::move(secret)), m_token(token) {}

    QString m_secret;
    bool m_token = false;
};

} // namespace corvina
