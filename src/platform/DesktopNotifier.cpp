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
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        const QString error = QStringLiteral("no session bus: %1").arg(bus.lastError().message());
        QMetaObject::invokeMethod(
            this, [this, error] { failed(error); }, Qt::QueuedConnection);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, Service, QStringLiteral("Notify"));
    // The service may be started by the bus when a notification is first shown.
    call.setAutoStartService(true);
    // app_name, replaces_id (0: a new one), app_icon, summary, body, actions, hints, expire_timeout
    // (-1: the service's default)
    call << m_applicationName << uint(0) << m_iconName << summary << body << QStringList() << QVariantMap()
         << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, CallTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        const QDBusPendingReply<uint> reply = *finished;
        if (reply.isError()) {
            failed(reply.error().name() + QStringLiteral(": ") + reply.error().message());
            return;
        }
        emit notified(reply.value(), QString());
    });
}

void DesktopNotifier::failed(const QString& error) {
    if (!m_toldUnavailable) {
        m_toldUnavailable = true;
        Log::write(QStringLiteral("desktop notifications are not shown: %@"), {error});
    }
    emit notified(0, error);
}

} // namespace corvina
