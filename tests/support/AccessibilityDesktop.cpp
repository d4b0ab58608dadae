#include "AccessibilityDesktop.h"

#include "PrivateSessionBus.h"
#include "ProcessStop.h"
#include "Wait.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>

namespace corvina::test {

namespace {

// How long a part may take to come, on a machine kept busy: every wait ends as soon as it is there.
constexpr int kDesktopStartMs = 20000;

} // namespace

AccessibilityDesktop* AccessibilityDesktop::shared(QString* error) {
    static QString failure;
    // Stopped while the application object still exists (its parts are QProcesses of ours).
    static AccessibilityDesktop* desktop = [] {
        auto* d = new AccessibilityDesktop;
        if (!d->start(&failure)) {
            delete d;
            return static_cast<AccessibilityDesktop*>(nullptr);
        }
        qAddPostRoutine([] {
            delete desktop;
            desktop = nullptr;
        });
        return d;
    }();
    if (desktop == nullptr && error != nullptr)
        *error = failure;
    return desktop;
}

QProcessEnvironment AccessibilityDesktop::busEnvironment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), PrivateSessionBus::instance()->address());
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("AT_SPI_BUS_ADDRESS"));
    return env;
}

QProcessEnvironment AccessibilityDesktop::programEnvironment() const {
    QProcessEnvironment env = busEnvironment();
    env.insert(QStringLiteral("DISPLAY"), m_x.display());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    // The bridge is on when the bus says so (IsEnabled, set by --a11y=1); this says it once more.
    env.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    for (const char* name :
         {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "QT_QPA_PLATFORMTHEME", "WAYLAND_DISPLAY"})
        env.remove(QString::fromLatin1(name));
    return env;
}

bool AccessibilityDesktop::start(QString* error) {
    if (!m_runtime.isValid()) {
        *error = QStringLiteral("no runtime folder");
        return false;
    }
    if (PrivateSessionBus::instance() == nullptr) {
        *error = QStringLiteral("no private session bus");
        return false;
    }
    if (!m_x.start()) {
        *error = QStringLiteral("Xvfb could not be started");
        return false;
    }

    const QProcessEnvironment env = busEnvironment();
    m_launcher.setProcessEnvironment(env);
    m_launcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_launcher.start(QStringLiteral(CORVINA_ATSPI_BUS_LAUNCHER),
                     {QStringLiteral("--launch-immediately"), QStringLiteral("--a11y=1"),
                      QStringLiteral("--screen-reader=1")});
    if (!m_launcher.waitForStarted(5000)) {
        *error = QStringLiteral("the accessibility bus launcher could not be started");
        return false;
    }
    QDBusConnectionInterface* sessionBus = QDBusConnection::sessionBus().interface();
    if (!waitFor([&] { return sessionBus->isServiceRegistered(QStringLiteral("org.a11y.Bus")); },
                 kDesktopStartMs)) {
        *error = QStringLiteral("the accessibility bus launcher did not come");
        return false;
    }
    const QDBusReply<QString> address = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
    if (!address.isValid()) {
        *error = address.error().message();
        return false;
    }
    m_a11yAddress = address.value();
    if (!m_a11yAddress.contains(m_runtime.path())) {
        *error =
            QStringLiteral("the accessibility bus is not in the test's runtime folder: ") + m_a11yAddress;
        return false;
    }

    // The registry, started here rather than by the accessibility bus, so that the test ends it.
    m_registry.setProcessEnvironment(env);
    m_registry.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_registry.start(QStringLiteral(CORVINA_ATSPI_REGISTRYD), {});
    if (!m_registry.waitForStarted(5000)) {
        *error = QStringLiteral("the accessibility registry could not be started");
        return false;
    }
    bool registered = false;
    {
        QDBusConnection a11y = QDBusConnection::connectToBus(m_a11yAddress, QStringLiteral("a11y"));
        registered = a11y.isConnected() && waitFor(
                                               [&] {
                                                   return a11y.interface()->isServiceRegistered(
                                                       QStringLiteral("org.a11y.atspi.Registry"));
                                               },
                                               kDesktopStartMs);
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("a11y"));
    if (!registered) {
        *error = QStringLiteral("the accessibility registry did not come");
        return false;
    }
    return true;
}

AccessibilityDesktop::~AccessibilityDesktop() {
    stopProcess(m_registry, 3000);
    stopProcess(m_launcher, 3000);
}

} // namespace corvina::test
