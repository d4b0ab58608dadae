#include "platform/NotificationCenter.h"

#include <QObject>
#include <QThread>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

namespace {

const QString kName = QStringLiteral("ACTION_CALLED_EXTENSION");

} // namespace

TEST(NotificationCenter, DeliversSynchronouslyOnThePostingThreadWithObjectAndEmptyUserInfo) {
    NotificationCenter center;
    int calls = 0;
    Notification seen;
    QThread* thread = nullptr;
    int token = 0;
    center.addObserver(&token, kName, [&](const Notification& n) {
        ++calls;
        seen = n;
        thread = QThread::currentThread();
    });
    center.postNotificationName(kName, QVariantMap{{QStringLiteral("command"), QStringLiteral("archive")}});
    // Delivered before post returned, on this thread.
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(thread, QThread::currentThread());
    EXPECT_EQ(seen.name, kName);
    EXPECT_EQ(seen.object.toMap().value(QStringLiteral("command")).toString(), QStringLiteral("archive"));
    EXPECT_TRUE(seen.userInfo.isEmpty());
}

TEST(NotificationCenter, OnlyObserversOfThatNameInTheOrderAdded) {
    NotificationCenter center;
    QStringList order;
    int a = 0, b = 0, c = 0;
    center.addObserver(&a, kName, [&](const Notification&) { order << QStringLiteral("a"); });
    center.addObserver(&b, QStringLiteral("other"),
                       [&](const Notification&) { order << QStringLiteral("b"); });
    center.addObserver(&c, kName, [&](const Notification&) { order << QStringLiteral("c"); });
    center.postNotificationName(kName);
    EXPECT_EQ(order, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
}

TEST(NotificationCenter, RemovingAnObserverRemovesItFromEveryName) {
    NotificationCenter center;
    int calls = 0;
    int token = 0, other = 0;
    center.addObserver(&token, kName, [&](const Notification&) { ++calls; });
    center.addObserver(&token, QStringLiteral("second"), [&](const Notification&) { ++calls; });
    center.addObserver(&other, kName, [&](const Notification&) { calls += 100; });
    EXPECT_EQ(center.observationCount(&token), 2);
    center.removeObserver(&token);
    EXPECT_EQ(center.observationCount(&token), 0);
    center.postNotificationName(kName);
    center.postNotificationName(QStringLiteral("second"));
    EXPECT_EQ(calls, 100);
}

TEST(NotificationCenter, RemovingFromOneNameKeepsTheOthers) {
    NotificationCenter center;
    int calls = 0;
    int token = 0;
    center.addObserver(&token, kName, [&](const Notification&) { calls += 1; });
    center.addObserver(&token, QStringLiteral("second"), [&](const Notification&) { calls += 10; });
    center.removeObserver(&token, kName);
    center.postNotificationName(kName);
    center.postNotificationName(QStringLiteral("second"));
    EXPECT_EQ(calls, 10);
}

TEST(NotificationCenter, AnObserverThatIsDestroyedIsNoLongerCalled) {
    NotificationCenter center;
    int calls = 0;
    auto observer = std::make_unique<QObject>();
    QObject* raw = observer.get();
    center.addObserver(raw, kName, [&](const Notification&) { ++calls; });
    center.postNotificationName(kName);
    observer.reset();
    EXPECT_EQ(center.observationCount(raw), 0);
    center.postNotificationName(kName);
    EXPECT_EQ(calls, 1);
}

TEST(NotificationCenter, AnObserverRemovedDuringDeliveryIsNotCalledAfterwards) {
    NotificationCenter center;
    QStringList order;
    int first = 0, second = 0;
    center.addObserver(&first, kName, [&](const Notification&) {
        order << QStringLiteral("first");
        center.removeObserver(&second);
    });
    center.addObserver(&second, kName, [&](const Notification&) { order << QStringLiteral("second"); });
    center.postNotificationName(kName);
    EXPECT_EQ(order, QStringList{QStringLiteral("first")});
}

TEST(NotificationCenter, AnObserverMayRemoveItselfAndPostAgain) {
    NotificationCenter center;
    int calls = 0;
    int token = 0;
    center.addObserver(&token, kName, [&](const Notification&) {
        ++calls;
        center.removeObserver(&token);
        center.postNotificationName(kName); // no longer observed: no recursion
    });
    center.postNotificationName(kName);
    EXPECT_EQ(calls, 1);
}

TEST(NotificationCenter, DefaultCenterIsOneInstance) {
    EXPECT_EQ(&NotificationCenter::defaultCenter(), &NotificationCenter::defaultCenter());
}
