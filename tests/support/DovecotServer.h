#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace corvina::test {

// A Dovecot IMAP server of the test's own: configuration, passwords, mail and log in a temporary
// folder, listening on 127.0.0.1 on a port that was free when it started, plain IMAP (no TLS)
// unless enableTls() was called.
// Mail is stored as Maildir and seeded by writing message files straight into it, as a delivery
// agent does, so that even ten thousand messages are there in a moment. The server is stopped when
// the object goes away.
//
// The master runs as the test's user, root, and hands the work to Dovecot's own users (dovenull for
// the login processes, dovecot for its internal services); mail belongs to nobody.
class DovecotServer {
public:
    DovecotServer();
    ~DovecotServer();
    DovecotServer(const DovecotServer&) = delete;
    DovecotServer& operator=(const DovecotServer&) = delete;

    // Starts the server and waits, for a bounded time, until it greets on its port. False with
    // `error` set (the reason and the end of Dovecot's log) when it does not come up.
    bool start(QString* error = nullptr);
    // Stops the server and waits for it to go (bounded); the port and the mail stay.
    void stop();
    // Starts again on the same port.
    bool restart(QString* error = nullptr);
    bool isRunning() const;

    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return m_port; }

    // Before start(): makes a certificate authority of the server's own and a certificate it
    // issues for 127.0.0.1 and localhost (with openssl), and requires TLS for every login: implicit
    // TLS on tlsPort(), STARTTLS on port(). The TLS port also listens on 127.0.0.2, a name of this
    // computer that the certificate does not name. False with `error` set when openssl fails.
    bool enableTls(QString* error = nullptr);
    quint16 tlsPort() const { return m_tlsPort; }
    // The authority's certificate (PEM): what a client names to trust this server.
    QString caFile() const;
    // Replaces the capabilities the server announces after login (for a server without IDLE);
    // takes effect at the next start.
    void setCapabilities(const QString& capabilities) { m_capabilities = capabilities; }
    // What the server announces after login by default, without MOVE, or without MOVE and UIDPLUS
    // (the commands themselves still work: only a client that reads the announcement leaves them).
    static QString capabilitiesWithout(const QStringList& left);
    // Whether the folders Archive and Trash are made for every user and marked \Archive and
    // \Trash (SPECIAL-USE) in the server's LIST answers; on unless switched off. Takes effect at
    // the next start.
    void setSpecialUseFolders(bool on) { m_specialUse = on; }

    // Before start() (or a restart): lets users log in with OAuth 2 access tokens as well
    // (AUTHENTICATE XOAUTH2 and OAUTHBEARER), each checked by asking `introspectionUrl` (RFC 7662,
    // the token POSTed as a form; OAuthProvider::introspectUrl()) whether it is active and whose it
    // is. The token's user must be the one who logs in. Password logins work as before.
    // `mechanisms` are the SASL mechanisms offered for tokens (AUTH= in the capabilities): "xoauth2"
    // alone makes a server like the providers that have not taken up OAUTHBEARER.
    void enableTokenLogins(const QString& introspectionUrl,
                           const QString& mechanisms = QStringLiteral("xoauth2 oauthbearer")) {
        m_introspectionUrl = introspectionUrl;
        m_tokenMechanisms = mechanisms;
    }

    // Adds a user with a plain-text password; may be called while the server runs.
    void addUser(const QString& user, const QString& password);
    // Makes a folder ("INBOX" is always there) for `user`. Here and in deliver(), a folder is named
    // as IMAP names it, which is also how Dovecot's Maildir++ layout names its directory: a name
    // outside ASCII in IMAP's modified UTF-7 ("Notizen &AOQ-" for "Notizen ä").
    void createFolder(const QString& user, const QString& folder);

    // Places one message in `folder` of `user`, with Maildir flags such as "S" (seen) or "FS"
    // (flagged and seen). `received` becomes the server's INTERNALDATE (the file's time).
    // Answers the message file's path. Messages get UIDs in the order they are delivered.
    QString deliver(const QString& user, const QString& folder, const QByteArray& message,
                    const QString& flags = QString(), const QDateTime& received = QDateTime());
    // Changes the flags of a delivered message (renames its file, as a mail client's flag change does).
    QString setFlags(const QString& path, const QString& flags);

    // The Message-ID headers of the messages in `folder` of `user`, as the Maildir holds them now
    // (sorted; a message without one is listed as an empty string).
    QStringList messageIds(const QString& user, const QString& folder) const;
    // The Maildir flags ("S", "ST", ...) of the message with that Message-ID in `folder`; null when
    // it is not there.
    QString flagsOf(const QString& user, const QString& folder, const QString& messageId) const;
    // The message file with that Message-ID in `folder`; empty when it is not there.
    QString fileOf(const QString& user, const QString& folder, const QString& messageId) const;
    // Makes the server forget the UIDs of `folder` (its index and UID list), so that it numbers
    // the messages again under a new UIDVALIDITY. Only while the server is stopped.
    void forgetUids(const QString& user, const QString& folder);

    // Before start(): keeps Dovecot's raw log of every session (off by default: it costs the server
    // time, which would show in the benchmark).
    void setRecordSessions(bool on) { m_recordSessions = on; }
    // What clients sent after logging in, every session so far, in order (the raw log; empty unless
    // recorded): the commands, never a password.
    QByteArray clientCommands() const;

    // An RFC 5322 message with the given header values; a null value leaves that header out.
    static QByteArray message(const QString& subject, const QString& from, const QString& date,
                              const QString& messageId, const QByteArray& body = "Hello.\r\n");

    // Everything Dovecot logged so far.
    QString log() const;
    QString directory() const { return m_dir.path(); }

private:
    bool writeConfig(QString* error);
    bool writeOAuthConfig(QString* error);
    bool waitForGreeting(QString* error);
    QString maildir(const QString& user, const QString& folder) const;
    void makeMaildir(const QString& path);

    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    bool m_tls = false;
    quint16 m_tlsPort = 0;
    qint64 m_delivered = 0;
    QString m_capabilities;
    bool m_specialUse = true;
    bool m_recordSessions = false;
    QString m_introspectionUrl;
    QString m_tokenMechanisms;
};

} // namespace corvina::test
