// Logging in with an OAuth 2 access token: the SASL messages byte for byte (against the examples
// their specifications publish), then ImapSession against the test's Dovecot, which asks the
// stand-in provider (support/OAuthProvider) about every token it is given.
#include "bridge/imap/TokenLogin.h"

#include "BridgeTesting.h"
#include "bridge/imap/ImapSession.h"

#include <gtest/gtest.h>

namespace corvina::test {
namespace {

using Mechanism = TokenLogin::Mechanism;

TEST(TokenLoginMessageTest, OAuthBearerIsTheExampleOfItsSpecification) {
    const QByteArray message =
        TokenLogin::initialResponse(Mechanism::OAuthBearer, QStringLiteral("user@example.com"),
                                    QStringLiteral("vF9dft4qmTc2Nvb3RlckBhbHRhdmlzdGEuY29tCg=="),
                                    QStringLiteral("server.example.com"), 143);
    EXPECT_EQ(message, QByteArray("n,a=user@example.com,\x01host=server.example.com\x01port=143\x01"
                                  "auth=Bearer vF9dft4qmTc2Nvb3RlckBhbHRhdmlzdGEuY29tCg==\x01\x01"));
    EXPECT_EQ(message.toBase64(),
              QByteArray("bixhPXVzZXJAZXhhbXBsZS5jb20sAWhvc3Q9c2VydmVyLmV4YW1wbGUuY29tAXBvcnQ9MTQz"
                         "AWF1dGg9QmVhcmVyIHZGOWRmdDRxbVRjMk52YjNSbGNrQmhiSFJoZG1semRHRXVZMjl0"
                         "Q2c9PQEB"));
}

TEST(TokenLoginMessageTest, XOAuth2IsTheExampleOfItsDocumentation) {
    const QByteArray message =
        TokenLogin::initialResponse(Mechanism::XOAuth2, QStringLiteral("someuser@example.com"),
                                    QStringLiteral("ya29.vF9dft4qmTc2Nvb3RlckBhdHRhdmlzdGEuY29tCg"),
                                    QStringLiteral("imap.example.com"), 993);
    EXPECT_EQ(message.toBase64(),
              QByteArray("dXNlcj1zb21ldXNlckBleGFtcGxlLmNvbQFhdXRoPUJlYXJlciB5YTI5LnZGOWRmdDRxbVRj"
                         "Mk52YjNSbGNrQmhkSFJoZG1semRHRXVZMjl0Q2cBAQ=="));
}

TEST(TokenLoginMessageTest, ACommaOrEqualsSignInTheUserIsEscapedInTheHeader) {
    const QByteArray message = TokenLogin::initialResponse(Mechanism::OAuthBearer, QStringLiteral("a,b=c"),
                                                           QStringLiteral("t"), QStringLiteral("h"), 1);
    EXPECT_TRUE(message.startsWith("n,a=a=2Cb=3Dc,\x01")) << message.toStdString();
}

TEST(TokenLoginMessageTest, OAuthBearerIsPreferredAndNoMechanismIsNothing) {
    EXPECT_EQ(TokenLogin::choose({"IMAP4REV1", "AUTH=XOAUTH2", "AUTH=OAUTHBEARER"}), Mechanism::OAuthBearer);
    EXPECT_EQ(TokenLogin::choose({"IMAP4REV1", "AUTH=XOAUTH2", "AUTH=PLAIN"}), Mechanism::XOAuth2);
    EXPECT_EQ(TokenLogin::choose({"IMAP4REV1", "AUTH=PLAIN"}), std::nullopt);
    EXPECT_EQ(TokenLogin::name(Mechanism::OAuthBearer), QByteArray("OAUTHBEARER"));
    EXPECT_EQ(TokenLogin::name(Mechanism::XOAuth2), QByteArray("XOAUTH2"));
    // The answer to an error challenge: 0x01 for OAUTHBEARER, an empty line for XOAUTH2.
    EXPECT_EQ(TokenLogin::errorAcknowledgement(Mechanism::OAuthBearer).toBase64(), QByteArray("AQ=="));
    EXPECT_EQ(TokenLogin::errorAcknowledgement(Mechanism::XOAuth2).toBase64(), QByteArray());
}

TEST(TokenLoginMessageTest, TheChallengeGivesOnlyItsStatusAndError) {
    EXPECT_EQ(TokenLogin::challengeText(
                  R"({"status":"invalid_token","schemes":"bearer","scope":"imap"})"_qba.toBase64()),
              QStringLiteral("status invalid_token"));
    EXPECT_EQ(TokenLogin::challengeText(R"({"status":"401","schemes":"Bearer"})"_qba.toBase64()),
              QStringLiteral("status 401"));
    EXPECT_EQ(TokenLogin::challengeText(R"({"status":400,"error":"expired"})"_qba.toBase64()),
              QStringLiteral("status 400, expired"));
    // A value with spaces or line breaks, or that is no JSON at all, is left out.
    EXPECT_EQ(TokenLogin::challengeText(R"({"status":"bad\nline","error":"a b"})"_qba.toBase64()), QString());
    EXPECT_EQ(TokenLogin::challengeText("not base64 json"), QString());
}

// ImapSession against Dovecot taking tokens from the stand-in provider, for user ada.
class TokenSessionTest : public TokenServerTest {
protected:
    ImapSession::Settings settings() const {
        ImapSession::Settings s;
        s.host = server.host();
        s.port = server.port();
        s.security = ImapSession::Security::None;
        s.timeoutSeconds = 10;
        return s;
    }
};

TEST_F(TokenSessionTest, OAuthBearerIsChosenWhenOfferedAndTheSessionWorks) {
    const QString token = mint();
    ImapSession session(settings());
    ASSERT_TRUE(session.connectToServer()) << session.errorText().toStdString();
    ASSERT_TRUE(session.authenticateWithToken(User, token)) << session.errorText().toStdString();
    EXPECT_TRUE(session.examine(QStringLiteral("INBOX"))) << session.errorText().toStdString();
    // What the server offers after login is asked afresh, not taken from before it.
    EXPECT_TRUE(session.supportsIdle());
    EXPECT_TRUE(session.hasCapability("MOVE"));
    session.logout();
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 1) << server.log().toStdString();
    EXPECT_EQ(loginsWith(QStringLiteral("XOAUTH2")), 0);
}

TEST_F(TokenSessionTest, ARefusedTokenIsALoginRefusedAfterTheChallengeIsAnswered) {
    const QString token = mint();
    ASSERT_TRUE(provider.expire(User));
    ImapSession session(settings());
    ASSERT_TRUE(session.connectToServer()) << session.errorText().toStdString();
    EXPECT_FALSE(session.authenticateWithToken(User, token));
    EXPECT_EQ(session.failure(), ImapSession::Failure::LoginRefused);
    // Answered at once: the challenge was acknowledged, not left waiting for the timeout.
    EXPECT_TRUE(session.errorText().startsWith(QStringLiteral("token login (OAUTHBEARER) refused for ada: ")))
        << session.errorText().toStdString();
    EXPECT_FALSE(session.errorText().contains(token));
    // The connection is still good for another try with a fresh token.
    EXPECT_TRUE(session.isConnected());
    EXPECT_TRUE(session.authenticateWithToken(User, mint())) << session.errorText().toStdString();
    EXPECT_TRUE(session.examine(QStringLiteral("INBOX")));
}

TEST_F(TokenSessionTest, APasswordServerIsRefusedWithoutSendingTheToken) {
    ImapSession session(settings());
    // A server offering tokens: the same account with a password still logs in.
    ASSERT_TRUE(session.connectToServer());
    EXPECT_TRUE(session.login(User, Password)) << session.errorText().toStdString();
    session.logout();
}

class XOAuth2OnlyTest : public TokenSessionTest {
protected:
    QString mechanisms() const override { return QStringLiteral("xoauth2"); }
};

TEST_F(XOAuth2OnlyTest, XOAuth2IsUsedWhenItIsAllTheServerOffers) {
    const QString token = mint();
    ImapSession session(settings());
    ASSERT_TRUE(session.connectToServer()) << session.errorText().toStdString();
    ASSERT_TRUE(session.authenticateWithToken(User, token)) << session.errorText().toStdString();
    EXPECT_TRUE(session.examine(QStringLiteral("INBOX"))) << session.errorText().toStdString();
    session.logout();
    EXPECT_EQ(loginsWith(QStringLiteral("XOAUTH2")), 1) << server.log().toStdString();
    EXPECT_EQ(loginsWith(QStringLiteral("OAUTHBEARER")), 0);

    // Refused: XOAUTH2's challenge is answered with an empty line.
    ASSERT_TRUE(provider.revoke(User));
    ASSERT_TRUE(session.connectToServer());
    EXPECT_FALSE(session.authenticateWithToken(User, token));
    EXPECT_EQ(session.failure(), ImapSession::Failure::LoginRefused);
    EXPECT_TRUE(session.errorText().startsWith(QStringLiteral("token login (XOAUTH2) refused for ada: ")))
        << session.errorText().toStdString();
}

class NoTokenServerTest : public BridgeServerTest {};

TEST_F(NoTokenServerTest, AServerWithoutTokenLoginsIsRefusedWithoutAWordOfTheToken) {
    ImapSession::Settings s;
    s.host = server.host();
    s.port = server.port();
    s.security = ImapSession::Security::None;
    s.timeoutSeconds = 10;
    ImapSession session(s);
    ASSERT_TRUE(session.connectToServer());
    EXPECT_FALSE(session.authenticateWithToken(User, QStringLiteral("never-sent-token")));
    EXPECT_EQ(session.failure(), ImapSession::Failure::Refused);
    EXPECT_EQ(session.errorText(),
              QStringLiteral("the server offers no token login (AUTH=OAUTHBEARER or AUTH=XOAUTH2)"));
    session.logout();
    EXPECT_FALSE(server.log().contains(QStringLiteral("never-sent-token")));
}

} // namespace
} // namespace corvina::test
