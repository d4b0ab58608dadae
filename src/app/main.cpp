#include "ListCommand.h"
#include "platform/Bundle.h"
#include "platform/GroupContainer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTextStream>

int main(int argc, char* argv[]) {
    // Listing needs no display (images decode without one), so that a status bar or a script can
    // call it from anywhere; the widget's window will need a GUI application object.
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-today"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral(
            "The Today widget of the Corvina mail application: the newest messages of the enabled\n"
            "accounts, read from the folder the mail application shares with its extensions.\n"
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
    parser.addOptions({list, json, all, container});
    parser.process(app);

    if (parser.isSet(container)) {
        qputenv(corvina::GroupContainer::EnvironmentVariable, QFile::encodeName(parser.value(container)));
    }
    QTextStream out(stdout);
    QTextStream err(stderr);
    if ((parser.isSet(json) || parser.isSet(all)) && !parser.isSet(list)) {
        err << "corvina-today: --json and --all go with --list\n";
        return 2;
    }
    if (parser.isSet(list)) {
        return corvina::ListCommand::run({parser.isSet(json), parser.isSet(all)}, out, err);
    }
    // The widget's window is not built yet: for now the program lists (--list) and answers --help.
    err << "corvina-today: the widget window is not built yet; try --list\n";
    return 0;
}
