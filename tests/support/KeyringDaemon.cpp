#include "KeyringDaemon.h"

#include "PrivateSessionBus.h"
#include "ProcessStop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
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
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    if (bus == nullptr)
        return fail(QStringLiteral("no private session bus (is dbus-daemon installed?)"));
    if (!m_dir.isValid())
        return fail(QStringLiteral("no temporary folder for the keyring"));
    const QString home = m_dir.filePath(QStringLiteral("home"));
    const QString runtime = m_dir.filePath(QStringLiteral("run"));
    QDir().mkpath(home);
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
    // No desktop to show a prompt on: anything that would ask fails instead of waiting.
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    m_process.setProcessEnvironment(environment);
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
