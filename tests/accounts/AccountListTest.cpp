// The Accounts window's rows: each account of bridge.conf with its state from the bridge's status
// file in words, and both files followed live.
#include "accounts/AccountList.h"

#include "bridge/sync/BridgeStatus.h"
#include "support/Wait.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace corvina::test {
namespace {

BridgeConfig::Account usable() {
    BridgeConfig::Account a;
    a.name = QStringLiteral("work");
    a.mail = QStringLiteral("ada@example.org");
    a.host = QStringLiteral("imap.example.org");
    return a;
}

const QDateTime Now = QDateTime(QDate(2024, 5, 2), QTime(11, 0), Qt::UTC);

TEST(AccountListState, CurrentAsOfItsLastSync) {
    const QJsonObject status{{"ok", true}, {"lastSync", "2024-05-02T10:40:00Z"}};
    EXPECT_EQ(AccountList::stateOf(usable(), status, Now), QStringLiteral("Current as of 10:40"));
    // Another day: the day is said too, as the widget says its "As of" (the C locale's short style).
    EXPECT_EQ(AccountList::stateOf(usable(), status, Now.addDays(3)),
              QStringLiteral("Current as of 2 May 2024 10:40:00"));
}

TEST(AccountListState, TheLastErrorInTheBridgesWords) {
    const QJsonObject status{{"ok", false},
                             {"lastSync", "2024-05-02T10:40:00Z"},
                             {"lastError", "login refused for ada"},
                             {"lastErrorTime", "2024-05-02T10:42:00Z"}};
    EXPECT_EQ(AccountList::stateOf(usable(), status, Now),
              QStringLiteral("Not current: login refused for ada (at 10:42); last current at 10:40"));
    const QJsonObject never{{"ok", false},
                            {"lastError", "cannot connect to imap.example.org"},
                            {"lastErrorTime", "2024-05-02T10:42:00Z"}};
    EXPECT_EQ(AccountList::stateOf(usable(), never, Now),
              QStringLiteral("Not current: cannot connect to imap.example.org (at 10:42)"));
}

TEST(AccountListState, SignInNeeded) {
    const QJsonObject status{
        {"ok", false},
        {"lastError",
         "sign-in needed: the provider refused the sign-in; run corvina-mail-bridge account signin work"},
        {"lastErrorTime", "2024-05-02T10:42:00Z"}};
    EXPECT_EQ(AccountList::stateOf(usable(), status, Now),
              QStringLiteral("Sign-in needed (since 10:42): the provider refused the sign-in; run "
                             "corvina-mail-bridge account signin work"));
}

TEST(AccountListState, NotReadYetTurnedOffAndUnusable) {
    EXPECT_EQ(AccountList::stateOf(usable(), QJsonObject(), Now),
              QStringLiteral("Not read yet: the bridge has not synced it"));
    BridgeConfig::Account off = usable();
    off.enabled = false;
    EXPECT_EQ(AccountList::stateOf(off, QJsonObject{{"ok", true}, {"lastSync", "2024-05-02T10:40:00Z"}}, Now),
              QStringLiteral("Turned off (enabled = false in bridge.conf)"));
    BridgeConfig::Account broken = usable();
    broken.problem = QStringLiteral("security must be tls, starttls or none, not ssl");
    EXPECT_EQ(AccountList::stateOf(broken, QJsonObject(), Now),
              QStringLiteral("The bridge cannot use it: security must be tls, starttls or none, not ssl"));
}

class AccountListFiles : public ::testing::Test {
protected:
    void writeConfig(const QStringList& names) {
        QFile::remove(config);
        QSettings settings(config, QSettings::IniFormat);
        for (const QString& name : names) {
            settings.setValue(name + QStringLiteral("/mail"), name + QStringLiteral("@example.org"));
            settings.setValue(name + QStringLiteral("/host"), QStringLiteral("imap.example.org"));
        }
        settings.sync();
    }
    QStringList states(const AccountList& list) const {
        QStringList out;
        for (int row = 0; row < list.rowCount(); ++row)
            out << list.index(row).data(AccountList::StateRole).toString();
        return out;
    }

    QTemporaryDir dir;
    QString config = dir.filePath(QStringLiteral("bridge.conf"));
    // A folder the bridge has not made yet: followed all the same.
    QString status = dir.filePath(QStringLiteral("state/corvina/bridge-status.json"));
};

TEST_F(AccountListFiles, FollowsTheStatusFileAndTheConfigLive) {
    writeConfig({QStringLiteral("work")});
    AccountList list(config, status);
    ASSERT_EQ(list.rowCount(), 1);
    EXPECT_EQ(list.index(0).data(AccountList::NameRole).toString(), QStringLiteral("work"));
    EXPECT_EQ(states(list), QStringList{QStringLiteral("Not read yet: the bridge has not synced it")});

    // The bridge writes its status file as it does: a temporary, renamed into place.
    BridgeStatus written(status);
    written.recordSync(QStringLiteral("work"), QStringLiteral("work@example.org"),
                       QDateTime::currentDateTimeUtc());
    QString error;
    ASSERT_TRUE(written.write(&error)) << error.toStdString();
    EXPECT_TRUE(waitFor(
        [&] {
            QCoreApplication::processEvents();
            return states(list).value(0).startsWith(QStringLiteral("Current as of "));
        },
        20000))
        << states(list).join(u'|').toStdString();

    // Replaced again: the watch goes on after the file it followed was renamed over.
    written.recordFailure(QStringLiteral("work"), QStringLiteral("work@example.org"),
                          QStringLiteral("login refused for work"), QDateTime::currentDateTimeUtc());
    ASSERT_TRUE(written.write(&error)) << error.toStdString();
    EXPECT_TRUE(waitFor(
        [&] {
            QCoreApplication::processEvents();
            return states(list).value(0).startsWith(QStringLiteral("Not current: login refused for work"));
        },
        20000))
        << states(list).join(u'|').toStdString();

    writeConfig({QStringLiteral("home"), QStringLiteral("work")});
    EXPECT_TRUE(waitFor(
        [&] {
            QCoreApplication::processEvents();
            return list.rowCount() == 2;
        },
        20000));
}

// The bridge makes the status file's folder, and writes the file just after the list has read
// that folder empty: the file is still seen, since the folder was watched before it was read.
TEST_F(AccountListFiles, AStatusFileWrittenJustAfterItsNewFolderWasReadIsStillSeen) {
    writeConfig({QStringLiteral("work")});
    AccountList list(config, status);
    const QString folder = QFileInfo(status).absolutePath();
    bool written = false;
    QObject::connect(&list, &QAbstractItemModel::modelReset, &list, [&] {
        if (written || !QFileInfo::exists(folder))
            return;
        written = true;
        BridgeStatus bridge(status);
        bridge.recordSync(QStringLiteral("work"), QStringLiteral("work@example.org"),
                          QDateTime::currentDateTimeUtc());
        QString error;
        EXPECT_TRUE(bridge.write(&error)) << error.toStdString();
    });
    ASSERT_TRUE(QDir().mkpath(folder));
    EXPECT_TRUE(waitFor(
        [&] {
            QCoreApplication::processEvents();
            return states(list).value(0).startsWith(QStringLiteral("Current as of "));
        },
        20000))
        << "written: " << written << ", " << states(list).join(u'|').toStdString();
    EXPECT_TRUE(written);
}

TEST_F(AccountListFiles, AStatusFileOfAnotherVersionOrAFifoShowsNothingAndNeverBlocks) {
    writeConfig({QStringLiteral("work")});
    ASSERT_TRUE(QDir().mkpath(QFileInfo(status).absolutePath()));
    QFile file(status);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"version": 2, "accounts": {"work": {"ok": true, "lastSync": "2024-05-02T10:40:00Z"}}})");
    file.close();
    {
        AccountList list(config, status);
        EXPECT_EQ(states(list), QStringList{QStringLiteral("Not read yet: the bridge has not synced it")});
    }
    ASSERT_TRUE(QFile::remove(status));
    ASSERT_EQ(::mkfifo(QFile::encodeName(status).constData(), 0600), 0);
    AccountList list(config, status); // would never return if it opened the FIFO to read
    EXPECT_EQ(states(list), QStringList{QStringLiteral("Not read yet: the bridge has not synced it")});
}

} // namespace
} // namespace corvina::test
