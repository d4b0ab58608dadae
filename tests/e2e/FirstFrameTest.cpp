// corvina-today's first frame comes before its folder reads: the window (the header and an empty
// table) is painted first, and the snapshot is read in the turns after. A snapshot file that is no
// property list makes the read log "updateData error deserialize ..." when it happens; the program
// run with CORVINA_BENCH_FIRST_FRAME=1 stops at its first frame, so that line must not be in its
// output yet.
#include "support/TempContainer.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <functional>
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

// The folder the order tests start from: `messages` messages in ann's Inbox, "Subject m0"
// the newest and each next one `spacing` seconds older, and a file that is no property list, so
// that every whole read logs a line.
void writeInboxAndABrokenFile(TempContainer& container, const QString& account, int messages, int spacing) {
    container.writeAccounts({TempContainer::account(account)});
    QVariantList inbox;
    for (int i = 0; i < messages; ++i) {
        QVariantMap m =
            TempContainer::message(QStringLiteral("m%1").arg(i), account, 1795000000 - i * spacing);
        m.insert(QStringLiteral("subject"), QStringLiteral("Subject m%1").arg(i));
        inbox << m;
    }
    container.writeSnapshot(account, QStringLiteral("inbox.plist"), inbox);
    container.writeBytes(QStringLiteral("Today/") + account + QStringLiteral("/broken.plist"),
                         QByteArrayLiteral("this is no property list"));
}

// Starts the program on `container`, its window shown on the offscreen platform, with the rows
// hook on (CORVINA_BENCH_ROWS=1: "rows <clock> <subject>" at each frame that puts other rows on the
// screen) and standard output and the log in one pipe, so that what it prints is in the order of
// the writes. `config` is its XDG_CONFIG_HOME.
void startWithRowsHook(QProcess& p, const TempContainer& container, const QTemporaryDir& config) {
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
    writeInboxAndABrokenFile(container, account, 12, 600);
    const QByteArray readLine = QByteArrayLiteral("updateData error deserialize");

    QTemporaryDir config;
    QProcess p;
    startWithRowsHook(p, container, config);
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

namespace {

// What a running widget printed after one change: `messages` messages in the Inbox (Subject m0
// newest) and a file that is no property list, so that every whole read logs a line. Once the window
// shows its rows and the start's two reads are over, a snapshot file holding a message newer than
// all others ("Subject new") is renamed into place, as the mail application's writers replace one;
// the output from then on, until both the rows with that message were on the screen ("rows <clock>
// Subject new", CORVINA_BENCH_ROWS=1) and the update's read logged the broken file again. Standard
// output and the log share one pipe, so the order is the order of the writes. Empty on a failure
// (reported).
QByteArray outputAfterAChange(int messages) {
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    writeInboxAndABrokenFile(container, account, messages, 60);
    const QByteArray readLine = QByteArrayLiteral("updateData error deserialize");

    QTemporaryDir config;
    QProcess p;
    startWithRowsHook(p, container, config);
    QByteArray out;
    const auto waitFor = [&](const std::function<bool()>& done) {
        QElapsedTimer waited;
        waited.start();
        while (!done() && waited.elapsed() < 30000) {
            p.waitForReadyRead(1000);
            out += p.readAll();
        }
        return done();
    };
    // The start reads twice (the will-appear step's read and the first update), each logging the
    // broken file.
    const bool started = waitFor([&] { return out.count(readLine) >= 2 && out.contains("Subject m0\n"); });
    // Left alone a moment: a third read would be one the start made after all, and the order after
    // the change would prove nothing.
    QTest::qWait(500);
    out += p.readAll();
    const qsizetype readsAtStart = out.count(readLine);

    QVariantMap newer = TempContainer::message(QStringLiteral("new"), account, 1795000000 + 600);
    newer.insert(QStringLiteral("subject"), QStringLiteral("Subject new"));
    container.writeSnapshot(account, QStringLiteral(".new.plist.tmp"), {newer});
    const QString folder = container.data() + QStringLiteral("/Today/") + account;
    const bool renamed =
        QFile::rename(folder + QStringLiteral("/.new.plist.tmp"), folder + QStringLiteral("/new.plist"));
    const qsizetype changeAt = out.size();
    const bool updated =
        waitFor([&] { return out.count(readLine) > readsAtStart && out.contains("Subject new\n"); });
    p.kill();
    p.waitForFinished(3000);
    EXPECT_TRUE(started) << out.toStdString();
    EXPECT_EQ(readsAtStart, 2) << out.toStdString();
    EXPECT_TRUE(renamed);
    EXPECT_TRUE(updated) << out.toStdString();
    if (!started || readsAtStart != 2 || !renamed || !updated)
        return {};
    return out.mid(changeAt);
}

} // namespace

// In a large folder a changed file's rows come before the update's whole read: the rows the update
// will show are read without building the others and put on the screen, and the update follows.
TEST(FirstFrame, AChangedFilesRowsComeBeforeTheUpdatesWholeRead) {
    const QByteArray after = outputAfterAChange(2500);
    ASSERT_FALSE(after.isEmpty());
    const qsizetype rowsAt = after.indexOf("Subject new\n");
    ASSERT_GE(rowsAt, 0) << after.toStdString();
    EXPECT_LT(rowsAt, after.indexOf("updateData error deserialize"))
        << "the update's whole read came before the changed rows:\n"
        << after.toStdString();
}

// In a small one the update itself is quick: it runs at once, as it always did, and the
// notification of a new message is not put off by a frame of rows before it.
TEST(FirstFrame, InASmallFolderTheUpdateRunsAtOnce) {
    const QByteArray after = outputAfterAChange(12);
    ASSERT_FALSE(after.isEmpty());
    const qsizetype readAt = after.indexOf("updateData error deserialize");
    ASSERT_GE(readAt, 0) << after.toStdString();
    EXPECT_LT(readAt, after.indexOf("Subject new\n")) << after.toStdString();
}
