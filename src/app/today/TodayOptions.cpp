#include "TodayOptions.h"

#include "platform/Bundle.h"
#include "platform/GroupContainer.h"

#include <QFile>
#include <QTextStream>

namespace corvina {

TodayOptions::TodayOptions()
    : list(QStringLiteral("list"),
           QStringLiteral("Print the messages the widget shows (date, sender, subject; one per line).")),
      json(QStringLiteral("json"), QStringLiteral("With --list: print a JSON array instead.")),
      all(QStringLiteral("all"),
          QStringLiteral("With --list: every message read, newest first, not only the chosen list's ten.")),
      container(QStringLiteral("container"),
                QStringLiteral("Read the shared folder DIR instead of $CORVINA_GROUP_CONTAINER or "
                               "$XDG_DATA_HOME/group-containers/Q7X2M4K9TZ.corvina."),
                QStringLiteral("DIR")),
      interval(
          QStringLiteral("interval"),
          QStringLiteral("Also update every SECONDS. By default there is no periodic update: the shared "
                         "folder is read when it changes and when the day turns (the date texts age), and "
                         "every 60 s only while its changes cannot be followed."),
          QStringLiteral("SECONDS")),
      screenshot(
          QStringLiteral("screenshot"),
          QStringLiteral("Render the widget to the PNG FILE once the first update is shown, and exit."),
          QStringLiteral("FILE")),
      tray(QStringLiteral("tray"),
           QStringLiteral(
               "Start in the desktop's tray: the count of new Inbox messages, a click shows or hides "
               "the window.")),
      appearance(QStringLiteral("appearance"),
                 QStringLiteral("auto (as the desktop is: light or dark; the default), light or dark."),
                 QStringLiteral("LOOK")),
      watch(QStringLiteral("watch"),
            QStringLiteral(
                "With --list: keep running, and print the list again as one line (the --json array,\n"
                "or --format) at once and whenever it changes, within about a second of a change\n"
                "in the shared folder. SIGTERM, SIGINT or a closed output end it (status 0).")),
      format(QStringLiteral("format"),
             QStringLiteral(
                 "With --list: print one line in the format NAME: json (the --json array on one line),\n"
                 "waybar (a Waybar custom module's JSON: text, tooltip, class, alt) or text (the count,\n"
                 "the newest sender and subject: Polybar, i3blocks)."),
             QStringLiteral("NAME")),
      accounts(
          QStringLiteral("accounts"),
          QStringLiteral(
              "Open the mail bridge's Accounts window (corvina-accounts) to set up your mail, and exit.")) {}

void TodayOptions::addTo(QCommandLineParser& parser) const {
    parser.setApplicationDescription(
        QStringLiteral(
            "The Today widget of the Corvina mail application: the newest messages of the enabled\n"
            "accounts, read from the folder the mail application shares with its extensions.\n"
            "Without --list it shows the widget in a small window (Escape closes it).\n"
            "Bundle identifier: %1")
            .arg(Bundle::identifier()));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions(
        {list, json, all, watch, format, container, interval, screenshot, tray, appearance, accounts});
}

bool TodayOptions::needsNoDisplay(int argc, char* argv[]) {
    for (int i = 1; i < argc; ++i) {
        const QByteArray a(argv[i]);
        if (a == "--list" || a == "--json" || a == "--all" || a == "--watch" || a == "--format" ||
            a.startsWith("--format=") || a == "--help" || a == "-h" || a == "--help-all" ||
            a == "--version" || a == "-v" || a == "--accounts") {
            return true;
        }
    }
    return false;
}

std::optional<int> TodayOptions::intervalSeconds(const QCommandLineParser& parser) const {
    if (!parser.isSet(interval)) {
        return 0;
    }
    bool ok = true;
    const int seconds = parser.value(interval).toInt(&ok);
    if (!ok || seconds < 1) {
        QTextStream(stderr) << "corvina-today: --interval wants a whole number of seconds, 1 or more\n";
        return std::nullopt;
    }
    return seconds;
}

void TodayOptions::applyContainer(const QCommandLineParser& parser) const {
    if (parser.isSet(container)) {
        qputenv(GroupContainer::EnvironmentVariable, QFile::encodeName(parser.value(container)));
    }
}

} // namespace corvina
