#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <optional>

namespace corvina {

// corvina-today's command line, in one place: the program reads --list and its companions itself,
// and hands the widget's options to its window (WidgetProgram, loaded when the widget is shown).
// Both parse the same options, so --help is the same text and an option of the other half is known,
// not an error.
class TodayOptions {
public:
    TodayOptions();

    // The description, --help, --version and every option below, on `parser`.
    void addTo(QCommandLineParser& parser) const;

    // Whether the command line asks for something that needs no display: --list (with --json, --all,
    // --watch and --format), --help, --version and --accounts. A status bar or a script calls them
    // from anywhere, --list --watch runs its event loop without one, and --accounts only starts
    // another program, which opens its own. Everything else shows the widget.
    static bool needsNoDisplay(int argc, char* argv[]);

    // The periodic update of the widget and of --list --watch: --interval; none by default (0), as
    // the shared folder's watch and the turn of the day say when to read, and a periodic read of a
    // large folder that did not change is all cost. Nothing (and the reason on stderr) when it is not
    // a whole number of seconds, 1 or more.
    std::optional<int> intervalSeconds(const QCommandLineParser& parser) const;

    // --container DIR: the shared folder to read, for this program and what it starts.
    void applyContainer(const QCommandLineParser& parser) const;

    const QCommandLineOption list;
    const QCommandLineOption json;
    const QCommandLineOption all;
    const QCommandLineOption container;
    const QCommandLineOption interval;
    const QCommandLineOption screenshot;
    const QCommandLineOption tray;
    const QCommandLineOption appearance;
    const QCommandLineOption watch;
    const QCommandLineOption format;
    const QCommandLineOption accounts;
};

} // namespace corvina
