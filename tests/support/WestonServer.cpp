#include "WestonServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QThread>

namespace corvina::test {

namespace {

constexpr char SocketName[] = "corvina-test-wayland";

} // namespace

WestonServer::~WestonServer() {
    m_server.terminate();
    if (!m_server.waitForFinished(3000)) {
        m_server.kill();
        m_server.waitForFinished(3000);
    }
}

bool WestonServer::start() {
    QDir root(m_dir.path());
    root.mkpath(QStringLiteral("runtime"));
    root.mkpath(QStringLiteral("shots"));
    // Wayland clients refuse a runtime folder others may read.
    QFile::setPermissions(m_dir.filePath(QStringLiteral("runtime")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_dir.filePath(QStringLiteral("runtime")));
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_SOCKET"));
    m_server.setProcessEnvironment(env);
    QFile config(m_dir.filePath(QStringLiteral("weston.ini")));
    if (!config.open(QIODevice::WriteOnly)) {
        m_error = QStringLiteral("cannot write ") + config.fileName();
        return false;
    }
    // A window appears at once, as it is drawn, on black: nothing else on the screen.
    config.write("[shell]\nbackground-color=0xff000000\npanel-position=none\nlocking=false\n"
                 "animation=none\nclose-animation=none\nstartup-animation=none\nfocus-animation=none\n");
    config.close();
    m_server.setStandardOutputFile(m_dir.filePath(QStringLiteral("weston.log")));
    m_server.setStandardErrorFile(m_dir.filePath(QStringLiteral("weston.log")), QIODevice::Append);
    // --use-pixman: software rendering, whose picture the screenshooter can read (the headless
    // backend otherwise draws nothing); --debug allows the screenshooter; --config: ours, never a
    // weston.ini of the machine's; --idle-time=0: the screen never blanks.
    m_server.start(QStringLiteral("weston"),
                   {QStringLiteral("--backend=headless-backend.so"),
                    QStringLiteral("--shell=desktop-shell.so"),
                    QStringLiteral("--socket=%1").arg(QLatin1String(SocketName)),
                    QStringLiteral("--use-pixman"), QStringLiteral("--debug"),
                    QStringLiteral("--config=") + config.fileName(), QStringLiteral("--idle-time=0"),
                    QStringLiteral("--width=%1").arg(Width), QStringLiteral("--height=%1").arg(Height)});
    if (!m_server.waitForStarted(5000)) {
        m_error = QStringLiteral("weston could not be started: ") + m_server.errorString();
        return false;
    }
    // Ready once a client sees the window manager's interface.
    const QDeadlineTimer deadline(20000);
    while (!deadline.hasExpired()) {
        if (m_server.state() != QProcess::Running) {
            m_error = QStringLiteral("weston ended: ") + log();
            return false;
        }
        QProcess info;
        info.setProcessEnvironment(clientEnvironment());
        info.start(QStringLiteral("weston-info"), {});
        if (info.waitForFinished(5000) && info.exitCode() == 0 &&
            info.readAllStandardOutput().contains("xdg_wm_base"))
            return true;
        QThread::msleep(50);
    }
    m_error = QStringLiteral("weston did not get ready within 20 s: ") + log();
    return false;
}

QProcessEnvironment WestonServer::clientEnvironment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_SOCKET"));
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), QLatin1String(SocketName));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_dir.filePath(QStringLiteral("runtime")));
    return env;
}

QImage WestonServer::screen() const {
    // The screenshooter writes "wayland-screenshot-<time>.png" into its working folder.
    QDir shots(m_dir.filePath(QStringLiteral("shots")));
    for (const QString& old : shots.entryList(QDir::Files))
        shots.remove(old);
    QProcess shooter;
    shooter.setProcessEnvironment(clientEnvironment());
    shooter.setWorkingDirectory(shots.path());
    shooter.start(QStringLiteral("weston-screenshooter"), {});
    if (!shooter.waitForFinished(10000) || shooter.exitCode() != 0)
        return {};
    const QStringList taken = shots.entryList({QStringLiteral("*.png")}, QDir::Files);
    if (taken.size() != 1)
        return {};
    return QImage(shots.filePath(taken.first())).convertToFormat(QImage::Format_RGB32);
}

QString WestonServer::log() const {
    QFile file(m_dir.filePath(QStringLiteral("weston.log")));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace corvina::test
