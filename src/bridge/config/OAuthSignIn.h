#pragma once

#include "OAuthEndpoints.h"

#include <QString>
#include <QUrl>
#include <functional>

namespace corvina {

// An account's OAuth 2 sign-in in the person's browser, the authorization-code flow for native
// apps (RFC 8252): a listener on 127.0.0.1 and a free port, the provider's authorization page
// opened with a random `state`, PKCE (S256) and the account's mail as `login_hint`, the redirect
// checked, the code traded for tokens, and the refresh token kept in the Secret Service. The
// access token of the sign-in is dropped: the bridge gets a fresh one through OAuthTokens.
//
// For oauthProvider = discover without a client id it first registers the bridge with the
// provider (RFC 7591) and keeps the client id beside the refresh token.
//
// Runs an event loop on the calling thread until it is done: the `account signin` subcommand
// calls it on its main thread, the Accounts window on a thread of its own (BrowserSignIn).
class OAuthSignIn {
public:
    struct Options {
        // How long to wait for the browser's redirect: a person may have to type a password first.
        int waitMs = 5 * 60 * 1000;
        // Each request to the provider (metadata, registration, the code's trade).
        int requestTimeoutMs = 30000;
        int secretTimeoutMs = 60000;
        // Opens the authorization page; false with *error set when no browser could be started.
        std::function<bool(const QUrl& url, QString* error)> openBrowser;
        // Tells the person what happens ("Waiting for the browser..."), one line each.
        std::function<void(const QString& line)> progress;
        // Asked a few times a second while the browser is awaited, from the sign-in's own thread:
        // true ends the wait (a window's Cancel). Unset: only the wait's deadline ends it.
        std::function<bool()> cancelled;
    };

    // How often `cancelled` is asked while the browser is awaited.
    static constexpr int CancelPollMs = 100;

    // What the browser is shown once the redirect arrived.
    static QString signedInPage();

    // True once the refresh token is stored; else false with *error one line.
    static bool run(const OAuthEndpoints::Settings& settings, const Options& options, QString* error);

    // PKCE (RFC 7636): a verifier of 43 characters from 32 random bytes, and its S256 challenge.
    static QString makeVerifier();
    static QString challengeOf(const QString& verifier);
};

} // namespace corvina
