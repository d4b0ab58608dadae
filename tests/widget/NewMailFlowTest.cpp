// New mail around the widget, put together as the widget's host does: the controller reading a
// real shared folder, the tracker, the notifications through a notification service on a private
// session bus, the tray's count, and a stand-in mail application recording what it is sent.
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "support/FakeHostApp.h"
#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "views/TodayTableView.h"
#include "views/TodayTableViewCell.h"
#include "widget/MailNotifier.h"
#include "widget/NewMailTracker.h"
#include "widget/TodayViewController.h"
#include "widget/TrayIcon.h"

#include <QLayout>
#include <QVBoxLayout>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;
using corvina::test::drain;
using corvina::test::FakeHostApp;
using corvina::test::NotificationRecorder;
using corvina::test::PrivateSessionBus;
using corvina::test::TempContainer;

namespace {

const QString kFlowAccount = QStringLiteral("ann@example.org");

QVariantList snapshot(const QStringList& ids) {
    return TempContainer::inboxMessages(kFlowAccount, ids);
}

class NewMailFlow : public ::testing::Test {
protected:
    void SetUp() override {
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr);
        recorder = std::make_unique<NotificationRecorder>(bus->address());
        ASSERT_TRUE(recorder->isRegistered());
        host.installRecorder(ConstVars::appIdentifier);
        container.writeAccounts({TempContainer::account(kFlowAccount)});
        write({"m0", "m1", "m2"});

        // As the host builds it, started in the tray: the window hidden.
        controller = std::make_unique<TodayViewController>();
        window = std::make_unique<QWidget>();
        auto* layout = new QVBoxLayout(window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSizeConstraint(QLayout::SetFixedSize);
        layout->addWidget(controller->view());
        tracker = std::make_unique<NewMailTracker>();
        controller->setNewMailTracker(tracker.get());
        QObject::connect(tracker.get(), &NewMailTracker::markersChanged,
                         [this] { controller->ReloadData(); });
        notifier = std::make_unique<MailNotifier>(tracker.get());
        tray = std::make_unique<TrayIcon>(tracker.get(), window.get());
        controller->viewWillAppear();
        tracker->watchWindow(window.get());
        update();
    }

    void write(const QStringList& ids) {
        container.writeSnapshot(kFlowAccount, QStringLiteral("inbox.plist"), snapshot(ids));
    }

    // One update of the widget, as its timer or the folder watcher asks for it, run to its end.
    void update() {
        bool done = false;
        controller->widgetPerformUpdateWithCompletionHandler([&](int result) { done = result == 0; });
        ASSERT_TRUE(drain([&] { return done && !controller->isAnimating(); }));
    }

    TodayTableViewCell* cellAt(qint64 row) const {
        return dynamic_cast<TodayTableViewCell*>(controller->myTableView()->viewAtColumn(0, row));
    }

    test::ScopedSettings settings;
    PrivateSessionBus* bus = nullptr;
    std::unique_ptr<NotificationRecorder> recorder;
    FakeHostApp host;
    TempContainer container;
    std::unique_ptr<TodayViewController> controller;
    std::unique_ptr<QWidget> window;
    std::unique_ptr<NewMailTracker> tracker;
    std::unique_ptr<MailNotifier> notifier;
    std::unique_ptr<TrayIcon> tray;
};

} // namespace

TEST_F(NewMailFlow, TwoNewMessagesCountTwoNotifyAndArchiveFromTheNotification) {
    ASSERT_EQ(controller->dataFromDisk().size(), 3);
    EXPECT_EQ(tray->count(), 0);

    write({"n1", "n2", "m0", "m1", "m2"});
    update();
    EXPECT_EQ(tray->count(), 2);
    EXPECT_EQ(tray->toolTip(), QStringLiteral("2 new messages\nSender n1\nSender n2"));
    ASSERT_TRUE(drain([&] { return notifier->shownIds().size() == 2; }));
    const auto shown = recorder->notifications();
    ASSERT_EQ(shown.size(), 2); // none for the three there at the start
    EXPECT_EQ(shown.at(0).summary, QStringLiteral("Sender n1"));
    EXPECT_EQ(shown.at(1).summary, QStringLiteral("Sender n2"));
    // The rows that came carry the marker, the others not.
    EXPECT_TRUE(cellAt(0)->isMarkedNew());
    EXPECT_TRUE(cellAt(1)->isMarkedNew());
    EXPECT_FALSE(cellAt(2)->isMarkedNew());

    // "Archive" on n2's notification: the mail application gets the widget's own archive URL for it.
    recorder->invokeAction(recorder->idOf(1), ConstVars::commandArchive);
    ASSERT_TRUE(drain([&] { return host.launches().size() == 1 && !controller->isAnimating(); }));
    const auto launch = host.launches().at(0);
    EXPECT_EQ(launch.arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=n2&folderstandardid=1")});
    EXPECT_EQ(launch.values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    // As after the row's own archive button: the row left, the count and the notification follow.
    EXPECT_EQ(controller->dataFromDisk().size(), 4);
    EXPECT_EQ(tray->count(), 1);
    ASSERT_TRUE(drain([&] { return recorder->closed().size() == 1; }));
    EXPECT_EQ(recorder->closed(), QList<uint>{recorder->idOf(1)});
}

TEST_F(NewMailFlow, OpeningTheWindowClearsTheCountAndTheMarkersGoAfterThatLook) {
    write({"n1", "n2", "m0", "m1", "m2"});
    update();
    ASSERT_EQ(tray->count(), 2);

    tray->toggleWindow(); // a click on the tray icon
    ASSERT_TRUE(window->isVisible());
    EXPECT_EQ(tray->count(), 0);
    ASSERT_TRUE(drain([&] { return !controller->isAnimating(); }));
    // While the window is open the user can still tell which rows came.
    EXPECT_TRUE(cellAt(0)->isMarkedNew());
    EXPECT_TRUE(cellAt(1)->isMarkedNew());

    tray->toggleWindow();
    ASSERT_FALSE(window->isVisible());
    ASSERT_TRUE(drain([&] { return !controller->isAnimating(); }));
    EXPECT_FALSE(cellAt(0)->isMarkedNew());
    EXPECT_FALSE(cellAt(1)->isMarkedNew());

    // The next arrival counts from there, also after a restart.
    write({"n3", "n1", "n2", "m0", "m1", "m2"});
    update();
    EXPECT_EQ(tray->count(), 1);
    NewMailTracker restarted;
    restarted.update(controller->dataFromDisk());
    EXPECT_EQ(restarted.newInboxCount(), 1);
    EXPECT_EQ(restarted.newInboxMessages().value(0)->messageId(), QStringLiteral("n3"));
}
