#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QTextStream>

namespace corvina {

// `corvina-mail-bridge` without a command: follows every enabled account until SIGTERM or SIGINT,
// with one short line on stderr for each thing worth knowing (the journal adds the time). SIGUSR1,
// logind's signal that the machine woke up, and NetworkManager's that the network came back or
// changed make every account read all its lists again on a fresh connection.
class ForegroundCommand {
public:
    // How long a stop waits for the accounts to say goodbye before leaving without them.
    static constexpr int StopTimeoutMs = 1500;

    ForegroundCommand(BridgeConfig config, QTextStream& err, int timeoutSeconds);

    // Runs the event loop; answers the exit status.
    int exec();

private:
    BridgeConfig m_config;
    QTextStream& m_err;
    int m_timeoutSeconds;
};

} // namespace corvina
