// The changes to an account already in bridge.conf, as the Accounts window makes them through the
// bridge's own code: its settings edited (the keyring's password following a new server or login
// only with the password typed for them), turned off and on; against a real keyring daemon on a
// private session bus and the test's own Dovecot.
#include "bridge/config/AccountChanges.h"

#include "BridgeTesting.h"
#include "KeyringTest.h"
#include "bridge/config/SecretStore.h"
#include "bridge/service/LiveBridge.h"

#include <QFile>
#include <QSettings>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class AccountChangesTest : public KeyringTest<BridgeServerTest> {
protected:
    void SetUp() override {
        KeyringTest::SetUp();
        QString error;
        // ada's account with its password in the keyring, as `account add` leaves it.
        config = writeConfig(
            {{QStringLiteral("work"), accountKeys({{QStringLiteral("passwordCommand"), QVariant()}})}});
        work = *BridgeConfig::load(config).account(QStringLiteral("work"));
        ASSERT_TRUE(changes().replacePassword(work, Password, &error)) << error.toStdString();
    }
    AccountChanges changes() const { return AccountChanges(config, 10000); }
    AccountGroup editedWork(const QVariantMap& changed) const {
        return AccountGroup::readFrom(config, QStringLiteral("work"))->with(changed);
    }
    QString key(const QString& name) const {
        return QSettings(config, QSettings::IniFormat).value(QStringLiteral("work/") + name).toString();
    }
    // The password the keyring holds for the account `work` of `user` on `host`, if any.
    std::optional<QString> stored(const QString& user, const QString& host) const {
        return SecretStore(10000).lookup({QStringLiteral("work"), user, host}).password;
    }
    QString fileText() const {
        QFile file(config);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    QString config;
    BridgeConfig::Account work;
};

TEST_F(AccountChangesTest, AnEditOfTheFoldersKeepsThePasswordAndTheAccountStillSyncs) {
    server.createFolder(User, QStringLiteral("Tasks"));
    QString error;
    ASSERT_TRUE(changes().edit(work, editedWork({{QStringLiteral("todo"), QStringLiteral("Tasks")}}),
                               std::nullopt, &error))
        << error.toStdString();
    EXPECT_EQ(key(QStringLiteral("todo")), QStringLiteral("Tasks"));
    const BridgeConfig::Account edited = *BridgeConfig::load(config).account(QStringLiteral("work"));
    EXPECT_EQ(edited.todo, QStringLiteral("Tasks"));
    // The same login on the same server: the password stored before serves it, as `check` finds.
    const AccountSync::Result check = LiveBridge::checkAccount(edited, 10);
    EXPECT_TRUE(check.ok) << check.error.toStdString();
}

TEST_F(AccountChangesTest, ANewLoginNameNeedsItsPasswordAndThenHasIt) {
    server.addUser(QStringLiteral("grace"), QStringLiteral("grace's own"));
    QString error;
    const AccountGroup grace = editedWork({{QStringLiteral("user"), QStringLiteral("grace")}});
    EXPECT_FALSE(changes().edit(work, grace, std::nullopt, &error));
    EXPECT_EQ(error, QStringLiteral("the server or login name changed: the password for them is needed; "
                                    "nothing was changed"));
    EXPECT_EQ(key(QStringLiteral("user")), User);
    EXPECT_EQ(stored(User, server.host()), std::optional<QString>(Password)) << "a refused edit keeps it";

    error.clear();
    ASSERT_TRUE(changes().edit(work, grace, QStringLiteral("grace's own"), &error)) << error.toStdString();
    EXPECT_EQ(key(QStringLiteral("user")), QStringLiteral("grace"));
    EXPECT_FALSE(fileText().contains(QStringLiteral("grace's own")));
    EXPECT_EQ(
        SecretStore(10000).lookup({QStringLiteral("work"), QStringLiteral("grace"), server.host()}).password,
        std::optional<QString>(QStringLiteral("grace's own")));
    const AccountSync::Result check =
        LiveBridge::checkAccount(*BridgeConfig::load(config).account(QStringLiteral("work")), 10);
    EXPECT_TRUE(check.ok) << check.error.toStdString();
}

// The keyring keys a password by account, login name and server: after an edit to another login or
// server nothing would ask for the old one again, so it goes, and only it.
TEST_F(AccountChangesTest, AnEditToAnotherLoginOrServerTakesTheOldPasswordOutOfTheKeyring) {
    QString error;
    ASSERT_TRUE(changes().edit(work, editedWork({{QStringLiteral("user"), QStringLiteral("grace")}}),
                               QStringLiteral("grace's own"), &error))
        << error.toStdString();
    EXPECT_EQ(stored(User, server.host()), std::nullopt);
    EXPECT_EQ(stored(QStringLiteral("grace"), server.host()),
              std::optional<QString>(QStringLiteral("grace's own")));

    const BridgeConfig::Account grace = *BridgeConfig::load(config).account(QStringLiteral("work"));
    const AccountGroup moved = AccountGroup::readFrom(config, QStringLiteral("work"))
                                   ->with({{QStringLiteral("host"), QStringLiteral("localhost")}});
    ASSERT_TRUE(changes().edit(grace, moved, QStringLiteral("grace elsewhere"), &error))
        << error.toStdString();
    EXPECT_EQ(key(QStringLiteral("host")), QStringLiteral("localhost"));
    EXPECT_EQ(stored(QStringLiteral("grace"), server.host()), std::nullopt);
    EXPECT_EQ(stored(QStringLiteral("grace"), QStringLiteral("localhost")),
              std::optional<QString>(QStringLiteral("grace elsewhere")));

    // An edit of anything else leaves the password where it is.
    const BridgeConfig::Account elsewhere = *BridgeConfig::load(config).account(QStringLiteral("work"));
    ASSERT_TRUE(changes().edit(elsewhere,
                               AccountGroup::readFrom(config, QStringLiteral("work"))
                                   ->with({{QStringLiteral("todo"), QStringLiteral("Tasks")}}),
                               std::nullopt, &error))
        << error.toStdString();
    EXPECT_EQ(stored(QStringLiteral("grace"), QStringLiteral("localhost")),
              std::optional<QString>(QStringLiteral("grace elsewhere")));
}

TEST_F(AccountChangesTest, WhatTheBridgeWouldRefuseIsNotWritten) {
    const QString before = fileText();
    QString error;
    EXPECT_FALSE(changes().edit(work, editedWork({{QStringLiteral("port"), QStringLiteral("99999")}}),
                                std::nullopt, &error));
    EXPECT_EQ(error, QStringLiteral("port must be a number from 1 to 65535, not 99999; nothing was changed"));
    EXPECT_EQ(fileText(), before);
}

TEST_F(AccountChangesTest, WithoutTheKeyringANewLoginChangesNothing) {
    stopKeyring(keyring);
    const QString before = fileText();
    QString error;
    EXPECT_FALSE(changes().edit(work, editedWork({{QStringLiteral("user"), QStringLiteral("grace")}}),
                                QStringLiteral("grace's own"), &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot store the password in the Secret Service")))
        << error.toStdString();
    EXPECT_TRUE(error.endsWith(QStringLiteral("; nothing was changed"))) << error.toStdString();
    EXPECT_FALSE(error.contains(QStringLiteral("grace's own")));
    EXPECT_EQ(fileText(), before);
}

TEST_F(AccountChangesTest, ATurnedOffAccountIsNotSyncedAndTurnedOnAgainIs) {
    deliver(QStringLiteral("While off"));
    QString error;
    ASSERT_TRUE(changes().setEnabled(work, false, &error)) << error.toStdString();
    EXPECT_EQ(key(QStringLiteral("enabled")), QStringLiteral("false"));
    EXPECT_FALSE(BridgeConfig::load(config).account(QStringLiteral("work"))->enabled);
    // The bridge, run once: the account is left alone, its message not fetched.
    const BridgeRun off = runBridge({QStringLiteral("--once")}, config);
    EXPECT_TRUE(widgetMessages().isEmpty()) << off.err.toStdString();

    ASSERT_TRUE(changes().setEnabled(work, true, &error)) << error.toStdString();
    // On is the bridge's default: the key goes.
    EXPECT_FALSE(QSettings(config, QSettings::IniFormat).contains(QStringLiteral("work/enabled")));
    const BridgeRun on = runBridge({QStringLiteral("--once")}, config);
    EXPECT_EQ(on.exitCode, 0) << on.err.toStdString();
    ASSERT_EQ(widgetMessages().size(), 1);
    EXPECT_EQ(widgetMessages().first()->subject(), QStringLiteral("While off"));
}

TEST_F(AccountChangesTest, TurningOffAnAccountThatIsGoneIsSaid) {
    BridgeConfig::Account gone = work;
    gone.name = QStringLiteral("home");
    QString error;
    EXPECT_FALSE(changes().setEnabled(gone, false, &error));
    EXPECT_EQ(error, QStringLiteral("no account home in %1").arg(config));
    EXPECT_FALSE(QSettings(config, QSettings::IniFormat).childGroups().contains(QStringLiteral("home")));
}

} // namespace
} // namespace corvina::test
