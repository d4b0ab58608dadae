// The Accounts window's sign-in in the browser, in-process (offscreen): the bridge's own sign-in
// against the stand-in provider (support/OAuthProvider: no real provider can be had in a test), the
// stand-in browser (a curl script that $BROWSER names), a real keyring on a private session bus and
// Dovecot taking the provider's tokens. An account added by signing in from the add page, tested
// with its token, saved, and synced by `--once`; a refused and a cancelled sign-in; "Sign in again"
// from the list for an account whose sign-in is needed. The tokens reach no file and no line.
#include "WindowTesting.h"
#include "accounts/AccountList.h"
#include "accounts/AccountsWindow.h"
#include "accounts/AddAccountPage.h"
#include "bridge/BridgeTesting.h"
#include "bridge/KeyringTest.h"
#include "bridge/config/OAuthEndpoints.h"
#include "bridge/config/OAuthTokens.h"
#include "bridge/config/SecretStore.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"

#include <QComboBox>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class BrowserSignInWindowTest : public KeyringTest<TokenServerTest> {
protected:
    void SetUp() override {
        OAuthTokens::forgetAll();
        OAuthEndpoints::forgetDiscovered();
        KeyringTest::SetUp();
        // The provider signs in the account's mail (its login_hint): Dovecot's user is the address.
        server.addUser(Mail, Password);
        server.deliver(Mail, QStringLiteral("INBOX"),
                       DovecotServer::message(QStringLiteral("Signed in from the window"),
                                              QStringLiteral("grace@example.org"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<window@example.org>")));
        config = configDir.filePath(QStringLiteral("bridge.conf"));
        status = stateHome + QStringLiteral("/corvina/bridge-status.json");
        // Read now: the private session bus (with its keyring) may have been set up just before.
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_STATE_HOME"), stateHome);
        useBrowser(standInBrowser(scripts.path(), QStringLiteral("follow")));
    }
    void TearDown() override {
        KeyringTest::TearDown();
        OAuthTokens::forgetAll();
        OAuthEndpoints::forgetDiscovered();
    }

    void useBrowser(const QString& program) {
        browser.reset();
        browser = std::make_unique<ScopedEnvironment>("BROWSER", program.toUtf8());
    }
    // A browser where nobody ever signs in: it opens and that is all.
    QString idleBrowser() {
        const QString path = scripts.filePath(QStringLiteral("idle-browser.sh"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\nexit 0\n");
        file.close();
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        return path;
    }

    // Fills in ada's address on the test's server, signing in in the browser at the provider.
    void fillIn(AddAccountPage& page) {
        typeServer(page, Mail, server.host(), server.port(), QString());
        QComboBox* auth = named<QComboBox>(page, QStringLiteral("Sign-in"));
        ASSERT_NE(auth, nullptr);
        auth->setCurrentIndex(auth->findData(QStringLiteral("oauth2")));
        QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Sign-in address")), provider.baseUrl());
    }

    static void press(QWidget& root, const QString& button) {
        QPushButton* b = named<QPushButton>(root, button);
        ASSERT_NE(b, nullptr) << button.toStdString();
        ASSERT_TRUE(b->isVisible()) << button.toStdString();
        QTest::mouseClick(b, Qt::LeftButton);
    }
    static void pressAndWait(AccountsWindow& window, const QString& button) {
        test::pressAndWait(window.addPage(), button);
    }

    // The refresh token kept for the account `name` of ada at `issuer`, if any.
    std::optional<QString> refreshToken(const QString& name, const QString& issuer) const {
        OAuthEndpoints::Settings settings;
        settings.account = name;
        settings.mail = Mail;
        return store.lookupToken(OAuthTokens::refreshTokenKey(settings, issuer)).password;
    }

    // The files of the test's folders (bridge.conf's, the shared folder, the state folder) that
    // hold `secret`.
    QStringList filesHolding(const QString& secret) const {
        QStringList found;
        for (const QString& root : {container.root(), stateHome, configDir.path()}) {
            QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                QFile file(it.next());
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains(secret.toUtf8()))
                    found << file.fileName();
            }
        }
        return found;
    }

    SecretStore store{10000};
    QTemporaryDir scripts;
    std::unique_ptr<ScopedEnvironment> browser;
    QString config;
    QString stateHome = configDir.filePath(QStringLiteral("xdg-state"));
    QString status;
    QProcessEnvironment environment;
};

TEST_F(BrowserSignInWindowTest, AnAccountSignedInFromTheAddPageIsSavedAndSyncs) {
    LogCapture log;
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    AddAccountPage& page = window.addPage();
    fillIn(page);
    EXPECT_FALSE(named<QLineEdit>(page, QStringLiteral("Password"))->isVisible()) << "no password is taken";
    EXPECT_FALSE(named<QPushButton>(page, QStringLiteral("Test connection"))->isVisible())
        << "nothing to test with before the sign-in";

    pressAndWait(window, QStringLiteral("Sign in with the browser"));
    EXPECT_EQ(page.resultText(), QStringLiteral("Signed in as ada@example.org in the browser. Test the "
                                                "connection, or save the account."));
    EXPECT_TRUE(page.isSignedIn());
    EXPECT_FALSE(QFile::exists(config)) << "nothing is written before Save";
    shootWindow(window, QStringLiteral("signed-in"));
    const std::optional<QString> refresh = refreshToken(QStringLiteral("example"), provider.baseUrl());
    ASSERT_TRUE(refresh.has_value() && !refresh->isEmpty());

    // The check logs in with the sign-in's token, as the bridge will.
    pressAndWait(window, QStringLiteral("Test connection"));
    EXPECT_EQ(page.resultText(),
              QStringLiteral("Connection ok: the server took the login and the inbox opened."));
    EXPECT_GE(server.log().count(QStringLiteral("Login: user=<%1>, method=OAUTHBEARER,").arg(Mail)), 1)
        << server.log().toStdString();

    pressAndWait(window, QStringLiteral("Save"));
    EXPECT_EQ(window.messageText(), QStringLiteral("Added the account example."));
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.childGroups(), QStringList{QStringLiteral("example")});
    EXPECT_EQ(written.value(QStringLiteral("example/auth")).toString(), QStringLiteral("oauth2"));
    EXPECT_EQ(written.value(QStringLiteral("example/oauthProvider")).toString(), QStringLiteral("discover"));
    EXPECT_EQ(written.value(QStringLiteral("example/oauthIssuer")).toString(), provider.baseUrl());
    EXPECT_EQ(written.value(QStringLiteral("example/user")).toString(), Mail);
    // Saved, the sign-in is the account's and stays.
    EXPECT_EQ(refreshToken(QStringLiteral("example"), provider.baseUrl()), refresh);

    // The bridge reads the saved account with it, and the row turns current.
    const BridgeRun once = runBridge({QStringLiteral("--once")}, config, QByteArray(), environment);
    ASSERT_EQ(once.exitCode, 0) << once.err.toStdString();
    const QVariantList inbox = snapshot(QStringLiteral("inbox.plist")).value(QStringLiteral("data")).toList();
    ASSERT_EQ(inbox.size(), 1);
    EXPECT_EQ(inbox.first().toMap().value(QStringLiteral("subject")),
              QStringLiteral("Signed in from the window"));
    EXPECT_TRUE(waitUntilCurrent(window, 0));

    // The refresh token is in the keyring and nowhere else: no file, no line of the window or the
    // bridge, no text the window shows.
    EXPECT_EQ(filesHolding(*refresh), QStringList());
    EXPECT_FALSE(once.out.contains(*refresh) || once.err.contains(*refresh));
    EXPECT_FALSE(log.lines().join(u'\n').contains(*refresh));
    EXPECT_FALSE(page.resultText().contains(*refresh) || window.messageText().contains(*refresh));
}

TEST_F(BrowserSignInWindowTest, ARefusedSignInSaysWhyAndStoresNothing) {
    ASSERT_TRUE(provider.deny(Mail));
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    fillIn(window.addPage());
    pressAndWait(window, QStringLiteral("Sign in with the browser"));
    EXPECT_EQ(window.addPage().resultText(),
              QStringLiteral("Not signed in: sign-in refused: the provider refused: access_denied; nothing "
                             "was stored"));
    EXPECT_FALSE(window.addPage().isSignedIn());
    EXPECT_FALSE(refreshToken(QStringLiteral("example"), provider.baseUrl()).has_value());
    // The client id registered on the way goes too: the account was never saved.
    EXPECT_EQ(provider.stats().registrations, 1);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return !store
                        .lookupToken({QStringLiteral("example"), Mail, provider.baseUrl(),
                                      QStringLiteral("client-id")})
                        .password.has_value();
        },
        30000));
    EXPECT_FALSE(QFile::exists(config));
}

TEST_F(BrowserSignInWindowTest, CancelStopsWaitingForTheBrowserAndStoresNothing) {
    useBrowser(idleBrowser());
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    fillIn(window.addPage());
    press(window.addPage(), QStringLiteral("Sign in with the browser"));
    EXPECT_TRUE(window.addPage().isBusy());
    EXPECT_EQ(window.addPage().resultText(),
              QStringLiteral("Waiting for you to finish in the browser… (Cancel stops waiting)"));
    EXPECT_FALSE(named<QPushButton>(window.addPage(), QStringLiteral("Save"))->isEnabled());
    shootWindow(window, QStringLiteral("signing-in"));
    // The browser has been opened (the provider was asked nothing yet): Cancel stops the wait, well
    // before the five minutes, and the page stays for another try.
    EXPECT_TRUE(QTest::qWaitFor([&] { return provider.stats().registrations == 1; }, 30000));
    press(window.addPage(), QStringLiteral("Cancel"));
    EXPECT_TRUE(window.addPage().isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window.addPage().isBusy(); }, 60000));
    EXPECT_EQ(window.addPage().resultText(),
              QStringLiteral("Not signed in: the sign-in was cancelled; nothing was stored"));
    EXPECT_FALSE(refreshToken(QStringLiteral("example"), provider.baseUrl()).has_value());
    EXPECT_EQ(provider.stats().tokenRequests, 0);
    EXPECT_FALSE(QFile::exists(config));
}

TEST_F(BrowserSignInWindowTest, ASignInLeftUnsavedIsTakenOutOfTheKeyring) {
    AccountsWindow window(config, status, 10);
    window.show();
    window.showAddPage();
    fillIn(window.addPage());
    pressAndWait(window, QStringLiteral("Sign in with the browser"));
    ASSERT_TRUE(window.addPage().isSignedIn()) << window.addPage().resultText().toStdString();
    ASSERT_TRUE(refreshToken(QStringLiteral("example"), provider.baseUrl()).has_value());
    // Cancel now leaves the page, and the sign-in nobody saved goes.
    press(window.addPage(), QStringLiteral("Cancel"));
    EXPECT_FALSE(window.addPage().isVisible());
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return !refreshToken(QStringLiteral("example"), provider.baseUrl()).has_value(); }, 30000));
    EXPECT_FALSE(QFile::exists(config));
}

TEST_F(BrowserSignInWindowTest, SignInAgainFromTheListMakesTheAccountCurrent) {
    writeConfig({{QStringLiteral("work"),
                  accountKeys({{"passwordCommand", QVariant()},
                               {"user", Mail},
                               {"auth", "oauth2"},
                               {"oauthProvider", "custom"},
                               {"oauthClientId", QString::fromLatin1(OAuthProvider::ClientId)},
                               {"oauthAuthorizeUrl", provider.authorizeUrl()},
                               {"oauthTokenUrl", provider.tokenUrl()},
                               {"oauthScope", "mail"}})}});
    // Never signed in: the bridge says a sign-in is needed, and the window shows it.
    const BridgeRun before = runBridge({QStringLiteral("--once")}, config, QByteArray(), environment);
    ASSERT_EQ(before.exitCode, 1) << before.err.toStdString();
    AccountsWindow window(config, status, 10);
    window.show();
    ASSERT_EQ(window.accounts().rowCount(), 1);
    EXPECT_TRUE(window.accounts()
                    .index(0)
                    .data(AccountList::StateRole)
                    .toString()
                    .startsWith(QStringLiteral("Sign-in needed")))
        << window.accounts().index(0).data(AccountList::StateRole).toString().toStdString();
    selectRow(window, 0);
    shootWindow(window, QStringLiteral("sign-in-needed"));

    press(window, QStringLiteral("Sign in again"));
    EXPECT_EQ(window.messageText(),
              QStringLiteral("Waiting for you to finish signing in to ada@example.org in the browser…"));
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return window.messageText().startsWith(QStringLiteral("Signed in")); }, 60000))
        << window.messageText().toStdString();
    shootWindow(window, QStringLiteral("signed-in-again"));
    EXPECT_EQ(
        window.messageText(),
        QStringLiteral("Signed in to work (ada@example.org) again; a running bridge tries it at once."));
    const std::optional<QString> refresh = refreshToken(QStringLiteral("work"), provider.tokenUrl());
    ASSERT_TRUE(refresh.has_value());

    const BridgeRun once = runBridge({QStringLiteral("--once")}, config, QByteArray(), environment);
    ASSERT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_TRUE(waitUntilCurrent(window, 0));
    EXPECT_EQ(filesHolding(*refresh), QStringList());
}

TEST_F(BrowserSignInWindowTest, SignInAgainCanStopWaitingForTheBrowser) {
    useBrowser(idleBrowser());
    writeConfig({{QStringLiteral("work"),
                  accountKeys({{"passwordCommand", QVariant()},
                               {"user", Mail},
                               {"auth", "oauth2"},
                               {"oauthProvider", "custom"},
                               {"oauthClientId", QString::fromLatin1(OAuthProvider::ClientId)},
                               {"oauthAuthorizeUrl", provider.authorizeUrl()},
                               {"oauthTokenUrl", provider.tokenUrl()},
                               {"oauthScope", "mail"}})}});
    AccountsWindow window(config, status, 10);
    window.show();
    selectRow(window, 0);
    press(window, QStringLiteral("Sign in again"));
    // While the browser is awaited the same button stops the wait; nothing else is to be done.
    EXPECT_FALSE(named<QPushButton>(window, QStringLiteral("Remove account"))->isEnabled());
    press(window, QStringLiteral("Stop waiting for the browser"));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return window.messageText().startsWith(QStringLiteral("work is not signed in")); }, 60000))
        << window.messageText().toStdString();
    EXPECT_EQ(window.messageText(),
              QStringLiteral("work is not signed in: the sign-in was cancelled; nothing was stored"));
    EXPECT_FALSE(refreshToken(QStringLiteral("work"), provider.tokenUrl()).has_value());
    EXPECT_EQ(provider.stats().tokenRequests, 0);
    EXPECT_TRUE(named<QPushButton>(window, QStringLiteral("Sign in again"))->isVisible());
}

TEST_F(BrowserSignInWindowTest, AnAccountThatSignsInWithAPasswordHasNoSignInAgain) {
    writeConfig({{QStringLiteral("work"), accountKeys()}});
    AccountsWindow window(config, status, 10);
    window.show();
    selectRow(window, 0);
    EXPECT_FALSE(named<QPushButton>(window, QStringLiteral("Sign in again"))->isVisible());
}

} // namespace
} // namespace corvina::test
