// The watch of the shared folder that the widget's window and `--list --watch` share: what it
// watches, and that a change on disk comes out as one changed().
#include "widget/SharedFolderWatch.h"

#include "shared/ConstVars.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"
#include "widget/DayTurnTimer.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace corvina;
using corvina::test::LogCapture;
using corvina::test::ScopedEnvironment;
using corvina::test::TempContainer;

namespace {

const QString ada = QStringLiteral("ada@example.org");

// One enabled account whose Inbox snapshot holds the messages `ids`.
void writeInbox(TempContainer& container, const QStringList& ids) {
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, ids));
}

// Replaces the snapshot `name` of ada as the writers do: a hidden temporary in the same folder,
// renamed over it.
void renameIntoPlace(TempContainer& container, const QString& name, const QStringList& ids) {
    const QString temporary = QLatin1Char('.') + name + QStringLiteral(".tmp");
    container.writeSnapshot(ada, temporary, TempContainer::inboxMessages(ada, ids));
    const QString folder =
        container.data() + QLatin1Char('/') + ConstVars::todayFolder + QLatin1Char('/') + ada;
    ASSERT_EQ(std::rename(QFile::encodeName(folder + QLatin1Char('/') + temporary).constData(),
                          QFile::encodeName(folder + QLatin1Char('/') + name).constData()),
              0);
}

} // namespace

// The folders only: a folder's watch tells of the files in it too, written in place included (the
// next test), so the files are not watched one by one.
TEST(SharedFolderWatch, WatchesTheDataFolderTheSnapshotFolderAndEachAccountFolder) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.start();
    const QString today = container.data() + QLatin1Char('/') + ConstVars::todayFolder;
    QStringList watched = watch.watchedPaths();
    watched.sort();
    EXPECT_EQ(watched, (QStringList{container.data(), today, today + QLatin1Char('/') + ada}));
}

TEST(SharedFolderWatch, ASnapshotRewrittenInPlaceIsOneChange) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    writeInbox(container, {"2", "1"});
    ASSERT_TRUE(changed.wait(10000));
    // the writes of one rewrite are gathered into one
    EXPECT_FALSE(changed.wait(2 * SharedFolderWatch::debounceMs));
    EXPECT_EQ(changed.count(), 1);
}

TEST(SharedFolderWatch, AMissingSharedFolderIsWatchedFromTheNearestFolderAboveIt) {
    QTemporaryDir root;
    const QString box = root.path() + QStringLiteral("/not/yet/box");
    ScopedEnvironment environment("CORVINA_GROUP_CONTAINER", box.toUtf8());
    SharedFolderWatch watch(3600);
    watch.start();
    EXPECT_EQ(watch.watchedPaths(), QStringList{root.path()});
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    ASSERT_TRUE(QDir().mkpath(box + QStringLiteral("/SharedData")));
    ASSERT_TRUE(changed.wait(10000));
    // once there, the data folder itself is watched, and no longer the folder above
    EXPECT_TRUE(watch.watchedPaths().contains(box + QStringLiteral("/SharedData")));
    EXPECT_FALSE(watch.watchedPaths().contains(root.path()));
}

TEST(SharedFolderWatch, NoSharedFolderAtAllWatchesNothingButStillUpdatesPeriodically) {
    ScopedEnvironment environment("CORVINA_GROUP_CONTAINER", QByteArray());
    SharedFolderWatch watch(1);
    watch.start();
    EXPECT_TRUE(watch.watchedPaths().isEmpty());
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    EXPECT_TRUE(changed.wait(10000));
}

// A snapshot renamed into place is whole when it is seen: changed() comes at once, not after a
// gathering delay. The delay is made a minute here, so a change that waited for it would not come
// within the test's bound.
TEST(SharedFolderWatch, ASnapshotRenamedIntoPlaceComesAtOnce) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.setGatherMs(60000);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    renameIntoPlace(container, QStringLiteral("inbox"), {"2", "1"});
    ASSERT_TRUE(changed.wait(10000));
    EXPECT_EQ(changed.count(), 1);
}

// Writes in place cannot be told complete from their events: they are still gathered, here for
// the minute the delay was made, so nothing comes while the test looks.
TEST(SharedFolderWatch, ASnapshotWrittenInPlaceWaitsForTheQuiet) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.setGatherMs(60000);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    writeInbox(container, {"2", "1"});
    EXPECT_FALSE(changed.wait(1500));
}

// A burst of files renamed into place: the first is read at once, the rest of the burst, which
// comes within the gathering window, once more at its end. Two reads, not one a file.
TEST(SharedFolderWatch, ABurstOfRenamesIsTwoChanges) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.setGatherMs(3000);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    renameIntoPlace(container, QStringLiteral("inbox"), {"2", "1"});
    ASSERT_TRUE(changed.wait(10000));
    for (int i = 0; i < 20; ++i)
        renameIntoPlace(container, QStringLiteral("file%1").arg(i), {QString::number(i)});
    ASSERT_TRUE(changed.wait(15000));
    EXPECT_EQ(changed.count(), 2);
    // and nothing after the window that followed the second
    EXPECT_FALSE(changed.wait(4000));
    EXPECT_EQ(changed.count(), 2);
}

// The writers' temporary files and the locks' sidecars are never read: what happens to them alone
// wakes no one.
TEST(SharedFolderWatch, HiddenFilesAloneAreNoChange) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    container.writeSnapshot(ada, QStringLiteral(".inbox.tmp"), TempContainer::inboxMessages(ada, {"2"}));
    container.writeBytes(QStringLiteral(".Today.lock"), QByteArray());
    ASSERT_TRUE(QFile::remove(container.data() + QStringLiteral("/") + ConstVars::todayFolder +
                              QLatin1Char('/') + ada + QStringLiteral("/.inbox.tmp")));
    EXPECT_FALSE(changed.wait(4 * SharedFolderWatch::debounceMs));
}

// An account folder made and a snapshot renamed into it right after: the folder is watched before
// the read that its making causes, so the snapshot is seen either by that read or by its watch.
TEST(SharedFolderWatch, ANewAccountFolderIsWatchedAtOnce) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    ASSERT_TRUE(QDir().mkpath(container.data() + QLatin1Char('/') + ConstVars::todayFolder));
    SharedFolderWatch watch(3600);
    watch.setGatherMs(60000);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    const QString folder =
        container.data() + QLatin1Char('/') + ConstVars::todayFolder + QLatin1Char('/') + ada;
    ASSERT_TRUE(QDir().mkpath(folder));
    ASSERT_TRUE(changed.wait(10000));
    EXPECT_TRUE(watch.watchedPaths().contains(folder));
}

// With no interval asked for, nothing comes while nothing changes: no periodic update at all, where
// the watch used to emit one every interval whatever the folder held. The fallback pace is made
// short here, so that a watch that read at it would be caught within the test's look.
TEST(SharedFolderWatch, WithoutAnIntervalNothingComesWhileNothingChanges) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(0);
    watch.setFallbackIntervalMs(100);
    watch.start();
    EXPECT_TRUE(watch.isTrusted());
    EXPECT_FALSE(watch.isReadingPeriodically());
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    EXPECT_FALSE(changed.wait(1500));
    // a change still comes
    renameIntoPlace(container, QStringLiteral("inbox"), {"2", "1"});
    ASSERT_TRUE(changed.wait(10000));
    EXPECT_EQ(changed.count(), 1);
}

// An interval asked for keeps its meaning: an update every so many seconds, the folder changed or
// not.
TEST(SharedFolderWatch, AnIntervalAskedForStillReadsPeriodically) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(1);
    watch.start();
    EXPECT_TRUE(watch.isTrusted());
    EXPECT_TRUE(watch.isReadingPeriodically());
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    EXPECT_TRUE(changed.wait(10000));
}

// The date texts age at the turn of the day: the watch is armed for the next local midnight, and
// its turn is an update.
TEST(SharedFolderWatch, TheTurnOfTheDayIsAChange) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(0);
    watch.start();
    EXPECT_EQ(watch.dayTurn()->armedFor(), DayTurnTimer::nextDayStart(QDateTime::currentDateTime()));
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    // midnight made a moment from now
    ASSERT_TRUE(watch.dayTurn()->armAt(QDateTime::currentDateTime().addMSecs(300)));
    ASSERT_TRUE(changed.wait(10000));
    EXPECT_EQ(changed.count(), 1);
    // and armed for the real one again
    EXPECT_EQ(watch.dayTurn()->armedFor(), DayTurnTimer::nextDayStart(QDateTime::currentDateTime()));
}

// Events lost to a full queue: everything is read at once, said in the log, and every folder is
// watched afresh. The account folder is removed and made again while the queue is full, so its
// old watch ends unannounced: only a watch made afresh sees the snapshot renamed into it after.
TEST(SharedFolderWatch, LostEventsReadEverythingAndWatchAfresh) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(0);
    watch.setFallbackIntervalMs(100);
    watch.setGatherMs(100);
    watch.start();
    QSignalSpy changed(&watch, &SharedFolderWatch::changed);
    LogCapture log;
    QFile limitFile(QStringLiteral("/proc/sys/fs/inotify/max_queued_events"));
    ASSERT_TRUE(limitFile.open(QIODevice::ReadOnly));
    const int limit = limitFile.readAll().trimmed().toInt();
    ASSERT_GT(limit, 0);
    const QString folder =
        container.data() + QLatin1Char('/') + ConstVars::todayFolder + QLatin1Char('/') + ada;
    // Nothing is read from the queue until the event loop runs: each round queues at least two
    // events (made, removed), so this fills it.
    const QByteArray filler = QFile::encodeName(folder + QStringLiteral("/.filler"));
    for (int i = 0; i < limit / 2 + 16; ++i) {
        const int fd = ::open(filler.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        ::close(fd);
        ASSERT_EQ(::unlink(filler.constData()), 0);
    }
    ASSERT_TRUE(QDir(folder).removeRecursively());
    ASSERT_TRUE(QDir().mkpath(folder));
    ASSERT_TRUE(changed.wait(10000));
    EXPECT_EQ(log.count(QStringLiteral("SharedFolderWatch lost events: reading everything again")), 1);
    EXPECT_TRUE(watch.watchedPaths().contains(folder));
    EXPECT_TRUE(watch.isTrusted());
    // let the gathering window of that read pass, then the new folder's watch must work
    changed.wait(500);
    changed.clear();
    renameIntoPlace(container, QStringLiteral("inbox"), {"2", "1"});
    EXPECT_TRUE(changed.wait(10000));
}

// The kernel gives no watch (here: the process may open no more files): the folder is read at the
// fallback pace, and that is said in the log.
TEST(SharedFolderWatch, NoWatchFromTheKernelFallsBackToReadingPeriodically) {
    TempContainer container;
    writeInbox(container, {"1"});
    LogCapture log;
    std::unique_ptr<SharedFolderWatch> watch;
    // One watch made and dropped while descriptors are free: a sanitizer build checks an object's
    // type the first time it meets it, and that check needs descriptors of its own; it would fail
    // where the watch is made below, with none left.
    SharedFolderWatch(0).start();
    {
        rlimit saved{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
        // the lowest free descriptor becomes the limit: the next one asked for is refused
        const int lowest = ::fcntl(0, F_DUPFD_CLOEXEC, 0);
        ASSERT_GE(lowest, 0);
        ::close(lowest);
        rlimit tight = saved;
        tight.rlim_cur = rlim_t(lowest);
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
        watch = std::make_unique<SharedFolderWatch>(0);
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &saved), 0);
    }
    watch->setFallbackIntervalMs(200);
    watch->start();
    EXPECT_FALSE(watch->isTrusted());
    EXPECT_TRUE(watch->isReadingPeriodically());
    EXPECT_EQ(log.count(QStringLiteral(
                  "SharedFolderWatch cannot see every change (Too many open files): reading every 0.2 s")),
              1)
        << log.lines().join(QLatin1Char('\n')).toStdString();
    QSignalSpy changed(watch.get(), &SharedFolderWatch::changed);
    ASSERT_TRUE(changed.wait(10000));
    ASSERT_TRUE(changed.wait(10000));
    EXPECT_GE(changed.count(), 2);
    // said once, not at every read
    EXPECT_EQ(log.count(QStringLiteral(
                  "SharedFolderWatch cannot see every change (Too many open files): reading every 0.2 s")),
              1);
}
