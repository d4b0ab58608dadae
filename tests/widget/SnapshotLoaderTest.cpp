#include "widget/SnapshotLoader.h"

#include "platform/FileCoordinator.h"
#include "shared/ConstVars.h"
#include "support/LockHolder.h"
#include "support/LogCapture.h"
#include "support/PermissionChecks.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace corvina;
using namespace std::chrono_literals;
using corvina::test::LogCapture;
using corvina::test::ScopedEnvironment;
using corvina::test::TempContainer;

namespace {

// The snapshot folder, within the shared data folder.
const QString kToday = ConstVars::todayFolder;

const QString ada = QStringLiteral("ada@example.org");
const QString bob = QStringLiteral("bob@example.org");

QStringList loadedIds(const ExtensionMessageList& messages) {
    QStringList out;
    for (const auto& m : messages) {
        out << m->messageId();
    }
    return out;
}

QVariantMap envelope(const QVariant& data) {
    return {{"folder", "INBOX"}, {"account", "whatever"}, {"data", data}};
}

} // namespace

TEST(SnapshotLoader, ReadsEnabledAccountsNewestFirstFromBothForms) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    container.writeSnapshot(
        ada, "inbox.plist",
        {TempContainer::message("a1", ada, 1700000000), TempContainer::message("a2", ada, 1700100000)});
    container.writeSnapshot(bob, "Snapshot", {TempContainer::message("b1", bob, 1700050000)},
                            PropertyList::Format::Binary);
    LogCapture capture;
    SnapshotLoader loader;
    const auto messages = loader.updateData();
    EXPECT_EQ(loadedIds(messages), (QStringList{"a2", "b1", "a1"}));
    EXPECT_EQ(messages[0]->subject(), QStringLiteral("Subject of a2"));
    EXPECT_EQ(loader.updateStatus(), UpdateResult::NewData);
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, NoEnabledAccountMeansNothingIsRead) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada, false)});
    container.writeSnapshot(ada, "s", {TempContainer::message("a1", ada, 1)});
    SnapshotLoader loader;
    EXPECT_TRUE(loader.updateData().isEmpty());
    EXPECT_EQ(loader.updateStatus(), UpdateResult::NoData);
    // and without an accounts file at all
    QFile::remove(container.data() + "/" + ConstVars::accountsFile);
    EXPECT_TRUE(loader.updateData().isEmpty());
}

TEST(SnapshotLoader, AFolderNamedInAnotherCaseIsNotRead) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot("Ada@example.org", "s", {TempContainer::message("a1", ada, 1)});
    EXPECT_TRUE(SnapshotLoader().updateData().isEmpty());
}

TEST(SnapshotLoader, DotFilesAreNeverReadAndAnyOtherNameIs) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(".hidden@example.org")});
    container.writeSnapshot(ada, ".partial.plist", {TempContainer::message("dot", ada, 3)});
    container.writeSnapshot(ada, "no-extension", {TempContainer::message("plain", ada, 2)});
    container.writeSnapshot(ada, "odd.txt", {TempContainer::message("txt", ada, 1)});
    container.writeSnapshot(".hidden@example.org", "s", {TempContainer::message("hidden", ada, 4)});
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), (QStringList{"plain", "txt"}));
}

TEST(SnapshotLoader, AnEmptyDataListYieldsNothingButCountsAsNewData) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, "s", {});
    SnapshotLoader loader;
    EXPECT_TRUE(loader.updateData().isEmpty());
    EXPECT_EQ(loader.updateStatus(), UpdateResult::NewData);
}

TEST(SnapshotLoader, TheSameMessageInTwoAccountsIsListedTwice) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    const QVariantMap shared = TempContainer::message("same", ada, 1700000000);
    container.writeSnapshot(ada, "s", {shared});
    container.writeSnapshot(bob, "s", {shared, TempContainer::message("newer", bob, 1800000000)});
    const auto messages = SnapshotLoader().updateData();
    EXPECT_EQ(loadedIds(messages), (QStringList{"newer", "same", "same"}));
    EXPECT_TRUE(messages[1]->isEqual(messages[2].get()));
}

TEST(SnapshotLoader, DataThatIsATextAbandonsTheRestButKeepsWhatWasRead) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    for (int i = 0; i < 6; ++i) {
        container.writeSnapshot(ada, QString("good-%1").arg(i),
                                {TempContainer::message(QString("m%1").arg(i), ada, 1000 + i)});
    }
    container.writePlist(kToday + "/" + ada + "/bad", envelope("not a list"));
    // the files read before the bad one are those the listing gives before it
    const QStringList listing =
        *SnapshotLoader::directoryContent(container.data() + "/" + kToday + "/" + ada);
    QStringList before;
    for (const QString& path : listing) {
        if (path.endsWith("/bad")) {
            break;
        }
        before << "m" + path.section('-', -1);
    }
    LogCapture capture;
    SnapshotLoader loader;
    const auto messages = loader.updateData();
    EXPECT_EQ(capture.lines(),
              QStringList{"[***ERROR***] updateData exception enumerate: unsupported value of type string"});
    EXPECT_EQ(loader.updateStatus(), UpdateResult::Failed);
    QStringList got = loadedIds(messages);
    got.sort();
    before.sort();
    EXPECT_EQ(got, before);
}

TEST(SnapshotLoader, APlainFileNamedTodayGivesNothingSilently) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeBytes(kToday, "not a folder");
    LogCapture capture;
    EXPECT_TRUE(SnapshotLoader().updateData().isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, NoContainerGivesNothingSilently) {
    ScopedEnvironment container("CORVINA_GROUP_CONTAINER", QByteArray(""));
    LogCapture capture;
    EXPECT_TRUE(SnapshotLoader().updateData().isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, AFileThatIsNoPropertyListIsLoggedAndSkipped) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeBytes(kToday + "/" + ada + "/garbage", "\x01\x02 certainly not a property list");
    container.writeSnapshot(ada, "good", {TempContainer::message("ok", ada, 5)});
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), QStringList{"ok"});
    ASSERT_EQ(capture.lines().size(), 1);
    EXPECT_TRUE(capture.lines().first().startsWith("updateData error deserialize "))
        << capture.lines().first().toStdString();
    EXPECT_NE(capture.lines().first(), QStringLiteral("updateData error deserialize "));
}

TEST(SnapshotLoader, ARootThatIsNoDictionaryIsLoggedAndSkipped) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writePlist(kToday + "/" + ada + "/list", QVariantList{TempContainer::message("x", ada, 1)});
    LogCapture capture;
    EXPECT_TRUE(SnapshotLoader().updateData().isEmpty());
    EXPECT_EQ(capture.lines(), QStringList{"updateData error deserialize no dictionary in return"});
}

TEST(SnapshotLoader, AnEnvelopeMissingAKeyContributesNothingSilently) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    const QVariantList data{TempContainer::message("x", ada, 1)};
    container.writePlist(kToday + "/" + ada + "/no-folder", QVariantMap{{"account", ada}, {"data", data}});
    container.writePlist(kToday + "/" + ada + "/no-account",
                         QVariantMap{{"folder", "INBOX"}, {"data", data}});
    container.writePlist(kToday + "/" + ada + "/no-data", QVariantMap{{"folder", "INBOX"}, {"account", ada}});
    LogCapture capture;
    SnapshotLoader loader;
    EXPECT_TRUE(loader.updateData().isEmpty());
    EXPECT_EQ(loader.updateStatus(), UpdateResult::NoData);
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, AFileOverTheSizeCapIsRefusedUnread) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    QFile huge(container.data() + "/" + kToday + "/" + ada + "/huge");
    ASSERT_TRUE(QDir().mkpath(container.data() + "/" + kToday + "/" + ada));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly));
    ASSERT_TRUE(huge.resize(PropertyList::MaximumSize + 1)); // sparse: no disk used
    huge.close();
    container.writeSnapshot(ada, "small", {TempContainer::message("ok", ada, 5)});
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), QStringList{"ok"});
    EXPECT_EQ(capture.lines(),
              QStringList{"updateData error deserialize property list is larger than 67108864 bytes"});
}

TEST(SnapshotLoader, AnAccountFolderThatIsAFileAndSubfoldersAreSkipped) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    container.writeBytes(kToday + "/" + bob, "a file where a folder belongs");
    container.writeSnapshot(ada, "deeper/s", {TempContainer::message("deep", ada, 1)});
    container.writeSnapshot(ada, "s", {TempContainer::message("top", ada, 2)});
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), QStringList{"top"});
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, SymlinkLoopsAreSkipped) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    container.writeSnapshot(ada, "s", {TempContainer::message("ok", ada, 2)});
    const QString today = container.data() + "/" + kToday + "/";
    ASSERT_TRUE(QFile::link(today + "loop", today + bob));            // an account folder that is a loop
    ASSERT_TRUE(QFile::link(today + ada + "/x", today + ada + "/y")); // files that point at each other
    ASSERT_TRUE(QFile::link(today + ada + "/y", today + ada + "/x"));
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), QStringList{"ok"});
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, TodayAsASymlinkLoopGivesNothing) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    ASSERT_TRUE(QFile::link(container.data() + "/" + kToday, container.data() + "/" + kToday));
    LogCapture capture;
    EXPECT_TRUE(SnapshotLoader().updateData().isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, AnUnreadableFileIsSkippedSilently) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, "locked", {TempContainer::message("hidden", ada, 1)});
    container.writeSnapshot(ada, "open", {TempContainer::message("ok", ada, 2)});
    const QString locked = container.data() + "/" + kToday + "/" + ada + "/locked";
    QFile::setPermissions(locked, QFileDevice::Permissions());
    test::PermissionChecks permissions;
    ASSERT_TRUE(permissions.active());
    ASSERT_FALSE(QFile(locked).open(QIODevice::ReadOnly));
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), QStringList{"ok"});
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(SnapshotLoader, AnEnabledAccountWithoutMailReadsTheNoMailFolder) {
    TempContainer container;
    container.writeAccounts({QVariantMap{{"enabled", true}}});
    container.writeSnapshot("No Mail", "s", {TempContainer::message("nomail", ada, 1)});
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), QStringList{"nomail"});
}

TEST(SnapshotLoader, MessagesWithoutADateComeLast) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    QVariantMap undated = TempContainer::message("undated", ada, 0);
    undated.insert("date", QVariantList{1});
    container.writeSnapshot(
        ada, "s",
        {undated, TempContainer::message("old", ada, 10), TempContainer::message("new", ada, 1700000000)});
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), (QStringList{"new", "old", "undated"}));
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionMessage initWithDictonary floatValue: unsupported value of type array"});
}

TEST(SnapshotLoader, AHeldLockIsLoggedAndGivesNothing) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, "s", {TempContainer::message("a", ada, 1)});
    LogCapture capture;
    SnapshotLoader loader;
    ExtensionMessageList messages;
    {
        test::LockHolder holder(container.data() + "/" + kToday);
        messages = loader.updateData();
    }
    EXPECT_TRUE(messages.isEmpty());
    EXPECT_EQ(loader.updateStatus(), UpdateResult::Failed);
    EXPECT_EQ(capture.lines(),
              QStringList{"[***ERROR***] updateData coordinator " + container.data() +
                          "/.Today.lock is locked by another process; gave up after 150 ms"});
}

TEST(SnapshotLoader, DirectoryContentListsFullPathsWithoutDotNames) {
    TempContainer container;
    container.writeBytes(kToday + "/a", "1");
    container.writeBytes(kToday + "/.b", "2");
    container.writeBytes(kToday + "/c/d", "3");
    QStringList listed = *SnapshotLoader::directoryContent(container.data() + "/" + kToday);
    listed.sort();
    EXPECT_EQ(listed, (QStringList{container.data() + "/Today/a", container.data() + "/Today/c"}));
    // a trailing slash makes no double slash
    EXPECT_TRUE(SnapshotLoader::directoryContent(container.data() + "/" + kToday + "/")
                    ->contains(container.data() + "/Today/a"));
}

TEST(SnapshotLoader, DirectoryContentOfNoFolderIsEmpty) {
    TempContainer container;
    container.writeBytes("file", "x");
    ASSERT_TRUE(SnapshotLoader::directoryContent(container.data() + "/missing"));
    EXPECT_TRUE(SnapshotLoader::directoryContent(container.data() + "/missing")->isEmpty());
    EXPECT_TRUE(SnapshotLoader::directoryContent(container.data() + "/file")->isEmpty());
}

TEST(SnapshotLoader, DirectoryContentOfAFolderThatCannotBeListedIsNothing) {
    TempContainer container;
    ASSERT_TRUE(QDir().mkpath(container.data() + "/closed"));
    QFile::setPermissions(container.data() + "/closed", QFileDevice::Permissions());
    {
        test::PermissionChecks permissions;
        ASSERT_TRUE(permissions.active());
        EXPECT_FALSE(SnapshotLoader::directoryContent(container.data() + "/closed"));
    }
    QFile::setPermissions(container.data() + "/closed",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

TEST(SnapshotLoader, LinksOutOfTheSharedFolderAreNotFollowed) {
    TempContainer container;
    QTemporaryDir elsewhere;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    // a folder outside the shared folder that looks like an account folder, and a file that looks
    // like a snapshot
    const QVariantMap outside = envelope(QVariantList{TempContainer::message("outside", ada, 1700000000)});
    ASSERT_TRUE(QDir().mkpath(elsewhere.path() + "/ada"));
    QFile file(elsewhere.path() + "/ada/snapshot");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(PropertyList::write(outside, PropertyList::Format::Xml));
    file.close();
    ASSERT_TRUE(QDir().mkpath(container.data() + "/" + kToday));
    ASSERT_TRUE(QFile::link(elsewhere.path() + "/ada", container.data() + "/" + kToday + "/" + ada));
    container.writeSnapshot(bob, "inbox", {TempContainer::message("b1", bob, 1700000000)});
    ASSERT_TRUE(QFile::link(file.fileName(), container.data() + "/" + kToday + "/" + bob + "/linked-out"));
    LogCapture capture;
    SnapshotLoader loader;
    EXPECT_EQ(loadedIds(loader.updateData()), QStringList{"b1"});
    EXPECT_TRUE(capture.lines().isEmpty()) << capture.lines().join("|").toStdString();
}

TEST(SnapshotLoader, LinksThatStayInsideTheSharedFolderAreFollowed) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    container.writePlist("Moved/ada/inbox",
                         envelope(QVariantList{TempContainer::message("a1", ada, 1700000000)}));
    container.writePlist("Moved/bob-inbox",
                         envelope(QVariantList{TempContainer::message("b1", bob, 1700000100)}));
    ASSERT_TRUE(QDir().mkpath(container.data() + "/" + kToday + "/" + bob));
    ASSERT_TRUE(QFile::link("../Moved/ada", container.data() + "/" + kToday + "/" + ada));
    ASSERT_TRUE(QFile::link("../../Moved/bob-inbox", container.data() + "/" + kToday + "/" + bob + "/inbox"));
    SnapshotLoader loader;
    EXPECT_EQ(loadedIds(loader.updateData()), (QStringList{"b1", "a1"}));
}

TEST(SnapshotLoader, ATodayFolderLinkedOutOfTheSharedFolderIsNotRead) {
    TempContainer container;
    QTemporaryDir elsewhere;
    container.writeAccounts({TempContainer::account(ada)});
    ASSERT_TRUE(QDir().mkpath(elsewhere.path() + "/" + ada));
    QFile file(elsewhere.path() + "/" + ada + "/inbox");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(PropertyList::write(envelope(QVariantList{TempContainer::message("a1", ada, 1)}),
                                   PropertyList::Format::Xml));
    file.close();
    ASSERT_TRUE(QFile::link(elsewhere.path(), container.data() + "/" + kToday));
    SnapshotLoader loader;
    EXPECT_TRUE(loader.updateData().isEmpty());
}

TEST(SnapshotLoader, AFifoAmongTheSnapshotsIsSkippedWithoutWaiting) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, "inbox", {TempContainer::message("a1", ada, 1700000000)});
    const QString fifo = container.data() + "/" + kToday + "/" + ada + "/pipe";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(fifo, container.data() + "/" + kToday + "/" + ada + "/link-to-pipe"));
    auto future = std::async(std::launch::async, [] {
        SnapshotLoader loader;
        return loadedIds(loader.updateData());
    });
    if (future.wait_for(5s) != std::future_status::ready) {
        // let the blocked open end so that the test fails instead of hanging
        const int writer = ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK);
        ::close(writer);
        ADD_FAILURE() << "the loader blocked on a FIFO";
    }
    EXPECT_EQ(future.get(), QStringList{"a1"});
}

// The host hears these as plain numbers.
TEST(SnapshotLoader, UpdateResultsAreTheHostsNumbers) {
    EXPECT_EQ(int(UpdateResult::NewData), 0);
    EXPECT_EQ(int(UpdateResult::NoData), 1);
    EXPECT_EQ(int(UpdateResult::Failed), 2);
}

// Newest first over many messages in cycles of every length: equal dates keep the order of the
// file, and a message whose date could not be read comes last.
TEST(SnapshotLoader, ManyMessagesComeNewestFirstEqualDatesInFileOrder) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    QVariantList messages;
    QList<std::pair<qint64, QString>> expected;
    quint32 seed = 12345;
    for (int i = 0; i < 300; ++i) {
        seed = seed * 1103515245u + 12345u;
        const qint64 date = (seed >> 16) % 120; // many equal dates
        const QString id = QStringLiteral("m%1").arg(i);
        messages.append(TempContainer::message(id, ada, date));
        expected.append({date, id});
    }
    QVariantMap undated = TempContainer::message(QStringLiteral("undated"), ada, 0);
    undated.insert(QStringLiteral("date"), 1e300); // out of range: the record keeps no date
    messages.insert(17, undated);
    container.writeSnapshot(ada, "s", messages, PropertyList::Format::Binary);
    std::stable_sort(expected.begin(), expected.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    QStringList order;
    for (const auto& entry : expected) {
        order.append(entry.second);
    }
    order.append(QStringLiteral("undated"));
    LogCapture capture;
    EXPECT_EQ(loadedIds(SnapshotLoader().updateData()), order);
}

// Many files, as a real shared folder holds, good and refused ones mixed: every line is logged and
// every record kept in the order of the listings. Equal dates keep the order of the files too.
TEST(SnapshotLoader, ManyFilesAreTakenInTheOrderOfTheListings) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    const QString truncated =
        QStringLiteral("updateData error deserialize binary property list is truncated");
    const QString noDictionary = QStringLiteral("updateData error deserialize no dictionary in return");
    QHash<QString, QString> logOf; // the line a file logs
    QHash<QString, QString> idOf;  // the message a good file holds
    for (const QString& account : {ada, bob}) {
        for (int i = 0; i < 40; ++i) {
            const QString name = QStringLiteral("s%1").arg(i);
            const QString path = container.data() + "/" + kToday + "/" + account + "/" + name;
            const QString id = account.left(1) + name;
            switch (i % 4) {
            case 0:
                container.writeBytes(kToday + "/" + account + "/" + name, "bplist00 cut short");
                logOf.insert(path, truncated);
                break;
            case 1:
                container.writePlist(kToday + "/" + account + "/" + name,
                                     QVariantList{TempContainer::message(id, account, 7)});
                logOf.insert(path, noDictionary);
                break;
            default:
                // one date for every message: only the order of the files orders them
                container.writeSnapshot(account, name, {TempContainer::message(id, account, 7)},
                                        i % 4 == 2 ? PropertyList::Format::Binary
                                                   : PropertyList::Format::Xml);
                idOf.insert(path, id);
            }
        }
    }
    QStringList expectedLines;
    QStringList expectedIds;
    const QStringList accounts = *SnapshotLoader::directoryContent(container.data() + "/" + kToday);
    for (const QString& account : accounts) {
        const QStringList paths = *SnapshotLoader::directoryContent(account);
        for (const QString& path : paths) {
            if (logOf.contains(path)) {
                expectedLines << logOf.value(path);
            } else {
                expectedIds << idOf.value(path);
            }
        }
    }
    ASSERT_EQ(expectedIds.size(), 40);
    LogCapture capture;
    SnapshotLoader loader;
    EXPECT_EQ(loadedIds(loader.updateData()), expectedIds);
    EXPECT_EQ(capture.lines(), expectedLines);
    EXPECT_EQ(loader.updateStatus(), UpdateResult::NewData);
}

// The early look at the newest rows: what updateData lists first, without building the rest.
namespace {

// The first `count` of `all` that `keep` accepts, in their order.
QStringList firstOf(const ExtensionMessageList& all, qsizetype count,
                    const std::function<bool(qint64)>& keep) {
    QStringList out;
    for (const auto& m : all) {
        if (out.size() < count && keep(m->folderStandardId().toLongLong())) {
            out << m->messageId();
        }
    }
    return out;
}

} // namespace

TEST(SnapshotLoader, NewestGivesWhatUpdateDataListsFirstInItsOrder) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
    // dates spread over the files in no order, equal dates in two files, a message without a
    // date, kinds mixed, one file in binary form
    QVariantList first, second, third;
    for (int i = 0; i < 30; ++i) {
        const qint64 date = 1700000000 + qint64((i * 7919) % 97) * 600;
        QVariantMap m =
            TempContainer::message(QString("m%1").arg(i), i % 2 ? ada : bob, date, i % 3 ? 1 : 11);
        (i % 3 == 0 ? first : i % 3 == 1 ? second : third) << m;
    }
    first << TempContainer::message("tie-a", ada, 1700000000 + 96 * 600, 1);
    third << TempContainer::message("tie-b", ada, 1700000000 + 96 * 600, 1);
    QVariantMap undated = TempContainer::message("undated", ada, 0, 1);
    undated.remove("date");
    second << undated;
    container.writeSnapshot(ada, "one", first);
    container.writeSnapshot(ada, "two", second, PropertyList::Format::Binary);
    container.writeSnapshot(bob, "three", third);

    SnapshotLoader loader;
    const ExtensionMessageList all = loader.updateData();
    ASSERT_EQ(all.size(), 33);
    const auto any = [](qint64) { return true; };
    const auto inbox = [](qint64 kind) { return kind == 1; };
    for (const qsizetype count : {qsizetype(1), qsizetype(10), qsizetype(32), qsizetype(33), qsizetype(50)}) {
        EXPECT_EQ(loadedIds(loader.newest(count, [](const QVariant&) { return true; })),
                  firstOf(all, count, any))
            << count;
        EXPECT_EQ(
            loadedIds(loader.newest(count, [](const QVariant& kind) { return kind.toLongLong() == 1; })),
            firstOf(all, count, inbox))
            << count;
    }
    EXPECT_TRUE(loader.newest(0, [](const QVariant&) { return true; }).isEmpty());
    // the records are those updateData makes
    const ExtensionMessageList top = loader.newest(3, [](const QVariant&) { return true; });
    for (qsizetype i = 0; i < top.size(); ++i) {
        EXPECT_TRUE(top[i]->isEqual(all[i].get()));
        EXPECT_EQ(top[i]->subject(), all[i]->subject());
        EXPECT_EQ(top[i]->date(), all[i]->date());
    }
}

TEST(SnapshotLoader, NewestLogsNothingAndLeavesWhatUpdateDataReports) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, "good", {TempContainer::message("kept", ada, 1700000000)});
    container.writeBytes(kToday + "/" + ada + "/garbage", "\x01\x02 certainly not a property list");
    QVariantMap wrongDate = TempContainer::message("wrong-date", ada, 0);
    wrongDate.insert("date", QVariantList{1, 2});
    container.writeSnapshot(ada, "wrong", {wrongDate});
    SnapshotLoader loader;
    LogCapture counted;
    const ExtensionMessageList all = loader.updateData();
    const QStringList lines = counted.lines();
    ASSERT_FALSE(lines.isEmpty()); // the garbage and the wrong date are told by updateData
    const UpdateResult::Value status = loader.updateStatus();

    LogCapture capture;
    const ExtensionMessageList newest = loader.newest(10, [](const QVariant&) { return true; });
    EXPECT_TRUE(capture.lines().isEmpty());
    EXPECT_EQ(loadedIds(newest), loadedIds(all));
    EXPECT_EQ(loader.updateStatus(), status);
    // and the log works again afterwards: updateData tells the same lines
    LogCapture again;
    loader.updateData();
    EXPECT_EQ(again.lines(), lines);
}

TEST(SnapshotLoader, NewestStopsWhereUpdateDataStops) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    for (int i = 0; i < 6; ++i) {
        container.writeSnapshot(ada, QString("good-%1").arg(i),
                                {TempContainer::message(QString("m%1").arg(i), ada, 1000 + i)});
    }
    container.writePlist(kToday + "/" + ada + "/bad", envelope("not a list"));
    SnapshotLoader loader;
    const ExtensionMessageList all = loader.updateData();
    EXPECT_EQ(loadedIds(loader.newest(10, [](const QVariant&) { return true; })), loadedIds(all));
}

TEST(SnapshotLoader, NewestKeepsTheRefusalOfTheAccountListAsUpdateDataLeftIt) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, "s", {TempContainer::message("a1", ada, 1)});
    SnapshotLoader loader;
    loader.updateData();
    EXPECT_TRUE(loader.accountsRefusal().isEmpty());
    container.writeBytes("Accounts.plist", "\x01\x02 no property list");
    EXPECT_TRUE(loader.newest(10, [](const QVariant&) { return true; }).isEmpty());
    EXPECT_TRUE(loader.accountsRefusal().isEmpty());
    // where updateData itself tells the refusal
    loader.updateData();
    EXPECT_FALSE(loader.accountsRefusal().isEmpty());
}

// Enough files for the two halves to be parsed side by side, with the rare shapes among them: a
// "data" that is a dictionary (read the whole way) and, in a test of its own, one that stops the
// read.
TEST(SnapshotLoader, NewestOverManyFilesMatchesUpdateData) {
    for (const bool stopping : {false, true}) {
        TempContainer container;
        container.writeAccounts({TempContainer::account(ada), TempContainer::account(bob)});
        for (int f = 0; f < 40; ++f) {
            QVariantList batch;
            for (int i = 0; i < 3; ++i) {
                const int n = f * 3 + i;
                batch << TempContainer::message(QString("m%1").arg(n), f % 2 ? ada : bob,
                                                1700000000 + qint64((n * 7919) % 211) * 600, n % 4 ? 1 : 11);
            }
            container.writeSnapshot(f % 2 ? ada : bob, QString("file-%1").arg(f), batch,
                                    f % 3 ? PropertyList::Format::Xml : PropertyList::Format::Binary);
        }
        container.writePlist(
            kToday + "/" + ada + "/dictionary",
            envelope(QVariantMap{{"only", TempContainer::message("in-a-dictionary", ada, 1900000000)}}));
        if (stopping) {
            container.writePlist(kToday + "/" + bob + "/bad", envelope("not a list"));
        }
        SnapshotLoader loader;
        const ExtensionMessageList all = loader.updateData();
        // where the bad file stands in the listings decides how much is read before it: maybe nothing
        if (!stopping) {
            ASSERT_EQ(all.size(), 121);
        }
        const auto any = [](qint64) { return true; };
        const auto inbox = [](qint64 kind) { return kind == 1; };
        for (const qsizetype count : {qsizetype(1), qsizetype(10), qsizetype(60), qsizetype(500)}) {
            EXPECT_EQ(loadedIds(loader.newest(count, [](const QVariant&) { return true; })),
                      firstOf(all, count, any))
                << count << " " << stopping;
            EXPECT_EQ(
                loadedIds(loader.newest(count, [](const QVariant& kind) { return kind.toLongLong() == 1; })),
                firstOf(all, count, inbox))
                << count << " " << stopping;
        }
    }
}
