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
