#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

class QDBusPendingCallWatcher;

namespace corvina {

// Tells when the machine's network came back or changed, as NetworkManager says it on the system
// bus: its StateChanged signal (connected again, after a state below "connected"), and a change of
// its PrimaryConnection property (another network, while staying connected). Connections made on
// the old network are most likely dead by then, and TCP keep-alive would take a minute and a half
// to notice.
//
// NetworkManager says one change in several signals (disconnecting, connecting, connected, the
// new primary connection...): changed() comes once, `debounceMs` after the first sign of a change,
// for everything that came meanwhile. A network going away needs nothing: there is nothing to
// reconnect to until it comes back.
//
// The bus is SystemBus's: for tests, another one named by CORVINA_BRIDGE_SYSTEM_BUS.
class NetworkWatcher : public QObject {
    Q_OBJECT
public:
    static constexpr int DefaultDebounceMs = 2000;
    // NetworkManager's states from "connected to this computer's network" up.
    static constexpr uint ConnectedLocal = 50;

    explicit NetworkWatcher(int debounceMs = DefaultDebounceMs, QObject* parent = nullptr);
    ~NetworkWatcher() override;

    // Why network changes are not heard, when they are not: no bus, or no NetworkManager on it at
    // the start (one that starts later is still heard). Empty when they are.
    QString problem() const { return m_problem; }

signals:
    void changed();

private slots:
    void stateChanged(uint state);
    void propertiesChanged(const QString& interface, const QVariantMap& changed,
                           const QStringList& invalidated);
    void initialProperties(QDBusPendingCallWatcher* call);

private:
    void primaryConnectionIs(const QString& path);
    void changeSeen();

    QDBusConnection m_bus;
    QString m_problem;
    QTimer m_debounce;
    // What NetworkManager said last; -1 and null until it said anything.
    qint64 m_state = -1;
    QString m_primary;
};

} // namespace corvina
