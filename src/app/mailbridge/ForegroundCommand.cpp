#include "ForegroundCommand.h"

#include "BridgeCommand.h"
#include "bridge/service/CommandService.h"
#include "bridge/service/LiveBridge.h"
#include "bridge/service/NetworkWatcher.h"
#include "bridge/service/SleepWatcher.h"
#include "platform/UnixSignals.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <csignal>
#include <cstdlib>

namespace corvina {

ForegroundCommand::ForegroundCommand(BridgeConfig config, QTextStream& err, int timeoutSeconds)
    : m_config(std::move(config)), m_err(err), m_timeoutSeconds(timeoutSeconds) {}

int ForegroundCommand::exec() {
    auto line = [this](const QString& text) { m_err << text << Qt::endl; };
    // Before the bridge, so that it goes last: a signal is still caught while the bridge stops.
    UnixSignals unixSignals;
    QString error;
    const std::unique_ptr<LiveBridge> created =
        LiveBridge::create(m_config, LiveBridge::Purpose::Follow, m_timeoutSeconds, &error);
    if (!created) {
        line(error);
        return BridgeCommand::AccountFailed;
    }
    LiveBridge& bridge = *created;
    if (!unixSignals.isValid()) {
        line(QStringLiteral("cannot watch for SIGTERM"));
        return BridgeCommand::AccountFailed;
    }
    QObject::connect(&bridge, &LiveBridge::log, &bridge, line);

    SleepWatcher sleep;
    if (sleep.isWatching())
        QObject::connect(&sleep, &SleepWatcher::resumed, &bridge,
                         [&bridge] { bridge.syncNow(QStringLiteral("resumed from suspend")); });
    else
        line(QStringLiteral("not told of suspend and resume (%1)").arg(sleep.error()));
    NetworkWatcher network;
    QObject::connect(&network, &NetworkWatcher::changed, &bridge,
                     [&bridge] { bridge.syncNow(QStringLiteral("network changed")); });
    if (!network.problem().isEmpty())
        line(QStringLiteral("network changes are noticed by keep-alive only (%1)").arg(network.problem()));
    QObject::connect(&unixSignals, &UnixSignals::syncNow, &bridge,
                     [&bridge] { bridge.syncNow(QStringLiteral("SIGUSR1")); });
    bool leftBehind = false;
    QObject::connect(&unixSignals, &UnixSignals::terminate, &bridge, [&](int signal) {
        line(QStringLiteral("stopping (%1)")
                 .arg(signal == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM")));
        leftBehind = !bridge.stop(StopTimeoutMs);
        QCoreApplication::quit();
    });

    // The mail application's name on the session bus, where the widget's commands arrive. Taken
    // before anything is written, so that a second bridge leaves without touching the files; a
    // call that comes in at once waits on the event loop until the accounts have started.
    CommandService host;
    QObject::connect(&host, &CommandService::urisOpened, &bridge, &LiveBridge::openUris);
    QObject::connect(&host, &CommandService::syncRequested, &bridge, &LiveBridge::syncNow);
    QObject::connect(&host, &CommandService::retryRequested, &bridge, &LiveBridge::retryNow);
    if (host.registerOn(QDBusConnection::sessionBus(), &error)) {
        line(QStringLiteral("carrying out the widget's commands as %1")
                 .arg(QLatin1String(CommandService::ServiceName)));
    } else if (QDBusConnection::sessionBus().isConnected()) {
        // Two bridges would write the same files and answer the same commands.
        line(error);
        return BridgeCommand::AccountFailed;
    } else {
        line(QStringLiteral("the widget's commands are not received: %1").arg(error));
    }
    if (!bridge.start(&error)) {
        line(error);
        return BridgeCommand::AccountFailed;
    }

    QCoreApplication::exec();
    if (leftBehind) {
        // An account is stuck in a network call to a server that does not answer; everything
        // written is complete, so the process leaves without waiting for its timeout.
        line(QStringLiteral("stopped; an account did not finish in time and is left behind"));
        std::_Exit(BridgeCommand::Ok);
    }
    line(QStringLiteral("stopped"));
    return BridgeCommand::Ok;
}

} // namespace corvina
