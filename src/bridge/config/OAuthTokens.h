#pragma once

#include "BridgeConfig.h"
#include "OAuthEndpoints.h"
#include "SecretStore.h"

#include <QString>
#include <optional>

namespace corvina {

// An account's access token for auth = oauth2 with an oauthProvider: from memory while it is
// fresh, else refreshed with the refresh token kept in the Secret Service.
//
// The access token is never written anywhere: it lives in this process's memory until it is
// within a minute of its expiry (then the next call refreshes it) or the server refuses it
// (forget()). A refresh answer with a new refresh token replaces the stored one. Safe to call from
// any thread: the follower and command threads of every account may ask at once. Two threads of
// one account wait for one refresh (a provider that rotates refresh tokens would refuse the second
// of two refreshes made with the same one); other accounts never wait for it.
class OAuthTokens {
public:
    enum class Failure { None, SignInNeeded, Unreachable, Other };

    // Refreshed this long before it expires, so that a token is not handed out to expire while the
    // server checks it.
    static constexpr int RefreshMarginSeconds = 60;
    // Used when the provider does not say how long a token lives: the usual hour. A token refused
    // earlier is forgotten and refreshed anyway.
    static constexpr int AssumedLifetimeSeconds = 3600;

    // A token to log in with, or nothing with *error one line and *failure set.
    static std::optional<QString> accessToken(const BridgeConfig::Account& account, QString* error,
                                              Failure* failure, int timeoutMs);
    // Forgets the cached access token of `account` (the server refused it), so the next
    // accessToken() refreshes.
    static void forget(const BridgeConfig::Account& account);

    // The same, for an account's sign-in settings as plain text.
    static std::optional<QString> accessToken(const OAuthEndpoints::Settings& settings, QString* error,
                                              Failure* failure, int timeoutMs);
    static void forget(const OAuthEndpoints::Settings& settings);

    // An account's sign-in settings, from its keys.
    static OAuthEndpoints::Settings settingsOf(const BridgeConfig::Account& account);
    // The key the refresh token of `settings` is kept under at provider `issuer`.
    static SecretStore::TokenKey refreshTokenKey(const OAuthEndpoints::Settings& settings,
                                                 const QString& issuer);
    // The label a person browsing the keyring sees for it.
    static QString refreshTokenLabel(const OAuthEndpoints::Settings& settings, const QString& issuer);
    // The line that tells a person to sign in again, starting "sign-in needed: ".
    static QString signInNeeded(const OAuthEndpoints::Settings& settings, const QString& why);
    // Forgets every cached access token (tests start each from nothing).
    static void forgetAll();
};

} // namespace corvina
