#pragma once

#include "support/ScopedEnvironment.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

namespace corvina::test {

// One start of the recorder, or one call the D-Bus test service received.
struct HostLaunch {
    QString method;                // "exec" for a recorder start, else the D-Bus method ("Open")
    QStringList arguments;         // the recorder's arguments, or the URIs of a call
    QMap<QString, QString> values; // launch environment variables, or platform_data entries
};

// Applications for the launcher to find: a private applications folder made this process's
// $XDG_DATA_HOME (and $XDG_DATA_DIRS pointed at an empty folder, so that nothing installed on the
// machine answers), holding desktop files of stand-in mail applications that record what they get.
class FakeHostApp {
public:
    FakeHostApp();

    // "<id>.desktop" starting the recorder with `arguments` (an Exec line fragment such as "%U")
    // after the record file.
    void installRecorder(const QString& id, const QString& arguments = QStringLiteral("%U"));
    // "<id>.desktop" with exactly `desktopFile` as its contents.
    void installDesktopFile(const QString& relativePath, const QByteArray& desktopFile);
    // "<id>.desktop" with DBusActivatable=true, and the bus told to start the test service for
    // `id` (answering after `delayMilliseconds`). Needs PrivateSessionBus.
    void installDBusService(const QString& id, int delayMilliseconds = 0);

    QString recordFile() const { return m_dir.filePath(QStringLiteral("record.txt")); }
    QString applicationsFolder() const { return m_dir.filePath(QStringLiteral("data/applications")); }
    static QString recorderProgram();

    // What was recorded so far.
    QList<HostLaunch> launches() const;
    // Waits (draining nothing, polling the file) up to `timeoutMs` for at least `count` launches.
    QList<HostLaunch> waitForLaunches(int count, int timeoutMs = 10000) const;

private:
    QTemporaryDir m_dir;
    std::unique_ptr<ScopedEnvironment> m_dataHome;
    std::unique_ptr<ScopedEnvironment> m_dataDirs;
};

} // namespace corvina::test
