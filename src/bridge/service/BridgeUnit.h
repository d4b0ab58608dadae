#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <functional>

class QDBusMessage;

namespace corvina {

// The bridge's systemd user unit, switched on and off and followed through systemd's own D-Bus
// interface on the session bus (the Manager's EnableUnitFiles, StartUnit and their reverse, the
// unit's ActiveState): what `systemctl --user enable --now corvina-mail-bridge` does, without a
// shell. Every call is asynchronous and bounded by the timeout, so a busy or hung systemd costs
// a line, never a frozen window.
//
// Where no systemd runs for the user (its name is not on the bus, or there is no session bus),
// available() is false after refresh(): the person then starts the bridge themselves
// (manualCommand()).
class BridgeUnit : public QObject {
    Q_OBJECT
public:
    static constexpr const char* UnitName = "corvina-mail-bridge.service";

    BridgeUnit(const QDBusConnection& bus, int timeoutMs, QObject* parent = nullptr);

    // The command that runs the bridge where systemd cannot: kept whole wherever it is shown.
    static QString manualCommand();

    // Asks systemd (again) whether it runs, whether the unit is enabled and whether it is active,
    // and follows the unit's ActiveState from then on. changed() when the answers are in.
    void refresh();
    // `enable --now`: the unit enabled for every login, then started.
    void enable();
    // The reverse: stopped, then disabled.
    void disable();

    // Whether refresh() has had its answers.
    bool checked() const { return m_checked; }
    // Whether a systemd of the user answers on the bus (false too when it is there but does not
    // answer within the timeout: then error() says so).
    bool available() const { return m_available; }
    // Whether systemd knows the unit's file (false when the bridge was not installed with it).
    bool installed() const { return m_installed; }
    // The unit file's state as systemd names it ("enabled", "disabled", ...); empty when unknown.
    QString unitFileState() const { return m_unitFileState; }
    bool enabled() const { return m_unitFileState == QLatin1String("enabled"); }
    // The unit's ActiveState ("active", "activating", "inactive", "failed", ...); empty when unknown.
    QString activeState() const { return m_activeState; }
    // An enable or disable under way.
    bool busy() const { return m_busy; }
    // Why the last change or check failed, in one line; empty when it did not.
    QString error() const { return m_error; }

signals:
    void changed();

private slots:
    void unitPropertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                               const QStringList& invalidated);

private:
    using Reply = std::function<void(const QDBusMessage&)>;
    // refresh(), with `then` run when its answers are in, just before changed().
    void check(const std::function<void()>& then);
    void finishCheck();
    // Calls the Manager's `method`; `done` gets the reply, or the error message.
    void callManager(const QString& method, const QVariantList& arguments, const Reply& done);
    void call(const QDBusMessage& message, const Reply& done);
    void follow(const QString& unitPath);
    // The unit's ActiveState asked for; `partOfCheck`: the last answer of a check.
    void readActiveState(bool partOfCheck);
    void fail(const QString& what, const QDBusMessage& reply);

    QDBusConnection m_bus;
    int m_timeoutMs;
    bool m_checked = false;
    bool m_available = false;
    bool m_installed = false;
    bool m_busy = false;
    QString m_unitFileState;
    QString m_activeState;
    QString m_unitPath;
    QString m_error;
    std::function<void()> m_afterCheck;
};

} // namespace corvina
