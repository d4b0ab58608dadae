#pragma once

#include <QDeadlineTimer>

namespace corvina {

// A pipe that wakes a thread blocked in poll(): any thread (or a signal handler) writes a byte,
// the waiting thread sees its read end become readable. Used so that a command or a shutdown
// interrupts an account's worker at once, whether it waits for the server in IDLE or sleeps before
// a retry.
class WakePipe {
public:
    WakePipe();
    ~WakePipe();
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    bool isValid() const { return m_read >= 0; }
    // The end to wait on (readable once woken, until drained).
    int fd() const { return m_read; }
    // Wakes the waiter; safe from any thread and from a signal handler.
    void wake() const;
    // Forgets the wake-ups so far.
    void drain() const;
    // Blocks until woken or the deadline passes; true when woken. Does not drain.
    bool wait(QDeadlineTimer deadline) const;

private:
    int m_read = -1;
    int m_write = -1;
};

} // namespace corvina
