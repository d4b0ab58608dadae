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
             "[loop]\nmail = c@example.org\nhost = 127.0.0.1\nsecurity = none\nport = 1143\n"
             "[six]\nmail = d@example.org\nhost = ::1\nsecurity = none\n"
             "[other]\nmail = e@example.org\nhost = 127.0.0.2\nsecurity = none\n"
             "[alike]\nmail = f@example.org\nhost = 127.0.0.1.example.org\nsecurity = none\n");
    EXPECT_EQ(
        config.account(QStringLiteral("remote"))->problem,
        QStringLiteral("security none is only allowed for 127.0.0.1 or localhost, not imap.example.org"));
    // every loopback address is this machine; a name that only starts like one is not
    EXPECT_EQ(config.account(QStringLiteral("six"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("other"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("alike"))->problem,
              QStringLiteral(
                  "security none is only allowed for 127.0.0.1 or localhost, not 127.0.0.1.example.org"));
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

TEST_F(BridgeConfigTest, AuthIsPasswordUnlessSaidOtherwise) {
    const BridgeConfig config = load("[a]\nmail = a@example.org\nhost = h\n"
                                     "[b]\nmail = b@example.org\nhost = h\nauth = Password\n");
    EXPECT_EQ(config.account(QStringLiteral("a"))->auth, BridgeConfig::Auth::Password);
    EXPECT_EQ(config.account(QStringLiteral("a"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("b"))->auth, BridgeConfig::Auth::Password);
    EXPECT_EQ(config.account(QStringLiteral("b"))->problem, QString());
    EXPECT_EQ(BridgeConfig::authName(BridgeConfig::Auth::Password), QStringLiteral("password"));
    EXPECT_EQ(BridgeConfig::authName(BridgeConfig::Auth::OAuth2), QStringLiteral("oauth2"));
    EXPECT_EQ(BridgeConfig::authName(BridgeConfig::Auth::Goa), QStringLiteral("goa"));
}

TEST_F(BridgeConfigTest, TheTokenKeysAreRead) {
    const BridgeConfig config = load(
        "[cmd]\nmail = a@example.org\nhost = h\nauth = oauth2\ntokenCommand = \"oauth-helper --account a\"\n"
        "[own]\nmail = b@example.org\nhost = h\nauth = OAuth2\noauthProvider = custom\n"
        "oauthClientId = corvina-test\noauthClientSecret = s3cret\n"
        "oauthAuthorizeUrl = https://id.example.org/authorize\n"
        "oauthTokenUrl = http://127.0.0.1:8080/token\noauthScope = \"imap offline\"\n"
        "[ms]\nmail = c@example.org\nhost = h\nauth = oauth2\noauthProvider = Microsoft\n"
        "[desk]\nmail = d@example.org\nhost = h\nauth = goa\ngoaId = account_1700000000_0\n");
    const BridgeConfig::Account* cmd = config.account(QStringLiteral("cmd"));
    EXPECT_EQ(cmd->problem, QString());
    EXPECT_EQ(cmd->auth, BridgeConfig::Auth::OAuth2);
    EXPECT_EQ(cmd->tokenCommand, QStringLiteral("oauth-helper --account a"));
    EXPECT_TRUE(cmd->oauthProvider.isEmpty());
    const BridgeConfig::Account* own = config.account(QStringLiteral("own"));
    EXPECT_EQ(own->problem, QString());
    EXPECT_EQ(own->auth, BridgeConfig::Auth::OAuth2);
    EXPECT_EQ(own->oauthProvider, QStringLiteral("custom"));
    EXPECT_EQ(own->oauthClientId, QStringLiteral("corvina-test"));
    EXPECT_EQ(own->oauthClientSecret, QStringLiteral("s3cret"));
    EXPECT_EQ(own->oauthAuthorizeUrl, QStringLiteral("https://id.example.org/authorize"));
    EXPECT_EQ(own->oauthTokenUrl, QStringLiteral("http://127.0.0.1:8080/token"));
    EXPECT_EQ(own->oauthScope, QStringLiteral("imap offline"));
    EXPECT_EQ(config.account(QStringLiteral("ms"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("ms"))->oauthProvider, QStringLiteral("microsoft"));
    const BridgeConfig::Account* desk = config.account(QStringLiteral("desk"));
    EXPECT_EQ(desk->problem, QString());
    EXPECT_EQ(desk->auth, BridgeConfig::Auth::Goa);
    EXPECT_EQ(desk->goaId, QStringLiteral("account_1700000000_0"));
}

TEST_F(BridgeConfigTest, EachWayOfLoggingInNeedsItsKeysAndNoOthers) {
    const BridgeConfig config = load(
        "[word]\nmail = a@example.org\nhost = h\nauth = kerberos\n"
        "[bare]\nmail = b@example.org\nhost = h\nauth = oauth2\n"
        "[which]\nmail = c@example.org\nhost = h\nauth = oauth2\noauthProvider = yahoo\n"
        "[both]\nmail = d@example.org\nhost = h\nauth = oauth2\ntokenCommand = t\noauthProvider = google\n"
        "[custom]\nmail = e@example.org\nhost = h\nauth = oauth2\noauthProvider = custom\n"
        "[goa]\nmail = f@example.org\nhost = h\nauth = goa\n"
        "[pw]\nmail = g@example.org\nhost = h\nauth = oauth2\ntokenCommand = t\npasswordCommand = p\n"
        "[stray]\nmail = i@example.org\nhost = h\ntokenCommand = t\ngoaId = x\noauthProvider = google\n"
        "oauthClientId = id\n");
    EXPECT_EQ(config.account(QStringLiteral("word"))->problem,
              QStringLiteral("auth must be password, oauth2 or goa, not kerberos"));
    EXPECT_EQ(config.account(QStringLiteral("bare"))->problem,
              QStringLiteral("auth = oauth2 needs a tokenCommand or an oauthProvider "
                             "(google, microsoft, custom or discover)"));
    EXPECT_EQ(config.account(QStringLiteral("which"))->problem,
              QStringLiteral("oauthProvider must be google, microsoft, custom or discover, not yahoo"));
    EXPECT_EQ(config.account(QStringLiteral("both"))->problem,
              QStringLiteral("tokenCommand and oauthProvider cannot both be set; remove one"));
    EXPECT_EQ(config.account(QStringLiteral("custom"))->problem,
              QStringLiteral("oauthProvider custom needs oauthAuthorizeUrl; oauthProvider custom needs "
                             "oauthTokenUrl; oauthProvider custom needs oauthScope"));
    EXPECT_EQ(config.account(QStringLiteral("goa"))->problem, QStringLiteral("auth = goa needs goaId"));
    EXPECT_EQ(config.account(QStringLiteral("pw"))->problem,
              QStringLiteral("passwordCommand is only for auth = password; remove passwordCommand or auth"));
    EXPECT_EQ(
        config.account(QStringLiteral("stray"))->problem,
        QStringLiteral("tokenCommand is only for auth = oauth2; remove tokenCommand or set auth = oauth2; "
                       "goaId is only for auth = goa; remove goaId or set auth = goa; "
                       "oauthProvider is only for auth = oauth2; remove it or set auth = oauth2; "
                       "oauthClientId is only for auth = oauth2 with an oauthProvider; remove it"));
}

TEST_F(BridgeConfigTest, ADiscoveredProvidersIssuerIsReadAndChecked) {
    const BridgeConfig config =
        load("[disc]\nmail = a@example.org\nhost = h\nauth = oauth2\noauthProvider = discover\n"
             "oauthIssuer = http://127.0.0.1:8080\n"
             "[plain]\nmail = b@example.org\nhost = h\nauth = oauth2\noauthProvider = discover\n"
             "oauthIssuer = http://auth.example.org\n"
             "[other]\nmail = c@example.org\nhost = h\nauth = oauth2\noauthProvider = google\n"
             "oauthIssuer = https://auth.example.org\n");
    EXPECT_EQ(config.account(QStringLiteral("disc"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("disc"))->oauthIssuer, QStringLiteral("http://127.0.0.1:8080"));
    EXPECT_EQ(
        config.account(QStringLiteral("plain"))->problem,
        QStringLiteral("oauthIssuer must be an https URL (http only for 127.0.0.1, ::1 or localhost), not "
                       "http://auth.example.org"));
    EXPECT_EQ(config.account(QStringLiteral("other"))->problem,
              QStringLiteral("oauthIssuer is only for oauthProvider discover; remove it"));
}

TEST_F(BridgeConfigTest, AProvidersEndpointsAreHttpsOrOnThisMachine) {
    const auto head = [](const char* mail) {
        return "mail = " + QByteArray(mail) +
               "\nhost = h\nauth = oauth2\noauthProvider = custom\noauthScope = s\n";
    };
    const BridgeConfig config = load(
        "[plain]\n" + head("a@example.org") +
        "oauthAuthorizeUrl = http://id.example.org/authorize\n"
        "oauthTokenUrl = https://id.example.org/token\n"
        "[loop]\n" +
        head("b@example.org") +
        "oauthAuthorizeUrl = http://localhost:9000/authorize\n"
        "oauthTokenUrl = \"http://[::1]:9000/token\"\n"
        "[junk]\n" +
        head("c@example.org") + "oauthAuthorizeUrl = not a url\noauthTokenUrl = ftp://127.0.0.1/token\n");
    EXPECT_EQ(config.account(QStringLiteral("plain"))->problem,
              QStringLiteral("oauthAuthorizeUrl must be an https URL (http only for 127.0.0.1, ::1 or "
                             "localhost), not http://id.example.org/authorize"));
    EXPECT_EQ(config.account(QStringLiteral("loop"))->problem, QString());
    EXPECT_EQ(config.account(QStringLiteral("junk"))->problem,
              QStringLiteral("oauthAuthorizeUrl not a url is not a URL; oauthTokenUrl must be an https URL "
                             "(http only for 127.0.0.1, ::1 or localhost), not ftp://127.0.0.1/token"));
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
