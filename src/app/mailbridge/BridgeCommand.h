#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QDeadlineTimer>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <optional>

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

    // Syncs every enabled account once: Accounts.plist, then each account's snapshots.
    int once();
    // One line per account: name, mail, server, security, enabled, and what is wrong with it.
    int listAccounts();
    // Connects to `account` (or to every enabled one) and says in one line what works or what is wrong.
    int check(const QString& account);

    // The account's password from its passwordCommand, else from the Secret Service; nothing with
    // `error` set when there is none. Safe on any thread (the foreground mode asks on each account's
    // own).
    static std::optional<QString> password(const BridgeConfig::Account& account, QString* error);

private:
    // When one account's attempt must be over, counted from now.
    QDeadlineTimer attemptDeadline() const;

    BridgeConfig m_config;
    QTextStream& m_out;
    QTextStream& m_err;
    int m_timeoutSeconds;
};

} // namespace corvina
