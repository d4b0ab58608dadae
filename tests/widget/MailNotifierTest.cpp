#include "widget/MailNotifier.h"

#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "support/FakeHostApp.h"
#include "support/LogCapture.h"
#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "widget/NewMailTracker.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;
using corvina::test::drain;
using corvina::test::FakeHostApp;
using corvina::test::LogCapture;
using corvina::test::NotificationRecorder;
using corvina::test::PrivateSessionBus;
using corvina::test::TempContainer;

namespace {

const QString kNotifiedAccount = QStringLiteral("ann@example.org");

ExtensionMessagePtr notifiedMessage(const QString& id, const QString& subject = QString()) {
    QVariantMap m = TempContainer::message(id, kNotifiedAccount, 1795000000, 1);
    m.insert(QStringLiteral("from"), QStringLiteral("Sender ") + id);
    m.insert(QStringLiteral("subject"), subject.isNull() ? QStringLiteral("Subject ") + id : subject);
    return ExtensionMessage::initWithDictonary(m);
}

ExtensionMessageList notifiedMessages(const QStringList& ids) {
    ExtensionMessageList out;
    for (const QString& id : ids)
        out << notifiedMessage(id);
    return out;
}

class MailNotifierTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr);
        recorder = std::make_unique<NotificationRecorder>(bus->address());
        ASSERT_TRUE(recorder->isRegistered());
        host.installRecorder(ConstVars::appIdentifier);
        notifier = std::make_unique<MailNotifier>(&tracker);
        // What the program holds at its start is never announced.
        tracker.update(notifiedMessages({"m0", "m1"}));
    }

    // Waits until the recorder has `count` notifications and the notifier has the ids of those it
    // keeps (`shown`).
    bool waitForNotifications(qsizetype count, qsizetype shown) {
        return drain([&] {
            return recorder->notifications().size() == count && notifier->shownIds().size() == shown;
        });
    }

    test::ScopedSettings settings;
    PrivateSessionBus* bus = nullptr;
    std::unique_ptr<NotificationRecorder> recorder;
    FakeHostApp host;
    NewMailTracker tracker;
    std::unique_ptr<MailNotifier> notifier;
};

} // namespace

TEST_F(MailNotifierTest, OnePerNewMessageWithSenderSubjectAndTheThreeActions) {
    tracker.update(notifiedMessages({"n1"}) + ExtensionMessageList{notifiedMessage("n2", "Fish & <chips>")} +
                   notifiedMessages({"m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(2, 2));
    const auto shown = recorder->notifications();
    EXPECT_EQ(shown.at(0).applicationName, QStringLiteral("Corvina Today"));
    EXPECT_EQ(shown.at(0).icon, QStringLiteral("mail-unread"));
    EXPECT_EQ(shown.at(0).summary, QStringLiteral("Sender n1"));
    EXPECT_EQ(shown.at(0).body, QStringLiteral("Subject n1"));
    EXPECT_EQ(shown.at(0).replacesId, 0u);
    EXPECT_EQ(shown.at(0).actions,
              (QStringList{"default", "Open", "open", "Open", "archive", "Archive", "delete", "Delete"}));
    EXPECT_EQ(shown.at(0).hints.value(QStringLiteral("category")).toString(),
              QStringLiteral("email.arrived"));
    EXPECT_EQ(shown.at(0).hints.value(QStringLiteral("desktop-entry")).toString(),
              QStringLiteral("org.corvina.mail.today"));
    EXPECT_EQ(shown.at(1).summary, QStringLiteral("Sender n2"));
    // The body is the service's markup: the subject's own characters are escaped.
    EXPECT_EQ(shown.at(1).body, QStringLiteral("Fish &amp; &lt;chips&gt;"));
}

TEST_F(MailNotifierTest, ActionsSendTheWidgetsOwnCommandsForThatMessage) {
    tracker.update(notifiedMessages({"n1", "n2", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(2, 2));
    const uint n1 = recorder->idOf(0);
    const uint n2 = recorder->idOf(1);

    // Another application's notification: not ours to act on.
    recorder->invokeAction(n2 + 100, ConstVars::commandArchive);
    recorder->invokeAction(n2, ConstVars::commandArchive);
    ASSERT_TRUE(drain([&] { return host.launches().size() == 1; }));
    recorder->invokeAction(n1, ConstVars::commandDelete);
    ASSERT_TRUE(drain([&] { return host.launches().size() == 2; }));
    recorder->invokeAction(n1, ConstVars::commandOpen);
    ASSERT_TRUE(drain([&] { return host.launches().size() == 3; }));
    recorder->invokeAction(n1, QStringLiteral("default"));
    ASSERT_TRUE(drain([&] { return host.launches().size() == 4; }));
    const auto launches = host.launches();
    // Exactly the URLs the row's buttons make, with the same launch options (archive and delete in
    // the background, open in the foreground).
    EXPECT_EQ(launches.at(0).arguments, QStringList{ExtensionUtilities::CommandURLForMessage(
                                                        notifiedMessage("n2"), ConstVars::commandArchive)
                                                        ->absoluteString()});
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=n2&folderstandardid=1")});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    EXPECT_EQ(launches.at(1).arguments,
              QStringList{
                  QStringLiteral("corvina://delete?mail=ann%40example.org&messageid=n1&folderstandardid=1")});
    EXPECT_EQ(launches.at(1).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    EXPECT_EQ(
        launches.at(2).arguments,
        QStringList{QStringLiteral("corvina://open?mail=ann%40example.org&messageid=n1&folderstandardid=1")});
    EXPECT_EQ(launches.at(2).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
    EXPECT_EQ(launches.at(3).arguments, launches.at(2).arguments);
}

TEST_F(MailNotifierTest, MoreThanThreeAtOnceAreOneNotification) {
    QSignalSpy showList(notifier.get(), &MailNotifier::showListRequested);
    tracker.update(notifiedMessages({"n1", "n2", "n3", "n4", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(1, 1));
    const auto shown = recorder->notifications().at(0);
    EXPECT_EQ(shown.summary, QStringLiteral("4 new messages"));
    EXPECT_EQ(shown.body,
              QStringLiteral("Sender n1: Subject n1\nSender n2: Subject n2\nSender n3: Subject n3\n"
                             "Sender n4: Subject n4"));
    EXPECT_EQ(shown.actions, (QStringList{"default", "Show the list", "show", "Show the list"}));
    // Three at once are three.
    tracker.update(notifiedMessages({"p1", "p2", "p3", "n1", "n2", "n3", "n4", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(4, 4));
    recorder->invokeAction(recorder->idOf(0), QStringLiteral("show"));
    ASSERT_TRUE(drain([&] { return showList.size() == 1; }));
    EXPECT_TRUE(host.launches().isEmpty());
}

TEST_F(MailNotifierTest, ReplacedWhenSomeOfItsMessagesLeaveAndClosedWhenAllHave) {
    tracker.update(notifiedMessages({"n1", "n2", "n3", "n4", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(1, 1));
    const uint group = recorder->idOf(0);
    tracker.update(notifiedMessages({"s1", "n2", "n3", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(3, 2));
    const auto replaced = recorder->notifications().at(1);
    EXPECT_EQ(replaced.replacesId, group);
    EXPECT_EQ(replaced.summary, QStringLiteral("2 new messages"));
    EXPECT_EQ(recorder->notifications().at(2).summary, QStringLiteral("Sender s1"));
    const uint single = recorder->idOf(2);

    tracker.update(notifiedMessages({"m0", "m1"}));
    ASSERT_TRUE(drain([&] { return recorder->closed().size() == 2 && notifier->shownIds().isEmpty(); }));
    EXPECT_EQ(recorder->closed(), (QList<uint>{group, single}));
}

TEST_F(MailNotifierTest, WhatLeavesBeforeTheServiceAnsweredIsNotForgotten) {
    // Both reads come before the service's answers do.
    tracker.update(notifiedMessages({"n1", "n2", "n3", "n4", "p1", "m0", "m1"}));
    tracker.update(notifiedMessages({"n1", "n2", "n3", "m0", "m1"}));
    EXPECT_TRUE(recorder->notifications().isEmpty());
    ASSERT_TRUE(
        drain([&] { return recorder->notifications().size() == 2 && notifier->shownIds().size() == 1; }));
    EXPECT_EQ(recorder->notifications().at(0).summary, QStringLiteral("5 new messages"));
    EXPECT_EQ(recorder->notifications().at(1).summary, QStringLiteral("3 new messages"));
    EXPECT_EQ(recorder->notifications().at(1).replacesId, recorder->idOf(0));

    tracker.update(notifiedMessages({"q1", "m0", "m1"}));
    tracker.update(notifiedMessages({"m0", "m1"}));
    ASSERT_TRUE(drain([&] { return recorder->closed().size() == 2 && notifier->keptCount() == 0; }));
    EXPECT_EQ(recorder->closed(), (QList<uint>{recorder->idOf(0), recorder->idOf(2)}));
}

TEST_F(MailNotifierTest, ADismissedNotificationIsForgotten) {
    tracker.update(notifiedMessages({"n1", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(1, 1));
    recorder->dismiss(recorder->idOf(0));
    ASSERT_TRUE(drain([&] { return notifier->shownIds().isEmpty(); }));
    tracker.update(notifiedMessages({"m0", "m1"}));
    recorder->invokeAction(recorder->idOf(0), ConstVars::commandArchive);
    // A later notification shows that both were handled: nothing was closed or launched.
    tracker.update(notifiedMessages({"n2", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(2, 1));
    EXPECT_TRUE(recorder->closed().isEmpty());
    EXPECT_TRUE(host.launches().isEmpty());
}

TEST_F(MailNotifierTest, TheSettingTurnsThemOff) {
    EXPECT_TRUE(MailNotifier::isEnabled());
    MailNotifier::setEnabled(false);
    EXPECT_FALSE(MailNotifier::isEnabled());
    EXPECT_EQ(UserDefaults::valueForKey(MailNotifier::enabledKey).toBool(), false);
    tracker.update(notifiedMessages({"n1", "m0", "m1"}));
    MailNotifier::setEnabled(true);
    tracker.update(notifiedMessages({"n2", "n1", "m0", "m1"}));
    ASSERT_TRUE(waitForNotifications(1, 1));
    EXPECT_EQ(recorder->notifications().at(0).summary, QStringLiteral("Sender n2"));
}

TEST_F(MailNotifierTest, NoServiceDropsThemQuietly) {
    recorder.reset();
    LogCapture log;
    tracker.update(notifiedMessages({"n1", "n2", "m0", "m1"}));
    EXPECT_EQ(notifier->keptCount(), 2);
    // The service's refusal comes back; nothing is kept, and one line says why.
    ASSERT_TRUE(drain([&] { return notifier->keptCount() == 0; }));
    EXPECT_EQ(log.lines().filter(QStringLiteral("desktop notifications are not shown")).size(), 1)
        << log.lines().join(u'\n').toStdString();
}
