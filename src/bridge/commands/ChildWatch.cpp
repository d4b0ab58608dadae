#include "ChildWatch.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace corvina {

ChildWatch::ChildWatch(QObject* parent) : QObject(parent) {}

ChildWatch::~ChildWatch() {
    for (auto& [id, child] : m_children) {
        // The notifier goes before the descriptor it watches.
        child.notifier.reset();
        if (child.pidfd >= 0)
            ::close(child.pidfd);
    }
}

void ChildWatch::watch(pid_t pid, int settleMs, Report report) {
    const quint64 id = ++m_lastId;
    Child& child = m_children[id];
    child.pid = pid;
    child.report = std::move(report);

    child.settle = std::make_unique<QTimer>(this);
    child.settle->setSingleShot(true);
    connect(child.settle.get(), &QTimer::timeout, this, [this, id] { settled(id); });
    child.settle->start(settleMs);

    if (m_useProcessDescriptors)
        child.pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (child.pidfd >= 0) {
        ::fcntl(child.pidfd, F_SETFD, FD_CLOEXEC);
        // Readable once the child has ended.
        child.notifier = std::make_unique<QSocketNotifier>(child.pidfd, QSocketNotifier::Read, this);
        connect(child.notifier.get(), &QSocketNotifier::activated, this, [this, id] { check(id); });
    } else {
        child.poll = std::make_unique<QTimer>(this);
        connect(child.poll.get(), &QTimer::timeout, this, [this, id] { check(id); });
        child.poll->start(PollMs);
    }
}

void ChildWatch::handOver(QObject* keeper) {
    for (auto& [id, child] : m_children) {
        child.report = nullptr;
        child.settle->stop();
    }
    if (m_children.empty() || !keeper || keeper->thread() != thread())
        return;
    setParent(keeper);
    m_handedOver = true;
}

void ChildWatch::check(quint64 id) {
    const auto it = m_children.find(id);
    if (it == m_children.end())
        return;
    Child& child = it->second;
    int status = 0;
    const pid_t got = ::waitpid(child.pid, &status, WNOHANG);
    // Still running, or interrupted: the next activation or poll looks again.
    if (got == 0 || (got < 0 && errno == EINTR))
        return;
    // Any other failure means that the pid is no child of ours any more: someone else reaped it.
    const State state = got < 0 ? State::StatusLost : State::Ended;
    const Report report = std::exchange(child.report, nullptr);
    retire(child);
    m_children.erase(it);
    if (m_handedOver) {
        if (m_children.empty())
            deleteLater();
        return;
    }
    // Last: the report may end the owner, and this object with it.
    if (report)
        report(state, got < 0 ? 0 : status);
}

void ChildWatch::settled(quint64 id) {
    const auto it = m_children.find(id);
    if (it == m_children.end() || !it->second.report)
        return;
    const Report report = std::exchange(it->second.report, nullptr);
    report(State::Running, 0);
}

void ChildWatch::retire(Child& child) {
    child.settle->stop();
    child.settle.release()->deleteLater();
    if (child.notifier) {
        child.notifier->setEnabled(false);
        child.notifier.release()->deleteLater();
    }
    if (child.poll) {
        child.poll->stop();
        child.poll.release()->deleteLater();
    }
    if (child.pidfd >= 0) {
        ::close(child.pidfd);
        child.pidfd = -1;
    }
}

} // namespace corvina
