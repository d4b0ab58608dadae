#include "CommandService.h"

#include "ApplicationAdaptor.h"

#include <QDBusConnectionInterface>
#include <QDBusError>

namespace corvina {

CommandService::CommandService(QObject* parent) : QObject(parent), m_bus(QString()) {
    new ApplicationAdaptor(this);
}

CommandService::~CommandService() {
    if (m_registered) {
        m_bus.unregisterService(QLatin1String(ServiceName));
        m_bus.unregisterObject(QLatin1String(ObjectPath));
    }
}

bool CommandService::registerOn(const QDBusConnection& bus, QString* error) {
    if (!bus.isConnected()) {
        *error = QStringLiteral("no session bus (%1)").arg(bus.lastError().message());
        return false;
    }
    m_bus = bus;
    // The object first: a call may arrive the moment the name is ours.
    if (!m_bus.registerObject(QLatin1String(ObjectPath), this, QDBusConnection::ExportAdaptors)) {
        *error = QStringLiteral("cannot publish %1 on the session bus").arg(QLatin1String(ObjectPath));
        return false;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        m_bus.interface()->registerService(QLatin1String(ServiceName),
                                           QDBusConnectionInterface::DontQueueService,
                                           QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        m_bus.unregisterObject(QLatin1String(ObjectPath));
        const QDBusReply<uint> owner = m_bus.interface()->servicePid(QLatin1String(ServiceName));
        *error = reply.isValid()
                     ? QStringLiteral("%1 belongs to another process%2: is a bridge running already?")
                           .arg(QLatin1String(ServiceName),
                                owner.isValid() ? QStringLiteral(" (pid %1)").arg(owner.value()) : QString())
                     : QStringLiteral("cannot take the name %1: %2")
                           .arg(QLatin1String(ServiceName), reply.error().message());
        return false;
    }
    m_registered = true;
    return true;
}

} // namespace corvina
