#include "SignInJob.h"

#include "BackgroundJob.h"
#include "bridge/config/BrowserSignIn.h"

namespace corvina {

SignInJob::SignInJob(BridgeConfig::Account account, int waitSeconds, int requestSeconds, QObject* parent)
    : QObject(parent), m_account(std::move(account)) {
    struct Outcome {
        bool ok = false;
        QString error;
    };
    auto outcome = std::make_shared<Outcome>();
    BrowserSignIn::Options options;
    options.waitMs = waitSeconds * 1000;
    options.requestTimeoutMs = requestSeconds * 1000;
    options.secretTimeoutMs = requestSeconds * 1000;
    const std::shared_ptr<std::atomic<bool>> cancelled = m_cancelled;
    options.cancelled = [cancelled] { return cancelled->load(); };
    const BridgeConfig::Account signingIn = m_account;
    // The sign-in's progress lines name the authorization address for a terminal; the window says
    // what is going on in its own words instead.
    m_job = new BackgroundJob(
        [outcome, signingIn, options] {
            outcome->ok = BrowserSignIn::run(signingIn, options, &outcome->error);
        },
        this);
    connect(m_job, &BackgroundJob::finished, this,
            [this, outcome] { emit finished(outcome->ok, outcome->error); });
}

SignInJob::~SignInJob() {
    // The BackgroundJob child waits for its thread: stop the wait for the browser first.
    m_cancelled->store(true);
}

void SignInJob::start() {
    m_job->start();
}

void SignInJob::cancel() {
    m_cancelled->store(true);
}

void SignInJob::abandon() {
    cancel();
    disconnect(this, &SignInJob::finished, nullptr, nullptr);
    connect(this, &SignInJob::finished, this, &QObject::deleteLater);
    if (!m_job->isRunning())
        deleteLater();
}

} // namespace corvina
