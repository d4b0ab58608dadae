// corvina-today's first frame comes before its folder reads: the window (the header and an empty
// table) is painted first, and the snapshot is read in the turns after. A snapshot file that is no
// property list makes the read log "updateData error deserialize ..." when it happens; the program
// run with CORVINA_BENCH_FIRST_FRAME=1 stops at its first frame, so that line must not be in its
// output yet.
#include "support/TempContainer.h"

#include <QElapsedTimer>
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

// The first rows come before the read that counts: after the first frame, the rows the first read
// will show are read without building the others and put on the screen, and the whole read follows
// once they are there. CORVINA_BENCH_ROWS=1 makes the program print "rows <clock> <subject>" at the
// frame that shows them; with standard output and the log in one pipe, the order is the order of
// the writes: the read's line for the broken file comes after the rows, not before.
TEST(FirstFrame, TheNewestRowsComeBeforeTheWholeRead) {
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    QVariantList messages;
    for (int i = 0; i < 12; ++i) {
        QVariantMap m = TempContainer::message(QStringLiteral("m%1").arg(i), account, 1795000000 - i * 600);
        m.insert(QStringLiteral("subject"), QStringLiteral("Subject m%1").arg(i));
        messages << m;
    }
    container.writeSnapshot(account, QStringLiteral("inbox.plist"), messages);
    container.writeBytes(QStringLiteral("Today/") + account + QStringLiteral("/broken.plist"),
                         QByteArrayLiteral("this is no property list"));
    const QByteArray readLine = QByteArrayLiteral("updateData error deserialize");

    QTemporaryDir config;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    env.remove(QStringLiteral("QT_LOGGING_RULES"));
    env.remove(QStringLiteral("CORVINA_BENCH_FIRST_FRAME"));
    env.insert(QStringLiteral("CORVINA_BENCH_ROWS"), QStringLiteral("1"));
    p.setProcessEnvironment(env);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral(CORVINA_TODAY_BINARY),
            QStringList{QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                        QStringLiteral("3600")});
    QByteArray out;
    const auto waitFor = [&](const QByteArray& text) {
        QElapsedTimer waited;
        waited.start();
        while (!out.contains(text) && waited.elapsed() < 30000) {
            p.waitForReadyRead(1000);
            out += p.readAll();
        }
        return out.contains(text);
    };
    const bool rows = waitFor(QByteArrayLiteral("Subject m0\n"));
    const bool read = waitFor(readLine);
    p.kill();
    p.waitForFinished(3000);
    ASSERT_TRUE(rows) << out.toStdString();
    ASSERT_TRUE(read) << out.toStdString();
    const qsizetype rowsAt = out.indexOf("\nrows ") >= 0 ? out.indexOf("\nrows ") : out.indexOf("rows ");
    EXPECT_TRUE(out.contains("frame ")) << out.toStdString();
    EXPECT_LT(out.indexOf("frame "), rowsAt) << out.toStdString();
    // the early look at the rows read the broken file too, and said nothing of it
    EXPECT_LT(rowsAt, out.indexOf(readLine)) << "the whole read came before the first rows:\n"
                                             << out.toStdString();
}
