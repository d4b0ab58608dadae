// corvina-mail-bridge: the mail application's side of the shared folder, for IMAP accounts.
#include "AccountSetup.h"
#include "BridgeCommand.h"
#include "ForegroundCommand.h"
#include "GuessCommand.h"
#include "ImportCommand.h"
#include "OpenCommand.h"
#include "SignInCommand.h"
#include "bridge/config/BridgeConfig.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QMetaType>
#include <QTextStream>
#include <csignal>
#include <unistd.h>

namespace {

const char* const commandsHelp =
    "\n"
    "Commands:\n"
    "  (none)            follow every enabled account until SIGTERM or SIGINT: new mail shows at once\n"
    "                    (IDLE), other lists are read every `poll` seconds (300 by default); a lost\n"
    "                    connection is tried again after 1 s, doubling up to 5 min. SIGUSR1, the\n"
    "                    machine waking from suspend, or the network coming back or changing, reads\n"
    "                    every account again on a fresh connection.\n"
    "                    Also the mail application on the session bus (org.corvina.mail): carries\n"
    "                    out the widget's open, reply, archive and delete, and corvina-share's drafts.\n"
    "  --once            sync every enabled account once and exit\n"
    "  open URL...       hand corvina:// command URLs to the running bridge (the bus starts it when\n"
    "                    needed); without a session bus, carry them out here and exit. What the\n"
    "                    desktop runs for the mail application where D-Bus activation is not used\n"
    "  account add       ask for an account's settings (with TLS, a caFile) and its password or a\n"
    "                    passwordCommand; write the account into bridge.conf and a typed password into\n"
    "                    the desktop's Secret Service (keyring).\n"
    "                    Answers are read from standard input, one a line (an empty line takes the\n"
    "                    default in brackets): typed, the password without echo, or piped by a script\n"
    "  account guess ADDRESS\n"
    "                    print as JSON the server and sign-in `account add` would use for the address\n"
    "                    (from the built-in providers table; status 1 for a domain it does not know);\n"
    "                    see account guess --help\n"
    "  account import [--yes]\n"
    "                    add the desktop's online accounts that carry mail (GNOME Online Accounts), each\n"
    "                    asked y/N on standard input (all of them with --yes), as accounts with\n"
    "                    auth = goa: server and login from the desktop, the token or password asked of\n"
    "                    the desktop at every connect, nothing secret stored. One already imported is\n"
    "                    skipped\n"
    "  account password ACCOUNT\n"
    "                    ask for the account's password again and replace the stored one\n"
    "  account remove ACCOUNT\n"
    "                    remove the account from bridge.conf and its password or sign-in from the Secret\n"
    "                    Service\n"
    "  account signin ACCOUNT\n"
    "                    sign in to an account with auth = oauth2 and an oauthProvider in your browser:\n"
    "                    opens the provider's page (with $BROWSER when set, else xdg-open), waits up to\n"
    "                    5 minutes (or --timeout) for it to come back, and keeps the refresh token in\n"
    "                    the Secret Service. Run it again when the bridge says \"sign-in needed\"\n"
    "  account list      list the configured accounts and what is wrong with them\n"
    "  check [ACCOUNT]   connect to the account (by group name or mail), or to every enabled one,\n"
    "                    and say in one line what works or what is wrong\n"
    "\n"
    "Accounts are read from $XDG_CONFIG_HOME/corvina/bridge.conf (~/.config/corvina/bridge.conf),\n"
    "one group per account; see docs/bridge.md. An account's password comes from its\n"
    "passwordCommand when it has one, else from the Secret Service. Messages are written to the\n"
    "shared folder that corvina-today reads ($CORVINA_GROUP_CONTAINER, or\n"
    "$XDG_DATA_HOME/group-containers/Q7X2M4K9TZ.corvina).\n"
    "Each account's last sync and last error are kept in\n"
    "$XDG_STATE_HOME/corvina/bridge-status.json (~/.local/state/corvina/bridge-status.json).\n"
    "\n"
    "Exit status:\n"
    "  0  every account synced (or checked) without a problem; the foreground mode stopped cleanly\n"
    "  1  at least one account failed; one line each says why (the foreground mode: no account\n"
    "     could be followed, or another bridge is running; open: a command failed or was refused)\n"
    "  2  usage error\n";

} // namespace

int main(int argc, char* argv[]) {
    // A server that resets the connection while we write to it must cost that account a line, not
    // the whole process: every mode sees a failed write (EPIPE) instead of dying of SIGPIPE.
    std::signal(SIGPIPE, SIG_IGN);
    // Deliberately first: a type registered here makes Qt's table of registered types before Qt's
    // D-Bus connections are made, so that it is torn down after them at exit. Made the other way
    // round, a message from the bus still being handled on Qt's D-Bus thread as the program left
    // (after a quick failed call) found the table gone, and that printed "Trying to construct an
    // instance of an invalid type" under the bridge's own last line, now and then.
    QMetaType::fromType<QDBusObjectPath>().id();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-mail-bridge"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));
    QTextStream out(stdout);
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Reads the newest messages of your IMAP accounts into the folder that corvina-today shows."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help and exit."));
    const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")},
                                     QStringLiteral("Show the version and exit."));
    const QCommandLineOption once(QStringLiteral("once"),
                                  QStringLiteral("Sync every enabled account once and exit."));
    const QCommandLineOption config(QStringLiteral("config"),
                                    QStringLiteral("Read the accounts from FILE instead of bridge.conf."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption timeout(
        QStringLiteral("timeout"),
        QStringLiteral("Give up on a server that takes longer than SECONDS "
                       "(default 30) for a step (connecting, each command); "
                       "with --once and check, for each account's whole attempt."),
        QStringLiteral("SECONDS"), QStringLiteral("30"));
    const QCommandLineOption yes(QStringLiteral("yes"),
                                 QStringLiteral("account import: add every account without asking."));
    parser.addOptions({help, version, once, config, timeout, yes});
    parser.addPositionalArgument(
        QStringLiteral("command"),
        QStringLiteral("account add | account guess ADDRESS | account import | account list | "
                       "account password ACCOUNT | account remove ACCOUNT | "
                       "account signin ACCOUNT | "
                       "check [ACCOUNT] | open URL..."),
        QStringLiteral("[command]"));
    if (!parser.parse(QCoreApplication::arguments())) {
        err << "corvina-mail-bridge: " << parser.errorText() << Qt::endl;
        return corvina::BridgeCommand::UsageError;
    }
    // `account guess` has a --help of its own, and reads no bridge.conf.
    const QStringList words = parser.positionalArguments();
    if (words.size() >= 2 && words[0] == QLatin1String("account") && words[1] == QLatin1String("guess"))
        return corvina::GuessCommand(out, err).exec(words.mid(2), parser.isSet(help));
    if (parser.isSet(help)) {
        out << parser.helpText() << commandsHelp;
        return corvina::BridgeCommand::Ok;
    }
    if (parser.isSet(version)) {
        out << "corvina-mail-bridge " << CORVINA_VERSION << Qt::endl;
        return corvina::BridgeCommand::Ok;
    }
    bool timeoutOk = false;
    const int timeoutSeconds = parser.value(timeout).toInt(&timeoutOk);
    if (!timeoutOk || timeoutSeconds < 1 || timeoutSeconds > 3600) {
        err << "corvina-mail-bridge: --timeout must be a number of seconds from 1 to 3600" << Qt::endl;
        return corvina::BridgeCommand::UsageError;
    }

    const QString path = parser.isSet(config) ? parser.value(config) : corvina::BridgeConfig::defaultPath();
    corvina::BridgeCommand command(corvina::BridgeConfig::load(path), out, err, timeoutSeconds);
    if (parser.isSet(once)) {
        if (!words.isEmpty()) {
            err << "corvina-mail-bridge: --once takes no command" << Qt::endl;
            return corvina::BridgeCommand::UsageError;
        }
        return command.once();
    }
    if (words.size() == 2 && words[0] == QLatin1String("account") && words[1] == QLatin1String("list"))
        return command.listAccounts();
    if (words.size() == 3 && words[0] == QLatin1String("account") && words[1] == QLatin1String("signin")) {
        // A person may take a while in the browser: five minutes unless --timeout says otherwise;
        // each request to the provider gets --timeout as everywhere else.
        const int waitSeconds = parser.isSet(timeout) ? timeoutSeconds : 300;
        return corvina::SignInCommand(corvina::BridgeConfig::load(path), out, err, waitSeconds,
                                      timeoutSeconds)
            .exec(words[2]);
    }
    if (words.size() == 2 && words[0] == QLatin1String("account") && words[1] == QLatin1String("import")) {
        QTextStream in(stdin);
        return corvina::ImportCommand(path, in, out, err, ::isatty(STDIN_FILENO) == 1, timeoutSeconds * 1000)
            .exec(parser.isSet(yes));
    }
    if (words.size() >= 2 && words[0] == QLatin1String("account")) {
        QTextStream in(stdin);
        corvina::AccountSetup setup(path, in, out, err, ::isatty(STDIN_FILENO) == 1);
        if (words.size() == 2 && words[1] == QLatin1String("add"))
            return setup.add();
        if (words.size() == 3 && words[1] == QLatin1String("remove"))
            return setup.remove(words[2]);
        if (words.size() == 3 && words[1] == QLatin1String("password"))
            return setup.setPassword(words[2]);
    }
    if (!words.isEmpty() && words.size() <= 2 && words[0] == QLatin1String("check"))
        return command.check(words.value(1));
    if (words.size() >= 2 && words[0] == QLatin1String("open"))
        return corvina::OpenCommand(corvina::BridgeConfig::load(path), err, timeoutSeconds)
            .exec(words.mid(1));
    if (words.isEmpty())
        return corvina::ForegroundCommand(corvina::BridgeConfig::load(path), err, timeoutSeconds).exec();
    err << "corvina-mail-bridge: unknown command " << words.join(u' ') << "; see --help" << Qt::endl;
    return corvina::BridgeCommand::UsageError;
}
