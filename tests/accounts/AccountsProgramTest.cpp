// corvina-accounts as a person uses it with the keyboard: a real X server (Xvfb), keys typed with
// xdotool, the test's own Dovecot, a real keyring daemon on a private session bus, and what the
// window says read back as a screen reader reads it (the desktop's accessibility bus with Qt's
// AT-SPI bridge on, and tests/accounts/atspi_find.py, a pyatspi client). An account is added by
// typing, its connection tested (a wrong password, then the right one), its To Do folder chosen
// from the server's, saved, turned current by the bridge's sync and removed through the
// confirmation; an account's folders edited from the keyboard.
#include "bridge/BridgeTesting.h"
#include "bridge/config/SecretStore.h"
#include "bridge/service/LiveBridge.h"
#include "support/KeyringDaemon.h"
#include "support/PrivateSessionBus.h"
#include "support/ProcessStop.h"
#include "support/Wait.h"
#include "support/XServer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QFile>
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
constexpr int kStartMs = 20000;
constexpr int kFindSeconds = 60;

class AccountsProgramTest : public BridgeServerTest {
protected:
    static inline const QString GracePassword = QStringLiteral("Tr0ub4dor&3 corvina");

    void SetUp() override {
        BridgeServerTest::SetUp();
        ASSERT_TRUE(runtime.isValid());
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr);
        QString error;
        ASSERT_TRUE(keyring.start(&error)) << error.toStdString();
        server.addUser(QStringLiteral("grace"), GracePassword);
        server.createFolder(QStringLiteral("grace"), QStringLiteral("To Do"));
        ASSERT_TRUE(x.start()) << "Xvfb could not be started";

        // The accessibility bus of this session and its registry, as a desktop starts them, with
        // their socket in a runtime folder of the test's own.
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("AT_SPI_BUS_ADDRESS"));
        launcher.setProcessEnvironment(env);
        launcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        launcher.start(QStringLiteral(CORVINA_ATSPI_BUS_LAUNCHER),
                       {QStringLiteral("--launch-immediately"), QStringLiteral("--a11y=1"),
                        QStringLiteral("--screen-reader=1")});
        ASSERT_TRUE(launcher.waitForStarted(5000));
        QDBusConnectionInterface* sessionBus = QDBusConnection::sessionBus().interface();
        ASSERT_TRUE(waitFor([&] { return sessionBus->isServiceRegistered(QStringLiteral("org.a11y.Bus")); },
                            kStartMs))
            << "the accessibility bus launcher did not come";
        const QDBusReply<QString> address = QDBusConnection::sessionBus().call(
            QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                           QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
        ASSERT_TRUE(address.isValid()) << address.error().message().toStdString();
        registry.setProcessEnvironment(env);
        registry.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        registry.start(QStringLiteral(CORVINA_ATSPI_REGISTRYD), {});
        ASSERT_TRUE(registry.waitForStarted(5000));
        {
            QDBusConnection a11y = QDBusConnection::connectToBus(address.value(), QStringLiteral("a11y"));
            ASSERT_TRUE(a11y.isConnected()) << a11y.lastError().message().toStdString();
            ASSERT_TRUE(waitFor(
                [&] {
                    return a11y.interface()->isServiceRegistered(QStringLiteral("org.a11y.atspi.Registry"));
                },
                kStartMs))
                << "the accessibility registry did not come";
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("a11y"));

        config = configDir.filePath(QStringLiteral("bridge.conf"));
        programEnv = env;
        programEnv.insert(QStringLiteral("DISPLAY"), x.display());
        programEnv.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        programEnv.insert(QStringLiteral("XDG_STATE_HOME"), stateHome.path());
        programEnv.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
        for (const char* name :
             {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "QT_QPA_PLATFORMTHEME", "WAYLAND_DISPLAY"})
            programEnv.remove(QString::fromLatin1(name));
        program.setProcessEnvironment(programEnv);
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        program.start(
            QStringLiteral(CORVINA_ACCOUNTS_BINARY),
            {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")});
        ASSERT_TRUE(program.waitForStarted(5000));
        windowId = x.findWindow(QStringLiteral("Mail accounts"));
        ASSERT_FALSE(windowId.isEmpty()) << "the window did not appear";
        x.xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), windowId});
    }

    void TearDown() override {
        stopProcess(program, 3000);
        stopProcess(registry, 3000);
        stopProcess(launcher, 3000);
        keyring.stop();
        SecretStore::forgetService();
    }

    // Keys pressed on the window, in turn ("alt+a", "Tab").
    void keys(const QStringList& names) const {
        for (const QString& name : names)
            x.xdotool({QStringLiteral("key"), QStringLiteral("--clearmodifiers"), name});
    }
    void type(const QString& text) const {
        x.xdotool({QStringLiteral("type"), QStringLiteral("--clearmodifiers"), QStringLiteral("--delay"),
                   QStringLiteral("20"), text});
    }

    // The first accessible name of the window that `pattern` finds, as a screen reader hears it;
    // null when none came within the bound.
    QString heard(const QString& pattern) const {
        QProcess client;
        client.setProcessEnvironment(programEnv);
        client.start(QStringLiteral(CORVINA_SYSTEM_PYTHON),
                     {QStringLiteral(CORVINA_SOURCE_DIR "/tests/accounts/atspi_find.py"),
                      QStringLiteral("--app"), QStringLiteral("corvina-accounts"), QStringLiteral("--expect"),
                      pattern, QStringLiteral("--timeout"), QString::number(kFindSeconds)});
        EXPECT_TRUE(client.waitForFinished((kFindSeconds + 30) * 1000)) << "the client did not end";
        const QJsonObject out = QJsonDocument::fromJson(client.readAllStandardOutput()).object();
        EXPECT_EQ(client.exitCode(), 0)
            << pattern.toStdString() << ": " << client.readAllStandardError().toStdString()
            << " heard: " << QJsonDocument(out).toJson(QJsonDocument::Compact).toStdString();
        return out.value(QStringLiteral("found")).toString();
    }

    QStringList groups() const { return QSettings(config, QSettings::IniFormat).childGroups(); }

    QTemporaryDir runtime;
    QTemporaryDir stateHome;
    XServer x;
    PrivateSessionBus* bus = nullptr;
    KeyringDaemon keyring;
    QProcess launcher;
    QProcess registry;
    QProcessEnvironment programEnv;
    QProcess program;
    QString windowId;
    QString config;
};

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
    BridgeConfig::Account account;
    account.name = QStringLiteral("example");
    account.mail = QStringLiteral("grace@example.org");
    account.host = server.host();
    account.port = quint16(server.port());
    account.security = BridgeConfig::Security::None;
    account.user = QStringLiteral("grace");
    const AccountSync::Result refused = LiveBridge::checkAccount(account, QStringLiteral("wrong"), 10);
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

TEST_F(AccountsProgramTest, EditAnAccountsFoldersWithTheKeyboard) {
    server.createFolder(User, QStringLiteral("Tasks"));
    // An account the window finds when it starts: the list has the keyboard.
    stopProcess(program, 3000);
    ASSERT_EQ(writeConfig({{QStringLiteral("work"), accountKeys()}}), config);
    program.start(QStringLiteral(CORVINA_ACCOUNTS_BINARY),
                  {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")});
    ASSERT_TRUE(program.waitForStarted(5000));
    windowId = x.findWindow(QStringLiteral("Mail accounts"));
    ASSERT_FALSE(windowId.isEmpty()) << "the window did not appear";
    x.xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), windowId});
    EXPECT_FALSE(heard(QStringLiteral("^work, ada@example.org: Not read yet")).isNull());

    // The first row, then Edit: its settings as bridge.conf has them.
    keys({QStringLiteral("Home"), QStringLiteral("alt+e")});
    EXPECT_FALSE(heard(QStringLiteral("^Edit work \\(ada@example\\.org\\)$")).isNull());
    EXPECT_FALSE(heard(QStringLiteral("^Signs in with$")).isNull());
    keys({QStringLiteral("alt+d")});
    type(QStringLiteral("Tasks"));
    keys({QStringLiteral("alt+t")});
    EXPECT_FALSE(heard(QStringLiteral("^Connection ok")).isNull());
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
