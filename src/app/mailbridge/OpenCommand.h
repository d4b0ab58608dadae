#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QStringList>
#include <QTextStream>

namespace corvina {

// `corvina-mail-bridge open URL...`: the Exec line of the mail application's desktop file, for
// desktops and callers that start programs instead of using D-Bus activation. The URLs go to the
// bridge on the session bus (started by the bus when it is not running), so that one process owns
// the accounts; without a session bus, or without a bridge the bus can start, this process carries
// them out itself and exits when they are done.
class OpenCommand {
public:
    OpenCommand(BridgeConfig config, QTextStream& err, int timeoutSeconds);

    // Answers the exit status: 0 when the URLs were handed over (or, carried out here, all
    // succeeded), 1 when one failed or was refused.
    int exec(const QStringList& uris);

    // The platform data of the call, from the launch environment the widget gives an Exec line:
    // CORVINA_LAUNCH_OPTIONS, and XDG_ACTIVATION_TOKEN or DESKTOP_STARTUP_ID for the token.
    static QVariantMap platformDataFromEnvironment();

private:
    int carryOut(const QStringList& uris, const QVariantMap& platformData);

    BridgeConfig m_config;
    QTextStream& m_err;
    int m_timeoutSeconds;
};

} // namespace corvina
