// The answers about a new account turned into its group of bridge.conf: which keys are written and
// which are left to the bridge's defaults, the same for `account add` and the Accounts window.
#include "bridge/config/AccountAnswers.h"

#include <gtest/gtest.h>

namespace corvina::test {
namespace {

AccountAnswers plainAnswers() {
    AccountAnswers a;
    a.name = QStringLiteral("work");
    a.mail = QStringLiteral("ada@example.org");
    a.host = QStringLiteral("imap.example.org");
    a.port = QStringLiteral("993");
    a.security = QStringLiteral("tls");
    a.user = QStringLiteral("ada");
    return a;
}

ProviderTable::Provider signInProvider() {
    ProviderTable::Provider p;
    p.id = QStringLiteral("big");
    p.name = QStringLiteral("Big Mail");
    p.host = QStringLiteral("imap.big.example");
    p.port = 993;
    p.security = QStringLiteral("tls");
    p.auth = QStringLiteral("oauth2");
    p.oauthProvider = QStringLiteral("microsoft");
    return p;
}

TEST(AccountAnswersTest, TheServerAndLoginAreAlwaysWrittenTheBridgesDefaultsNever) {
    AccountAnswers a = plainAnswers();
    a.auth = QStringLiteral("password");
    a.inbox = QStringLiteral("INBOX");
    const AccountGroup group = a.group();
    EXPECT_EQ(group.name(), QStringLiteral("work"));
    EXPECT_EQ(group.keys(), (QVariantMap{{QStringLiteral("mail"), QStringLiteral("ada@example.org")},
                                         {QStringLiteral("host"), QStringLiteral("imap.example.org")},
                                         {QStringLiteral("port"), QStringLiteral("993")},
                                         {QStringLiteral("security"), QStringLiteral("tls")},
                                         {QStringLiteral("user"), QStringLiteral("ada")}}));
    EXPECT_EQ(group.read().problem, QString());
}

TEST(AccountAnswersTest, EveryAnswerGivenIsWritten) {
    AccountAnswers a = plainAnswers();
    a.auth = QStringLiteral("oauth2");
    a.oauthProvider = QStringLiteral("google");
    a.oauthClientId = QStringLiteral("id");
    a.oauthClientSecret = QStringLiteral("shh");
    a.inbox = QStringLiteral("Incoming");
    a.todo = QStringLiteral("Tasks");
    a.memo = QStringLiteral("Notes");
    a.caFile = QStringLiteral("/etc/ssl/ca.pem");
    a.passwordCommand = QStringLiteral("pass mail");
    const QVariantMap keys = a.group().keys();
    EXPECT_EQ(keys.size(), 14);
    EXPECT_EQ(keys.value(QStringLiteral("auth")), QStringLiteral("oauth2"));
    EXPECT_EQ(keys.value(QStringLiteral("oauthProvider")), QStringLiteral("google"));
    EXPECT_EQ(keys.value(QStringLiteral("oauthClientId")), QStringLiteral("id"));
    EXPECT_EQ(keys.value(QStringLiteral("oauthClientSecret")), QStringLiteral("shh"));
    EXPECT_EQ(keys.value(QStringLiteral("inbox")), QStringLiteral("Incoming"));
    EXPECT_EQ(keys.value(QStringLiteral("todo")), QStringLiteral("Tasks"));
    EXPECT_EQ(keys.value(QStringLiteral("memo")), QStringLiteral("Notes"));
    EXPECT_EQ(keys.value(QStringLiteral("caFile")), QStringLiteral("/etc/ssl/ca.pem"));
    EXPECT_EQ(keys.value(QStringLiteral("passwordCommand")), QStringLiteral("pass mail"));
}

TEST(AccountAnswersTest, AnEmptyLoginNameIsTheMailAddress) {
    AccountAnswers a = plainAnswers();
    a.user.clear();
    EXPECT_EQ(a.group().keys().value(QStringLiteral("user")), QStringLiteral("ada@example.org"));
}

TEST(AccountAnswersTest, AProvidersServerIsTakenWithItsSignInOnlyForAnAccountThatSignsIn) {
    AccountAnswers withPassword;
    withPassword.name = QStringLiteral("big");
    withPassword.mail = QStringLiteral("ada@big.example");
    withPassword.takeServerOf(signInProvider());
    EXPECT_EQ(withPassword.group().keys(),
              (QVariantMap{{QStringLiteral("mail"), QStringLiteral("ada@big.example")},
                           {QStringLiteral("host"), QStringLiteral("imap.big.example")},
                           {QStringLiteral("port"), QStringLiteral("993")},
                           {QStringLiteral("security"), QStringLiteral("tls")},
                           {QStringLiteral("user"), QStringLiteral("ada@big.example")}}));

    AccountAnswers signingIn = withPassword;
    signingIn.auth = QStringLiteral("oauth2");
    signingIn.takeServerOf(signInProvider());
    const AccountGroup group = signingIn.group();
    EXPECT_EQ(group.keys().value(QStringLiteral("auth")), QStringLiteral("oauth2"));
    EXPECT_EQ(group.keys().value(QStringLiteral("oauthProvider")), QStringLiteral("microsoft"));
    const BridgeConfig::Account account = group.read();
    EXPECT_EQ(account.problem, QString());
    EXPECT_EQ(account.auth, BridgeConfig::Auth::OAuth2);
}

TEST(AccountAnswersTest, WhatTheBridgeWouldRefuseIsSaidByItsOwnReading) {
    AccountAnswers a = plainAnswers();
    a.port = QStringLiteral("99999");
    EXPECT_TRUE(a.group().read().problem.contains(QStringLiteral("port must be a number from 1 to 65535")))
        << a.group().read().problem.toStdString();
}

} // namespace
} // namespace corvina::test
