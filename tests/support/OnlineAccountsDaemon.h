#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace corvina::test {

// The desktop's real online accounts service for a test: /usr/libexec/goa-daemon --replace on the
// process's private session bus (PrivateSessionBus), its accounts file in a temporary home. It keeps
// an account's password in the Secret Service, so a KeyringDaemon must run first. Accounts are made
// as the desktop's settings make them, through its Manager.AddAccount. Stopped when the object goes
// away, and the name org.gnome.OnlineAccounts with it.
class OnlineAccountsDaemon {
public:
    static constexpr const char* Program = "/usr/libexec/goa-daemon";

    OnlineAccountsDaemon();
    ~OnlineAccountsDaemon();
    OnlineAccountsDaemon(const OnlineAccountsDaemon&) = delete;
    OnlineAccountsDaemon& operator=(const OnlineAccountsDaemon&) = delete;

    // Starts the daemon and waits, for a bounded time, until it owns its name. False with `error`
    // set when it does not.
    bool start(QString* error = nullptr);
    void stop();

    // An "IMAP and SMTP" account of `mail` on the IMAP server `host`:`port` (plain IMAP, no TLS)
    // for `user` with `password`, mail turned on. Its Id ("account_1700000000_0"), or empty with
    // `error` set.
    QString addImapAccount(const QString& mail, const QString& name, const QString& host, quint16 port,
                           const QString& user, const QString& password, QString* error = nullptr);
    // Removes the account, as the desktop's settings do.
    bool removeAccount(const QString& id, QString* error = nullptr);
    // Turns the account's mail off or on (its MailDisabled property), as the desktop's settings do.
    bool setMailDisabled(const QString& id, bool disabled, QString* error = nullptr);

    // What the daemon printed so far.
    QString log() const;

private:
    QTemporaryDir m_dir;
    QProcess m_process;
};

} // namespace corvina::test
