#include "AccountWorker.h"

#include <QDeadlineTimer>
#include <csignal>
#include <pthread.h>

namespace corvina {

namespace {

// The goodbye when stopping: a server that does not answer at once is not waited for.
constexpr int GoodbyeTimeoutSeconds = 1;

} // namespace

AccountWorker::AccountWorker(BridgeConfig::Account account, Timing timing, PasswordSource passwords,
                             QObject* parent)
    : QObject(parent), m_account(std::move(account)), m_timing(timing), m_passwords(std::move(passwords)) {}

void AccountWorker::blockProcessSignals() {
    sigset_t mask;
    sigemptyset(&mask);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2})
        sigaddset(&mask, signal);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
}

void AccountWorker::stop() {
    m_stop.store(true);
    m_wake.wake();
}

void AccountWorker::syncNow() {
    m_fresh.store(true);
    m_wake.wake();
}

void AccountWorker::run() {
    AccountSync sync(m_account, m_timing.timeoutSeconds);
    int retry = m_timing.firstRetrySeconds;
    while (!m_stop.load()) {
        // Wake-ups are forgotten before the flags are read: a request made after this point
        // leaves a byte in the pipe, so the next wait ends at once and it is seen.
        m_wake.drain();
        if (m_fresh.exchange(false)) {
            sync.session().abandon();
            retry = m_timing.firstRetrySeconds;
        }

        QString error;
        const bool connecting = !sync.session().isConnected();
        AccountSync::Result result = sync.run(m_passwords);

        if (result.ok) {
            retry = m_timing.firstRetrySeconds;
            emit synced(m_account.name, result.snapshots, QDateTime::currentDateTimeUtc(),
                        result.readStarted);
            if (connecting) {
                emit note(m_account.name,
                          sync.session().supportsIdle()
                              ? QStringLiteral("connected; following %1 with IDLE, other lists every %2 s")
                                    .arg(m_account.inbox)
                                    .arg(m_account.pollSeconds)
                              : QStringLiteral("connected; the server offers no IDLE, reading every %1 s")
                                    .arg(m_account.pollSeconds));
            }
            const FollowEnd end = follow(sync, result, &error);
            if (end != FollowEnd::Lost)
                continue;
            result.error = error;
        }

        if (m_stop.load())
            break;
        // A sign-in the provider refused stays refused until the person signs in again: asking
        // the provider every few seconds meanwhile would only hammer it. Deliberately the normal
        // poll's pace instead (a sign-in, a restart or a resume from sleep ends the wait sooner).
        const bool signInNeeded = result.error.startsWith(QLatin1String(AccountCredential::SignInNeeded));
        const int wait = signInNeeded ? qMax(retry, m_account.pollSeconds) : retry;
        emit failed(m_account.name, result.error, QDateTime::currentDateTimeUtc(), wait);
        m_wake.wait(QDeadlineTimer(qint64(wait) * 1000));
        retry = qMin(retry * 2, m_timing.maxRetrySeconds);
    }
    if (sync.session().isConnected()) {
        sync.session().setTimeout(GoodbyeTimeoutSeconds);
        sync.session().logout();
    }
}

AccountWorker::FollowEnd AccountWorker::follow(AccountSync& sync, const AccountSync::Result& last,
                                               QString* error) {
    ImapSession& session = sync.session();
    const QDeadlineTimer nextPoll(qint64(m_account.pollSeconds) * 1000);
    const bool idle = session.supportsIdle();
    if (!session.isConnected()) {
        *error = session.errorText();
        return FollowEnd::Lost;
    }
    if (!idle) {
        // Nothing to watch: wait for the next poll, a request, or the end.
        m_wake.wait(nextPoll);
        return interrupted() ? FollowEnd::Interrupted : FollowEnd::SyncDue;
    }

    // A run ends in whichever list it read last; IDLE watches the inbox. A message that came in
    // after the inbox was read shows in the inbox's numbers now, and calls for another run.
    const std::optional<ImapSession::Folder> inbox = session.examine(m_account.inbox);
    if (!inbox) {
        *error = session.errorText();
        return FollowEnd::Lost;
    }
    if (inbox->uidValidity != last.inbox.uidValidity || inbox->uidNext != last.inbox.uidNext ||
        inbox->exists != last.inbox.exists)
        return FollowEnd::SyncDue;

    for (;;) {
        m_wake.drain();
        if (interrupted())
            return FollowEnd::Interrupted;
        if (nextPoll.hasExpired())
            return FollowEnd::SyncDue;
        const qint64 untilPoll = (nextPoll.remainingTime() + 999) / 1000;
        const int seconds = static_cast<int>(qMin<qint64>(m_timing.idleSeconds, untilPoll));
        switch (session.idle(m_wake.fd(), seconds)) {
        case ImapSession::IdleOutcome::Changed:
            return FollowEnd::SyncDue;
        case ImapSession::IdleOutcome::Quiet:
        case ImapSession::IdleOutcome::Woken:
            // Renewed, a keep-alive, or a request that the top of the loop looks at.
            continue;
        case ImapSession::IdleOutcome::Failed:
            *error = session.errorText();
            return FollowEnd::Lost;
        }
    }
}

} // namespace corvina
