// `corvina-today --list --watch` and `--list --format`, run as a status bar runs them: the real
// program on a temporary shared folder, its lines read from its output as they come.
#include "app/today/StatusLine.h"
#include "support/ProcessStop.h"
#include "support/TempContainer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QTemporaryDir>
#include <algorithm>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>

using corvina::StatusLine;
using corvina::test::TempContainer;

namespace {

const QString ada = QStringLiteral("ada@example.org");

// How long a line may take to come after a change on disk: the watch gathers changes for a quarter
// of a second, then reads the folder; "within a second or two" is what a bar needs.
constexpr int changeBoundMs = 2000;
// How long to wait for a line that must not come: the quarter of a second the watch gathers
// changes, and more.
constexpr int quietMs = 1500;
// How long the first line, or the end, may take: a program starting on a busy machine.
constexpr int startBoundMs = 15000;

// The program with a private settings folder (the list never chosen: every folder, ten rows).
class Program {
public:
    explicit Program(const QStringList& arguments,
                     const QProcessEnvironment& base = QProcessEnvironment::systemEnvironment()) {
        QProcessEnvironment environment = base;
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_config.path());
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(CORVINA_TODAY_BINARY), arguments);
        EXPECT_TRUE(m_process.waitForStarted(startBoundMs));
    }
    ~Program() { corvina::test::stopProcess(m_process, startBoundMs); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The next whole line of its output, line feed included; empty when none came within `ms`.
    QByteArray nextLine(int ms) {
        const QDeadlineTimer deadline(ms);
        while (!m_process.canReadLine()) {
            const qint64 left = deadline.remainingTime();
            if (left <= 0 || !m_process.waitForReadyRead(static_cast<int>(left))) {
                return m_process.canReadLine() ? m_process.readLine() : QByteArray();
            }
        }
        return m_process.readLine();
    }

    QProcess& process() { return m_process; }
    // Where the widget's settings are kept for this program (its XDG_CONFIG_HOME).
    QString configFolder() const { return m_config.path(); }

private:
    QTemporaryDir m_config;
    QProcess m_process;
};

QJsonObject object(const QByteArray& line) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
    EXPECT_TRUE(line.endsWith('\n') && line.count('\n') == 1) << "one line: " << line.toStdString();
    return document.object();
}

struct WatchOutcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

WatchOutcome run(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(CORVINA_TODAY_BINARY), arguments);
    EXPECT_TRUE(process.waitForFinished(30000));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

// The program ended by itself, cleanly, with status 0.
void expectCleanEnd(QProcess& process) {
    ASSERT_TRUE(process.waitForFinished(startBoundMs));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
}

} // namespace

TEST(ListWatch, WaybarPrintsALineAtOnceAndANewOneWithinASecondOrTwoOfARewrite) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"1"}));
    // a periodic update of an hour: a line that comes is the watch's doing
    Program program({"--list", "--watch", "--format", "waybar", "--interval", "3600"});
    const QJsonObject first = object(program.nextLine(startBoundMs));
    EXPECT_EQ(first, (QJsonObject{{"text", "1"},
                                  {"tooltip", "Sender 1: Subject 1"},
                                  {"class", StatusLine::State::mail},
                                  {"alt", StatusLine::State::mail}}));

    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"2", "1"}));
    const QByteArray second = program.nextLine(changeBoundMs);
    ASSERT_FALSE(second.isEmpty()) << "no new line within " << changeBoundMs << " ms of the rewrite";
    EXPECT_EQ(object(second)["text"], "2");
    EXPECT_EQ(object(second)["tooltip"], "Sender 2: Subject 2\nSender 1: Subject 1");

    // The same rows written again change nothing that is printed: no second copy of the line.
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"2", "1"}));
    EXPECT_TRUE(program.nextLine(quietMs).isEmpty());

    // Every message gone: class "none".
    container.writeSnapshot(ada, QStringLiteral("inbox"), {});
    const QJsonObject empty = object(program.nextLine(changeBoundMs));
    EXPECT_EQ(empty["text"], "0");
    EXPECT_EQ(empty["class"], StatusLine::State::none);
    EXPECT_EQ(empty["alt"], StatusLine::State::none);

    program.process().terminate(); // SIGTERM, as a bar stops its module
    expectCleanEnd(program.process());
}

TEST(ListWatch, AListChosenInTheWidgetsHeaderIsANewLineAtOnce) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    QVariantList messages = TempContainer::inboxMessages(ada, {"1", "2"});
    messages << TempContainer::message(QStringLiteral("memo"), ada, 1700000000, 12);
    container.writeSnapshot(ada, QStringLiteral("inbox"), messages);
    Program program({"--list", "--watch", "--format", "text", "--interval", "3600"});
    // never chosen: every folder
    EXPECT_EQ(program.nextLine(startBoundMs), "3 · Sender 1: Subject 1\n");
    // the widget keeps the choice of Memo (3) in its settings file, made now
    ASSERT_TRUE(QDir().mkpath(program.configFolder() + QStringLiteral("/corvina")));
    // Written as the widget writes it (QSettings saves a whole new file over the old one): a file
    // emptied in place could be read, by bad luck, between its truncation and its new content.
    const QString settingsPath =
        program.configFolder() + QStringLiteral("/corvina/org.corvina.mail.today.conf");
    const auto save = [&](const QByteArray& content) {
        QSaveFile settings(settingsPath);
        ASSERT_TRUE(settings.open(QIODevice::WriteOnly));
        settings.write(content);
        ASSERT_TRUE(settings.commit());
    };
    save("[General]\nsegmented=3\n");
    EXPECT_EQ(program.nextLine(changeBoundMs), "1 · Sender of memo: Subject of memo\n");
    // and changed again: Inbox (1)
    save("[General]\nsegmented=1\n");
    EXPECT_EQ(program.nextLine(changeBoundMs), "2 · Sender 1: Subject 1\n");
}

TEST(ListWatch, TheTooltipNamesTheFiveNewestAndIsSafeMarkup) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    QVariantList messages = TempContainer::inboxMessages(ada, {"1", "2", "3", "4", "5", "6", "7"});
    QVariantMap first = messages[0].toMap();
    first.insert(QStringLiteral("from"), QStringLiteral("Ann <ann@example.org>"));
    first.insert(QStringLiteral("subject"), QStringLiteral("Q&A\nsecond line"));
    messages[0] = first;
    container.writeSnapshot(ada, QStringLiteral("inbox"), messages);
    const WatchOutcome r = run({"--list", "--format", "waybar"});
    EXPECT_EQ(r.exitCode, 0);
    const QJsonObject line = object(r.out);
    EXPECT_EQ(line["text"], "7");
    EXPECT_EQ(line["tooltip"], "Ann &lt;ann@example.org&gt;: Q&amp;A second line\nSender 2: Subject 2\n"
                               "Sender 3: Subject 3\nSender 4: Subject 4\nSender 5: Subject 5\nand 2 more");
}

TEST(ListWatch, PlainWatchPrintsTheJsonArrayOnOneLineAndEndsOnSigint) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    QVariantList messages = TempContainer::inboxMessages(ada, {"1", "2"});
    QVariantMap odd = messages[1].toMap();
    odd.insert(QStringLiteral("subject"), QStringLiteral("tab\tquote\" ä \u2028"));
    messages[1] = odd;
    container.writeSnapshot(ada, QStringLiteral("inbox"), messages);
    const WatchOutcome listed = run({"--list", "--json"});
    // The --json array, byte for byte as Qt writes it compact.
    const QByteArray expected = QJsonDocument::fromJson(listed.out).toJson(QJsonDocument::Compact) + '\n';
    ASSERT_EQ(QJsonDocument::fromJson(listed.out).array().size(), 2);

    Program program({"--list", "--watch"});
    EXPECT_EQ(program.nextLine(startBoundMs), expected);
    EXPECT_EQ(run({"--list", "--format", "json"}).out, expected);
    ASSERT_EQ(::kill(static_cast<pid_t>(program.process().processId()), SIGINT), 0);
    expectCleanEnd(program.process());
}

TEST(ListWatch, AMissingSharedFolderIsSaidAndWatchedUntilItComes) {
    QTemporaryDir root;
    const QString box = root.path() + QStringLiteral("/later/box");
    TempContainer made; // written whole elsewhere, then moved into place at once
    made.writeAccounts({TempContainer::account(ada)});
    made.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"1"}));

    Program program({"--list", "--watch", "--format", "waybar", "--interval", "3600", "--container", box});
    const QJsonObject missing = object(program.nextLine(startBoundMs));
    EXPECT_EQ(missing["class"], StatusLine::State::noFolder);
    EXPECT_EQ(missing["alt"], StatusLine::State::noFolder);
    EXPECT_EQ(missing["text"], "0");
    EXPECT_TRUE(missing["tooltip"].toString().startsWith("No shared folder"))
        << missing["tooltip"].toString().toStdString();

    ASSERT_TRUE(QDir().mkpath(root.path() + QStringLiteral("/later")));
    ASSERT_TRUE(QDir().rename(made.root(), box));
    const QByteArray came = program.nextLine(changeBoundMs);
    ASSERT_FALSE(came.isEmpty()) << "the shared folder made later was not seen";
    EXPECT_EQ(object(came)["class"], StatusLine::State::mail);
    EXPECT_EQ(object(came)["text"], "1");
    ASSERT_TRUE(QDir().rename(box, made.root())); // for the container's own clean-up

    program.process().terminate();
    expectCleanEnd(program.process());
    EXPECT_TRUE(program.process().readAllStandardError().contains("no shared container at " + box.toUtf8()));
}

TEST(ListWatch, AClosedOutputEndsTheWatchCleanly) {
    // A shell pipeline whose reader takes the first line and goes, as a bar that quits: the watch
    // must end by itself with status 0, without waiting an hour for its next periodic update.
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"1"}));
    // A first reading makes the lock files, whose making would otherwise be a change the watch reads
    // the folder for (and finds the output closed then): here nothing changes after the start.
    ASSERT_EQ(run({"--list"}).exitCode, 0);
    QProcess shell;
    shell.start(
        QStringLiteral("bash"),
        // killed after 10 s at the latest, so that a watch that does not end is not left behind
        {"-c", QStringLiteral("timeout -s KILL 10 '%1' --list --watch --format text --interval 3600 | "
                              "head -n 1; "
                              "echo \"status ${PIPESTATUS[0]}\"")
                   .arg(QStringLiteral(CORVINA_TODAY_BINARY))});
    ASSERT_TRUE(shell.waitForFinished(startBoundMs));
    EXPECT_EQ(shell.readAllStandardOutput(), "1 · Sender 1: Subject 1\nstatus 0\n");
}

TEST(ListWatch, PlainTextNamesTheCountAndTheNewestOrTheMissingFolder) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"1", "2", "3"}));
    EXPECT_EQ(run({"--list", "--format", "text"}).out, "3 · Sender 1: Subject 1\n");
    container.writeSnapshot(ada, QStringLiteral("inbox"), {});
    EXPECT_EQ(run({"--list", "--format", "text"}).out, "0\n");
    const WatchOutcome missing = run({"--list", "--format", "text", "--container", "/nonexistent/box"});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_EQ(missing.out, "no shared folder\n");
    EXPECT_EQ(missing.err, "corvina-today: no shared container at /nonexistent/box\n");
}

TEST(ListWatch, WatchOrFormatWithoutListIsAUsageError) {
    for (const QStringList& arguments : {QStringList{"--watch"}, QStringList{"--format", "waybar"},
                                         QStringList{"--watch", "--format", "text"}}) {
        const WatchOutcome r = run(arguments);
        EXPECT_EQ(r.exitCode, 2) << arguments.join(' ').toStdString();
        EXPECT_EQ(r.err, "corvina-today: --watch and --format go with --list (corvina-today --list --watch "
                         "[--format NAME])\n");
        EXPECT_TRUE(r.out.isEmpty());
    }
}

TEST(ListWatch, AnUnknownFormatIsAUsageErrorNamingTheKnownOnes) {
    const WatchOutcome r = run({"--list", "--watch", "--format", "i3bar"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "corvina-today: unknown --format \"i3bar\"; the formats are json, waybar, text\n");
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_EQ(StatusLine::formatNames, (QStringList{"json", "waybar", "text"}));
    const WatchOutcome both = run({"--list", "--json", "--format", "json"});
    EXPECT_EQ(both.exitCode, 2);
    EXPECT_TRUE(both.err.contains("--json and --format")) << both.err.toStdString();
    const WatchOutcome interval = run({"--list", "--interval", "5"});
    EXPECT_EQ(interval.exitCode, 2) << "--interval goes with --list only when it watches";
    const WatchOutcome zero = run({"--list", "--watch", "--interval", "0"});
    EXPECT_EQ(zero.exitCode, 2);
    EXPECT_EQ(zero.err, "corvina-today: --interval wants a whole number of seconds, 1 or more\n");
}

TEST(ListWatch, HelpAndTheManualPageNameTheOptionsAndFormats) {
    const WatchOutcome r = run({"--help"});
    EXPECT_EQ(r.exitCode, 0);
    QFile manual(QStringLiteral(CORVINA_SOURCE_DIR "/resources/man/corvina-today.1"));
    ASSERT_TRUE(manual.open(QIODevice::ReadOnly));
    const QByteArray page = manual.readAll();
    for (const char* option : {"watch", "format"}) {
        EXPECT_TRUE(r.out.contains(QByteArray("--") + option)) << option;
        EXPECT_TRUE(page.contains(QByteArray("\\-\\-") + option)) << option;
    }
    for (const QString& name : StatusLine::formatNames) {
        EXPECT_TRUE(r.out.contains(name.toUtf8())) << name.toStdString();
        EXPECT_TRUE(page.contains(name.toUtf8())) << name.toStdString();
    }
}

namespace {

// The fenced blocks of docs/status-bars.md in the language `language`, as a reader copies them.
QStringList guideBlocks(const QString& language) {
    QFile guide(QStringLiteral(CORVINA_SOURCE_DIR "/docs/status-bars.md"));
    EXPECT_TRUE(guide.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(guide.readAll());
    QStringList blocks;
    const QRegularExpression fence(QStringLiteral("```%1\\n(.*?)```").arg(language),
                                   QRegularExpression::DotMatchesEverythingOption);
    for (auto it = fence.globalMatch(text); it.hasNext();) {
        blocks << it.next().captured(1);
    }
    return blocks;
}

// A command line of the guide run as the bar would run it, on the test's container; checks the
// first line with `first`, then that a rewrite of the snapshot brings a new line, which it checks
// with `second`, and that SIGTERM ends it with status 0.
using LineCheck = std::function<void(const QByteArray&)>;
void runGuideCommand(TempContainer& container, const QString& command, const LineCheck& first,
                     const LineCheck& second) {
    SCOPED_TRACE(command.toStdString());
    QStringList words = command.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    ASSERT_FALSE(words.isEmpty());
    ASSERT_EQ(words.takeFirst(), QStringLiteral("corvina-today"));
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"1"}));
    Program program(words);
    first(program.nextLine(startBoundMs));
    container.writeSnapshot(ada, QStringLiteral("inbox"), TempContainer::inboxMessages(ada, {"2", "1"}));
    second(program.nextLine(changeBoundMs));
    program.process().terminate();
    expectCleanEnd(program.process());
}

} // namespace

TEST(ListWatch, TheGuidesWaybarModuleRunsAndItsIconsAreTheClasses) {
    const QStringList blocks = guideBlocks(QStringLiteral("json"));
    ASSERT_EQ(blocks.size(), 1);
    QJsonParseError error{};
    const QJsonObject config = QJsonDocument::fromJson(blocks[0].toUtf8(), &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    EXPECT_TRUE(config["modules-right"].toArray().contains(QStringLiteral("custom/corvina")));
    const QJsonObject module = config["custom/corvina"].toObject();
    EXPECT_EQ(module["return-type"], "json");
    const QStringList icons = module["format-icons"].toObject().keys();
    EXPECT_EQ(QSet<QString>(icons.begin(), icons.end()),
              (QSet<QString>{StatusLine::State::mail, StatusLine::State::none, StatusLine::State::noFolder}));
    EXPECT_EQ(module["on-click"], "corvina-today");
    // the style sheet names the module's id and the classes the program prints
    const QStringList css = guideBlocks(QStringLiteral("css"));
    ASSERT_EQ(css.size(), 1);
    EXPECT_TRUE(css[0].contains("#custom-corvina." + StatusLine::State::none));
    EXPECT_TRUE(css[0].contains("#custom-corvina." + StatusLine::State::noFolder));

    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    runGuideCommand(
        container, module["exec"].toString(),
        [](const QByteArray& line) {
            EXPECT_EQ(object(line)["text"], "1");
            EXPECT_EQ(object(line)["alt"], StatusLine::State::mail);
        },
        [](const QByteArray& line) { EXPECT_EQ(object(line)["text"], "2"); });
}

TEST(ListWatch, TheGuidesPolybarAndI3blocksCommandsRunAndKeepRunning) {
    const QStringList blocks = guideBlocks(QStringLiteral("ini"));
    ASSERT_EQ(blocks.size(), 2);
    struct Bar {
        QString key;  // the setting that names the command
        QString keep; // the setting that keeps it running and shows each line
    };
    const Bar bars[] = {{QStringLiteral("exec = "), QStringLiteral("tail = true")},
                        {QStringLiteral("command="), QStringLiteral("interval=persist")}};
    TempContainer container;
    container.writeAccounts({TempContainer::account(ada)});
    for (qsizetype i = 0; i < 2; ++i) {
        const QStringList lines = blocks[i].split(QLatin1Char('\n'));
        EXPECT_TRUE(lines.contains(bars[i].keep)) << blocks[i].toStdString();
        const auto command = std::find_if(lines.cbegin(), lines.cend(),
                                          [&](const QString& line) { return line.startsWith(bars[i].key); });
        ASSERT_NE(command, lines.cend()) << blocks[i].toStdString();
        runGuideCommand(
            container, command->mid(bars[i].key.size()),
            [](const QByteArray& line) { EXPECT_EQ(line, "1 · Sender 1: Subject 1\n"); },
            [](const QByteArray& line) { EXPECT_EQ(line, "2 · Sender 2: Subject 2\n"); });
    }
}
