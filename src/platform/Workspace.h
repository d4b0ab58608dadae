#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <functional>

namespace corvina {

// Opens URLs in another installed application, named by its identifier: the application whose
// desktop file is "<identifier>.desktop", when that one can be started (see
// DesktopEntry::application: a hidden entry or one that is no application counts as none).
//
// - A desktop file with DBusActivatable=true: one org.freedesktop.Application.Open call with all
//   URLs, in order, on the session bus, to the service named by the identifier (the bus starts it
//   when it is not running). The call waits at most callTimeout() for the answer.
// - Otherwise: its Exec line, field codes expanded, started detached (see DesktopEntry::commandLines).
//
// The options say whether the application should come to the front:
// - LaunchAllowingClassicStartup (0x20000) alone: it should. Open's platform_data carries an
//   "activation-token" and a "desktop-startup-id"; an Exec launch gets XDG_ACTIVATION_TOKEN and
//   DESKTOP_STARTUP_ID in its environment.
// - LaunchWithoutActivation (0x200) set: it should not. No token anywhere (inherited ones are
//   removed from the child's environment).
// Either way the options value itself travels along, as "corvina-launch-options" (uint32) in
// platform_data, and as CORVINA_LAUNCH_OPTIONS ("0x200" or "0x20000") in an Exec launch's
// environment, so that the application can tell the two apart without guessing.
class Workspace {
public:
    enum LaunchOptions : quint32 {
        LaunchWithoutActivation = 0x200,
        LaunchAllowingClassicStartup = 0x20000,
    };

    // False when no desktop file is found, the Exec line is unusable or cannot be started, or the
    // D-Bus call fails or is not answered in time. True when every start or the call succeeded.
    static bool openURLs(const QStringList& urls, const QString& identifier, quint32 options);

    // openURLs on the workspace's own thread, so that an application slow to answer (up to
    // callTimeout()) keeps no window waiting. Returns at once; `done`, when given, gets openURLs'
    // answer on that thread. Launches run one at a time, in the order asked for, so the mail
    // application gets the commands in the order they were given.
    static void openURLsInBackground(const QStringList& urls, const QString& identifier, quint32 options,
                                     std::function<void(bool)> done = {});
    // Waits up to `milliseconds` until every launch asked for in the background is over; false
    // when some is still running. At the program's end it is done for the program (bounded by
    // callTimeout()), so a launch in progress is not cut off by the exit.
    static bool waitForBackgroundLaunches(int milliseconds);

    // How long a D-Bus call may keep the caller waiting, in milliseconds (default 3000).
    static int callTimeout();
    static void setCallTimeout(int milliseconds);

    // The D-Bus object path of an application id: "/" + the id with "." as "/" and "-" as "_".
    static QString objectPathForIdentifier(const QString& identifier);
};

} // namespace corvina
