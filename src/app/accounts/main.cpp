// corvina-accounts: the Accounts window of the mail bridge, for setting up one's mail without a
// terminal. All account logic is the bridge's (the library corvina-mail-bridge is made of).
#include "AccountsAppearance.h"
#include "AccountsWindow.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/BridgeStatus.h"

#include <QApplication>
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QTextStream>
#include <csignal>

int main(int argc, char* argv[]) {
    // A server that resets the connection during a test must cost that test a line, not the window.
    std::signal(SIGPIPE, SIG_IGN);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("corvina-accounts"));
    QApplication::setApplicationDisplayName(QStringLiteral("Mail accounts"));
    QApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("org.corvina.mail.accounts"));
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The mail bridge's accounts in a window: see them, add and remove them."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption config(QStringLiteral("config"),
                                    QStringLiteral("Read the accounts from FILE instead of bridge.conf."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption timeout(QStringLiteral("timeout"),
                                     QStringLiteral("Give up a connection test after SECONDS (default 30)."),
                                     QStringLiteral("SECONDS"), QStringLiteral("30"));
    const QCommandLineOption appearance(
        QStringLiteral("appearance"),
        QStringLiteral("Light or dark as the desktop (auto, the default), or always light or dark."),
        QStringLiteral("auto|light|dark"), QStringLiteral("auto"));
    parser.addOptions({config, timeout, appearance});
    if (!parser.parse(QApplication::arguments())) {
        err << "corvina-accounts: " << parser.errorText() << Qt::endl;
        return 2;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();
    bool timeoutOk = false;
    const int timeoutSeconds = parser.value(timeout).toInt(&timeoutOk);
    if (!timeoutOk || timeoutSeconds < 1 || timeoutSeconds > 3600) {
        err << "corvina-accounts: --timeout must be a number of seconds from 1 to 3600" << Qt::endl;
        return 2;
    }
    const std::optional<corvina::AccountsAppearance::Mode> look =
        corvina::AccountsAppearance::parse(parser.value(appearance));
    if (!look) {
        err << "corvina-accounts: --appearance is auto, light or dark, not " << parser.value(appearance)
            << Qt::endl;
        return 2;
    }
    corvina::AccountsAppearance colours(*look);
    colours.start();
    const QString path = parser.isSet(config) ? parser.value(config) : corvina::BridgeConfig::defaultPath();
    corvina::AccountsWindow window(path, corvina::BridgeStatus::defaultPath(), timeoutSeconds);
    window.show();
    return QApplication::exec();
}
