#pragma once

#include <QImage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

namespace corvina::test {

// A Wayland desktop of the test's own: a headless Weston with a runtime folder, a socket and a
// configuration of its own, no X server at all (Xwayland is never started), its desktop shell on a
// black background with no panel and no animations. It renders in software, so that its screen can
// be read back.
class WestonServer {
public:
    WestonServer() = default;
    ~WestonServer();
    WestonServer(const WestonServer&) = delete;
    WestonServer& operator=(const WestonServer&) = delete;

    // Starts the compositor and waits until a client can bind its window manager (xdg_wm_base).
    // False, with the reason in error(), when it cannot.
    bool start();
    QString error() const { return m_error; }

    // What a client of this desktop runs with: the test's environment without DISPLAY (no X server
    // to fall back on), with WAYLAND_DISPLAY and XDG_RUNTIME_DIR naming this compositor.
    QProcessEnvironment clientEnvironment() const;

    // The screen as the compositor shows it (weston-screenshooter); a null image when it cannot be
    // read.
    QImage screen() const;
    // What the compositor logged so far.
    QString log() const;

    static constexpr int Width = 800;
    static constexpr int Height = 900;

private:
    QTemporaryDir m_dir;
    QProcess m_server;
    QString m_error;
};

} // namespace corvina::test
