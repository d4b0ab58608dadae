#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <functional>

class QDBusConnection;

namespace corvina {

// Shows desktop notifications through the session bus's notification service
// (org.freedesktop.Notifications.Notify): the application's name, an icon name, a summary and a
// body, shown for the service's default time. The call is sent and not waited for, so showing a
// notification never holds up the caller. When there is no notification service (or no session
// bus), or it refuses a notification, one line says so, once per notifier; the notifications are
// dropped, and notified() tells the caller.
class DesktopNotifier : public QObject {
    Q_OBJECT
public:
    static constexpr int CallTimeoutMs = 5000;

    explicit DesktopNotifier(QObject* parent = nullptr);
    DesktopNotifier(const QString& applicationName, const QString& iconName, QObject* parent = nullptr);

    // The body may hold the simple markup notification services accept; pass plain text escaped.
    void notify(const QString& summary, const QString& body);

    // One notification with buttons: `actions` are pairs of an action key and its label (the key
    // "default" is what a click on the notification itself invokes), `replacesId` a notification
    // of this service to replace in place (0: a new one), `hints` the service's hints. `answered`
    // (when given) hears the service's id for it, or 0 and the error, before notified() does.
    // actionInvoked() and closed() then say what became of it.
    using Answer = std::function<void(uint id, const QString& error)>;
    void notify(const QString& summary, const QString& body, const QStringList& actions, uint replacesId,
                const QVariantMap& hints, const Answer& answered = {});
    // Asks the service to take notification `id` away; closed() follows when it did.
    void close(uint id);

    QString applicationName() const { return m_applicationName; }
    QString iconName() const { return m_iconName; }

signals:
    // The service's answer to one notify(): its id for the notification, or 0 with `error` set.
    void notified(uint id, const QString& error);
    // The user chose the action `actionKey` of notification `id` (from any client of the service:
    // the caller keeps track of which ids are its own).
    void actionInvoked(uint id, const QString& actionKey);
    // Notification `id` went away: 1 expired, 2 dismissed by the user, 3 closed by close(), 4 other.
    void closed(uint id, uint reason);

private slots:
    void onActionInvoked(uint id, const QString& actionKey);
    void onNotificationClosed(uint id, uint reason);

private:
    void failed(const QString& error);
    // Listens to the service's ActionInvoked and NotificationClosed signals, once.
    void listen(QDBusConnection& bus);

    QString m_applicationName;
    QString m_iconName;
    bool m_toldUnavailable = false;
    bool m_listening = false;
};

} // namespace corvina
