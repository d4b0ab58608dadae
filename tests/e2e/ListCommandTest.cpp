// The corvina-today executable, run as a user or a script runs it, on containers written by the
// host-side writer tool (Python's plistlib: a property-list writer independent of ours).
#include "app/today/ListCommand.h"

#include "support/WriterTool.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

struct ListOutcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

ListOutcome run(const QStringList& arguments,
                const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(CORVINA_TODAY_BINARY), arguments);
    EXPECT_TRUE(process.waitForFinished(30000));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

// Writes a container described by `spec` (the writer tool's JSON) into `root`.
void writeContainer(const QString& root, const QJsonObject& spec) {
    corvina::test::WriterTool::write(root, spec);
}

QJsonObject message(const QString& id, const QString& account, qint64 date, int stid,
                    const QJsonValue& extra = {}) {
    QJsonObject m{{"messageId", id},      {"account", account}, {"subject", "Subject " + id},
                  {"from", "From " + id}, {"folder", "INBOX"},  {"folderStid", stid},
                  {"isUnread", 1},        {"date", date}};
    // one copy of the object: iterators of two temporaries would never meet
    const QJsonObject more = extra.toObject();
    for (auto it = more.begin(); it != more.end(); ++it) {
        m.insert(it.key(), it.value());
    }
    return m;
}

QJsonObject mixedSpec() {
    const QString ada = "ada@example.org";
    const QString bob = "bob@example.org";
    QJsonObject withAvatar = message("a1", ada, 1700000063, 1);
    withAvatar.insert("avatar", QJsonObject{{"png", QJsonArray{2, 2, QJsonArray{1, 2, 3}}}});
    QJsonArray accounts;
    accounts.append(QJsonObject{{"mail", ada}, {"enabled", 1}});
    accounts.append(QJsonObject{{"mail", bob}, {"enabled", "YES"}});
    accounts.append(QJsonObject{{"mail", "off@example.org"}, {"enabled", 0}});
    QJsonArray snapshots;
    snapshots.append(QJsonObject{{"account", ada},
                                 {"file", "a.plist"},
                                 {"format", "xml"},
                                 {"messages", QJsonArray{withAvatar, message("a2", ada, 1600000000, 11)}}});
    snapshots.append(QJsonObject{
        {"account", bob},
        {"file", "b"},
        {"format", "binary"},
        {"messages", QJsonArray{message("b1", bob, 1700000100, 12), QJsonObject{{"subject", "bare"}}}}});
    snapshots.append(QJsonObject{{"account", "off@example.org"},
                                 {"file", "c"},
                                 {"format", "xml"},
                                 {"messages", QJsonArray{message("off", "off@example.org", 1800000000, 1)}}});
    return {{"accounts", accounts}, {"snapshots", snapshots}};
}

QProcessEnvironment environmentWith(const QString& name, const QString& value) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(name, value);
    return environment;
}

} // namespace

TEST(ListCommand, JsonAllPrintsEveryRecordNewestFirst) {
    QTemporaryDir root;
    writeContainer(root.path(), mixedSpec());
    const ListOutcome r = run({"--list", "--json", "--all", "--container", root.path()});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
    const QJsonArray rows = QJsonDocument::fromJson(r.out).array();
    ASSERT_EQ(rows.size(), 4) << r.out.toStdString();
    // 1700000100 rounds to 1700000128, 1700000063 to 1700000000; the bare message is dated 1970
    EXPECT_EQ(rows[0].toObject(), (QJsonObject{{"subject", "Subject b1"},
                                               {"from", "From b1"},
                                               {"account", "bob@example.org"},
                                               {"messageId", "b1"},
                                               {"folderPath", "INBOX"},
                                               {"folderStandardId", 12},
                                               {"unread", true},
                                               {"date", 1700000128},
                                               {"dateString", rows[0]["dateString"]},
                                               {"hasAvatar", false}}));
    // Every row has the keys of the listing's one key list, and only those.
    const QStringList documented = corvina::ListCommand::jsonKeys;
    for (const QJsonValue& row : rows) {
        const QStringList keys = row.toObject().keys();
        EXPECT_EQ(QSet<QString>(keys.begin(), keys.end()),
                  QSet<QString>(documented.begin(), documented.end()));
    }
    EXPECT_EQ(rows[1]["messageId"], "a1");
    EXPECT_EQ(rows[1]["date"], 1700000000);
    EXPECT_EQ(rows[1]["hasAvatar"], true);
    EXPECT_EQ(rows[2]["messageId"], "a2");
    EXPECT_EQ(rows[2]["folderStandardId"], 11);
    EXPECT_EQ(rows[3].toObject(), (QJsonObject{{"subject", "bare"},
                                               {"from", ""},
                                               {"account", ""},
                                               {"messageId", ""},
                                               {"folderPath", ""},
                                               {"folderStandardId", 0},
                                               {"unread", false},
                                               {"date", 0},
                                               {"dateString", rows[3]["dateString"]},
                                               {"hasAvatar", false}}));
    EXPECT_FALSE(rows[3]["dateString"].toString().isEmpty());
}

TEST(ListCommand, TheStoredListChoiceFiltersAndCutsAsTheWidgetDoes) {
    QTemporaryDir root;
    QJsonObject spec = mixedSpec();
    QJsonArray many;
    for (int i = 0; i < 12; ++i) {
        many.append(message(QString("todo%1").arg(i), "ada@example.org", 1500000000 + i * 1000, 11));
    }
    QJsonArray snapshots = spec["snapshots"].toArray();
    snapshots.append(QJsonObject{
        {"account", "ada@example.org"}, {"file", "many"}, {"format", "binary"}, {"messages", many}});
    spec["snapshots"] = snapshots;
    writeContainer(root.path(), spec);
    QTemporaryDir config;
    const QProcessEnvironment environment = environmentWith("XDG_CONFIG_HOME", config.path());
    QDir().mkpath(config.path() + "/corvina");
    auto choose = [&](const QByteArray& value) {
        QFile settings(config.path() + "/corvina/org.corvina.mail.today.conf");
        ASSERT_TRUE(settings.open(QIODevice::WriteOnly | QIODevice::Truncate));
        settings.write("[General]\nsegmented=" + value + "\n");
    };
    // never chosen: every folder, ten rows
    EXPECT_EQ(QJsonDocument::fromJson(run({"--list", "--json", "--container", root.path()}, environment).out)
                  .array()
                  .size(),
              10);
    choose("2"); // To Do: 13 messages of kind 11, cut to the ten newest
    const QJsonArray todo =
        QJsonDocument::fromJson(run({"--list", "--json", "--container", root.path()}, environment).out)
            .array();
    ASSERT_EQ(todo.size(), 10);
    EXPECT_EQ(todo[0]["messageId"], "a2");
    EXPECT_EQ(todo[9]["messageId"], "todo3");
    choose("3"); // Memo
    const QJsonArray memo =
        QJsonDocument::fromJson(run({"--list", "--json", "--container", root.path()}, environment).out)
            .array();
    ASSERT_EQ(memo.size(), 1);
    EXPECT_EQ(memo[0]["messageId"], "b1");
    choose("7"); // no list: nothing shown yet
    const ListOutcome none = run({"--list", "--json", "--container", root.path()}, environment);
    EXPECT_EQ(none.exitCode, 0);
    EXPECT_EQ(QJsonDocument::fromJson(none.out).array().size(), 0);
}

TEST(ListCommand, PlainOutputIsOneLinePerMessage) {
    QTemporaryDir root;
    QJsonObject spec{
        {"accounts", QJsonArray{QJsonObject{{"mail", "a@x.org"}, {"enabled", true}}}},
        {"snapshots",
         QJsonArray{QJsonObject{
             {"account", "a@x.org"},
             {"file", "s"},
             {"messages", QJsonArray{QJsonObject{
                              {"subject", "two\nlines\tand a tab"}, {"from", "Ann"}, {"date", 100}}}}}}}};
    writeContainer(root.path(), spec);
    const ListOutcome r = run({"--list", "--container", root.path()}, environmentWith("TZ", "UTC"));
    EXPECT_EQ(r.exitCode, 0);
    const QList<QByteArray> fields = r.out.trimmed().split('\t');
    ASSERT_EQ(fields.size(), 3) << r.out.toStdString();
    EXPECT_FALSE(fields[0].contains(':')) << "1970 is never today: a date, not a time";
    EXPECT_EQ(fields[1], "Ann");
    EXPECT_EQ(fields[2], "two lines and a tab");
    EXPECT_EQ(r.out.count('\n'), 1);
}

TEST(ListCommand, AnEmptyContainerIsAnEmptyList) {
    QTemporaryDir root;
    const ListOutcome r = run({"--list", "--json", "--container", root.path()});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(QJsonDocument::fromJson(r.out).array().size(), 0);
    EXPECT_TRUE(QJsonDocument::fromJson(r.out).isArray());
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
    const ListOutcome plain = run({"--list", "--container", root.path()});
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_TRUE(plain.out.isEmpty());
}

TEST(ListCommand, NoContainerIsAnEmptyListAndOneLineOnStderr) {
    const ListOutcome unset = run({"--list", "--json"}, environmentWith("CORVINA_GROUP_CONTAINER", ""));
    EXPECT_EQ(unset.exitCode, 0);
    EXPECT_TRUE(QJsonDocument::fromJson(unset.out).isArray());
    EXPECT_EQ(QJsonDocument::fromJson(unset.out).array().size(), 0);
    EXPECT_EQ(unset.err, "corvina-today: no shared container (CORVINA_GROUP_CONTAINER is set but empty)\n");
    const ListOutcome missing = run({"--list", "--json", "--container", "/nonexistent/box"});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_EQ(QJsonDocument::fromJson(missing.out).array().size(), 0);
    EXPECT_EQ(missing.err, "corvina-today: no shared container at /nonexistent/box\n");
}

TEST(ListCommand, ARefusedAccountListIsAnEmptyListAndSaidOnStderr) {
    QTemporaryDir root;
    writeContainer(root.path(), mixedSpec());
    // Over the bound on objects: the array and 131 072 empty dictionaries.
    const QString accounts = root.path() + "/SharedData/Accounts.plist";
    QFile file(accounts);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><array>");
    for (int i = 0; i < 131072; ++i)
        file.write("<dict/>");
    file.write("</array></plist>\n");
    file.close();
    const QByteArray said = "corvina-today: refused the account list " + accounts.toUtf8() +
                            " (XML property list holds more than 131072 objects): no account is read\n";
    for (const QStringList& arguments : {QStringList{"--list", "--json", "--all"}, QStringList{"--list"},
                                         QStringList{"--list", "--format", "text"}}) {
        const ListOutcome r = run(arguments + QStringList{"--container", root.path()});
        EXPECT_EQ(r.exitCode, 0) << arguments.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains(said)) << r.err.toStdString();
        EXPECT_TRUE(
            r.err.contains("Accounts error deserialize XML property list holds more than 131072 objects"))
            << r.err.toStdString();
        if (arguments.contains("--json"))
            EXPECT_EQ(QJsonDocument::fromJson(r.out).array().size(), 0);
        else if (arguments.contains("text"))
            EXPECT_EQ(r.out, "0\n");
        else
            EXPECT_TRUE(r.out.isEmpty());
    }
}

TEST(ListCommand, JsonOrAllWithoutListIsAUsageError) {
    const ListOutcome r = run({"--json"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "corvina-today: --json and --all go with --list\n");
}

TEST(ListCommand, HelpNamesTheOptions) {
    const ListOutcome r = run({"--help"});
    EXPECT_EQ(r.exitCode, 0);
    for (const char* option : {"--list", "--json", "--all", "--container"}) {
        EXPECT_TRUE(r.out.contains(option)) << option;
    }
}

TEST(ListCommand, TheDemoMailboxListsItsEnabledAccounts) {
    const ListOutcome r = run(
        {"--list", "--json", "--all", "--container", QStringLiteral(CORVINA_SOURCE_DIR) + "/resources/demo"});
    EXPECT_EQ(r.exitCode, 0);
    const QJsonArray rows = QJsonDocument::fromJson(r.out).array();
    EXPECT_EQ(rows.size(), 24);
    int withAvatar = 0;
    QSet<int> kinds;
    for (const QJsonValue& row : rows) {
        EXPECT_NE(row["account"], "old.address@example.net") << "a switched-off account is not shown";
        withAvatar += row["hasAvatar"].toBool() ? 1 : 0;
        kinds.insert(row["folderStandardId"].toInt());
    }
    EXPECT_GT(withAvatar, 3);
    EXPECT_TRUE(kinds.contains(1) && kinds.contains(11) && kinds.contains(12));
}

// The JSON is written row by row, yet its bytes are those Qt's JSON writer makes of the same
// document: negative and fractional numbers, dates before 1970, texts with quotes, backslashes,
// control characters and characters beyond ASCII (compact, for a status bar, as well).
TEST(ListCommand, JsonIsByteForByteWhatQtsWriterMakesOfIt) {
    QTemporaryDir root;
    const QString ada = "ada@example.org";
    QJsonArray messages;
    messages.append(message("neg", ada, -100000, -7));
    messages.append(message("frac", ada, 1600000000, 0, QJsonObject{{"isUnread", 2.5}, {"folderStid", 2.5}}));
    messages.append(message("big", ada, 1500000000, 0, QJsonObject{{"folderStid", 4611686018427387904.0}}));
    messages.append(
        message("odd", ada, 1400000000, 3,
                QJsonObject{{"subject", QString::fromUtf8("\"quoted\" \\ tab\t bell\x07 caf\xc3\xa9 "
                                                          "\xf0\x9f\x98\x80")},
                            {"from", ""}}));
    const QJsonObject spec{
        {"accounts", QJsonArray{QJsonObject{{"mail", ada}, {"enabled", 1}}}},
        {"snapshots", QJsonArray{QJsonObject{
                          {"account", ada}, {"file", "s"}, {"format", "binary"}, {"messages", messages}}}}};
    writeContainer(root.path(), spec);
    const ListOutcome indented = run({"--list", "--json", "--all", "--container", root.path()});
    ASSERT_EQ(indented.exitCode, 0) << indented.err.toStdString();
    const QJsonDocument document = QJsonDocument::fromJson(indented.out);
    ASSERT_EQ(document.array().size(), 4) << indented.out.toStdString();
    EXPECT_EQ(indented.out.toStdString(), document.toJson(QJsonDocument::Indented).toStdString());
    EXPECT_TRUE(indented.out.contains("\"folderStandardId\": -7")) << indented.out.toStdString();

    const ListOutcome compact = run({"--list", "--format", "json", "--container", root.path()});
    ASSERT_EQ(compact.exitCode, 0) << compact.err.toStdString();
    EXPECT_EQ(compact.out.toStdString(),
              (QJsonDocument::fromJson(compact.out).toJson(QJsonDocument::Compact) + "\n").toStdString());
}

// Past printable ASCII, which is answered without the category table: DEL, a C1 control and the
// line and paragraph separators still become spaces, other characters (accents, symbols) stay.
TEST(ListCommand, PlainOutputTurnsEveryLineBreakingCharacterIntoASpace) {
    QTemporaryDir root;
    QJsonObject spec{
        {"accounts", QJsonArray{QJsonObject{{"mail", "a@x.org"}, {"enabled", true}}}},
        {"snapshots",
         QJsonArray{QJsonObject{
             {"account", "a@x.org"},
             {"file", "s"},
             {"messages", QJsonArray{QJsonObject{
                              {"subject", QStringLiteral("a\u007Fb\u0085c\u2028d\u2029e ~\u00E9\u20AC")},
                              {"from", "Ann"},
                              {"date", 100}}}}}}}};
    writeContainer(root.path(), spec);
    const ListOutcome r = run({"--list", "--container", root.path()}, environmentWith("TZ", "UTC"));
    EXPECT_EQ(r.exitCode, 0);
    const QList<QByteArray> fields = r.out.trimmed().split('\t');
    ASSERT_EQ(fields.size(), 3) << r.out.toStdString();
    EXPECT_EQ(QString::fromUtf8(fields[2]), QStringLiteral("a b c d e ~\u00E9\u20AC"));
    EXPECT_EQ(r.out.count('\n'), 1);
}
