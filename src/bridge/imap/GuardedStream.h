#pragma once

#include <QDeadlineTimer>
#include <QtGlobal>
#include <libetpan/mailstream_types.h>

namespace corvina {

// The connection to an IMAP server as libetpan reads and writes it, held to a deadline and a
// budget. It is a libetpan stream driver of our own that sits on the real one (a plain socket or
// TLS), forwards every call to it, and before each read or write narrows the real one's wait to the
// time left: libetpan bounds each wait by its timeout, so a server sending one byte a second would
// otherwise keep a command going for as long as it likes. It also counts what one command receives,
// bytes and untagged answers, and breaks the connection when a command gets more than it may: what
// libetpan receives it keeps in memory until the command is over.
//
// Once stopped (past the deadline, over the budget, or the server gone) every later read and write
// fails at once; the session then closes the connection. stop() says why.
class GuardedStream {
public:
    enum class Stop {
        None,
        TimedOut,      // the deadline passed before the answer was complete
        Closed,        // the server closed the connection
        Reset,         // the server reset the connection
        Broken,        // another error of the connection; error() tells it
        TooManyBytes,  // the answer grew past its byte budget
        TooManyAnswers // the answer held more untagged answers than its budget
    };

    struct Budget {
        qint64 bytes = 0;
        qint64 answers = 0;
    };

    // Wraps `inner` (taken over: freed with the wrapper); the result is what libetpan is given.
    static mailstream_low* wrap(mailstream_low* inner);
    // The guard of a stream made by wrap(), or null for any other stream.
    static GuardedStream* of(mailstream_low* low);

    // Starts a command: its whole answer must come before `deadline` and within `budget`.
    void arm(QDeadlineTimer deadline, Budget budget);
    // The connection under the guard, for TLS over it (STARTTLS).
    mailstream_low* inner() const { return m_inner; }
    // Puts `inner` under the guard instead of the current one, which is freed without being
    // closed: STARTTLS keeps the socket and speaks TLS over it from then on.
    void replaceInner(mailstream_low* inner);

    Stop stop() const { return m_stop; }
    int error() const { return m_error; }
    const Budget& budget() const { return m_budget; }

private:
    GuardedStream() = default;
    ~GuardedStream();

    // Whether a read or write may still go on; sets the inner stream's wait to the time left.
    bool mayContinue();
    // Tells why a read or write of the inner stream returned `result` (0 or less).
    void stopAfterFailure(qint64 result, int error);
    // Counts what one read brought, and stops over the budget.
    void count(const char* data, qint64 size);
    // Follows literals a character at a time: the announced size when `c` ends an announcement
    // (the line break after "{size}"), else -1.
    qint64 literalAnnounced(char c);

    // libetpan's driver functions, which forward to the inner stream.
    friend struct GuardedStreamDriver;

    mailstream_low* m_inner = nullptr;
    QDeadlineTimer m_deadline{QDeadlineTimer::Forever};
    Budget m_budget;
    qint64 m_bytes = 0;
    qint64 m_answers = 0;
    // Where the count of untagged answers stands: at the start of a line, after a "*" there.
    bool m_atLineStart = true;
    bool m_afterStar = false;
    // Where the reading of literals stands: "{size}" and the line break after it announce `size`
    // bytes of content, which are passed over without looking for announcements inside them.
    enum class Literal { Outside, Size, Closed, AtCr };
    Literal m_literal = Literal::Outside;
    qint64 m_literalSize = 0;
    qint64 m_literalLeft = 0;
    Stop m_stop = Stop::None;
    int m_error = 0;
};

} // namespace corvina
