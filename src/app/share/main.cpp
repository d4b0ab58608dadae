// corvina-share: hands files, pictures, web links and a text to the mail application as a new draft.
#include "ShareCommand.h"
#include "platform/Bundle.h"
#include "platform/GroupContainer.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QTextStream>

namespace {

const char* const exitStatusHelp =
    "\n"
    "Exit status:\n"
    "  0  sent: the mail application was asked to open the new draft\n"
    "  1  could not send: a file could not be placed in the shared folder,\n"
    "     or the mail application could not be started\n"
    "  2  usage error: an unknown option, a bad --service name (one of the\n"
    "     mail application's own items, a hidden or not a plain name) or web\n"
    "     link, or nothing to share\n"
    "  3  missing file: a file does not exist, is not a plain file, cannot be\n"
    "     read, or its path is not valid UTF-8 (nothing is staged or sent)\n"
    "  4  no shared folder, or its data folder is a symbolic link\n"
    "  5  the mail application is not installed (no desktop file, or a\n"
    "     hidden one, or one that is not an application)\n"
    "  6  the draft is too large: its compose URL would be longer than\n"
    "     131071 bytes, the longest argument a program can be given\n";

// The arguments as the system gave them, for each of the parser's positional arguments: Qt decodes
// arguments as UTF-8, replacing what is not, so a path with other bytes would name no file. Each
// positional argument is the decoded text of one argv entry, in order, after the options before it.
QList<QByteArray> nativePositionals(const QStringList& positionals, int argc, char* argv[]) {
    QList<QByteArray> natives;
    int next = 1;
    for (const QString& positional : positionals) {
        QByteArray found;
        for (; next < argc; ++next) {
            if (QString::fromLocal8Bit(argv[next]) == positional) {
                found = argv[next++];
                break;
            }
        }
        natives << found;
    }
    return natives;
}

} // namespace

int main(int argc, char* argv[]) {
    // The command shows no window, but the shared text is turned into HTML by Qt's rich-text
    // engine, which needs a GUI application for its fonts; the offscreen platform gives one
    // without a display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-share"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));

    QTextStream out(stdout);
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral(
            "Hands files, pictures, web links and a text to the Corvina mail application as one new\n"
            "draft. Files are copied into a staging folder of the folder the mail application shares\n"
            "with its extensions (pictures re-encoded as PNG, named image.png, image_1.png, ...), and\n"
            "the draft is sent to the mail application as a compose URL. The staging folder is\n"
            "emptied first: each share replaces the previous one's files. Nothing is staged when a\n"
            "check fails, and the mail application's own items are never touched.\n"
            "Bundle identifier: %1")
            .arg(corvina::Bundle::identifier()));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help and the exit statuses, and exit."));
    const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")},
                                     QStringLiteral("Show the version and exit."));
    const QCommandLineOption title(
        QStringLiteral("title"),
        QStringLiteral("The draft's subject (also the title of the shared web links)."),
        QStringLiteral("TEXT"));
    const QCommandLineOption text(QStringLiteral("text"),
                                  QStringLiteral("A text that opens the draft's body, before the links."),
                                  QStringLiteral("TEXT"));
    const QCommandLineOption service(
        QStringLiteral("service"),
        QStringLiteral("The staging folder inside the shared data folder (default \"%1\"); one plain "
                       "folder name, not hidden, and none of the mail application's items (Today, "
                       "Accounts.plist, Contacts).")
            .arg(corvina::ShareCommand::defaultService),
        QStringLiteral("NAME"));
    const QCommandLineOption container(
        QStringLiteral("container"),
        QStringLiteral("Use the shared folder DIR instead of $CORVINA_GROUP_CONTAINER or "
                       "$XDG_DATA_HOME/group-containers/Q7X2M4K9TZ.corvina."),
        QStringLiteral("DIR"));
    parser.addOptions({help, version, title, text, service, container});
    parser.addPositionalArgument(
        QStringLiteral("items"),
        QStringLiteral("Files (paths or file:// URLs) to attach, and http:// or https:// links to put "
                       "in the body, in order. A file Qt can decode as a picture is sent as a PNG picture; "
                       "one that does not decode is sent as the file it is."),
        QStringLiteral("[FILE | URL]..."));

    if (!parser.parse(QCoreApplication::arguments())) {
        err << "corvina-share: " << parser.errorText()
            << "\nTry 'corvina-share --help' for more information.\n";
        return corvina::ShareCommand::UsageError;
    }
    if (parser.isSet(help)) {
        out << parser.helpText() << exitStatusHelp;
        return corvina::ShareCommand::Sent;
    }
    if (parser.isSet(version)) {
        out << QCoreApplication::applicationName() << ' ' << QCoreApplication::applicationVersion() << '\n';
        return corvina::ShareCommand::Sent;
    }
    if (parser.isSet(container)) {
        qputenv(corvina::GroupContainer::EnvironmentVariable, QFile::encodeName(parser.value(container)));
    }

    corvina::ShareCommand::Options options;
    if (parser.isSet(title))
        options.title = parser.value(title);
    if (parser.isSet(text))
        options.text = parser.value(text);
    if (parser.isSet(service))
        options.service = parser.value(service);
    options.arguments = parser.positionalArguments();
    // QGuiApplication has taken its own options out of argv; what is left matches arguments().
    options.nativeArguments = nativePositionals(options.arguments, argc, argv);
    return corvina::ShareCommand::run(options, err);
}
