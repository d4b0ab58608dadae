#include "ColorScheme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>

namespace corvina {

ColorScheme::ColorScheme(QObject* parent) : QObject(parent) {}

void ColorScheme::start() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(PortalService, PortalPath, PortalInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QDBusMessage)));
    // Asked without waiting: a portal that is slow to start must not hold up the window.
    QDBusMessage read =
        QDBusMessage::createMethodCall(PortalService, PortalPath, PortalInterface, QStringLiteral("Read"));
    read << AppearanceNamespace << ColorSchemeKey;
    m_waiting = true;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(read, 2000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &ColorScheme::portalAnswer);
}

void ColorScheme::portalAnswer(QDBusPendingCallWatcher* call) {
    call->deleteLater();
    m_waiting = false;
    const QDBusPendingReply<QVariant> reply = *call;
    // No portal, or one without the key: the palette decides.
    if (reply.isError()) {
        emit changed(preference());
        return;
    }
    m_portalAnswered = true;
    setPortal(fromPortalValue(reply.value()));
    emit changed(preference());
}

void ColorScheme::settingChanged(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (args.size() < 3 || args.at(0).toString() != AppearanceNamespace ||
        args.at(1).toString() != ColorSchemeKey)
        return;
    m_portalAnswered = true;
    const Preference before = preference();
    setPortal(fromPortalValue(args.at(2)));
    if (preference() != before)
        emit changed(preference());
}

void ColorScheme::setPortal(Preference preference) {
    m_portal = preference;
}

ColorScheme::Preference ColorScheme::preference() const {
    if (m_portal != Preference::None)
        return m_portal;
    // Qt's own palette, with no desktop theme behind it, is light whatever the desktop: only a
    // desktop session's palette says something.
    if (qEnvironmentVariableIsEmpty("XDG_CURRENT_DESKTOP") || !qobject_cast<QGuiApplication*>(qApp))
        return Preference::None;
    return fromPalette(QGuiApplication::palette());
}

ColorScheme::Preference ColorScheme::fromPortalValue(const QVariant& value) {
    QVariant v = value;
    // Read answers the value inside a variant (inside another, in older portals).
    for (int depth = 0;
         depth < 4 && v.canConvert<QDBusVariant>() && v.userType() == qMetaTypeId<QDBusVariant>(); ++depth)
        v = v.value<QDBusVariant>().variant();
    bool ok = false;
    const uint scheme = v.toUInt(&ok);
    if (!ok)
        return Preference::None;
    if (scheme == 1)
        return Preference::Dark;
    if (scheme == 2)
        return Preference::Light;
    return Preference::None;
}

ColorScheme::Preference ColorScheme::fromPalette(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() > palette.color(QPalette::WindowText).lightness()
               ? Preference::Light
               : Preference::Dark;
}

} // namespace corvina
