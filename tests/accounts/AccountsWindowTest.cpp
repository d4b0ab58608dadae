// The Accounts window in-process (offscreen), against the test's own Dovecot and a real keyring
// daemon on a private session bus: an account added by filling in its fields, its connection
// tested (ok, and a wrong password in the bridge's words), saved into bridge.conf and the keyring,
// turned current by the bridge's sync, and removed again. Each state is drawn to a PNG when
// CORVINA_ACCOUNTS_SHOTS names a folder (how docs/accounts-*.png are made).
#include "accounts/AccountsWindow.h"

#include "WindowTesting.h"
#include "accounts/AccountList.h"
#include "accounts/AddAccountPage.h"
#include "accounts/BackgroundJob.h"
#include "accounts/EditAccountPage.h"
#include "accounts/FolderChooser.h"
#include "accounts/PasswordPage.h"
#include "bridge/BridgeTesting.h"
#include "bridge/KeyringTest.h"
#include "bridge/config/AccountChanges.h"
#include "bridge/config/SecretStore.h"
#include "bridge/service/LiveBridge.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QStyle>
#include <QTcpServer>
#include <QTest>
#include <gtest/gtest.h>
#include <utility>

namespace corvina::test {
namespace {

// The label that names `field` (its buddy: Alt and the label's letter move there), or null.
QLabel* labelOf(QWidget& root, const QWidget* field) {
    for (QLabel* label : root.findChildren<QLabel*>()) {
        if (label->buddy() == field)
            return label;
    }
    return nullptr;
}

// Where `w` starts and ends across `page`: the edges a column lines up by.
std::pair<int, int> edgesIn(QWidget& page, const QWidget* w) {
    const int left = w->mapTo(&page, QPoint(0, 0)).x();
    return {left, left + w->width()};
}

// The label under the list or the page whose text starts with `start`, if one is shown.
QLabel* labelStartingWith(QWidget& root, const QString& start) {
    for (QLabel* label : root.findChildren<QLabel*>()) {
        if (label->isVisible() && label->text().startsWith(start))
            return label;
    }
    return nullptr;
}

class AccountsWindowTest : public KeyringTest<BridgeServerTest> {
protected:
    static inline const QString GracePassword = QStringLiteral("Tr0ub4dor&3 corvina");

    void SetUp() override {
        KeyringTest::SetUp();
        server.addUser(QStringLiteral("grace"), GracePassword);
        server.deliver(QStringLiteral("grace"), QStringLiteral("INBOX"),
                       DovecotServer::message(QStringLiteral("For Grace"), QStringLiteral("ada@example.org"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<g1@example.org>")));
        config = configDir.filePath(QStringLiteral("bridge.conf"));
        // Where the bridge writes it with XDG_STATE_HOME set to stateHome.
        status = stateHome + QStringLiteral("/corvina/bridge-status.json");
    }
    // Fills in grace's account on the test's server, as a person would: an address whose domain
    // the providers table does not know, so the server's fields are shown.
    void fillIn(AccountsWindow& window, const QString& password) {
        QWidget& page = window.addPage();
        for (const char* field : {"Mail address", "IMAP server", "Login name", "Password"})
            named<QLineEdit>(page, QString::fromLatin1(field))->clear();
        typeServer(page, QStringLiteral("grace@example.org"), server.host(), server.port(),
                   QStringLiteral("grace"));
        QGroupBox* serverFields = page.findChild<QGroupBox*>();
        ASSERT_NE(serverFields, nullptr);
        EXPECT_TRUE(serverFields->isVisible());
        QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Password")), password);
    }

    // Presses `button` of the add page and waits for its work to end.
    static void press(AccountsWindow& window, const QString& button) {
        pressAndWait(window.addPage(), button);
    }

    QString config;
    QString stateHome = configDir.filePath(QStringLiteral("xdg-state"));
    QString status;
};

TEST_F(AccountsWindowTest, AddTestSaveSyncAndRemoveAnAccount) {
    AccountsWindow window(config, status, 10);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    // Empty: the words and the button to add one.
    ASSERT_NE(labelStartingWith(window, QStringLiteral("No accounts yet")), nullptr);
    QPushButton* add = named<QPushButton>(window, QStringLiteral("Add account"));
    ASSERT_NE(add, nullptr);
    EXPECT_TRUE(add->isVisible());
    shootWindow(window, QStringLiteral("empty"));

    QTest::mouseClick(add, Qt::LeftButton);
    ASSERT_TRUE(named<QLineEdit>(window.addPage(), QStringLiteral("Mail address"))->isVisible());
    shootWindow(window, QStringLiteral("add"));

    // A wrong password: the bridge's own words, the same as its check says for it.
    fillIn(window, QStringLiteral("not the password"));
    press(window, QStringLiteral("Test connection"));
    BridgeConfig::Account expected;
    {
        QSettings written(configDir.filePath(QStringLiteral("expected.conf")), QSettings::IniFormat);
        written.setValue(QStringLiteral("example/mail"), QStringLiteral("grace@example.org"));
        written.setValue(QStringLiteral("example/host"), server.host());
        written.setValue(QStringLiteral("example/port"), server.port());
        written.setValue(QStringLiteral("example/security"), QStringLiteral("none"));
        written.setValue(QStringLiteral("example/user"), QStringLiteral("grace"));
    }
    expected = BridgeConfig::load(configDir.filePath(QStringLiteral("expected.conf"))).accounts().value(0);
    const AccountSync::Result refused =
        LiveBridge::checkAccount(expected, QStringLiteral("not the password"), 10);
    ASSERT_FALSE(refused.ok);
    EXPECT_EQ(window.addPage().resultText(), refused.error);
    EXPECT_FALSE(window.addPage().resultText().contains(QStringLiteral("not the password")));
    EXPECT_FALSE(QFile::exists(config)) << "nothing is written before Save";
    shootWindow(window, QStringLiteral("wrong-password"));

    fillIn(window, GracePassword);
    press(window, QStringLiteral("Test connection"));
    EXPECT_EQ(window.addPage().resultText(),
              QStringLiteral("Connection ok: the server took the login and the inbox opened."));
    EXPECT_FALSE(QFile::exists(config)) << "nothing is written before Save";
    shootWindow(window, QStringLiteral("test-ok"));

    press(window, QStringLiteral("Save"));
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.childGroups(), QStringList{QStringLiteral("example")});
    EXPECT_EQ(written.value(QStringLiteral("example/mail")).toString(), QStringLiteral("grace@example.org"));
    EXPECT_EQ(written.value(QStringLiteral("example/host")).toString(), server.host());
    EXPECT_EQ(written.value(QStringLiteral("example/port")).toString(), QString::number(server.port()));
    EXPECT_EQ(written.value(QStringLiteral("example/security")).toString(), QStringLiteral("none"));
    EXPECT_EQ(written.value(QStringLiteral("example/user")).toString(), QStringLiteral("grace"));
    QFile file(config);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_FALSE(file.readAll().contains(GracePassword.toUtf8()));
    EXPECT_EQ(SecretStore(10000)
                  .lookup({QStringLiteral("example"), QStringLiteral("grace"), server.host()})
                  .password.value_or(QString()),
              GracePassword);
    EXPECT_EQ(window.messageText(), QStringLiteral("Added the account example."));
    ASSERT_EQ(window.accounts().rowCount(), 1);
    EXPECT_EQ(window.accounts().index(0).data(AccountList::StateRole).toString(),
              QStringLiteral("Not read yet: the bridge has not synced it"));
    // The account the window saved is one the command line's check takes.
    const BridgeRun check = runBridge({QStringLiteral("check"), QStringLiteral("example")}, config);
    EXPECT_EQ(check.out, QStringLiteral("example: ok\n")) << check.err.toStdString();
    shootWindow(window, QStringLiteral("saved"));

    // The bridge syncs it: the row turns current, followed live from the status file.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_STATE_HOME"), stateHome);
    const BridgeRun once = runBridge({QStringLiteral("--once")}, config, QByteArray(), env);
    ASSERT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_TRUE(waitUntilCurrent(window, 0));
    shootWindow(window, QStringLiteral("current"));

    // Removed (the confirmation answered for the person): out of bridge.conf and the keyring.
    selectRow(window, 0);
    window.removeSelected(false);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window.accounts().rowCount() == 0; }, 60000));
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return window.messageText().startsWith(QStringLiteral("Removed")); }, 60000));
    EXPECT_EQ(window.messageText(), QStringLiteral("Removed the account example and its password."));
    EXPECT_EQ(QSettings(config, QSettings::IniFormat).childGroups(), QStringList());
    const SecretStore::Lookup gone =
        SecretStore(10000).lookup({QStringLiteral("example"), QStringLiteral("grace"), server.host()});
    EXPECT_EQ(gone.error, QString());
    EXPECT_FALSE(gone.password.has_value());
    EXPECT_NE(labelStartingWith(window, QStringLiteral("No accounts yet")), nullptr);
}

TEST_F(AccountsWindowTest, AKnownProviderShowsOnlyWhatIsStillNeeded) {
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    AddAccountPage& page = window.addPage();
    QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Mail address")), QStringLiteral("ada@yahoo.com"));
    EXPECT_FALSE(page.findChild<QGroupBox*>()->isVisible()) << "the server's fields are the table's";
    EXPECT_TRUE(named<QLineEdit>(page, QStringLiteral("Password"))->isVisible());
    // The table's app-password note, with its link to where the provider makes one.
    QLabel* note = labelStartingWith(page, QStringLiteral("It needs an app password"));
    ASSERT_NE(note, nullptr);
    EXPECT_TRUE(note->text().contains(QStringLiteral("href=\"https://login.yahoo.com/account/security\"")))
        << note->text().toStdString();
    shootWindow(window, QStringLiteral("provider"));

    // A provider that takes no password: no password, no test; Save writes the sign-in's group and
    // names what is left to do.
    QLineEdit* mail = named<QLineEdit>(page, QStringLiteral("Mail address"));
    mail->clear();
    QTest::keyClicks(mail, QStringLiteral("ada@outlook.com"));
    EXPECT_FALSE(named<QLineEdit>(page, QStringLiteral("Password"))->isVisible());
    EXPECT_FALSE(named<QPushButton>(page, QStringLiteral("Test connection"))->isVisible());
    EXPECT_TRUE(named<QPushButton>(page, QStringLiteral("Sign in with the browser"))->isVisible());
    press(window, QStringLiteral("Save"));
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.childGroups(), QStringList{QStringLiteral("outlook")});
    EXPECT_EQ(written.value(QStringLiteral("outlook/auth")).toString(), QStringLiteral("oauth2"));
    EXPECT_EQ(written.value(QStringLiteral("outlook/oauthProvider")).toString(), QStringLiteral("microsoft"));
    EXPECT_EQ(window.messageText(),
              QStringLiteral("Added the account outlook. Sign in in your browser to finish: select it "
                             "and press Sign in again (or run corvina-mail-bridge account signin outlook)."));
    // The list offers that sign-in for it.
    selectRow(window, 0);
    EXPECT_TRUE(named<QPushButton>(window, QStringLiteral("Sign in again"))->isVisible());
}

// Every key of group `name` in the INI file at `path`, with its value as text.
QMap<QString, QString> keysOfGroup(const QString& path, const QString& name) {
    QSettings settings(path, QSettings::IniFormat);
    settings.beginGroup(name);
    QMap<QString, QString> keys;
    for (const QString& key : settings.childKeys())
        keys.insert(key, settings.value(key).toString());
    return keys;
}

TEST_F(AccountsWindowTest, TheCommandLineAndTheWindowWriteTheSameGroupForTheSameAnswers) {
    // An account on a server the providers table does not know, typed into both.
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    fillIn(window, GracePassword);
    press(window, QStringLiteral("Save"));
    ASSERT_EQ(window.messageText(), QStringLiteral("Added the account example."));
    const QString typed = configDir.filePath(QStringLiteral("typed.conf"));
    // Mail, name, server, security, port, login, inbox, To Do, Memo, password command, password.
    const QStringList lines{QStringLiteral("grace@example.org"),
                            QString(),
                            server.host(),
                            QStringLiteral("none"),
                            QString::number(server.port()),
                            QStringLiteral("grace"),
                            QString(),
                            QString(),
                            QString(),
                            QString(),
                            GracePassword};
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, typed,
                                    lines.join(u'\n').toUtf8() + '\n');
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    EXPECT_EQ(QSettings(typed, QSettings::IniFormat).childGroups(), QStringList{QStringLiteral("example")});
    EXPECT_EQ(keysOfGroup(typed, QStringLiteral("example")), keysOfGroup(config, QStringLiteral("example")));
    EXPECT_EQ(keysOfGroup(config, QStringLiteral("example")).size(), 5);

    // A provider that takes no password: its server and its sign-in from the table, in both.
    window.showAddPage();
    QTest::keyClicks(named<QLineEdit>(window.addPage(), QStringLiteral("Mail address")),
                     QStringLiteral("ada@outlook.com"));
    press(window, QStringLiteral("Save"));
    // Mail, name, client id, client secret, login, inbox, To Do, Memo: all but the first the defaults.
    const BridgeRun signIn = runBridge({QStringLiteral("account"), QStringLiteral("add")}, typed,
                                       QByteArray("ada@outlook.com\n\n\n\n\n\n\n\n"));
    ASSERT_EQ(signIn.exitCode, 0) << signIn.err.toStdString();
    EXPECT_EQ(keysOfGroup(typed, QStringLiteral("outlook")), keysOfGroup(config, QStringLiteral("outlook")));
    EXPECT_EQ(keysOfGroup(config, QStringLiteral("outlook")).value(QStringLiteral("oauthProvider")),
              QStringLiteral("microsoft"));
}

TEST_F(AccountsWindowTest, ABridgeConfThatCannotBeWrittenIsSaidAndLeavesNoPasswordBehind) {
    // A file where bridge.conf's folder should be (root may write anywhere else): the password was
    // stored first and is taken out again.
    const QString blocker = configDir.filePath(QStringLiteral("a-file"));
    QFile file(blocker);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    config = blocker + QStringLiteral("/bridge.conf");
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    fillIn(window, GracePassword);
    press(window, QStringLiteral("Save"));
    EXPECT_TRUE(window.addPage().isVisible()) << "the page stays, with what went wrong";
    EXPECT_EQ(window.addPage().resultText(), QStringLiteral("cannot write %1").arg(config));
    EXPECT_FALSE(QFile::exists(config));
    const SecretStore::Lookup left =
        SecretStore(10000).lookup({QStringLiteral("example"), QStringLiteral("grace"), server.host()});
    EXPECT_EQ(left.error, QString());
    EXPECT_FALSE(left.password.has_value());
}

} // namespace
} // namespace corvina::test

namespace corvina::test {
namespace {

TEST_F(AccountsWindowTest, WithoutASecretServiceSaveSaysSoAndWritesNothing) {
    stopKeyring(keyring);
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    fillIn(window, GracePassword);
    press(window, QStringLiteral("Save"));
    const QString said = window.addPage().resultText();
    EXPECT_TRUE(said.startsWith(QStringLiteral("cannot store the password in the Secret Service: ")))
        << said.toStdString();
    EXPECT_TRUE(said.endsWith(QStringLiteral(
        "; nothing was written (a passwordCommand in bridge.conf is the other way, see docs/bridge.md)")))
        << said.toStdString();
    EXPECT_FALSE(said.contains(GracePassword));
    EXPECT_FALSE(QFile::exists(config));
    EXPECT_EQ(window.accounts().rowCount(), 0);
}

TEST_F(AccountsWindowTest, WithoutASecretServiceRemoveSaysSoAndKeepsTheAccount) {
    writeConfig({{QStringLiteral("work"), accountKeys({{QStringLiteral("passwordCommand"), QVariant()}})}});
    config = configDir.filePath(QStringLiteral("bridge.conf"));
    stopKeyring(keyring);
    AccountsWindow window(config, status, 10);
    ASSERT_EQ(window.accounts().rowCount(), 1);
    selectRow(window, 0);
    window.removeSelected(false);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return window.messageText().startsWith(QStringLiteral("The account")); }, 60000))
        << window.messageText().toStdString();
    EXPECT_TRUE(window.messageText().startsWith(QStringLiteral(
        "The account work was not removed: cannot remove the password from the Secret Service")))
        << window.messageText().toStdString();
    EXPECT_TRUE(window.messageText().endsWith(QStringLiteral("; nothing was changed")))
        << window.messageText().toStdString();
    EXPECT_EQ(QSettings(config, QSettings::IniFormat).childGroups(), QStringList{QStringLiteral("work")});
    EXPECT_EQ(window.accounts().rowCount(), 1);
}

TEST_F(AccountsWindowTest, WhatIsMissingIsSaidBeforeAnythingIsTried) {
    writeConfig({{QStringLiteral("work"), accountKeys()}});
    config = configDir.filePath(QStringLiteral("bridge.conf"));
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    press(window, QStringLiteral("Test connection"));
    EXPECT_EQ(window.addPage().resultText(),
              QStringLiteral("A mail address is needed (like ada@example.org)."));
    fillIn(window, QString());
    press(window, QStringLiteral("Test connection"));
    EXPECT_EQ(window.addPage().resultText(), QStringLiteral("Type the password first."));
    QLineEdit* mail = named<QLineEdit>(window.addPage(), QStringLiteral("Mail address"));
    mail->setText(Mail);
    press(window, QStringLiteral("Save"));
    EXPECT_EQ(window.addPage().resultText(), QStringLiteral("ada@example.org is already the account work."));
    EXPECT_EQ(QSettings(config, QSettings::IniFormat).childGroups(), QStringList{QStringLiteral("work")});
}

TEST_F(AccountsWindowTest, CancelWhileATestRunsLeavesItToEndOnItsOwn) {
    // A server that takes the connection and never says a word: the check waits for its deadline.
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    auto window = std::make_unique<AccountsWindow>(config, status, 2);
    window->show();
    window->showAddPage();
    fillIn(*window, GracePassword);
    named<QSpinBox>(window->addPage(), QStringLiteral("Port"))->setValue(silent.serverPort());
    QTest::mouseClick(named<QPushButton>(window->addPage(), QStringLiteral("Test connection")),
                      Qt::LeftButton);
    EXPECT_TRUE(window->addPage().isBusy());
    EXPECT_EQ(window->addPage().resultText(), QStringLiteral("Testing the connection…"));
    // Cancel answers at once: the list is back while the check still waits on its thread.
    QTest::mouseClick(named<QPushButton>(window->addPage(), QStringLiteral("Cancel")), Qt::LeftButton);
    EXPECT_FALSE(window->addPage().isVisible());
    EXPECT_FALSE(window->addPage().isBusy());
    // The check ends at its deadline and its job goes away; its line went nowhere.
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return window->addPage().findChildren<BackgroundJob*>().isEmpty(); }, 60000));
    QCoreApplication::processEvents();
    EXPECT_EQ(window->addPage().resultText(), QStringLiteral("Testing the connection…"));
    // A second test, then the window closed while it runs: it waits for the check, which ends.
    window->showAddPage();
    fillIn(*window, GracePassword);
    named<QSpinBox>(window->addPage(), QStringLiteral("Port"))->setValue(silent.serverPort());
    QTest::mouseClick(named<QPushButton>(window->addPage(), QStringLiteral("Test connection")),
                      Qt::LeftButton);
    EXPECT_TRUE(window->addPage().isBusy());
    window->close();
    window.reset();
}

// An account of ada on the test's server, its password in the keyring, as `account add` leaves it;
// selected in the window's list.
class AccountsWindowEditTest : public AccountsWindowTest {
protected:
    void SetUp() override {
        AccountsWindowTest::SetUp();
        config = writeConfig(
            {{QStringLiteral("work"), accountKeys({{QStringLiteral("passwordCommand"), QVariant()}})}});
        QString error;
        ASSERT_TRUE(AccountChanges(config, 10000)
                        .replacePassword(*BridgeConfig::load(config).account(QStringLiteral("work")),
                                         Password, &error))
            << error.toStdString();
    }

    static void select(AccountsWindow& window) { selectRow(window, 0); }
    // Presses `button` of `page` and waits for its work to end.
    template <class Page> static void pressOn(Page& page, const QString& button) {
        QPushButton* b = named<QPushButton>(page, button);
        ASSERT_NE(b, nullptr) << button.toStdString();
        ASSERT_TRUE(b->isVisible()) << button.toStdString();
        QTest::mouseClick(b, Qt::LeftButton);
        EXPECT_TRUE(QTest::qWaitFor([&] { return !page.isBusy(); }, 60000));
    }
    QString key(const QString& name) const {
        return QSettings(config, QSettings::IniFormat).value(QStringLiteral("work/") + name).toString();
    }
    QString fileText() const {
        QFile file(config);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
};

TEST_F(AccountsWindowEditTest, EditShowsTheSettingsTestsThemAndOffersTheServersFolders) {
    // To Do in a folder the server has; Memo in one it no longer has.
    server.createFolder(User, QStringLiteral("Tasks"));
    server.createFolder(User, QStringLiteral("Later"));
    config = writeConfig(
        {{QStringLiteral("work"), accountKeys({{QStringLiteral("passwordCommand"), QVariant()},
                                               {QStringLiteral("todo"), QStringLiteral("Tasks")},
                                               {QStringLiteral("memo"), QStringLiteral("Gone")}})}});
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    QPushButton* edit = named<QPushButton>(window, QStringLiteral("Edit account"));
    ASSERT_NE(edit, nullptr);
    QTest::mouseClick(edit, Qt::LeftButton);
    EditAccountPage& page = window.editPage();
    ASSERT_TRUE(page.isVisible());
    EXPECT_EQ(named<QLineEdit>(page, QStringLiteral("IMAP server"))->text(), server.host());
    EXPECT_EQ(named<QSpinBox>(page, QStringLiteral("Port"))->value(), server.port());
    EXPECT_EQ(named<QComboBox>(page, QStringLiteral("Security"))->currentData().toString(),
              QStringLiteral("none"));
    EXPECT_EQ(named<QLineEdit>(page, QStringLiteral("Login name"))->text(), User);
    QLineEdit* auth = named<QLineEdit>(page, QStringLiteral("Signs in with"));
    EXPECT_EQ(auth->text(), QStringLiteral("password"));
    EXPECT_TRUE(auth->isReadOnly());
    // The same server and login: the stored password serves, none is asked.
    EXPECT_FALSE(
        named<QLineEdit>(page, QStringLiteral("Password for the new server or login name"))->isVisible());

    // Before a test: the account's own folders, shown, not yet to be changed.
    QComboBox* inbox = named<QComboBox>(page, QStringLiteral("Inbox folder"));
    QComboBox* todo = named<QComboBox>(page, QStringLiteral("To Do folder"));
    QComboBox* memo = named<QComboBox>(page, QStringLiteral("Memo folder"));
    ASSERT_TRUE(inbox && todo && memo) << "the folders are chosen, not typed";
    // The folders' labels stand in the column of the fields' labels above them (the style's side
    // of it: left here, right in styles that put a form's labels on the right), and their choices
    // start where those fields start.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    QLineEdit* host = named<QLineEdit>(page, QStringLiteral("IMAP server"));
    ASSERT_TRUE(host && labelOf(page, host));
    const bool labelsRight =
        (page.style()->styleHint(QStyle::SH_FormLayoutLabelAlignment) & Qt::AlignRight) != 0;
    const auto labelSide = [&](const QWidget* field) {
        const std::pair<int, int> edges = edgesIn(page, labelOf(page, field));
        return labelsRight ? edges.second : edges.first;
    };
    for (const QComboBox* box : {inbox, todo, memo}) {
        ASSERT_NE(labelOf(page, box), nullptr) << box->accessibleName().toStdString();
        EXPECT_EQ(labelSide(box), labelSide(host)) << box->accessibleName().toStdString();
        EXPECT_EQ(edgesIn(page, box).first, edgesIn(page, host).first) << box->accessibleName().toStdString();
    }
    EXPECT_FALSE(page.folders().hasFolders());
    EXPECT_FALSE(todo->isEnabled());
    EXPECT_EQ(inbox->currentText(), QStringLiteral("INBOX"));
    EXPECT_EQ(todo->currentText(), QStringLiteral("Tasks"));
    EXPECT_EQ(memo->currentText(), QStringLiteral("Gone"));

    // The test offers the server's folders; the account's own stay chosen, and the one the server
    // does not list stays too, marked, with the line saying so.
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("Connection ok, but the server lists no folder Gone: choose one it has."));
    ASSERT_TRUE(page.folders().hasFolders());
    EXPECT_TRUE(todo->isEnabled());
    QStringList offered = itemsOf(todo).mid(1);
    offered.sort();
    // Archive and Trash are the test server's own special-use folders, made for every user.
    EXPECT_EQ(offered,
              QStringList({QStringLiteral("Archive"), QStringLiteral("INBOX"), QStringLiteral("Later"),
                           QStringLiteral("Tasks"), QStringLiteral("Trash")}))
        << offered.join(u'|').toStdString();
    EXPECT_EQ(todo->currentText(), QStringLiteral("Tasks"));
    EXPECT_EQ(memo->currentText(), QStringLiteral("Gone (not in the server's list)"));
    EXPECT_EQ(page.folders().memo(), QStringLiteral("Gone"));
    EXPECT_EQ(key(QStringLiteral("todo")), QStringLiteral("Tasks")) << "nothing is written before Save";
    shootWindow(window, QStringLiteral("edit"));

    // Another folder from the server's list for To Do, and no Memo list.
    todo->setCurrentIndex(todo->findText(QStringLiteral("Later")));
    memo->setCurrentIndex(memo->findText(QStringLiteral("No Memo list")));
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("Connection ok: the server took the login and the inbox opened."));
    EXPECT_EQ(page.folders().todo(), QStringLiteral("Later")) << "a second test keeps the choice";

    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_EQ(window.messageText(),
              QStringLiteral("Saved the account work; a running bridge follows the new settings at once."));
    EXPECT_FALSE(page.isVisible());
    EXPECT_EQ(key(QStringLiteral("todo")), QStringLiteral("Later"));
    EXPECT_FALSE(QSettings(config, QSettings::IniFormat).contains(QStringLiteral("work/memo")));
    EXPECT_FALSE(QSettings(config, QSettings::IniFormat).contains(QStringLiteral("work/inbox")));
    EXPECT_EQ(key(QStringLiteral("host")), server.host());
    const BridgeRun check = runBridge({QStringLiteral("check"), QStringLiteral("work")}, config);
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n")) << check.err.toStdString();
}

TEST_F(AccountsWindowEditTest, SavedWithoutATestTheAccountKeepsItsFolders) {
    config = writeConfig(
        {{QStringLiteral("work"), accountKeys({{QStringLiteral("passwordCommand"), QVariant()},
                                               {QStringLiteral("inbox"), QStringLiteral("Post")},
                                               {QStringLiteral("todo"), QStringLiteral("Tasks")},
                                               {QStringLiteral("memo"), QStringLiteral("Notes")}})}});
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    window.showEditPage();
    EditAccountPage& page = window.editPage();
    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_EQ(key(QStringLiteral("inbox")), QStringLiteral("Post"));
    EXPECT_EQ(key(QStringLiteral("todo")), QStringLiteral("Tasks"));
    EXPECT_EQ(key(QStringLiteral("memo")), QStringLiteral("Notes"));
}

TEST_F(AccountsWindowEditTest, ANewLoginNameAsksForItsPasswordAndStoresIt) {
    server.addUser(QStringLiteral("grace"), GracePassword);
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    window.showEditPage();
    EditAccountPage& page = window.editPage();
    QLineEdit* user = named<QLineEdit>(page, QStringLiteral("Login name"));
    user->setText(QStringLiteral("grace"));
    QLineEdit* password = named<QLineEdit>(page, QStringLiteral("Password for the new server or login name"));
    EXPECT_TRUE(password->isVisible());
    EXPECT_EQ(password->echoMode(), QLineEdit::Password);
    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_EQ(page.resultText(), QStringLiteral("Type the password for the new server or login name first."));
    EXPECT_EQ(key(QStringLiteral("user")), User);

    QTest::keyClicks(password, QStringLiteral("not the password"));
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_TRUE(page.resultText().contains(QStringLiteral("login refused for grace")))
        << page.resultText().toStdString();
    EXPECT_FALSE(page.resultText().contains(QStringLiteral("not the password")));
    password->clear();
    QTest::keyClicks(password, GracePassword);
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("Connection ok: the server took the login and the inbox opened."));
    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_EQ(key(QStringLiteral("user")), QStringLiteral("grace"));
    EXPECT_FALSE(fileText().contains(GracePassword));
    EXPECT_EQ(
        SecretStore(10000).lookup({QStringLiteral("work"), QStringLiteral("grace"), server.host()}).password,
        std::optional<QString>(GracePassword));
}

TEST_F(AccountsWindowEditTest, AValueTheBridgeRefusesIsSaidAndNothingIsWritten) {
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    window.showEditPage();
    EditAccountPage& page = window.editPage();
    // Plain IMAP is for this computer only.
    named<QLineEdit>(page, QStringLiteral("IMAP server"))->setText(QStringLiteral("imap.example.org"));
    named<QLineEdit>(page, QStringLiteral("Password for the new server or login name"))->setText(Password);
    const QString before = fileText();
    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("security none is only allowed for 127.0.0.1 or localhost, not "
                             "imap.example.org; nothing was changed"));
    EXPECT_TRUE(page.isVisible());
    EXPECT_EQ(fileText(), before);
}

TEST_F(AccountsWindowEditTest, TurnOffAndOnAgainWritesTheKeyAndTheRowSaysSo) {
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    QPushButton* off = named<QPushButton>(window, QStringLiteral("Turn off"));
    ASSERT_NE(off, nullptr);
    QTest::mouseClick(off, Qt::LeftButton);
    EXPECT_EQ(key(QStringLiteral("enabled")), QStringLiteral("false"));
    EXPECT_EQ(window.messageText(),
              QStringLiteral("Turned off work: a running bridge stops syncing it at once."));
    EXPECT_EQ(window.accounts().index(0).data(AccountList::StateRole).toString(),
              QStringLiteral("Turned off (enabled = false in bridge.conf)"));
    // Still selected: the same button turns it on again.
    EXPECT_EQ(off->accessibleName(), QStringLiteral("Turn on"));
    shootWindow(window, QStringLiteral("turned-off"));
    QTest::mouseClick(off, Qt::LeftButton);
    EXPECT_FALSE(QSettings(config, QSettings::IniFormat).contains(QStringLiteral("work/enabled")));
    EXPECT_EQ(window.messageText(), QStringLiteral("Turned on work: a running bridge syncs it at once."));
    EXPECT_EQ(off->accessibleName(), QStringLiteral("Turn off"));
    EXPECT_EQ(window.accounts().index(0).data(AccountList::StateRole).toString(),
              QStringLiteral("Not read yet: the bridge has not synced it"));
}

TEST_F(AccountsWindowEditTest, ChangePasswordTestsAndStoresTheNewOne) {
    // The keyring holds a password the server no longer takes.
    QString error;
    ASSERT_TRUE(AccountChanges(config, 10000)
                    .replacePassword(*BridgeConfig::load(config).account(QStringLiteral("work")),
                                     QStringLiteral("an old password"), &error));
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    QPushButton* change = named<QPushButton>(window, QStringLiteral("Change password"));
    ASSERT_NE(change, nullptr);
    ASSERT_TRUE(change->isVisible());
    QTest::mouseClick(change, Qt::LeftButton);
    PasswordPage& page = window.passwordPage();
    ASSERT_TRUE(page.isVisible());
    QLineEdit* field = named<QLineEdit>(page, QStringLiteral("New password"));
    EXPECT_EQ(field->echoMode(), QLineEdit::Password);
    QTest::keyClicks(field, QStringLiteral("not the password"));
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_TRUE(page.resultText().contains(QStringLiteral("login refused for ada")))
        << page.resultText().toStdString();
    EXPECT_FALSE(page.resultText().contains(QStringLiteral("not the password")));
    shootWindow(window, QStringLiteral("password"));
    // The server's own password: tried, then stored in place of the old one.
    field->clear();
    QTest::keyClicks(field, Password);
    pressAndWait(page, QStringLiteral("Test connection"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("Connection ok: the server took the login and the inbox opened."));
    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_EQ(window.messageText(), QStringLiteral("Stored the new password of work in the keyring."));
    EXPECT_EQ(SecretStore(10000).lookup({QStringLiteral("work"), User, server.host()}).password,
              std::optional<QString>(Password));
    EXPECT_FALSE(fileText().contains(Password));
    const BridgeRun check = runBridge({QStringLiteral("check"), QStringLiteral("work")}, config);
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n")) << check.err.toStdString();
}

TEST_F(AccountsWindowEditTest, WithoutTheKeyringChangePasswordSaysSoAndKeepsTheOld) {
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    window.showPasswordPage();
    PasswordPage& page = window.passwordPage();
    ASSERT_TRUE(page.isVisible());
    stopKeyring(keyring);
    QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("New password")), GracePassword);
    pressAndWait(page, QStringLiteral("Save"));
    EXPECT_TRUE(
        page.resultText().startsWith(QStringLiteral("cannot store the password in the Secret Service")))
        << page.resultText().toStdString();
    EXPECT_FALSE(page.resultText().contains(GracePassword));
    EXPECT_TRUE(page.isVisible());
}

TEST_F(AccountsWindowEditTest, AnAccountWithAPasswordCommandOffersNoPasswordChange) {
    config = writeConfig({{QStringLiteral("work"), accountKeys()}});
    AccountsWindow window(config, status, 10);
    window.show();
    select(window);
    EXPECT_FALSE(named<QPushButton>(window, QStringLiteral("Change password"))->isVisible());
    EXPECT_TRUE(named<QPushButton>(window, QStringLiteral("Edit account"))->isVisible());
    window.showEditPage();
    EXPECT_EQ(named<QLineEdit>(window.editPage(), QStringLiteral("Signs in with"))->text(),
              QStringLiteral("password, from its passwordCommand"));
}

} // namespace
} // namespace corvina::test
