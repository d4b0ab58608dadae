#include "DesktopNotifier.h"

#include "Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace corvina {

namespace {

const QString Service = QStringLiteral("org.freedesktop.Notifications");
const QString Path = QStringLiteral("/org/freedesktop/Notifications");

} // namespace

DesktopNotifier::DesktopNotifier(QObject* parent)
    : DesktopNotifier(QStringLiteral("Corvina Mail"), QStringLiteral("internet-mail"), parent) {}

DesktopNotifier::DesktopNotifier(const QString& applicationName, const QString& iconName, QObject* parent)
    : QObject(parent), m_applicationName(applicationName), m_iconName(iconName) {}

void DesktopNotifier::notify(const QString& summary, const QString& body) {
    notify(summary, body, QStringList(), 0, QVariantMap());
}

void DesktopNotifier::notify(const QString& summary, const QString& body, const QStringList& actions,
                             uint replacesId, const QVariantMap& hints, const Answer& answered) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        const QString error = QStringLiteral("no session bus: %1").arg(bus.lastError().message());
        QMetaObject::invokeMethod(
            this,
            [this, error, answered] {
                if (answered)
                    answered(0, error);
                failed(error);
            },
            Qt::QueuedConnection);
        return;
    }
    if (!actions.isEmpty())
        listen(bus);
    QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, Service, QStringLiteral("Notify"));
    // The service may be started by the bus when a notification is first shown.
    call.setAutoStartService(true);
    // app_name, replaces_id (0: a new one), app_icon, summary, body, actions, hints, expire_timeout
    // (-1: the service's default)
    call << m_applicationName << replacesId << m_iconName << summary << body << actions << hints << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, CallTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, answered](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<uint> reply = *finished;
                if (reply.isError()) {
                    const QString error =
                        reply.error().name() + QStringLiteral(": ") + reply.error().message();
                    if (answered)
                        answered(0, error);
                    failed(error);
                    return;
                }
                if (answered)
                    answered(reply.value(), QString());
                emit notified(reply.value(), QString());
            });
}

void DesktopNotifier::close(uint id) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || id == 0)
        return;
    QDBusMessage call =
        QDBusMessage::createMethodCall(Service, Path, Service, QStringLiteral("CloseNotification"));
    call << id;
    // Not waited for: a notification the service no longer has is not worth a line.
    bus.asyncCall(call, CallTimeoutMs);
}

void DesktopNotifier::listen(QDBusConnection& bus) {
    if (m_listening)
        return;
    // By the service's well-known name, so that a service started (or restarted) later is heard too.
    m_listening = bus.connect(Service, Path, Service, QStringLiteral("ActionInvoked"), this,
                              SLOT(onActionInvoked(uint, QString))) &&
                  bus.connect(Service, Path, Service, QStringLiteral("NotificationClosed"), this,
                              SLOT(onNotificationClosed(uint, uint)));
}

void DesktopNotifier::onActionInvoked(uint id, const QString& actionKey) {
    emit actionInvoked(id, actionKey);
}

void DesktopNotifier::onNotificationClosed(uint id, uint reason) {
    emit closed(id, reason);
}

void DesktopNotifier::failed(const QString& error) {
    if (!m_toldUnavailable) {
        m_toldUnavailable = true;
        Log::write(QStringLiteral("desktop notifications are not shown: %@"), {error});
    }
    emit notified(0, error);
}

} // namespace corvina
