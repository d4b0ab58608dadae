#include "NetworkWatcher.h"

#include "SystemBus.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>

namespace corvina {

namespace {

const QString Service = QStringLiteral("org.freedesktop.NetworkManager");
const QString Path = QStringLiteral("/org/freedesktop/NetworkManager");
const QString Interface = QStringLiteral("org.freedesktop.NetworkManager");
const QString PropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString PrimaryConnection = QStringLiteral("PrimaryConnection");
// NetworkManager's PrimaryConnection when there is none.
const QString NoConnection = QStringLiteral("/");

QString objectPath(const QVariant& value) {
    if (value.canConvert<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    return QString();
}

} // namespace

NetworkWatcher::NetworkWatcher(int debounceMs, QObject* parent)
    : QObject(parent), m_bus(SystemBus::connection()) {
    m_debounce.setSingleShot(true);
    m_debounce.setInterval(debounceMs);
    connect(&m_debounce, &QTimer::timeout, this, &NetworkWatcher::changed);
    if (!m_bus.isConnected()) {
        m_problem = QStringLiteral("no system bus: ") + m_bus.lastError().message();
        return;
    }
    // Only NetworkManager's own name is listened to: nobody else may make the bridge reconnect.
    // The subscriptions follow the name, so a NetworkManager started later is heard too.
    const bool state = m_bus.connect(Service, Path, Interface, QStringLiteral("StateChanged"), this,
                                     SLOT(stateChanged(uint)));
    const bool properties =
        m_bus.connect(Service, Path, PropertiesInterface, QStringLiteral("PropertiesChanged"), this,
                      SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    if (!state || !properties) {
        m_problem = QStringLiteral("cannot listen to NetworkManager: ") + m_bus.lastError().message();
        return;
    }
    const QDBusReply<bool> present = m_bus.interface()->isServiceRegistered(Service);
    if (!present.isValid() || !present.value()) {
        m_problem = QStringLiteral("no NetworkManager on the system bus");
        return;
    }
    // Where the network stands now, so that the first signal is read against it. Not waited for:
    // a signal that comes first is newer, and wins.
    QDBusMessage get =
        QDBusMessage::createMethodCall(Service, Path, PropertiesInterface, QStringLiteral("GetAll"));
    get << Interface;
    auto* call = new QDBusPendingCallWatcher(m_bus.asyncCall(get), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, &NetworkWatcher::initialProperties);
}

NetworkWatcher::~NetworkWatcher() {
    SystemBus::release();
}

void NetworkWatcher::initialProperties(QDBusPendingCallWatcher* call) {
    call->deleteLater();
    const QDBusPendingReply<QVariantMap> reply = *call;
    if (reply.isError())
        return;
    const QVariantMap properties = reply.value();
    if (m_state < 0 && properties.contains(QStringLiteral("State")))
        m_state = properties.value(QStringLiteral("State")).toUInt();
    if (m_primary.isNull() && properties.contains(PrimaryConnection))
        m_primary = objectPath(properties.value(PrimaryConnection));
}

void NetworkWatcher::stateChanged(uint state) {
    // Unknown before counts as lower: at worst one reconnection too many.
    const bool cameUp = state >= ConnectedLocal && static_cast<qint64>(state) > m_state;
    m_state = state;
    if (cameUp)
        changeSeen();
}

void NetworkWatcher::propertiesChanged(const QString& interface, const QVariantMap& changed,
                                       const QStringList& invalidated) {
    Q_UNUSED(invalidated);
    if (interface != Interface || !changed.contains(PrimaryConnection))
        return;
    primaryConnectionIs(objectPath(changed.value(PrimaryConnection)));
}

void NetworkWatcher::primaryConnectionIs(const QString& path) {
    const bool other = !path.isEmpty() && path != NoConnection && path != m_primary;
    m_primary = path;
    if (other)
        changeSeen();
}

void NetworkWatcher::changeSeen() {
    // The first sign of a change starts the wait; the rest of the burst falls within it.
    if (!m_debounce.isActive())
        m_debounce.start();
}

} // namespace corvina
