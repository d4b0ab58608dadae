#pragma once

#include <QObject>

class QSocketNotifier;

namespace corvina {

// SIGTERM, SIGINT and SIGUSR1 as Qt signals on the main thread. The handler only writes the
// signal's number into a pipe (all a handler may safely do); the event loop reads it.
// One per process.
class UnixSignals : public QObject {
    Q_OBJECT
public:
    explicit UnixSignals(QObject* parent = nullptr);
    ~UnixSignals() override;

    bool isValid() const { return m_notifier != nullptr; }

signals:
    void terminate(int signal); // SIGTERM or SIGINT: stop cleanly
    void syncNow();             // SIGUSR1: read every account again now

private:
    void readPipe();

    QSocketNotifier* m_notifier = nullptr;
};

} // namespace corvina
