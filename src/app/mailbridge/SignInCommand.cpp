#include "SignInCommand.h"

#include "bridge/config/CommandLine.h"
#include "bridge/config/OAuthSignIn.h"
#include "bridge/config/OAuthTokens.h"

#include <QProcess>
#include <QProcessEnvironment>

namespace corvina {

namespace {

// Starts the browser on `url` and leaves it running: it is the person's, not ours.
bool openBrowser(const QUrl& url, QString* error) {
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

} // namespace

SignInCommand::SignInCommand(BridgeConfig config, QTextStream& out, QTextStream& err, int waitSeconds,
                             int requestSeconds)
    : m_config(std::move(config)), m_out(out), m_err(err), m_waitSeconds(waitSeconds),
      m_requestSeconds(requestSeconds) {}

int SignInCommand::exec(const QString& name) {
    const BridgeConfig::Account* account = m_config.account(name);
    if (account == nullptr) {
        m_err << "corvina-mail-bridge: no account " << name << " in " << m_config.path() << Qt::endl;
        return UsageError;
    }
    const auto refuse = [this, account](const QString& why) {
        m_err << "corvina-mail-bridge: " << account->name << ": sign-in failed: " << why << Qt::endl;
        return Failed;
    };
    if (!account->problem.isEmpty())
        return refuse(account->problem);
    if (account->auth != BridgeConfig::Auth::OAuth2 || account->oauthProvider.isEmpty())
        return refuse(
            QStringLiteral("the account does not sign in with OAuth 2 (it needs auth = oauth2 and an "
                           "oauthProvider)"));
    OAuthSignIn::Options options;
    options.waitMs = m_waitSeconds * 1000;
    options.requestTimeoutMs = m_requestSeconds * 1000;
    options.openBrowser = openBrowser;
    options.progress = [this](const QString& line) { m_out << line << Qt::endl; };
    QString error;
    if (!OAuthSignIn::run(OAuthTokens::settingsOf(*account), options, &error))
        return refuse(error);
    m_out << account->name << ": signed in as " << account->mail
          << "; the sign-in is kept in the Secret Service" << Qt::endl;
    return Ok;
}

} // namespace corvina
