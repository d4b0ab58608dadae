// An account's group of bridge.conf as `account add` checks and writes it: the bridge's own
// reading decides what is refused, the other groups stay, and a file that cannot be written says so.
#include "bridge/config/AccountGroup.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <optional>

namespace corvina::test {
namespace {

class AccountGroupTest : public ::testing::Test {
protected:
    static QVariantMap keys(const QVariantMap& extra = {}) {
        QVariantMap keys{{QStringLiteral("mail"), QStringLiteral("ada@example.org")},
                         {QStringLiteral("host"), QStringLiteral("imap.example.org")},
                         {QStringLiteral("security"), QStringLiteral("tls")},
                         {QStringLiteral("port"), QStringLiteral("993")},
                         {QStringLiteral("user"), QStringLiteral("ada")}};
        keys.insert(extra);
        return keys;
    }
    QString path() const { return dir.filePath(QStringLiteral("bridge.conf")); }
    // A path whose folder is a file, so that nothing can be written there.
    QString blockedPath() const {
        const QString file = dir.filePath(QStringLiteral("a-file"));
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        return file + QStringLiteral("/bridge.conf");
    }

    QTemporaryDir dir;
};

TEST_F(AccountGroupTest, PlainNamesAreWordsOfLettersDigitsAndAFewMarks) {
    for (const char* name : {"work", "home-2", "a.b", "_x", "Ada_Mail"})
        EXPECT_TRUE(AccountGroup::isPlainName(QLatin1String(name))) << name;
    for (const char* name : {"", ".hidden", "a b", "a/b", "a\\b", "[x]", "é"})
        EXPECT_FALSE(AccountGroup::isPlainName(QString::fromUtf8(name))) << name;
}

TEST_F(AccountGroupTest, AGoodGroupIsReadAsTheBridgeReadsIt) {
    const BridgeConfig::Account account = AccountGroup(QStringLiteral("work"), keys()).read();
    EXPECT_EQ(account.problem, QString());
    EXPECT_EQ(account.name, QStringLiteral("work"));
    EXPECT_EQ(account.mail, QStringLiteral("ada@example.org"));
    EXPECT_EQ(account.user, QStringLiteral("ada"));
    EXPECT_EQ(account.security, BridgeConfig::Security::Tls);
    EXPECT_EQ(account.port, 993);
    // Checking writes nothing where the group is to go.
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(AccountGroupTest, WhatTheBridgeRefusesIsRefusedInItsOwnWords) {
    const BridgeConfig::Account plain =
        AccountGroup(QStringLiteral("work"), keys({{QStringLiteral("security"), QStringLiteral("none")}}))
            .read();
    EXPECT_EQ(plain.problem, QStringLiteral("security none is only allowed for 127.0.0.1 or localhost, not "
                                            "imap.example.org"));
    const BridgeConfig::Account port =
        AccountGroup(QStringLiteral("work"), keys({{QStringLiteral("port"), QStringLiteral("99999")}}))
            .read();
    EXPECT_EQ(port.problem, QStringLiteral("port must be a number from 1 to 65535, not 99999"));
    const QString folder = dir.path();
    const BridgeConfig::Account ca =
        AccountGroup(QStringLiteral("work"), keys({{QStringLiteral("caFile"), folder}})).read();
    EXPECT_EQ(ca.problem, QStringLiteral("caFile %1 cannot be read").arg(folder));
}

TEST_F(AccountGroupTest, ANameThatIsNoGroupOfItsOwnIsRefused) {
    // QSettings reads "a/b" back as key "b/..." of a group "a": not this account.
    const BridgeConfig::Account account = AccountGroup(QStringLiteral("a/b"), keys()).read();
    EXPECT_EQ(account.problem, QStringLiteral("the account could not be written as an INI group"));
}

TEST_F(AccountGroupTest, WritingKeepsTheOtherGroupsAndMakesTheFolder) {
    const QString nested = dir.filePath(QStringLiteral("corvina/bridge.conf"));
    QString error;
    ASSERT_TRUE(AccountGroup(QStringLiteral("home"),
                             keys({{QStringLiteral("mail"), QStringLiteral("h@example.org")}}))
                    .writeTo(nested, &error))
        << error.toStdString();
    ASSERT_TRUE(AccountGroup(QStringLiteral("work"), keys()).writeTo(nested, &error)) << error.toStdString();
    const BridgeConfig config = BridgeConfig::load(nested);
    ASSERT_EQ(config.accounts().size(), 2);
    EXPECT_EQ(config.account(QStringLiteral("home"))->mail, QStringLiteral("h@example.org"));
    EXPECT_EQ(config.account(QStringLiteral("work"))->mail, QStringLiteral("ada@example.org"));
    EXPECT_EQ(error, QString());

    ASSERT_TRUE(AccountGroup::removeFrom(nested, QStringLiteral("home"), &error)) << error.toStdString();
    EXPECT_EQ(QSettings(nested, QSettings::IniFormat).childGroups(), QStringList{QStringLiteral("work")});
}

TEST_F(AccountGroupTest, AFileThatCannotBeWrittenIsSaid) {
    const QString blocked = blockedPath();
    QString error;
    EXPECT_FALSE(AccountGroup(QStringLiteral("work"), keys()).writeTo(blocked, &error));
    EXPECT_EQ(error, QStringLiteral("cannot write %1").arg(blocked));
    // A folder where the file should be: nothing can be read from it or written to it.
    const QString folder = dir.filePath(QStringLiteral("bridge.conf.d"));
    ASSERT_TRUE(QDir().mkpath(folder));
    error.clear();
    EXPECT_FALSE(AccountGroup::removeFrom(folder, QStringLiteral("work"), &error));
    EXPECT_EQ(error, QStringLiteral("cannot write %1").arg(folder));
}

TEST_F(AccountGroupTest, AGroupIsReadBackWithEveryKeyItHas) {
    QString error;
    ASSERT_TRUE(
        AccountGroup(QStringLiteral("work"), keys({{QStringLiteral("todo"), QStringLiteral("Tasks")}}))
            .writeTo(path(), &error));
    const std::optional<AccountGroup> read = AccountGroup::readFrom(path(), QStringLiteral("work"));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->name(), QStringLiteral("work"));
    EXPECT_EQ(read->keys(), keys({{QStringLiteral("todo"), QStringLiteral("Tasks")}}));
    EXPECT_FALSE(AccountGroup::readFrom(path(), QStringLiteral("home")).has_value());
    EXPECT_FALSE(AccountGroup::readFrom(dir.filePath(QStringLiteral("none.conf")), QStringLiteral("work"))
                     .has_value());
}

TEST_F(AccountGroupTest, ReplacingAGroupTakesOutTheKeysItNoLongerHasAndKeepsTheOthers) {
    QString error;
    ASSERT_TRUE(AccountGroup(QStringLiteral("home"),
                             keys({{QStringLiteral("mail"), QStringLiteral("h@example.org")}}))
                    .writeTo(path(), &error));
    ASSERT_TRUE(
        AccountGroup(QStringLiteral("work"), keys({{QStringLiteral("todo"), QStringLiteral("Tasks")}}))
            .writeTo(path(), &error));
    const AccountGroup edited = AccountGroup::readFrom(path(), QStringLiteral("work"))
                                    ->with({{QStringLiteral("todo"), QString()},
                                            {QStringLiteral("memo"), QStringLiteral("Notes")},
                                            {QStringLiteral("host"), QStringLiteral("mail.example.org")}});
    ASSERT_TRUE(edited.replaceIn(path(), &error)) << error.toStdString();
    QSettings written(path(), QSettings::IniFormat);
    EXPECT_EQ(written.childGroups(), (QStringList{QStringLiteral("home"), QStringLiteral("work")}));
    EXPECT_FALSE(written.contains(QStringLiteral("work/todo")));
    EXPECT_EQ(written.value(QStringLiteral("work/memo")).toString(), QStringLiteral("Notes"));
    EXPECT_EQ(written.value(QStringLiteral("work/host")).toString(), QStringLiteral("mail.example.org"));
    EXPECT_EQ(written.value(QStringLiteral("work/user")).toString(), QStringLiteral("ada"));
    EXPECT_EQ(written.value(QStringLiteral("home/mail")).toString(), QStringLiteral("h@example.org"));

    const QString blocked = blockedPath();
    error.clear();
    EXPECT_FALSE(edited.replaceIn(blocked, &error));
    EXPECT_EQ(error, QStringLiteral("cannot write %1").arg(blocked));
}

} // namespace
} // namespace corvina::test
