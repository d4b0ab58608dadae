#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

class QProcess;

namespace corvina {

class DesktopNotifier;

// The running bridge's word to the person when an account's sign-in has run out (its failure
// starts with AccountCredential::SignInNeeded): one desktop notification with a "Sign in" action,
// shown once, not again at every poll while the account stays so; again only after the account has
// synced in between. The action (or a click on the notification) runs the sign-in for that
// account: `corvina-mail-bridge --config FILE account signin ACCOUNT` as a child process, the same
// program and code a person runs by hand, so there is one sign-in. When it ends well, signedIn()
// asks the owner to read the account at once.
//
// Lives on the main thread. A sign-in under way when the bridge stops is ended with it.
class SignInPrompt : public QObject {
    Q_OBJECT
public:
    // The notification's action keys: "default" is a click on the notification itself.
    static inline const QString actionDefault = QStringLiteral("default");
    static inline const QString actionSignIn = QStringLiteral("signin");

    // `program`: corvina-mail-bridge (the running bridge's own file); `configPath`: the
    // bridge.conf the bridge reads, handed on so that the sign-in is for the same account.
    SignInPrompt(QString program, QString configPath, QObject* parent = nullptr);
    ~SignInPrompt() override;

    // An attempt of `account` (its group name; `mail` its address) failed with `error`.
    void failed(const QString& account, const QString& mail, const QString& error);
    // `account` synced: its notification, if still shown, is taken away, and a later sign-in
    // needed is said again.
    void synced(const QString& account);

    // The notification's title and its action's label, in the person's language; the body is the
    // account's line as the log and the status file have it, in English.
    static QString title(const QString& mail);
    static QString actionLabel();

    bool isSigningIn(const QString& account) const { return m_running.contains(account); }

signals:
    // One line for the log, starting with the account's name.
    void log(const QString& line);
    // The sign-in of `account` ended well: time to read the account again.
    void signedIn(const QString& account);

private:
    void actionInvoked(uint id, const QString& key);
    void signIn(const QString& account);
    void signInEnded(const QString& account, QProcess* process);

    // An account told it must sign in, since it last synced.
    struct Told {
        int generation = 0; // which notification: an answer for an older one is not this one's
        uint id = 0;        // the service's id for it; 0 until the service answered
    };

    QString m_program;
    QString m_configPath;
    DesktopNotifier* m_notifier = nullptr;
    QHash<QString, Told> m_told; // by account
    int m_generation = 0;
    QHash<QString, QProcess*> m_running; // sign-ins under way, by account
};

} // namespace corvina
