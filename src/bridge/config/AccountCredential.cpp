#include "AccountCredential.h"

#include "AccountPassword.h"
#include "DesktopAccounts.h"
#include "OAuthTokens.h"
#include "PasswordCommand.h"

#include <QSet>
#include <mutex>

namespace corvina {

namespace {

// The desktop's accounts whose token a server refused since it was handed out, by goaId: the next
// obtain() asks the service to check the sign-in first, which makes it refresh a token it would
// otherwise hand out again until the token's own expiry. Accounts follow on threads of their own.
std::mutex refusedMutex;
QSet<QString>& refusedDesktopTokens() {
    static QSet<QString> ids;
    return ids;
}

bool takeRefused(const QString& goaId) {
    const std::lock_guard<std::mutex> lock(refusedMutex);
    return refusedDesktopTokens().remove(goaId);
}

std::optional<AccountCredential> fromDesktop(const BridgeConfig::Account& account, QString* error,
                                             int timeoutMs) {
    auto fail = [error](const QString& why) -> std::optional<AccountCredential> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    // Looked up at every connect: the person may have removed the account, turned its mail off or
    // changed its server in the desktop's settings since it was imported.
    // The store's timeout allows for a keyring's unlock prompt; the desktop's service needs less.
    const DesktopAccounts desktop(qMin(timeoutMs, DesktopAccounts::DefaultTimeoutMs));
    const std::optional<QList<DesktopAccounts::Account>> accounts = desktop.accounts(error);
    if (!accounts)
        return std::nullopt;
    const DesktopAccounts::Account* found = nullptr;
    for (const DesktopAccounts::Account& a : *accounts) {
        if (a.id == account.goaId)
            found = &a;
    }
    if (found == nullptr)
        return fail(QStringLiteral("the desktop's online account %1 is gone; run corvina-mail-bridge account "
                                   "import again or remove this account")
                        .arg(account.goaId));
    const DesktopAccounts::Account& a = *found;
    if (!a.carriesMail())
        return fail(
            QStringLiteral("the desktop's online account %1 (%2) has mail turned off; turn it on in the "
                           "desktop's settings (Online Accounts) or remove this account")
                .arg(a.id, a.presentationIdentity));
    // A secret is handed only to the server it is kept for: an account whose server the desktop
    // now names differently is imported again, not sent to the old one.
    if (a.host().compare(account.host, Qt::CaseInsensitive) != 0 || a.port() != account.port ||
        a.imapUserName != account.user)
        return fail(
            QStringLiteral("the desktop's online account %1 (%2) now names IMAP server %3, port %4, "
                           "login %5, not what bridge.conf says; remove this account and run "
                           "corvina-mail-bridge account import again")
                .arg(a.id, a.presentationIdentity, a.host(), QString::number(a.port()), a.imapUserName));
    switch (a.secret) {
    case DesktopAccounts::Secret::OAuth2: {
        if (takeRefused(a.id)) {
            QString why;
            if (!desktop.ensureCredentials(a, &why))
                return fail(QStringLiteral("the desktop's online accounts could not renew the sign-in of %1 "
                                           "(%2): %3; sign in again in the desktop's settings (Online "
                                           "Accounts)")
                                .arg(a.id, a.presentationIdentity, why));
        }
        std::optional<QString> token = desktop.accessToken(a, error);
        if (!token)
            return std::nullopt;
        return AccountCredential::token(std::move(*token));
    }
    case DesktopAccounts::Secret::Password: {
        std::optional<QString> password = desktop.imapPassword(a, error);
        if (!password)
            return std::nullopt;
        if (password->isEmpty())
            return fail(
                QStringLiteral("the desktop's online account %1 (%2) has no IMAP password; set it in the "
                               "desktop's settings (Online Accounts)")
                    .arg(a.id, a.presentationIdentity));
        return AccountCredential(std::move(*password));
    }
    case DesktopAccounts::Secret::None:
        break;
    }
    return fail(QStringLiteral("the desktop's online account %1 (%2) gives neither a token nor a password")
                    .arg(a.id, a.presentationIdentity));
}

} // namespace

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
        return fromDesktop(account, error, timeoutMs);
    }
    return fail(QStringLiteral("auth is none of password, oauth2 or goa"));
}

void AccountCredential::refused(const BridgeConfig::Account& account) {
    // A tokenCommand is asked again at the next obtain(): nothing is kept for it to forget.
    if (account.auth == BridgeConfig::Auth::OAuth2 && account.tokenCommand.isEmpty())
        OAuthTokens::forget(account);
    if (account.auth == BridgeConfig::Auth::Goa) {
        const std::lock_guard<std::mutex> lock(refusedMutex);
        refusedDesktopTokens().insert(account.goaId);
    }
}

} // namespace corvina
