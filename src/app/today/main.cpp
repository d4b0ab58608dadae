#include "ListCommand.h"
#include "ListWatch.h"
#include "StatusLine.h"
#include "TodayOptions.h"
#include "WindowModule.h"
#include "platform/CompanionProgram.h"
#include "platform/PictureHeader.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>
#include <optional>

// corvina-today is two halves: this program, with Qt Core alone, reads --list and its companions,
// --help, --version and --accounts; the widget's window is a module it loads only to show the widget
// (WindowModule, WidgetProgram). A status bar that runs --list every few seconds then never loads
// Qt Gui and Widgets, which would double what the listing takes in memory.

namespace {

// --list with --watch or --format: one line per change, or the one line now.
int runStatusLine(const QCommandLineParser& parser, const corvina::TodayOptions& options) {
    const QCommandLineOption& all = options.all;
    const QCommandLineOption& watch = options.watch;
    const QCommandLineOption& format = options.format;
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
    const std::optional<int> seconds = options.intervalSeconds(parser);
    if (!seconds) {
        return 2;
    }
    corvina::ListWatch listWatch(parser.isSet(all), *chosen, *seconds);
    return listWatch.exec();
}

} // namespace

int main(int argc, char* argv[]) {
    if (!corvina::TodayOptions::needsNoDisplay(argc, argv)) {
        return corvina::WindowModule::runWidget(argc, argv);
    }
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-today"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));
    // avatars that are not PNG are read by the window's half, loaded at the first one
    corvina::PictureHeader::setOtherFormats(&corvina::WindowModule::inspectOtherFormat);
    const corvina::TodayOptions options;
    const QCommandLineOption& list = options.list;
    const QCommandLineOption& json = options.json;
    const QCommandLineOption& all = options.all;
    const QCommandLineOption& watch = options.watch;
    const QCommandLineOption& format = options.format;
    const QCommandLineOption& interval = options.interval;
    const QCommandLineOption& screenshot = options.screenshot;
    const QCommandLineOption& tray = options.tray;
    const QCommandLineOption& appearance = options.appearance;
    const QCommandLineOption& accounts = options.accounts;
    QCommandLineParser parser;
    options.addTo(parser);
    parser.process(app);

    options.applyContainer(parser);
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
            return runStatusLine(parser, options);
        }
        return corvina::ListCommand::run({parser.isSet(json), parser.isSet(all)}, out, err);
    }
    // Reached only when an option's value looked like one of the options above to needsNoDisplay
    // (--container --list): say so rather than guess which was meant.
    err << "corvina-today: nothing to do: the value of an option reads as an option (see --help)\n";
    return 2;
}
