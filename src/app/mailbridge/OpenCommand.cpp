#include "OpenCommand.h"

#include "BridgeCommand.h"
#include "bridge/service/CommandService.h"
#include "bridge/service/LiveBridge.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QTimer>

namespace corvina {

namespace {

// A bridge that the bus has to start first reads its configuration and takes its name within a
// second or two; the bus itself gives up on an activation after 25 s.
constexpr int CallTimeoutMs = 25000;

} // namespace

OpenCommand::OpenCommand(BridgeConfig config, QTextStream& err, int timeoutSeconds)
    : m_config(std::move(config)), m_err(err), m_timeoutSeconds(timeoutSeconds) {}

QVariantMap OpenCommand::platformDataFromEnvironment() {
    QVariantMap data;
    const QString options = qEnvironmentVariable("CORVINA_LAUNCH_OPTIONS");
    bool ok = false;
    const uint value = options.toUInt(&ok, 0);
    if (ok)
        data.insert(QStringLiteral("corvina-launch-options"), QVariant::fromValue(value));
    QString token = qEnvironmentVariable("XDG_ACTIVATION_TOKEN");
    if (token.isEmpty())
        token = qEnvironmentVariable("DESKTOP_STARTUP_ID");
    if (!token.isEmpty()) {
        data.insert(QStringLiteral("activation-token"), token);
        data.insert(QStringLiteral("desktop-startup-id"), token);
    }
    return data;
}

int OpenCommand::exec(const QStringList& uris) {
    const QVariantMap platformData = platformDataFromEnvironment();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QLatin1String(CommandService::ServiceName), QLatin1String(CommandService::ObjectPath),
            QStringLiteral("org.freedesktop.Application"), QStringLiteral("Open"));
        call.setArguments({uris, platformData});
        const QDBusMessage reply = bus.call(call, QDBus::Block, CallTimeoutMs);
        if (reply.type() == QDBusMessage::ReplyMessage)
            return BridgeCommand::Ok;
        // No bridge running and none the bus knows how to start: carry them out here.
        if (reply.errorName() != QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown")) {
            m_err << "corvina-mail-bridge: the running bridge did not take the URLs: " << reply.errorMessage()
                  << Qt::endl;
            return BridgeCommand::AccountFailed;
        }
    }
    return carryOut(uris, platformData);
}

int OpenCommand::carryOut(const QStringList& uris, const QVariantMap& platformData) {
    auto line = [this](const QString& text) { m_err << text << Qt::endl; };
    QString error;
    const std::unique_ptr<LiveBridge> created =
        LiveBridge::create(m_config, LiveBridge::Purpose::CommandsOnly, m_timeoutSeconds, &error);
    if (!created) {
        line(error);
        return BridgeCommand::AccountFailed;
    }
    LiveBridge& bridge = *created;
    QObject::connect(&bridge, &LiveBridge::log, &bridge, line);
    bool failed = false;
    QObject::connect(
        &bridge.commands(), &CommandCenter::commandDone, &bridge,
        [&failed](CommandKind, const QString&, bool ok, const QString&) { failed = failed || !ok; });
    QObject::connect(&bridge.commands(), &CommandCenter::refused, &bridge, [&failed] { failed = true; });
    if (!bridge.start(&error, false)) {
        line(error);
        return BridgeCommand::AccountFailed;
    }
    bridge.openUris(uris, platformData);
    if (!bridge.commands().isIdle()) {
        QObject::connect(&bridge.commands(), &CommandCenter::idle, &bridge, &QCoreApplication::quit);
        // A retry after reconnecting, then the mail client's start: bounded all the same.
        QTimer::singleShot((2 * m_timeoutSeconds + 15) * 1000, &bridge, [&] {
            line(QStringLiteral("gave up waiting for the commands to finish"));
            failed = true;
            QCoreApplication::quit();
        });
        QCoreApplication::exec();
    }
    bridge.stop(0);
    return failed ? BridgeCommand::AccountFailed : BridgeCommand::Ok;
}

} // namespace corvina
