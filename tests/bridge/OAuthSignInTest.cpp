// The bridge's own OAuth 2 sign-in and its tokens, against the test provider (a stand-in for a
// provider's servers: no real one can be had in a test), a real keyring on a private session bus,
// and a stand-in browser: a script that fetches the authorization page with curl and takes its
// redirect to the bridge's listener.
#include "bridge/config/OAuthSignIn.h"

#include "BridgeTesting.h"
#include "KeyringTest.h"
#include "bridge/config/OAuthEndpoints.h"
#include "bridge/config/OAuthTokens.h"
#include "bridge/config/SecretStore.h"
#include "bridge/service/CommandService.h"
#include "support/OAuthProvider.h"
#include "support/Wait.h"

#include <QDBusConnection>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrlQuery>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace corvina::test {
namespace {

constexpr int RequestMs = 15000;

class OAuthSignInTest : public KeyringTest<> {
protected:
    void SetUp() override {
        KeyringTest::SetUp();
        ASSERT_TRUE(dir.isValid());
        QString error;
        ASSERT_TRUE(provider.start(&error)) << error.toStdString();
        OAuthTokens::forgetAll();
        OAuthEndpoints::forgetDiscovered();
    }
    void TearDown() override {
        KeyringTest::TearDown();
        OAuthTokens::forgetAll();
        OAuthEndpoints::forgetDiscovered();
    }

    OAuthEndpoints::Settings custom() const {
        OAuthEndpoints::Settings s;
        s.account = QStringLiteral("work");
        s.mail = Mail;
        s.host = QStringLiteral("127.0.0.1");
        s.provider = QStringLiteral("custom");
        s.clientId = QString::fromLatin1(OAuthProvider::ClientId);
        s.authorizeUrl = provider.authorizeUrl();
        s.tokenUrl = provider.tokenUrl();
        s.scope = QStringLiteral("mail");
        return s;
    }

    // The stand-in browser (BridgeTesting's), its page in page.html here.
    QString browserScript(const QString& mode) { return standInBrowser(dir.path(), mode); }

    OAuthSignIn::Options options(const QString& mode) {
        OAuthSignIn::Options o;
        o.waitMs = 30000;
        o.requestTimeoutMs = RequestMs;
        o.secretTimeoutMs = 10000;
        const QString script = browserScript(mode);
        o.openBrowser = [this, script](const QUrl& url, QString*) {
            authorizeUrls << url;
            auto* browser = new QProcess(&browsers);
            browser->start(script, {url.toString(QUrl::FullyEncoded)});
            return browser->waitForStarted(10000);
        };
        o.progress = [this](const QString& line) { progress << line; };
        return o;
    }

    // The page the stand-in browser got, once it has ended.
    QString page() const {
        for (QProcess* browser : browsers.findChildren<QProcess*>())
            browser->waitForFinished(15000);
        QFile file(dir.filePath(QStringLiteral("page.html")));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    std::optional<QString> storedRefreshToken(const OAuthEndpoints::Settings& s,
                                              const QString& issuer) const {
        return store.lookupToken(OAuthTokens::refreshTokenKey(s, issuer)).password;
    }

    // Keeps a refresh token minted for Mail as if a sign-in had, and returns it.
    QString signedInWithoutBrowser(const OAuthEndpoints::Settings& s, int ttl = 0) {
        QString error;
        const auto tokens = provider.mint(Mail, ttl, &error);
        EXPECT_TRUE(tokens.has_value()) << error.toStdString();
        if (!tokens)
            return QString();
        EXPECT_TRUE(store.storeToken(OAuthTokens::refreshTokenKey(s, s.tokenUrl),
                                     OAuthTokens::refreshTokenLabel(s, s.tokenUrl), tokens->refreshToken,
                                     &error))
            << error.toStdString();
        return tokens->refreshToken;
    }

    // Whether the provider takes `token` as Mail's, as Dovecot's introspection asks it.
    bool activeForMail(const QString& token) const {
        const OAuthProvider::Reply reply =
            OAuthProvider::postForm(QUrl(provider.introspectUrl()), {{QStringLiteral("token"), token}});
        return reply.json().value(QStringLiteral("active")).toBool() &&
               reply.json().value(QStringLiteral("username")).toString() == Mail;
    }

    static inline const QString Mail = QStringLiteral("ada@example.org");

    QTemporaryDir dir;
    OAuthProvider provider;
    SecretStore store{10000};
    QList<QUrl> authorizeUrls;
    QObject browsers; // the stand-in browsers started, its children
    QStringList progress;
};

TEST_F(OAuthSignInTest, SignInKeepsTheRefreshTokenInTheKeyringAndGivesAWorkingAccessToken) {
    const OAuthEndpoints::Settings s = custom();
    QString error;
    ASSERT_TRUE(OAuthSignIn::run(s, options(QStringLiteral("follow")), &error)) << error.toStdString();
    EXPECT_TRUE(page().contains(OAuthSignIn::signedInPage())) << page().toStdString();

    // The authorization asked: PKCE S256, the mail as login hint, a state of some length, and the
    // listener on the loopback address.
    ASSERT_EQ(authorizeUrls.size(), 1);
    const QUrlQuery query(authorizeUrls.first());
    EXPECT_EQ(query.queryItemValue(QStringLiteral("code_challenge_method")), QStringLiteral("S256"));
    EXPECT_EQ(query.queryItemValue(QStringLiteral("code_challenge")).size(), 43);
    EXPECT_EQ(query.queryItemValue(QStringLiteral("login_hint"), QUrl::FullyDecoded), Mail);
    EXPECT_GE(query.queryItemValue(QStringLiteral("state")).size(), 32);
    EXPECT_TRUE(query.queryItemValue(QStringLiteral("redirect_uri"), QUrl::FullyDecoded)
                    .startsWith(QStringLiteral("http://127.0.0.1:")));

    const std::optional<QString> refresh = storedRefreshToken(s, s.tokenUrl);
    ASSERT_TRUE(refresh.has_value());
    EXPECT_FALSE(refresh->isEmpty());
    // In no file the test's folder or the keyring daemon's home hold in plain text (the keyring
    // file itself is encrypted), and in nothing the sign-in said.
    for (const QString& folder : {dir.path(), keyring.directory()}) {
        QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            QFile file(files.next());
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            EXPECT_FALSE(file.readAll().contains(refresh->toUtf8())) << file.fileName().toStdString();
        }
    }
    EXPECT_FALSE(progress.join(u'\n').contains(*refresh));

    OAuthTokens::Failure failure = OAuthTokens::Failure::Other;
    const std::optional<QString> token = OAuthTokens::accessToken(s, &error, &failure, RequestMs);
    ASSERT_TRUE(token.has_value()) << error.toStdString();
    EXPECT_EQ(failure, OAuthTokens::Failure::None);
    EXPECT_TRUE(activeForMail(*token));
}

TEST_F(OAuthSignInTest, ARedirectWithAnotherStateIsRefusedAndNothingIsStored) {
    const OAuthEndpoints::Settings s = custom();
    QString error;
    EXPECT_FALSE(OAuthSignIn::run(s, options(QStringLiteral("forge-state")), &error));
    EXPECT_EQ(error, QStringLiteral("sign-in refused: the browser came back with another sign-in's state; "
                                    "nothing was stored"));
    EXPECT_TRUE(page().contains(QStringLiteral("Not signed in"))) << "page: " << page().toStdString();
    const SecretStore::Lookup found = store.lookupToken(OAuthTokens::refreshTokenKey(s, s.tokenUrl));
    EXPECT_EQ(found.error, QString());
    EXPECT_FALSE(found.password.has_value());
    // The code was never traded.
    EXPECT_EQ(provider.stats().tokenRequests, 0);
}

TEST_F(OAuthSignInTest, ARedirectWithoutACodeIsRefusedAndNothingIsStored) {
    const OAuthEndpoints::Settings s = custom();
    QString error;
    EXPECT_FALSE(OAuthSignIn::run(s, options(QStringLiteral("drop-code")), &error));
    EXPECT_EQ(
        error,
        QStringLiteral(
            "sign-in refused: the browser came back without an authorization code; nothing was stored"));
    EXPECT_TRUE(page().contains(QStringLiteral("Not signed in"))) << "page: " << page().toStdString();
    EXPECT_FALSE(storedRefreshToken(s, s.tokenUrl).has_value());
    EXPECT_EQ(provider.stats().tokenRequests, 0);
}

TEST_F(OAuthSignInTest, ABrowserThatNeverComesBackEndsTheWaitWithALine) {
    OAuthSignIn::Options o = options(QStringLiteral("follow"));
    o.waitMs = 1000;
    o.openBrowser = [](const QUrl&, QString*) { return true; }; // a browser where nobody signs in
    QString error;
    EXPECT_FALSE(OAuthSignIn::run(custom(), o, &error));
    EXPECT_EQ(error, QStringLiteral("the browser did not come back within 1 s"));
}

// A window's Cancel: another thread says so while the browser is awaited; the wait ends long
// before its deadline, nothing is traded and nothing stored.
TEST_F(OAuthSignInTest, CancellingWhileTheBrowserIsAwaitedEndsTheWaitAndStoresNothing) {
    OAuthSignIn::Options o = options(QStringLiteral("follow"));
    o.waitMs = 120000;
    std::atomic<bool> opened{false};
    o.openBrowser = [&opened](const QUrl&, QString*) { // a browser where nobody signs in
        opened = true;
        return true;
    };
    std::atomic<bool> cancel{false};
    o.cancelled = [&cancel] { return cancel.load(); };
    const OAuthEndpoints::Settings s = custom();
    QString error;
    bool signedIn = true;
    QElapsedTimer timer;
    timer.start();
    std::thread signIn([&] { signedIn = OAuthSignIn::run(s, o, &error); });
    while (!opened && timer.elapsed() < 60000)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    cancel = true;
    signIn.join();
    EXPECT_TRUE(opened.load());
    EXPECT_FALSE(signedIn);
    EXPECT_EQ(error, QStringLiteral("the sign-in was cancelled; nothing was stored"));
    // Far less than the two minutes' wait, with room for a machine kept busy.
    EXPECT_LT(timer.elapsed(), 60000);
    EXPECT_FALSE(storedRefreshToken(s, s.tokenUrl).has_value());
    EXPECT_EQ(provider.stats().tokenRequests, 0);
}

TEST_F(OAuthSignInTest, AConfidentialClientSignsInWithItsSecret) {
    OAuthEndpoints::Settings s = custom();
    s.clientId = QString::fromLatin1(OAuthProvider::SecretClientId);
    s.clientSecret = QString::fromLatin1(OAuthProvider::ClientSecret);
    QString error;
    ASSERT_TRUE(OAuthSignIn::run(s, options(QStringLiteral("follow")), &error)) << error.toStdString();
    OAuthTokens::Failure failure = OAuthTokens::Failure::Other;
    const std::optional<QString> token = OAuthTokens::accessToken(s, &error, &failure, RequestMs);
    ASSERT_TRUE(token.has_value()) << error.toStdString();
    EXPECT_TRUE(activeForMail(*token));
    EXPECT_EQ(provider.stats().refreshRequests, 1);
}

TEST_F(OAuthSignInTest, AConfidentialClientWithoutItsSecretIsRefusedWithALine) {
    OAuthEndpoints::Settings s = custom();
    s.clientId = QString::fromLatin1(OAuthProvider::SecretClientId);
    QString error;
    EXPECT_FALSE(OAuthSignIn::run(s, options(QStringLiteral("follow")), &error));
    EXPECT_TRUE(error.startsWith(
        QStringLiteral("the provider refused to trade the sign-in for tokens: invalid_client")))
        << error.toStdString();
    EXPECT_FALSE(storedRefreshToken(s, s.tokenUrl).has_value());
}

TEST_F(OAuthSignInTest, DiscoverFindsTheEndpointsAndRegistersOnce) {
    OAuthEndpoints::Settings s = custom();
    s.provider = QStringLiteral("discover");
    s.clientId.clear();
    s.authorizeUrl.clear();
    s.tokenUrl.clear();
    s.issuer = provider.baseUrl();
    QString error;
    ASSERT_TRUE(OAuthSignIn::run(s, options(QStringLiteral("follow")), &error)) << error.toStdString();
    EXPECT_EQ(provider.stats().registrations, 1);
    const SecretStore::Lookup clientId =
        store.lookupToken({s.account, s.mail, provider.baseUrl(), QStringLiteral("client-id")});
    ASSERT_TRUE(clientId.password.has_value());
    EXPECT_TRUE(clientId.password->startsWith(QStringLiteral("registered-")));
    EXPECT_TRUE(storedRefreshToken(s, provider.baseUrl()).has_value());

    // The bridge refreshes with the registered client, and a second sign-in registers no more.
    OAuthTokens::Failure failure = OAuthTokens::Failure::Other;
    const std::optional<QString> token = OAuthTokens::accessToken(s, &error, &failure, RequestMs);
    ASSERT_TRUE(token.has_value()) << error.toStdString();
    EXPECT_TRUE(activeForMail(*token));
    ASSERT_TRUE(OAuthSignIn::run(s, options(QStringLiteral("follow")), &error)) << error.toStdString();
    EXPECT_EQ(provider.stats().registrations, 1);
}

TEST_F(OAuthSignInTest, AFreshTokenComesFromMemoryAndAnExpiredOneIsRefreshed) {
    const OAuthEndpoints::Settings s = custom();
    signedInWithoutBrowser(s);
    QString error;
    OAuthTokens::Failure failure = OAuthTokens::Failure::Other;
    const std::optional<QString> first = OAuthTokens::accessToken(s, &error, &failure, RequestMs);
    ASSERT_TRUE(first.has_value()) << error.toStdString();
    EXPECT_EQ(provider.stats().refreshRequests, 1);
    // Fresh: asked again, it comes from memory.
    EXPECT_EQ(OAuthTokens::accessToken(s, &error, &failure, RequestMs), first);
    EXPECT_EQ(provider.stats().refreshRequests, 1);

    // The server refuses it now; the login forgets it, and the next call refreshes.
    ASSERT_TRUE(provider.expire(Mail, &error)) << error.toStdString();
    EXPECT_FALSE(activeForMail(*first));
    OAuthTokens::forget(s);
    const std::optional<QString> second = OAuthTokens::accessToken(s, &error, &failure, RequestMs);
    ASSERT_TRUE(second.has_value()) << error.toStdString();
    EXPECT_EQ(failure, OAuthTokens::Failure::None);
    EXPECT_NE(second, first);
    EXPECT_TRUE(activeForMail(*second));
    EXPECT_EQ(provider.stats().refreshRequests, 2);
}

TEST_F(OAuthSignInTest, ATokenAboutToExpireIsRefreshedBeforeItIsHandedOut) {
    // The provider's tokens live 30 s: always within the minute before expiry, so never reused.
    provider.stop();
    provider.setAccessTtl(30);
    QString error;
    ASSERT_TRUE(provider.start(&error)) << error.toStdString();
    const OAuthEndpoints::Settings s = custom();
    signedInWithoutBrowser(s);
    OAuthTokens::Failure failure = OAuthTokens::Failure::Other;
    ASSERT_TRUE(OAuthTokens::accessToken(s, &error, &failure, RequestMs).has_value()) << error.toStdString();
    ASSERT_TRUE(OAuthTokens::accessToken(s, &error, &failure, RequestMs).has_value()) << error.toStdString();
    EXPECT_EQ(provider.stats().refreshRequests, 2);
}

TEST_F(OAuthSignInTest, ARevokedSignInNeedsASignInAndIsAskedOnce) {
    const OAuthEndpoints::Settings s = custom();
    signedInWithoutBrowser(s);
    QString error;
    ASSERT_TRUE(provider.revoke(Mail, &error)) << error.toStdString();
    OAuthTokens::Failure failure = OAuthTokens::Failure::None;
    EXPECT_FALSE(OAuthTokens::accessToken(s, &error, &failure, RequestMs).has_value());
    EXPECT_EQ(failure, OAuthTokens::Failure::SignInNeeded);
    EXPECT_EQ(error,
              QStringLiteral("sign-in needed: the provider no longer accepts the sign-in of ada@example.org; "
                             "run corvina-mail-bridge account signin work"));
    EXPECT_EQ(provider.stats().tokenRequests, 1);

    // Asked again (the next sync, the command thread), it says the same without asking the
    // provider: the keyring still holds the refused refresh token.
    const QString first = error;
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(OAuthTokens::accessToken(s, &error, &failure, RequestMs).has_value());
        EXPECT_EQ(failure, OAuthTokens::Failure::SignInNeeded);
        EXPECT_EQ(error, first);
    }
    EXPECT_EQ(provider.stats().tokenRequests, 1);

    // A new sign-in stores another refresh token, which is tried at once.
    signedInWithoutBrowser(s);
    const std::optional<QString> token = OAuthTokens::accessToken(s, &error, &failure, RequestMs);
    ASSERT_TRUE(token.has_value()) << error.toStdString();
    EXPECT_TRUE(activeForMail(*token));
    EXPECT_EQ(provider.stats().tokenRequests, 2);
}

TEST_F(OAuthSignInTest, AnAccountThatNeverSignedInNeedsASignInWithoutAskingTheProvider) {
    QString error;
    OAuthTokens::Failure failure = OAuthTokens::Failure::None;
    EXPECT_FALSE(OAuthTokens::accessToken(custom(), &error, &failure, RequestMs).has_value());
    EXPECT_EQ(failure, OAuthTokens::Failure::SignInNeeded);
    EXPECT_EQ(error, QStringLiteral("sign-in needed: ada@example.org has not signed in yet; run "
                                    "corvina-mail-bridge account signin work"));
    EXPECT_EQ(provider.stats().tokenRequests, 0);
}

TEST_F(OAuthSignInTest, AProviderThatCannotBeReachedIsUnreachable) {
    const OAuthEndpoints::Settings s = custom();
    signedInWithoutBrowser(s);
    const QString where = s.tokenUrl;
    provider.stop();
    QString error;
    OAuthTokens::Failure failure = OAuthTokens::Failure::None;
    EXPECT_FALSE(OAuthTokens::accessToken(s, &error, &failure, RequestMs).has_value());
    EXPECT_EQ(failure, OAuthTokens::Failure::Unreachable);
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot refresh the sign-in: cannot reach %1: ").arg(where)))
        << error.toStdString();
}

TEST_F(OAuthSignInTest, ThreadsOfOneAccountShareOneRefresh) {
    const OAuthEndpoints::Settings s = custom();
    signedInWithoutBrowser(s);
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            QString error;
            OAuthTokens::Failure failure = OAuthTokens::Failure::Other;
            if (OAuthTokens::accessToken(s, &error, &failure, RequestMs).has_value())
                ++good;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good.load(), 4);
    EXPECT_EQ(provider.stats().refreshRequests, 1);
}

// The program as a person runs it: `account signin` with the browser that $BROWSER names.
struct SignInRun {
    int exitCode = -1;
    QString out;
    QString err;
};

class SignInProgramTest : public OAuthSignInTest {
protected:
    QString writeConfig(const QString& extra = QString()) {
        const QString path = dir.filePath(QStringLiteral("bridge.conf"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral("[work]\nmail = %1\nhost = 127.0.0.1\nsecurity = none\nport = 143\n%2")
                       .arg(Mail, extra.isNull()
                                      ? QStringLiteral("auth = oauth2\noauthProvider = custom\n"
                                                       "oauthClientId = corvina-test\n"
                                                       "oauthAuthorizeUrl = %1\noauthTokenUrl = %2\n"
                                                       "oauthScope = mail\n")
                                            .arg(provider.authorizeUrl(), provider.tokenUrl())
                                      : extra)
                       .toUtf8());
        return path;
    }

    SignInRun signIn(const QString& config, const QString& mode) {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("BROWSER"), browserScript(mode));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(CORVINA_BRIDGE_BINARY),
                      {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("20"),
                       QStringLiteral("account"), QStringLiteral("signin"), QStringLiteral("work")});
        SignInRun run;
        if (!process.waitForFinished(60000))
            return run;
        run.exitCode = process.exitCode();
        run.out = QString::fromUtf8(process.readAllStandardOutput());
        run.err = QString::fromUtf8(process.readAllStandardError());
        return run;
    }
};

TEST_F(SignInProgramTest, AccountSigninKeepsTheRefreshTokenInTheKeyringAndNowhereElse) {
    const QString config = writeConfig();
    QFile file(config);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    file.close();

    const SignInRun run = signIn(config, QStringLiteral("follow"));
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(
        run.out.contains(QStringLiteral("work: signed in as ada@example.org; the sign-in is kept in the "
                                        "Secret Service")))
        << run.out.toStdString();
    EXPECT_TRUE(page().contains(OAuthSignIn::signedInPage()));
    const std::optional<QString> refresh = storedRefreshToken(custom(), provider.tokenUrl());
    ASSERT_TRUE(refresh.has_value());
    EXPECT_FALSE(run.out.contains(*refresh));
    EXPECT_FALSE(run.err.contains(*refresh));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), before);
}

TEST_F(SignInProgramTest, AForgedStateFailsTheCommandWithALineAndStoresNothing) {
    const SignInRun run = signIn(writeConfig(), QStringLiteral("forge-state"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(
        QStringLiteral("corvina-mail-bridge: work: sign-in failed: sign-in refused: the "
                       "browser came back with another sign-in's state; nothing was stored\n")))
        << run.err.toStdString();
    EXPECT_FALSE(storedRefreshToken(custom(), provider.tokenUrl()).has_value());
}

// A new sign-in changes no file a running bridge follows, so `account signin` nudges it, as the
// Accounts window does after a sign-in: an account waiting with "sign-in needed" tries at once. The
// bridge's own bus service stands for the bridge here. A failed sign-in nudges nobody.
TEST_F(SignInProgramTest, ASignInNudgesARunningBridgeAndAFailedOneDoesNot) {
    CommandService host;
    QString error;
    ASSERT_TRUE(host.registerOn(QDBusConnection::sessionBus(), &error)) << error.toStdString();
    int nudges = 0;
    QObject::connect(&host, &CommandService::retryRequested, [&nudges] { ++nudges; });

    const QString config = writeConfig();
    const SignInRun refused = signIn(config, QStringLiteral("forge-state"));
    EXPECT_EQ(refused.exitCode, 1) << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(QStringLiteral("corvina-mail-bridge: work: sign-in failed: ")))
        << refused.err.toStdString();
    const SignInRun run = signIn(config, QStringLiteral("follow"));
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    // The service hears the bus through the event loop.
    EXPECT_TRUE(waitFor(
        [&nudges] {
            QCoreApplication::processEvents();
            return nudges > 0;
        },
        30000));
    // The bus hands on each program's messages in the order it got them, and the refused run ended
    // before the other started: had it nudged, that nudge would have come first.
    EXPECT_EQ(nudges, 1);
}

TEST_F(SignInProgramTest, AnAccountThatLogsInWithAPasswordHasNoSignIn) {
    const SignInRun run =
        signIn(writeConfig(QStringLiteral("passwordCommand = echo x\n")), QStringLiteral("follow"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              QStringLiteral("corvina-mail-bridge: work: sign-in failed: the account does not sign in with "
                             "OAuth 2 (it needs auth = oauth2 and an oauthProvider)\n"));
    EXPECT_EQ(provider.stats().authorizations, 0);
}

// Without a provider: what is refused before any request.
TEST(OAuthEndpointsTest, PlainHttpIsTakenOnlyForThisMachine) {
    OAuthEndpoints::Settings s;
    s.provider = QStringLiteral("custom");
    s.clientId = QStringLiteral("id");
    s.authorizeUrl = QStringLiteral("http://login.example.org/authorize");
    s.tokenUrl = QStringLiteral("https://login.example.org/token");
    QString error;
    EXPECT_FALSE(OAuthEndpoints::resolve(s, &error, 1000).has_value());
    EXPECT_EQ(
        error,
        QStringLiteral("http://login.example.org/authorize must be https (plain http only to this machine)"));
    s.authorizeUrl = QStringLiteral("http://127.0.0.1:8080/authorize");
    EXPECT_TRUE(OAuthEndpoints::resolve(s, &error, 1000).has_value()) << error.toStdString();
}

TEST(OAuthEndpointsTest, ABuiltInProviderWithoutAClientIdSaysToRegisterOne) {
    OAuthEndpoints::Settings s;
    s.provider = QStringLiteral("microsoft");
    QString error;
    // A package may be built with a client id; then that one is used.
    const QString compiled = OAuthEndpoints::compiledClientId(s.provider);
    const std::optional<OAuthEndpoints> without = OAuthEndpoints::resolve(s, &error, 1000);
    EXPECT_EQ(without.has_value(), !compiled.isEmpty());
    if (compiled.isEmpty()) {
        EXPECT_EQ(error, QStringLiteral(
                             "no OAuth client id for microsoft: register one with the provider and set "
                             "oauthClientId (see \"Outlook.com and Microsoft 365\" in docs/bridge.md), or "
                             "use a package built with one"));
    }
    s.clientId = QStringLiteral("00000000-0000-0000-0000-000000000000");
    const std::optional<OAuthEndpoints> found = OAuthEndpoints::resolve(s, &error, 1000);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->tokenUrl,
              QUrl(QStringLiteral("https://login.microsoftonline.com/common/oauth2/v2.0/token")));
    EXPECT_EQ(found->scope,
              QStringLiteral("https://outlook.office.com/IMAP.AccessAsUser.All offline_access"));
}

TEST(OAuthEndpointsTest, TheMetadataAddressFollowsRfc8414) {
    EXPECT_EQ(OAuthEndpoints::metadataUrl(QUrl(QStringLiteral("https://auth.example.org"))),
              QUrl(QStringLiteral("https://auth.example.org/.well-known/oauth-authorization-server")));
    EXPECT_EQ(OAuthEndpoints::metadataUrl(QUrl(QStringLiteral("https://example.org/tenant/"))),
              QUrl(QStringLiteral("https://example.org/.well-known/oauth-authorization-server/tenant")));
}

TEST(OAuthEndpointsTest, PkceChallengeIsS256OfTheVerifier) {
    // RFC 7636, appendix B.
    EXPECT_EQ(OAuthSignIn::challengeOf(QStringLiteral("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk")),
              QStringLiteral("E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"));
    EXPECT_EQ(OAuthSignIn::makeVerifier().size(), 43);
    EXPECT_NE(OAuthSignIn::makeVerifier(), OAuthSignIn::makeVerifier());
}

} // namespace
} // namespace corvina::test
