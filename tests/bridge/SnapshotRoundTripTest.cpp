// Records made by the bridge's account sync, written by its snapshot writer and read back by the
// widget's own loader: every field of every record arrives as it was written, each list's kind
// lands in the list the widget's header shows it in, and the bytes of the file are pinned, since
// other readers of the shared folder read the same file.
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/AccountSync.h"
#include "bridge/sync/SnapshotWriter.h"
#include "model/ExtensionDate.h"
#include "model/SnapshotFormat.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "support/TempContainer.h"
#include "widget/SegmentFilter.h"
#include "widget/SnapshotLoader.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

using Kind = SnapshotFormat::ListKind;

const QString Mail = QStringLiteral("ada@example.org");

// One record as the sync makes it, with what the widget must read back.
struct Written {
    Kind kind;
    ImapSession::Folder folder;
    ImapSession::Envelope envelope;
    QString subject; // as the widget shows it
    qint64 seconds;  // the date written (a multiple of 128: the widget's rounding keeps it)
    QString messageId;
};

QDateTime at(qint64 seconds) {
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

// One message of each list the bridge writes: unread with every header, read with only the time
// the server received it, and one without a subject in a folder whose name is percent-encoded.
QList<Written> records() {
    QList<Written> list;
    {
        Written w{Kind::Inbox, {QStringLiteral("INBOX"), 42, 8, 7}, {}, {}, 1700000000, {}};
        w.envelope.uid = 7;
        w.envelope.seen = false;
        w.envelope.subject = QStringLiteral("Quarterly report: Grüße aus Köln");
        w.envelope.from = QStringLiteral("Grace Lindholm");
        w.envelope.date = at(1700000000);
        w.envelope.internalDate = at(1700000256);
        w.subject = w.envelope.subject;
        w.messageId = QStringLiteral("INBOX/42/7");
        list << w;
    }
    {
        Written w{Kind::ToDo, {QStringLiteral("To Do"), 5, 3, 2}, {}, {}, 1600000000, {}};
        w.envelope.uid = 2;
        w.envelope.seen = true;
        w.envelope.flagged = true;
        w.envelope.subject = QStringLiteral("Call back");
        w.envelope.from = QStringLiteral("bob@example.org");
        w.envelope.internalDate = at(1600000000);
        w.subject = w.envelope.subject;
        w.messageId = QStringLiteral("To%20Do/5/2");
        list << w;
    }
    {
        Written w{Kind::Memo, {QStringLiteral("Notizen/Blöcke"), 4294967295U, 10, 1}, {}, {}, 1699999872, {}};
        w.envelope.uid = 9;
        w.envelope.seen = false;
        w.envelope.from = QStringLiteral("Jürgen Groß");
        w.envelope.date = at(1699999872);
        w.subject = QStringLiteral("No subject"); // the widget's own, as no Subject header came
        w.messageId = QStringLiteral("Notizen%2FBl%C3%B6cke/4294967295/9");
        list << w;
    }
    return list;
}

// The files as the bridge has always written them: XML property lists, keys in the order of their
// texts. Other readers of the shared folder parse these bytes.
constexpr const char* ExpectedAccounts = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<array>
	<dict>
		<key>enabled</key>
		<true/>
		<key>mail</key>
		<string>ada@example.org</string>
		<key>name</key>
		<string>Ada Lovelace</string>
	</dict>
</array>
</plist>
)";
constexpr const char* ExpectedInbox = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>account</key>
	<string>ada@example.org</string>
	<key>data</key>
	<array>
		<dict>
			<key>account</key>
			<string>ada@example.org</string>
			<key>date</key>
			<integer>1700000000</integer>
			<key>folder</key>
			<string>INBOX</string>
			<key>folderStid</key>
			<integer>1</integer>
			<key>from</key>
			<string>Grace Lindholm</string>
			<key>isUnread</key>
			<integer>1</integer>
			<key>messageId</key>
			<string>INBOX/42/7</string>
			<key>subject</key>
			<string>Quarterly report: Grüße aus Köln</string>
		</dict>
	</array>
	<key>folder</key>
	<string>INBOX</string>
</dict>
</plist>
)";
constexpr const char* ExpectedToDo = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>account</key>
	<string>ada@example.org</string>
	<key>data</key>
	<array>
		<dict>
			<key>account</key>
			<string>ada@example.org</string>
			<key>date</key>
			<integer>1600000000</integer>
			<key>folder</key>
			<string>To Do</string>
			<key>folderStid</key>
			<integer>11</integer>
			<key>from</key>
			<string>bob@example.org</string>
			<key>isUnread</key>
			<integer>0</integer>
			<key>messageId</key>
			<string>To%20Do/5/2</string>
			<key>subject</key>
			<string>Call back</string>
		</dict>
	</array>
	<key>folder</key>
	<string>To Do</string>
</dict>
</plist>
)";
constexpr const char* ExpectedMemo = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>account</key>
	<string>ada@example.org</string>
	<key>data</key>
	<array>
		<dict>
			<key>account</key>
			<string>ada@example.org</string>
			<key>date</key>
			<integer>1699999872</integer>
			<key>folder</key>
			<string>Notizen/Blöcke</string>
			<key>folderStid</key>
			<integer>12</integer>
			<key>from</key>
			<string>Jürgen Groß</string>
			<key>isUnread</key>
			<integer>1</integer>
			<key>messageId</key>
			<string>Notizen%2FBl%C3%B6cke/4294967295/9</string>
		</dict>
	</array>
	<key>folder</key>
	<string>Notizen/Blöcke</string>
</dict>
</plist>
)";

class SnapshotRoundTripTest : public ::testing::Test {
protected:
    // Writes Accounts.plist from a one-account config and one file for each record's list.
    void write() {
        QFile file(configDir.filePath(QStringLiteral("bridge.conf")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[work]\nmail=ada@example.org\nname=Ada Lovelace\nhost=imap.example.org\n");
        file.close();
        const BridgeConfig config = BridgeConfig::load(file.fileName());
        ASSERT_EQ(config.accounts().size(), 1);

        QList<AccountSync::Snapshot> snapshots;
        for (const Written& w : records()) {
            snapshots.append({AccountSync::fileFor(w.kind),
                              w.folder.name,
                              {AccountSync::messageDictionary(w.envelope, Mail, w.folder, w.kind)}});
        }
        SnapshotWriter writer(container.data());
        QString error;
        ASSERT_TRUE(writer.writeAccounts(SnapshotWriter::accountsFromConfig(config), &error))
            << error.toStdString();
        ASSERT_TRUE(writer.writeSnapshots(Mail, snapshots, &error)) << error.toStdString();
    }

    QByteArray bytesOf(const QString& relative) const {
        QFile file(container.data() + u'/' + relative);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << relative.toStdString();
        return file.readAll();
    }

    TempContainer container;
    QTemporaryDir configDir;
};

TEST_F(SnapshotRoundTripTest, EveryFieldTheBridgeWritesIsWhatTheWidgetReads) {
    ASSERT_NO_FATAL_FAILURE(write());
    const QList<ExtensionAccountPtr> accounts = ExtensionUtilities::Accounts();
    ASSERT_EQ(accounts.size(), 1);
    EXPECT_EQ(accounts.first()->mail(), Mail);
    EXPECT_EQ(accounts.first()->name(), QStringLiteral("Ada Lovelace"));
    EXPECT_TRUE(accounts.first()->enabled());

    SnapshotLoader loader;
    const ExtensionMessageList read = loader.updateData();
    ASSERT_EQ(read.size(), 3);
    for (const Written& w : records()) {
        SCOPED_TRACE(w.messageId.toStdString());
        const auto found = std::find_if(read.begin(), read.end(), [&](const ExtensionMessagePtr& m) {
            return m->messageId() == w.messageId;
        });
        ASSERT_NE(found, read.end());
        const ExtensionMessage& m = **found;
        EXPECT_EQ(m.messageId(),
                  AccountSync::messageIdFor(w.folder.name, w.folder.uidValidity, w.envelope.uid));
        EXPECT_EQ(m.subject(), w.subject);
        EXPECT_EQ(m.from(), w.envelope.from);
        EXPECT_EQ(m.account(), Mail);
        EXPECT_EQ(m.folderPath(), w.folder.name);
        EXPECT_EQ(m.folderStandardId().toInt(), SnapshotFormat::number(w.kind));
        EXPECT_TRUE(SnapshotFormat::isOfKind(m.folderStandardId(), w.kind));
        EXPECT_EQ(m.unread().toInt(), w.envelope.seen ? 0 : 1);
        EXPECT_EQ(m.date(), at(w.seconds));
        EXPECT_EQ(m.dateString(), ExtensionDate::shared().centralDate(at(w.seconds)));
        // the bridge writes no pictures
        EXPECT_FALSE(m.hasAvatar());
    }
}

TEST_F(SnapshotRoundTripTest, EachListTheBridgeWritesIsTheListTheHeaderShows) {
    ASSERT_NO_FATAL_FAILURE(write());
    SnapshotLoader loader;
    const ExtensionMessageList read = loader.updateData();
    // the stored header choice: 1 Inbox, 2 To Do, 3 Memo
    const QList<std::pair<qint64, QString>> shown{{1, QStringLiteral("INBOX/42/7")},
                                                  {2, QStringLiteral("To%20Do/5/2")},
                                                  {3, QStringLiteral("Notizen%2FBl%C3%B6cke/4294967295/9")}};
    for (const auto& [segmented, id] : shown) {
        const std::optional<ExtensionMessageList> rows = SegmentFilter::dataToShow(read, segmented);
        ASSERT_TRUE(rows.has_value());
        ASSERT_EQ(rows->size(), 1) << segmented;
        EXPECT_EQ(rows->first()->messageId(), id) << segmented;
    }
    // nothing the bridge writes is of the fourth kind
    EXPECT_TRUE(SegmentFilter::dataToShow(read, 4)->isEmpty());
}

TEST_F(SnapshotRoundTripTest, TheFilesHoldTheseBytes) {
    ASSERT_NO_FATAL_FAILURE(write());
    EXPECT_EQ(bytesOf(ConstVars::accountsFile), QByteArray(ExpectedAccounts));
    EXPECT_EQ(bytesOf(ConstVars::todayFolder + QStringLiteral("/ada@example.org/inbox.plist")),
              QByteArray(ExpectedInbox));
    EXPECT_EQ(bytesOf(ConstVars::todayFolder + QStringLiteral("/ada@example.org/todo.plist")),
              QByteArray(ExpectedToDo));
    EXPECT_EQ(bytesOf(ConstVars::todayFolder + QStringLiteral("/ada@example.org/memo.plist")),
              QByteArray(ExpectedMemo));
}

} // namespace
} // namespace corvina::test
