#include "FakeHostApp.h"

#include "support/PrivateSessionBus.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace corvina::test {

FakeHostApp::FakeHostApp() {
    QDir(m_dir.path()).mkpath(QStringLiteral("data/applications"));
    QDir(m_dir.path()).mkpath(QStringLiteral("system"));
    m_dataHome =
        std::make_unique<ScopedEnvironment>("XDG_DATA_HOME", m_dir.filePath(QStringLiteral("data")).toUtf8());
    m_dataDirs = std::make_unique<ScopedEnvironment>("XDG_DATA_DIRS",
                                                     m_dir.filePath(QStringLiteral("system")).toUtf8());
}

QString FakeHostApp::recorderProgram() {
    return QStringLiteral(CORVINA_TEST_RECORDER);
}

void FakeHostApp::installDesktopFile(const QString& relativePath, const QByteArray& desktopFile) {
    const QString path = applicationsFolder() + u'/' + relativePath;
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(desktopFile);
}

void FakeHostApp::installRecorder(const QString& id, const QString& arguments) {
    installDesktopFile(id + QStringLiteral(".desktop"),
                       QStringLiteral("[Desktop Entry]\nType=Application\nName=Recorder\nExec=%1 %2 %3\n")
                           .arg(recorderProgram(), recordFile(), arguments)
                           .toUtf8());
}

void FakeHostApp::installDBusService(const QString& id, int delayMilliseconds) {
    installDesktopFile(
        id + QStringLiteral(".desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Service\nDBusActivatable=true\n"
                       "Exec=/nonexistent/never-run %U\n")
            .toUtf8());
    if (PrivateSessionBus* bus = PrivateSessionBus::instance())
        bus->installService(id, QStringLiteral(CORVINA_TEST_APPSERVICE),
                            {recordFile(), id, QString::number(delayMilliseconds)});
}

QList<HostLaunch> FakeHostApp::launches() const {
    QFile file(recordFile());
    QList<HostLaunch> out;
    if (!file.open(QIODevice::ReadOnly))
        return out;
    HostLaunch current;
    bool open = false;
    for (const QByteArray& raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw);
        if (line == QLatin1String("launch") || line.startsWith(QLatin1String("call "))) {
            current = HostLaunch{};
            current.method = line == QLatin1String("launch") ? QStringLiteral("exec") : line.mid(5);
            open = true;
        } else if (line == QLatin1String("end") && open) {
            out << current;
            open = false;
        } else if (line.startsWith(QLatin1String("arg ")) || line.startsWith(QLatin1String("uri "))) {
            current.arguments << line.mid(4);
        } else if (line.startsWith(QLatin1String("env ")) || line.startsWith(QLatin1String("data "))) {
            const QString pair = line.mid(line.indexOf(u' ') + 1);
            const qsizetype eq = pair.indexOf(u'=');
            current.values.insert(pair.left(eq), pair.mid(eq + 1));
        }
    }
    return out;
}

QList<HostLaunch> FakeHostApp::waitForLaunches(int count, int timeoutMs) const {
    // The recorder is started detached: nothing to wait on but its file.
    QDeadlineTimer deadline(timeoutMs);
    QList<HostLaunch> found = launches();
    while (found.size() < count && !deadline.hasExpired()) {
        QThread::msleep(10);
        found = launches();
    }
    return found;
}

} // namespace corvina::test
