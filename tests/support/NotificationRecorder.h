#pragma once

#include <QDBusConnection>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace corvina::test {

// A desktop notification service of the test's own: owns org.freedesktop.Notifications on a bus
// (the test's PrivateSessionBus) over a connection of its own, and records every Notify call.
// It answers a new id for each new notification (1, 2, ...) and the replaced one's for a
// replacement, and plays the user's part: invokeAction() and dismiss() send the service's signals.
class NotificationRecorder : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Notification {
        QString applicationName;
        uint replacesId = 0;
        QString icon;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        int expireTimeout = 0;
    };

    // Connects to the bus at `address` and takes the service's name; isRegistered() says whether
    // that worked.
    explicit NotificationRecorder(const QString& address);
    ~NotificationRecorder() override;

    bool isRegistered() const { return m_registered; }
    QList<Notification> notifications() const;
    // The ids CloseNotification was called with, in order.
    QList<uint> closed() const;
    // The id the service answered for notifications().at(index).
    uint idOf(qsizetype index) const;

    // The user chose the action `key` of notification `id` (ActionInvoked), or dismissed it
    // (NotificationClosed with reason 2).
    void invokeAction(uint id, const QString& key);
    void dismiss(uint id);

public slots:
    uint Notify(const QString& app_name, uint replaces_id, const QString& app_icon, const QString& summary,
                const QString& body, const QStringList& actions, const QVariantMap& hints,
                int expire_timeout);
    QStringList GetCapabilities();
    void CloseNotification(uint id);

private:
    QString m_connectionName;
    QDBusConnection m_connection;
    bool m_registered = false;
    mutable QMutex m_mutex;
    QList<Notification> m_notifications;
    QList<uint> m_ids;
    QList<uint> m_closed;
    uint m_lastId = 0;
};

} // namespace corvina::test
