#pragma once

#include <QList>
#include <QString>
#include <optional>

namespace corvina {

// The desktop's online accounts: the org.gnome.OnlineAccounts service on the session bus, where a
// person signs in once (in the desktop's settings) and every program may use the account. What it
// holds is read, never changed: the accounts (its ObjectManager's GetManagedObjects), an account's
// mail settings (the org.gnome.OnlineAccounts.Mail interface), and at each connect its secret: an
// OAuth 2 access token (OAuth2Based.GetAccessToken, which the service refreshes itself) or the IMAP
// password it keeps (PasswordBased.GetPassword("imap-password")). A secret is only ever handed to
// the caller, never logged.
//
// Every call is bounded by the timeout: a service that does not answer costs a clear line, never a
// hung bridge. Safe to call from any thread (QtDBus's blocking calls need no event loop).
class DesktopAccounts {
public:
    // Long enough for the service to refresh a token at its provider first.
    static constexpr int DefaultTimeoutMs = 25000;

    // How an account gives its secret.
    enum class Secret { None, Password, OAuth2 };

    struct Account {
        QString path;                 // the account's object on the bus
        QString id;                   // its Id: what bridge.conf's goaId names
        QString providerName;         // "Google", "IMAP and SMTP"
        QString presentationIdentity; // what the desktop shows for it (usually the address)
        bool mailDisabled = false;    // the person turned mail off for it in the desktop's settings
        bool hasMail = false;         // it offers the Mail interface at all
        QString emailAddress;
        QString name; // the person's name, as mail shows it
        bool imapSupported = false;
        QString imapHost; // as the service gives it: "host" or "host:port"
        QString imapUserName;
        bool imapUseSsl = false; // TLS from the first byte
        bool imapUseTls = false; // STARTTLS
        bool imapAcceptSslErrors = false;
        Secret secret = Secret::None;

        // Mail turned on, with an IMAP server: what the bridge can follow.
        bool carriesMail() const;
        // imapHost without a port, and the port: the one it names, else 993 with TLS and 143
        // without (the Mail interface has no port of its own).
        QString host() const;
        quint16 port() const;
        // tls, starttls or none, as bridge.conf names the security.
        QString security() const;
    };

    explicit DesktopAccounts(int timeoutMs = DefaultTimeoutMs);

    // Every account the desktop holds, in the service's order, or nothing with `error` set to one
    // line ("the desktop's online accounts are not running", "... did not answer within 25 s").
    std::optional<QList<Account>> accounts(QString* error) const;
    // The access token of the account at `path`, refreshed by the service when it ran out.
    std::optional<QString> accessToken(const Account& account, QString* error) const;
    // Asks the service to make sure the account's sign-in still works: for an OAuth 2 account it
    // checks the token at the provider and refreshes it when refused, which a token the mail
    // server refused needs before GetAccessToken hands out another.
    bool ensureCredentials(const Account& account, QString* error) const;
    // The IMAP password the service keeps for the account.
    std::optional<QString> imapPassword(const Account& account, QString* error) const;

    int timeoutMs() const { return m_timeoutMs; }

private:
    int m_timeoutMs;
};

} // namespace corvina
