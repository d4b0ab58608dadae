#include "NotificationRecorder.h"

#include <QAtomicInt>
#include <QDBusConnectionInterface>
#include <QMutexLocker>

namespace corvina::test {

namespace {

const QString Service = QStringLiteral("org.freedesktop.Notifications");
const QString Path = QStringLiteral("/org/freedesktop/Notifications");
QAtomicInt g_connections = 0;

} // namespace

NotificationRecorder::NotificationRecorder(const QString& address)
    : m_connectionName(
          QStringLiteral("corvina-notification-recorder-%1").arg(g_connections.fetchAndAddRelaxed(1))),
      m_connection(QDBusConnection::connectToBus(address, m_connectionName)) {
    m_registered = m_connection.isConnected() &&
                   m_connection.registerObject(Path, this, QDBusConnection::ExportAllSlots) &&
                   m_connection.registerService(Service);
}

NotificationRecorder::~NotificationRecorder() {
    if (m_connection.isConnected()) {
        m_connection.unregisterService(Service);
        m_connection.unregisterObject(Path);
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
}

QList<NotificationRecorder::Notification> NotificationRecorder::notifications() const {
    QMutexLocker lock(&m_mutex);
    return m_notifications;
}

uint NotificationRecorder::Notify(const QString& app_name, uint replaces_id, const QString& app_icon,
                                  const QString& summary, const QString& body, const QStringList& actions,
                                  const QVariantMap& hints, int expire_timeout) {
    QMutexLocker lock(&m_mutex);
    m_notifications.append({app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout});
    return uint(m_notifications.size());
}

QStringList NotificationRecorder::GetCapabilities() {
    return {QStringLiteral("body")};
}

void NotificationRecorder::CloseNotification(uint) {}

} // namespace corvina::test
