// What a bridge killed in the middle of a write leaves in the shared folder, and how the next one
// to start removes it: its own temporaries only, and only under the lock their writes are made under.
#include "BridgeTesting.h"
#include "bridge/service/LiveBridge.h"
#include "bridge/sync/SnapshotWriter.h"
#include "shared/ConstVars.h"
#include "support/LockHolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class LeftoversTest : public BridgeServerTest {
protected:
    void SetUp() override {
        BridgeServerTest::SetUp();
        deliver(QStringLiteral("Hello"));
        today = container.data() + u'/' + ConstVars::todayFolder;
        ada = today + u'/' + Mail;
        gone = today + QStringLiteral("/gone@example.org");
        ASSERT_TRUE(QDir().mkpath(ada));
        ASSERT_TRUE(QDir().mkpath(gone));

        // Ours, as a killed writer leaves them: the data folder's for Accounts.plist, and the list
        // files' in account folders, also of an account no longer configured.
        ours = {container.data() + QStringLiteral("/.Accounts.plist.Ab3xYz.tmp"),
                ada + QStringLiteral("/.inbox.plist.q1W2e3.tmp"),
                ada + QStringLiteral("/.todo.plist.ZZZZZZ.tmp"),
                gone + QStringLiteral("/.memo.plist.a1b2c3.tmp")};
        // Alike, and not ours: the host-side writer's (eight characters), one character short, a
        // file this bridge does not write, not hidden, a character mkstemps does not use, something
        // after ".tmp", a name in the Today folder itself, a folder.
        notOurs = {ada + QStringLiteral("/.inbox.plist.abcd1234.tmp"),
                   ada + QStringLiteral("/.inbox.plist.Ab3xY.tmp"),
                   ada + QStringLiteral("/.notes.plist.Ab3xYz.tmp"),
                   ada + QStringLiteral("/inbox.plist.Ab3xYz.tmp"),
                   ada + QStringLiteral("/.inbox.plist.Ab-xYz.tmp"),
                   container.data() + QStringLiteral("/.Accounts.plist.Ab3xYz.tmp.orig"),
                   today + QStringLiteral("/.inbox.plist.Top001.tmp")};
        for (const QString& path : ours + notOurs)
            write(path);
        ASSERT_TRUE(QDir().mkpath(ada + QStringLiteral("/.memo.plist.Dir001.tmp")));
        // A link named like ours, to a file elsewhere: neither it nor its target is removed.
        write(elsewhere.filePath(QStringLiteral("precious")));
        ASSERT_TRUE(QFile::link(elsewhere.filePath(QStringLiteral("precious")),
                                ada + QStringLiteral("/.todo.plist.Link01.tmp")));
    }

    static void write(const QString& path) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
        file.write("<?xml half a plist");
    }

    static QStringList existing(const QStringList& paths) {
        QStringList found;
        for (const QString& path : paths) {
            if (QFileInfo(path).exists() || QFileInfo(path).isSymLink())
                found << path;
        }
        return found;
    }

    void expectOnlyOursRemoved() {
        EXPECT_EQ(existing(ours), QStringList());
        EXPECT_EQ(existing(notOurs), notOurs);
        EXPECT_TRUE(QFileInfo(ada + QStringLiteral("/.memo.plist.Dir001.tmp")).isDir());
        EXPECT_TRUE(QFileInfo(ada + QStringLiteral("/.todo.plist.Link01.tmp")).isSymLink());
        EXPECT_TRUE(QFileInfo::exists(elsewhere.filePath(QStringLiteral("precious"))));
    }

    QString today;
    QString ada;
    QString gone;
    QStringList ours;
    QStringList notOurs;
    QTemporaryDir elsewhere;
};

TEST_F(LeftoversTest, OnceRemovesTheTemporariesOfAnInterruptedWriteAndNothingAlike) {
    const BridgeRun run =
        runBridge({QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), accountKeys()}}));
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    expectOnlyOursRemoved();
    // and the sync itself went on
    EXPECT_EQ(snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList().size(), 1);
}

TEST_F(LeftoversTest, TheForegroundBridgeRemovesThemAtItsStartAndSaysHowMany) {
    LiveBridge bridge(
        BridgeConfig::load(writeConfig({{QStringLiteral("work"), accountKeys()}})), container.data(),
        configDir.filePath(QStringLiteral("status.json")),
        [](const BridgeConfig::Account&, QString*) { return std::optional<QString>(Password); });
    QStringList lines;
    QObject::connect(&bridge, &LiveBridge::log, [&lines](const QString& line) { lines << line; });
    QString error;
    ASSERT_TRUE(bridge.start(&error, false)) << error.toStdString();
    EXPECT_EQ(lines,
              QStringList{QStringLiteral("removed 4 temporary files left behind by an interrupted write")});
    expectOnlyOursRemoved();

    // Nothing left: nothing said.
    LiveBridge again(BridgeConfig::load(writeConfig({{QStringLiteral("work"), accountKeys()}})),
                     container.data(), configDir.filePath(QStringLiteral("status.json")),
                     [](const BridgeConfig::Account&, QString*) { return std::optional<QString>(Password); });
    lines.clear();
    QObject::connect(&again, &LiveBridge::log, [&lines](const QString& line) { lines << line; });
    ASSERT_TRUE(again.start(&error, false)) << error.toStdString();
    EXPECT_EQ(lines, QStringList());
}

TEST_F(LeftoversTest, ATemporaryUnderAHeldLockIsAnotherWritersAndStays) {
    // Another bridge (or a --once beside this one) writing the lists now holds the Today folder's
    // lock, and its temporary is one of those "ours" files.
    LockHolder writing(today);
    LiveBridge bridge(
        BridgeConfig::load(writeConfig({{QStringLiteral("work"), accountKeys()}})), container.data(),
        configDir.filePath(QStringLiteral("status.json")),
        [](const BridgeConfig::Account&, QString*) { return std::optional<QString>(Password); });
    QStringList lines;
    QObject::connect(&bridge, &LiveBridge::log, [&lines](const QString& line) { lines << line; });
    QString error;
    // Not a reason to stop.
    ASSERT_TRUE(bridge.start(&error, false)) << error.toStdString();
    ASSERT_EQ(lines.size(), 1) << lines.join(u'\n').toStdString();
    EXPECT_TRUE(lines.first().startsWith(
        QStringLiteral("temporary files left behind were not removed: cannot lock the Today folder: ")))
        << lines.first().toStdString();
    // The data folder's, under a lock that was free, is gone; those under the held one all stay.
    EXPECT_FALSE(QFileInfo::exists(ours.first()));
    EXPECT_EQ(existing(ours.mid(1)), ours.mid(1));
    EXPECT_EQ(existing(notOurs), notOurs);
}

TEST(SnapshotWriterTemporaries, TheNamesOfTheWritersOwnTemporaries) {
    EXPECT_TRUE(SnapshotWriter::isTemporaryOf(QStringLiteral(".inbox.plist.aZ09Qx.tmp"),
                                              QStringLiteral("inbox.plist")));
    EXPECT_TRUE(SnapshotWriter::isTemporaryOf(QStringLiteral(".Accounts.plist.000000.tmp"),
                                              QStringLiteral("Accounts.plist")));
    for (const char* name : {".inbox.plist.aZ09Q.tmp", ".inbox.plist.aZ09Qxy.tmp", ".inbox.plist.aZ_9Qx.tmp",
                             "inbox.plist.aZ09Qx.tmp", ".inbox.plist.aZ09Qx.tmp~", ".inbox.plist.aZ09Qx.TMP",
                             ".inbox.plistXaZ09Qx.tmp", ".todo.plist.aZ09Qx.tmp", ".inbox.plist.aZ09Qx.tm",
                             ".inbox.plist..tmp", ""})
        EXPECT_FALSE(SnapshotWriter::isTemporaryOf(QString::fromLatin1(name), QStringLiteral("inbox.plist")))
            << name;
}

} // namespace
} // namespace corvina::test
