#pragma once

#include <QImage>
#include <QPoint>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace corvina::test {

// An X server of the test's own (Xvfb, 800x900), whose screen is also a file (-fbdir) the test can
// look at, and xdotool for real input on it.
class XServer {
public:
    XServer() = default;
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // Starts the server and waits until it says its display number.
    bool start();
    QString display() const { return m_display; }

    // The screen as an image, read from the server's XWD frame-buffer file.
    QImage screen() const;
    // Runs xdotool on this display with `arguments`; answers what it printed.
    QString xdotool(const QStringList& arguments) const;
    // The first visible window whose name matches `name`, waiting for it (xdotool's --sync); empty
    // when none came.
    QString findWindow(const QString& name) const;
    // Where a window's top left corner is on the screen.
    QPoint windowOrigin(const QString& windowId) const;
    // Moves the pointer to (`x`, `y`) of the window and clicks the left button.
    void click(const QString& windowId, int x, int y) const;

private:
    QTemporaryDir m_dir;
    QProcess m_server;
    QString m_display;
};

} // namespace corvina::test
