// corvina-accounts as a person uses it with the keyboard, and as a screen reader works it: a real X
// server (Xvfb), keys typed with xdotool, the test's own Dovecot, a real keyring daemon on a private
// session bus, and what the window says read back as a screen reader reads it (the desktop's
// accessibility bus with Qt's AT-SPI bridge on, support/AccessibilityDesktop, one for the test
// program; tests/accounts/atspi_find.py, a pyatspi client). An account is added by typing, its
// connection tested (a wrong password, then the right one), its To Do folder chosen from the
// server's, saved, turned current by the bridge's sync and removed through the confirmation; the
// same account added through AT-SPI alone (tests/accounts/atspi_drive.py); an account's folders
// edited from the keyboard.
#include "bridge/BridgeTesting.h"
#include "bridge/KeyringTest.h"
#include "bridge/config/SecretStore.h"
#include "bridge/service/LiveBridge.h"
#include "support/AccessibilityDesktop.h"
#include "support/PrivateSessionBus.h"
#include "support/ProcessStop.h"
#include "support/Wait.h"
#include "support/XServer.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

// Bounds for a machine kept busy: every wait ends as soon as what it waits for is there.
constexpr int kFindSeconds = 60;

class AccountsProgramTest : public KeyringTest<BridgeServerTest> {
protected:
    static inline const QString GracePassword = QStringLiteral("Tr0ub4dor&3 corvina");

    void SetUp() override {
        KeyringTest::SetUp();
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr);
        server.addUser(QStringLiteral("grace"), GracePassword);
        server.createFolder(QStringLiteral("grace"), QStringLiteral("To Do"));
        QString error;
        desktop = AccessibilityDesktop::shared(&error);
        ASSERT_NE(desktop, nullptr) << error.toStdString();

        config = configDir.filePath(QStringLiteral("bridge.conf"));
        programEnv = desktop->programEnvironment();
        programEnv.insert(QStringLiteral("XDG_STATE_HOME"), stateHome.path());
        program.setProcessEnvironment(programEnv);
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        program.start(
            QStringLiteral(CORVINA_ACCOUNTS_BINARY),
            {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")});
        ASSERT_TRUE(program.waitForStarted(5000));
        windowId = x().findWindow(QStringLiteral("Mail accounts"));
        ASSERT_FALSE(windowId.isEmpty()) << "the window did not appear";
        x().xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), windowId});
    }

    void TearDown() override {
        stopProcess(program, 3000);
        KeyringTest::TearDown();
    }

    XServer& x() const { return desktop->x(); }

    // Keys pressed on the window, in turn ("alt+a", "Tab").
    void keys(const QStringList& names) const {
        for (const QString& name : names)
            x().xdotool({QStringLiteral("key"), QStringLiteral("--clearmodifiers"), name});
    }
    void type(const QString& text) const {
        x().xdotool({QStringLiteral("type"), QStringLiteral("--clearmodifiers"), QStringLiteral("--delay"),
                     QStringLiteral("20"), text});
    }

    // The first accessible name of the window that `pattern` finds, as a screen reader hears it;
    // null when none came within the bound.
    QString heard(const QString& pattern) const {
        QProcess client;
        client.setProcessEnvironment(programEnv);
        client.start(QStringLiteral(CORVINA_SYSTEM_PYTHON),
                     {QStringLiteral(CORVINA_SOURCE_DIR "/tests/accounts/atspi_find.py"),
                      QStringLiteral("--app"), QStringLiteral("corvina-accounts"), QStringLiteral("--pid"),
                      QString::number(program.processId()), QStringLiteral("--expect"), pattern,
                      QStringLiteral("--timeout"), QString::number(kFindSeconds)});
        EXPECT_TRUE(client.waitForFinished((kFindSeconds + 30) * 1000)) << "the client did not end";
        const QJsonObject out = QJsonDocument::fromJson(client.readAllStandardOutput()).object();
        EXPECT_EQ(client.exitCode(), 0)
            << pattern.toStdString() << ": " << client.readAllStandardError().toStdString()
            << " heard: " << QJsonDocument(out).toJson(QJsonDocument::Compact).toStdString();
        return out.value(QStringLiteral("found")).toString();
    }

    // Works the window through AT-SPI alone (tests/accounts/atspi_drive.py): `steps` as that
    // script takes them, given on its standard input, since they may carry a password. What each
    // step heard, in order; the test fails where a step could not be done.
    QStringList drive(const QJsonArray& steps) const {
        QProcess client;
        client.setProcessEnvironment(programEnv);
        client.start(QStringLiteral(CORVINA_SYSTEM_PYTHON),
                     {QStringLiteral(CORVINA_SOURCE_DIR "/tests/accounts/atspi_drive.py")});
        EXPECT_TRUE(client.waitForStarted(5000));
        const QJsonObject work{{QStringLiteral("app"), QStringLiteral("corvina-accounts")},
                               {QStringLiteral("pid"), double(program.processId())},
                               {QStringLiteral("timeout"), kFindSeconds},
                               {QStringLiteral("steps"), steps}};
        client.write(QJsonDocument(work).toJson(QJsonDocument::Compact));
        client.closeWriteChannel();
        EXPECT_TRUE(client.waitForFinished((kFindSeconds * int(steps.size()) + 30) * 1000))
            << "the client did not end";
        QStringList heard;
        QString failed;
        for (const QByteArray& line : client.readAllStandardOutput().split('\n')) {
            const QJsonObject out = QJsonDocument::fromJson(line).object();
            if (out.contains(QStringLiteral("failed")))
                failed = QString::fromUtf8(line);
            else if (out.contains(QStringLiteral("step")))
                heard << out.value(QStringLiteral("heard")).toString();
        }
        EXPECT_EQ(client.exitCode(), 0)
            << client.readAllStandardError().toStdString() << failed.toStdString();
        EXPECT_EQ(heard.size(), steps.size());
        return heard;
    }

    // What the bridge's check says of grace's account with a wrong password: the words the window
    // must show for it.
    AccountSync::Result refusedLogin() const {
        BridgeConfig::Account account;
        account.name = QStringLiteral("example");
        account.mail = QStringLiteral("grace@example.org");
        account.host = server.host();
        account.port = quint16(server.port());
        account.security = BridgeConfig::Security::None;
        account.user = QStringLiteral("grace");
        return LiveBridge::checkAccount(account, QStringLiteral("wrong"), 10);
    }

    QStringList groups() const { return QSettings(config, QSettings::IniFormat).childGroups(); }

    QTemporaryDir stateHome;
    PrivateSessionBus* bus = nullptr;
    AccessibilityDesktop* desktop = nullptr;
    QProcessEnvironment programEnv;
    QProcess program;
    QString windowId;
    QString config;
};

// The steps of tests/accounts/atspi_drive.py.
QJsonObject pressStep(const QString& button) {
    return {{QStringLiteral("press"), button}};
}
QJsonObject typeStep(const QString& field, const QString& text) {
    return {{QStringLiteral("type"), text}, {QStringLiteral("into"), field}};
}
QJsonObject chooseStep(const QString& label, const QString& pattern) {
    return {{QStringLiteral("choose"), pattern}, {QStringLiteral("in"), label}};
}
QJsonObject hearStep(const QString& pattern) {
    return {{QStringLiteral("hear"), pattern}};
}

TEST_F(AccountsProgramTest, AddTestSaveAndRemoveWithTheKeyboard) {
    EXPECT_EQ(heard(QStringLiteral("^No accounts yet$")), QStringLiteral("No accounts yet"));
    keys({QStringLiteral("alt+a")});
    EXPECT_FALSE(heard(QStringLiteral("^Add a mail account$")).isNull());

    // The fields in the order Tab takes them: address, server, security, port, login, sign-in
    // (left at the password), password.
    type(QStringLiteral("grace@example.org"));
    keys({QStringLiteral("Tab")});
    type(server.host());
    keys({QStringLiteral("Tab"), QStringLiteral("End"), QStringLiteral("Tab"), QStringLiteral("ctrl+a")});
    type(QString::number(server.port()));
    keys({QStringLiteral("Tab")});
    type(QStringLiteral("grace"));
    keys({QStringLiteral("Tab"), QStringLiteral("Tab")});
    type(QStringLiteral("wrong"));
    keys({QStringLiteral("alt+t")});

    // The bridge's own words for the refused login, the same its check gives.
    const AccountSync::Result refused = refusedLogin();
    ASSERT_FALSE(refused.ok);
    EXPECT_EQ(heard(QRegularExpression::escape(refused.error)), refused.error);
    EXPECT_FALSE(QFile::exists(config)) << "nothing is written before Save";

    keys({QStringLiteral("alt+p"), QStringLiteral("ctrl+a")});
    type(GracePassword);
    keys({QStringLiteral("alt+t")});
    EXPECT_FALSE(heard(QStringLiteral("^Connection ok")).isNull());

    // The server's folders are offered now (a screen reader hears them as the choices' items):
    // To Do's (Alt+D) is chosen by typing its first letters, as one picks from a list by keyboard.
    EXPECT_FALSE(heard(QStringLiteral("^To Do$")).isNull());
    keys({QStringLiteral("alt+d")});
    type(QStringLiteral("To"));

    keys({QStringLiteral("alt+s")});
    EXPECT_TRUE(waitFor([&] { return groups() == QStringList{QStringLiteral("example")}; }, 60000))
        << "not saved";
    EXPECT_EQ(QSettings(config, QSettings::IniFormat).value(QStringLiteral("example/todo")).toString(),
              QStringLiteral("To Do"));
    EXPECT_EQ(SecretStore(10000)
                  .lookup({QStringLiteral("example"), QStringLiteral("grace"), server.host()})
                  .password.value_or(QString()),
              GracePassword);
    EXPECT_FALSE(heard(QStringLiteral("^example, grace@example.org: Not read yet")).isNull());

    // The bridge syncs it; the window follows its status file.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_STATE_HOME"), stateHome.path());
    const BridgeRun once = runBridge({QStringLiteral("--once")}, config, QByteArray(), env);
    ASSERT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_FALSE(heard(QStringLiteral("^example, grace@example.org: Current as of ")).isNull());

    // The list has the keyboard; the first row, Remove, and Remove again in the confirmation.
    keys({QStringLiteral("Home"), QStringLiteral("alt+r")});
    EXPECT_FALSE(heard(QStringLiteral("^Remove the account example")).isNull());
    keys({QStringLiteral("alt+r")});
    EXPECT_TRUE(waitFor([&] { return groups().isEmpty(); }, 60000)) << "not removed";
    EXPECT_FALSE(heard(QStringLiteral("^Removed the account example and its password\\.$")).isNull());
    const SecretStore::Lookup gone =
        SecretStore(10000).lookup({QStringLiteral("example"), QStringLiteral("grace"), server.host()});
    EXPECT_FALSE(gone.password.has_value());
}

// The same account added as a screen reader (or a switch device) does it: every control found by
// its role and accessible name, text set through AT-SPI's EditableText, the port through Value,
// buttons pressed through Action, and the two choices (the security, the To Do folder) made by
// selecting their items in the combo's list. No key is pressed and no pointer moves.
TEST_F(AccountsProgramTest, AddTestAndSaveThroughTheAccessibilityInterface) {
    const AccountSync::Result refused = refusedLogin();
    ASSERT_FALSE(refused.ok);

    const QStringList tested =
        drive({hearStep(QStringLiteral("^No accounts yet$")), pressStep(QStringLiteral("Add account")),
               hearStep(QStringLiteral("^Add a mail account$")),
               typeStep(QStringLiteral("Mail address"), QStringLiteral("grace@example.org")),
               typeStep(QStringLiteral("IMAP server"), server.host()),
               // The security first: choosing it may put its usual port in the port's field.
               chooseStep(QStringLiteral("Security"), QStringLiteral("^None: ")),
               QJsonObject{{QStringLiteral("number"), server.port()},
                           {QStringLiteral("into"), QStringLiteral("Port")}},
               typeStep(QStringLiteral("Login name"), QStringLiteral("grace")),
               typeStep(QStringLiteral("Password"), QStringLiteral("wrong")),
               pressStep(QStringLiteral("Test connection")),
               // The bridge's own words for the refused login, the same its check gives.
               hearStep(QRegularExpression::escape(refused.error))});
    ASSERT_EQ(tested.size(), 11);
    EXPECT_EQ(tested.at(5), QStringLiteral("None: not encrypted, only for a server on this computer"));
    EXPECT_EQ(tested.at(10), refused.error);
    EXPECT_FALSE(QFile::exists(config)) << "nothing is written before Save";

    const QStringList saved = drive(
        {typeStep(QStringLiteral("Password"), GracePassword), pressStep(QStringLiteral("Test connection")),
         hearStep(QStringLiteral("^Connection ok")),
         // The server's folders are offered now, To Do's among them.
         chooseStep(QStringLiteral("To Do"), QStringLiteral("^To Do$")), pressStep(QStringLiteral("Save")),
         hearStep(QStringLiteral("^example, grace@example.org: Not read yet"))});
    ASSERT_EQ(saved.size(), 6);
    EXPECT_EQ(saved.at(3), QStringLiteral("To Do"));
    ASSERT_EQ(groups(), QStringList{QStringLiteral("example")});
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.value(QStringLiteral("example/todo")).toString(), QStringLiteral("To Do"));
    EXPECT_EQ(written.value(QStringLiteral("example/security")).toString(), QStringLiteral("none"));
    EXPECT_EQ(written.value(QStringLiteral("example/port")).toInt(), server.port());
    EXPECT_EQ(written.value(QStringLiteral("example/user")).toString(), QStringLiteral("grace"));
    EXPECT_EQ(SecretStore(10000)
                  .lookup({QStringLiteral("example"), QStringLiteral("grace"), server.host()})
                  .password.value_or(QString()),
              GracePassword);

    // The bridge syncs it; the window follows its status file.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_STATE_HOME"), stateHome.path());
    const BridgeRun once = runBridge({QStringLiteral("--once")}, config, QByteArray(), env);
    ASSERT_EQ(once.exitCode, 0) << once.err.toStdString();
    EXPECT_EQ(drive({hearStep(QStringLiteral("^example, grace@example.org: Current as of "))}).size(), 1);
}

TEST_F(AccountsProgramTest, EditAnAccountsFoldersWithTheKeyboard) {
    server.createFolder(User, QStringLiteral("Tasks"));
    // An account the window finds when it starts: the list has the keyboard.
    stopProcess(program, 3000);
    ASSERT_EQ(writeConfig({{QStringLiteral("work"), accountKeys()}}), config);
    program.start(QStringLiteral(CORVINA_ACCOUNTS_BINARY),
                  {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")});
    ASSERT_TRUE(program.waitForStarted(5000));
    windowId = x().findWindow(QStringLiteral("Mail accounts"));
    ASSERT_FALSE(windowId.isEmpty()) << "the window did not appear";
    x().xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), windowId});
    EXPECT_FALSE(heard(QStringLiteral("^work, ada@example.org: Not read yet")).isNull());

    // The first row, then Edit: its settings as bridge.conf has them.
    keys({QStringLiteral("Home"), QStringLiteral("alt+e")});
    EXPECT_FALSE(heard(QStringLiteral("^Edit work \\(ada@example\\.org\\)$")).isNull());
    EXPECT_FALSE(heard(QStringLiteral("^Signs in with$")).isNull());
    // The folders come from the server's list: tested first, then To Do chosen by typing the name
    // of one it listed (a combo box picks the item the typed letters start).
    keys({QStringLiteral("alt+t")});
    EXPECT_FALSE(heard(QStringLiteral("^Connection ok")).isNull());
    keys({QStringLiteral("alt+d")});
    type(QStringLiteral("Tasks"));
    EXPECT_EQ(QSettings(config, QSettings::IniFormat).value(QStringLiteral("work/todo")), QVariant())
        << "nothing is written before Save";
    keys({QStringLiteral("alt+s")});
    EXPECT_TRUE(waitFor(
        [&] {
            return QSettings(config, QSettings::IniFormat).value(QStringLiteral("work/todo")).toString() ==
                   QLatin1String("Tasks");
        },
        60000))
        << "not saved";
    EXPECT_FALSE(heard(QStringLiteral("^Saved the account work; ")).isNull());
    // The rest of the group is as it was.
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.value(QStringLiteral("work/passwordCommand")).toString(),
              QStringLiteral("echo ") + Password);
    EXPECT_EQ(written.value(QStringLiteral("work/host")).toString(), server.host());
}

} // namespace
} // namespace corvina::test
