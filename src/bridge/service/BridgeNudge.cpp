#include "BridgeNudge.h"

#include "CommandService.h"

#include <QDBusMessage>
#include <QVariantList>
#include <QVariantMap>

namespace corvina {

bool BridgeNudge::send(const QDBusConnection& bus) {
    if (!bus.isConnected())
        return false;
    QDBusMessage message = QDBusMessage::createMethodCall(
        QLatin1String(CommandService::ServiceName), QLatin1String(CommandService::ObjectPath),
        QStringLiteral("org.freedesktop.Application"), QStringLiteral("ActivateAction"));
    message.setArguments(
        {QLatin1String(CommandService::RetryAction), QVariant::fromValue(QVariantList()), QVariantMap()});
    // Deliberately no activation: a nudge for a bridge that is not running is nothing.
    message.setAutoStartService(false);
    return QDBusConnection(bus).send(message);
}

bool BridgeNudge::sendBeforeExit(const QDBusConnection& bus, int timeoutMs) {
    if (!send(bus))
        return false;
    const QDBusMessage id = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId"));
    return QDBusConnection(bus).call(id, QDBus::Block, timeoutMs).type() == QDBusMessage::ReplyMessage;
}

} // namespace corvina
