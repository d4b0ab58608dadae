#include "ConnectionCheck.h"

#include "BackgroundJob.h"
#include "platform/Localization.h"

#include <memory>

namespace corvina {

QString ConnectionCheck::busyText() {
    return Localization::text("Testing the connection…");
}

QString ConnectionCheck::okText() {
    return Localization::text("Connection ok: the server took the login and the inbox opened.");
}

BackgroundJob* ConnectionCheck::start(const BridgeConfig::Account& account,
                                      const std::optional<QString>& password, int timeoutSeconds,
                                      QObject* owner, std::function<void(bool, const QString&)> done) {
    auto result = std::make_shared<AccountSync::Result>();
    auto* job = new BackgroundJob(
        [result, account, password, timeoutSeconds] {
            *result = password ? LiveBridge::checkAccount(account, *password, timeoutSeconds)
                               : LiveBridge::checkAccount(account, timeoutSeconds);
        },
        owner);
    QObject::connect(job, &BackgroundJob::finished, owner, [result, done = std::move(done)] {
        done(result->ok, result->ok ? okText() : result->error);
    });
    job->start();
    return job;
}

BackgroundJob* ConnectionCheck::startListingFolders(
    const BridgeConfig::Account& account, const std::optional<QString>& password, int timeoutSeconds,
    QObject* owner, std::function<void(const LiveBridge::FolderCheck&)> done) {
    auto result = std::make_shared<LiveBridge::FolderCheck>();
    auto* job = new BackgroundJob(
        [result, account, password, timeoutSeconds] {
            *result = LiveBridge::checkAndListFolders(account, password, timeoutSeconds);
        },
        owner);
    QObject::connect(job, &BackgroundJob::finished, owner,
                     [result, done = std::move(done)] { done(*result); });
    job->start();
    return job;
}

} // namespace corvina
