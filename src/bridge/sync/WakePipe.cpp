#include "WakePipe.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace corvina {

WakePipe::WakePipe() {
    int fds[2];
    // Non-blocking on both ends: a full pipe already means "woken", and draining never blocks.
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0) {
        m_read = fds[0];
        m_write = fds[1];
    }
}

WakePipe::~WakePipe() {
    if (m_read >= 0)
        ::close(m_read);
    if (m_write >= 0)
        ::close(m_write);
}

void WakePipe::wake() const {
    if (m_write < 0)
        return;
    const char byte = 1;
    // EAGAIN: the pipe is full of earlier wake-ups, which wake the waiter just as well.
    while (::write(m_write, &byte, 1) < 0 && errno == EINTR) {
    }
}

void WakePipe::drain() const {
    if (m_read < 0)
        return;
    char buffer[64];
    for (;;) {
        const ssize_t n = ::read(m_read, buffer, sizeof buffer);
        if (n > 0)
            continue;
        if (n < 0 && errno == EINTR)
            continue;
        break;
    }
}

bool WakePipe::wait(QDeadlineTimer deadline) const {
    if (m_read < 0)
        return false;
    for (;;) {
        pollfd p{m_read, POLLIN, 0};
        const qint64 left = deadline.remainingTime();
        const int timeout = left < 0 ? -1 : static_cast<int>(qMin<qint64>(left, 24 * 3600 * 1000));
        const int r = ::poll(&p, 1, timeout);
        if (r > 0)
            return true;
        if (r == 0)
            return false;
        if (errno != EINTR)
            return false;
    }
}

} // namespace corvina
