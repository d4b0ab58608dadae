// Passwords in a real Secret Service: gnome-keyring-daemon on a private session bus, started and
// stopped by each test.
#include "bridge/config/SecretStore.h"

#include "BridgeTesting.h"
#include "KeyringTest.h"
#include "bridge/config/AccountPassword.h"

#include <array>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace corvina::test {
namespace {

class SecretStoreTest : public KeyringTest<> {
protected:
    static inline const SecretStore::Key Work{QStringLiteral("work"), QStringLiteral("ada"),
                                              QStringLiteral("imap.example.org")};

    SecretStore store{10000};
};

TEST_F(SecretStoreTest, AStoredPasswordIsFoundAndClearedAgain) {
    QString error;
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("p4ss word"), &error))
        << error.toStdString();
    const SecretStore::Lookup found = store.lookup(Work);
    EXPECT_EQ(found.error, QString());
    ASSERT_TRUE(found.password.has_value());
    EXPECT_EQ(*found.password, QStringLiteral("p4ss word"));

    ASSERT_TRUE(store.clear(QStringLiteral("work"), &error)) << error.toStdString();
    const SecretStore::Lookup gone = store.lookup(Work);
    EXPECT_EQ(gone.error, QString());
    EXPECT_FALSE(gone.password.has_value());
    // Clearing what is not there is no failure.
    EXPECT_TRUE(store.clear(QStringLiteral("work"), &error)) << error.toStdString();
}

TEST_F(SecretStoreTest, APasswordIsOnlyHandedOutForItsOwnAccountUserAndHost) {
    QString error;
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("one"), &error))
        << error.toStdString();
    for (const SecretStore::Key& other :
         {SecretStore::Key{QStringLiteral("home"), Work.user, Work.host},
          SecretStore::Key{Work.account, QStringLiteral("grace"), Work.host},
          SecretStore::Key{Work.account, Work.user, QStringLiteral("imap.elsewhere.org")}}) {
        const SecretStore::Lookup found = store.lookup(other);
        EXPECT_EQ(found.error, QString());
        EXPECT_FALSE(found.password.has_value())
            << other.account.toStdString() << " " << other.user.toStdString() << " "
            << other.host.toStdString();
    }
}

TEST_F(SecretStoreTest, ForgettingAKeyRemovesItsPasswordAndNoOther) {
    const SecretStore::Key elsewhere{Work.account, Work.user, QStringLiteral("imap.elsewhere.org")};
    QString error;
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("one"), &error))
        << error.toStdString();
    ASSERT_TRUE(store.store(elsewhere, QStringLiteral("label"), QStringLiteral("two"), &error))
        << error.toStdString();
    ASSERT_TRUE(store.forget(Work, &error)) << error.toStdString();
    EXPECT_FALSE(store.lookup(Work).password.has_value());
    EXPECT_EQ(store.lookup(elsewhere).password, std::optional<QString>(QStringLiteral("two")));
    // Forgetting what is not there is no failure.
    EXPECT_TRUE(store.forget(Work, &error)) << error.toStdString();
}

TEST_F(SecretStoreTest, StoringAgainReplacesThePassword) {
    QString error;
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("old"), &error))
        << error.toStdString();
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("new"), &error))
        << error.toStdString();
    EXPECT_EQ(store.lookup(Work).password.value_or(QString()), QStringLiteral("new"));
    ASSERT_TRUE(store.clear(QStringLiteral("work"), &error));
    EXPECT_FALSE(store.lookup(Work).password.has_value());
}

TEST_F(SecretStoreTest, ASignInsSecretsAreKeptApartFromPasswordsAndClearedWithThem) {
    const SecretStore::TokenKey refresh{QStringLiteral("work"), QStringLiteral("ada@example.org"),
                                        QStringLiteral("https://auth.example.org"),
                                        QStringLiteral("refresh-token")};
    SecretStore::TokenKey clientId = refresh;
    clientId.kind = QStringLiteral("client-id");
    QString error;
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("password"), &error))
        << error.toStdString();
    ASSERT_TRUE(store.storeToken(refresh, QStringLiteral("label"), QStringLiteral("refresh"), &error))
        << error.toStdString();
    ASSERT_TRUE(store.storeToken(clientId, QStringLiteral("label"), QStringLiteral("client"), &error))
        << error.toStdString();
    EXPECT_EQ(store.lookup(Work).password.value_or(QString()), QStringLiteral("password"));
    EXPECT_EQ(store.lookupToken(refresh).password.value_or(QString()), QStringLiteral("refresh"));
    EXPECT_EQ(store.lookupToken(clientId).password.value_or(QString()), QStringLiteral("client"));
    // Another provider, another mail or another account has none.
    SecretStore::TokenKey otherIssuer = refresh;
    otherIssuer.issuer = QStringLiteral("https://other.example.org");
    SecretStore::TokenKey otherMail = refresh;
    otherMail.mail = QStringLiteral("grace@example.org");
    SecretStore::TokenKey otherAccount = refresh;
    otherAccount.account = QStringLiteral("home");
    for (const SecretStore::TokenKey& other : {otherIssuer, otherMail, otherAccount}) {
        const SecretStore::Lookup found = store.lookupToken(other);
        EXPECT_EQ(found.error, QString());
        EXPECT_FALSE(found.password.has_value());
    }

    ASSERT_TRUE(store.storeToken(refresh, QStringLiteral("label"), QStringLiteral("rotated"), &error));
    EXPECT_EQ(store.lookupToken(refresh).password.value_or(QString()), QStringLiteral("rotated"));

    // Removing the account removes its password and its sign-in.
    ASSERT_TRUE(store.clear(QStringLiteral("work"), &error)) << error.toStdString();
    EXPECT_FALSE(store.lookup(Work).password.has_value());
    EXPECT_FALSE(store.lookupToken(refresh).password.has_value());
    EXPECT_FALSE(store.lookupToken(clientId).password.has_value());
}

TEST_F(SecretStoreTest, AKeyringThatDoesNotAnswerIsGivenUpOnWithAClearError) {
    QString error;
    ASSERT_TRUE(store.store(Work, QStringLiteral("label"), QStringLiteral("one"), &error))
        << error.toStdString();
    keyring.freeze();
    const SecretStore impatient(2000);
    const SecretStore::Lookup found = impatient.lookup(Work);
    EXPECT_FALSE(found.password.has_value());
    EXPECT_EQ(found.error,
              QStringLiteral("cannot read the password from the Secret Service: the Secret Service "
                             "did not answer within 2 s"));
    EXPECT_FALSE(impatient.store(Work, QStringLiteral("label"), QStringLiteral("two"), &error));
    EXPECT_EQ(error, QStringLiteral("cannot store the password in the Secret Service: the Secret Service did "
                                    "not answer within 2 s"));
    keyring.resume();
    // Once it answers again, so does the store (the given-up store may or may not have reached it).
    const SecretStore::Lookup again = store.lookup(Work);
    EXPECT_EQ(again.error, QString());
    EXPECT_TRUE(again.password.has_value());
}

TEST_F(SecretStoreTest, WithoutASecretServiceEveryCallFailsWithAClearError) {
    stopKeyring(keyring);
    const SecretStore::Lookup found = store.lookup(Work);
    EXPECT_FALSE(found.password.has_value());
    EXPECT_TRUE(found.error.startsWith(QStringLiteral("cannot read the password from the Secret Service: ")))
        << found.error.toStdString();
    QString error;
    EXPECT_FALSE(store.store(Work, QStringLiteral("label"), QStringLiteral("one"), &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot store the password in the Secret Service: ")))
        << error.toStdString();
    EXPECT_FALSE(store.clear(QStringLiteral("work"), &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot remove the password from the Secret Service: ")))
        << error.toStdString();
    error.clear();
    EXPECT_FALSE(store.forget(Work, &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot remove the password from the Secret Service: ")))
        << error.toStdString();
}

// The foreground mode asks for the passwords of its accounts on their own threads, at once.
TEST_F(SecretStoreTest, LookupsFromSeveralThreadsAtOnceEachGetTheirOwnPassword) {
    constexpr int Accounts = 6;
    auto keyOf = [](int i) {
        return SecretStore::Key{QStringLiteral("account%1").arg(i), QStringLiteral("user%1").arg(i),
                                QStringLiteral("imap%1.example.org").arg(i)};
    };
    QString error;
    for (int i = 0; i < Accounts; ++i)
        ASSERT_TRUE(
            store.store(keyOf(i), QStringLiteral("label"), QStringLiteral("password %1").arg(i), &error))
            << error.toStdString();

    std::array<SecretStore::Lookup, Accounts> found;
    std::vector<std::thread> threads;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < Accounts; ++i)
            threads.emplace_back([&, i] { found[i] = store.lookup(keyOf(i)); });
        for (std::thread& t : threads)
            t.join();
        threads.clear();
        for (int i = 0; i < Accounts; ++i) {
            EXPECT_EQ(found[i].error, QString()) << i;
            EXPECT_EQ(found[i].password.value_or(QString()), QStringLiteral("password %1").arg(i)) << i;
        }
    }
}

TEST_F(SecretStoreTest, AnAccountsPasswordComesFromItsCommandElseFromTheKeyring) {
    BridgeConfig::Account account;
    account.name = QStringLiteral("work");
    account.mail = QStringLiteral("ada@example.org");
    account.user = Work.user;
    account.host = Work.host;

    QString error;
    EXPECT_FALSE(AccountPassword::obtain(account, &error, 10000).has_value());
    EXPECT_EQ(error, QStringLiteral("no password stored for ada@example.org (ada on imap.example.org): run "
                                    "corvina-mail-bridge account password work, or set a passwordCommand"));

    ASSERT_TRUE(store.store(AccountPassword::keyOf(account), AccountPassword::labelOf(account),
                            QStringLiteral("from the keyring"), &error))
        << error.toStdString();
    EXPECT_EQ(AccountPassword::obtain(account, &error, 10000).value_or(QString()),
              QStringLiteral("from the keyring"));

    account.passwordCommand = QStringLiteral("echo from-the-command");
    EXPECT_EQ(AccountPassword::obtain(account, &error, 10000).value_or(QString()),
              QStringLiteral("from-the-command"));
}

} // namespace
} // namespace corvina::test
