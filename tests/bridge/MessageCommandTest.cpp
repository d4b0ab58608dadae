// The widget's commands carried out on a real Dovecot: what the server holds afterwards (its Maildir
// files and their flags), and the line a person reads when a command cannot be done.
#include "bridge/commands/MessageCommand.h"

#include "BridgeTesting.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace corvina::test {
namespace {

// A TCP relay between the bridge and the server that, once, lets a command through to the server,
// waits until the server has answered it, and then closes the bridge's side without passing the
// answer on: a connection lost after the server did the work, before the client heard of it.
class CuttingRelay {
public:
    CuttingRelay(quint16 serverPort, QByteArray trigger)
        : m_serverPort(serverPort), m_trigger(std::move(trigger)) {
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (m_listener < 0 ||
            ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(m_listener, 8) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
    ~CuttingRelay() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        if (m_listener >= 0)
            ::close(m_listener);
    }
    CuttingRelay(const CuttingRelay&) = delete;
    CuttingRelay& operator=(const CuttingRelay&) = delete;

    quint16 port() const { return m_port; }
    bool cut() const { return m_cut; }

private:
    int connectToServer() const {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(m_serverPort);
        if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            return fd;
        if (fd >= 0)
            ::close(fd);
        return -1;
    }

    // One connection at a time, as the bridge makes them.
    void serve() {
        while (!m_stop) {
            pollfd listening{m_listener, POLLIN, 0};
            if (::poll(&listening, 1, 50) <= 0)
                continue;
            const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0)
                continue;
            const int server = connectToServer();
            if (server >= 0)
                pump(client, server);
            ::close(client);
            if (server >= 0)
                ::close(server);
        }
    }

    void pump(int client, int server) {
        QByteArray fromClient;
        QByteArray waitingFor; // the tag of the command whose answer is held back
        QByteArray fromServer;
        char buffer[65536];
        while (!m_stop) {
            pollfd fds[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
            if (::poll(fds, 2, 50) <= 0)
                continue;
            if (fds[0].revents != 0) {
                const ssize_t n = ::read(client, buffer, sizeof buffer);
                if (n <= 0 || ::write(server, buffer, static_cast<size_t>(n)) != n)
                    return;
                fromClient.append(buffer, n);
                const qsizetype at = m_cut ? -1 : fromClient.indexOf(m_trigger);
                if (at >= 0) {
                    const qsizetype lineStart = fromClient.lastIndexOf('\n', at) + 1;
                    waitingFor =
                        fromClient.mid(lineStart, fromClient.indexOf(' ', lineStart) - lineStart) + ' ';
                    m_cut = true;
                }
            }
            if (fds[1].revents != 0) {
                const ssize_t n = ::read(server, buffer, sizeof buffer);
                if (n <= 0)
                    return;
                if (waitingFor.isEmpty()) {
                    if (::write(client, buffer, static_cast<size_t>(n)) != n)
                        return;
                    continue;
                }
                fromServer.append(buffer, n);
                // The server has finished the command: the client never hears so.
                if (fromServer.startsWith(waitingFor) || fromServer.contains("\n" + waitingFor))
                    return;
            }
        }
    }

    quint16 m_serverPort = 0;
    QByteArray m_trigger;
    int m_listener = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_cut = false;
    std::thread m_thread;
};

class MessageCommandTest : public BridgeServerTest {
protected:
    using Action = MessageCommand::Action;
    using Failure = MessageCommand::Failure;

    void SetUp() override {
        // As the bridge does when it starts (LiveBridge::start): a write to a closed connection
        // fails instead of ending the process.
        std::signal(SIGPIPE, SIG_IGN);
        server.setRecordSessions(true);
        BridgeServerTest::SetUp();
    }

    // Starts the server again with another configuration (the port stays).
    void restartServer() {
        server.stop();
        QString error;
        ASSERT_TRUE(server.start(&error)) << error.toStdString();
    }

    // The identifier the bridge lists the message with that subject under, read from the server.
    QString idOf(const QString& subject, const QString& folder = QStringLiteral("INBOX")) {
        ImapSession session({server.host(), server.port(), BridgeConfig::Security::None, 10, QString()});
        if (!session.connectToServer() || !session.login(User, Password))
            return QString();
        const std::optional<ImapSession::Folder> opened = session.examine(folder);
        if (!opened)
            return QString();
        const auto envelopes = session.fetchNewest(1000);
        if (!envelopes)
            return QString();
        for (const ImapSession::Envelope& envelope : *envelopes) {
            if (envelope.subject == subject)
                return AccountSync::messageIdFor(folder, opened->uidValidity, envelope.uid);
        }
        return QString();
    }

    // The Message-ID deliver() gave its n-th message.
    static QString header(int n) { return QStringLiteral("<m%1@example.org>").arg(n); }

    QStringList inFolder(const QString& folder) const { return server.messageIds(User, folder); }

    MessageCommand::Outcome run(Action action, const QString& id, const BridgeConfig::Account& account) {
        MessageCommand command(account, cache.filePath(QStringLiteral("messages")), 10);
        return command.run(action, id, Password);
    }

    static QStringList subjectsOf(const QList<AccountSync::Snapshot>& snapshots, const QString& file) {
        QStringList subjects;
        for (const AccountSync::Snapshot& snapshot : snapshots) {
            if (snapshot.file != file)
                continue;
            for (const QVariant& message : snapshot.messages)
                subjects << message.toMap().value(QStringLiteral("subject")).toString();
        }
        return subjects;
    }

    QTemporaryDir cache;
};

TEST_F(MessageCommandTest, ArchiveMovesTheMessageToTheArchiveFolderWithMove) {
    deliver(QStringLiteral("Keep"));
    deliver(QStringLiteral("File away"));
    const QString id = idOf(QStringLiteral("File away"));
    ASSERT_FALSE(id.isEmpty());

    const MessageCommand::Outcome outcome = run(Action::Archive, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.failure, Failure::None);
    EXPECT_EQ(outcome.note, QString());
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList{header(2)});
    EXPECT_TRUE(server.clientCommands().contains("UID MOVE")) << server.clientCommands().toStdString();

    // The lists read again on the same connection no longer hold it.
    EXPECT_TRUE(outcome.synced);
    EXPECT_EQ(subjectsOf(outcome.snapshots, QStringLiteral("inbox.plist")),
              QStringList{QStringLiteral("Keep")});
}

TEST_F(MessageCommandTest, WithoutMoveTheMessageIsCopiedMarkedAndExpungedAloneOthersMarkedDeletedStay) {
    server.setCapabilities(DovecotServer::capabilitiesWithout({QStringLiteral("MOVE")}));
    restartServer();
    deliver(QStringLiteral("File away"));
    deliver(QStringLiteral("Marked deleted by the person"), QStringLiteral("Grace <grace@example.org>"),
            QStringLiteral("T"));
    const QString id = idOf(QStringLiteral("File away"));
    ASSERT_FALSE(id.isEmpty());

    const MessageCommand::Outcome outcome = run(Action::Archive, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.note, QString());
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(2)});
    EXPECT_EQ(server.flagsOf(User, QStringLiteral("INBOX"), header(2)), QStringLiteral("T"));
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList{header(1)});
    // The copy is not marked deleted: the mark was set on the original after copying.
    EXPECT_FALSE(server.flagsOf(User, QStringLiteral("Archive"), header(1)).contains(u'T'));

    const QByteArray sent = server.clientCommands();
    EXPECT_FALSE(sent.contains("UID MOVE")) << sent.toStdString();
    EXPECT_TRUE(sent.contains("UID COPY")) << sent.toStdString();
    EXPECT_TRUE(sent.contains("UID EXPUNGE")) << sent.toStdString();
}

TEST_F(MessageCommandTest, WithoutMoveAndUidplusAMessageMarkedDeletedAloneIsExpunged) {
    server.setCapabilities(
        DovecotServer::capabilitiesWithout({QStringLiteral("MOVE"), QStringLiteral("UIDPLUS")}));
    restartServer();
    deliver(QStringLiteral("Keep"));
    deliver(QStringLiteral("Throw away"));
    const QString id = idOf(QStringLiteral("Throw away"));
    ASSERT_FALSE(id.isEmpty());

    const MessageCommand::Outcome outcome = run(Action::Delete, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.note, QString());
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Trash")), QStringList{header(2)});
    const QByteArray sent = server.clientCommands();
    EXPECT_FALSE(sent.contains("MOVE")) << sent.toStdString();
    EXPECT_FALSE(sent.contains("UID EXPUNGE")) << sent.toStdString();
    EXPECT_TRUE(sent.contains("SEARCH DELETED")) << sent.toStdString();
}

TEST_F(MessageCommandTest, WithoutMoveAndUidplusOtherMessagesMarkedDeletedAreNeverExpunged) {
    server.setCapabilities(
        DovecotServer::capabilitiesWithout({QStringLiteral("MOVE"), QStringLiteral("UIDPLUS")}));
    restartServer();
    deliver(QStringLiteral("File away"));
    deliver(QStringLiteral("Marked deleted by the person"), QStringLiteral("Grace <grace@example.org>"),
            QStringLiteral("ST"));
    const QString id = idOf(QStringLiteral("File away"));
    ASSERT_FALSE(id.isEmpty());

    const MessageCommand::Outcome outcome = run(Action::Archive, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.note,
              QStringLiteral("archive: copied to Archive, and left in INBOX marked as deleted: other "
                             "messages there are marked deleted too, and without UIDPLUS the server "
                             "cannot remove one of them alone"));
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), (QStringList{header(1), header(2)}));
    EXPECT_TRUE(server.flagsOf(User, QStringLiteral("INBOX"), header(1)).contains(u'T'));
    EXPECT_EQ(server.flagsOf(User, QStringLiteral("INBOX"), header(2)), QStringLiteral("ST"));
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList{header(1)});
    EXPECT_FALSE(server.clientCommands().contains("EXPUNGE")) << server.clientCommands().toStdString();
}

TEST_F(MessageCommandTest, DeleteMovesTheMessageToTheTrashFolder) {
    deliver(QStringLiteral("Throw away"));
    const QString id = idOf(QStringLiteral("Throw away"));
    const MessageCommand::Outcome outcome = run(Action::Delete, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList());
    EXPECT_EQ(inFolder(QStringLiteral("Trash")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList());
    EXPECT_TRUE(outcome.synced);
    EXPECT_EQ(subjectsOf(outcome.snapshots, QStringLiteral("inbox.plist")), QStringList());
}

TEST_F(MessageCommandTest, DeleteInTheTrashFolderNeverDeletesForGoodAndArchiveInTheArchiveStays) {
    deliver(QStringLiteral("In the trash"), QStringLiteral("Grace <grace@example.org>"), QString(),
            QStringLiteral("Trash"));
    deliver(QStringLiteral("In the archive"), QStringLiteral("Grace <grace@example.org>"), QString(),
            QStringLiteral("Archive"));
    const MessageCommand::Outcome deleted =
        run(Action::Delete, idOf(QStringLiteral("In the trash"), QStringLiteral("Trash")), account());
    EXPECT_FALSE(deleted.ok);
    EXPECT_EQ(deleted.failure, Failure::Refused);
    EXPECT_EQ(deleted.error,
              QStringLiteral("delete: the message is already in Trash, the trash folder; the bridge "
                             "never deletes mail for good (do that in your mail program)"));
    EXPECT_EQ(inFolder(QStringLiteral("Trash")), QStringList{header(1)});
    EXPECT_EQ(server.flagsOf(User, QStringLiteral("Trash"), header(1)), QStringLiteral(""));

    const MessageCommand::Outcome archived =
        run(Action::Archive, idOf(QStringLiteral("In the archive"), QStringLiteral("Archive")), account());
    ASSERT_TRUE(archived.ok) << archived.error.toStdString();
    EXPECT_EQ(archived.note, QStringLiteral("archive: the message is already in Archive; left there"));
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList{header(2)});
}

TEST_F(MessageCommandTest, TheArchiveFolderNamedInTheConfigWins) {
    server.createFolder(User, QStringLiteral("Saved"));
    deliver(QStringLiteral("File away"));
    const MessageCommand::Outcome outcome =
        run(Action::Archive, idOf(QStringLiteral("File away")),
            account({{QStringLiteral("archive"), QStringLiteral("Saved")}}));
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(inFolder(QStringLiteral("Saved")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList());
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList());
}

TEST_F(MessageCommandTest, AConfiguredFolderThatIsNotThereIsRefusedByTheServerAndTheMessageStays) {
    deliver(QStringLiteral("File away"));
    const MessageCommand::Outcome outcome =
        run(Action::Archive, idOf(QStringLiteral("File away")),
            account({{QStringLiteral("archive"), QStringLiteral("Nowhere")}}));
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, Failure::Refused);
    EXPECT_TRUE(outcome.error.startsWith(QLatin1String("archive: UID MOVE to Nowhere failed")))
        << outcome.error.toStdString();
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
}

TEST_F(MessageCommandTest, WithoutAnArchiveFolderThePersonIsToldWhatToSet) {
    server.setSpecialUseFolders(false);
    restartServer();
    deliver(QStringLiteral("File away"));
    const QString id = idOf(QStringLiteral("File away"));
    const MessageCommand::Outcome archived = run(Action::Archive, id, account());
    EXPECT_FALSE(archived.ok);
    EXPECT_EQ(archived.failure, Failure::NoTargetFolder);
    EXPECT_EQ(archived.error,
              QStringLiteral("archive: no archive folder: the server marks none as \\Archive; set "
                             "archive = FOLDER for account work in bridge.conf"));
    const MessageCommand::Outcome deleted = run(Action::Delete, id, account());
    EXPECT_EQ(deleted.failure, Failure::NoTargetFolder);
    EXPECT_EQ(deleted.error,
              QStringLiteral("delete: no trash folder: the server marks none as \\Trash; set trash = "
                             "FOLDER for account work in bridge.conf"));
    EXPECT_FALSE(deleted.synced);
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
}

TEST_F(MessageCommandTest, AMessageAlreadyGoneIsSaidSo) {
    const QString path = deliver(QStringLiteral("Gone soon"));
    deliver(QStringLiteral("Stays"));
    const QString id = idOf(QStringLiteral("Gone soon"));
    ASSERT_FALSE(id.isEmpty());
    ASSERT_TRUE(QFile::remove(path));
    for (const Action action : {Action::Archive, Action::Delete, Action::Open, Action::Reply}) {
        const MessageCommand::Outcome outcome = run(action, id, account());
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.failure, Failure::MessageGone);
        EXPECT_EQ(outcome.error,
                  MessageCommand::actionName(action) + QStringLiteral(": the message is no longer in INBOX"));
    }
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(2)});
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList());
    EXPECT_EQ(inFolder(QStringLiteral("Trash")), QStringList());
    EXPECT_TRUE(QDir(cache.filePath(QStringLiteral("messages"))).isEmpty());

    const MessageCommand::Outcome noFolder =
        run(Action::Archive, AccountSync::messageIdFor(QStringLiteral("Vanished"), 1, 1), account());
    EXPECT_EQ(noFolder.failure, Failure::MessageGone);
    EXPECT_EQ(noFolder.error, QStringLiteral("archive: the folder Vanished is not there any more"));
}

TEST_F(MessageCommandTest, AFolderRenumberedSinceTheListWasReadIsNotActedOn) {
    deliver(QStringLiteral("Renumbered"));
    const QString before = idOf(QStringLiteral("Renumbered"));
    ASSERT_FALSE(before.isEmpty());
    server.stop();
    server.forgetUids(User, QStringLiteral("INBOX"));
    QString error;
    ASSERT_TRUE(server.start(&error)) << error.toStdString();
    const QString after = idOf(QStringLiteral("Renumbered"));
    ASSERT_FALSE(after.isEmpty());
    const auto oldAddress = AccountSync::parseMessageId(before);
    const auto newAddress = AccountSync::parseMessageId(after);
    ASSERT_TRUE(oldAddress && newAddress);
    ASSERT_NE(oldAddress->uidValidity, newAddress->uidValidity);

    const MessageCommand::Outcome outcome = run(Action::Archive, before, account());
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, Failure::MessageGone);
    EXPECT_EQ(outcome.error,
              QStringLiteral("archive: the folder INBOX was renumbered since the message was listed "
                             "(UIDVALIDITY %1, now %2)")
                  .arg(oldAddress->uidValidity)
                  .arg(newAddress->uidValidity));
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList());
}

TEST_F(MessageCommandTest, HostileIdentifiersNeverReachTheServer) {
    deliver(QStringLiteral("Target"));
    const QStringList hostile = {
        QStringLiteral("../../etc/passwd/1/2"),
        QStringLiteral("INBOX/1/2 ; rm -rf ~"),
        QStringLiteral("%ZZ/1/2"),
        QStringLiteral("INBOX/99999999999/1"),
        QStringLiteral("INBOX/1/-1"),
        QString(),
        QString(10000, u'A'),
        QStringLiteral("INBOX/1/1/") + QString(10000, u'1'),
        QStringLiteral("INBOX/0/1"),
        QStringLiteral("INBOX/1/0"),
        QStringLiteral("INBOX/01/1"),
        QStringLiteral("INBOX/+1/1"),
        QStringLiteral("INBOX/4294967296/1"),
        QStringLiteral("/1/1"),
        QStringLiteral("INBOX/1"),
        QStringLiteral("IN%0D%0ABOX/1/1"),
        QStringLiteral("My%2fBox/1/1"),
        QStringLiteral("%4/1/1"),
        QStringLiteral("%FF/1/1"),
        QStringLiteral("INBOX /1/1"),
        QStringLiteral("INBOX/１/1"),
    };
    MessageCommand command(account(), cache.filePath(QStringLiteral("messages")), 10);
    for (const QString& id : hostile) {
        for (const Action action : {Action::Open, Action::Reply, Action::Archive, Action::Delete}) {
            const MessageCommand::Outcome outcome = command.run(action, id, Password);
            EXPECT_FALSE(outcome.ok) << id.left(80).toStdString();
            EXPECT_EQ(outcome.failure, Failure::BadMessageId) << id.left(80).toStdString();
            EXPECT_EQ(outcome.error,
                      MessageCommand::actionName(action) +
                          QStringLiteral(": not a message identifier of this bridge (%1 characters)")
                              .arg(id.size()));
            EXPECT_FALSE(outcome.synced);
        }
    }
    // Not even a connection was made.
    EXPECT_FALSE(command.isConnected());
    EXPECT_FALSE(server.log().contains(QLatin1String("Login:"))) << server.log().toStdString();
    EXPECT_TRUE(server.clientCommands().isEmpty());
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
    EXPECT_FALSE(QFileInfo::exists(cache.filePath(QStringLiteral("messages"))));

    // A well-formed identifier of a hostile folder name is only ever a folder name to the server, and
    // never a path for the cache.
    const QString traversal = AccountSync::messageIdFor(QStringLiteral("../../etc/passwd"), 1, 2);
    EXPECT_EQ(traversal, QStringLiteral("..%2F..%2Fetc%2Fpasswd/1/2"));
    const MessageCommand::Outcome outcome = command.run(Action::Open, traversal, Password);
    EXPECT_EQ(outcome.failure, Failure::MessageGone);
    EXPECT_EQ(outcome.error, QStringLiteral("open: the folder ../../etc/passwd is not there any more"));
    const QString name = MessageCommand::cacheFileName(Mail, *AccountSync::parseMessageId(traversal));
    EXPECT_FALSE(name.contains(u'/'));
    EXPECT_TRUE(name.startsWith(QLatin1String("message-______etc_passwd-1-2-"))) << name.toStdString();
}

TEST_F(MessageCommandTest, OpenSavesExactlyTheMessageForItsOwnerAndMarksItSeen) {
    // Bytes a careless copy would change: a bare CR, a NUL-free 8-bit body, a long line, trailing blanks.
    const QByteArray message = DovecotServer::message(
        QStringLiteral("Open me"), QStringLiteral("grace@example.org"),
        QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"), QStringLiteral("<open-1@example.org>"),
        "Gr\xc3\xbc\xc3\x9f"
        "e\r\n" +
            QByteArray(5000, 'x') + "\r\ntrailing   \r\n\r\n");
    server.deliver(User, QStringLiteral("INBOX"), message);
    const QString id = idOf(QStringLiteral("Open me"));
    ASSERT_FALSE(id.isEmpty());

    const MessageCommand::Outcome outcome = run(Action::Open, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.messageIdHeader, QStringLiteral("open-1@example.org"));
    EXPECT_TRUE(outcome.messageFile.endsWith(QLatin1String(".eml")));
    EXPECT_EQ(QFileInfo(outcome.messageFile).absolutePath(),
              QFileInfo(cache.filePath(QStringLiteral("messages"))).absoluteFilePath());
    QFile saved(outcome.messageFile);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_EQ(saved.readAll(), message);

    struct stat st {};
    ASSERT_EQ(::stat(QFile::encodeName(outcome.messageFile).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    ASSERT_EQ(::stat(QFile::encodeName(cache.filePath(QStringLiteral("messages"))).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    // Nothing but the message: no temporary left beside it.
    EXPECT_EQ(QDir(cache.filePath(QStringLiteral("messages"))).entryList(QDir::Files | QDir::Hidden).size(),
              1);

    EXPECT_EQ(server.flagsOf(User, QStringLiteral("INBOX"), QStringLiteral("<open-1@example.org>")),
              QStringLiteral("S"));
    EXPECT_TRUE(outcome.synced);
    ASSERT_EQ(outcome.snapshots.first().messages.size(), 1);
    EXPECT_EQ(outcome.snapshots.first().messages.first().toMap().value(QStringLiteral("isUnread")).toInt(),
              0);
}

TEST_F(MessageCommandTest, OpenPrunesCachedMessagesOlderThanAWeek) {
    const QString folder = cache.filePath(QStringLiteral("messages"));
    ASSERT_TRUE(QDir().mkpath(folder));
    const QString old = folder + QStringLiteral("/message-INBOX-1-1-0123456789abcdef.eml");
    const QString recent = folder + QStringLiteral("/message-INBOX-1-2-0123456789abcdef.eml");
    const QString someoneElses = folder + QStringLiteral("/notes.txt");
    for (const QString& path : {old, recent, someoneElses}) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("x");
    }
    const QDateTime eightDaysAgo = QDateTime::currentDateTimeUtc().addDays(-8);
    for (const QString& path : {old, someoneElses}) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(eightDaysAgo, QFileDevice::FileModificationTime));
    }
    deliver(QStringLiteral("Open me"));
    const MessageCommand::Outcome outcome = run(Action::Open, idOf(QStringLiteral("Open me")), account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(old));
    EXPECT_TRUE(QFileInfo::exists(recent));
    EXPECT_TRUE(QFileInfo::exists(someoneElses));
    EXPECT_TRUE(QFileInfo::exists(outcome.messageFile));
}

TEST_F(MessageCommandTest, OpenRefusesAMessageLargerThanTheBound) {
    QByteArray body(ImapSession::MaximumMessageBytes, 'x');
    for (qsizetype i = 998; i < body.size(); i += 1000) {
        body[i] = '\r';
        body[i + 1] = '\n';
    }
    server.deliver(User, QStringLiteral("INBOX"),
                   DovecotServer::message(QStringLiteral("Huge"), QStringLiteral("grace@example.org"),
                                          QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                          QStringLiteral("<huge@example.org>"), body));
    body.clear();
    const QString id = idOf(QStringLiteral("Huge"));
    ASSERT_FALSE(id.isEmpty());
    const MessageCommand::Outcome outcome = run(Action::Open, id, account());
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, Failure::TooLarge);
    EXPECT_TRUE(outcome.error.startsWith(QLatin1String("open: the message is larger than 64 MiB (")))
        << outcome.error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(cache.filePath(QStringLiteral("messages"))) &&
                 !QDir(cache.filePath(QStringLiteral("messages"))).isEmpty());
    EXPECT_EQ(server.flagsOf(User, QStringLiteral("INBOX"), QStringLiteral("<huge@example.org>")),
              QStringLiteral(""));
    // Its size was asked, never its content.
    EXPECT_FALSE(server.clientCommands().contains("BODY.PEEK[]"))
        << server.clientCommands().left(2000).toStdString();
}

TEST_F(MessageCommandTest, ReplyPreparesADraftAndChangesNothing) {
    const QByteArray message = "From: Grace Lindholm <grace@example.org>\r\n"
                               "Reply-To: =?UTF-8?Q?Gr=C3=A4ce?= Lists <lists@example.org>\r\n"
                               "To: ada@example.org\r\n"
                               "Subject: RE: =?UTF-8?B?R3LDvMOfZSBhdXM=?=\r\n"
                               " =?UTF-8?Q?_K=C3=B6ln?=\r\n"
                               "Date: Tue, 14 Nov 2023 22:13:20 +0000\r\n"
                               "Message-ID: <three@example.org>\r\n"
                               "In-Reply-To: <two@example.org>\r\n"
                               "References: <one@example.org>\r\n"
                               "  <two@example.org> <one@example.org>\r\n"
                               "\r\n"
                               "Hello.\r\n";
    server.deliver(User, QStringLiteral("INBOX"), message);
    ImapSession lister({server.host(), server.port(), BridgeConfig::Security::None, 10, QString()});
    ASSERT_TRUE(lister.connectToServer() && lister.login(User, Password));
    const auto folder = lister.examine(QStringLiteral("INBOX"));
    ASSERT_TRUE(folder);
    const auto envelopes = lister.fetchNewest(1);
    ASSERT_TRUE(envelopes && envelopes->size() == 1);
    const QString id =
        AccountSync::messageIdFor(QStringLiteral("INBOX"), folder->uidValidity, envelopes->first().uid);
    lister.logout();

    const MessageCommand::Outcome outcome = run(Action::Reply, id, account());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.reply.subject, QStringLiteral("RE: Grüße aus Köln"));
    EXPECT_EQ(outcome.reply.to, QStringList{QStringLiteral("lists@example.org")});
    EXPECT_EQ(outcome.reply.inReplyTo, QStringLiteral("three@example.org"));
    EXPECT_EQ(outcome.reply.references,
              (QStringList{QStringLiteral("one@example.org"), QStringLiteral("two@example.org"),
                           QStringLiteral("three@example.org")}));
    EXPECT_EQ(outcome.reply.account, Mail);
    EXPECT_EQ(outcome.messageIdHeader, QStringLiteral("three@example.org"));
    EXPECT_FALSE(outcome.synced);
    // Not even seen: a reply only reads.
    EXPECT_EQ(server.flagsOf(User, QStringLiteral("INBOX"), QStringLiteral("<three@example.org>")),
              QStringLiteral(""));
    EXPECT_FALSE(server.clientCommands().contains("STORE"));
    EXPECT_FALSE(server.clientCommands().contains("SELECT"));
}

TEST_F(MessageCommandTest, ReplyAddsReOnceAndAnswersTheSenderWithoutReplyTo) {
    deliver(QStringLiteral("Lunch?"), QStringLiteral("Grace Lindholm <grace@example.org>"));
    deliver(QStringLiteral("re: lunch"), QStringLiteral("bob@example.org"));
    deliver(QStringLiteral("=?UTF-8?Q?Caf=C3=A9?="),
            QStringLiteral("=?UTF-8?Q?Ren=C3=A9e?= <renee@example.org>"));
    const MessageCommand::Outcome first = run(Action::Reply, idOf(QStringLiteral("Lunch?")), account());
    ASSERT_TRUE(first.ok) << first.error.toStdString();
    EXPECT_EQ(first.reply.subject, QStringLiteral("Re: Lunch?"));
    EXPECT_EQ(first.reply.to, QStringList{QStringLiteral("grace@example.org")});
    EXPECT_EQ(first.reply.inReplyTo, QStringLiteral("m1@example.org"));
    EXPECT_EQ(first.reply.references, QStringList{QStringLiteral("m1@example.org")});

    const MessageCommand::Outcome second = run(Action::Reply, idOf(QStringLiteral("re: lunch")), account());
    ASSERT_TRUE(second.ok) << second.error.toStdString();
    EXPECT_EQ(second.reply.subject, QStringLiteral("re: lunch"));
    EXPECT_EQ(second.reply.to, QStringList{QStringLiteral("bob@example.org")});

    const MessageCommand::Outcome third = run(Action::Reply, idOf(QStringLiteral("Café")), account());
    ASSERT_TRUE(third.ok) << third.error.toStdString();
    EXPECT_EQ(third.reply.subject, QStringLiteral("Re: Café"));
    EXPECT_EQ(third.reply.to, QStringList{QStringLiteral("renee@example.org")});
}

TEST_F(MessageCommandTest, AConnectionLostBetweenCommandsIsMadeAgainAndTheCommandDone) {
    deliver(QStringLiteral("First"));
    deliver(QStringLiteral("Second"));
    const QString first = idOf(QStringLiteral("First"));
    const QString second = idOf(QStringLiteral("Second"));
    MessageCommand command(account(), cache.filePath(QStringLiteral("messages")), 10);
    const MessageCommand::Outcome archived = command.run(Action::Archive, first, Password);
    ASSERT_TRUE(archived.ok) << archived.error.toStdString();
    ASSERT_TRUE(command.isConnected());

    // The server goes away under the kept connection and comes back on the same port.
    QString error;
    ASSERT_TRUE(server.restart(&error)) << error.toStdString();
    const MessageCommand::Outcome deleted = command.run(Action::Delete, second, Password);
    ASSERT_TRUE(deleted.ok) << deleted.error.toStdString();
    EXPECT_EQ(deleted.note, QString());
    EXPECT_TRUE(deleted.synced);
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList());
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Trash")), QStringList{header(2)});
    // One new login after the restart: the dead connection was noticed and made again, once.
    const QString log = server.log();
    const QString afterRestart = log.mid(log.lastIndexOf(QLatin1String("starting up")));
    EXPECT_EQ(afterRestart.count(QLatin1String("Login: user=<ada>")), 1) << log.toStdString();
}

TEST_F(MessageCommandTest, AServerGoneForGoodIsAConnectionFailureAfterOneMoreTry) {
    deliver(QStringLiteral("First"));
    deliver(QStringLiteral("Second"));
    const QString first = idOf(QStringLiteral("First"));
    const QString second = idOf(QStringLiteral("Second"));
    MessageCommand command(account(), cache.filePath(QStringLiteral("messages")), 10);
    ASSERT_TRUE(command.run(Action::Open, first, Password).ok);
    server.stop();

    const MessageCommand::Outcome outcome = command.run(Action::Archive, second, Password);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, Failure::Connection);
    EXPECT_EQ(outcome.error, QStringLiteral("archive: host unreachable: %1:%2 (connection refused)")
                                 .arg(server.host())
                                 .arg(server.port()));
    EXPECT_FALSE(command.isConnected());
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), (QStringList{header(1), header(2)}));
}

TEST_F(MessageCommandTest, AWrongPasswordIsALoginFailureNotTriedAgain) {
    deliver(QStringLiteral("First"));
    MessageCommand command(account(), cache.filePath(QStringLiteral("messages")), 10);
    const MessageCommand::Outcome outcome =
        command.run(Action::Archive, idOf(QStringLiteral("First")), QStringLiteral("wrong"));
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, Failure::LoginRefused);
    EXPECT_TRUE(outcome.error.startsWith(QLatin1String("archive: login refused for ada")))
        << outcome.error.toStdString();
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
}

TEST_F(MessageCommandTest, AMoveWhoseAnswerWasLostCountsAsDoneOnTheSecondTry) {
    deliver(QStringLiteral("Keep"));
    deliver(QStringLiteral("File away"));
    const QString id = idOf(QStringLiteral("File away"));
    ASSERT_FALSE(id.isEmpty());
    CuttingRelay relay(server.port(), "UID MOVE");
    ASSERT_NE(relay.port(), 0);

    const MessageCommand::Outcome outcome =
        run(Action::Archive, id, account({{QStringLiteral("port"), relay.port()}}));
    EXPECT_TRUE(relay.cut());
    ASSERT_TRUE(outcome.ok) << outcome.error.toStdString();
    EXPECT_EQ(outcome.note,
              QStringLiteral("archive: the message had already left INBOX: the first try most likely "
                             "went through before the connection was lost"));
    EXPECT_EQ(inFolder(QStringLiteral("INBOX")), QStringList{header(1)});
    EXPECT_EQ(inFolder(QStringLiteral("Archive")), QStringList{header(2)});
    EXPECT_TRUE(outcome.synced);
    EXPECT_EQ(subjectsOf(outcome.snapshots, QStringLiteral("inbox.plist")),
              QStringList{QStringLiteral("Keep")});
    // Sent once: the second try did not move anything again.
    EXPECT_EQ(server.clientCommands().count("UID MOVE"), 1);
}

TEST_F(MessageCommandTest, AMessageGoneOnTheSecondTryWithoutAMoveSentIsGone) {
    const QString path = deliver(QStringLiteral("Gone meanwhile"));
    const QString id = idOf(QStringLiteral("Gone meanwhile"));
    MessageCommand command(account(), cache.filePath(QStringLiteral("messages")), 10);
    deliver(QStringLiteral("Other"));
    ASSERT_TRUE(command.run(Action::Open, idOf(QStringLiteral("Other")), Password).ok);
    // The kept connection dies, and the message goes while nobody looks.
    server.stop();
    ASSERT_TRUE(QFile::remove(path));
    QString error;
    ASSERT_TRUE(server.start(&error)) << error.toStdString();
    const MessageCommand::Outcome outcome = command.run(Action::Archive, id, Password);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.failure, Failure::MessageGone);
    EXPECT_EQ(outcome.error, QStringLiteral("archive: the message is no longer in INBOX"));
}

// The identifier's strict reading, without a server.
TEST(MessageCommandIdTest, EveryIdentifierTheBridgeMakesIsReadBackExactly) {
    const QStringList folders = {QStringLiteral("INBOX"),      QStringLiteral("My Box"),
                                 QStringLiteral("a/b.c"),      QStringLiteral("100%"),
                                 QStringLiteral("Ärger & Öl"), QStringLiteral("~-_."),
                                 QStringLiteral("../../etc"),  QStringLiteral("%2F"),
                                 QStringLiteral("😂"),          QStringLiteral("x")};
    for (const QString& folder : folders) {
        for (const quint32 n : {1u, 42u, 4294967295u}) {
            const QString id = AccountSync::messageIdFor(folder, n, 4294967295u - n + 1);
            const auto address = AccountSync::parseMessageId(id);
            ASSERT_TRUE(address) << id.toStdString();
            EXPECT_EQ(address->folder, folder);
            EXPECT_EQ(address->uidValidity, n);
            EXPECT_EQ(address->uid, 4294967295u - n + 1);
        }
    }
    EXPECT_TRUE(AccountSync::parseMessageId(QStringLiteral("My%20box/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("My%20Box/1/1%")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("My Box/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("My%2xBox/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("My%20Box%/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("%41/1/1"))); // "A" needs no escape
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("%c3%a4/1/1")));
    EXPECT_TRUE(AccountSync::parseMessageId(QStringLiteral("%C3%A4/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("%C3/1/1"))); // half a character
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("%00/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("%7F/1/1")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("INBOX/1/1\n")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("INBOX/1/ 1")));
    EXPECT_TRUE(AccountSync::parseMessageId(QStringLiteral("INBOX/4294967295/4294967295")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("INBOX/4294967295/4294967296")));
    EXPECT_FALSE(AccountSync::parseMessageId(QStringLiteral("INBOX/18446744073709551617/1")));
}

TEST_F(MessageCommandTest, AKindThatActsOnNoMessageIsRefusedWithoutAConnection) {
    // A well-formed identifier: the refusal is for the kind, not for the message.
    const QString id = AccountSync::messageIdFor(QStringLiteral("INBOX"), 1, 1);
    MessageCommand command(account(), cache.filePath(QStringLiteral("messages")), 10);
    for (const Action action : {Action::Compose, Action::Message, Action::Send}) {
        EXPECT_FALSE(MessageCommand::actsOnMessage(action));
        const MessageCommand::Outcome outcome = command.run(action, id, Password);
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.failure, Failure::Refused);
        EXPECT_EQ(outcome.error,
                  MessageCommand::actionName(action) + QStringLiteral(": not a command on a message"));
        EXPECT_FALSE(outcome.synced);
    }
    for (const Action action : {Action::Open, Action::Reply, Action::Archive, Action::Delete})
        EXPECT_TRUE(MessageCommand::actsOnMessage(action));
    EXPECT_FALSE(command.isConnected());
    EXPECT_FALSE(server.log().contains(QLatin1String("Login:"))) << server.log().toStdString();
    EXPECT_TRUE(server.clientCommands().isEmpty());
}

} // namespace
} // namespace corvina::test
