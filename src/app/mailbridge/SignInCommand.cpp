#include "SignInCommand.h"

#include "bridge/config/BrowserSignIn.h"
#include "bridge/service/BridgeNudge.h"

namespace corvina {

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
    BrowserSignIn::Options options;
    options.waitMs = m_waitSeconds * 1000;
    options.requestTimeoutMs = m_requestSeconds * 1000;
    options.progress = [this](const QString& line) { m_out << line << Qt::endl; };
    QString error;
    if (!BrowserSignIn::run(*account, options, &error)) {
        m_err << "corvina-mail-bridge: " << account->name << ": sign-in failed: " << error << Qt::endl;
        return Failed;
    }
    m_out << account->name << ": signed in as " << account->mail
          << "; the sign-in is kept in the Secret Service" << Qt::endl;
    // A new sign-in changes no file the running bridge follows: told, as the Accounts window tells
    // it, so that an account waiting with "sign-in needed" tries at once.
    BridgeNudge::sendBeforeExit();
    return Ok;
}

} // namespace corvina
