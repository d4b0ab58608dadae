#include "platform/Bundle.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-today"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The Today widget of the Corvina mail application: the newest messages of the enabled\n"
                       "accounts, read from the folder the mail application shares with its extensions.\n"
                       "Bundle identifier: %1")
            .arg(corvina::Bundle::identifier()));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);

    // Showing the mail is not built yet: for now the program only answers --help and --version.
    QTextStream(stderr) << "corvina-today: nothing to show yet; see --help\n";
    return 0;
}
