// One account read from a real Dovecot and written into the shared folder, then read back with the
// widget's own loader.
#include "bridge/sync/AccountSync.h"

#include "BridgeTesting.h"
#include "bridge/sync/SnapshotWriter.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpServer>
#include <QThread>
#include <sys/stat.h>

namespace corvina::test {
namespace {

class AccountSyncTest : public BridgeServerTest {
protected:
    // Reads the account once and writes what it found; the result of the reading.
    AccountSync::Result sync(const BridgeConfig::Account& account, int* filesWritten = nullptr) {
        AccountSync reader(account, 10);
        AccountSync::Result result = reader.run(Password);
        lastFetched = reader.session().fetchedEnvelopes();
        if (!result.ok)
            return result;
        SnapshotWriter writer(container.data());
        QString error;
        const BridgeConfig config = BridgeConfig::load(configDir.filePath(QStringLiteral("bridge.conf")));
        EXPECT_TRUE(writer.writeAccounts(SnapshotWriter::accountsFromConfig(config), &error))
            << error.toStdString();
        EXPECT_TRUE(writer.writeSnapshots(account.mail, result.snapshots, &error)) << error.toStdString();
        if (filesWritten)
            *filesWritten = writer.filesWritten();
        return result;
    }

    static QStringList subjects(const ExtensionMessageList& messages) {
        QStringList list;
        for (const auto& m : messages)
            list << m->subject();
        return list;
    }

    static ExtensionMessagePtr find(const ExtensionMessageList& messages, const QString& subject, int stid) {
        for (const auto& m : messages) {
            if (m->subject() == subject && m->folderStandardId().toInt() == stid)
                return m;
        }
        return nullptr;
    }

    qint64 lastFetched = 0;
};

TEST_F(AccountSyncTest, FirstSyncFillsTheAccountListAndTheInbox) {
    deliver(QStringLiteral("First"), QStringLiteral("Grace Lindholm <grace@example.org>"),
            QStringLiteral("S"));
    deliver(QStringLiteral("Second"), QStringLiteral("bob@example.org"));
    const AccountSync::Result result = sync(account());
    ASSERT_TRUE(result.ok) << result.error.toStdString();

    const QList<ExtensionAccountPtr> accounts = ExtensionUtilities::Accounts();
    ASSERT_EQ(accounts.size(), 1);
    EXPECT_EQ(accounts.first()->mail(), Mail);
    EXPECT_TRUE(accounts.first()->enabled());

    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 2) << subjects(messages).join(", ").toStdString();
    const ExtensionMessagePtr first = find(messages, QStringLiteral("First"), 1);
    const ExtensionMessagePtr second = find(messages, QStringLiteral("Second"), 1);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->from(), QStringLiteral("Grace Lindholm"));
    EXPECT_EQ(second->from(), QStringLiteral("bob@example.org"));
    EXPECT_EQ(first->account(), Mail);
    EXPECT_EQ(first->folderPath(), QStringLiteral("INBOX"));
    EXPECT_EQ(first->unread().toInt(), 0);
    EXPECT_EQ(second->unread().toInt(), 1);
    EXPECT_NE(first->messageId(), second->messageId());

    // The date written is the sender's, exactly (the widget itself rounds what it shows).
    const QVariantList data = snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList();
    ASSERT_EQ(data.size(), 2);
    EXPECT_EQ(data.first().toMap().value(QStringLiteral("date")).toLongLong(), 1700000000);
    EXPECT_EQ(snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("account")).toString(), Mail);
    // No flagged message: the To Do list is there, and empty.
    EXPECT_TRUE(snapshot(QStringLiteral("todo.plist")).value(QStringLiteral("data")).toList().isEmpty());
}

TEST_F(AccountSyncTest, EncodedWordsInSubjectsAndNamesAreDecoded) {
    deliver(QStringLiteral("=?UTF-8?B?R3LDvMOfZSBhdXMgS8O2bG4=?="),
            QStringLiteral("=?ISO-8859-1?Q?J=F6rg_M=FCller?= <joerg@example.org>"));
    deliver(QStringLiteral("=?utf-8?q?caf=C3=A9?= and =?UTF-8?B?8J+Ygg==?= mixed"),
            QStringLiteral("\"=?UTF-8?Q?Ren=C3=A9e?=\" <renee@example.org>"));
    ASSERT_TRUE(sync(account()).ok);
    const ExtensionMessageList messages = widgetMessages();
    const ExtensionMessagePtr german = find(messages, QStringLiteral("Grüße aus Köln"), 1);
    ASSERT_TRUE(german) << subjects(messages).join(", ").toStdString();
    EXPECT_EQ(german->from(), QStringLiteral("Jörg Müller"));
    const ExtensionMessagePtr mixed = find(messages, QStringLiteral("café and 😂 mixed"), 1);
    ASSERT_TRUE(mixed) << subjects(messages).join(", ").toStdString();
    EXPECT_EQ(mixed->from(), QStringLiteral("Renée"));
}

TEST_F(AccountSyncTest, MissingDateTakesTheArrivalTimeAndMissingSubjectShowsTheWidgetsDefault) {
    const QDateTime arrived = QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC);
    server.deliver(User, QStringLiteral("INBOX"),
                   DovecotServer::message(QStringLiteral("No date"), QStringLiteral("a@example.org"),
                                          QString(), QStringLiteral("<1@x>")),
                   QString(), arrived);
    server.deliver(User, QStringLiteral("INBOX"),
                   DovecotServer::message(QStringLiteral("Bad date"), QStringLiteral("a@example.org"),
                                          QStringLiteral("sometime last week"), QStringLiteral("<2@x>")),
                   QString(), arrived.addSecs(60));
    server.deliver(User, QStringLiteral("INBOX"),
                   DovecotServer::message(QString(), QStringLiteral("a@example.org"),
                                          QStringLiteral("Wed, 15 Nov 2023 01:13:20 +0300"),
                                          QStringLiteral("<3@x>")));
    ASSERT_TRUE(sync(account()).ok);

    QMap<QString, QVariantMap> bySubject;
    for (const QVariant& m : snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList())
        bySubject.insert(m.toMap().value(QStringLiteral("subject"), QStringLiteral("(absent)")).toString(),
                         m.toMap());
    ASSERT_EQ(bySubject.size(), 3) << bySubject.keys().join(", ").toStdString();
    EXPECT_EQ(bySubject[QStringLiteral("No date")].value(QStringLiteral("date")).toLongLong(), 1600000000);
    EXPECT_EQ(bySubject[QStringLiteral("Bad date")].value(QStringLiteral("date")).toLongLong(), 1600000060);
    // +0300: 01:13:20 there is 22:13:20 UTC the day before
    EXPECT_EQ(bySubject[QStringLiteral("(absent)")].value(QStringLiteral("date")).toLongLong(), 1700000000);
    EXPECT_FALSE(bySubject[QStringLiteral("(absent)")].contains(QStringLiteral("subject")));

    bool sawDefault = false;
    for (const auto& m : widgetMessages())
        sawDefault = sawDefault || m->subject() == QStringLiteral("No subject");
    EXPECT_TRUE(sawDefault);
}

TEST_F(AccountSyncTest, OfTenThousandMessagesOnlyTheNewestAreFetched) {
    const QByteArray filler(200, 'x');
    for (int i = 1; i <= 10000; ++i) {
        server.deliver(User, QStringLiteral("INBOX"),
                       DovecotServer::message(QStringLiteral("Message %1").arg(i),
                                              QStringLiteral("a@example.org"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<%1@x>").arg(i), filler + "\r\n"),
                       i % 3 == 0 ? QStringLiteral("S") : QString());
    }
    QElapsedTimer clock;
    clock.start();
    const AccountSync::Result result = sync(account());
    std::cout << "[ figures  ] first sync of 10000 messages: " << clock.elapsed() << " ms" << std::endl;
    ASSERT_TRUE(result.ok) << result.error.toStdString();

    // The bridge's own count: 50 envelopes for the inbox, none for the (empty) To Do list.
    EXPECT_EQ(lastFetched, 50);
    const QVariantList data = snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList();
    ASSERT_EQ(data.size(), 50);
    QStringList expected;
    QStringList got;
    for (int i = 9951; i <= 10000; ++i)
        expected << QStringLiteral("Message %1").arg(i);
    for (const QVariant& m : data)
        got << m.toMap().value(QStringLiteral("subject")).toString();
    got.sort();
    expected.sort();
    EXPECT_EQ(got, expected);

    // The server's own count of what it sent this session: all envelopes would be megabytes.
    const QRegularExpression loggedOut(QStringLiteral("Logged out in=\\d+ out=(\\d+)"));
    QRegularExpressionMatch match;
    for (QDeadlineTimer deadline(10000); !deadline.hasExpired(); QThread::msleep(20)) {
        match = loggedOut.match(server.log());
        if (match.hasMatch())
            break;
    }
    ASSERT_TRUE(match.hasMatch()) << server.log().toStdString();
    EXPECT_LT(match.captured(1).toLongLong(), 100000);
}

TEST_F(AccountSyncTest, AFlaggedMessageIsListedUnderToDoUntilItIsUnflagged) {
    deliver(QStringLiteral("Plain"));
    const QString flaggedPath =
        deliver(QStringLiteral("Important"), QStringLiteral("Grace <g@example.org>"), QStringLiteral("FS"));
    ASSERT_TRUE(sync(account()).ok);
    ExtensionMessageList messages = widgetMessages();
    const ExtensionMessagePtr todo = find(messages, QStringLiteral("Important"), 11);
    ASSERT_TRUE(todo) << subjects(messages).join(", ").toStdString();
    EXPECT_EQ(todo->folderPath(), QStringLiteral("INBOX"));
    EXPECT_EQ(todo->unread().toInt(), 0);
    EXPECT_FALSE(find(messages, QStringLiteral("Plain"), 11));
    // The same message is in the inbox list too, under the same identifier.
    const ExtensionMessagePtr inInbox = find(messages, QStringLiteral("Important"), 1);
    ASSERT_TRUE(inInbox);
    EXPECT_EQ(inInbox->messageId(), todo->messageId());

    ASSERT_FALSE(server.setFlags(flaggedPath, QStringLiteral("S")).isEmpty());
    ASSERT_TRUE(sync(account()).ok);
    messages = widgetMessages();
    EXPECT_FALSE(find(messages, QStringLiteral("Important"), 11));
    EXPECT_TRUE(find(messages, QStringLiteral("Important"), 1));
}

TEST_F(AccountSyncTest, ToDoAndMemoCanBeFoldersOfTheirOwn) {
    server.createFolder(User, QStringLiteral("Tasks"));
    server.createFolder(User, QStringLiteral("Notes"));
    deliver(QStringLiteral("In the inbox"));
    deliver(QStringLiteral("A task"), QStringLiteral("t@example.org"), QString(), QStringLiteral("Tasks"));
    deliver(QStringLiteral("A note"), QStringLiteral("n@example.org"), QStringLiteral("S"),
            QStringLiteral("Notes"));
    deliver(QStringLiteral("Flagged but not a task"), QStringLiteral("f@example.org"), QStringLiteral("F"));
    ASSERT_TRUE(sync(account({{"todo", "Tasks"}, {"memo", "Notes"}})).ok);
    const ExtensionMessageList messages = widgetMessages();
    EXPECT_EQ(messages.size(), 4) << subjects(messages).join(", ").toStdString();
    EXPECT_TRUE(find(messages, QStringLiteral("In the inbox"), 1));
    const ExtensionMessagePtr task = find(messages, QStringLiteral("A task"), 11);
    ASSERT_TRUE(task);
    EXPECT_EQ(task->folderPath(), QStringLiteral("Tasks"));
    const ExtensionMessagePtr note = find(messages, QStringLiteral("A note"), 12);
    ASSERT_TRUE(note);
    EXPECT_EQ(note->folderPath(), QStringLiteral("Notes"));
    EXPECT_FALSE(find(messages, QStringLiteral("Flagged but not a task"), 11));
}

TEST_F(AccountSyncTest, MessageIdsNameFolderAndUidAndFitInACommandUrl) {
    server.createFolder(User, QStringLiteral("My Box"));
    deliver(QStringLiteral("Boxed"), QStringLiteral("b@example.org"), QString(), QStringLiteral("My Box"));
    ASSERT_TRUE(sync(account({{"memo", "My Box"}})).ok);
    const ExtensionMessageList messages = widgetMessages();
    const ExtensionMessagePtr boxed = find(messages, QStringLiteral("Boxed"), 12);
    ASSERT_TRUE(boxed);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^My%20Box/[1-9][0-9]*/1$")).match(boxed->messageId()).hasMatch())
        << boxed->messageId().toStdString();
    const std::optional<Url> url = ExtensionUtilities::CommandURLForMessage(boxed, QStringLiteral("open"));
    ASSERT_TRUE(url.has_value());
    EXPECT_TRUE(url->absoluteString().contains(QStringLiteral("messageid=") + boxed->messageId()));
}

TEST_F(AccountSyncTest, FoldersNamedOutsideAsciiAreFoundAndKeepTheirNames) {
    // The folders as Dovecot keeps them, and as IMAP names them: written here by hand, so that the
    // bridge's encoding is checked against the server's and not against itself.
    server.createFolder(User, QStringLiteral("Notizen &AOQ-"));
    server.createFolder(User, QStringLiteral("&ZeVnLIqe-"));
    deliver(QStringLiteral("Eine Notiz"), QStringLiteral("n@example.org"), QString(),
            QStringLiteral("Notizen &AOQ-"));
    deliver(QStringLiteral("A task"), QStringLiteral("t@example.org"), QString(),
            QStringLiteral("&ZeVnLIqe-"));
    const QString memo = QStringLiteral("Notizen ") + QChar(0xe4);
    const QString todo = QString::fromUtf8("\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e");
    const BridgeConfig::Account wide = account({{"memo", memo}, {"todo", todo}});
    ASSERT_EQ(wide.problem, QString());
    const AccountSync::Result result = sync(wide);
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    const ExtensionMessageList messages = widgetMessages();
    const ExtensionMessagePtr note = find(messages, QStringLiteral("Eine Notiz"), 12);
    ASSERT_TRUE(note);
    EXPECT_EQ(note->folderPath(), memo);
    // The message id carries the name as text, percent-encoded as UTF-8, as for any other folder.
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^Notizen%20%C3%A4/[1-9][0-9]*/1$"))
                    .match(note->messageId())
                    .hasMatch())
        << note->messageId().toStdString();
    const ExtensionMessagePtr task = find(messages, QStringLiteral("A task"), 11);
    ASSERT_TRUE(task);
    EXPECT_EQ(task->folderPath(), todo);
    EXPECT_TRUE(task->messageId().startsWith(QStringLiteral("%E6%97%A5%E6%9C%AC%E8%AA%9E/")))
        << task->messageId().toStdString();

    // A name the server does not have is still said in the person's own letters.
    const AccountSync::Result missing = sync(account({{"memo", QStringLiteral("Notizen ") + QChar(0xf6)}}));
    EXPECT_FALSE(missing.ok);
    EXPECT_TRUE(missing.error.startsWith(QStringLiteral("folder missing: Notizen ") + QChar(0xf6)))
        << missing.error.toStdString();
}

TEST_F(AccountSyncTest, AMissingFolderFailsTheAccountAndWritesNothing) {
    deliver(QStringLiteral("Hello"));
    const AccountSync::Result result = sync(account({{"memo", "Nowhere"}}));
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.failure, ImapSession::Failure::FolderMissing);
    EXPECT_TRUE(result.error.startsWith(QStringLiteral("folder missing: Nowhere")))
        << result.error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(container.data() + "/" + corvina::ConstVars::todayFolder + "/" + Mail));
}

TEST_F(AccountSyncTest, AWrongPasswordIsALoginRefused) {
    AccountSync reader(account(), 10);
    const AccountSync::Result result = reader.run(QStringLiteral("not the password"));
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.failure, ImapSession::Failure::LoginRefused);
    EXPECT_TRUE(result.error.startsWith(QStringLiteral("login refused for ada")))
        << result.error.toStdString();
}

TEST_F(AccountSyncTest, AStoppedServerIsAnUnreachableHost) {
    const BridgeConfig::Account stopped = account();
    server.stop();
    AccountSync reader(stopped, 10);
    const AccountSync::Result result = reader.run(Password);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.failure, ImapSession::Failure::HostUnreachable);
    EXPECT_TRUE(result.error.startsWith(QStringLiteral("host unreachable: 127.0.0.1:%1").arg(stopped.port)))
        << result.error.toStdString();
}

TEST_F(AccountSyncTest, AServerThatNeverGreetsIsGivenUpAfterTheTimeout) {
    // The kernel completes the connection on its own; nobody ever answers on it.
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost, 0));
    BridgeConfig::Account mute = account();
    mute.port = silent.serverPort();
    AccountSync reader(mute, 1);
    const AccountSync::Result result = reader.run(Password);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.failure, ImapSession::Failure::HostUnreachable);
    EXPECT_TRUE(result.error.contains(QStringLiteral("no IMAP greeting within 1 s")))
        << result.error.toStdString();
}

TEST_F(AccountSyncTest, UnchangedContentIsNotRewritten) {
    deliver(QStringLiteral("One"));
    int written = 0;
    ASSERT_TRUE(sync(account(), &written).ok);
    EXPECT_EQ(written, 3); // Accounts.plist, inbox.plist, todo.plist
    const QString inbox = container.data() + "/" + corvina::ConstVars::todayFolder + "/" + Mail +
                          QStringLiteral("/inbox.plist");
    struct stat before {};
    ASSERT_EQ(::stat(QFile::encodeName(inbox).constData(), &before), 0);

    ASSERT_TRUE(sync(account(), &written).ok);
    EXPECT_EQ(written, 0);
    struct stat after {};
    ASSERT_EQ(::stat(QFile::encodeName(inbox).constData(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);

    deliver(QStringLiteral("Two"));
    ASSERT_TRUE(sync(account(), &written).ok);
    EXPECT_EQ(written, 1); // only the inbox changed
    struct stat changed {};
    ASSERT_EQ(::stat(QFile::encodeName(inbox).constData(), &changed), 0);
    EXPECT_NE(changed.st_ino, before.st_ino);
}

TEST_F(AccountSyncTest, AListSwitchedOffLosesItsFileAndLeavesOthersAlone) {
    server.createFolder(User, QStringLiteral("Notes"));
    deliver(QStringLiteral("A note"), QStringLiteral("n@example.org"), QString(), QStringLiteral("Notes"));
    ASSERT_TRUE(sync(account({{"memo", "Notes"}})).ok);
    const QString folder = container.data() + "/" + corvina::ConstVars::todayFolder + "/" + Mail;
    container.writeSnapshot(Mail, QStringLiteral("someone-elses.plist"), {});
    ASSERT_TRUE(QFileInfo::exists(folder + QStringLiteral("/memo.plist")));
    ASSERT_TRUE(sync(account()).ok);
    EXPECT_FALSE(QFileInfo::exists(folder + QStringLiteral("/memo.plist")));
    EXPECT_TRUE(QFileInfo::exists(folder + QStringLiteral("/inbox.plist")));
    EXPECT_TRUE(QFileInfo::exists(folder + QStringLiteral("/someone-elses.plist")));
}

} // namespace
} // namespace corvina::test
