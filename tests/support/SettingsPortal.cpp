#include "SettingsPortal.h"

#include <QAtomicInt>
#include <QDBusMessage>

namespace corvina::test {

namespace {

const QString PortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString PortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString PortalInterface = QStringLiteral("org.freedesktop.portal.Settings");
QAtomicInt g_portalConnections = 0;

} // namespace

SettingsPortal::SettingsPortal(const QString& address, uint colorScheme)
    : m_connectionName(
          QStringLiteral("corvina-settings-portal-%1").arg(g_portalConnections.fetchAndAddRelaxed(1))),
      m_connection(QDBusConnection::connectToBus(address, m_connectionName)), m_colorScheme(colorScheme) {
    m_registered = m_connection.isConnected() &&
                   m_connection.registerObject(PortalPath, this, QDBusConnection::ExportAllSlots) &&
                   m_connection.registerService(PortalService);
}

SettingsPortal::~SettingsPortal() {
    if (m_connection.isConnected()) {
        m_connection.unregisterService(PortalService);
        m_connection.unregisterObject(PortalPath);
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
}

QDBusVariant SettingsPortal::Read(const QString& group, const QString& key, const QDBusMessage& message) {
    if (group != QLatin1String("org.freedesktop.appearance") || key != QLatin1String("color-scheme")) {
        m_connection.send(message.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                                                   QStringLiteral("Requested setting not found")));
        return {};
    }
    return QDBusVariant(QVariant::fromValue(QDBusVariant(m_colorScheme)));
}

void SettingsPortal::setColorScheme(uint colorScheme) {
    m_colorScheme = colorScheme;
    QDBusMessage changed =
        QDBusMessage::createSignal(PortalPath, PortalInterface, QStringLiteral("SettingChanged"));
    changed << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme")
            << QVariant::fromValue(QDBusVariant(colorScheme));
    m_connection.send(changed);
}

} // namespace corvina::test
