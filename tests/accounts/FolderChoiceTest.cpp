// The lists' folders chosen on the Accounts window's add page from the server's own list, in-process
// (offscreen) against the test's Dovecot and a real keyring: the defaults before a test, the
// server's folders after it, and the chosen ones in bridge.conf after Save.
#include "WindowTesting.h"
#include "accounts/AccountsWindow.h"
#include "accounts/AddAccountPage.h"
#include "accounts/FolderChooser.h"
#include "bridge/BridgeTesting.h"
#include "bridge/KeyringTest.h"

#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class FolderChoiceTest : public KeyringTest<BridgeServerTest> {
protected:
    void SetUp() override {
        KeyringTest::SetUp();
        config = configDir.filePath(QStringLiteral("bridge.conf"));
        server.createFolder(User, QStringLiteral("To Do"));
        server.createFolder(User, QStringLiteral("Notizen &AOQ-"));
    }
    // Ada's account on the test's server, as a person fills it in.
    void fillIn(AddAccountPage& page, const QString& password) {
        typeServer(page, Mail, server.host(), server.port(), User);
        QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Password")), password);
    }

    QString config;
};

TEST_F(FolderChoiceTest, TheServersFoldersAreOfferedAfterATestAndTheChosenOnesSaved) {
    AccountsWindow window(config, configDir.filePath(QStringLiteral("status.json")), 10);
    window.show();
    window.showAddPage();
    AddAccountPage& page = window.addPage();
    QComboBox* inbox = named<QComboBox>(page, QStringLiteral("Inbox folder"));
    QComboBox* todo = named<QComboBox>(page, QStringLiteral("To Do folder"));
    QComboBox* memo = named<QComboBox>(page, QStringLiteral("Memo folder"));
    ASSERT_TRUE(inbox && todo && memo);
    // Before a test: the defaults, nothing to choose yet.
    fillIn(page, Password);
    EXPECT_FALSE(page.folders().hasFolders());
    EXPECT_FALSE(todo->isEnabled());
    EXPECT_EQ(itemsOf(inbox), QStringList{QStringLiteral("INBOX")});
    EXPECT_EQ(itemsOf(todo), QStringList{QStringLiteral("The inbox's flagged messages")});
    EXPECT_EQ(itemsOf(memo), QStringList{QStringLiteral("No Memo list")});

    // A refused test offers nothing.
    named<QLineEdit>(page, QStringLiteral("Password"))->setText(QStringLiteral("wrong"));
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_FALSE(page.folders().hasFolders());

    named<QLineEdit>(page, QStringLiteral("Password"))->setText(Password);
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("Connection ok: the server took the login and the inbox opened."));
    ASSERT_TRUE(page.folders().hasFolders());
    EXPECT_TRUE(todo->isEnabled());
    QStringList offered = itemsOf(todo).mid(1);
    offered.sort();
    // Archive and Trash are the test server's own special-use folders, made for every user.
    EXPECT_EQ(offered,
              QStringList({QStringLiteral("Archive"), QStringLiteral("INBOX"), QStringLiteral("Notizen ä"),
                           QStringLiteral("To Do"), QStringLiteral("Trash")}))
        << offered.join(u'|').toStdString();
    EXPECT_EQ(itemsOf(todo).first(), QStringLiteral("The inbox's flagged messages"));
    EXPECT_EQ(itemsOf(memo).first(), QStringLiteral("No Memo list"));
    EXPECT_EQ(inbox->currentText(), QStringLiteral("INBOX"));

    todo->setCurrentIndex(todo->findText(QStringLiteral("To Do")));
    memo->setCurrentIndex(memo->findText(QStringLiteral("Notizen ä")));
    shootWindow(window, QStringLiteral("folders"));
    pressAndWait(page, QStringLiteral("Save"));
    QSettings written(config, QSettings::IniFormat);
    ASSERT_EQ(written.childGroups(), QStringList{QStringLiteral("example")});
    EXPECT_EQ(written.value(QStringLiteral("example/todo")).toString(), QStringLiteral("To Do"));
    EXPECT_EQ(written.value(QStringLiteral("example/memo")).toString(), QStringLiteral("Notizen ä"));
    EXPECT_FALSE(written.contains(QStringLiteral("example/inbox"))) << "INBOX is the default, not written";
    // The bridge reads the folders it was given.
    const BridgeRun check = runBridge({QStringLiteral("check"), QStringLiteral("example")}, config);
    EXPECT_EQ(check.out, QStringLiteral("example: ok\n")) << check.err.toStdString();
}

TEST_F(FolderChoiceTest, AnotherAddressGoesBackToTheDefaults) {
    AccountsWindow window(config, configDir.filePath(QStringLiteral("status.json")), 10);
    window.show();
    window.showAddPage();
    AddAccountPage& page = window.addPage();
    fillIn(page, Password);
    pressAndWait(page, QStringLiteral("Test connection"));
    ASSERT_TRUE(page.folders().hasFolders());
    QComboBox* todo = named<QComboBox>(page, QStringLiteral("To Do folder"));
    todo->setCurrentIndex(todo->findText(QStringLiteral("To Do")));
    QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Mail address")), QStringLiteral("x"));
    EXPECT_FALSE(page.folders().hasFolders());
    EXPECT_EQ(page.folders().todo(), QString());
}

} // namespace
} // namespace corvina::test
