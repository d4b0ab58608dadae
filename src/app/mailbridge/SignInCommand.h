#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QString>
#include <QTextStream>

namespace corvina {

// `account signin ACCOUNT`: the OAuth 2 sign-in of an account with auth = oauth2 and an
// oauthProvider, in the person's browser: BrowserSignIn, which the Accounts window runs too.
class SignInCommand {
public:
    enum Status : int { Ok = 0, Failed = 1, UsageError = 2 };

    // `waitSeconds`: how long to wait for the browser; `requestSeconds`: each request to the provider.
    SignInCommand(BridgeConfig config, QTextStream& out, QTextStream& err, int waitSeconds,
                  int requestSeconds);

    int exec(const QString& account);

private:
    BridgeConfig m_config;
    QTextStream& m_out;
    QTextStream& m_err;
    int m_waitSeconds;
    int m_requestSeconds;
};

} // namespace corvina
