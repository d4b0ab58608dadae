#include "BackgroundJob.h"

namespace corvina {

BackgroundJob::BackgroundJob(std::function<void()> work, QObject* parent)
    : QObject(parent), m_thread(QThread::create(std::move(work))) {
    // Queued: QThread::finished is emitted on the worker's thread, this object lives on the caller's.
    connect(m_thread.get(), &QThread::finished, this, &BackgroundJob::finished, Qt::QueuedConnection);
}

BackgroundJob::~BackgroundJob() {
    m_thread->wait();
}

void BackgroundJob::start() {
    m_thread->start();
}

bool BackgroundJob::isRunning() const {
    return m_thread->isRunning();
}

void BackgroundJob::abandon() {
    disconnect(this, &BackgroundJob::finished, nullptr, nullptr);
    connect(this, &BackgroundJob::finished, this, &QObject::deleteLater);
    if (m_thread->isFinished())
        deleteLater();
}

} // namespace corvina
