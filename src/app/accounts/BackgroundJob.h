#pragma once

#include <QObject>
#include <QThread>
#include <functional>
#include <memory>

namespace corvina {

// A piece of work that may wait on a server or the keyring (a connection test, a save), run on a
// thread of its own so that the window stays responsive. `finished` comes on the thread that made
// the job, once the work is done. A job whose caller no longer cares (Cancel, a page left) is left
// to end on its own: it deletes itself when done (abandon()), so that no thread is ever destroyed
// while it runs and no answer reaches a page that is gone.
class BackgroundJob : public QObject {
    Q_OBJECT
public:
    explicit BackgroundJob(std::function<void()> work, QObject* parent = nullptr);
    // Waits for the work: bounded by the work's own deadline (the check's --timeout, the keyring's).
    ~BackgroundJob() override;

    void start();
    bool isRunning() const;
    // Nobody waits for this job any more: its `finished` goes nowhere and it deletes itself when
    // the work ends (at once when it already has).
    void abandon();

signals:
    void finished();

private:
    std::unique_ptr<QThread> m_thread;
};

} // namespace corvina
