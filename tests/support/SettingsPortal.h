#pragma once

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QString>

namespace corvina::test {

// A desktop's settings portal of the test's own: owns org.freedesktop.portal.Desktop on a bus (the
// test's PrivateSessionBus) and answers org.freedesktop.portal.Settings.Read for the appearance's
// "color-scheme" (1 dark, 2 light, 0 no preference) as the real portal does, the number inside a
// variant inside a variant; setColorScheme() changes it and sends SettingChanged.
class SettingsPortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    SettingsPortal(const QString& address, uint colorScheme);
    ~SettingsPortal() override;

    bool isRegistered() const { return m_registered; }
    void setColorScheme(uint colorScheme);

public slots:
    QDBusVariant Read(const QString& group, const QString& key, const QDBusMessage& message);

private:
    QString m_connectionName;
    QDBusConnection m_connection;
    bool m_registered = false;
    uint m_colorScheme = 0;
};

} // namespace corvina::test
