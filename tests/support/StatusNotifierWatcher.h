#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>

namespace corvina::test {

// A desktop's tray of the test's own: owns org.kde.StatusNotifierWatcher on a bus (the test's
// PrivateSessionBus) with a host registered, so that a Qt program on that bus puts its tray icon
// there as a status notifier item, and reads the items back: their tooltip, and a click on them.
class StatusNotifierWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ RegisteredStatusNotifierItems)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ IsStatusNotifierHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ ProtocolVersion)
public:
    explicit StatusNotifierWatcher(const QString& address);
    ~StatusNotifierWatcher() override;

    bool isRegistered() const { return m_registered; }
    // The items registered so far: each the bus name of its program.
    QStringList items() const { return m_items; }

    // The item's tooltip: its title, then its text (empty when it has none or is gone).
    QString toolTip(const QString& item) const;
    // A left click on the item (its Activate method); true when the item answered.
    bool activate(const QString& item) const;
    // The labels of the item's menu (com.canonical.dbusmenu), in order; "" for a separator.
    QStringList menuLabels(const QString& item) const;
    // A click on the menu entry labelled `label`; true when the item answered.
    bool clickMenu(const QString& item, const QString& label) const;

    QStringList RegisteredStatusNotifierItems() const { return m_items; }
    bool IsStatusNotifierHostRegistered() const { return true; }
    int ProtocolVersion() const { return 0; }

public slots:
    void RegisterStatusNotifierItem(const QString& service, const QDBusMessage& message);
    void RegisterStatusNotifierHost(const QString& service);

signals:
    void StatusNotifierItemRegistered(const QString& service);
    void StatusNotifierItemUnregistered(const QString& service);
    void StatusNotifierHostRegistered();

private:
    // The object path of the item's menu (its Menu property).
    QString menuPath(const QString& item) const;
    // The menu's entries: id and label, in order.
    QList<QPair<int, QString>> menuEntries(const QString& item) const;

    QString m_connectionName;
    QDBusConnection m_connection;
    bool m_registered = false;
    QStringList m_items;
};

} // namespace corvina::test
