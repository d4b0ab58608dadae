#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace corvina {

// A small pool of worker threads that runs work in the order given, starting a new thread (up to a
// maximum) when none is idle. Threads are never stopped: a pool lives as long as the program, and
// work that blocks for good holds one thread and no more.
//
// Item providers load on one of these rather than on a QThreadPool: every hand-off here goes through
// standard locks, which ThreadSanitizer sees, so the concurrent handlers of a share request can be
// checked for races with nothing in between hidden from it.
class ThreadPool {
public:
    explicit ThreadPool(int maxThreads);
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    void start(std::function<void()> work);

private:
    void workerLoop();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_queue;
    int m_threads = 0;
    int m_idle = 0;
    const int m_maxThreads;
};

} // namespace corvina
