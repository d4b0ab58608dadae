#pragma once

#include <QObject>
#include <QVariant>

class QDBusMessage;
class QDBusPendingCallWatcher;
class QPalette;

namespace corvina {

// Whether the desktop is light or dark, and when that changes.
//
// Asked of the desktop's settings portal (org.freedesktop.portal.Settings, key "color-scheme" of
// "org.freedesktop.appearance": 1 dark, 2 light, 0 no preference), which GNOME, KDE Plasma and
// others answer, and followed through its SettingChanged signal. Where the portal is missing or has
// no preference, a desktop session (XDG_CURRENT_DESKTOP set) is judged by the palette its Qt theme
// gives; with neither, there is no preference, and the caller keeps its own look.
class ColorScheme : public QObject {
    Q_OBJECT

public:
    enum class Preference { None, Dark, Light };
    Q_ENUM(Preference)

    static inline const QString PortalService = QStringLiteral("org.freedesktop.portal.Desktop");
    static inline const QString PortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
    static inline const QString PortalInterface = QStringLiteral("org.freedesktop.portal.Settings");
    static inline const QString AppearanceNamespace = QStringLiteral("org.freedesktop.appearance");
    static inline const QString ColorSchemeKey = QStringLiteral("color-scheme");

    explicit ColorScheme(QObject* parent = nullptr);

    // Sends the question (answered later, as changed()) and subscribes to the portal's changes.
    // Without a session bus: the palette alone.
    void start();

    // What is known now: the portal's answer, else the desktop palette's, else None.
    Preference preference() const;
    bool portalAnswered() const { return m_portalAnswered; }
    // Asked and not answered yet (at most the call's 2 s).
    bool isWaiting() const { return m_waiting; }

    // The portal's value (a number, possibly wrapped in variants as Read answers it).
    static Preference fromPortalValue(const QVariant& value);
    // Light when the window colour is lighter than the text colour.
    static Preference fromPalette(const QPalette& palette);

signals:
    void changed(corvina::ColorScheme::Preference preference);

private slots:
    // The portal's SettingChanged(namespace, key, value), taken whole.
    void settingChanged(const QDBusMessage& message);

private:
    void portalAnswer(QDBusPendingCallWatcher* call);
    void setPortal(Preference preference);

    Preference m_portal = Preference::None;
    bool m_portalAnswered = false;
    bool m_waiting = false;
};

} // namespace corvina
