// The test OAuth provider (a stand-in for a provider's servers) on its own: the authorization-code
// flow with PKCE, refresh, revocation, metadata and registration; then Dovecot logging users in
// with its tokens (XOAUTH2 and OAUTHBEARER, checked by introspection), beside password logins.
#include "support/OAuthProvider.h"

#include "support/DovecotServer.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpSocket>
#include <QThread>
#include <QUrlQuery>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

const QString Ada = QStringLiteral("ada@example.org");
const QString Verifier = QStringLiteral("verifier-of-the-test-0123456789-abcdefghijklmnopqrstuvwxyz");
const QString Redirect = QStringLiteral("http://127.0.0.1:5555/");

QString s256(const QString& verifier) {
    return QString::fromLatin1(QCryptographicHash::hash(verifier.toLatin1(), QCryptographicHash::Sha256)
                                   .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

class OAuthProviderTest : public ::testing::Test {
protected:
    void SetUp() override {
        QString error;
        ASSERT_TRUE(provider.start(&error)) << error.toStdString();
    }

    // The authorization URL a client builds; `change` adds, replaces or (with a null value)
    // leaves out parameters.
    QUrl authorizeUrl(const QList<QPair<QString, QString>>& change = {}) const {
        QList<QPair<QString, QString>> parameters{
            {QStringLiteral("response_type"), QStringLiteral("code")},
            {QStringLiteral("client_id"), QStringLiteral("corvina-test")},
            {QStringLiteral("redirect_uri"), Redirect},
            {QStringLiteral("state"), QStringLiteral("st&te =1")},
            {QStringLiteral("code_challenge"), s256(Verifier)},
            {QStringLiteral("code_challenge_method"), QStringLiteral("S256")},
            {QStringLiteral("login_hint"), Ada}};
        for (const auto& [name, value] : change) {
            auto it = std::find_if(parameters.begin(), parameters.end(),
                                   [&](const auto& p) { return p.first == name; });
            if (it != parameters.end())
                parameters.erase(it);
            if (!value.isNull())
                parameters.append({name, value});
        }
        QUrl url(provider.authorizeUrl());
        url.setQuery(QString::fromLatin1(OAuthProvider::formBody(parameters)));
        return url;
    }

    // The code the provider redirects with, after checking the redirect.
    QString authorize(const QList<QPair<QString, QString>>& change = {}) {
        const OAuthProvider::Reply reply = OAuthProvider::get(authorizeUrl(change));
        EXPECT_EQ(reply.status, 302) << reply.error.toStdString() << reply.body.toStdString();
        const QUrl location(reply.location());
        EXPECT_EQ(location.toString(QUrl::RemoveQuery), Redirect);
        const QUrlQuery query(location);
        EXPECT_EQ(query.queryItemValue(QStringLiteral("state"), QUrl::FullyDecoded),
                  QStringLiteral("st&te =1"));
        return query.queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded);
    }

    OAuthProvider::Reply redeem(const QString& code, const QString& verifier = Verifier,
                                const QString& clientId = QStringLiteral("corvina-test")) {
        return OAuthProvider::postForm(QUrl(provider.tokenUrl()),
                                       {{QStringLiteral("grant_type"), QStringLiteral("authorization_code")},
                                        {QStringLiteral("code"), code},
                                        {QStringLiteral("redirect_uri"), Redirect},
                                        {QStringLiteral("client_id"), clientId},
                                        {QStringLiteral("code_verifier"), verifier}});
    }

    OAuthProvider::Reply refresh(const QString& refreshToken) {
        return OAuthProvider::postForm(QUrl(provider.tokenUrl()),
                                       {{QStringLiteral("grant_type"), QStringLiteral("refresh_token")},
                                        {QStringLiteral("refresh_token"), refreshToken},
                                        {QStringLiteral("client_id"), QStringLiteral("corvina-test")}});
    }

    QJsonObject introspect(const QString& token) {
        return OAuthProvider::postForm(QUrl(provider.introspectUrl()), {{QStringLiteral("token"), token}})
            .json();
    }

    OAuthProvider provider;
};

TEST_F(OAuthProviderTest, TheCodeFlowWithTheRightVerifierGivesTokensOfTheHintedUser) {
    const QString code = authorize();
    ASSERT_FALSE(code.isEmpty());
    const OAuthProvider::Reply reply = redeem(code);
    ASSERT_EQ(reply.status, 200) << reply.body.toStdString();
    const QJsonObject tokens = reply.json();
    EXPECT_EQ(tokens.value("token_type").toString(), QStringLiteral("Bearer"));
    EXPECT_EQ(tokens.value("expires_in").toInt(), 3600);
    const QString access = tokens.value("access_token").toString();
    EXPECT_GE(access.size(), 40); // 32 random bytes
    EXPECT_FALSE(tokens.value("refresh_token").toString().isEmpty());
    EXPECT_EQ(reply.headers.value("cache-control"), QByteArray("no-store"));

    const QJsonObject active = introspect(access);
    EXPECT_TRUE(active.value("active").toBool());
    EXPECT_EQ(active.value("username").toString(), Ada);
    EXPECT_FALSE(introspect(QStringLiteral("made-up")).value("active").toBool(true));

    // Without login_hint it approves as its default user.
    const QJsonObject other = redeem(authorize({{QStringLiteral("login_hint"), QString()}})).json();
    EXPECT_EQ(introspect(other.value("access_token").toString()).value("username").toString(),
              QStringLiteral("user@example.org"));
    // The log names requests, never a code or token.
    const QString log = provider.log();
    EXPECT_TRUE(log.contains(QLatin1String("POST /token 200"))) << log.toStdString();
    EXPECT_FALSE(log.contains(code));
    EXPECT_FALSE(log.contains(access));
}

TEST_F(OAuthProviderTest, AWrongVerifierIsAnInvalidGrant) {
    const OAuthProvider::Reply reply =
        redeem(authorize(), QStringLiteral("another-verifier-0123456789-abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(reply.json().value("error").toString(), QStringLiteral("invalid_grant"));
    EXPECT_FALSE(reply.json().contains("access_token"));
}

TEST_F(OAuthProviderTest, ACodeIsRedeemedOnceOnly) {
    const QString code = authorize();
    EXPECT_EQ(redeem(code).status, 200);
    const OAuthProvider::Reply again = redeem(code);
    EXPECT_EQ(again.status, 400);
    EXPECT_EQ(again.json().value("error").toString(), QStringLiteral("invalid_grant"));
    // A code is worth one try: a failed one uses it up too.
    const QString other = authorize();
    EXPECT_EQ(redeem(other, QStringLiteral("wrong-verifier-0123456789-abcdefghijklmnopqrstuvwxyz")).status,
              400);
    EXPECT_EQ(redeem(other).json().value("error").toString(), QStringLiteral("invalid_grant"));
    // An unknown code is refused as well.
    EXPECT_EQ(redeem(QStringLiteral("not-a-code")).json().value("error").toString(),
              QStringLiteral("invalid_grant"));
}

TEST_F(OAuthProviderTest, RefreshGivesANewAccessTokenUntilTheGrantIsRevoked) {
    const QJsonObject tokens = redeem(authorize()).json();
    const QString refreshToken = tokens.value("refresh_token").toString();
    const OAuthProvider::Reply refreshed = refresh(refreshToken);
    ASSERT_EQ(refreshed.status, 200) << refreshed.body.toStdString();
    const QString access = refreshed.json().value("access_token").toString();
    EXPECT_NE(access, tokens.value("access_token").toString());
    EXPECT_EQ(refreshed.json().value("refresh_token").toString(), refreshToken);
    EXPECT_EQ(introspect(access).value("username").toString(), Ada);

    ASSERT_TRUE(provider.revoke(Ada));
    const OAuthProvider::Reply refused = refresh(refreshToken);
    EXPECT_EQ(refused.status, 400);
    EXPECT_EQ(refused.json().value("error").toString(), QStringLiteral("invalid_grant"));
    EXPECT_FALSE(introspect(access).value("active").toBool(true));
    EXPECT_FALSE(introspect(tokens.value("access_token").toString()).value("active").toBool(true));

    const OAuthProvider::Stats stats = provider.stats();
    EXPECT_EQ(stats.authorizations, 1);
    EXPECT_EQ(stats.tokenRequests, 3); // the code, then two refreshes
    EXPECT_EQ(stats.refreshRequests, 2);
    EXPECT_EQ(stats.introspections, 3);
}

TEST_F(OAuthProviderTest, ExpiredAccessTokensAreInactiveButTheirRefreshTokenStaysGood) {
    const std::optional<OAuthProvider::Tokens> tokens = provider.mint(Ada);
    ASSERT_TRUE(tokens);
    EXPECT_EQ(tokens->expiresIn, 3600);
    EXPECT_TRUE(introspect(tokens->accessToken).value("active").toBool());
    ASSERT_TRUE(provider.expire(Ada));
    EXPECT_FALSE(introspect(tokens->accessToken).value("active").toBool(true));
    const OAuthProvider::Reply refreshed = refresh(tokens->refreshToken);
    ASSERT_EQ(refreshed.status, 200);
    EXPECT_TRUE(introspect(refreshed.json().value("access_token").toString()).value("active").toBool());
}

TEST_F(OAuthProviderTest, AnAccessTokenRunsOutAfterItsLifetime) {
    const std::optional<OAuthProvider::Tokens> tokens = provider.mint(Ada, 1);
    ASSERT_TRUE(tokens);
    EXPECT_EQ(tokens->expiresIn, 1);
    // Within two seconds it is out (whole seconds: it was minted in one and lives one more).
    QElapsedTimer waited;
    waited.start();
    while (introspect(tokens->accessToken).value("active").toBool() && waited.elapsed() < 10000)
        QThread::msleep(100);
    EXPECT_FALSE(introspect(tokens->accessToken).value("active").toBool(true));
}

TEST_F(OAuthProviderTest, TheAuthorizationPageRefusesWhatANativeAppMustNotSend) {
    const QList<QPair<QString, QString>> refused[] = {
        {{QStringLiteral("client_id"), QStringLiteral("nobody-knows-me")}},
        {{QStringLiteral("redirect_uri"), QStringLiteral("https://example.org/callback")}},
        {{QStringLiteral("redirect_uri"), QStringLiteral("http://localhost:5555/")}},
        {{QStringLiteral("redirect_uri"), QStringLiteral("http://127.0.0.1/")}},
        {{QStringLiteral("code_challenge_method"), QStringLiteral("plain")}},
        {{QStringLiteral("code_challenge_method"), QString()}},
        {{QStringLiteral("code_challenge"), QString()}},
        {{QStringLiteral("state"), QString()}},
        {{QStringLiteral("response_type"), QStringLiteral("token")}},
    };
    for (const auto& change : refused) {
        const OAuthProvider::Reply reply = OAuthProvider::get(authorizeUrl(change));
        EXPECT_EQ(reply.status, 400) << change.first().first.toStdString() << "="
                                     << change.first().second.toStdString();
        EXPECT_FALSE(reply.json().value("error").toString().isEmpty());
        EXPECT_TRUE(reply.location().isEmpty());
    }
}

TEST_F(OAuthProviderTest, TheConfidentialClientNeedsItsSecret) {
    const QList<QPair<QString, QString>> confidential{
        {QStringLiteral("client_id"), QStringLiteral("corvina-secret")}};
    const OAuthProvider::Reply without =
        redeem(authorize(confidential), Verifier, QStringLiteral("corvina-secret"));
    EXPECT_EQ(without.status, 401);
    EXPECT_EQ(without.json().value("error").toString(), QStringLiteral("invalid_client"));

    const OAuthProvider::Reply basic = OAuthProvider::postForm(
        QUrl(provider.tokenUrl()),
        {{QStringLiteral("grant_type"), QStringLiteral("authorization_code")},
         {QStringLiteral("code"), authorize(confidential)},
         {QStringLiteral("redirect_uri"), Redirect},
         {QStringLiteral("code_verifier"), Verifier}},
        {{"Authorization", "Basic " + QByteArray("corvina-secret:s3cret-for-tests").toBase64()}});
    EXPECT_EQ(basic.status, 200) << basic.body.toStdString();
    EXPECT_FALSE(basic.json().value("access_token").toString().isEmpty());
}

TEST_F(OAuthProviderTest, MetadataNamesTheEndpointsAndARegisteredClientCanSignIn) {
    const OAuthProvider::Reply metadata = OAuthProvider::get(QUrl(provider.metadataUrl()));
    ASSERT_EQ(metadata.status, 200);
    const QJsonObject document = metadata.json();
    EXPECT_EQ(document.value("issuer").toString(), provider.baseUrl());
    EXPECT_EQ(document.value("authorization_endpoint").toString(), provider.authorizeUrl());
    EXPECT_EQ(document.value("token_endpoint").toString(), provider.tokenUrl());
    EXPECT_EQ(document.value("registration_endpoint").toString(), provider.registerUrl());
    EXPECT_EQ(document.value("code_challenge_methods_supported").toArray(),
              QJsonArray{QStringLiteral("S256")});
    EXPECT_TRUE(document.value("grant_types_supported").toArray().contains(QStringLiteral("refresh_token")));
    EXPECT_EQ(document.value("response_types_supported").toArray(), QJsonArray{QStringLiteral("code")});

    const QJsonObject request{{"client_name", "Corvina mail bridge"},
                              {"redirect_uris", QJsonArray{QStringLiteral("http://127.0.0.1:5555/")}},
                              {"token_endpoint_auth_method", "none"},
                              {"grant_types", QJsonArray{"authorization_code", "refresh_token"}}};
    const OAuthProvider::Reply registered =
        OAuthProvider::post(QUrl(provider.registerUrl()),
                            QJsonDocument(request).toJson(QJsonDocument::Compact), "application/json");
    ASSERT_EQ(registered.status, 201) << registered.body.toStdString();
    const QString clientId = registered.json().value("client_id").toString();
    ASSERT_FALSE(clientId.isEmpty());
    EXPECT_FALSE(registered.json().contains("client_secret"));

    const OAuthProvider::Reply tokens =
        redeem(authorize({{QStringLiteral("client_id"), clientId}}), Verifier, clientId);
    EXPECT_EQ(tokens.status, 200) << tokens.body.toStdString();
    // The code is the client's own: another client cannot redeem it.
    EXPECT_EQ(redeem(authorize({{QStringLiteral("client_id"), clientId}})).json().value("error").toString(),
              QStringLiteral("invalid_grant"));

    // A confidential client or a redirect off loopback is not registered.
    const QJsonObject confidential{{"redirect_uris", QJsonArray{QStringLiteral("http://127.0.0.1:5555/")}},
                                   {"token_endpoint_auth_method", "client_secret_basic"}};
    const QJsonObject remote{{"redirect_uris", QJsonArray{QStringLiteral("https://example.org/")}}};
    for (const QJsonObject& bad : {confidential, remote}) {
        const OAuthProvider::Reply refused =
            OAuthProvider::post(QUrl(provider.registerUrl()),
                                QJsonDocument(bad).toJson(QJsonDocument::Compact), "application/json");
        EXPECT_EQ(refused.status, 400);
        EXPECT_FALSE(refused.json().value("error").toString().isEmpty());
    }
    EXPECT_EQ(provider.stats().registrations, 3);
}

// A session with the test's Dovecot, spoken by hand: what a client sends for each mechanism is
// exactly what the test wrote.
class ImapLine {
public:
    bool connect(quint16 port) {
        m_socket.connectToHost(QStringLiteral("127.0.0.1"), port);
        return m_socket.waitForConnected(10000) && readLine().startsWith("* OK");
    }
    // Sends a command and answers its tagged result line. A continuation request ("+ ...", the
    // server's error details after a refused token) is answered with an empty line, as RFC 7628
    // asks.
    QByteArray command(const QByteArray& text) {
        const QByteArray tag = "a" + QByteArray::number(++m_tag);
        m_socket.write(tag + ' ' + text + "\r\n");
        for (;;) {
            const QByteArray line = readLine();
            if (line.isEmpty())
                return "(no answer)";
            if (line.startsWith("+ "))
                m_socket.write("\r\n");
            else if (line.startsWith(tag + ' '))
                return line.mid(tag.size() + 1).trimmed();
        }
    }

private:
    QByteArray readLine() {
        while (!m_socket.canReadLine()) {
            if (!m_socket.waitForReadyRead(15000))
                return QByteArray();
        }
        return m_socket.readLine();
    }

    QTcpSocket m_socket;
    int m_tag = 0;
};

QByteArray xoauth2(const QString& user, const QString& token) {
    return "AUTHENTICATE XOAUTH2 " + ("user=" + user.toUtf8() +
                                      "\x01"
                                      "auth=Bearer " +
                                      token.toUtf8() + "\x01\x01")
                                         .toBase64();
}

QByteArray oauthbearer(const QString& user, const QString& token) {
    return "AUTHENTICATE OAUTHBEARER " + ("n,a=" + user.toUtf8() +
                                          ",\x01"
                                          "auth=Bearer " +
                                          token.toUtf8() + "\x01\x01")
                                             .toBase64();
}

class DovecotTokenLoginTest : public OAuthProviderTest {
protected:
    void SetUp() override {
        OAuthProviderTest::SetUp();
        server.enableTokenLogins(provider.introspectUrl());
        server.addUser(Ada, QStringLiteral("secret"));
        QString error;
        ASSERT_TRUE(server.start(&error)) << error.toStdString();
    }

    QByteArray login(const QByteArray& command) {
        ImapLine imap;
        if (!imap.connect(server.port()))
            return "(no greeting)";
        return imap.command(command);
    }

    DovecotServer server;
};

TEST_F(DovecotTokenLoginTest, AMintedTokenLogsInWithEitherMechanism) {
    const std::optional<OAuthProvider::Tokens> tokens = provider.mint(Ada);
    ASSERT_TRUE(tokens);
    for (const QByteArray& command :
         {xoauth2(Ada, tokens->accessToken), oauthbearer(Ada, tokens->accessToken)}) {
        ImapLine imap;
        ASSERT_TRUE(imap.connect(server.port()));
        const QByteArray answer = imap.command(command);
        EXPECT_TRUE(answer.startsWith("OK")) << command.split(' ')[1].toStdString() << ": "
                                             << answer.toStdString() << server.log().toStdString();
        // a real session: the user's own mailbox
        EXPECT_TRUE(imap.command("SELECT INBOX").startsWith("OK"));
    }
    // Dovecot asked the provider each time.
    EXPECT_EQ(provider.stats().introspections, 2);
}

TEST_F(DovecotTokenLoginTest, RevokedExpiredOrSomeoneElsesTokensAreRefused) {
    const std::optional<OAuthProvider::Tokens> expired = provider.mint(Ada);
    ASSERT_TRUE(expired);
    ASSERT_TRUE(provider.expire(Ada));
    EXPECT_TRUE(login(xoauth2(Ada, expired->accessToken)).startsWith("NO"));
    EXPECT_TRUE(login(oauthbearer(Ada, expired->accessToken)).startsWith("NO"));

    const std::optional<OAuthProvider::Tokens> revoked = provider.mint(Ada);
    ASSERT_TRUE(revoked);
    EXPECT_TRUE(login(xoauth2(Ada, revoked->accessToken)).startsWith("OK"));
    ASSERT_TRUE(provider.revoke(Ada));
    EXPECT_TRUE(login(xoauth2(Ada, revoked->accessToken)).startsWith("NO"));
    EXPECT_TRUE(login(oauthbearer(Ada, revoked->accessToken)).startsWith("NO"));

    const std::optional<OAuthProvider::Tokens> grace = provider.mint(QStringLiteral("grace@example.org"));
    ASSERT_TRUE(grace);
    EXPECT_TRUE(login(xoauth2(Ada, grace->accessToken)).startsWith("NO"));
    // Nor is a token taken as a password.
    const std::optional<OAuthProvider::Tokens> fresh = provider.mint(Ada);
    ASSERT_TRUE(fresh);
    EXPECT_TRUE(
        login("LOGIN \"" + Ada.toUtf8() + "\" \"" + fresh->accessToken.toUtf8() + '"').startsWith("NO"));
    EXPECT_TRUE(login(xoauth2(Ada, fresh->accessToken)).startsWith("OK"));
}

TEST_F(DovecotTokenLoginTest, PasswordsStillLogIn) {
    EXPECT_TRUE(login("LOGIN \"" + Ada.toUtf8() + "\" \"secret\"").startsWith("OK"));
    EXPECT_TRUE(login("AUTHENTICATE PLAIN " +
                      (QByteArray(1, '\0') + Ada.toUtf8() + QByteArray(1, '\0') + "secret").toBase64())
                    .startsWith("OK"));
    EXPECT_TRUE(login("LOGIN \"" + Ada.toUtf8() + "\" \"wrong\"").startsWith("NO"));
}

TEST_F(DovecotTokenLoginTest, ARefusedLoginDoesNotHoldUpTheNextOnes) {
    const std::optional<OAuthProvider::Tokens> tokens = provider.mint(Ada);
    ASSERT_TRUE(tokens);
    // With Dovecot's defaults each refusal would wait 2 s and hold up the next logins from this
    // address by 2, 4, 8, 15 s: four refusals and a login would take half a minute. A bound far
    // above what this takes on a busy machine, far below that.
    QElapsedTimer elapsed;
    elapsed.start();
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(login(xoauth2(Ada, QStringLiteral("not-a-token-%1").arg(i))).startsWith("NO"));
    EXPECT_TRUE(login(xoauth2(Ada, tokens->accessToken)).startsWith("OK"));
    std::printf("four refused logins and one accepted: %lld ms\n", static_cast<long long>(elapsed.elapsed()));
    EXPECT_LT(elapsed.elapsed(), 10000);
}

} // namespace
} // namespace corvina::test
