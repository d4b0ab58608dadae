#pragma once

#include <QDateTime>
#include <QObject>

class QSocketNotifier;

namespace corvina {

// Tells when the rows' date texts may have aged: a row shows a time for a message of today and a
// date for any other day, and the text is made once, when the row's record is built, so the list
// must be read again when the local day turns. turned() comes at the start of the next local day,
// and whenever the wall clock is set (by hand, or stepped by time synchronisation), after which
// "today" may be another day.
//
// The timer is the kernel's, on the wall clock and at an absolute time: a machine that slept
// through midnight gets turned() as soon as it wakes, not a timer's period late, and nothing wakes
// the process in between.
class DayTurnTimer : public QObject {
    Q_OBJECT

public:
    explicit DayTurnTimer(QObject* parent = nullptr);
    ~DayTurnTimer() override;

    // The first instant of the local day after the one `now` falls in (on a day that starts late
    // because the clocks went forward at midnight, the first instant that exists).
    static QDateTime nextDayStart(const QDateTime& now);

    // Arms the timer for the next day's start; false when the kernel gave no timer (then nothing
    // will come, and the caller must read at a pace of its own).
    bool start();
    // Arms the timer for `when` instead (the tests; the day's start is re-armed after it fired).
    bool armAt(const QDateTime& when);
    // When turned() comes next; invalid before start().
    QDateTime armedFor() const { return m_armedFor; }

signals:
    void turned();

private:
    void fired();

    int m_timer = -1;
    QSocketNotifier* m_notifier = nullptr;
    QDateTime m_armedFor;
};

} // namespace corvina
