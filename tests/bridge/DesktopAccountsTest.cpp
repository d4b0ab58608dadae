// Accounts with auth = goa: the desktop's online accounts, imported with `account import` and
// synced with --once and check against the test's Dovecot, as a person runs the bridge.
//
// Two services stand behind org.gnome.OnlineAccounts here, each on the process's private session
// bus: the real goa-daemon with an "IMAP and SMTP" account (a password it keeps in a real keyring),
// and, for an account that signs in with OAuth 2 (Google's, which no test can have for real), a
// stand-in of the test's own (support/OnlineAccountsStandIn) handing out tokens that the stand-in
// provider (support/OAuthProvider) minted and that Dovecot checks with that provider.
#include "bridge/config/DesktopAccounts.h"

#include "BridgeTesting.h"
#include "KeyringTest.h"
#include "bridge/config/AccountCredential.h"
#include "platform/PropertyList.h"
#include "shared/ConstVars.h"
#include "support/OAuthProvider.h"
#include "support/OnlineAccountsDaemon.h"
#include "support/OnlineAccountsStandIn.h"
#include "support/PrivateSessionBus.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

const QString GoaId = QStringLiteral("account_1700000000_0");

// What every test here shares: a status folder of its own, and a look into every file the bridge
// may have written.
class DesktopAccountsTest : public BridgeServerTest {
protected:
    void SetUp() override {
        // Before anything in this process talks D-Bus: the bus Qt connects to is the private one.
        ASSERT_NE(PrivateSessionBus::instance(), nullptr);
        startServices();
        BridgeServerTest::SetUp();
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
    }
    virtual void startServices() {}

    BridgeRun run(const QStringList& arguments, const QString& config, const QByteArray& input = {}) {
        return runBridge(arguments, config, input, environment);
    }
    QString configPath() const { return configDir.filePath(QStringLiteral("bridge.conf")); }
    // The group `name` of bridge.conf as written.
    QVariantMap group(const QString& name) const {
        QSettings settings(configPath(), QSettings::IniFormat);
        settings.beginGroup(name);
        QVariantMap keys;
        for (const QString& key : settings.childKeys())
            keys.insert(key, settings.value(key));
        return keys;
    }
    QStringList groups() const { return QSettings(configPath(), QSettings::IniFormat).childGroups(); }
    QJsonObject status(const QString& account) const {
        QFile file(state.filePath(QStringLiteral("corvina/bridge-status.json")));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll())
            .object()
            .value(QStringLiteral("accounts"))
            .toObject()
            .value(account)
            .toObject();
    }
    // Every file the bridge may have written (the shared folder, the state folder, bridge.conf's
    // folder) that holds `secret`.
    QStringList filesHolding(const QString& secret) const {
        QStringList found;
        for (const QString& root : {container.root(), state.path(), configDir.path()}) {
            QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                QFile file(it.next());
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains(secret.toUtf8()))
                    found << file.fileName();
            }
        }
        return found;
    }
    static void expectUnsaid(const QString& secret, const QList<BridgeRun>& runs) {
        for (const BridgeRun& r : runs) {
            EXPECT_FALSE(r.out.contains(secret)) << r.out.toStdString();
            EXPECT_FALSE(r.err.contains(secret)) << r.err.toStdString();
        }
    }
    int logins(const QString& user, const QString& method) const {
        return server.log().count(QStringLiteral("Login: user=<%1>, method=%2,").arg(user, method));
    }
    // Logins with a password (IMAP's LOGIN is logged as PLAIN).
    int passwordLogins(const QString& user) const {
        return logins(user, QStringLiteral("PLAIN")) + logins(user, QStringLiteral("LOGIN"));
    }
    int inboxSize() const {
        return snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList().size();
    }

    QTemporaryDir state;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

// ---------------------------------------------------------------------------------------------------
// The real goa-daemon, with an "IMAP and SMTP" account made through its Manager.AddAccount.

class OnlineAccountsDaemonTest : public KeyringTest<DesktopAccountsTest> {
protected:
    // A password no other file of the test holds, so that finding it anywhere means it leaked.
    static inline const QString GracePassword = QStringLiteral("pw-of-grace-4f1c9a");
    static inline const QString GraceMail = QStringLiteral("grace@example.org");

    // The keyring is up by now: the daemon keeps its accounts' passwords there.
    void startServices() override {
        QString error;
        ASSERT_TRUE(goa.start(&error)) << error.toStdString();
    }
    void SetUp() override {
        KeyringTest::SetUp();
        server.addUser(QStringLiteral("grace"), GracePassword);
        QString error;
        id = goa.addImapAccount(GraceMail, QStringLiteral("Grace Hopper"), server.host(), server.port(),
                                QStringLiteral("grace"), GracePassword, &error);
        ASSERT_FALSE(id.isEmpty()) << error.toStdString() << goa.log().toStdString();
        server.deliver(QStringLiteral("grace"), QStringLiteral("INBOX"),
                       DovecotServer::message(QStringLiteral("From the desktop's account"),
                                              QStringLiteral("Ada <ada@example.org>"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<g1@example.org>")));
    }
    void TearDown() override {
        goa.stop();
        KeyringTest::TearDown();
    }
    QVariantList graceInbox() const {
        const PropertyList::Result parsed =
            PropertyList::readFile(container.data() + "/" + corvina::ConstVars::todayFolder + "/" +
                                   GraceMail + QStringLiteral("/inbox.plist"));
        return parsed.ok() ? parsed.value.toMap().value(QStringLiteral("data")).toList() : QVariantList();
    }

    OnlineAccountsDaemon goa;
    QString id;
};

TEST_F(OnlineAccountsDaemonTest, AnImportedAccountSyncsWithThePasswordTheDesktopKeeps) {
    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    EXPECT_EQ(import.exitCode, 0) << import.err.toStdString();
    EXPECT_EQ(import.err, QString());
    EXPECT_TRUE(
        import.out.contains(QStringLiteral("Added account example (grace@example.org) to %1; it signs in "
                                           "through the desktop's online accounts")
                                .arg(configPath())))
        << import.out.toStdString();
    // What the desktop's Mail interface says, and nothing secret.
    const QVariantMap keys = group(QStringLiteral("example"));
    EXPECT_EQ(keys.value(QStringLiteral("auth")).toString(), QStringLiteral("goa"));
    EXPECT_EQ(keys.value(QStringLiteral("goaId")).toString(), id);
    EXPECT_EQ(keys.value(QStringLiteral("mail")).toString(), GraceMail);
    EXPECT_EQ(keys.value(QStringLiteral("name")).toString(), QStringLiteral("Grace Hopper"));
    EXPECT_EQ(keys.value(QStringLiteral("host")).toString(), server.host());
    EXPECT_EQ(keys.value(QStringLiteral("port")).toInt(), server.port());
    EXPECT_EQ(keys.value(QStringLiteral("security")).toString(), QStringLiteral("none"));
    EXPECT_EQ(keys.value(QStringLiteral("user")).toString(), QStringLiteral("grace"));

    const int before = passwordLogins(QStringLiteral("grace"));
    const BridgeRun once = run({QStringLiteral("--once")}, configPath());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    ASSERT_EQ(graceInbox().size(), 1) << once.err.toStdString();
    EXPECT_EQ(graceInbox().first().toMap().value(QStringLiteral("subject")).toString(),
              QStringLiteral("From the desktop's account"));
    const BridgeRun check = run({QStringLiteral("check")}, configPath());
    EXPECT_EQ(check.exitCode, 0) << check.err.toStdString();
    EXPECT_EQ(check.out, QStringLiteral("example: ok\n"));
    // Each logged in with the desktop's password (goa-daemon may have checked it too meanwhile).
    EXPECT_GE(passwordLogins(QStringLiteral("grace")) - before, 2) << server.log().toStdString();

    expectUnsaid(GracePassword, {import, once, check});
    EXPECT_EQ(filesHolding(GracePassword), QStringList());
}

TEST_F(OnlineAccountsDaemonTest, AnsweringNoImportsNothingAndYesImportsOnceThenItIsSkipped) {
    const BridgeRun no =
        run({QStringLiteral("account"), QStringLiteral("import")}, configPath(), QByteArrayLiteral("n\n"));
    EXPECT_EQ(no.exitCode, 0) << no.err.toStdString();
    EXPECT_TRUE(
        no.out.contains(QStringLiteral("Import grace@example.org (IMAP and SMTP, %1): IMAP server %2, "
                                       "port %3, none, login grace; signs in with a password from the "
                                       "desktop? [y/N]: ")
                            .arg(id, server.host(), QString::number(server.port()))))
        << no.out.toStdString();
    EXPECT_TRUE(no.out.contains(QStringLiteral("Not imported: grace@example.org\n"))) << no.out.toStdString();
    EXPECT_FALSE(QFile::exists(configPath()));

    const BridgeRun yes =
        run({QStringLiteral("account"), QStringLiteral("import")}, configPath(), QByteArrayLiteral("y\n"));
    EXPECT_EQ(yes.exitCode, 0) << yes.err.toStdString();
    EXPECT_EQ(groups(), QStringList{QStringLiteral("example")});

    const BridgeRun again =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    EXPECT_EQ(again.exitCode, 0) << again.err.toStdString();
    EXPECT_TRUE(again.out.contains(
        QStringLiteral("Skipped grace@example.org (%1): already imported as account example\n").arg(id)))
        << again.out.toStdString();
    EXPECT_EQ(groups(), QStringList{QStringLiteral("example")});
}

TEST_F(OnlineAccountsDaemonTest, AnAccountRemovedFromTheDesktopFailsWithALineSayingSo) {
    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    ASSERT_EQ(import.exitCode, 0) << import.err.toStdString();
    QString error;
    ASSERT_TRUE(goa.removeAccount(id, &error)) << error.toStdString();
    const int before = passwordLogins(QStringLiteral("grace"));

    const BridgeRun once = run({QStringLiteral("--once")}, configPath());
    EXPECT_EQ(once.exitCode, 1);
    const QString line =
        QStringLiteral("the desktop's online account %1 is gone; run corvina-mail-bridge account "
                       "import again or remove this account")
            .arg(id);
    EXPECT_EQ(once.err, QStringLiteral("example: ") + line + u'\n');
    EXPECT_EQ(status(QStringLiteral("example")).value(QStringLiteral("lastError")).toString(), line);
    EXPECT_EQ(passwordLogins(QStringLiteral("grace")), before);
}

TEST_F(OnlineAccountsDaemonTest, AnAccountWhoseMailIsTurnedOffIsNotImportedAndFailsWithALine) {
    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    ASSERT_EQ(import.exitCode, 0) << import.err.toStdString();
    QString error;
    ASSERT_TRUE(goa.setMailDisabled(id, true, &error)) << error.toStdString();

    const BridgeRun once = run({QStringLiteral("--once")}, configPath());
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err,
              QStringLiteral("example: the desktop's online account %1 (grace@example.org) has mail "
                             "turned off; turn it on in the desktop's settings (Online Accounts) or "
                             "remove this account\n")
                  .arg(id));
    QFile::remove(configPath());
    const BridgeRun none =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    EXPECT_EQ(none.exitCode, 0) << none.err.toStdString();
    EXPECT_EQ(none.out,
              QStringLiteral("The desktop's online accounts hold no account with mail turned on; nothing to "
                             "import. Add one in the desktop's settings (Online Accounts), or use "
                             "corvina-mail-bridge account add\n"));
    EXPECT_FALSE(QFile::exists(configPath()));
}

// ---------------------------------------------------------------------------------------------------
// An account that signs in with OAuth 2, from the stand-in service.

class StandInAccountsTest : public DesktopAccountsTest {
protected:
    void startServices() override {
        QString error;
        ASSERT_TRUE(provider.start(&error)) << error.toStdString();
        server.enableTokenLogins(provider.introspectUrl(), QStringLiteral("xoauth2 oauthbearer"));
        ASSERT_TRUE(desktop.start(&error)) << error.toStdString();
    }
    void TearDown() override { desktop.stop(); }

    // A token for ada, good for an hour unless `expired`.
    QString mint(bool expired = false) {
        const std::optional<OAuthProvider::Tokens> tokens = provider.mint(User);
        EXPECT_TRUE(tokens);
        if (expired) {
            // expire() ends every access token of the user so far: an expired one is made first.
            EXPECT_TRUE(provider.expire(User));
        }
        return tokens ? tokens->accessToken : QString();
    }
    QJsonObject googleAccount(const QStringList& tokens, const QString& id = GoaId) const {
        return QJsonObject{
            {QStringLiteral("id"), id},
            {QStringLiteral("provider"), QStringLiteral("Google")},
            {QStringLiteral("identity"), Mail},
            {QStringLiteral("email"), Mail},
            {QStringLiteral("name"), QStringLiteral("Ada Lovelace")},
            {QStringLiteral("imapHost"), QStringLiteral("%1:%2").arg(server.host()).arg(server.port())},
            {QStringLiteral("imapUserName"), User},
            {QStringLiteral("secret"), QStringLiteral("oauth2")},
            {QStringLiteral("tokens"), QJsonArray::fromStringList(tokens)}};
    }
    // bridge.conf with ada's account as `account import` writes it, under the group "work".
    QString goaConfig(const QVariantMap& extra = {}) {
        QVariantMap keys{{"passwordCommand", QVariant()}, {"auth", "goa"}, {"goaId", GoaId}};
        keys.insert(extra);
        return writeConfig({{QStringLiteral("work"), accountKeys(keys)}});
    }

    OAuthProvider provider;
    OnlineAccountsStandIn desktop;
};

TEST_F(StandInAccountsTest, AnImportedOAuthAccountSyncsWithTheDesktopsToken) {
    deliver(QStringLiteral("Signed in on the desktop"));
    const QString token = mint();
    desktop.setAccounts({googleAccount({token})});

    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    EXPECT_EQ(import.exitCode, 0) << import.err.toStdString();
    EXPECT_TRUE(import.out.startsWith(
        QStringLiteral(
            "ada@example.org (Google, %1): IMAP server %2, port %3, none, login ada; signs in with a "
            "token from the desktop\n")
            .arg(GoaId, server.host(), QString::number(server.port()))))
        << import.out.toStdString();
    EXPECT_EQ(group(QStringLiteral("example")).value(QStringLiteral("goaId")).toString(), GoaId);

    const BridgeRun once = run({QStringLiteral("--once")}, configPath());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    ASSERT_EQ(inboxSize(), 1) << once.err.toStdString();
    EXPECT_EQ(snapshot(QStringLiteral("inbox.plist"))
                  .value(QStringLiteral("data"))
                  .toList()
                  .first()
                  .toMap()
                  .value(QStringLiteral("subject"))
                  .toString(),
              QStringLiteral("Signed in on the desktop"));
    const BridgeRun check = run({QStringLiteral("check")}, configPath());
    EXPECT_EQ(check.exitCode, 0) << check.err.toStdString();
    EXPECT_EQ(check.out, QStringLiteral("example: ok\n"));

    // A token asked for at each connect, never kept.
    EXPECT_EQ(desktop.count(QStringLiteral("GetAccessToken ") + GoaId), 2)
        << desktop.calls().join(u'\n').toStdString();
    EXPECT_EQ(desktop.count(QStringLiteral("EnsureCredentials ") + GoaId), 0);
    EXPECT_EQ(logins(User, QStringLiteral("OAUTHBEARER")), 2) << server.log().toStdString();
    expectUnsaid(token, {import, once, check});
    EXPECT_EQ(filesHolding(token), QStringList());
}

TEST_F(StandInAccountsTest, ATokenRefusedOnceIsFetchedAgainAfterTheDesktopChecksTheSignIn) {
    deliver(QStringLiteral("Second token"));
    const QString expired = mint(true);
    const QString good = mint();
    // The service hands out the expired token until it is asked to check the sign-in.
    desktop.setAccounts({googleAccount({expired, good})});
    const BridgeRun once = run({QStringLiteral("--once")}, goaConfig());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_EQ(once.err, QString());
    EXPECT_EQ(inboxSize(), 1);
    EXPECT_EQ(desktop.calls(),
              QStringList({QStringLiteral("GetManagedObjects"), QStringLiteral("GetAccessToken ") + GoaId,
                           QStringLiteral("GetManagedObjects"), QStringLiteral("EnsureCredentials ") + GoaId,
                           QStringLiteral("GetAccessToken ") + GoaId}));
    for (const QString& token : {expired, good}) {
        expectUnsaid(token, {once});
        EXPECT_EQ(filesHolding(token), QStringList());
    }
}

TEST_F(StandInAccountsTest, ATokenRefusedTwiceFailsTheAccountAndTheDesktopIsAskedOnce) {
    const QString first = mint();
    const QString second = mint();
    ASSERT_TRUE(provider.revoke(User));
    desktop.setAccounts({googleAccount({first, second})});
    const BridgeRun once = run({QStringLiteral("--once")}, goaConfig());
    EXPECT_EQ(once.exitCode, 1);
    const QString line = QStringLiteral(
        "work: the server refused a new token too: token login (OAUTHBEARER) refused for ada: ");
    EXPECT_TRUE(once.err.startsWith(line)) << once.err.toStdString();
    EXPECT_EQ(once.err.count(u'\n'), 1) << once.err.toStdString();
    EXPECT_EQ(desktop.count(QStringLiteral("EnsureCredentials ") + GoaId), 1);
    EXPECT_EQ(desktop.count(QStringLiteral("GetAccessToken ") + GoaId), 2);
    for (const QString& token : {first, second}) {
        expectUnsaid(token, {once});
        EXPECT_EQ(filesHolding(token), QStringList());
    }
}

TEST_F(StandInAccountsTest, AnAccountGoneFromTheDesktopFailsWithALineAndTheServerIsNotAsked) {
    desktop.setAccounts({googleAccount({mint()}, QStringLiteral("account_1800000000_3"))});
    const BridgeRun once = run({QStringLiteral("--once")}, goaConfig());
    EXPECT_EQ(once.exitCode, 1);
    const QString line =
        QStringLiteral("the desktop's online account %1 is gone; run corvina-mail-bridge account "
                       "import again or remove this account")
            .arg(GoaId);
    EXPECT_EQ(once.err, QStringLiteral("work: ") + line + u'\n');
    EXPECT_EQ(status(QStringLiteral("work")).value(QStringLiteral("lastError")).toString(), line);
    const BridgeRun check = run({QStringLiteral("check")}, goaConfig());
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(check.out, QStringLiteral("work: ") + line + u'\n');
    EXPECT_FALSE(server.log().contains(QStringLiteral("Login: "))) << server.log().toStdString();
    EXPECT_EQ(desktop.count(QStringLiteral("GetAccessToken account_1800000000_3")), 0);
}

TEST_F(StandInAccountsTest, AnAccountWhoseServerChangedOnTheDesktopIsNotSentItsToken) {
    QJsonObject moved = googleAccount({mint()});
    moved.insert(QStringLiteral("imapHost"), QStringLiteral("imap.example.net"));
    moved.insert(QStringLiteral("imapUseSsl"), true);
    desktop.setAccounts({moved});
    const BridgeRun once = run({QStringLiteral("--once")}, goaConfig());
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err,
              QStringLiteral("work: the desktop's online account %1 (ada@example.org) now names IMAP "
                             "server imap.example.net, port 993, login ada, not what bridge.conf says; "
                             "remove this account and run corvina-mail-bridge account import again\n")
                  .arg(GoaId));
    EXPECT_EQ(desktop.count(QStringLiteral("GetAccessToken ") + GoaId), 0);
    EXPECT_FALSE(server.log().contains(QStringLiteral("Login: ")));
}

TEST_F(StandInAccountsTest, TheServiceAbsentIsSaidByTheSyncAndByTheImport) {
    desktop.stop();
    const BridgeRun once = run({QStringLiteral("--once")}, goaConfig());
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err, QStringLiteral("work: the desktop's online accounts are not running\n"))
        << once.err.toStdString();
    EXPECT_EQ(status(QStringLiteral("work")).value(QStringLiteral("lastError")).toString(),
              QStringLiteral("the desktop's online accounts are not running"));
    EXPECT_FALSE(server.log().contains(QStringLiteral("Login: ")));

    const QString elsewhere = configDir.filePath(QStringLiteral("other.conf"));
    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, elsewhere);
    EXPECT_EQ(import.exitCode, 1);
    EXPECT_EQ(import.err,
              QStringLiteral("corvina-mail-bridge: account import: the desktop's online accounts are "
                             "not running; nothing was imported\n"))
        << import.err.toStdString();
    EXPECT_FALSE(QFile::exists(elsewhere));
}

// The bridge's line is all it says, also as it exits at once after a failed call: Qt's D-Bus thread
// may still be handling what the bus sent meanwhile, and the program's exit must not leave Qt's
// complaints under the line. That was a race (some one run in seven printed two more lines), so it
// is run many times.
TEST_F(StandInAccountsTest, TheServiceAbsentLeavesOnlyTheBridgesLineAsItExits) {
    desktop.stop();
    const QString elsewhere = configDir.filePath(QStringLiteral("other.conf"));
    const QString said = QStringLiteral(
        "corvina-mail-bridge: account import: the desktop's online accounts are not running; nothing was "
        "imported\n");
    for (int i = 0; i < 40; ++i) {
        const BridgeRun import =
            run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, elsewhere);
        ASSERT_EQ(import.exitCode, 1);
        ASSERT_EQ(import.err, said) << "run " << i + 1 << ":\n" << import.err.toStdString();
    }
}

TEST_F(StandInAccountsTest, AnImportedAccountIsRemovedWithoutASecretService) {
    // No keyring runs on this bus: the bridge stored nothing for the account, so none is needed.
    const QString config = goaConfig();
    const BridgeRun removed =
        run({QStringLiteral("account"), QStringLiteral("remove"), QStringLiteral("work")}, config);
    EXPECT_EQ(removed.exitCode, 0) << removed.err.toStdString();
    EXPECT_EQ(removed.out, QStringLiteral("Removed account work (ada@example.org) from %1\n").arg(config));
    EXPECT_EQ(groups(), QStringList());
}

TEST_F(StandInAccountsTest, ADesktopThatCannotRenewARefusedSignInSaysSo) {
    QJsonObject refusing = googleAccount({mint(true)});
    refusing.insert(QStringLiteral("ensureFails"), true);
    desktop.setAccounts({refusing});
    const BridgeRun once = run({QStringLiteral("--once")}, goaConfig());
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_TRUE(once.err.startsWith(QStringLiteral("work: token login (OAUTHBEARER) refused for ada: ")))
        << once.err.toStdString();
    EXPECT_TRUE(once.err.endsWith(
        QStringLiteral("; no new token: the desktop's online accounts could not renew the sign-in of %1 "
                       "(ada@example.org): the desktop's online accounts refused: The provider refused the "
                       "sign-in; sign in again in the desktop's settings (Online Accounts)\n")
            .arg(GoaId)))
        << once.err.toStdString();
    // Asked once, then the account is left alone: no second token asked for.
    EXPECT_EQ(desktop.count(QStringLiteral("EnsureCredentials ") + GoaId), 1);
    EXPECT_EQ(desktop.count(QStringLiteral("GetAccessToken ") + GoaId), 1);
}

TEST_F(StandInAccountsTest, AnAccountWithoutAUsableSecretFailsWithALineAndIsNotImported) {
    QJsonObject none = googleAccount({});
    none.insert(QStringLiteral("secret"), QStringLiteral("none"));
    QJsonObject emptyPassword = googleAccount({}, QStringLiteral("account_2"));
    emptyPassword.insert(QStringLiteral("secret"), QStringLiteral("password"));
    emptyPassword.insert(QStringLiteral("password"), QString());
    QJsonObject emptyToken = googleAccount({QString()}, QStringLiteral("account_3"));
    desktop.setAccounts({none, emptyPassword, emptyToken});
    const QList<std::pair<QString, QString>> expected = {
        {GoaId,
         QStringLiteral("the desktop's online account %1 (ada@example.org) gives neither a token nor a "
                        "password")
             .arg(GoaId)},
        {QStringLiteral("account_2"),
         QStringLiteral("the desktop's online account account_2 (ada@example.org) has no "
                        "IMAP password; set it in the desktop's settings (Online "
                        "Accounts)")},
        {QStringLiteral("account_3"), QStringLiteral("the desktop's online accounts gave an empty token")}};
    for (const auto& [id, line] : expected) {
        BridgeConfig::Account a = account({{"passwordCommand", QVariant()}, {"auth", "goa"}, {"goaId", id}});
        QString error;
        EXPECT_FALSE(AccountCredential::obtain(a, &error, 10000).has_value()) << id.toStdString();
        EXPECT_EQ(error, line);
    }

    // account() wrote a bridge.conf of its own: the import starts without one.
    QFile::remove(configPath());
    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    EXPECT_EQ(import.exitCode, 1);
    EXPECT_EQ(import.err,
              QStringLiteral("corvina-mail-bridge: account import: ada@example.org (%1) gives neither a "
                             "token nor a password; not added\n")
                  .arg(GoaId));
    // The other two are added: what they give is asked only at a connect.
    EXPECT_EQ(groups(), QStringList({QStringLiteral("example"), QStringLiteral("example2")}));
}

TEST_F(StandInAccountsTest, ABridgeConfThatCannotBeWrittenFailsTheImportWithALine) {
    desktop.setAccounts({googleAccount({mint()})});
    // A folder that cannot be made: a file stands where it would be.
    QFile blocker(configDir.filePath(QStringLiteral("file")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const QString path = configDir.filePath(QStringLiteral("file/bridge.conf"));
    const BridgeRun import =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, path);
    EXPECT_EQ(import.exitCode, 1);
    EXPECT_EQ(import.err,
              QStringLiteral("corvina-mail-bridge: account import: ada@example.org (%1): cannot write "
                             "%2; not added\n")
                  .arg(GoaId, path));
    EXPECT_FALSE(import.out.contains(QStringLiteral("Added account"))) << import.out.toStdString();
}

TEST_F(StandInAccountsTest, AFollowerThreadGetsTheDesktopsTokenToo) {
    // The foreground mode asks on each account's own thread, which has no event loop.
    const QString token = mint();
    desktop.setAccounts({googleAccount({token})});
    const BridgeConfig::Account a =
        account({{"passwordCommand", QVariant()}, {"auth", "goa"}, {"goaId", GoaId}});
    std::optional<AccountCredential> got;
    QString error;
    std::unique_ptr<QThread> thread(
        QThread::create([&] { got = AccountCredential::obtain(a, &error, 10000); }));
    thread->start();
    ASSERT_TRUE(thread->wait(QDeadlineTimer(30000)));
    ASSERT_TRUE(got.has_value()) << error.toStdString();
    EXPECT_TRUE(got->isToken());
    EXPECT_EQ(got->secret(), token);
}

TEST_F(StandInAccountsTest, AServiceThatDoesNotAnswerCostsALineWithinTheTimeout) {
    desktop.setAccounts({googleAccount({mint()})});
    desktop.setHanging(true);
    QString error;
    const std::optional<QList<DesktopAccounts::Account>> accounts = DesktopAccounts(1000).accounts(&error);
    EXPECT_FALSE(accounts.has_value());
    EXPECT_EQ(error, QStringLiteral("the desktop's online accounts did not answer within 1 s"));
    desktop.setHanging(false);
    const std::optional<QList<DesktopAccounts::Account>> answered = DesktopAccounts(10000).accounts(&error);
    ASSERT_TRUE(answered.has_value()) << error.toStdString();
    ASSERT_EQ(answered->size(), 1);
    EXPECT_EQ(answered->first().id, GoaId);
    EXPECT_EQ(answered->first().secret, DesktopAccounts::Secret::OAuth2);
}

TEST_F(StandInAccountsTest, AnAnswerOfTheWrongShapeCostsALine) {
    desktop.setAccounts({googleAccount({mint()})});
    QString error;
    const std::optional<QList<DesktopAccounts::Account>> accounts = DesktopAccounts(10000).accounts(&error);
    ASSERT_TRUE(accounts.has_value()) << error.toStdString();
    ASSERT_EQ(accounts->size(), 1);
    desktop.setWrongShape(true);
    EXPECT_FALSE(DesktopAccounts(10000).accounts(&error).has_value());
    EXPECT_EQ(error,
              QStringLiteral("the desktop's online accounts gave a list of accounts of the wrong shape"));
    EXPECT_FALSE(DesktopAccounts(10000).accessToken(accounts->first(), &error).has_value());
    EXPECT_EQ(error, QStringLiteral("the desktop's online accounts gave no token"));
}

TEST_F(StandInAccountsTest, ImportAsksForEachAccountAndNamesTheSecondAfterTheFirst) {
    QJsonObject second = googleAccount({mint()}, QStringLiteral("account_1700000001_1"));
    second.insert(QStringLiteral("identity"), QStringLiteral("ada.work@example.org"));
    second.insert(QStringLiteral("email"), QStringLiteral("ada.work@example.org"));
    QJsonObject off = googleAccount({mint()}, QStringLiteral("account_1700000002_2"));
    off.insert(QStringLiteral("mailDisabled"), true);
    desktop.setAccounts({googleAccount({mint()}), second, off});

    const BridgeRun firstOnly = run({QStringLiteral("account"), QStringLiteral("import")}, configPath(),
                                    QByteArrayLiteral("yes\nN\n"));
    EXPECT_EQ(firstOnly.exitCode, 0) << firstOnly.err.toStdString();
    EXPECT_EQ(firstOnly.out.count(QStringLiteral("[y/N]: ")), 2) << firstOnly.out.toStdString();
    EXPECT_TRUE(firstOnly.out.contains(QStringLiteral("Not imported: ada.work@example.org\n")));
    EXPECT_EQ(groups(), QStringList{QStringLiteral("example")});

    // The input ends before the answer: a no.
    const BridgeRun ended = run({QStringLiteral("account"), QStringLiteral("import")}, configPath());
    EXPECT_EQ(ended.exitCode, 0) << ended.err.toStdString();
    EXPECT_EQ(groups(), QStringList{QStringLiteral("example")});

    const BridgeRun rest =
        run({QStringLiteral("account"), QStringLiteral("import"), QStringLiteral("--yes")}, configPath());
    EXPECT_EQ(rest.exitCode, 0) << rest.err.toStdString();
    EXPECT_EQ(groups(), QStringList({QStringLiteral("example"), QStringLiteral("example2")}));
    EXPECT_EQ(group(QStringLiteral("example2")).value(QStringLiteral("goaId")).toString(),
              QStringLiteral("account_1700000001_1"));
    EXPECT_EQ(group(QStringLiteral("example2")).value(QStringLiteral("mail")).toString(),
              QStringLiteral("ada.work@example.org"));
    // The account whose mail is off is never offered.
    EXPECT_FALSE(rest.out.contains(QStringLiteral("account_1700000002_2"))) << rest.out.toStdString();
}

} // namespace
} // namespace corvina::test
