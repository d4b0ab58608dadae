#include "ThreadPool.h"

#include <thread>

namespace corvina {

ThreadPool::ThreadPool(int maxThreads) : m_maxThreads(maxThreads < 1 ? 1 : maxThreads) {}

void ThreadPool::start(std::function<void()> work) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.push_back(std::move(work));
    if (m_idle == 0 && m_threads < m_maxThreads) {
        ++m_threads;
        std::thread([this] { workerLoop(); }).detach();
    } else {
        m_wake.notify_one();
    }
}

void ThreadPool::workerLoop() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            ++m_idle;
            m_wake.wait(lock, [this] { return !m_queue.empty(); });
            --m_idle;
            work = std::move(m_queue.front());
            m_queue.pop_front();
        }
        work();
    }
}

} // namespace corvina
