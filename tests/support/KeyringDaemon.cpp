#include "KeyringDaemon.h"

#include "DaemonEnvironment.h"
#include "ProcessStop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QProcessEnvironment>
#include <signal.h>

namespace corvina::test {

namespace {

constexpr int KeyringStartTimeoutMs = 15000;
constexpr int KeyringStopTimeoutMs = 5000;
const QString ServiceName = QStringLiteral("org.freedesktop.secrets");

} // namespace

KeyringDaemon::KeyringDaemon() = default;

KeyringDaemon::~KeyringDaemon() {
    stop();
}

QString KeyringDaemon::keyringFolder() const {
    return m_dir.filePath(QStringLiteral("home/.local/share/keyrings"));
}

bool KeyringDaemon::defaultCollectionAnswers() const {
    QDBusMessage call = QDBusMessage::createMethodCall(
        ServiceName, QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("ReadAlias"));
    call << QStringLiteral("default");
    const QDBusReply<QDBusObjectPath> reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 2000);
    return reply.isValid() && reply.value().path() != QLatin1String("/");
}

bool KeyringDaemon::start(QString* error) {
    auto fail = [this, error](const QString& why) {
        if (error)
            *error = why + QStringLiteral("\n") + QString::fromUtf8(m_process.readAll());
        stop();
        return false;
    };
    QString why;
    // No desktop to show a prompt on: anything that would ask fails instead of waiting.
    const std::optional<QProcessEnvironment> environment = daemonEnvironment(m_dir, &why);
    if (!environment)
        return fail(why);
    m_process.setProcessEnvironment(*environment);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(
        QStringLiteral("gnome-keyring-daemon"),
        {QStringLiteral("--foreground"), QStringLiteral("--unlock"), QStringLiteral("--components=secrets")});
    if (!m_process.waitForStarted(KeyringStartTimeoutMs))
        return fail(QStringLiteral("gnome-keyring-daemon could not be started: ") + m_process.errorString());
    // The login keyring is made with this password (an empty one makes none) and left unlocked.
    m_process.write("keyring-of-the-test");
    m_process.closeWriteChannel();

    const QDeadlineTimer deadline(KeyringStartTimeoutMs);
    while (!deadline.hasExpired()) {
        if (m_process.state() != QProcess::Running)
            return fail(QStringLiteral("gnome-keyring-daemon exited"));
        if (QDBusConnection::sessionBus().interface()->isServiceRegistered(ServiceName) &&
            defaultCollectionAnswers())
            return true;
        m_process.waitForFinished(50);
    }
    return fail(QStringLiteral("gnome-keyring-daemon did not offer a default keyring within %1 s")
                    .arg(KeyringStartTimeoutMs / 1000));
}

void KeyringDaemon::freeze() {
    if (m_process.state() == QProcess::Running &&
        ::kill(static_cast<pid_t>(m_process.processId()), SIGSTOP) == 0)
        m_frozen = true;
}

void KeyringDaemon::resume() {
    if (m_frozen && ::kill(static_cast<pid_t>(m_process.processId()), SIGCONT) == 0)
        m_frozen = false;
}

void KeyringDaemon::stop() {
    resume();
    stopProcess(m_process, KeyringStopTimeoutMs);
}

} // namespace corvina::test
