#pragma once

#include "XServer.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

namespace corvina::test {

// A desktop a screen reader can read, for the whole-program tests: an X server of the test's own
// (Xvfb), and on the process's private session bus (PrivateSessionBus) the desktop's accessibility
// bus (at-spi-bus-launcher, as a desktop starts it, with accessibility and the screen reader
// switched on) and its registry (which tells applications who listens). Its runtime folder (where
// the accessibility bus puts its socket) is the test's own, so that tests beside it keep theirs.
//
// One per test program (shared()), started by the first test that asks and stopped when the
// program ends: starting the three costs a second or more on a busy machine, and every test of a
// program needs the same. What a test starts on it (its windows, config, keyring) is the test's
// own and goes with it, so tests stay independent.
class AccessibilityDesktop {
public:
    // The desktop of this test program, started on first use; null when a part would not start,
    // with the reason in `error` (also on later calls).
    static AccessibilityDesktop* shared(QString* error);

    XServer& x() { return m_x; }
    // Where the accessibility bus listens (in runtimePath()).
    QString accessibilityBus() const { return m_a11yAddress; }
    QString runtimePath() const { return m_runtime.path(); }
    // The environment of a program shown on this desktop: the session bus, the runtime folder,
    // the display, Qt on X (xcb) with its AT-SPI bridge on, and none of the variables that would
    // make Qt take the person's desktop's theme or its Wayland.
    QProcessEnvironment programEnvironment() const;

    ~AccessibilityDesktop();
    AccessibilityDesktop(const AccessibilityDesktop&) = delete;
    AccessibilityDesktop& operator=(const AccessibilityDesktop&) = delete;

private:
    AccessibilityDesktop() = default;
    bool start(QString* error);
    QProcessEnvironment busEnvironment() const;

    QTemporaryDir m_runtime;
    XServer m_x;
    QProcess m_launcher;
    QProcess m_registry;
    QString m_a11yAddress;
};

} // namespace corvina::test
