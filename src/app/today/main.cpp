#include "ListCommand.h"
#include "ListWatch.h"
#include "RowsFrameWatch.h"
#include "StatusLine.h"
#include "TodayWindow.h"
#include "WidgetHost.h"
#include "platform/Bundle.h"
#include "platform/CompanionProgram.h"
#include "platform/GroupContainer.h"
#include "widget/TrayIcon.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTextStream>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>

namespace {

// --list (with --json, --all, --watch and --format), --help, --version and --accounts need no display: a
// status bar or a script can call them from anywhere, and --list --watch runs its event loop without
// one; --accounts only starts another program, which opens its own.
// Everything else shows the widget and needs a GUI application object.
bool needsNoDisplay(int argc, char* argv[]) {
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

// The periodic update of the widget and of --list --watch: --interval; none by default (0), as the
// shared folder's watch and the turn of the day say when to read, and a periodic read of a large
// folder that did not change is all cost. Nothing (and the reason on stderr) when it is not a whole
// number of seconds, 1 or more.
std::optional<int> intervalSeconds(const QCommandLineParser& parser, const QCommandLineOption& interval) {
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

// --list with --watch or --format: one line per change, or the one line now.
int runStatusLine(QCommandLineParser& parser, const QCommandLineOption& all, const QCommandLineOption& watch,
                  const QCommandLineOption& format, const QCommandLineOption& interval) {
    QTextStream err(stderr);
    // --watch alone prints the --json array, one line each time
    const QString name = parser.isSet(format) ? parser.value(format) : QStringLiteral("json");
    const std::optional<corvina::StatusLine::Format> chosen = corvina::StatusLine::formatNamed(name);
    if (!chosen) {
        err << "corvina-today: unknown --format \"" << name << "\"; the formats are "
            << corvina::StatusLine::formatNames.join(QStringLiteral(", ")) << "\n";
        return 2;
    }
    if (!parser.isSet(watch)) {
        const corvina::ListCommand::Reading reading = corvina::ListCommand::read(parser.isSet(all));
        corvina::ListCommand::explain(reading, err);
        QTextStream out(stdout);
        out << corvina::StatusLine::line(*chosen, reading);
        return 0;
    }
    const std::optional<int> seconds = intervalSeconds(parser, interval);
    if (!seconds) {
        return 2;
    }
    corvina::ListWatch listWatch(parser.isSet(all), *chosen, *seconds);
    return listWatch.exec();
}

int runWidget(QCommandLineParser& parser, const QCommandLineOption& interval,
              const QCommandLineOption& screenshot, const QCommandLineOption& tray,
              const QCommandLineOption& appearance) {
    QTextStream err(stderr);
    const std::optional<int> seconds = intervalSeconds(parser, interval);
    if (!seconds) {
        return 2;
    }
    const QString look = parser.isSet(appearance) ? parser.value(appearance) : QStringLiteral("auto");
    corvina::WidgetHost::Appearance chosen = corvina::WidgetHost::Appearance::Auto;
    if (look == QLatin1String("light")) {
        chosen = corvina::WidgetHost::Appearance::Light;
    } else if (look == QLatin1String("dark")) {
        chosen = corvina::WidgetHost::Appearance::Dark;
    } else if (look != QLatin1String("auto")) {
        err << "corvina-today: --appearance is auto, light or dark, not " << look << "\n";
        return 2;
    }
    corvina::WidgetHost host(*seconds);
    host.setAppearance(chosen);
    if (qEnvironmentVariable("CORVINA_BENCH_FIRST_FRAME") == QLatin1String("1")) {
        // A benchmark's hook (bench/first_frame_bench.py), inert unless set: at the window's first
        // frame, print the monotonic clock in nanoseconds and leave at once, before anything else
        // runs. The benchmark subtracts the moment it started the program.
        QObject::connect(&host, &corvina::WidgetHost::firstFramePainted, [] {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            std::printf("%lld\n", static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
            std::fflush(stdout);
            std::_Exit(0);
        });
    }
    if (qEnvironmentVariable("CORVINA_BENCH_ROWS") == QLatin1String("1")) {
        // A benchmark's hook (bench/rows_bench.py), inert unless set: prints the monotonic clock in
        // nanoseconds at the window's first frame ("frame"), and at each frame that puts other rows
        // on the screen ("rows", with the top row's subject), and goes on running.
        auto now = [] {
            timespec clock{};
            clock_gettime(CLOCK_MONOTONIC, &clock);
            return static_cast<long long>(clock.tv_sec) * 1000000000LL + clock.tv_nsec;
        };
        QObject::connect(&host, &corvina::WidgetHost::firstFramePainted, [now] {
            std::printf("frame %lld\n", now());
            std::fflush(stdout);
        });
        QObject::connect(&host, &corvina::WidgetHost::windowMade, [&host, now] {
            auto* watch = new corvina::RowsFrameWatch(host.window(), host.controller(), &host);
            QObject::connect(watch, &corvina::RowsFrameWatch::rowsOnScreen, [now](const QString& subject) {
                std::printf("rows %lld %s\n", now(), subject.toUtf8().constData());
                std::fflush(stdout);
            });
        });
    }
    host.start(parser.isSet(tray));
    if (parser.isSet(tray) && parser.isSet(screenshot)) {
        // The tray's picture as after a start in a desktop's tray: the window closed (where there
        // is no tray it was shown, before anything was read, so it has not taken a look yet).
        host.window()->hide();
    }
    if (!parser.isSet(screenshot)) {
        return QApplication::exec();
    }
    // Render once the first update has been shown and every animation has come to rest.
    const QString file = parser.value(screenshot);
    QElapsedTimer waited;
    waited.start();
    QTimer poll;
    int status = 0;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        // The last step of a height animation asks the window for its new size by a posted event;
        // a poll due in the same turn of the event loop would otherwise grab the window one step
        // short (a pixel, now and then). Whatever layout is still asked for is done first.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        if (!host.isSettled() && waited.elapsed() < 15000) {
            return;
        }
        poll.stop();
        if (!host.isSettled()) {
            err << "corvina-today: the widget did not settle within 15 s; rendering as it is\n";
        }
        // With --tray, the tray's icon and its menu instead of the window.
        const QImage shot = host.tray() ? host.tray()->picture() : host.window()->grab().toImage();
        if (!shot.save(file)) {
            err << "corvina-today: cannot write the screenshot to " << file << "\n";
            status = 1;
        }
        QApplication::exit(status);
    });
    // Often: the picture is taken as soon as the widget is still, and a grab that raced the
    // window's last resize would show in the screenshot tests rather than once in a while.
    poll.start(1);
    return QApplication::exec();
}

} // namespace

// Qt's offscreen platform (used for --screenshot on machines without a display) warns about every
// fixed-size window; the warning says nothing a user can act on.
static QtMessageHandler g_defaultHandler = nullptr;
static void filterMessages(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.startsWith(QLatin1String("This plugin does not support propagateSizeHints"))) {
        return;
    }
    g_defaultHandler(type, context, message);
}

int main(int argc, char* argv[]) {
    g_defaultHandler = qInstallMessageHandler(filterMessages);
    std::unique_ptr<QCoreApplication> app;
    if (needsNoDisplay(argc, argv)) {
        app = std::make_unique<QCoreApplication>(argc, argv);
    } else {
        app = std::make_unique<QApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("corvina-today"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral(
            "The Today widget of the Corvina mail application: the newest messages of the enabled\n"
            "accounts, read from the folder the mail application shares with its extensions.\n"
            "Without --list it shows the widget in a small window (Escape closes it).\n"
            "Bundle identifier: %1")
            .arg(corvina::Bundle::identifier()));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption list(
        QStringLiteral("list"),
        QStringLiteral("Print the messages the widget shows (date, sender, subject; one per line)."));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("With --list: print a JSON array instead."));
    const QCommandLineOption all(
        QStringLiteral("all"),
        QStringLiteral("With --list: every message read, newest first, not only the chosen list's ten."));
    const QCommandLineOption container(
        QStringLiteral("container"),
        QStringLiteral("Read the shared folder DIR instead of $CORVINA_GROUP_CONTAINER or "
                       "$XDG_DATA_HOME/group-containers/Q7X2M4K9TZ.corvina."),
        QStringLiteral("DIR"));
    const QCommandLineOption interval(
        QStringLiteral("interval"),
        QStringLiteral("Also update every SECONDS. By default there is no periodic update: the shared "
                       "folder is read when it changes and when the day turns (the date texts age), and "
                       "every 60 s only while its changes cannot be followed."),
        QStringLiteral("SECONDS"));
    const QCommandLineOption screenshot(
        QStringLiteral("screenshot"),
        QStringLiteral("Render the widget to the PNG FILE once the first update is shown, and exit."),
        QStringLiteral("FILE"));
    const QCommandLineOption tray(
        QStringLiteral("tray"),
        QStringLiteral("Start in the desktop's tray: the count of new Inbox messages, a click shows or hides "
                       "the window."));
    const QCommandLineOption appearance(
        QStringLiteral("appearance"),
        QStringLiteral("auto (as the desktop is: light or dark; the default), light or dark."),
        QStringLiteral("LOOK"));
    const QCommandLineOption watch(
        QStringLiteral("watch"),
        QStringLiteral("With --list: keep running, and print the list again as one line (the --json array,\n"
                       "or --format) at once and whenever it changes, within about a second of a change\n"
                       "in the shared folder. SIGTERM, SIGINT or a closed output end it (status 0)."));
    const QCommandLineOption format(
        QStringLiteral("format"),
        QStringLiteral(
            "With --list: print one line in the format NAME: json (the --json array on one line),\n"
            "waybar (a Waybar custom module's JSON: text, tooltip, class, alt) or text (the count,\n"
            "the newest sender and subject: Polybar, i3blocks)."),
        QStringLiteral("NAME"));
    const QCommandLineOption accounts(
        QStringLiteral("accounts"),
        QStringLiteral(
            "Open the mail bridge's Accounts window (corvina-accounts) to set up your mail, and exit."));
    parser.addOptions(
        {list, json, all, watch, format, container, interval, screenshot, tray, appearance, accounts});
    parser.process(*app);

    if (parser.isSet(container)) {
        qputenv(corvina::GroupContainer::EnvironmentVariable, QFile::encodeName(parser.value(container)));
    }
    QTextStream out(stdout);
    QTextStream err(stderr);
    if ((parser.isSet(json) || parser.isSet(all)) && !parser.isSet(list)) {
        err << "corvina-today: --json and --all go with --list\n";
        return 2;
    }
    if ((parser.isSet(watch) || parser.isSet(format)) && !parser.isSet(list)) {
        err << "corvina-today: --watch and --format go with --list (corvina-today --list --watch "
               "[--format NAME])\n";
        return 2;
    }
    if (parser.isSet(accounts)) {
        // The window is the bridge's program; the widget links nothing of the bridge, it starts it.
        QString error;
        if (!corvina::CompanionProgram::start(QStringLiteral("corvina-accounts"), {}, &error)) {
            err << "corvina-today: " << error
                << "; the Accounts window comes with the corvina-mail-bridge package\n";
            return 1;
        }
        return 0;
    }
    if (parser.isSet(list)) {
        if (parser.isSet(screenshot) || parser.isSet(tray) || parser.isSet(appearance) ||
            (parser.isSet(interval) && !parser.isSet(watch))) {
            err << "corvina-today: --interval, --screenshot, --tray and --appearance go with the widget, not "
                   "with "
                   "--list (--interval also goes with --list --watch)\n";
            return 2;
        }
        if (parser.isSet(json) && parser.isSet(format)) {
            err << "corvina-today: --json and --format: choose one (--format json is the --json array on one "
                   "line)\n";
            return 2;
        }
        if (parser.isSet(watch) || parser.isSet(format)) {
            return runStatusLine(parser, all, watch, format, interval);
        }
        return corvina::ListCommand::run({parser.isSet(json), parser.isSet(all)}, out, err);
    }
    return runWidget(parser, interval, screenshot, tray, appearance);
}
