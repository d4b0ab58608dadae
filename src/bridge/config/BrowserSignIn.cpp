#include "BrowserSignIn.h"

#include "CommandLine.h"
#include "OAuthSignIn.h"
#include "OAuthTokens.h"

#include <QProcess>
#include <QProcessEnvironment>

namespace corvina {

QString BrowserSignIn::problem(const BridgeConfig::Account& account) {
    if (!account.problem.isEmpty())
        return account.problem;
    if (account.auth != BridgeConfig::Auth::OAuth2 || account.oauthProvider.isEmpty())
        return QStringLiteral("the account does not sign in with OAuth 2 (it needs auth = oauth2 and an "
                              "oauthProvider)");
    return QString();
}

bool BrowserSignIn::openBrowser(const QUrl& url, QString* error) {
    QStringList command =
        CommandLine::words(QProcessEnvironment::systemEnvironment().value(QStringLiteral("BROWSER")));
    if (command.isEmpty())
        command = {QStringLiteral("xdg-open")};
    const QString program = command.takeFirst();
    if (!QProcess::startDetached(program, command << url.toString(QUrl::FullyEncoded))) {
        if (error)
            *error = QStringLiteral("cannot start %1 to open the sign-in page").arg(program);
        return false;
    }
    return true;
}

bool BrowserSignIn::run(const BridgeConfig::Account& account, const Options& options, QString* error) {
    const QString wrong = problem(account);
    if (!wrong.isEmpty()) {
        if (error)
            *error = wrong;
        return false;
    }
    OAuthSignIn::Options signIn;
    signIn.waitMs = options.waitMs;
    signIn.requestTimeoutMs = options.requestTimeoutMs;
    signIn.secretTimeoutMs = options.secretTimeoutMs;
    signIn.openBrowser = &BrowserSignIn::openBrowser;
    signIn.progress = options.progress;
    signIn.cancelled = options.cancelled;
    return OAuthSignIn::run(OAuthTokens::settingsOf(account), signIn, error);
}

} // namespace corvina
