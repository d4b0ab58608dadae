// How a person who has never opened a terminal reaches the Accounts window: `corvina-today
// --accounts` and the tray menu's "Accounts…" start corvina-accounts, found beside the running
// program first, else on PATH; when it is not installed, a line says so.
#include "platform/CompanionProgram.h"

#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/Wait.h"
#include "widget/NewMailTracker.h"
#include "widget/TrayIcon.h"

#include <QAction>
#include <QCoreApplication>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

// A stand-in for corvina-accounts: a script that leaves its arguments in `marker`.
void writeStandIn(const QString& folder, const QString& marker) {
    QFile script(folder + QStringLiteral("/corvina-accounts"));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho started \"$@\" > '" + QFile::encodeName(marker) + "'\n");
    script.close();
    ASSERT_TRUE(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

struct TodayRun {
    int exitCode = -1;
    QString err;
};

// corvina-today copied into `folder` (so that its own folder is one the test chooses), run with
// --accounts and PATH set to `path`.
TodayRun todayAccounts(const QString& folder, const QString& path) {
    const QString copy = folder + QStringLiteral("/corvina-today");
    EXPECT_TRUE(QFile::copy(QStringLiteral(CORVINA_TODAY_BINARY), copy));
    QProcess today;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PATH"), path);
    today.setProcessEnvironment(env);
    today.start(copy, {QStringLiteral("--accounts")});
    EXPECT_TRUE(today.waitForFinished(30000));
    return {today.exitCode(), QString::fromUtf8(today.readAllStandardError())};
}

TEST(AccountsFromTheWidget, TodayStartsTheWindowBesideItself) {
    QTemporaryDir programs;
    QTemporaryDir empty;
    const QString marker = programs.filePath(QStringLiteral("marker"));
    writeStandIn(programs.path(), marker);
    const TodayRun run = todayAccounts(programs.path(), empty.path());
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_TRUE(waitFor([&] { return QFile::exists(marker); }, 20000));
}

TEST(AccountsFromTheWidget, TodaySaysWhenTheWindowIsNotInstalled) {
    QTemporaryDir programs;
    QTemporaryDir empty;
    const TodayRun run = todayAccounts(programs.path(), empty.path());
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              QStringLiteral("corvina-today: corvina-accounts is not installed (looked in %1 and on PATH); "
                             "the Accounts window comes with the corvina-mail-bridge package\n")
                  .arg(programs.path()));
}

TEST(AccountsFromTheWidget, TheTrayMenuStartsTheWindowFromPath) {
    QTemporaryDir folder;
    const QString marker = folder.filePath(QStringLiteral("marker"));
    writeStandIn(folder.path(), marker);
    const ScopedEnvironment path("PATH", QFile::encodeName(folder.path()));
    NewMailTracker tracker;
    TrayIcon tray(&tracker, nullptr);
    ASSERT_NE(tray.accountsAction(), nullptr);
    EXPECT_EQ(tray.accountsAction()->text(), QStringLiteral("Accounts…"));
    EXPECT_TRUE(tray.menu()->actions().contains(tray.accountsAction()));
    LogCapture log;
    tray.accountsAction()->trigger();
    EXPECT_TRUE(waitFor([&] { return QFile::exists(marker); }, 20000));
    EXPECT_EQ(log.lines(), QStringList());
}

TEST(AccountsFromTheWidget, TheTrayMenuLogsWhenTheWindowIsNotInstalled) {
    QTemporaryDir empty;
    const ScopedEnvironment path("PATH", QFile::encodeName(empty.path()));
    NewMailTracker tracker;
    TrayIcon tray(&tracker, nullptr);
    LogCapture log;
    tray.accountsAction()->trigger();
    EXPECT_EQ(log.count(QStringLiteral("[***ERROR***] Accounts window not started: corvina-accounts is not "
                                       "installed (looked in %1 and on PATH)")
                            .arg(QCoreApplication::applicationDirPath())),
              1)
        << log.lines().join(u'\n').toStdString();
}

} // namespace
} // namespace corvina::test
