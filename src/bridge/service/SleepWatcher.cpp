#include "SleepWatcher.h"

#include "SystemBus.h"

#include <QDBusError>

namespace corvina {

SleepWatcher::SleepWatcher(QObject* parent) : QObject(parent), m_bus(SystemBus::connection()) {
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
    SystemBus::release();
}

void SleepWatcher::prepareForSleep(bool sleeping) {
    if (!sleeping)
        emit resumed();
}

} // namespace corvina
