#include "Wait.h"

#include <QDeadlineTimer>
#include <QThread>

namespace corvina::test {

bool waitFor(const std::function<bool()>& condition, int timeoutMs, int pollMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(static_cast<unsigned long>(pollMs));
    }
    return true;
}

} // namespace corvina::test
