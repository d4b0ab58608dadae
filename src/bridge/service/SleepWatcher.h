#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

namespace corvina {

// Tells when the machine wakes up from suspend: logind's PrepareForSleep(false) on the system bus.
// Connections made before the sleep are most likely dead by then, and mail came in meanwhile.
//
// The bus is SystemBus's: for tests, another one named by CORVINA_BRIDGE_SYSTEM_BUS.
class SleepWatcher : public QObject {
    Q_OBJECT
public:
    explicit SleepWatcher(QObject* parent = nullptr);
    ~SleepWatcher() override;

    // Whether the bus could be reached and the signal subscribed to.
    bool isWatching() const { return m_watching; }
    // Why not, when not.
    QString error() const { return m_error; }

signals:
    void resumed();

private slots:
    void prepareForSleep(bool sleeping);

private:
    QDBusConnection m_bus;
    bool m_watching = false;
    QString m_error;
};

} // namespace corvina
