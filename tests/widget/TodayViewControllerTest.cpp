#include "widget/TodayViewController.h"

#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "support/FakeHostApp.h"
#include "support/PrivateSessionBus.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "ui/FlippedView.h"
#include "views/TodayMetrics.h"
#include "views/TodayTableViewCell.h"
#include "widget/NewMailTracker.h"

#include <QDir>
#include <QLayout>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::drain;
using corvina::test::FakeHostApp;
using corvina::test::TempContainer;

namespace {

const QString kAccount = QStringLiteral("ann@example.org");
constexpr qint64 kNow = 1795000000; // seconds since 1970

// A container with one enabled account whose snapshot holds `messages` (id, folder kind), newest
// first by their order.
QVariantList messages(const QList<std::pair<QString, qint64>>& rows) {
    QVariantList out;
    qint64 date = kNow;
    for (const auto& [id, folder] : rows) {
        QVariantMap m = TempContainer::message(id, kAccount, date, folder);
        m.insert(QStringLiteral("subject"), QStringLiteral("Subject ") + id);
        m.insert(QStringLiteral("from"), QStringLiteral("Sender ") + id);
        out << m;
        date -= 600;
    }
    return out;
}

QList<std::pair<QString, qint64>> inboxRows(int n, qint64 folder = 1,
                                            const QString& prefix = QStringLiteral("m")) {
    QList<std::pair<QString, qint64>> rows;
    for (int i = 0; i < n; ++i)
        rows << std::make_pair(prefix + QString::number(i), folder);
    return rows;
}

QStringList ids(const ExtensionMessageList& list) {
    QStringList out;
    for (const auto& m : list)
        out << m->messageId();
    return out;
}

class TodayViewControllerTest : public ::testing::Test {
protected:
    void SetUp() override {
        container.writeAccounts({TempContainer::account(kAccount)});
        host.installRecorder(ConstVars::appIdentifier);
    }

    void write(const QList<std::pair<QString, qint64>>& rows) {
        container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"), messages(rows));
    }

    // Builds the controller and shows its view, as the widget's host does.
    TodayViewController& show() {
        controller = std::make_unique<TodayViewController>();
        window = std::make_unique<QWidget>();
        auto* layout = new QVBoxLayout(window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSizeConstraint(QLayout::SetFixedSize);
        layout->addWidget(controller->view());
        window->show();
        return *controller;
    }

    void appear() {
        controller->viewWillAppear();
        settle();
    }

    // The queues are empty and every animation has come to rest.
    void settle() {
        ASSERT_TRUE(drain([this] { return !controller->isAnimating(); }));
    }

    qreal heightConstant() const { return controller->viewHeightContraint()->constant(); }

    TodayTableViewCell* cellAt(qint64 row) const {
        return dynamic_cast<TodayTableViewCell*>(controller->myTableView()->viewAtColumn(0, row));
    }

    test::ScopedSettings settings;
    TempContainer container;
    FakeHostApp host;
    std::unique_ptr<TodayViewController> controller;
    std::unique_ptr<QWidget> window;
};

} // namespace

TEST_F(TodayViewControllerTest, LoadViewBuildsTheTreeAndObserves) {
    TodayViewController c;
    QWidget* root = c.view();
    EXPECT_EQ(c.rootView(), root);
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    EXPECT_FALSE(c.dataToShow().has_value());
    EXPECT_EQ(c.myTableView()->parentWidget(), root);
    EXPECT_EQ(c.myHeaderView()->parentWidget(), root);
    EXPECT_EQ(c.myHeaderView()->delegate(), &c);
    EXPECT_EQ(c.myTableView()->rowHeight(), TodayMetrics::rowHeight);
    ASSERT_NE(c.viewHeightContraint(), nullptr);
    EXPECT_EQ(c.viewHeightContraint()->constant(), 50);
    EXPECT_EQ(c.viewHeightContraint()->multiplier(), 1.0);
    EXPECT_EQ(c.viewHeightContraint()->parent(), c.myTableView()); // the table's own constraint
    EXPECT_EQ(NotificationCenter::defaultCenter().observationCount(&c), 1);
}

TEST_F(TodayViewControllerTest, RootIsThreeTwentyByFourHundredThenEightyFiveUntilTheFirstResize) {
    TodayViewController c;
    QWidget* root = c.view();
    EXPECT_EQ(root->geometry(), QRect(0, 0, 320, 400)); // at creation, before layout
    root->layout()->activate();
    EXPECT_EQ(root->size(), QSize(320, 85));
    EXPECT_EQ(c.myHeaderView()->geometry(), QRect(0, 0, 320, 30));
    EXPECT_EQ(c.myTableView()->geometry(), QRect(0, 35, 320, 50));
}

TEST_F(TodayViewControllerTest, MarginsAndEditing) {
    TodayViewController c;
    EXPECT_EQ(c.widgetMarginInsetsForProposedMarginInsets({5, 44, 5, 10}), (EdgeInsets{5, 0, 5, 10}));
    EXPECT_FALSE(c.widgetAllowsEditing());
    c.view();
    c.widgetDidBeginEditing();
    c.widgetDidEndEditing();
    c.dismissViewController(nullptr);
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    EXPECT_EQ(c.viewHeightContraint()->constant(), 50);
}

TEST_F(TodayViewControllerTest, DestroyedControllerStopsObserving) {
    auto c = std::make_unique<TodayViewController>();
    c->view();
    const void* key = c.get();
    c.reset();
    EXPECT_EQ(NotificationCenter::defaultCenter().observationCount(key), 0);
    // Blocks it queued before it went do nothing.
    EXPECT_TRUE(drain());
}

TEST_F(TodayViewControllerTest, NoContainerEmptiesAtOnceThenReportsNoDataThenNewData) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    ASSERT_EQ(c.dataFromDisk().size(), 3);
    test::ScopedEnvironment none("CORVINA_GROUP_CONTAINER", QByteArray(""));
    QList<int> results;
    c.widgetPerformUpdateWithCompletionHandler([&](int r) { results << r; });
    EXPECT_EQ(results, QList<int>{UpdateResult::NoData});
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    settle();
    EXPECT_EQ(results, (QList<int>{UpdateResult::NoData, UpdateResult::NewData}));
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    EXPECT_EQ(c.myTableView()->numberOfRows(), 0);
    EXPECT_EQ(heightConstant(), 0);
}

TEST_F(TodayViewControllerTest, ContainerWithoutSnapshotsReportsOnlyNewData) {
    TodayViewController& c = show();
    QList<int> results;
    c.widgetPerformUpdateWithCompletionHandler([&](int r) { results << r; });
    EXPECT_TRUE(results.isEmpty()); // nothing before the main queue runs
    settle();
    EXPECT_EQ(results, QList<int>{UpdateResult::NewData});
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    // A location whose folder is not on disk is not a missing container either.
    test::ScopedEnvironment gone("CORVINA_GROUP_CONTAINER", QByteArray("/nonexistent/corvina-container"));
    results.clear();
    c.widgetPerformUpdateWithCompletionHandler([&](int r) { results << r; });
    settle();
    EXPECT_EQ(results, QList<int>{UpdateResult::NewData});
}

TEST_F(TodayViewControllerTest, UpdateStoresWhatItReadsAndShowsIt) {
    write(inboxRows(4));
    TodayViewController& c = show();
    QList<int> results;
    c.widgetPerformUpdateWithCompletionHandler([&](int r) { results << r; });
    settle();
    EXPECT_EQ(results, QList<int>{UpdateResult::NewData});
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"m0", "m1", "m2", "m3"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 4);
    EXPECT_EQ(heightConstant(), 240);
    EXPECT_EQ(c.myTableView()->height(), 240);
    EXPECT_EQ(c.rootView()->height(), 35 + 240);
}

TEST_F(TodayViewControllerTest, FirstRunShowsEveryFolderUnfiltered) {
    write({{"a", 1}, {"b", 11}, {"c", 12}, {"d", 13}, {"e", 0}});
    TodayViewController& c = show();
    appear();
    ASSERT_TRUE(c.dataToShow());
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(c.myHeaderView()->control()->selectedSegment(), 0); // "Inbox" shown selected all the same
}

TEST_F(TodayViewControllerTest, SegmentValuesSelectByFolderKind) {
    write({{"a", 1}, {"b", 11}, {"c", 12}, {"d", 13}, {"e", 0}, {"f", 13}});
    TodayViewController& c = show();
    appear();
    const QList<std::pair<qint64, QStringList>> cases{
        {1, {"a"}}, {2, {"b"}}, {3, {"c"}}, {4, {"d", "f"}}, {0, {"a", "b", "c", "d", "e", "f"}}};
    for (const auto& [value, expected] : cases) {
        UserDefaults::setInteger(value, ConstVars::segmentedKey);
        c.ReloadData();
        settle();
        ASSERT_TRUE(c.dataToShow());
        EXPECT_EQ(ids(*c.dataToShow()), expected) << value;
        EXPECT_EQ(c.myTableView()->numberOfRows(), expected.size());
    }
}

TEST_F(TodayViewControllerTest, SegmentValueWithoutAListKeepsTheRows) {
    write(inboxRows(3));
    UserDefaults::setInteger(7, ConstVars::segmentedKey);
    TodayViewController& c = show();
    appear();
    EXPECT_FALSE(c.dataToShow().has_value()); // nothing selected before: no rows
    EXPECT_EQ(c.myTableView()->numberOfRows(), 0);
    EXPECT_EQ(heightConstant(), 0);
    UserDefaults::setInteger(1, ConstVars::segmentedKey);
    c.ReloadData();
    settle();
    ASSERT_EQ(c.dataToShow()->size(), 3);
    for (const qint64 value : {7, -1}) {
        UserDefaults::setInteger(value, ConstVars::segmentedKey);
        c.ReloadData();
        settle();
        EXPECT_EQ(c.dataToShow()->size(), 3) << value;
    }
}

TEST_F(TodayViewControllerTest, ElevenMatchingShowTheNewestTenTenShowAll) {
    write(inboxRows(11));
    TodayViewController& c = show();
    appear();
    EXPECT_EQ(ids(*c.dataToShow()), ids(c.dataFromDisk()).mid(0, 10));
    EXPECT_EQ(c.dataToShow()->last()->messageId(), QStringLiteral("m9"));
    EXPECT_EQ(heightConstant(), 600);
    EXPECT_EQ(c.rootView()->height(), 635);
    write(inboxRows(10));
    c.Reload();
    settle();
    EXPECT_EQ(c.dataToShow()->size(), 10);
    EXPECT_EQ(heightConstant(), 600);
}

TEST_F(TodayViewControllerTest, EqualReReadDoesNotReload) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    TableRowView* firstRow = c.myTableView()->rowViewAtRow(0);
    QPointer<QWidget> firstCell = c.myTableView()->viewAtColumn(0, 0);
    // Rewritten with other subjects but the same messages (ids and account): equal records.
    QVariantList rewritten = messages(inboxRows(3));
    for (QVariant& m : rewritten) {
        QVariantMap map = m.toMap();
        map.insert(QStringLiteral("subject"), QStringLiteral("changed"));
        m = map;
    }
    container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"), rewritten);
    c.Reload();
    settle();
    EXPECT_EQ(c.myTableView()->rowViewAtRow(0), firstRow);
    ASSERT_TRUE(firstCell);
    EXPECT_EQ(dynamic_cast<TodayTableViewCell*>(firstCell.data())->subjectField()->stringValue(),
              QStringLiteral("Subject m0"));
    // A different list does reload.
    write(inboxRows(2));
    c.Reload();
    settle();
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
    EXPECT_FALSE(firstCell);
}

TEST_F(TodayViewControllerTest, ChoosingASegmentStoresFirstAndFiltersAtOnce) {
    write({{"a", 1}, {"b", 11}, {"c", 11}});
    TodayViewController& c = show();
    appear();
    ASSERT_EQ(c.dataToShow()->size(), 3);
    SegmentedControl* control = c.myHeaderView()->control();
    QTest::mouseClick(control, Qt::LeftButton, {}, control->segmentRect(1).center());
    // Before any queue ran: stored, and the list already filtered from memory.
    EXPECT_EQ(UserDefaults::integerForKey(ConstVars::segmentedKey), 2);
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"b", "c"}));
    settle();
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
    EXPECT_EQ(heightConstant(), 120);
}

TEST_F(TodayViewControllerTest, ChoosingASegmentReReadsAndRedisplaysOnlyOnChange) {
    write({{"a", 1}, {"b", 11}});
    TodayViewController& c = show();
    appear();
    const ExtensionMessagePtr held = c.dataFromDisk().first();
    SegmentedControl* control = c.myHeaderView()->control();
    QTest::mouseClick(control, Qt::LeftButton, {}, control->segmentRect(1).center());
    settle();
    // Unchanged on disk: the re-read after the hop kept the records it had (a store would have
    // replaced them with the newly read ones, and redisplayed).
    EXPECT_EQ(c.dataFromDisk().first().get(), held.get());
    EXPECT_EQ(ids(*c.dataToShow()), QStringList{"b"});
    // A change on disk is picked up by the re-read that follows a choice.
    write({{"a", 1}, {"b", 11}, {"z", 11}});
    QTest::mouseClick(control, Qt::LeftButton, {}, control->segmentRect(1).center());
    EXPECT_EQ(ids(*c.dataToShow()), QStringList{"b"}); // at once: from memory
    settle();
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"a", "b", "z"}));
    // the message that did not change keeps the record held for it
    EXPECT_EQ(c.dataFromDisk().first().get(), held.get());
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"b", "z"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
}

TEST_F(TodayViewControllerTest, EmptySnapshotFolderReportsOnlyNewData) {
    QDir().mkpath(container.data() + "/" + ConstVars::todayFolder);
    TodayViewController& c = show();
    QList<int> results;
    c.widgetPerformUpdateWithCompletionHandler([&](int r) { results << r; });
    settle();
    EXPECT_EQ(results, QList<int>{UpdateResult::NewData});
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    EXPECT_EQ(c.myTableView()->numberOfRows(), 0);
}

TEST_F(TodayViewControllerTest, EveryRowIsANewCellFilledFromItsMessage) {
    write(inboxRows(2));
    TodayViewController& c = show();
    appear();
    EXPECT_EQ(c.numberOfRowsInTableView(c.myTableView()), 2);
    std::unique_ptr<QWidget> one(c.viewForTableColumn(c.myTableView(), nullptr, 1));
    std::unique_ptr<QWidget> again(c.viewForTableColumn(c.myTableView(), nullptr, 1));
    EXPECT_NE(one.get(), again.get());
    auto* cell = dynamic_cast<TodayTableViewCell*>(one.get());
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(cell->identifier(), QStringLiteral("TodayTableViewCell"));
    EXPECT_EQ(cell->geometry(), QRect(0, 0, TodayMetrics::width, TodayMetrics::rowHeight));
    EXPECT_EQ(cell->message()->messageId(), QStringLiteral("m1"));
    EXPECT_EQ(cell->subjectField()->stringValue(), QStringLiteral("Subject m1"));
    // Beyond the list: an empty cell, not a failure.
    std::unique_ptr<QWidget> beyond(c.viewForTableColumn(c.myTableView(), nullptr, 5));
    auto* empty = dynamic_cast<TodayTableViewCell*>(beyond.get());
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->message(), nullptr);
    EXPECT_EQ(empty->avatarIMview()->imageName(), QStringLiteral("prof10"));
}

TEST_F(TodayViewControllerTest, ClickingARowOpensItsMessageOnce) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    QWidget* cell = c.myTableView()->viewAtColumn(0, 1);
    QTest::mouseClick(cell, Qt::LeftButton, {}, QPoint(150, 12)); // on the sender, not a button
    EXPECT_EQ(c.myTableView()->selectedRow(), 1);
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(
        launches.at(0).arguments,
        QStringList{QStringLiteral("corvina://open?mail=ann%40example.org&messageid=m1&folderstandardid=1")});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
    // The selection stays; the same row again is no change and sends nothing more.
    QTest::mouseClick(cell, Qt::LeftButton, {}, QPoint(150, 12));
    EXPECT_EQ(host.waitForLaunches(2, 300).size(), 1);
}

TEST_F(TodayViewControllerTest, NoSelectionSendsNothing) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    ASSERT_EQ(c.myTableView()->selectedRow(), -1);
    c.tableViewSelectionDidChange();
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty());
}

namespace {

void post(const ExtensionMessagePtr& message, const QString& command) {
    NotificationCenter::defaultCenter().postNotificationName(
        ExtensionUtilities::ACTION_CALLED_EXTENSION,
        QVariantMap{{QStringLiteral("message"), QVariant::fromValue(message)},
                    {QStringLiteral("command"), command}});
}

ExtensionMessagePtr equalTo(const QString& id) {
    auto m = ExtensionMessage::init();
    m->setMessageId(id);
    m->setAccount(kAccount);
    return m;
}

} // namespace

TEST_F(TodayViewControllerTest, ArchivingTheThirdOfFiveSlidesItLeftAndKeepsTheHeight) {
    write(inboxRows(5));
    TodayViewController& c = show();
    appear();
    QPointer<TableRowView> third = c.myTableView()->rowViewAtRow(2);
    TableRowView* fourth = c.myTableView()->rowViewAtRow(3);
    post(equalTo(QStringLiteral("m2")), ConstVars::commandArchive); // an equal record, not the same one
    // The lists change at once, on the posting thread.
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"m0", "m1", "m3", "m4"}));
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"m0", "m1", "m3", "m4"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 5); // the row goes on the main queue
    ASSERT_TRUE(drain([&] { return third && third->x() < -20; }, 2000)) << "the row slides out to the left";
    settle();
    EXPECT_FALSE(third);
    EXPECT_EQ(c.myTableView()->numberOfRows(), 4);
    EXPECT_EQ(c.myTableView()->rowViewAtRow(2), fourth);
    EXPECT_EQ(fourth->y(), 120);
    EXPECT_EQ(heightConstant(), 300); // no resize until the next reload
    EXPECT_EQ(c.myTableView()->height(), 300);
}

TEST_F(TodayViewControllerTest, DeletingSlidesRightReplyChangesNothing) {
    write(inboxRows(5));
    TodayViewController& c = show();
    appear();
    post(equalTo(QStringLiteral("m1")), ConstVars::commandReply);
    post(equalTo(QStringLiteral("m1")), ConstVars::commandOpen);
    settle();
    EXPECT_EQ(c.dataToShow()->size(), 5);
    EXPECT_EQ(c.myTableView()->numberOfRows(), 5);
    QPointer<TableRowView> second = c.myTableView()->rowViewAtRow(1);
    post(equalTo(QStringLiteral("m1")), ConstVars::commandDelete);
    ASSERT_TRUE(drain([&] { return second && second->x() > 20; }, 2000)) << "the row slides out to the right";
    settle();
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"m0", "m2", "m3", "m4"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 4);
}

TEST_F(TodayViewControllerTest, MessageNotShownChangesNothingNotEvenTheFullList) {
    write({{"a", 1}, {"b", 11}, {"c", 1}});
    UserDefaults::setInteger(1, ConstVars::segmentedKey);
    TodayViewController& c = show();
    appear();
    ASSERT_EQ(ids(*c.dataToShow()), (QStringList{"a", "c"}));
    post(equalTo(QStringLiteral("b")), ConstVars::commandArchive);
    settle();
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"a", "b", "c"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
    // Malformed notifications are ignored too.
    NotificationCenter::defaultCenter().postNotificationName(ExtensionUtilities::ACTION_CALLED_EXTENSION);
    NotificationCenter::defaultCenter().postNotificationName(
        ExtensionUtilities::ACTION_CALLED_EXTENSION,
        QVariantMap{{QStringLiteral("command"), QStringLiteral("archive")}});
    settle();
    EXPECT_EQ(c.dataFromDisk().size(), 3);
}

TEST_F(TodayViewControllerTest, TwoEqualMessagesBothLeaveTheListsOneRowLeavesTheTable) {
    // Two snapshot files holding the same message (same id and account).
    write(inboxRows(3));
    container.writeSnapshot(kAccount, QStringLiteral("copy.plist"), messages({{"m1", 1}}));
    TodayViewController& c = show();
    appear();
    ASSERT_EQ(c.dataToShow()->size(), 4);
    ASSERT_EQ(ids(*c.dataToShow()).count(QStringLiteral("m1")), 2);
    post(equalTo(QStringLiteral("m1")), ConstVars::commandArchive);
    settle();
    EXPECT_EQ(ids(c.dataFromDisk()).count(QStringLiteral("m1")), 0);
    EXPECT_EQ(c.dataToShow()->size(), 2);
    EXPECT_EQ(c.myTableView()->numberOfRows(), 3); // the table was told of one row only
}

TEST_F(TodayViewControllerTest, ArchiveButtonRemovesTheRowAndTellsTheMailApp) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    TodayTableViewCell* first = cellAt(0);
    ASSERT_NE(first, nullptr);
    QPointer<TableRowView> row = c.myTableView()->rowViewAtRow(0);
    QTest::mouseClick(first->archiveButton(), Qt::LeftButton);
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"m1", "m2"}));
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"m1", "m2"}));
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=m0&folderstandardid=1")});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    settle();
    EXPECT_FALSE(row);
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
    EXPECT_EQ(c.myTableView()->selectedRow(), -1); // a button press is not a row selection
    // The trash button of the new first row.
    QTest::mouseClick(cellAt(0)->trashButton(), Qt::LeftButton);
    settle();
    EXPECT_EQ(ids(c.dataFromDisk()), QStringList{"m2"});
    EXPECT_EQ(c.myTableView()->numberOfRows(), 1);
}

TEST_F(TodayViewControllerTest, ARemovedMessageStillOnDiskComesBackOnTheNextReload) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    post(equalTo(QStringLiteral("m0")), ConstVars::commandArchive);
    settle();
    ASSERT_EQ(c.dataFromDisk().size(), 2);
    c.Reload(); // the mail app has not rewritten its snapshot yet
    settle();
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"m0", "m1", "m2"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 3);
    // Once the mail app wrote the snapshot without it, the re-read is equal: nothing redisplays.
    post(equalTo(QStringLiteral("m0")), ConstVars::commandArchive);
    settle();
    write({{"m1", 1}, {"m2", 1}});
    TableRowView* row = c.myTableView()->rowViewAtRow(0);
    c.Reload();
    settle();
    EXPECT_EQ(c.myTableView()->rowViewAtRow(0), row);
    EXPECT_EQ(heightConstant(), 180); // still the old height: the table was not reloaded
}

TEST_F(TodayViewControllerTest, ARowWhoseArchiveWasSentTakesNoMoreClicks) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    TodayTableViewCell* first = cellAt(0);
    ASSERT_NE(first, nullptr);
    QPointer<TableRowView> row = c.myTableView()->rowViewAtRow(0);
    // Two quick clicks on the archive button, then one on the row itself before it starts moving.
    QTest::mouseClick(first->archiveButton(), Qt::LeftButton);
    QTest::mouseClick(first->archiveButton(), Qt::LeftButton);
    QTest::mouseClick(first, Qt::LeftButton, {}, QPoint(150, 12));
    // While it slides out: its buttons and the row once more.
    ASSERT_TRUE(drain([&] { return row && row->x() < -20; }, 2000)) << "the row slides out to the left";
    QTest::mouseClick(first->trashButton(), Qt::LeftButton);
    QTest::mouseClick(first, Qt::LeftButton, {}, QPoint(150, 12));
    settle();
    EXPECT_FALSE(row);
    const auto launches = host.waitForLaunches(2, 500);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=m0&folderstandardid=1")});
    EXPECT_EQ(ids(c.dataFromDisk()), (QStringList{"m1", "m2"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
    // The rows that stay answer as before.
    QTest::mouseClick(cellAt(0), Qt::LeftButton, {}, QPoint(150, 12));
    ASSERT_EQ(host.waitForLaunches(2).size(), 2);
    EXPECT_EQ(
        host.launches().at(1).arguments,
        QStringList{QStringLiteral("corvina://open?mail=ann%40example.org&messageid=m1&folderstandardid=1")});
}

TEST_F(TodayViewControllerTest, ARowArchivedFromElsewhereTakesNoMoreClicksEither) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    TodayTableViewCell* second = cellAt(1);
    ASSERT_NE(second, nullptr);
    // As a new-mail notification's "Archive" does: the command's notification, not the row's button.
    post(equalTo(QStringLiteral("m1")), ConstVars::commandArchive);
    EXPECT_TRUE(second->isLeaving());
    EXPECT_FALSE(cellAt(0)->isLeaving());
    EXPECT_FALSE(cellAt(2)->isLeaving());
    QTest::mouseClick(second->trashButton(), Qt::LeftButton);
    QTest::mouseClick(second, Qt::LeftButton, {}, QPoint(150, 12));
    settle();
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty());
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
}

TEST_F(TodayViewControllerTest, AMailApplicationSlowToAnswerNeverHoldsTheWindow) {
    ASSERT_NE(test::PrivateSessionBus::instance(), nullptr) << "dbus-daemon could not be started";
    // The mail application over D-Bus, answering each call 1.5 s after it came: within the time the
    // launch waits for an answer (3 s), so the command arrives as it always did.
    host.installDBusService(ConstVars::appIdentifier, 1500);
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    QPointer<TableRowView> row = c.myTableView()->rowViewAtRow(0);
    QTest::mouseClick(cellAt(0)->archiveButton(), Qt::LeftButton);
    // The click is over before the mail application answered; the lists changed at once.
    EXPECT_TRUE(host.launches().isEmpty()) << "the click waited for the mail application";
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"m1", "m2"}));
    // Meanwhile the event loop turns: a timer fires, the row slides out.
    bool fired = false;
    QTimer::singleShot(0, [&fired] { fired = true; });
    ASSERT_TRUE(drain([&] { return fired && (!row || row->x() < -20); }));
    // The command reaches the mail application as before.
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).method, QStringLiteral("Open"));
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=m0&folderstandardid=1")});
    EXPECT_TRUE(Workspace::waitForBackgroundLaunches(5000));
    settle();
    EXPECT_EQ(c.myTableView()->numberOfRows(), 2);
}

TEST_F(TodayViewControllerTest, NewestRowsComeAtOnceAndTheReadThatCountsFollows) {
    write(inboxRows(12));
    TodayViewController& c = show();
    ASSERT_TRUE(c.showNewestRows());
    // at once, before the main queue runs: the rows, their height, nothing moving
    ASSERT_TRUE(c.dataToShow());
    EXPECT_EQ(ids(*c.dataToShow()), ids(SnapshotLoader().updateData()).mid(0, 10));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 10);
    EXPECT_EQ(cellAt(0)->subjectField()->stringValue(), QStringLiteral("Subject m0"));
    EXPECT_EQ(heightConstant(), 600);
    EXPECT_FALSE(c.isAnimating());
    EXPECT_EQ(c.myTableView()->height(), 600);
    // the whole list is still the read's to store
    EXPECT_TRUE(c.dataFromDisk().isEmpty());
    appear();
    EXPECT_EQ(c.dataFromDisk().size(), 12);
    EXPECT_EQ(ids(*c.dataToShow()), ids(c.dataFromDisk()).mid(0, 10));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 10);
    EXPECT_EQ(heightConstant(), 600);
}

TEST_F(TodayViewControllerTest, NewestRowsFollowTheChosenList) {
    write({{"a", 1}, {"b", 11}, {"c", 12}, {"d", 13}, {"e", 0}, {"f", 13}, {"g", 11}});
    const QList<std::pair<qint64, QStringList>> cases{
        {1, {"a"}}, {2, {"b", "g"}}, {3, {"c"}}, {4, {"d", "f"}}, {0, {"a", "b", "c", "d", "e", "f", "g"}}};
    for (const auto& [value, expected] : cases) {
        UserDefaults::setInteger(value, ConstVars::segmentedKey);
        // a new widget each time, the window (which holds the view) going first
        window.reset();
        controller.reset();
        TodayViewController& c = show();
        ASSERT_TRUE(c.showNewestRows()) << value;
        ASSERT_TRUE(c.dataToShow());
        EXPECT_EQ(ids(*c.dataToShow()), expected) << value;
        // what the read that counts shows in the end is the same
        appear();
        EXPECT_EQ(ids(*c.dataToShow()), expected) << value;
    }
}

TEST_F(TodayViewControllerTest, NoNewestRowsForAValueWithoutAListOrAnEmptyFolder) {
    write(inboxRows(3));
    UserDefaults::setInteger(7, ConstVars::segmentedKey);
    TodayViewController& c = show();
    EXPECT_FALSE(c.showNewestRows());
    EXPECT_FALSE(c.dataToShow().has_value());
    EXPECT_EQ(c.myTableView()->numberOfRows(), 0);
    EXPECT_EQ(heightConstant(), 50);
    UserDefaults::setInteger(1, ConstVars::segmentedKey);
    write({});
    EXPECT_FALSE(c.showNewestRows());
    EXPECT_FALSE(c.dataToShow().has_value());
    EXPECT_EQ(heightConstant(), 50);
}

TEST_F(TodayViewControllerTest, TheFirstRowsComeWithoutTheHeightAnimationLaterChangesMove) {
    write(inboxRows(3));
    TodayViewController& c = show();
    c.viewWillAppear();
    // the queue drained, no more: the height is already the rows'
    ASSERT_TRUE(drain([] { return Dispatch::pendingMainBlocks() == 0; }));
    EXPECT_EQ(heightConstant(), 180);
    EXPECT_FALSE(c.isAnimating());
    EXPECT_EQ(c.myTableView()->height(), 180);
    write(inboxRows(5));
    c.Reload();
    ASSERT_TRUE(drain([] { return Dispatch::pendingMainBlocks() == 0; }));
    EXPECT_EQ(heightConstant(), 300);
    EXPECT_TRUE(c.isAnimating());
    settle();
    EXPECT_EQ(c.myTableView()->height(), 300);
}

// After a change the rows the update will show come at once, and the update that follows is the one
// that counts: the whole list, the new-mail bookkeeping (the arrival, the marker) and the height.
TEST_F(TodayViewControllerTest, ChangedRowsComeAtOnceAndTheUpdateThatFollowsCounts) {
    write(inboxRows(12));
    TodayViewController& c = show();
    NewMailTracker tracker;
    c.setNewMailTracker(&tracker);
    appear();
    ASSERT_EQ(c.dataFromDisk().size(), 12);
    const ExtensionMessageList before = c.dataFromDisk();
    QSignalSpy arrived(&tracker, &NewMailTracker::arrived);

    write(QList<std::pair<QString, qint64>>{{QStringLiteral("new"), 1}} + inboxRows(12));
    ASSERT_TRUE(c.showChangedRows());
    // at once, before the main queue runs: the rows with the new message on top
    ASSERT_TRUE(c.dataToShow());
    EXPECT_EQ(ids(*c.dataToShow()), ids(SnapshotLoader().updateData()).mid(0, 10));
    EXPECT_EQ(ids(*c.dataToShow()).value(0), QStringLiteral("new"));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 10);
    EXPECT_EQ(cellAt(0)->subjectField()->stringValue(), QStringLiteral("Subject new"));
    // nothing of the bookkeeping yet: the whole list and the arrival are the update's
    EXPECT_EQ(ids(c.dataFromDisk()), ids(before));
    EXPECT_EQ(arrived.size(), 0);
    // the same rows once more: nothing to put on the screen
    EXPECT_FALSE(c.showChangedRows());

    bool done = false;
    c.widgetPerformUpdateWithCompletionHandler([&done](int result) { done = done || result == 0; });
    settle();
    ASSERT_TRUE(done);
    EXPECT_EQ(c.dataFromDisk().size(), 13);
    EXPECT_EQ(ids(*c.dataToShow()), ids(c.dataFromDisk()).mid(0, 10));
    ASSERT_EQ(arrived.size(), 1);
    EXPECT_EQ(ids(arrived.at(0).at(0).value<ExtensionMessageList>()), QStringList{QStringLiteral("new")});
    EXPECT_TRUE(cellAt(0)->isMarkedNew());
    EXPECT_FALSE(cellAt(1)->isMarkedNew());
    EXPECT_EQ(heightConstant(), 600);
}

// The table's height is the update's to change, and it moves as after any reload.
TEST_F(TodayViewControllerTest, ChangedRowsLeaveTheHeightToTheUpdate) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    ASSERT_EQ(heightConstant(), 180);
    write(inboxRows(4, 1, QStringLiteral("n")));
    ASSERT_TRUE(c.showChangedRows());
    EXPECT_EQ(c.myTableView()->numberOfRows(), 4);
    EXPECT_EQ(heightConstant(), 180);
    EXPECT_FALSE(c.isAnimating());
    c.widgetPerformUpdateWithCompletionHandler({});
    ASSERT_TRUE(drain([] { return Dispatch::pendingMainBlocks() == 0; }));
    EXPECT_EQ(heightConstant(), 240);
    EXPECT_TRUE(c.isAnimating());
    settle();
    EXPECT_EQ(c.myTableView()->height(), 240);
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"n0", "n1", "n2", "n3"}));
}

// Nothing changes for a value without a list, or for a list left with no rows: the update shows
// what it shows.
TEST_F(TodayViewControllerTest, NoChangedRowsForAValueWithoutAListOrAnEmptyList) {
    write(inboxRows(3));
    TodayViewController& c = show();
    appear();
    write(inboxRows(3, 1, QStringLiteral("n")));
    UserDefaults::setInteger(7, ConstVars::segmentedKey);
    EXPECT_FALSE(c.showChangedRows());
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"m0", "m1", "m2"}));
    UserDefaults::setInteger(1, ConstVars::segmentedKey);
    write({});
    EXPECT_FALSE(c.showChangedRows());
    EXPECT_EQ(ids(*c.dataToShow()), (QStringList{"m0", "m1", "m2"}));
    EXPECT_EQ(c.myTableView()->numberOfRows(), 3);
}

TEST_F(TodayViewControllerTest, AReadKeepsTheRecordsHeldForMessagesThatDidNotChange) {
    QVariantList inbox = messages(inboxRows(4));
    container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"), inbox);
    TodayViewController& c = show();
    c.widgetPerformUpdateWithCompletionHandler({});
    settle();
    const ExtensionMessageList first = c.dataFromDisk();
    ASSERT_EQ(ids(first), (QStringList{"m0", "m1", "m2", "m3"}));

    // The files read again as they were: the same records, not copies of them.
    c.widgetPerformUpdateWithCompletionHandler({});
    settle();
    const ExtensionMessageList second = c.dataFromDisk();
    ASSERT_EQ(second.size(), first.size());
    for (qsizetype i = 0; i < first.size(); ++i)
        EXPECT_EQ(second.at(i).get(), first.at(i).get()) << i;

    // A message came on top and another one's subject changed: those two are new records with
    // what the file says now, the others are still the ones held.
    QVariantMap changed = inbox[1].toMap();
    changed.insert(QStringLiteral("subject"), QStringLiteral("changed"));
    inbox[1] = changed;
    QVariantMap came = TempContainer::message(QStringLiteral("new"), kAccount, kNow + 600, 1);
    inbox.prepend(came);
    container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"), inbox);
    c.Reload();
    settle();
    const ExtensionMessageList third = c.dataFromDisk();
    ASSERT_EQ(ids(third), (QStringList{"new", "m0", "m1", "m2", "m3"}));
    EXPECT_EQ(third.at(1).get(), first.at(0).get());
    EXPECT_NE(third.at(2).get(), first.at(1).get());
    EXPECT_EQ(third.at(2)->subject(), QStringLiteral("changed"));
    EXPECT_EQ(third.at(3).get(), first.at(2).get());
    EXPECT_EQ(third.at(4).get(), first.at(3).get());
    // and what is shown is made of the same records
    const auto shown = c.dataToShow();
    ASSERT_TRUE(shown);
    ASSERT_EQ(shown->size(), 5);
    EXPECT_EQ(shown->at(1).get(), first.at(0).get());
    EXPECT_EQ(c.myTableView()->numberOfRows(), 5);
}

TEST_F(TodayViewControllerTest, OneRecordHeldStandsInForOneMessageOnly) {
    // Two files with the same message: two records, never one record twice.
    write(inboxRows(1));
    container.writeSnapshot(kAccount, QStringLiteral("copy.plist"), messages(inboxRows(1)));
    TodayViewController& c = show();
    c.widgetPerformUpdateWithCompletionHandler({});
    settle();
    const ExtensionMessageList first = c.dataFromDisk();
    ASSERT_EQ(first.size(), 2);
    ASSERT_NE(first.at(0).get(), first.at(1).get());
    c.widgetPerformUpdateWithCompletionHandler({});
    settle();
    const ExtensionMessageList second = c.dataFromDisk();
    ASSERT_EQ(second.size(), 2);
    EXPECT_NE(second.at(0).get(), second.at(1).get());
    EXPECT_TRUE(second.contains(first.at(0)));
    EXPECT_TRUE(second.contains(first.at(1)));
}
