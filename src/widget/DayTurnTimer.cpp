#include "DayTurnTimer.h"

#include <QSocketNotifier>
#include <cerrno>
#include <cstdint>
#include <sys/timerfd.h>
#include <unistd.h>

namespace corvina {

DayTurnTimer::DayTurnTimer(QObject* parent) : QObject(parent) {}

DayTurnTimer::~DayTurnTimer() {
    if (m_timer >= 0) {
        delete m_notifier;
        ::close(m_timer);
    }
}

QDateTime DayTurnTimer::nextDayStart(const QDateTime& now) {
    // startOfDay, not midnight: where the clocks go forward at midnight, 00:00 of that day does not
    // exist and the day begins at the first time that does.
    return now.toLocalTime().date().addDays(1).startOfDay();
}

bool DayTurnTimer::start() {
    return armAt(nextDayStart(QDateTime::currentDateTime()));
}

bool DayTurnTimer::armAt(const QDateTime& when) {
    if (m_timer < 0) {
        m_timer = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
        if (m_timer < 0) {
            return false;
        }
        m_notifier = new QSocketNotifier(m_timer, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &DayTurnTimer::fired);
    }
    const qint64 msecs = when.toMSecsSinceEpoch();
    itimerspec spec{};
    spec.it_value.tv_sec = static_cast<time_t>(msecs / 1000);
    spec.it_value.tv_nsec = static_cast<long>(msecs % 1000) * 1000000L;
    // CANCEL_ON_SET: a clock set by hand or stepped wakes the timer too (its read fails with
    // ECANCELED), as the day may have turned, or turned back, with it.
    if (::timerfd_settime(m_timer, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &spec, nullptr) != 0) {
        return false;
    }
    m_armedFor = when;
    return true;
}

void DayTurnTimer::fired() {
    std::uint64_t expirations = 0;
    ssize_t length = 0;
    do {
        length = ::read(m_timer, &expirations, sizeof expirations);
    } while (length < 0 && errno == EINTR);
    if (length < 0 && errno == EAGAIN) {
        return; // nothing after all
    }
    // Expired, or ECANCELED (the clock was set): either way the next day's start is counted again
    // from the clock as it is now.
    start();
    emit turned();
}

} // namespace corvina
