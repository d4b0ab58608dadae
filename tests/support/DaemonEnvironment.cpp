#include "DaemonEnvironment.h"

#include "PrivateSessionBus.h"

#include <QDir>
#include <QFile>

namespace corvina::test {

std::optional<QProcessEnvironment> daemonEnvironment(const QTemporaryDir& folder, QString* error) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    if (bus == nullptr) {
        if (error)
            *error = QStringLiteral("no private session bus (is dbus-daemon installed?)");
        return std::nullopt;
    }
    if (!folder.isValid()) {
        if (error)
            *error = QStringLiteral("no temporary folder for the daemon");
        return std::nullopt;
    }
    const QString home = folder.filePath(QStringLiteral("home"));
    const QString runtime = folder.filePath(QStringLiteral("run"));
    QDir().mkpath(home);
    QDir().mkpath(runtime);
    // As the session's own runtime folder is: its owner's alone, or the daemons refuse it.
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    return environment;
}

} // namespace corvina::test
