// The watch of the shared folder that the widget's window and `--list --watch` share: what it
// watches, and that a change on disk comes out as one changed().
#include "widget/SharedFolderWatch.h"

#include "shared/ConstVars.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <cstdio>
#include <gtest/gtest.h>

using namespace corvina;
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
