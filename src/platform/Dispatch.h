#pragma once

#include <QObject>
#include <QPointer>
#include <QThreadPool>
#include <functional>

namespace corvina {

// The two queues the widget uses: the main thread's event loop, and a pool of background threads
// of the lowest priority.
class Dispatch {
public:
    // Queues `block` to run on the main thread in a later turn of its event loop, even when called
    // on the main thread. Blocks run in the order queued.
    static void dispatchAsyncMain(std::function<void()> block);
    // The same, for work on behalf of `receiver`: the block is skipped when the receiver is gone by
    // the time its turn comes. The receiver must live on the main thread; this may be called from
    // any thread (pass a QPointer taken on the main thread when calling from another one).
    static void dispatchAsyncMain(QPointer<const QObject> receiver, std::function<void()> block);
    // Runs `block` on a background thread of the lowest priority.
    static void dispatchAsyncBackground(std::function<void()> block);

    // Main-queue blocks queued and not yet run (for a caller that waits for the queue to settle).
    static int pendingMainBlocks();
    // The background pool, for waiting on it in tests and at exit.
    static QThreadPool& backgroundPool();
};

} // namespace corvina
