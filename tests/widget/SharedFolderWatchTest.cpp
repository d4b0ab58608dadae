// The watch of the shared folder that the widget's window and `--list --watch` share: what it
// watches, and that a change on disk comes out as one changed().
#include "widget/SharedFolderWatch.h"

#include "shared/ConstVars.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
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

} // namespace

TEST(SharedFolderWatch, WatchesTheDataFolderTheSnapshotFolderAndEachSnapshot) {
    TempContainer container;
    writeInbox(container, {"1"});
    SharedFolderWatch watch(3600);
    watch.start();
    const QString today = container.data() + QLatin1Char('/') + ConstVars::todayFolder;
    const QStringList watched = watch.watchedPaths();
    for (const QString& path : {container.data(), today, today + QLatin1Char('/') + ada,
                                today + QLatin1Char('/') + ada + QStringLiteral("/inbox"),
                                container.data() + QLatin1Char('/') + ConstVars::accountsFile}) {
        EXPECT_TRUE(watched.contains(path)) << path.toStdString();
    }
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
