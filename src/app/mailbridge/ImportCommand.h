#pragma once

#include "bridge/config/BridgeConfig.h"
#include "bridge/config/DesktopAccounts.h"

#include <QSet>
#include <QString>
#include <QTextStream>

namespace corvina {

// `corvina-mail-bridge account import`: the desktop's online accounts that carry mail, each added
// (asked first, y/N, unless --yes) to bridge.conf as a group with auth = goa and its goaId. The
// server, port, security and login come from the account's mail settings in the desktop; its token
// or password stays with the desktop and is asked for at every connect (AccountCredential), so
// nothing secret is stored. The group is checked and written by AccountGroup, as `account add`
// writes its own.
class ImportCommand {
public:
    enum Status : int {
        Ok = 0,     // every account taken was added, or there was nothing to add
        Failed = 1, // the desktop's accounts could not be read, or an account could not be added
    };

    // `terminal`: `in` is a person at a terminal (a piped answer is echoed with a line break).
    ImportCommand(QString configPath, QTextStream& in, QTextStream& out, QTextStream& err, bool terminal,
                  int timeoutMs = DesktopAccounts::DefaultTimeoutMs);

    // `all`: take every account without asking (--yes).
    int exec(bool all);

private:
    // Adds `account` to bridge.conf; false (said on m_err) when it cannot be.
    bool add(const DesktopAccounts::Account& account, const BridgeConfig& config);
    // A free group name for `mail`: "gmail" for ada@gmail.com, "gmail2" when that is taken.
    QString nameFor(const QString& mail, const BridgeConfig& config) const;
    // y or yes (in any case) to `question`; no on anything else or at the end of the input.
    bool confirm(const QString& question);

    QString m_path;
    QTextStream& m_in;
    QTextStream& m_out;
    QTextStream& m_err;
    bool m_terminal;
    int m_timeoutMs;
    QSet<QString> m_taken; // group names added by this run
};

} // namespace corvina
