#include "GuardedStream.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <libetpan/libetpan.h>

namespace corvina {

struct GuardedStreamDriver {
    static GuardedStream* self(mailstream_low* s) { return static_cast<GuardedStream*>(s->data); }

    static ssize_t read(mailstream_low* s, void* buffer, size_t count) {
        GuardedStream* guard = self(s);
        if (!guard->mayContinue())
            return -1;
        errno = 0;
        const ssize_t n = guard->m_inner->driver->mailstream_read(guard->m_inner, buffer, count);
        if (n <= 0) {
            guard->stopAfterFailure(n, errno);
            return -1;
        }
        guard->count(static_cast<const char*>(buffer), n);
        return guard->m_stop == GuardedStream::Stop::None ? n : -1;
    }

    static ssize_t write(mailstream_low* s, const void* buffer, size_t count) {
        GuardedStream* guard = self(s);
        if (!guard->mayContinue())
            return -1;
        errno = 0;
        const ssize_t n = guard->m_inner->driver->mailstream_write(guard->m_inner, buffer, count);
        if (n < 0)
            guard->stopAfterFailure(n, errno);
        // 0 is "not writable yet": libetpan asks again, and the deadline ends that at the latest.
        return n;
    }

    static int close(mailstream_low* s) { return mailstream_low_close(self(s)->m_inner); }
    static int fd(mailstream_low* s) { return mailstream_low_get_fd(self(s)->m_inner); }
    static void cancel(mailstream_low* s) { mailstream_low_cancel(self(s)->m_inner); }
    static struct mailstream_cancel* getCancel(mailstream_low* s) {
        return mailstream_low_get_cancel(self(s)->m_inner);
    }
    static carray* certificateChain(mailstream_low* s) {
        return mailstream_low_get_certificate_chain(self(s)->m_inner);
    }
    static int setupIdle(mailstream_low* s) { return mailstream_low_setup_idle(self(s)->m_inner); }
    static int unsetupIdle(mailstream_low* s) { return mailstream_low_unsetup_idle(self(s)->m_inner); }
    static int interruptIdle(mailstream_low* s) { return mailstream_low_interrupt_idle(self(s)->m_inner); }

    static void free(mailstream_low* s) {
        delete self(s);
        s->data = nullptr;
        // The driver frees the stream itself, as libetpan's own drivers do.
        std::free(s);
    }

    static mailstream_low_driver driver;
};

mailstream_low_driver GuardedStreamDriver::driver = {
    GuardedStreamDriver::read,          GuardedStreamDriver::write,
    GuardedStreamDriver::close,         GuardedStreamDriver::fd,
    GuardedStreamDriver::free,          GuardedStreamDriver::cancel,
    GuardedStreamDriver::getCancel,     GuardedStreamDriver::certificateChain,
    GuardedStreamDriver::setupIdle,     GuardedStreamDriver::unsetupIdle,
    GuardedStreamDriver::interruptIdle,
};

mailstream_low* GuardedStream::wrap(mailstream_low* inner) {
    auto* guard = new GuardedStream;
    guard->m_inner = inner;
    mailstream_low* low = mailstream_low_new(guard, &GuardedStreamDriver::driver);
    if (low == nullptr) {
        guard->m_inner = nullptr; // still the caller's
        delete guard;
        return nullptr;
    }
    mailstream_low_set_timeout(low, mailstream_low_get_timeout(inner));
    return low;
}

GuardedStream* GuardedStream::of(mailstream_low* low) {
    if (low == nullptr || low->driver != &GuardedStreamDriver::driver)
        return nullptr;
    return static_cast<GuardedStream*>(low->data);
}

GuardedStream::~GuardedStream() {
    if (m_inner != nullptr)
        mailstream_low_free(m_inner);
}

void GuardedStream::replaceInner(mailstream_low* inner) {
    if (m_inner != nullptr)
        mailstream_low_free(m_inner);
    m_inner = inner;
}

void GuardedStream::arm(QDeadlineTimer deadline, Budget budget) {
    m_deadline = deadline;
    m_budget = budget;
    m_bytes = 0;
    m_answers = 0;
    m_atLineStart = true;
    m_afterStar = false;
    m_literal = Literal::Outside;
    m_literalSize = 0;
    m_literalLeft = 0;
}

bool GuardedStream::mayContinue() {
    if (m_stop != Stop::None)
        return false;
    if (m_deadline.isForever())
        return true;
    const qint64 left = m_deadline.remainingTime();
    if (left <= 0) {
        m_stop = Stop::TimedOut;
        return false;
    }
    // libetpan's waits count whole seconds (and 0 means its own default): rounded up, a wait ends
    // within a second after the deadline, and the next read or write stops at once.
    mailstream_low_set_timeout(m_inner, static_cast<time_t>((left + 999) / 1000));
    return true;
}

void GuardedStream::stopAfterFailure(qint64 result, int error) {
    if (m_stop != Stop::None)
        return;
    if (!m_deadline.isForever() && m_deadline.hasExpired()) {
        m_stop = Stop::TimedOut;
    } else if (error == ECONNRESET || error == EPIPE) {
        m_stop = Stop::Reset;
    } else if (result == 0 || error == 0) {
        // The end of the stream (TLS says it as -1 without an error).
        m_stop = Stop::Closed;
    } else {
        m_stop = Stop::Broken;
        m_error = error;
    }
}

qint64 GuardedStream::literalAnnounced(char c) {
    // Larger than any budget; a size is not read further, so that a thousand digits cannot overflow.
    constexpr qint64 Huge = qint64(1) << 50;
    switch (m_literal) {
    case Literal::Outside:
        break;
    case Literal::Size:
        if (c >= '0' && c <= '9') {
            m_literalSize = std::min(Huge, m_literalSize * 10 + (c - '0'));
            return -1;
        }
        if (c == '}') {
            m_literal = Literal::Closed;
            return -1;
        }
        break;
    case Literal::Closed:
        if (c == '\r') {
            m_literal = Literal::AtCr;
            return -1;
        }
        break;
    case Literal::AtCr:
        if (c == '\n') {
            m_literal = Literal::Outside;
            return m_literalSize;
        }
        break;
    }
    m_literal = c == '{' ? Literal::Size : Literal::Outside;
    m_literalSize = 0;
    return -1;
}

void GuardedStream::count(const char* data, qint64 size) {
    const qint64 before = m_bytes;
    m_bytes += size;
    // An untagged answer is a line that starts with "* ". A literal's content may hold such a line
    // too; it is counted as well, which only makes an honest answer look a little larger.
    for (qint64 i = 0; i < size; ++i) {
        const char c = data[i];
        if (m_afterStar && c == ' ')
            ++m_answers;
        m_afterStar = m_atLineStart && c == '*';
        m_atLineStart = c == '\n';
        if (m_literalLeft > 0) {
            --m_literalLeft;
            continue;
        }
        const qint64 literal = literalAnnounced(c);
        if (literal < 0)
            continue;
        m_literalLeft = literal;
        // A literal that cannot fit stops the answer here, before libetpan reads its announcement:
        // libetpan reserves the whole announced size at once, four gigabytes for {4294967295}.
        if (m_budget.bytes > 0 && before + i + 1 + literal > m_budget.bytes) {
            m_stop = Stop::TooManyBytes;
            return;
        }
    }
    if (m_budget.bytes > 0 && m_bytes > m_budget.bytes)
        m_stop = Stop::TooManyBytes;
    else if (m_budget.answers > 0 && m_answers > m_budget.answers)
        m_stop = Stop::TooManyAnswers;
}

} // namespace corvina
