// corvina-today's first frame comes before its folder reads: the window (the header and an empty
// table) is painted first, and the snapshot is read in the turns after. A snapshot file that is no
// property list makes the read log "updateData error deserialize ..." when it happens; the program
// run with CORVINA_BENCH_FIRST_FRAME=1 stops at its first frame, so that line must not be in its
// output yet.
#include "support/TempContainer.h"

#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using corvina::test::TempContainer;

namespace {

struct FrameOutcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

FrameOutcome runWidget(const TempContainer& container, const QStringList& extra, bool stopAtFirstFrame) {
    QTemporaryDir config;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    env.remove(QStringLiteral("QT_LOGGING_RULES"));
    if (stopAtFirstFrame)
        env.insert(QStringLiteral("CORVINA_BENCH_FIRST_FRAME"), QStringLiteral("1"));
    else
        env.remove(QStringLiteral("CORVINA_BENCH_FIRST_FRAME"));
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(CORVINA_TODAY_BINARY),
            QStringList{QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                        QStringLiteral("3600")} +
                extra);
    if (!p.waitForFinished(30000)) {
        p.kill();
        p.waitForFinished(3000);
        return {};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

} // namespace

TEST(FirstFrame, IsPaintedBeforeTheSnapshotIsRead) {
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    container.writeSnapshot(account, QStringLiteral("inbox.plist"),
                            TempContainer::inboxMessages(account, {QStringLiteral("m0")}));
    container.writeBytes(QStringLiteral("Today/") + account + QStringLiteral("/broken.plist"),
                         QByteArrayLiteral("this is no property list"));
    const QByteArray readLine = QByteArrayLiteral("updateData error deserialize");

    // The read itself is seen: a run that goes on to its first update logs the broken file.
    QTemporaryDir out;
    const FrameOutcome shown =
        runWidget(container, {QStringLiteral("--screenshot"), out.filePath(QStringLiteral("s.png"))}, false);
    ASSERT_EQ(shown.exitCode, 0) << shown.err.toStdString();
    ASSERT_TRUE(shown.err.contains(readLine)) << shown.err.toStdString();

    // Stopped at the first frame: the frame came (the clock was printed), the read had not yet.
    const FrameOutcome first = runWidget(container, {}, true);
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    bool isNumber = false;
    EXPECT_GT(first.out.trimmed().toLongLong(&isNumber), 0);
    EXPECT_TRUE(isNumber) << first.out.toStdString();
    EXPECT_FALSE(first.err.contains(readLine)) << "the snapshot was read before the window's first frame:\n"
                                               << first.err.toStdString();
}
