#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace corvina::test {

// A session bus of the test's own: a dbus-daemon started with a configuration that activates
// services from a temporary folder, made this process's session bus through
// DBUS_SESSION_BUS_ADDRESS. Qt connects to the session bus once per process, so make the bus before
// anything in the process talks D-Bus, and keep one per process (instance()).
class PrivateSessionBus {
public:
    // The bus of this process, started on first use; null when dbus-daemon cannot be started.
    static PrivateSessionBus* instance();

    QString address() const { return m_address; }
    // Installs a service file so that the bus starts `program arguments...` when `name` is called.
    void installService(const QString& name, const QString& program, const QStringList& arguments);
    void removeService(const QString& name);

    ~PrivateSessionBus();

private:
    PrivateSessionBus() = default;
    bool start();

    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
};

} // namespace corvina::test
