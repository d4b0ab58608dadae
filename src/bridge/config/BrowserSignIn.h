#pragma once

#include "BridgeConfig.h"

#include <QString>
#include <QUrl>
#include <functional>

namespace corvina {

// An account's sign-in in the person's browser, as `account signin` and the Accounts window both
// run it: the account checked for a sign-in of the bridge's own (auth = oauth2 with an
// oauthProvider), the browser the environment names, then OAuthSignIn, which keeps the refresh
// token in the Secret Service and nowhere else.
//
// Runs an event loop on the calling thread until it is done (the command's main thread, or a
// window's worker thread): it may wait minutes for the browser, so a window never calls it on
// its GUI thread.
class BrowserSignIn {
public:
    struct Options {
        // How long to wait for the browser; each request to the provider; each keyring call.
        int waitMs = 5 * 60 * 1000;
        int requestTimeoutMs = 30000;
        int secretTimeoutMs = 60000;
        // One line each of what happens (in the sign-in's own words), from the calling thread.
        std::function<void(const QString& line)> progress;
        // True ends the wait for the browser (see OAuthSignIn::Options::cancelled).
        std::function<bool()> cancelled;
    };

    // Why `account` cannot sign in in the browser (a broken group, or one that logs in otherwise),
    // or empty.
    static QString problem(const BridgeConfig::Account& account);

    // Opens `url` in the browser: the environment's BROWSER when set (one program and its words,
    // given the address as its last argument), else xdg-open. The browser is left running: it is
    // the person's. False with *error set when it cannot be started.
    static bool openBrowser(const QUrl& url, QString* error);

    // True once the account's refresh token is kept; else false with *error one line (the words
    // that follow "sign-in failed: ").
    static bool run(const BridgeConfig::Account& account, const Options& options, QString* error);
};

} // namespace corvina
