// The bridge built as the program builds it (LiveBridge::create) and its once mode, in this
// process against the test's own Dovecot: what each purpose needs, the accounts read once, and
// each failure's line and result.
#include "BridgeTesting.h"
#include "bridge/service/LiveBridge.h"
#include "bridge/sync/AccountSync.h"
#include "support/ScopedEnvironment.h"

#include <QFile>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class LiveBridgeOnceTest : public BridgeServerTest {
protected:
    // Builds the bridge for `purpose` from `config`, its lines collected; null (and `error` set)
    // when create refuses.
    std::unique_ptr<LiveBridge> create(const QString& config,
                                       LiveBridge::Purpose purpose = LiveBridge::Purpose::SyncOnce) {
        std::unique_ptr<LiveBridge> bridge =
            LiveBridge::create(BridgeConfig::load(config), purpose, 10, &error);
        if (bridge) {
            QObject::connect(bridge.get(), &LiveBridge::log, bridge.get(),
                             [this](const QString& line) { logged << line; });
            QObject::connect(bridge.get(), &LiveBridge::problem, bridge.get(),
                             [this](const QString& line) { problems << line; });
        }
        return bridge;
    }

    QJsonObject accountStatus(const QString& name) const {
        return BridgeServerTest::accountStatus(stateDir.path(), name);
    }

    QTemporaryDir stateDir;
    ScopedEnvironment state{"XDG_STATE_HOME", stateDir.path().toUtf8()};
    QString error;
    QStringList logged;
    QStringList problems;
};

TEST_F(LiveBridgeOnceTest, EachPurposeButCommandsNeedsTheAccountsFile) {
    const QString absent = configDir.filePath(QStringLiteral("absent.conf"));
    for (const LiveBridge::Purpose purpose : {LiveBridge::Purpose::Follow, LiveBridge::Purpose::SyncOnce}) {
        error.clear();
        EXPECT_EQ(create(absent, purpose), nullptr);
        EXPECT_EQ(error, QStringLiteral("no accounts: %1 does not exist").arg(absent));
    }
    // A command names its account itself; one that is not there is refused on its own.
    error.clear();
    EXPECT_NE(create(absent, LiveBridge::Purpose::CommandsOnly), nullptr);
    EXPECT_EQ(error, QString());
}

TEST_F(LiveBridgeOnceTest, WithoutASharedFolderNothingIsBuilt) {
    const QString config = writeConfig({{QStringLiteral("work"), accountKeys()}});
    const ScopedEnvironment noContainer("CORVINA_GROUP_CONTAINER", QByteArray());
    for (const LiveBridge::Purpose purpose :
         {LiveBridge::Purpose::Follow, LiveBridge::Purpose::SyncOnce, LiveBridge::Purpose::CommandsOnly}) {
        error.clear();
        EXPECT_EQ(create(config, purpose), nullptr);
        EXPECT_EQ(error, QStringLiteral("no shared folder (CORVINA_GROUP_CONTAINER is set but empty)"));
    }
}

TEST_F(LiveBridgeOnceTest, OnceReadsEveryEnabledAccountAndKeepsTheStatus) {
    deliver(QStringLiteral("Read once"));
    const QString config = writeConfig(
        {{QStringLiteral("work"), accountKeys()},
         {QStringLiteral("off"), accountKeys({{"mail", "off@example.org"}, {"enabled", "false"}})}});
    const std::unique_ptr<LiveBridge> bridge = create(config);
    ASSERT_NE(bridge, nullptr) << error.toStdString();
    EXPECT_TRUE(bridge->syncOnce());
    EXPECT_EQ(logged, QStringList());
    EXPECT_EQ(problems, QStringList());
    // Nothing is followed: the once mode leaves no thread behind.
    EXPECT_EQ(bridge->accountsFollowed(), 0);
    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages.first()->subject(), QStringLiteral("Read once"));
    EXPECT_TRUE(accountStatus(QStringLiteral("work")).value(QStringLiteral("ok")).toBool());
    EXPECT_TRUE(accountStatus(QStringLiteral("work")).contains(QStringLiteral("lastSync")));
    EXPECT_TRUE(accountStatus(QStringLiteral("off")).isEmpty());
}

TEST_F(LiveBridgeOnceTest, AFailingAccountGetsItsLineAndTheOthersStillSync) {
    server.addUser(QStringLiteral("bob"), QStringLiteral("hunter2"));
    server.deliver(QStringLiteral("bob"), QStringLiteral("INBOX"),
                   DovecotServer::message(QStringLiteral("For Bob"), QStringLiteral("a@example.org"),
                                          QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                          QStringLiteral("<b@x>")));
    const QString config = writeConfig(
        {{QStringLiteral("work"), accountKeys({{"passwordCommand", "echo wrong"}})},
         {QStringLiteral("bob"),
          accountKeys({{"mail", "bob@example.org"}, {"user", "bob"}, {"passwordCommand", "echo hunter2"}})},
         {QStringLiteral("broken"), accountKeys({{"mail", "broken@example.org"}, {"port", "none"}})}});
    const std::unique_ptr<LiveBridge> bridge = create(config);
    ASSERT_NE(bridge, nullptr) << error.toStdString();
    EXPECT_FALSE(bridge->syncOnce());
    ASSERT_EQ(logged.size(), 2) << logged.join(u'\n').toStdString();
    EXPECT_EQ(logged[0], QStringLiteral("broken: port must be a number from 1 to 65535, not none"));
    EXPECT_TRUE(logged[1].startsWith(QStringLiteral("work: login refused for ada")))
        << logged[1].toStdString();
    EXPECT_EQ(problems, QStringList());
    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages.first()->subject(), QStringLiteral("For Bob"));
    EXPECT_TRUE(accountStatus(QStringLiteral("bob")).value(QStringLiteral("ok")).toBool());
    EXPECT_FALSE(accountStatus(QStringLiteral("work")).value(QStringLiteral("ok")).toBool(true));
    EXPECT_FALSE(accountStatus(QStringLiteral("broken")).value(QStringLiteral("ok")).toBool(true));
}

TEST_F(LiveBridgeOnceTest, AStatusFileThatCannotBeWrittenIsAProblemOfTheWholeBridge) {
    // The state folder is a file: no status file can be made under it.
    const QString blocked = stateDir.filePath(QStringLiteral("a-file"));
    QFile file(blocked);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    const ScopedEnvironment blockedState("XDG_STATE_HOME", blocked.toUtf8());
    deliver(QStringLiteral("Read all the same"));
    const std::unique_ptr<LiveBridge> bridge = create(writeConfig({{QStringLiteral("work"), accountKeys()}}));
    ASSERT_NE(bridge, nullptr) << error.toStdString();
    EXPECT_FALSE(bridge->syncOnce());
    EXPECT_EQ(logged, QStringList());
    EXPECT_EQ(problems, QStringList{QStringLiteral("cannot create %1/corvina").arg(blocked)});
    // The snapshots were written: only the status is missing.
    ASSERT_EQ(widgetMessages().size(), 1);
}

TEST_F(LiveBridgeOnceTest, ASharedFolderThatCannotBeWrittenStopsBeforeAnyAccount) {
    // The data folder is a file: Accounts.plist cannot be written into it.
    ASSERT_TRUE(QDir(container.data()).removeRecursively());
    QFile file(container.data());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    const std::unique_ptr<LiveBridge> bridge = create(writeConfig({{QStringLiteral("work"), accountKeys()}}));
    ASSERT_NE(bridge, nullptr) << error.toStdString();
    EXPECT_FALSE(bridge->syncOnce());
    EXPECT_EQ(logged, QStringList());
    ASSERT_EQ(problems.size(), 1) << problems.join(u'\n').toStdString();
    EXPECT_TRUE(problems.first().contains(container.data())) << problems.first().toStdString();
    EXPECT_TRUE(accountStatus(QStringLiteral("work")).isEmpty());
}

TEST_F(LiveBridgeOnceTest, CheckSaysOfEachAccountWhatWorksOrTheFirstThingThatDoesNot) {
    server.createFolder(User, QStringLiteral("Notes"));
    EXPECT_TRUE(LiveBridge::checkAccount(account({{"memo", "Notes"}}), 10).ok);

    const AccountSync::Result missing = LiveBridge::checkAccount(account({{"memo", "Nowhere"}}), 10);
    EXPECT_FALSE(missing.ok);
    EXPECT_TRUE(missing.error.startsWith(QStringLiteral("folder missing: Nowhere")))
        << missing.error.toStdString();

    const AccountSync::Result refused =
        LiveBridge::checkAccount(account({{"passwordCommand", "echo wrong"}}), 10);
    EXPECT_FALSE(refused.ok);
    EXPECT_TRUE(refused.error.startsWith(QStringLiteral("login refused for ada")))
        << refused.error.toStdString();

    // No password: the server is never asked.
    const AccountSync::Result noPassword =
        LiveBridge::checkAccount(account({{"passwordCommand", "false"}}), 10);
    EXPECT_FALSE(noPassword.ok);
    EXPECT_TRUE(noPassword.error.startsWith(QStringLiteral("passwordCommand")))
        << noPassword.error.toStdString();

    BridgeConfig::Account broken = account();
    broken.problem = QStringLiteral("port must be a number from 1 to 65535, not none");
    const AccountSync::Result configured = LiveBridge::checkAccount(broken, 10);
    EXPECT_FALSE(configured.ok);
    EXPECT_EQ(configured.error, broken.problem);
}

} // namespace
} // namespace corvina::test
