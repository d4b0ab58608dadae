#include "platform/Dispatch.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QObject>
#include <QPointer>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace corvina;

namespace {

// Runs the main queue until every block queued so far has run (or a generous bound passed).
void settle() {
    const QDeadlineTimer deadline(5000);
    while (Dispatch::pendingMainBlocks() > 0 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

} // namespace

TEST(Dispatch, BlocksForALiveReceiverRunOnTheMainThreadInOrder) {
    QObject receiver;
    std::vector<int> ran;
    QThread* thread = nullptr;
    Dispatch::dispatchAsyncMain(&receiver, [&] {
        ran.push_back(1);
        thread = QThread::currentThread();
    });
    Dispatch::dispatchAsyncMain([&] { ran.push_back(2); });
    Dispatch::dispatchAsyncMain(&receiver, [&] { ran.push_back(3); });
    // Queued, not run at once, even on the main thread.
    EXPECT_TRUE(ran.empty());
    settle();
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(thread, QCoreApplication::instance()->thread());
}

TEST(Dispatch, BlocksForAReceiverGoneBeforeTheirTurnAreSkippedAndStillCounted) {
    auto receiver = std::make_unique<QObject>();
    int ran = 0;
    Dispatch::dispatchAsyncMain(receiver.get(), [&] { ++ran; });
    Dispatch::dispatchAsyncMain(receiver.get(), [&] { ++ran; });
    EXPECT_GE(Dispatch::pendingMainBlocks(), 2);
    receiver.reset();
    settle();
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(Dispatch::pendingMainBlocks(), 0);
}

TEST(Dispatch, AGuardTakenOnTheMainThreadMayBePassedOnFromABackgroundThread) {
    auto receiver = std::make_unique<QObject>();
    int ran = 0;
    std::atomic<bool> queued = false;
    Dispatch::dispatchAsyncBackground([&, guard = QPointer<const QObject>(receiver.get())] {
        Dispatch::dispatchAsyncMain(guard, [&] { ++ran; });
        queued = true;
    });
    const QDeadlineTimer deadline(5000);
    while (!queued && !deadline.hasExpired())
        QThread::msleep(1);
    ASSERT_TRUE(queued);
    settle();
    EXPECT_EQ(ran, 1);

    queued = false;
    Dispatch::dispatchAsyncBackground([&, guard = QPointer<const QObject>(receiver.get())] {
        Dispatch::dispatchAsyncMain(guard, [&] { ++ran; });
        queued = true;
    });
    while (!queued && !deadline.hasExpired())
        QThread::msleep(1);
    ASSERT_TRUE(queued);
    receiver.reset();
    settle();
    EXPECT_EQ(ran, 1);
}
