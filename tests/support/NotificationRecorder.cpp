#include "NotificationRecorder.h"

#include <QAtomicInt>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QMutexLocker>

namespace corvina::test {

namespace {

const QString NotificationsService = QStringLiteral("org.freedesktop.Notifications");
const QString NotificationsPath = QStringLiteral("/org/freedesktop/Notifications");
QAtomicInt g_recorderConnections = 0;

} // namespace

NotificationRecorder::NotificationRecorder(const QString& address)
    : m_connectionName(QStringLiteral("corvina-notification-recorder-%1")
                           .arg(g_recorderConnections.fetchAndAddRelaxed(1))),
      m_connection(QDBusConnection::connectToBus(address, m_connectionName)) {
    m_registered = m_connection.isConnected() &&
                   m_connection.registerObject(NotificationsPath, this, QDBusConnection::ExportAllSlots) &&
                   m_connection.registerService(NotificationsService);
}

NotificationRecorder::~NotificationRecorder() {
    if (m_connection.isConnected()) {
        m_connection.unregisterService(NotificationsService);
        m_connection.unregisterObject(NotificationsPath);
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
    const uint id = replaces_id != 0 ? replaces_id : ++m_lastId;
    m_ids.append(id);
    return id;
}

QStringList NotificationRecorder::GetCapabilities() {
    return {QStringLiteral("body"), QStringLiteral("actions")};
}

void NotificationRecorder::CloseNotification(uint id) {
    {
        QMutexLocker lock(&m_mutex);
        m_closed.append(id);
    }
    QDBusMessage closed = QDBusMessage::createSignal(NotificationsPath, NotificationsService,
                                                     QStringLiteral("NotificationClosed"));
    closed << id << uint(3);
    m_connection.send(closed);
}

QList<uint> NotificationRecorder::closed() const {
    QMutexLocker lock(&m_mutex);
    return m_closed;
}

uint NotificationRecorder::idOf(qsizetype index) const {
    QMutexLocker lock(&m_mutex);
    return index >= 0 && index < m_ids.size() ? m_ids.at(index) : 0;
}

void NotificationRecorder::invokeAction(uint id, const QString& key) {
    QDBusMessage invoked =
        QDBusMessage::createSignal(NotificationsPath, NotificationsService, QStringLiteral("ActionInvoked"));
    invoked << id << key;
    m_connection.send(invoked);
}

void NotificationRecorder::dismiss(uint id) {
    QDBusMessage closed = QDBusMessage::createSignal(NotificationsPath, NotificationsService,
                                                     QStringLiteral("NotificationClosed"));
    closed << id << uint(2);
    m_connection.send(closed);
}

} // namespace corvina::test
