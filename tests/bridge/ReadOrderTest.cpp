// Two reads of one account's lists can end in the other order than they began: the account's own
// thread may still be reading when a command (open, archive) reads the lists again and is written
// first. The later-begun read holds what the server held later; the earlier one, ending after it,
// must not be written over it (an opened message would show as unread again until the next change).
#include "BridgeTesting.h"
#include "bridge/service/LiveBridge.h"
#include "bridge/sync/AccountSync.h"
#include "model/SnapshotFormat.h"

#include <QDateTime>
#include <QMetaObject>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class ReadOrderTest : public BridgeServerTest {
protected:
    void SetUp() override {
        BridgeServerTest::SetUp();
        bridge = std::make_unique<LiveBridge>(
            BridgeConfig::load(writeConfig({{QStringLiteral("work"), accountKeys()}})), container.data(),
            configDir.filePath(QStringLiteral("status.json")),
            [](const BridgeConfig::Account&, QString*) { return std::optional<QString>(Password); });
        QString error;
        // commands only: no thread of the account's own reads meanwhile
        ASSERT_TRUE(bridge->start(&error, false)) << error.toStdString();
    }

    // A read of the inbox holding one message, handed to the bridge as the account's thread and a
    // command both hand theirs (the slot they are connected to), begun at `readStarted`.
    void handOver(const QString& subject, qint64 readStarted) {
        AccountSync::Snapshot inbox;
        inbox.file = AccountSync::fileFor(SnapshotFormat::ListKind::Inbox);
        inbox.folder = QStringLiteral("INBOX");
        inbox.messages = {QVariantMap{{QStringLiteral("subject"), subject}}};
        const QList<AccountSync::Snapshot> snapshots{inbox};
        ASSERT_TRUE(QMetaObject::invokeMethod(
            bridge.get(), "accountSynced", Qt::DirectConnection, Q_ARG(QString, QStringLiteral("work")),
            Q_ARG(QList<corvina::AccountSync::Snapshot>, snapshots),
            Q_ARG(QDateTime, QDateTime::currentDateTimeUtc()), Q_ARG(qint64, readStarted)));
    }

    QString writtenSubject() const {
        const QVariantList rows =
            snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList();
        return rows.size() == 1 ? rows.first().toMap().value(QStringLiteral("subject")).toString()
                                : QString();
    }

    std::unique_ptr<LiveBridge> bridge;
};

TEST_F(ReadOrderTest, AReadThatBeganEarlierButEndedLaterIsNotWrittenOverANewerOne) {
    handOver(QStringLiteral("read after the command"), 2000);
    ASSERT_EQ(writtenSubject(), QStringLiteral("read after the command"));
    handOver(QStringLiteral("read before the command"), 1000);
    EXPECT_EQ(writtenSubject(), QStringLiteral("read after the command"));
}

TEST_F(ReadOrderTest, ReadsEndingInTheOrderTheyBeganAreEachWritten) {
    handOver(QStringLiteral("first"), 1000);
    EXPECT_EQ(writtenSubject(), QStringLiteral("first"));
    handOver(QStringLiteral("second"), 2000);
    EXPECT_EQ(writtenSubject(), QStringLiteral("second"));
    // one read handed over twice (the same beginning) is written again, as before
    handOver(QStringLiteral("second, again"), 2000);
    EXPECT_EQ(writtenSubject(), QStringLiteral("second, again"));
}

} // namespace
} // namespace corvina::test
