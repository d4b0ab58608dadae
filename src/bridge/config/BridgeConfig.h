#pragma once

#include "bridge/imap/ImapSession.h"

#include <QList>
#include <QString>
#include <QStringList>

class QSettings;

namespace corvina {

// The bridge's accounts, read from its INI file ($XDG_CONFIG_HOME/corvina/bridge.conf): one group
// per account, named as the user likes ([work], [home]).
//
// A bad value never stops the other accounts: the account that holds it is kept with its `problem`
// set (one line naming the key and what is wrong with it), and the program reports that account
// as failing while it syncs the rest.
class BridgeConfig {
public:
    // The session's own choice of how a connection is made safe; the file names it in words.
    using Security = ImapSession::Security;

    // What an account logs in with (key `auth`): its password, an OAuth 2 access token (from a
    // tokenCommand or the bridge's own sign-in with an oauthProvider), or the desktop's online
    // accounts.
    enum class Auth { Password, OAuth2, Goa };

    struct Account {
        QString name;        // the group's name
        QString mail;        // the address the widget shows; names the account's snapshot folder
        QString displayName; // key "name"
        QString host;
        quint16 port = 993;
        Security security = Security::Tls;
        QString user; // the mail address unless given
        bool enabled = true;
        QString inbox = QStringLiteral("INBOX");
        QString todo; // empty: the flagged messages of the inbox
        QString memo; // empty: no memo list
        // Where the widget's archive and delete buttons move a message; empty: the folder the
        // server marks \Archive or \Trash (SPECIAL-USE).
        QString archive;
        QString trash;
        // How the person's mail client is reached; empty: the desktop's default application for
        // message/rfc822 (a message) or x-scheme-handler/mailto (a draft), see MailClient.
        QString openCommand;
        QString composeCommand;
        QString passwordCommand;
        Auth auth = Auth::Password;
        // auth = oauth2: a command that prints an access token, run like passwordCommand.
        QString tokenCommand;
        // auth = oauth2 without a tokenCommand: google, microsoft, custom or discover; else empty.
        QString oauthProvider;
        QString oauthClientId;
        QString oauthClientSecret; // optional: a public client has none
        // auth = oauth2 with oauthProvider custom: the provider's endpoints and the scope to ask for.
        QString oauthAuthorizeUrl;
        QString oauthTokenUrl;
        QString oauthScope;
        // auth = oauth2 with oauthProvider discover: the provider's address, whose published
        // metadata names its endpoints; empty: https://<host>.
        QString oauthIssuer;
        QString goaId;                        // auth = goa: the desktop's id of the account
        QString caFile;                       // absolute; the only authorities trusted for the server
        int messages = DefaultMessages;       // newest messages kept per list
        int pollSeconds = DefaultPollSeconds; // how often lists IDLE does not cover are read again
        QString problem;                      // empty when the account is usable

        // Every setting alike: the running bridge restarts an account whose group changed in any
        // key when it reads the file again, and leaves an equal one running.
        bool operator==(const Account&) const = default;
    };

    static constexpr int DefaultMessages = 50;
    static constexpr int DefaultPollSeconds = 300;
    static constexpr int MaximumPollSeconds = 86400;
    // The widget shows ten a list; more than this would only make snapshots large.
    static constexpr int MaximumMessages = 1000;

    // $XDG_CONFIG_HOME/corvina/bridge.conf (~/.config by default).
    static QString defaultPath();

    // Reads `path`. A missing file gives no accounts and `exists` false.
    static BridgeConfig load(const QString& path);

    QString path() const { return m_path; }
    bool exists() const { return m_exists; }
    const QList<Account>& accounts() const { return m_accounts; }
    // The account of that group name or that mail, or null.
    const Account* account(const QString& nameOrMail) const;

    static QString securityName(Security security);
    // The word bridge.conf names `auth` with: password, oauth2 or goa.
    static QString authName(Auth auth);
    // What is wrong with `absolutePath` as an account's caFile ("caFile ... cannot be read"), or
    // empty: it must be a file this user can read. `account add` asks the same at its prompt.
    static QString caFileProblem(const QString& absolutePath);

private:
    // `folder` is bridge.conf's own, which a relative caFile is found in; `poll` the [General] default.
    static Account readAccount(QSettings& settings, const QString& group, const QString& folder, int poll);
    // The "poll" key of the current group into `seconds`; what is wrong with it, or empty.
    static QString readPoll(const QSettings& settings, int* seconds);
    // The keys of `auth` into `a`; each problem appended to `problems`.
    static void readAuth(const QSettings& settings, Account* a, QStringList* problems);

    QString m_path;
    bool m_exists = false;
    QList<Account> m_accounts;
};

} // namespace corvina
