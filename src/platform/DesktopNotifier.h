#pragma once

#include <QObject>
#include <QString>

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

    QString applicationName() const { return m_applicationName; }
    QString iconName() const { return m_iconName; }

signals:
    // The service's answer to one notify(): its id for the notification, or 0 with `error` set.
    void notified(uint id, const QString& error);

private:
    void failed(const QString& error);

    QString m_applicationName;
    QString m_iconName;
    bool m_toldUnavailable = false;
};

} // namespace corvina
