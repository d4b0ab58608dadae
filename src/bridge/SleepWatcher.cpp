#include "SleepWatcher.h"

#include <QDBusError>

namespace corvina {

namespace {

const QString OtherBusName = QStringLiteral("corvina-sleep-bus");

QDBusConnection sleepBus() {
    const QString address = qEnvironmentVariable(SleepWatcher::BusVariable);
    if (address.isEmpty())
        return QDBusConnection::systemBus();
    return QDBusConnection::connectToBus(address, OtherBusName);
}

} // namespace

SleepWatcher::SleepWatcher(QObject* parent) : QObject(parent), m_bus(sleepBus()) {
    if (!m_bus.isConnected()) {
        m_error = QStringLiteral("no system bus: ") + m_bus.lastError().message();
        return;
    }
    // Only logind's own name is listened to: nobody else may make the bridge reconnect.
    m_watching =
        m_bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                      QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                      this, SLOT(prepareForSleep(bool)));
    if (!m_watching)
        m_error = QStringLiteral("cannot listen for PrepareForSleep: ") + m_bus.lastError().message();
}

SleepWatcher::~SleepWatcher() {
    if (!qEnvironmentVariableIsEmpty(BusVariable))
        QDBusConnection::disconnectFromBus(OtherBusName);
}

void SleepWatcher::prepareForSleep(bool sleeping) {
    if (!sleeping)
        emit resumed();
}

} // namespace corvina
