#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <memory>

namespace corvina {

class BackgroundJob;

// An account's sign-in in the browser from the Accounts window: the bridge's own BrowserSignIn (what
// `corvina-mail-bridge account signin` runs) on a thread of its own, so that the window stays
// responsive for the minutes a person may take in the browser. cancel() stops the wait for the
// browser: `finished` follows within a fraction of a second, with nothing stored.
class SignInJob : public QObject {
    Q_OBJECT
public:
    // How long the browser is awaited: a person may have to type a password and a second factor
    // first (what `account signin` waits without --timeout).
    static constexpr int BrowserWaitSeconds = 300;

    // `waitSeconds`: how long the browser is awaited; `requestSeconds`: each request to the provider
    // and each keyring call.
    SignInJob(BridgeConfig::Account account, int waitSeconds, int requestSeconds, QObject* parent = nullptr);
    // Cancels, then waits for the thread (bounded: the wait ends at once, a request by its deadline).
    ~SignInJob() override;

    const BridgeConfig::Account& account() const { return m_account; }
    void start();
    // Stops waiting for the browser. `finished` still comes, saying the sign-in was cancelled.
    void cancel();
    bool isCancelled() const { return m_cancelled->load(); }
    // Nobody waits for this sign-in any more: cancelled, its `finished` goes nowhere, and it
    // deletes itself when the thread ends.
    void abandon();

signals:
    // `error`: why not, in the sign-in's words (empty when ok).
    void finished(bool ok, const QString& error);

private:
    BridgeConfig::Account m_account;
    std::shared_ptr<std::atomic<bool>> m_cancelled = std::make_shared<std::atomic<bool>>(false);
    BackgroundJob* m_job = nullptr;
};

} // namespace corvina
