#include "widget/NewMailTracker.h"

#include "platform/UserDefaults.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"

#include <QSignalSpy>
#include <QWidget>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::TempContainer;

namespace {

const QString kAnn = QStringLiteral("ann@example.org");
const QString kBob = QStringLiteral("bob/work@example.org"); // a "/" in an account's name

ExtensionMessagePtr message(const QString& id, const QString& account = kAnn, qint64 folder = 1) {
    QVariantMap m = TempContainer::message(id, account, 1795000000, folder);
    m.insert(QStringLiteral("from"), QStringLiteral("Sender ") + id);
    m.insert(QStringLiteral("subject"), QStringLiteral("Subject ") + id);
    return ExtensionMessage::initWithDictonary(m);
}

ExtensionMessageList trackedMessages(const QStringList& trackedIds, const QString& account = kAnn,
                                     qint64 folder = 1) {
    ExtensionMessageList out;
    for (const QString& id : trackedIds)
        out << message(id, account, folder);
    return out;
}

QStringList trackedIds(const ExtensionMessageList& list) {
    QStringList out;
    for (const auto& m : list)
        out << m->messageId();
    return out;
}

class NewMailTrackerTest : public ::testing::Test {
protected:
    test::ScopedSettings settings;
};

} // namespace

TEST_F(NewMailTrackerTest, WhatAnAccountHoldsWhenFirstSeenIsNotNew) {
    NewMailTracker tracker;
    QSignalSpy arrived(&tracker, &NewMailTracker::arrived);
    tracker.update(trackedMessages({"m0", "m1", "m2"}));
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_FALSE(tracker.isNew(message("m0")));
    EXPECT_FALSE(tracker.isMarked(message("m0")));
    EXPECT_EQ(arrived.size(), 0);
    // Kept in the settings, one list per account.
    EXPECT_EQ(UserDefaults::valueForKey(QStringLiteral("seen/ann%40example.org")).toStringList(),
              (QStringList{"m0", "m1", "m2"}));
}

TEST_F(NewMailTrackerTest, TwoArrivalsCountTwoAndAreAnnouncedNewestFirst) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0", "m1"}));
    QSignalSpy arrived(&tracker, &NewMailTracker::arrived);
    QSignalSpy changed(&tracker, &NewMailTracker::changed);
    tracker.update(trackedMessages({"n1", "n2", "m0", "m1"}));
    EXPECT_EQ(tracker.newInboxCount(), 2);
    EXPECT_EQ(trackedIds(tracker.newInboxMessages()), (QStringList{"n1", "n2"}));
    EXPECT_TRUE(tracker.isNew(message("n1")));
    EXPECT_TRUE(tracker.isMarked(message("n2")));
    EXPECT_FALSE(tracker.isMarked(message("m0")));
    ASSERT_EQ(arrived.size(), 1);
    EXPECT_EQ(trackedIds(arrived.at(0).at(0).value<ExtensionMessageList>()), (QStringList{"n1", "n2"}));
    EXPECT_EQ(changed.size(), 1);
    // The same read again changes nothing and announces nothing.
    tracker.update(trackedMessages({"n1", "n2", "m0", "m1"}));
    EXPECT_EQ(arrived.size(), 1);
    EXPECT_EQ(changed.size(), 1);
}

TEST_F(NewMailTrackerTest, OnlyTheInboxCountsAndIsAnnouncedButEveryListIsMarked) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0"}));
    QSignalSpy arrived(&tracker, &NewMailTracker::arrived);
    ExtensionMessageList read = trackedMessages({"todo"}, kAnn, 11) + trackedMessages({"m0"});
    tracker.update(read);
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_TRUE(tracker.isMarked(message("todo", kAnn, 11)));
    EXPECT_EQ(arrived.size(), 0);
    // A message moved from the Inbox to another list is the same message: not new.
    tracker.update(trackedMessages({"m0"}, kAnn, 12) + trackedMessages({"todo"}, kAnn, 11));
    EXPECT_FALSE(tracker.isNew(message("m0", kAnn, 12)));
}

TEST_F(NewMailTrackerTest, TheSameMessagesReadAgainStillTellAMoveOutOfTheInbox) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0"}));
    tracker.update(trackedMessages({"n1", "m0"}));
    ASSERT_EQ(tracker.newInboxCount(), 1);
    QSignalSpy changed(&tracker, &NewMailTracker::changed);
    QSignalSpy arrived(&tracker, &NewMailTracker::arrived);
    QSignalSpy left(&tracker, &NewMailTracker::left);
    // The same accounts and ids in the same order, but n1 now in another list: not in the count
    // any more, still marked, nothing arrived or left.
    tracker.update(trackedMessages({"n1"}, kAnn, 11) + trackedMessages({"m0"}));
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_TRUE(tracker.isMarked(message("n1", kAnn, 11)));
    EXPECT_EQ(changed.size(), 1);
    EXPECT_EQ(arrived.size(), 0);
    EXPECT_EQ(left.size(), 0);
    // And back into the Inbox: counted again, not announced again.
    tracker.update(trackedMessages({"n1", "m0"}));
    EXPECT_EQ(tracker.newInboxCount(), 1);
    EXPECT_EQ(changed.size(), 2);
    EXPECT_EQ(arrived.size(), 0);
    // Read again unchanged while the window is looked at: the look has taken it, the marker stays.
    tracker.beginLook();
    tracker.update(trackedMessages({"n1", "m0"}));
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_TRUE(tracker.isMarked(message("n1")));
    tracker.endLook();
    tracker.update(trackedMessages({"n1", "m0"}));
    EXPECT_FALSE(tracker.isMarked(message("n1")));
    EXPECT_EQ(tracker.newInboxCount(), 0);
}

TEST_F(NewMailTrackerTest, ALookClearsTheCountAndKeepsTheMarkersForItsLength) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0"}));
    tracker.update(trackedMessages({"n1", "n2", "m0"}));
    ASSERT_EQ(tracker.newInboxCount(), 2);
    QSignalSpy markers(&tracker, &NewMailTracker::markersChanged);
    tracker.beginLook();
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_FALSE(tracker.isNew(message("n1")));
    EXPECT_TRUE(tracker.isMarked(message("n1")));
    EXPECT_FALSE(tracker.isMarked(message("m0")));
    // What comes during the look is seen as it comes, and marked until the look ends.
    tracker.update(trackedMessages({"n3", "n1", "n2", "m0"}));
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_TRUE(tracker.isMarked(message("n3")));
    tracker.endLook();
    EXPECT_FALSE(tracker.isMarked(message("n1")));
    EXPECT_FALSE(tracker.isMarked(message("n3")));
    EXPECT_EQ(markers.size(), 2);
    // The next look has nothing to mark.
    tracker.beginLook();
    EXPECT_FALSE(tracker.isMarked(message("n1")));
}

TEST_F(NewMailTrackerTest, KeptAcrossRestartsByIdPerAccountAndNothingAnnouncedAtStart) {
    {
        NewMailTracker tracker;
        tracker.update(trackedMessages({"m0"}) + trackedMessages({"x"}, kBob));
        tracker.update(trackedMessages({"n1", "m0"}) + trackedMessages({"y", "x"}, kBob));
        ASSERT_EQ(tracker.newInboxCount(), 2);
    }
    NewMailTracker restarted;
    QSignalSpy arrived(&restarted, &NewMailTracker::arrived);
    // The same id in the other account is another message.
    restarted.update(trackedMessages({"n1", "m0", "y"}) + trackedMessages({"y", "x"}, kBob));
    EXPECT_TRUE(restarted.isNew(message("n1")));
    EXPECT_FALSE(restarted.isNew(message("m0")));
    EXPECT_TRUE(restarted.isNew(message("y", kBob)));
    EXPECT_TRUE(restarted.isNew(message("y")));
    EXPECT_FALSE(restarted.isNew(message("x", kBob)));
    EXPECT_EQ(restarted.newInboxCount(), 3);
    // Mail that came while the program was not running is new, but was there at its start.
    EXPECT_EQ(arrived.size(), 0);
}

TEST_F(NewMailTrackerTest, AReadThatFoundNothingForAMomentMakesNothingNew) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0", "m1"}));
    QSignalSpy arrived(&tracker, &NewMailTracker::arrived);
    QSignalSpy left(&tracker, &NewMailTracker::left);
    tracker.update({});
    EXPECT_EQ(left.size(), 1);
    tracker.update(trackedMessages({"m0", "m1"}));
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_EQ(arrived.size(), 0);
}

TEST_F(NewMailTrackerTest, WhatLeavesIsToldAndForgotten) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0", "m1", "m2"}));
    QSignalSpy left(&tracker, &NewMailTracker::left);
    tracker.update(trackedMessages({"m0", "m2"}));
    ASSERT_EQ(left.size(), 1);
    const auto gone = left.at(0).at(0).value<QList<QPair<QString, QString>>>();
    EXPECT_EQ(gone, (QList<QPair<QString, QString>>{{kAnn, QStringLiteral("m1")}}));
    EXPECT_FALSE(tracker.holds(kAnn, QStringLiteral("m1")));
    EXPECT_TRUE(tracker.holds(kAnn, QStringLiteral("m2")));
    EXPECT_EQ(UserDefaults::valueForKey(QStringLiteral("seen/ann%40example.org")).toStringList(),
              (QStringList{"m0", "m2"}));
    // Back again, it is new: the list forgot it.
    tracker.update(trackedMessages({"m1", "m0", "m2"}));
    EXPECT_TRUE(tracker.isNew(message("m1")));
}

TEST_F(NewMailTrackerTest, AnAccountSeenEmptyStaysKnownAfterARestart) {
    {
        NewMailTracker tracker;
        tracker.update(trackedMessages({"m0"}));
        tracker.update(trackedMessages({"m1"})); // m0 went and m1 is new: nothing held is seen
    }
    ASSERT_TRUE(UserDefaults::valueForKey(QStringLiteral("seen/ann%40example.org")).toStringList().isEmpty());
    NewMailTracker restarted;
    restarted.update(trackedMessages({"n9"}));
    // Not taken for a first sight: n9 came after the last look.
    EXPECT_TRUE(restarted.isNew(message("n9")));
}

TEST_F(NewMailTrackerTest, TheWindowShownOrActivatedIsALook) {
    NewMailTracker tracker;
    QWidget window;
    tracker.watchWindow(&window);
    EXPECT_FALSE(tracker.isLooking());
    tracker.update(trackedMessages({"m0"}));
    tracker.update(trackedMessages({"n1", "m0"}));
    ASSERT_EQ(tracker.newInboxCount(), 1);
    window.show();
    EXPECT_TRUE(tracker.isLooking());
    EXPECT_EQ(tracker.newInboxCount(), 0);
    EXPECT_TRUE(tracker.isMarked(message("n1")));
    window.hide();
    EXPECT_FALSE(tracker.isLooking());
    EXPECT_FALSE(tracker.isMarked(message("n1")));
}

// The seen lists are written to disk (the settings file, synced) after the arrival is told, not
// before: the notification of a new message does not wait for the disk. Here during a look, when
// the message that came is seen as it comes and its account's list must be written.
TEST_F(NewMailTrackerTest, AnArrivalIsToldBeforeTheSeenListIsWritten) {
    NewMailTracker tracker;
    tracker.update(trackedMessages({"m0"}));
    tracker.update(trackedMessages({"n1", "m0"}));
    tracker.beginLook();
    const QString key = QStringLiteral("seen/ann%40example.org");
    ASSERT_EQ(UserDefaults::valueForKey(key).toStringList(), (QStringList{"m0", "n1"}));
    QStringList storedWhenTold;
    QObject::connect(&tracker, &NewMailTracker::arrived,
                     [&] { storedWhenTold = UserDefaults::valueForKey(key).toStringList(); });
    tracker.update(trackedMessages({"n2", "n1", "m0"}));
    // told while the stored list was still the one before
    EXPECT_EQ(storedWhenTold, (QStringList{"m0", "n1"}));
    // and written once the update is over
    EXPECT_EQ(UserDefaults::valueForKey(key).toStringList(), (QStringList{"m0", "n1", "n2"}));
}
