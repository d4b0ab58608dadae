// Accounts with auth = oauth2 and a tokenCommand, run as a person runs the bridge (--once, check)
// against the test's Dovecot, which asks the stand-in provider (support/OAuthProvider) about every
// token. The tokenCommand is a small script of the test's that prints the next line of a file of
// tokens the test minted, and counts its runs.
#include "BridgeTesting.h"
#include "KeyringTest.h"
#include "bridge/commands/CommandWorker.h"
#include "bridge/config/OAuthEndpoints.h"
#include "bridge/config/OAuthTokens.h"
#include "bridge/config/SecretStore.h"
#include "bridge/imap/ImapSession.h"
#include "bridge/service/LiveBridge.h"
#include "bridge/sync/AccountWorker.h"
#include "support/NotificationRecorder.h"
#include "support/OAuthProvider.h"
#include "support/PrivateSessionBus.h"
#include "support/ProcessStop.h"
#include "support/WidgetTesting.h"

#include <QDir>
#include <QDirIterator>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class TokenAccountTest : public TokenServerTest {
protected:
    void SetUp() override {
        TokenServerTest::SetUp();
        QFile script(scripts.filePath(QStringLiteral("token.sh")));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("n=$(cat \"$1/runs\" 2>/dev/null || echo 0)\n"
                     "n=$((n + 1))\n"
                     "echo $n > \"$1/runs\"\n"
                     "sed -n \"${n}p\" \"$1/tokens\"\n");
        // Read now: a private session bus (with its keyring) may have been set up just before.
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
    }

    // The tokens the command prints, one a run.
    void setTokens(const QStringList& tokens) {
        QFile file(scripts.filePath(QStringLiteral("tokens")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(tokens.join(u'\n').toUtf8() + '\n');
    }
    int runs() const {
        QFile file(scripts.filePath(QStringLiteral("runs")));
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt() : 0;
    }
    QString tokenConfig() {
        return writeConfig(
            {{QStringLiteral("work"),
              accountKeys({{"passwordCommand", QVariant()},
                           {"auth", "oauth2"},
                           {"tokenCommand", QStringLiteral("sh %1/token.sh %1").arg(scripts.path())}})}});
    }
    BridgeRun run(const QString& what, const QString& config) {
        return runBridge({what}, config, QByteArray(), environment);
    }
    QJsonObject status() const { return accountStatus(state.path(), QStringLiteral("work")); }
    // Every file the bridge may have written (the shared folder, the state folder, bridge.conf's
    // folder), by path, with its bytes.
    QMap<QString, QByteArray> writtenFiles() const {
        QMap<QString, QByteArray> files;
        for (const QString& root : {container.root(), state.path(), configDir.path()}) {
            QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                QFile file(it.next());
                if (file.open(QIODevice::ReadOnly))
                    files.insert(file.fileName(), file.readAll());
            }
        }
        return files;
    }
    // Those of them that hold `token`.
    QStringList filesHolding(const QString& token) const {
        QStringList found;
        const QMap<QString, QByteArray> files = writtenFiles();
        for (auto it = files.cbegin(); it != files.cend(); ++it) {
            if (it.value().contains(token.toUtf8()))
                found << it.key();
        }
        return found;
    }
    // All their text, one after the other.
    QString filesText() const {
        QString text;
        for (const QByteArray& bytes : writtenFiles())
            text += QString::fromUtf8(bytes) + u'\n';
        return text;
    }
    // The words of `text` shaped like the provider's tokens (43 characters of base64url) that its
    // introspection takes for a live access token.
    QStringList liveTokensIn(const QString& text) const {
        QStringList live;
        static const QRegularExpression shape(
            QStringLiteral("(?<![A-Za-z0-9_-])[A-Za-z0-9_-]{43}(?![A-Za-z0-9_-])"));
        for (auto it = shape.globalMatch(text); it.hasNext();) {
            const QString word = it.next().captured();
            const OAuthProvider::Reply reply =
                OAuthProvider::postForm(QUrl(provider.introspectUrl()), {{QStringLiteral("token"), word}});
            if (reply.json().value(QStringLiteral("active")).toBool())
                live << word;
        }
        return live;
    }

    QTemporaryDir scripts;
    QTemporaryDir state;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

TEST_F(TokenAccountTest, OnceAndCheckLogInWithTheCommandsToken) {
    deliver(QStringLiteral("Signed in with a token"));
    const QString token = mint();
    setTokens({token, token});
    const QString config = tokenConfig();

    const BridgeRun once = run(QStringLiteral("--once"), config);
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    const QVariantMap inbox = snapshot(QStringLiteral("inbox.plist"));
    ASSERT_EQ(inbox.value(QStringLiteral("data")).toList().size(), 1) << once.err.toStdString();
    EXPECT_EQ(inbox.value(QStringLiteral("data")).toList().first().toMap().value(QStringLiteral("subject")),
              QStringLiteral("Signed in with a token"));

    const BridgeRun check = run(QStringLiteral("check"), config);
    EXPECT_EQ(check.exitCode, 0) << check.out.toStdString();
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n"));

    EXPECT_EQ(runs(), 2);
    // Dovecot offers both: the standard mechanism is the one used.
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 2) << server.log().toStdString();
    EXPECT_EQ(loginsWith(QStringLiteral("XOAUTH2")), 0);
    // The token is in no line and in no file the bridge wrote.
    for (const QString& said : {once.out, once.err, check.out, check.err})
        EXPECT_FALSE(said.contains(token)) << said.toStdString();
    EXPECT_EQ(filesHolding(token), QStringList());
    EXPECT_EQ(status().value(QStringLiteral("lastError")).toString(), QString());
}

TEST_F(TokenAccountTest, ATokenRefusedOnceIsFetchedAgainAndTheAccountSyncs) {
    deliver(QStringLiteral("Second token"));
    const QString expired = mint(true);
    const QString good = mint();
    setTokens({expired, good});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_EQ(once.err, QString());
    EXPECT_EQ(runs(), 2);
    EXPECT_EQ(snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList().size(), 1);
    for (const QString& token : {expired, good}) {
        EXPECT_FALSE(once.out.contains(token));
        EXPECT_FALSE(once.err.contains(token));
        EXPECT_EQ(filesHolding(token), QStringList());
    }
}

TEST_F(TokenAccountTest, ATokenRefusedTwiceFailsTheAccountWithALineSayingSo) {
    const QString first = mint();
    const QString second = mint();
    ASSERT_TRUE(provider.revoke(User));
    // The same two again for check, which fetches its own.
    setTokens({first, second, first, second});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 1);
    // Fetched once more, never a third time.
    EXPECT_EQ(runs(), 2);
    const QString line = QStringLiteral("work: the server refused a new token too: token login (OAUTHBEARER) "
                                        "refused for ada: ");
    EXPECT_TRUE(once.err.startsWith(line)) << once.err.toStdString();
    EXPECT_EQ(once.err.count(u'\n'), 1) << once.err.toStdString();
    EXPECT_TRUE(status()
                    .value(QStringLiteral("lastError"))
                    .toString()
                    .startsWith(line.mid(QStringLiteral("work: ").size())))
        << QJsonDocument(status()).toJson().toStdString();
    for (const QString& token : {first, second}) {
        EXPECT_FALSE(once.err.contains(token));
        EXPECT_EQ(filesHolding(token), QStringList());
    }

    const BridgeRun check = run(QStringLiteral("check"), tokenConfig());
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(runs(), 4);
}

TEST_F(TokenAccountTest, ATokenCommandThatFailsIsSaidAndTheServerNotAsked) {
    setTokens({});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err, QStringLiteral("work: tokenCommand sh printed no token\n"));
    EXPECT_EQ(runs(), 1);
    EXPECT_EQ(provider.stats().introspections, 0);
}

class XOAuth2AccountTest : public TokenAccountTest {
protected:
    QString mechanisms() const override { return QStringLiteral("xoauth2"); }
};

TEST_F(XOAuth2AccountTest, AServerOfferingOnlyXOAuth2IsLoggedInWithIt) {
    const QString expired = mint(true);
    const QString good = mint();
    setTokens({expired, good});
    const BridgeRun once = run(QStringLiteral("--once"), tokenConfig());
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_EQ(runs(), 2);
    EXPECT_EQ(loginsWith(QStringLiteral("XOAUTH2")), 1) << server.log().toStdString();
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 0);
}

// The command worker (the widget's buttons) logs in with a token too, and fetches a refused one
// again once. The tokens come from a source of the test's own that counts its calls.
class TokenCommandWorkerTest : public TokenAccountTest {
protected:
    QString idOf(const QString& subject) {
        ImapSession session({server.host(), server.port(), BridgeConfig::Security::None, 10, QString()});
        if (!session.connectToServer() || !session.login(User, Password))
            return QString();
        const std::optional<ImapSession::Folder> opened = session.examine(QStringLiteral("INBOX"));
        const auto envelopes = opened ? session.fetchNewest(10) : std::nullopt;
        for (const ImapSession::Envelope& envelope :
             envelopes ? *envelopes : QList<ImapSession::Envelope>()) {
            if (envelope.subject == subject)
                return AccountSync::messageIdFor(QStringLiteral("INBOX"), opened->uidValidity, envelope.uid);
        }
        return QString();
    }
    // Opens the message with the worker, whose source hands out `tokens` one a call.
    MessageCommand::Outcome openWith(const QStringList& tokens) {
        deliver(QStringLiteral("Open me"));
        const QString id = idOf(QStringLiteral("Open me"));
        EXPECT_FALSE(id.isEmpty());
        CommandWorker worker(
            account({{"passwordCommand", QVariant()}, {"auth", "oauth2"}, {"tokenCommand", "t"}}),
            cache.path(), 10,
            [this, tokens](const BridgeConfig::Account&, QString*) -> std::optional<AccountCredential> {
                const int at = asked++;
                return AccountCredential::token(tokens.value(at));
            });
        std::optional<MessageCommand::Outcome> outcome;
        QObject::connect(&worker, &CommandWorker::finished, &worker,
                         [&](int, const MessageCommand::Outcome& o) { outcome = o; });
        worker.enqueue(MessageCommand::Action::Open, id, 1);
        const QDeadlineTimer deadline(20000);
        while (!outcome && !deadline.hasExpired()) {
            QEventLoop loop;
            QTimer::singleShot(20, &loop, &QEventLoop::quit);
            loop.exec();
        }
        EXPECT_TRUE(outcome.has_value());
        return outcome.value_or(MessageCommand::Outcome());
    }

    QTemporaryDir cache;
    std::atomic<int> asked = 0;
};

TEST_F(TokenCommandWorkerTest, ARefusedTokenIsFetchedAgainOnceAndTheCommandIsCarriedOut) {
    const QString expired = mint(true);
    const MessageCommand::Outcome outcome = openWith({expired, mint()});
    EXPECT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(asked, 2);
}

TEST_F(TokenCommandWorkerTest, ATokenRefusedTwiceFailsTheCommandWithALineSayingSo) {
    const QString first = mint();
    const QString second = mint();
    ASSERT_TRUE(provider.revoke(User));
    const MessageCommand::Outcome outcome = openWith({first, second, mint()});
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, MessageCommand::Failure::LoginRefused);
    EXPECT_TRUE(outcome.error.startsWith(QStringLiteral(
        "open: the server refused a new token too: token login (OAUTHBEARER) refused for ada: ")))
        << outcome.error.toStdString();
    EXPECT_FALSE(outcome.error.contains(first));
    EXPECT_FALSE(outcome.error.contains(second));
    EXPECT_EQ(asked, 2);
}

// auth = oauth2 with an oauthProvider: the bridge's own sign-in (OAuthTokens), its refresh token
// kept in a real keyring as `account signin` keeps it, minted here without a browser.
class ProviderAccountTest : public KeyringTest<TokenAccountTest> {
protected:
    void SetUp() override {
        OAuthTokens::forgetAll();
        OAuthEndpoints::forgetDiscovered();
        KeyringTest::SetUp();
    }
    void TearDown() override {
        KeyringTest::TearDown();
        OAuthTokens::forgetAll();
        OAuthEndpoints::forgetDiscovered();
    }
    // The keys that make ada's account one of the bridge's own sign-in.
    QVariantMap providerKeys() const {
        return QVariantMap({{"passwordCommand", QVariant()},
                            {"auth", "oauth2"},
                            {"oauthProvider", "custom"},
                            {"oauthClientId", QString::fromLatin1(OAuthProvider::ClientId)},
                            {"oauthAuthorizeUrl", provider.authorizeUrl()},
                            {"oauthTokenUrl", provider.tokenUrl()},
                            {"oauthScope", "mail"}});
    }
    // Keeps a refresh token for `user` (ada unless said) as a sign-in would.
    void signedIn(const BridgeConfig::Account& a, const QString& user = User) {
        QString error;
        const std::optional<OAuthProvider::Tokens> tokens = provider.mint(user, 0, &error);
        ASSERT_TRUE(tokens) << error.toStdString();
        const OAuthEndpoints::Settings settings = OAuthTokens::settingsOf(a);
        ASSERT_TRUE(store.storeToken(OAuthTokens::refreshTokenKey(settings, a.oauthTokenUrl),
                                     OAuthTokens::refreshTokenLabel(settings, a.oauthTokenUrl),
                                     tokens->refreshToken, &error))
            << error.toStdString();
    }

    // A sign-in in the browser is for the account's `mail` (the provider's login_hint), so the
    // server's user must be the address itself: ada@example.org with ada's password, logged in as
    // such, a message delivered to her.
    QVariantMap signedInByMail(const QString& subject) {
        server.addUser(Mail, Password);
        server.deliver(Mail, QStringLiteral("INBOX"),
                       DovecotServer::message(subject, QStringLiteral("grace@example.org"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<signed-in@example.org>")));
        QVariantMap keys = providerKeys();
        keys.insert(QStringLiteral("user"), Mail);
        return keys;
    }

    SecretStore store{10000};
};

TEST_F(ProviderAccountTest, AnAccessTokenThatExpiresBetweenTwoChecksIsRefreshedWithoutASignIn) {
    const BridgeConfig::Account a = account(providerKeys());
    signedIn(a);
    const AccountSync::Result first = LiveBridge::checkAccount(a, 10);
    EXPECT_TRUE(first.ok) << first.error.toStdString();
    EXPECT_EQ(provider.stats().refreshRequests, 1);
    // Still fresh: from memory, the provider not asked.
    EXPECT_TRUE(LiveBridge::checkAccount(a, 10).ok);
    EXPECT_EQ(provider.stats().refreshRequests, 1);
    // Run out on the provider's side: the server refuses it, it is forgotten and refreshed once.
    ASSERT_TRUE(provider.expire(User));
    const AccountSync::Result again = LiveBridge::checkAccount(a, 10);
    EXPECT_TRUE(again.ok) << again.error.toStdString();
    EXPECT_EQ(provider.stats().refreshRequests, 2);
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 3) << server.log().toStdString();
}

TEST_F(ProviderAccountTest, ARevokedSignInSaysSignInNeededAndAsksTheProviderOnce) {
    const QString config = writeConfig({{QStringLiteral("work"), accountKeys(providerKeys())}});
    signedIn(BridgeConfig::load(config).accounts().first());
    const BridgeRun good = run(QStringLiteral("--once"), config);
    EXPECT_EQ(good.exitCode, 0) << good.err.toStdString();

    ASSERT_TRUE(provider.revoke(User));
    const int before = provider.stats().tokenRequests;
    const BridgeRun once = run(QStringLiteral("--once"), config);
    EXPECT_EQ(once.exitCode, 1);
    const QString line = QStringLiteral("sign-in needed: the provider no longer accepts the sign-in of "
                                        "ada@example.org; run corvina-mail-bridge account signin work");
    EXPECT_EQ(once.err, QStringLiteral("work: ") + line + u'\n');
    EXPECT_EQ(status().value(QStringLiteral("lastError")).toString(), line);
    // One refresh refused, nothing more: no login with a token the provider no longer knows.
    EXPECT_EQ(provider.stats().tokenRequests - before, 1);
}

// A person's first day: `account signin` in the (stand-in) browser, then `check` and `--once` on the
// same bridge.conf and keyring, against Dovecot's token logins.
TEST_F(ProviderAccountTest, SignInThenCheckAndOnceSyncWithTheTokensInNoFileAndNoLine) {
    const QString config = writeConfig(
        {{QStringLiteral("work"), accountKeys(signedInByMail(QStringLiteral("Signed in in the browser")))}});
    const BridgeConfig::Account a = BridgeConfig::load(config).accounts().first();
    QProcessEnvironment browsing = environment;
    browsing.insert(QStringLiteral("BROWSER"), standInBrowser(scripts.path(), QStringLiteral("follow")));
    const BridgeRun signIn =
        runBridge({QStringLiteral("account"), QStringLiteral("signin"), QStringLiteral("work")}, config,
                  QByteArray(), browsing);
    ASSERT_EQ(signIn.exitCode, 0) << signIn.err.toStdString();
    EXPECT_TRUE(signIn.out.contains(
        QStringLiteral("work: signed in as ada@example.org; the sign-in is kept in the Secret Service\n")))
        << signIn.out.toStdString();
    const std::optional<QString> refresh =
        store.lookupToken(OAuthTokens::refreshTokenKey(OAuthTokens::settingsOf(a), a.oauthTokenUrl)).password;
    ASSERT_TRUE(refresh.has_value() && !refresh->isEmpty());

    const BridgeRun check = run(QStringLiteral("check"), config);
    EXPECT_EQ(check.exitCode, 0) << check.err.toStdString();
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n"));
    const BridgeRun once = run(QStringLiteral("--once"), config);
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    const QVariantList inbox = snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList();
    ASSERT_EQ(inbox.size(), 1);
    EXPECT_EQ(inbox.first().toMap().value(QStringLiteral("subject")),
              QStringLiteral("Signed in in the browser"));
    EXPECT_EQ(server.log().count(QStringLiteral("Login: user=<%1>, method=OAUTHBEARER,").arg(Mail)), 2)
        << server.log().toStdString();
    EXPECT_TRUE(status().value(QStringLiteral("ok")).toBool());
    // The refresh token is in the keyring and nowhere else.
    QString said;
    for (const BridgeRun& r : {signIn, check, once})
        said += r.out + r.err;
    EXPECT_FALSE(said.contains(*refresh));
    EXPECT_EQ(filesHolding(*refresh), QStringList());
    // The access tokens the three processes had are known to nobody but the provider: anything
    // shaped like one in the output or the files is asked of the provider, which must not know it.
    const QStringList live = liveTokensIn(said + filesText());
    EXPECT_EQ(live, QStringList());
}

// The running bridge (the program, following the account) when its sign-in runs out: the provider
// is asked once, not at every poll; the person is told once by a desktop notification (the test's
// NotificationRecorder on the private bus), whose "Sign in" runs `account signin` with the
// stand-in browser, after which the account syncs at once; told again only after it synced.
class FollowedSignInTest : public ProviderAccountTest {
protected:
    void SetUp() override {
        ProviderAccountTest::SetUp();
        recorder = std::make_unique<NotificationRecorder>(PrivateSessionBus::instance()->address());
        ASSERT_TRUE(recorder->isRegistered());
        // The sign-in runs as the bridge's child, in its environment: the browser is the stand-in.
        environment.insert(QStringLiteral("BROWSER"),
                           standInBrowser(scripts.path(), QStringLiteral("follow")));
    }
    void TearDown() override {
        stopProcess(bridge, 10000);
        ProviderAccountTest::TearDown();
    }

    void startBridge(const QString& config) {
        bridge.setProcessEnvironment(environment);
        bridge.start(QStringLiteral(CORVINA_BRIDGE_BINARY),
                     {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")});
        ASSERT_TRUE(bridge.waitForStarted(20000));
    }
    QString log() {
        logText += QString::fromUtf8(bridge.readAllStandardError());
        return logText;
    }
    // Waits (bounded) until `done` holds, the event loop running meanwhile: the recorder answers
    // the bridge's notifications on it.
    bool waitFor(const std::function<bool()>& done, int timeoutMs = 60000) {
        return drain(
            [&] {
                log();
                return done();
            },
            timeoutMs);
    }

    std::unique_ptr<NotificationRecorder> recorder;
    QProcess bridge;
    QString logText;
};

TEST_F(FollowedSignInTest, ARevokedSignInIsToldOnceAndItsActionSignsInAndTheAccountSyncs) {
    QVariantMap keys = signedInByMail(QStringLiteral("Read after the sign-in"));
    keys.insert(QStringLiteral("poll"), 1);
    const QString config = writeConfig({{QStringLiteral("work"), accountKeys(keys)}});
    signedIn(BridgeConfig::load(config).accounts().first(), Mail);
    ASSERT_TRUE(provider.revoke(Mail));
    const int before = provider.stats().tokenRequests;
    startBridge(config);

    const QString line = QStringLiteral("sign-in needed: the provider no longer accepts the sign-in of "
                                        "ada@example.org; run corvina-mail-bridge account signin work");
    // Three tries, a poll (1 s here) or more apart, meet the same refusal.
    ASSERT_TRUE(waitFor([&] { return log().count(QStringLiteral("work: ") + line) >= 3; }))
        << log().toStdString();
    ASSERT_TRUE(waitFor([&] { return !recorder->notifications().isEmpty(); })) << log().toStdString();
    ASSERT_EQ(recorder->notifications().size(), 1);
    const NotificationRecorder::Notification shown = recorder->notifications().first();
    EXPECT_EQ(shown.summary, QStringLiteral("Sign in again to ada@example.org"));
    EXPECT_EQ(shown.body, line);
    EXPECT_EQ(shown.actions, (QStringList{QStringLiteral("default"), QStringLiteral("Sign in"),
                                          QStringLiteral("signin"), QStringLiteral("Sign in")}));
    // No retry storm: the refused refresh token was sent once, not again at each poll.
    EXPECT_EQ(provider.stats().tokenRequests - before, 1);
    EXPECT_EQ(status().value(QStringLiteral("lastError")).toString(), line);
    EXPECT_FALSE(status().value(QStringLiteral("ok")).toBool(true));

    recorder->invokeAction(recorder->idOf(0), QStringLiteral("signin"));
    ASSERT_TRUE(waitFor([&] { return status().value(QStringLiteral("ok")).toBool(); }))
        << log().toStdString();
    EXPECT_TRUE(log().contains(QStringLiteral("work: signing in, in the browser (from the notification)\n")))
        << log().toStdString();
    EXPECT_TRUE(log().contains(QStringLiteral("work: signed in: reading the account again\n")))
        << log().toStdString();
    const QVariantList inbox = snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList();
    ASSERT_EQ(inbox.size(), 1);
    EXPECT_EQ(inbox.first().toMap().value(QStringLiteral("subject")),
              QStringLiteral("Read after the sign-in"));
    // The words no longer hold: the notification is taken away.
    EXPECT_TRUE(waitFor([&] { return recorder->closed().contains(recorder->idOf(0)); }, 20000));
    EXPECT_EQ(recorder->notifications().size(), 1);

    // Run out again after a good sync: told again, once. SIGUSR1 makes the bridge log in afresh
    // with the token the provider has just revoked.
    ASSERT_TRUE(provider.revoke(Mail));
    ASSERT_EQ(::kill(static_cast<pid_t>(bridge.processId()), SIGUSR1), 0);
    ASSERT_TRUE(waitFor([&] { return recorder->notifications().size() >= 2; })) << log().toStdString();
    EXPECT_TRUE(waitFor([&] { return log().count(QStringLiteral("work: ") + line) >= 5; }))
        << log().toStdString();
    EXPECT_EQ(recorder->notifications().size(), 2);
}

// The follower's pace after a failure: a sign-in that ran out waits for the poll, not the backoff,
// so the provider is not asked again every few seconds.
TEST(SignInNeededPaceTest, ASignInNeededWaitsThePollOtherFailuresTheBackoff) {
    for (const bool signIn : {true, false}) {
        BridgeConfig::Account a;
        a.name = QStringLiteral("work");
        a.host = QStringLiteral("127.0.0.1");
        a.pollSeconds = 300;
        AccountWorker::Timing timing;
        timing.firstRetrySeconds = 1;
        std::atomic<int> asked = 0;
        AccountWorker worker(
            a, timing, [&](const BridgeConfig::Account&, QString* error) -> std::optional<AccountCredential> {
                ++asked;
                *error = signIn ? QStringLiteral("sign-in needed: run it")
                                : QStringLiteral("tokenCommand t failed with status 1");
                return std::nullopt;
            });
        std::atomic<int> retry = -1;
        QObject::connect(
            &worker, &AccountWorker::failed, &worker,
            [&](const QString&, const QString&, const QDateTime&, int seconds) {
                retry.store(seconds);
                worker.stop();
            },
            Qt::DirectConnection);
        std::unique_ptr<QThread> thread(QThread::create([&worker] { worker.run(); }));
        thread->start();
        ASSERT_TRUE(thread->wait(QDeadlineTimer(20000)));
        EXPECT_EQ(retry.load(), signIn ? 300 : 1);
        EXPECT_EQ(asked.load(), 1);
    }
}

} // namespace
} // namespace corvina::test
