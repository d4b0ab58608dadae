// The server's folders for the Accounts window to offer (LiveBridge::checkAndListFolders over
// ImapSession::listFolders): against Dovecot, and against the scripted server of hostile_imap.py (a
// stand-in, see HostileServer.h) answering LIST without end, with thousands of folders, or with
// names that hold control characters.
#include "BridgeTesting.h"
#include "HostileServer.h"
#include "bridge/imap/ImapSession.h"
#include "bridge/service/LiveBridge.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

constexpr int TimeoutSeconds = 5;

class FolderListTest : public BridgeServerTest {
protected:
    // An account of the scripted server started with `arguments`.
    LiveBridge::FolderCheck listHostile(const QStringList& arguments, qint64* tookMs = nullptr) {
        QString error;
        EXPECT_TRUE(hostile.start(arguments, &error)) << error.toStdString();
        const BridgeConfig::Account a = account({{"port", hostile.port()}});
        QElapsedTimer timer;
        timer.start();
        LiveBridge::FolderCheck found = LiveBridge::checkAndListFolders(a, Password, TimeoutSeconds);
        if (tookMs != nullptr)
            *tookMs = timer.elapsed();
        return found;
    }

    HostileServer hostile;
};

TEST_F(FolderListTest, TheServersFoldersAreListedAfterTheCheck) {
    server.createFolder(User, QStringLiteral("To Do"));
    server.createFolder(User, QStringLiteral("Projects"));
    server.createFolder(User, QStringLiteral("Notizen &AOQ-"));
    const LiveBridge::FolderCheck found =
        LiveBridge::checkAndListFolders(account(), Password, TimeoutSeconds);
    ASSERT_TRUE(found.check.ok) << found.check.error.toStdString();
    EXPECT_EQ(found.listError, QString());
    EXPECT_FALSE(found.moreFolders);
    QStringList folders = found.folders;
    folders.sort();
    // Archive and Trash are the test server's own special-use folders, made for every user.
    EXPECT_EQ(folders,
              QStringList({QStringLiteral("Archive"), QStringLiteral("INBOX"), QStringLiteral("Notizen ä"),
                           QStringLiteral("Projects"), QStringLiteral("To Do"), QStringLiteral("Trash")}))
        << folders.join(u'|').toStdString();
}

TEST_F(FolderListTest, AWrongPasswordFailsTheCheckAndListsNothing) {
    server.createFolder(User, QStringLiteral("To Do"));
    const LiveBridge::FolderCheck found =
        LiveBridge::checkAndListFolders(account(), QStringLiteral("wrong"), TimeoutSeconds);
    EXPECT_FALSE(found.check.ok);
    EXPECT_EQ(found.check.error,
              LiveBridge::checkAccount(account(), QStringLiteral("wrong"), TimeoutSeconds).error);
    EXPECT_EQ(found.folders, QStringList());
}

TEST_F(FolderListTest, AnEndlessListIsCutByItsBudgetWithinTheDeadline) {
    qint64 took = 0;
    const LiveBridge::FolderCheck found =
        listHostile({QStringLiteral("--mode"), QStringLiteral("endless-list")}, &took);
    EXPECT_TRUE(found.check.ok) << found.check.error.toStdString();
    EXPECT_EQ(found.folders, QStringList());
    // Its lines are short: the byte budget ends it before the count of answers would.
    EXPECT_EQ(found.listError, QStringLiteral("the server %1:%2 sent more than %3 bytes in answer to LIST")
                                   .arg(server.host())
                                   .arg(hostile.port())
                                   .arg(ImapSession::AnswerBytes));
    // The deadline of the whole attempt, with room for a machine kept busy.
    EXPECT_LT(took, (TimeoutSeconds + 10) * 1000);
}

TEST_F(FolderListTest, ThousandsOfFoldersAreCutToWhatAPersonCanChooseFrom) {
    const LiveBridge::FolderCheck found = listHostile({QStringLiteral("--mode"), QStringLiteral("folders"),
                                                       QStringLiteral("--count"), QStringLiteral("30000")});
    ASSERT_TRUE(found.check.ok) << found.check.error.toStdString();
    EXPECT_EQ(found.listError, QString());
    EXPECT_EQ(found.folders.size(), ImapSession::MostFolders);
    EXPECT_TRUE(found.moreFolders);
    EXPECT_EQ(found.folders.first(), QStringLiteral("INBOX"));
    EXPECT_EQ(found.folders.last(), QStringLiteral("Folder %1").arg(ImapSession::MostFolders - 2));
}

TEST_F(FolderListTest, NamesWithControlCharactersAreLeftOut) {
    const LiveBridge::FolderCheck found =
        listHostile({QStringLiteral("--mode"), QStringLiteral("control-names")});
    ASSERT_TRUE(found.check.ok) << found.check.error.toStdString();
    EXPECT_EQ(found.listError, QString());
    EXPECT_EQ(found.folders,
              QStringList({QStringLiteral("INBOX"), QStringLiteral("Work"), QStringLiteral("Notes")}))
        << found.folders.join(u'|').toStdString();
    EXPECT_FALSE(found.moreFolders);
}

} // namespace
} // namespace corvina::test
