#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <functional>
#include <map>
#include <memory>
#include <sys/types.h>

namespace corvina {

// The programs the bridge started and lets run on their own (the mail client), each watched until
// it ends and then reaped, so that none stays behind as a zombie. It is seen to end through a
// process descriptor (pidfd), or, on a kernel without them, by looking every PollMs.
//
// Each child is reported once, on this object's thread and never from within watch(): how it ended
// when that is within its settle time, else that it is still running then (a mail client that stays
// in the foreground); after that it is only reaped.
//
// The owner that goes before its children hands them over (handOver): nobody is told any more, but
// they are still reaped when they end.
class ChildWatch : public QObject {
    Q_OBJECT
public:
    enum class State {
        Running,    // still running at the settle time
        Ended,      // ended within it; the wait status says how
        StatusLost, // ended, but something else reaped it first: how is not known
    };
    // `waitStatus` as waitpid() gives it (WIFEXITED, WEXITSTATUS...), for Ended only.
    using Report = std::function<void(State state, int waitStatus)>;

    // How often a child is looked at without a process descriptor: a mail client that fails at
    // once is told within a fifth of a second, and a few waitpid calls a second cost nothing.
    static constexpr int PollMs = 200;

    explicit ChildWatch(QObject* parent = nullptr);
    // Closes the process descriptors; children still running are no longer reaped here.
    ~ChildWatch() override;

    // Watches `pid`, a child of this process that nobody else waits for, and reports it through
    // `report` (which may be empty) once it ended or `settleMs` passed.
    void watch(pid_t pid, int settleMs, Report report);

    // Children watched and not yet reaped.
    int count() const { return static_cast<int>(m_children.size()); }

    // For the owner going away: no report is made any more. Children still running are reaped as
    // they end: this object moves under `keeper` (which must live on the same thread) and deletes
    // itself after the last one. With none running, or no keeper on this thread, it stays where it
    // is and its owner's end is its own.
    void handOver(QObject* keeper);

    // False: looks every PollMs as on a kernel without process descriptors, even when it has them
    // (so that the tests cover that path too). Applies to children watched afterwards.
    void setUseProcessDescriptors(bool use) { m_useProcessDescriptors = use; }

private:
    struct Child {
        pid_t pid = -1;
        int pidfd = -1;
        Report report; // empty once made
        // Owned here while the child is watched; their QObject parent is this object all the same,
        // so that one retired but not deleted yet (the event loop may never come to it) goes with it.
        std::unique_ptr<QTimer> settle;
        std::unique_ptr<QSocketNotifier> notifier; // with a process descriptor
        std::unique_ptr<QTimer> poll;              // without
    };

    // Reaps the child `id` if it has ended, and reports it if not reported yet.
    void check(quint64 id);
    // The settle time of the child `id` is over: it is reported running, if not reported yet.
    void settled(quint64 id);
    // Stops watching `child`; its notifier and timers go later, as this may run inside their signals.
    static void retire(Child& child);

    // By a number of their own rather than the pid: a pid is used again once reaped, while a
    // signal of the retired child's notifier or timer may still be on its way.
    std::map<quint64, Child> m_children;
    quint64 m_lastId = 0;
    bool m_handedOver = false;
    bool m_useProcessDescriptors = true;
};

} // namespace corvina
