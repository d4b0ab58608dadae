#include "Dispatch.h"

#include "Handoff.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QMetaObject>

namespace corvina {

namespace {

QAtomicInt g_pendingMain = 0;

} // namespace

void Dispatch::dispatchAsyncMain(std::function<void()> block) {
    g_pendingMain.ref();
    Handoff::release();
    // Queued on the application object, which lives on the main thread: the block runs there.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [block = std::move(block)] {
            Handoff::acquire();
            block();
            g_pendingMain.deref();
        },
        Qt::QueuedConnection);
}

void Dispatch::dispatchAsyncMain(QPointer<const QObject> receiver, std::function<void()> block) {
    // The guard is only copied off the main thread and only read on it, where the receiver is also
    // destroyed: the receiver cannot go away between the check and the block.
    dispatchAsyncMain([receiver = std::move(receiver), block = std::move(block)] {
        if (receiver)
            block();
    });
}

void Dispatch::dispatchAsyncBackground(std::function<void()> block) {
    backgroundPool().start(Handoff::runnable(std::move(block)));
}

int Dispatch::pendingMainBlocks() {
    return g_pendingMain.loadAcquire();
}

QThreadPool& Dispatch::backgroundPool() {
    static QThreadPool* pool = [] {
        auto* p = new QThreadPool;
        p->setThreadPriority(QThread::LowestPriority);
        p->setMaxThreadCount(2);
        return p;
    }();
    return *pool;
}

} // namespace corvina
