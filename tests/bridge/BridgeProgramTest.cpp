// corvina-mail-bridge as a user runs it, against the test's own Dovecot.
#include "BridgeTesting.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

using Outcome = BridgeRun;

class BridgeProgramTest : public BridgeServerTest {
protected:
    Outcome run(const QStringList& arguments, const QString& config,
                QProcessEnvironment environment = QProcessEnvironment::systemEnvironment()) {
        return runBridge(arguments, config, QByteArray(), environment);
    }

    static QStringList lines(const QString& text) { return text.split(u'\n', Qt::SkipEmptyParts); }
};

TEST_F(BridgeProgramTest, HelpNamesEveryCommand) {
    const Outcome o = run({QStringLiteral("--help")}, writeConfig({}));
    EXPECT_EQ(o.exitCode, 0);
    for (const char* word :
         {"--once", "account add", "account list", "account password ACCOUNT", "account remove ACCOUNT",
          "check [ACCOUNT]", "bridge.conf", "Secret Service", "passwordCommand", "Exit status"})
        EXPECT_TRUE(o.out.contains(QLatin1String(word))) << word;
}

TEST_F(BridgeProgramTest, OnceSyncsTheAccountsForTheWidget) {
    deliver(QStringLiteral("Hello from the server"));
    const Outcome o = run({QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), accountKeys()}}));
    EXPECT_EQ(o.exitCode, 0) << o.err.toStdString();
    EXPECT_EQ(o.err, QString());
    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages.first()->subject(), QStringLiteral("Hello from the server"));
    EXPECT_EQ(messages.first()->account(), Mail);
}

TEST_F(BridgeProgramTest, AWrongPasswordFailsThatAccountWithOneLineAndTheOthersStillSync) {
    server.addUser(QStringLiteral("bob"), QStringLiteral("hunter2"));
    server.deliver(QStringLiteral("bob"), QStringLiteral("INBOX"),
                   DovecotServer::message(QStringLiteral("For Bob"), QStringLiteral("a@example.org"),
                                          QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                          QStringLiteral("<b@x>")));
    const QString config = writeConfig(
        {{QStringLiteral("work"), accountKeys({{"passwordCommand", "echo wrong"}})},
         {QStringLiteral("bob"),
          accountKeys({{"mail", "bob@example.org"}, {"user", "bob"}, {"passwordCommand", "echo hunter2"}})}});
    const Outcome once = run({QStringLiteral("--once")}, config);
    EXPECT_EQ(once.exitCode, 1);
    ASSERT_EQ(lines(once.err).size(), 1) << once.err.toStdString();
    EXPECT_TRUE(lines(once.err).first().startsWith(QStringLiteral("work: login refused for ada")))
        << once.err.toStdString();
    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages.first()->subject(), QStringLiteral("For Bob"));

    const Outcome check = run({QStringLiteral("check"), QStringLiteral("work")}, config);
    EXPECT_EQ(check.exitCode, 1);
    ASSERT_EQ(lines(check.out).size(), 1);
    EXPECT_TRUE(check.out.startsWith(QStringLiteral("work: login refused for ada")))
        << check.out.toStdString();
    const Outcome checkBob = run({QStringLiteral("check"), QStringLiteral("bob@example.org")}, config);
    EXPECT_EQ(checkBob.exitCode, 0);
    EXPECT_EQ(checkBob.out, QStringLiteral("bob: ok\n"));
}

TEST_F(BridgeProgramTest, CheckSaysWhenTheHostIsUnreachable) {
    const QString config = writeConfig({{QStringLiteral("work"), accountKeys()}});
    const quint16 port = server.port();
    server.stop();
    const Outcome o = run({QStringLiteral("check")}, config);
    EXPECT_EQ(o.exitCode, 1);
    EXPECT_EQ(o.out, QStringLiteral("work: host unreachable: 127.0.0.1:%1 (connection refused)\n").arg(port));
}

TEST_F(BridgeProgramTest, CheckAndOnceSayWhichFolderIsMissing) {
    const QString config = writeConfig({{QStringLiteral("work"), accountKeys({{"todo", "Nowhere"}})}});
    const Outcome check = run({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 1);
    ASSERT_EQ(lines(check.out).size(), 1);
    EXPECT_TRUE(check.out.startsWith(QStringLiteral("work: folder missing: Nowhere")))
        << check.out.toStdString();
    const Outcome once = run({QStringLiteral("--once")}, config);
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_TRUE(once.err.startsWith(QStringLiteral("work: folder missing: Nowhere")))
        << once.err.toStdString();
}

TEST_F(BridgeProgramTest, ThePasswordCommandRunsWithoutAShell) {
    // A password that a shell would expand; the command's words reach the program as written, and
    // double quotes keep a word with spaces together.
    server.addUser(QStringLiteral("carol"), QStringLiteral("$NOT_EXPANDED two"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NOT_EXPANDED"), QStringLiteral("expanded"));
    const QString config =
        writeConfig({{QStringLiteral("carol"),
                      accountKeys({{"mail", "carol@example.org"},
                                   {"user", "carol"},
                                   {"passwordCommand", "printf \"%s\\n\" \"$NOT_EXPANDED two\""}})}});
    const Outcome o = run({QStringLiteral("check")}, config, environment);
    EXPECT_EQ(o.exitCode, 0) << o.out.toStdString();
    EXPECT_EQ(o.out, QStringLiteral("carol: ok\n"));
}

TEST_F(BridgeProgramTest, AFailingPasswordCommandOrAnUnreachableSecretServiceIsSaid) {
    const QString config = writeConfig(
        {{QStringLiteral("fails"), accountKeys({{"passwordCommand", "sh -c \"echo locked >&2; exit 3\""}})},
         {QStringLiteral("none"),
          accountKeys({{"mail", "other@example.org"}, {"passwordCommand", QVariant()}})}});
    // A session bus that is not there: the account without a passwordCommand asks the Secret
    // Service for its password, and cannot reach it.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                       QStringLiteral("unix:path=") + configDir.filePath(QStringLiteral("no-bus")));
    const Outcome o = run({QStringLiteral("--once")}, config, environment);
    EXPECT_EQ(o.exitCode, 1);
    const QStringList said = lines(o.err);
    ASSERT_EQ(said.size(), 2) << o.err.toStdString();
    EXPECT_EQ(said[0], QStringLiteral("fails: passwordCommand sh failed with status 3: locked"));
    EXPECT_TRUE(
        said[1].startsWith(QStringLiteral("none: cannot read the password from the Secret Service: ")))
        << said[1].toStdString();
}

TEST_F(BridgeProgramTest, OnceKeepsTheStatusFileOfEveryAccount) {
    QTemporaryDir state;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
    const QString config =
        writeConfig({{QStringLiteral("work"), accountKeys()},
                     {QStringLiteral("wrong"),
                      accountKeys({{"mail", "w@example.org"}, {"passwordCommand", "echo nope"}})}});
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    const Outcome o = run({QStringLiteral("--once")}, config, environment);
    EXPECT_EQ(o.exitCode, 1);
    QFile file(state.filePath(QStringLiteral("corvina/bridge-status.json")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject accounts = QJsonDocument::fromJson(file.readAll()).object()["accounts"].toObject();
    EXPECT_EQ(accounts.keys(), QStringList({QStringLiteral("work"), QStringLiteral("wrong")}));
    const QJsonObject work = accounts["work"].toObject();
    EXPECT_TRUE(work["ok"].toBool());
    EXPECT_EQ(work["mail"].toString(), Mail);
    const QDateTime synced = QDateTime::fromString(work["lastSync"].toString(), Qt::ISODate);
    EXPECT_GE(synced, before);
    EXPECT_LE(synced, QDateTime::currentDateTimeUtc());
    EXPECT_FALSE(work.contains(QStringLiteral("lastError")));
    const QJsonObject wrong = accounts["wrong"].toObject();
    EXPECT_FALSE(wrong["ok"].toBool(true));
    EXPECT_TRUE(wrong["lastError"].toString().startsWith(QStringLiteral("login refused for ada")));
    EXPECT_GE(QDateTime::fromString(wrong["lastErrorTime"].toString(), Qt::ISODate), before);
}

TEST_F(BridgeProgramTest, AccountListShowsEachAccountAndItsProblem) {
    const QString config = writeConfig(
        {{QStringLiteral("work"), accountKeys()},
         {QStringLiteral("wrong"), accountKeys({{"mail", "w@example.org"}, {"host", "imap.example.org"}})}});
    const Outcome o = run({QStringLiteral("account"), QStringLiteral("list")}, config);
    EXPECT_EQ(o.exitCode, 0);
    EXPECT_EQ(
        lines(o.out),
        QStringList(
            {QStringLiteral("work\tada@example.org\tada@127.0.0.1:%1\tnone\tenabled").arg(server.port()),
             QStringLiteral("wrong\tw@example.org\tada@imap.example.org:%1\tnone\tenabled\tproblem: "
                            "security none is only allowed for 127.0.0.1 or localhost, not "
                            "imap.example.org")
                 .arg(server.port())}));
}

TEST_F(BridgeProgramTest, UnknownCommandsAreUsageErrors) {
    const QString config = writeConfig({{QStringLiteral("work"), accountKeys()}});
    EXPECT_EQ(run({QStringLiteral("frobnicate")}, config).exitCode, 2);
    EXPECT_EQ(run({QStringLiteral("check"), QStringLiteral("nobody")}, config).exitCode, 2);
    EXPECT_EQ(run({QStringLiteral("--once"), QStringLiteral("check")}, config).exitCode, 2);
}

} // namespace
} // namespace corvina::test
