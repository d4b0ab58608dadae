#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QString>
#include <QTextStream>

namespace corvina {

// The subcommands of `corvina-mail-bridge` that run once and exit: `--once`, `account list` and
// `check`. Each account is handled on its own: one that fails gets its line and the others go on.
class BridgeCommand {
public:
    enum Status : int {
        Ok = 0,
        AccountFailed = 1, // at least one account could not be synced or checked
        UsageError = 2,
    };

    BridgeCommand(BridgeConfig config, QTextStream& out, QTextStream& err, int timeoutSeconds);

    // Syncs every enabled account once: Accounts.plist, then each account's snapshots (the
    // bridge's once mode, LiveBridge::syncOnce).
    int once();
    // One line per account: name, mail, server, security, enabled, and what is wrong with it.
    int listAccounts();
    // Connects to `account` (or to every enabled one) and says in one line what works or what is wrong.
    int check(const QString& account);

private:
    BridgeConfig m_config;
    QTextStream& m_out;
    QTextStream& m_err;
    int m_timeoutSeconds;
};

} // namespace corvina
