#pragma once

#include "bridge/config/BridgeConfig.h"
#include "bridge/service/LiveBridge.h"

#include <QObject>
#include <QString>
#include <functional>
#include <optional>

namespace corvina {

class BackgroundJob;

// "Test connection" of the Accounts window's pages: the bridge's own check (what
// `corvina-mail-bridge check` runs) on a thread of its own, its line handed back on the page's
// thread. A typed password goes to the check's thread and the server only; without one the check
// takes the account's own (its keyring entry or its passwordCommand), as `check` does.
class ConnectionCheck {
public:
    // What the page says while the check runs, and when it passed.
    static QString busyText();
    static QString okText();

    // Starts the check of `account` with `password` (the account's own when nothing) and calls
    // `done` with its result and line on `owner`'s thread when it ends, unless the job was
    // abandoned first. The job is a child of `owner`; the caller deletes it once `done` ran.
    static BackgroundJob* start(const BridgeConfig::Account& account, const std::optional<QString>& password,
                                int timeoutSeconds, QObject* owner,
                                std::function<void(bool ok, const QString& line)> done);
    // The same check, and on its connection the server's folders, for the lists to be chosen from
    // (the add page's Test connection); `done` gets the check's result and the folders.
    static BackgroundJob* startListingFolders(const BridgeConfig::Account& account,
                                              const std::optional<QString>& password, int timeoutSeconds,
                                              QObject* owner,
                                              std::function<void(const LiveBridge::FolderCheck&)> done);
};

} // namespace corvina
