#include "PrivateSessionBus.h"

#include "ProcessStop.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>

namespace corvina::test {

PrivateSessionBus* PrivateSessionBus::instance() {
    // Stopped while the application object still exists (the daemon is a QProcess of ours).
    static PrivateSessionBus* bus = [] {
        auto* b = new PrivateSessionBus;
        if (!b->start()) {
            delete b;
            return static_cast<PrivateSessionBus*>(nullptr);
        }
        qAddPostRoutine([] {
            delete bus;
            bus = nullptr;
        });
        return b;
    }();
    return bus;
}

bool PrivateSessionBus::start() {
    if (!m_dir.isValid())
        return false;
    QDir(m_dir.path()).mkpath(QStringLiteral("services"));
    const QString config = m_dir.filePath(QStringLiteral("session.conf"));
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(
        QStringLiteral("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                       " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                       "<busconfig>\n"
                       "  <type>session</type>\n"
                       "  <listen>unix:dir=%1</listen>\n"
                       "  <servicedir>%1/services</servicedir>\n"
                       "  <policy context=\"default\">\n"
                       "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                       "    <allow eavesdrop=\"true\"/>\n"
                       "    <allow own=\"*\"/>\n"
                       "  </policy>\n"
                       "</busconfig>\n")
            .arg(m_dir.path())
            .toUtf8());
    file.close();
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                    QStringLiteral("--print-address=1")});
    if (!m_daemon.waitForStarted(5000))
        return false;
    while (!m_daemon.canReadLine()) {
        if (!m_daemon.waitForReadyRead(5000))
            return false;
    }
    m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    if (m_address.isEmpty())
        return false;
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
    return QDBusConnection::sessionBus().isConnected();
}

void PrivateSessionBus::installService(const QString& name, const QString& program,
                                       const QStringList& arguments) {
    QFile file(m_dir.filePath(QStringLiteral("services/") + name + QStringLiteral(".service")));
    if (!file.open(QIODevice::WriteOnly))
        return;
    QString exec = program;
    for (const QString& a : arguments)
        exec += u' ' + a;
    file.write(QStringLiteral("[D-BUS Service]\nName=%1\nExec=%2\n").arg(name, exec).toUtf8());
    file.close();
    // The daemon rereads its service folders on request; without it a new file may not be seen yet.
    QDBusConnection::sessionBus().interface()->call(QStringLiteral("ReloadConfig"));
}

void PrivateSessionBus::removeService(const QString& name) {
    QFile::remove(m_dir.filePath(QStringLiteral("services/") + name + QStringLiteral(".service")));
    QDBusConnection::sessionBus().interface()->call(QStringLiteral("ReloadConfig"));
}

PrivateSessionBus::~PrivateSessionBus() {
    // Services the bus started would outlive it; they exit when their connection goes.
    stopProcess(m_daemon, 2000);
}

} // namespace corvina::test
