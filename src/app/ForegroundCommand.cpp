#include "ForegroundCommand.h"

#include "BridgeCommand.h"
#include "UnixSignals.h"
#include "bridge/LiveBridge.h"
#include "bridge/NetworkWatcher.h"
#include "bridge/SleepWatcher.h"
#include "bridge/SnapshotWriter.h"

#include <QCoreApplication>
#include <csignal>
#include <cstdlib>

namespace corvina {

ForegroundCommand::ForegroundCommand(BridgeConfig config, QTextStream& err, int timeoutSeconds)
    : m_config(std::move(config)), m_err(err), m_timeoutSeconds(timeoutSeconds) {}

int ForegroundCommand::exec() {
    auto line = [this](const QString& text) { m_err << text << Qt::endl; };
    if (!m_config.exists()) {
        line(QStringLiteral("no accounts: %1 does not exist").arg(m_config.path()));
        return BridgeCommand::AccountFailed;
    }
    const std::optional<QString> data = SnapshotWriter::defaultDataFolder();
    if (!data) {
        line(QStringLiteral("no shared folder (CORVINA_GROUP_CONTAINER is set but empty)"));
        return BridgeCommand::AccountFailed;
    }

    UnixSignals unixSignals;
    if (!unixSignals.isValid()) {
        line(QStringLiteral("cannot watch for SIGTERM"));
        return BridgeCommand::AccountFailed;
    }
    AccountWorker::Timing timing;
    timing.timeoutSeconds = m_timeoutSeconds;
    LiveBridge bridge(m_config, *data, BridgeStatus::defaultPath(), &BridgeCommand::password, timing);
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

    QString error;
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
