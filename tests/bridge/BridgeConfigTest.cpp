// bridge.conf as a user writes it: defaults, and one clear problem line for each bad value.
#include "bridge/config/BridgeConfig.h"

#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class BridgeConfigTest : public ::testing::Test {
protected:
    BridgeConfig load(const QByteArray& text) {
        const QString path = dir.filePath(QStringLiteral("bridge.conf"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
        file.close();
        return BridgeConfig::load(path);
    }
    QTemporaryDir dir;
};

TEST_F(BridgeConfigTest, DefaultsFillWhatTheUserLeftOut) {
    const BridgeConfig config = load("[work]\nmail = ada@example.org\nhost = imap.example.org\n");
    ASSERT_EQ(config.accounts().size(), 1);
    const BridgeConfig::Account& a = config.accounts().first();
    EXPECT_EQ(a.problem, QString());
    EXPECT_EQ(a.name, QStringLiteral("work"));
    EXPECT_EQ(a.security, BridgeConfig::Security::Tls);
    EXPECT_EQ(a.port, 993);
    EXPECT_EQ(a.user, QStringLiteral("ada@example.org"));
    EXPECT_TRUE(a.enabled);
    EXPECT_EQ(a.inbox, QStringLiteral("INBOX"));
    EXPECT_TRUE(a.todo.isEmpty());
    EXPECT_TRUE(a.memo.isEmpty());
    EXPECT_TRUE(a.archive.isEmpty());
    EXPECT_TRUE(a.trash.isEmpty());
    EXPECT_TRUE(a.openCommand.isEmpty());
    EXPECT_TRUE(a.composeCommand.isEmpty());
    EXPECT_EQ(a.messages, 50);
}

TEST_F(BridgeConfigTest, CommandFoldersAndMailClientCommandsAreRead) {
    const BridgeConfig config =
        load("[work]\nmail = ada@example.org\nhost = imap.example.org\narchive = Old Mail\ntrash = Bin\n"
             "openCommand = \"mail-client --message %m\"\ncomposeCommand = mail-client --compose %u\n");
    ASSERT_EQ(config.accounts().size(), 1);
    const BridgeConfig::Account& a = config.accounts().first();
    EXPECT_EQ(a.problem, QString());
    EXPECT_EQ(a.archive, QStringLiteral("Old Mail"));
    EXPECT_EQ(a.trash, QStringLiteral("Bin"));
    EXPECT_EQ(a.openCommand, QStringLiteral("mail-client --message %m"));
    EXPECT_EQ(a.composeCommand, QStringLiteral("mail-client --compose %u"));
}

TEST_F(BridgeConfigTest, StartTlsDefaultsToPort143AndValuesAreRead) {
    const BridgeConfig config =
        load("[home]\nmail = me@example.net\nhost = mail.example.net\nsecurity = STARTTLS\nuser = me\n"
             "enabled = false\ninbox = Incoming\ntodo = Tasks\nmemo = Notes\nmessages = 20\n"
             "passwordCommand = \"pass show mail/home, personal\"\n");
    ASSERT_EQ(config.accounts().size(), 1);
    const BridgeConfig::Account& a = config.accounts().first();
    EXPECT_EQ(a.problem, QString());
    EXPECT_EQ(a.security, BridgeConfig::Security::StartTls);
    EXPECT_EQ(a.port, 143);
    EXPECT_EQ(a.user, QStringLiteral("me"));
    EXPECT_FALSE(a.enabled);
    EXPECT_EQ(a.inbox, QStringLiteral("Incoming"));
    EXPECT_EQ(a.todo, QStringLiteral("Tasks"));
    EXPECT_EQ(a.memo, QStringLiteral("Notes"));
    EXPECT_EQ(a.messages, 20);
    EXPECT_EQ(a.passwordCommand, QStringLiteral("pass show mail/home, personal"));
}

TEST_F(BridgeConfigTest, EachBadValueIsNamedAndTheOtherAccountsStayUsable) {
    const BridgeConfig config = load("[bad]\nmail = x@example.org\nhost = imap.example.org\nport = 99999\n"
                                     "security = ssl\nenabled = maybe\nmessages = 0\ncolour = blue\n"
                                     "[good]\nmail = y@example.org\nhost = imap.example.org\n");
    ASSERT_EQ(config.accounts().size(), 2);
    const QString problem = config.account(QStringLiteral("bad"))->problem;
    EXPECT_TRUE(problem.contains(QStringLiteral("port must be a number from 1 to 65535, not 99999")))
        << problem.toStdString();
    EXPECT_TRUE(problem.contains(QStringLiteral("security must be tls, starttls or none, not ssl")));
    EXPECT_TRUE(problem.contains(QStringLiteral("enabled must be true or false, not maybe")));
    EXPECT_TRUE(problem.contains(QStringLiteral("messages must be a number from 1 to 1000, not 0")));
    EXPECT_TRUE(problem.contains(QStringLiteral("unknown key colour")));
    EXPECT_EQ(config.account(QStringLiteral("good"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("y@example.org"))->name, QStringLiteral("good"));
}

TEST_F(BridgeConfigTest, PlainTextIsOnlyForThisMachine) {
    const BridgeConfig config =
        load("[remote]\nmail = a@example.org\nhost = imap.example.org\nsecurity = none\n"
             "[local]\nmail = b@example.org\nhost = localhost\nsecurity = none\n"
             "[loop]\nmail = c@example.org\nhost = 127.0.0.1\nsecurity = none\nport = 1143\n");
    EXPECT_EQ(
        config.account(QStringLiteral("remote"))->problem,
        QStringLiteral("security none is only allowed for 127.0.0.1 or localhost, not imap.example.org"));
    EXPECT_EQ(config.account(QStringLiteral("local"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("local"))->port, 143);
    EXPECT_EQ(config.account(QStringLiteral("loop"))->port, 1143);
}

TEST_F(BridgeConfigTest, MissingKeysAndCollidingMailsAreProblems) {
    const BridgeConfig config = load("[empty]\nenabled = true\n"
                                     "[one]\nmail = a@example.org\nhost = h\n"
                                     "[two]\nmail = a@example.org\nhost = h\n"
                                     "[slash]\nmail = a/b\nhost = h\n"
                                     "[wide]\nmail = w@example.org\nhost = h\nmemo = Notizen \xc3\xa4\n"
                                     "[tab]\nmail = t@example.org\nhost = h\ntodo = \"To\tDo\"\n");
    EXPECT_EQ(config.account(QStringLiteral("empty"))->problem,
              QStringLiteral("mail is missing; host is missing"));
    EXPECT_EQ(config.account(QStringLiteral("one"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("two"))->problem,
              QStringLiteral("mail a@example.org is already used by another account"));
    EXPECT_TRUE(
        config.account(QStringLiteral("slash"))->problem.contains(QStringLiteral("cannot name a folder")));
    // Any text names a folder; the bridge encodes it for the server.
    EXPECT_EQ(config.account(QStringLiteral("wide"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("wide"))->memo, QStringLiteral("Notizen ") + QChar(0xe4));
    // Except control characters, which are named without being written into the line.
    EXPECT_EQ(config.account(QStringLiteral("tab"))->problem,
              QStringLiteral("todo folder: a folder name cannot hold control characters (U+0009)"));
}

TEST_F(BridgeConfigTest, PollIsFiveMinutesUnlessGeneralOrTheAccountSaysOtherwise) {
    EXPECT_EQ(load("[a]\nmail = a@example.org\nhost = h\n").account(QStringLiteral("a"))->pollSeconds, 300);
    const BridgeConfig config = load("[General]\npoll = 120\n"
                                     "[a]\nmail = a@example.org\nhost = h\n"
                                     "[b]\nmail = b@example.org\nhost = h\npoll = 60\n"
                                     "[c]\nmail = c@example.org\nhost = h\npoll = 0\n");
    EXPECT_EQ(config.account(QStringLiteral("a"))->pollSeconds, 120);
    EXPECT_EQ(config.account(QStringLiteral("b"))->pollSeconds, 60);
    EXPECT_EQ(config.account(QStringLiteral("b"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("c"))->problem,
              QStringLiteral("poll must be a number of seconds from 1 to 86400, not 0"));
    // A bad default concerns every account.
    const BridgeConfig bad = load("[General]\npoll = often\n[a]\nmail = a@example.org\nhost = h\n");
    EXPECT_EQ(bad.account(QStringLiteral("a"))->problem,
              QStringLiteral("[General] poll must be a number of seconds from 1 to 86400, not often"));
}

TEST_F(BridgeConfigTest, ACaFileIsAReadableFileFoundBesideTheConfig) {
    QFile ca(dir.filePath(QStringLiteral("ca.pem")));
    ASSERT_TRUE(ca.open(QIODevice::WriteOnly));
    ca.close();
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("certs")));
    const BridgeConfig config = load("[good]\nmail = a@example.org\nhost = h\ncaFile = ca.pem\n"
                                     "[absent]\nmail = b@example.org\nhost = h\ncaFile = none.pem\n"
                                     "[folder]\nmail = c@example.org\nhost = h\ncaFile = certs\n");
    EXPECT_EQ(config.account(QStringLiteral("good"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("good"))->caFile, dir.filePath(QStringLiteral("ca.pem")));
    EXPECT_EQ(config.account(QStringLiteral("absent"))->problem,
              QStringLiteral("caFile %1 cannot be read").arg(dir.filePath(QStringLiteral("none.pem"))));
    // A folder is readable, but holds no certificate to load: refused as `account add` refuses it.
    EXPECT_EQ(config.account(QStringLiteral("folder"))->problem,
              QStringLiteral("caFile %1 cannot be read").arg(dir.filePath(QStringLiteral("certs"))));
    EXPECT_EQ(BridgeConfig::caFileProblem(dir.filePath(QStringLiteral("ca.pem"))), QString());
}

TEST_F(BridgeConfigTest, NoFileIsNoAccounts) {
    const BridgeConfig config = BridgeConfig::load(dir.filePath(QStringLiteral("absent.conf")));
    EXPECT_FALSE(config.exists());
    EXPECT_TRUE(config.accounts().isEmpty());
}

TEST_F(BridgeConfigTest, TheDefaultFileIsInTheUsersConfigFolder) {
    ScopedEnvironment home("XDG_CONFIG_HOME", dir.path().toUtf8());
    EXPECT_EQ(BridgeConfig::defaultPath(), dir.path() + QStringLiteral("/corvina/bridge.conf"));
}

} // namespace
} // namespace corvina::test
