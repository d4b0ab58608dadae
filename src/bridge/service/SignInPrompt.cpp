#include "SignInPrompt.h"

#include "bridge/config/AccountCredential.h"
#include "platform/DesktopNotifier.h"
#include "platform/Localization.h"

#include <QProcess>
#include <QVariantMap>

namespace corvina {

namespace {

// The line a failed sign-in leaves on its standard error ("corvina-mail-bridge: work: sign-in
// failed: ..."), without the program's name, which the bridge's own log does not repeat.
QString lastLine(const QByteArray& output) {
    const QList<QByteArray> lines = output.trimmed().split('\n');
    QString line = QString::fromUtf8(lines.isEmpty() ? QByteArray() : lines.last().trimmed());
    const QString prefix = QStringLiteral("corvina-mail-bridge: ");
    if (line.startsWith(prefix))
        line = line.mid(prefix.size());
    return line;
}

} // namespace

SignInPrompt::SignInPrompt(QString program, QString configPath, QObject* parent)
    : QObject(parent), m_program(std::move(program)), m_configPath(std::move(configPath)),
      m_notifier(new DesktopNotifier(this)) {
    connect(m_notifier, &DesktopNotifier::actionInvoked, this, &SignInPrompt::actionInvoked);
}

SignInPrompt::~SignInPrompt() {
    // A sign-in still waiting for the browser ends with the bridge: its listener would otherwise
    // wait minutes for a redirect nobody reads.
    for (QProcess* process : std::as_const(m_running)) {
        process->disconnect(this);
        process->kill();
        process->waitForFinished(1000);
    }
}

// Translated like the other notification titles (Localization, keyed by the English text).
QString SignInPrompt::title(const QString& mail) {
    return Localization::text(QStringLiteral("Sign in again to %1")).arg(mail);
}

QString SignInPrompt::actionLabel() {
    return Localization::text(QStringLiteral("Sign in"));
}

void SignInPrompt::failed(const QString& account, const QString& mail, const QString& error) {
    if (!error.startsWith(QLatin1String(AccountCredential::SignInNeeded)))
        return;
    // Deliberately once: the follower meets the same refusal at every poll until the person signs
    // in, and a notification each time would be a storm of its own.
    if (m_told.contains(account))
        return;
    const int generation = ++m_generation;
    m_told.insert(account, Told{generation, 0});
    const QStringList actions{actionDefault, actionLabel(), actionSignIn, actionLabel()};
    const QVariantMap hints{{QStringLiteral("category"), QStringLiteral("email")},
                            {QStringLiteral("desktop-entry"), QStringLiteral("org.corvina.mail")}};
    m_notifier->notify(title(mail), error.toHtmlEscaped(), actions, 0, hints,
                       [this, account, generation](uint id, const QString&) {
                           if (id == 0)
                               return;
                           const auto told = m_told.find(account);
                           // The account synced before the service answered: the words no longer hold.
                           if (told == m_told.end() || told->generation != generation) {
                               m_notifier->close(id);
                               return;
                           }
                           told->id = id;
                       });
}

void SignInPrompt::synced(const QString& account) {
    const auto told = m_told.find(account);
    if (told == m_told.end())
        return;
    // The words no longer hold: the notification goes (or goes when the service names it).
    if (told->id != 0)
        m_notifier->close(told->id);
    m_told.erase(told);
}

void SignInPrompt::actionInvoked(uint id, const QString& key) {
    if (id == 0 || (key != actionDefault && key != actionSignIn))
        return;
    // The service tells every client of every action: only ours are answered.
    for (auto it = m_told.cbegin(); it != m_told.cend(); ++it) {
        if (it->id == id) {
            signIn(it.key());
            return;
        }
    }
}

void SignInPrompt::signIn(const QString& account) {
    // A second click while the browser is open is the same sign-in.
    if (m_running.contains(account))
        return;
    auto* process = new QProcess(this);
    process->setProgram(m_program);
    // A list of words, never a shell: the account's name is passed as it is. No --timeout: the
    // person gets the sign-in's own five minutes in the browser.
    process->setArguments({QStringLiteral("--config"), m_configPath, QStringLiteral("account"),
                           QStringLiteral("signin"), account});
    process->setStandardInputFile(QProcess::nullDevice());
    process->setStandardOutputFile(QProcess::nullDevice());
    m_running.insert(account, process);
    connect(process, &QProcess::finished, this, [this, account, process] { signInEnded(account, process); });
    connect(process, &QProcess::errorOccurred, this, [this, account, process](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            signInEnded(account, process);
    });
    emit log(QStringLiteral("%1: signing in, in the browser (from the notification)").arg(account));
    process->start();
}

void SignInPrompt::signInEnded(const QString& account, QProcess* process) {
    if (m_running.value(account) != process)
        return;
    m_running.remove(account);
    process->deleteLater();
    if (process->error() == QProcess::FailedToStart) {
        emit log(QStringLiteral("%1: sign-in failed: cannot start %2: %3")
                     .arg(account, m_program, process->errorString()));
        return;
    }
    if (process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0) {
        // The owner's line says it, with what it does next.
        emit signedIn(account);
        return;
    }
    QString line = lastLine(process->readAllStandardError());
    if (!line.startsWith(account + QStringLiteral(": ")))
        line = QStringLiteral("%1: sign-in failed: corvina-mail-bridge account signin ended with status %2")
                   .arg(account)
                   .arg(process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1);
    emit log(line);
}

} // namespace corvina
