#include "BridgeUnit.h"

#include "platform/Localization.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <utility>

namespace corvina {

namespace {

const QString SystemdService = QStringLiteral("org.freedesktop.systemd1");
const QString SystemdManagerPath = QStringLiteral("/org/freedesktop/systemd1");
const QString SystemdManagerInterface = QStringLiteral("org.freedesktop.systemd1.Manager");
const QString SystemdUnitInterface = QStringLiteral("org.freedesktop.systemd1.Unit");
const QString SystemdPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// The answers that mean "no systemd of the user here": nobody owns its name, or there is no
// session bus at all.
bool meansNoSystemd(const QDBusMessage& reply) {
    const QString name = reply.errorName();
    return name == QDBusError::errorString(QDBusError::ServiceUnknown) ||
           name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner") ||
           name == QDBusError::errorString(QDBusError::Disconnected);
}

} // namespace

BridgeUnit::BridgeUnit(const QDBusConnection& bus, int timeoutMs, QObject* parent)
    : QObject(parent), m_bus(bus), m_timeoutMs(timeoutMs) {}

QString BridgeUnit::manualCommand() {
    return QStringLiteral("corvina-mail-bridge");
}

void BridgeUnit::call(const QDBusMessage& message, const Reply& done) {
    if (!m_bus.isConnected()) {
        done(message.createErrorReply(QDBusError::Disconnected, m_bus.lastError().message()));
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message, m_timeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, done] {
        watcher->deleteLater();
        QDBusMessage reply = watcher->reply();
        const QString name = reply.errorName();
        if (name == QDBusError::errorString(QDBusError::NoReply) ||
            name == QDBusError::errorString(QDBusError::Timeout))
            reply = reply.createErrorReply(
                name,
                Localization::text("systemd did not answer within %1 s").arg((m_timeoutMs + 999) / 1000));
        done(reply);
    });
}

void BridgeUnit::callManager(const QString& method, const QVariantList& arguments, const Reply& done) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(SystemdService, SystemdManagerPath, SystemdManagerInterface, method);
    message.setArguments(arguments);
    call(message, done);
}

void BridgeUnit::refresh() {
    check({});
}

void BridgeUnit::finishCheck() {
    m_checked = true;
    if (m_afterCheck) {
        const std::function<void()> then = std::exchange(m_afterCheck, {});
        then();
    }
    emit changed();
}

void BridgeUnit::check(const std::function<void()>& then) {
    // A plain refresh() meanwhile does not drop what a change waits for.
    if (then)
        m_afterCheck = then;
    const QString unit = QString::fromLatin1(UnitName);
    callManager(QStringLiteral("GetUnitFileState"), {unit}, [this, unit](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ErrorMessage) {
            if (meansNoSystemd(reply)) {
                m_available = false;
                m_installed = false;
            } else if (reply.errorName() == QDBusError::errorString(QDBusError::NoReply) ||
                       reply.errorName() == QDBusError::errorString(QDBusError::Timeout)) {
                // There, but stuck: out of reach all the same, and said so.
                m_available = false;
                m_installed = false;
                m_error = reply.errorMessage();
            } else {
                // systemd answers, but has no file for the unit (or said why not).
                m_available = true;
                m_installed = false;
                m_error = reply.errorMessage();
            }
            m_unitFileState.clear();
            m_activeState.clear();
            finishCheck();
            return;
        }
        m_available = true;
        m_installed = true;
        m_unitFileState = reply.arguments().value(0).toString();
        // systemd sends a unit's changes only to the clients that asked for them.
        callManager(QStringLiteral("Subscribe"), {}, [](const QDBusMessage&) {});
        callManager(QStringLiteral("LoadUnit"), {unit}, [this](const QDBusMessage& loaded) {
            if (loaded.type() == QDBusMessage::ErrorMessage) {
                m_error = loaded.errorMessage();
                finishCheck();
                return;
            }
            follow(loaded.arguments().value(0).value<QDBusObjectPath>().path());
            readActiveState(true);
        });
    });
}

void BridgeUnit::follow(const QString& unitPath) {
    if (unitPath == m_unitPath)
        return;
    const char* slot = SLOT(unitPropertiesChanged(QString, QVariantMap, QStringList));
    if (!m_unitPath.isEmpty())
        m_bus.disconnect(SystemdService, m_unitPath, SystemdPropertiesInterface,
                         QStringLiteral("PropertiesChanged"), this, slot);
    m_unitPath = unitPath;
    m_bus.connect(SystemdService, m_unitPath, SystemdPropertiesInterface, QStringLiteral("PropertiesChanged"),
                  this, slot);
}

void BridgeUnit::readActiveState(bool partOfCheck) {
    QDBusMessage get = QDBusMessage::createMethodCall(SystemdService, m_unitPath, SystemdPropertiesInterface,
                                                      QStringLiteral("Get"));
    get.setArguments({SystemdUnitInterface, QStringLiteral("ActiveState")});
    call(get, [this, partOfCheck](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ErrorMessage)
            m_error = reply.errorMessage();
        else
            m_activeState = reply.arguments().value(0).value<QDBusVariant>().variant().toString();
        if (partOfCheck)
            finishCheck();
        else
            emit changed();
    });
}

void BridgeUnit::unitPropertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                                       const QStringList& invalidated) {
    if (interface != SystemdUnitInterface)
        return;
    if (changedProperties.contains(QStringLiteral("ActiveState"))) {
        const QString state = changedProperties.value(QStringLiteral("ActiveState")).toString();
        if (state != m_activeState) {
            m_activeState = state;
            emit changed();
        }
    } else if (invalidated.contains(QStringLiteral("ActiveState"))) {
        readActiveState(false);
    }
}

void BridgeUnit::fail(const QString& what, const QDBusMessage& reply) {
    m_error = what.arg(reply.errorMessage());
    // Busy until systemd has said again where the unit stands.
    check([this] { m_busy = false; });
}

void BridgeUnit::enable() {
    if (m_busy)
        return;
    m_busy = true;
    m_error.clear();
    emit changed();
    const QString unit = QString::fromLatin1(UnitName);
    // The steps of `systemctl --user enable --now`: the unit's links made, systemd told to read them
    // again, the unit started.
    callManager(QStringLiteral("EnableUnitFiles"), {QStringList{unit}, false, false},
                [this, unit](const QDBusMessage& r) {
                    if (r.type() == QDBusMessage::ErrorMessage)
                        return fail(Localization::text("The bridge was not switched on: %1"), r);
                    callManager(QStringLiteral("Reload"), {}, [this, unit](const QDBusMessage& reloaded) {
                        if (reloaded.type() == QDBusMessage::ErrorMessage)
                            return fail(Localization::text("The bridge was not switched on: %1"), reloaded);
                        callManager(QStringLiteral("StartUnit"), {unit, QStringLiteral("replace")},
                                    [this](const QDBusMessage& started) {
                                        if (started.type() == QDBusMessage::ErrorMessage)
                                            return fail(Localization::text("The bridge was not started: %1"),
                                                        started);
                                        check([this] { m_busy = false; });
                                    });
                    });
                });
}

void BridgeUnit::disable() {
    if (m_busy)
        return;
    m_busy = true;
    m_error.clear();
    emit changed();
    const QString unit = QString::fromLatin1(UnitName);
    callManager(
        QStringLiteral("StopUnit"), {unit, QStringLiteral("replace")}, [this, unit](const QDBusMessage& r) {
            if (r.type() == QDBusMessage::ErrorMessage)
                return fail(Localization::text("The bridge was not stopped: %1"), r);
            callManager(QStringLiteral("DisableUnitFiles"), {QStringList{unit}, false},
                        [this](const QDBusMessage& d) {
                            if (d.type() == QDBusMessage::ErrorMessage)
                                return fail(Localization::text("The bridge was not switched off: %1"), d);
                            callManager(QStringLiteral("Reload"), {}, [this](const QDBusMessage& reloaded) {
                                if (reloaded.type() == QDBusMessage::ErrorMessage)
                                    return fail(Localization::text("The bridge was not switched off: %1"),
                                                reloaded);
                                check([this] { m_busy = false; });
                            });
                        });
        });
}

} // namespace corvina
