// "Keep my mail current": the bridge's systemd user unit switched on and off from the Accounts
// window through systemd's D-Bus interface, and followed while it runs. Against a real
// `systemd --user` on the test's private session bus; and on that bus without systemd, where the
// switch is off and says how to start the bridge instead.
//
// systemd refuses to run as a user instance on a machine it did not boot (it looks for
// /run/systemd/system). The test starts it in a mount namespace of its own (unshare, as root) with
// an empty /run/systemd in which that folder exists: nothing outside the namespace changes. The
// unit is the bridge's by name; its program is a stand-in (sleep), since what is tested is the
// unit's life, not the bridge's.
#include "bridge/service/BridgeUnit.h"

#include "accounts/AccountsWindow.h"
#include "accounts/KeepCurrentRow.h"
#include "support/PrivateSessionBus.h"
#include "support/ProcessStop.h"
#include "support/Wait.h"

#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/types.h>

namespace corvina::test {
namespace {

const QString UnitFileName = QStringLiteral("corvina-mail-bridge.service");
constexpr int UnitTestBoundMs = 60000;

bool systemdOnBus() {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(
        QStringLiteral("org.freedesktop.systemd1"));
}

// A real systemd user instance on the private session bus, with its configuration, runtime folder
// and home in a temporary folder.
class UserSystemd {
public:
    // `unitFile`: the contents of the bridge's unit in the instance's configuration; null for none.
    bool start(const QString& unitFile, QString* error) {
        // One instance at a time on this machine: two user instances of systemd started as root
        // share the cgroup they were started in, and one stopping takes the other off its bus
        // (seen with the tests run in parallel). Held until this instance is gone.
        if (!m_lock.tryLock(UnitTestBoundMs)) {
            *error = QStringLiteral("another test's systemd --user did not end: ") + m_lock.fileName();
            return false;
        }
        QDir root(m_dir.path());
        for (const char* sub : {"run", "home", "config/systemd/user"})
            root.mkpath(QString::fromLatin1(sub));
        QFile::setPermissions(root.filePath(QStringLiteral("run")),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        // A target of its own to start into, so that the instance starts none of the machine's
        // user services. systemd goes onto the session bus only once it believes its own bus
        // socket and service run: stand-ins for both (the bus is the test's own, already there).
        write(QStringLiteral("config/systemd/user/corvina-test.target"),
              QStringLiteral("[Unit]\nDescription=test\nWants=dbus.socket dbus.service\n"));
        write(
            QStringLiteral("config/systemd/user/dbus.socket"),
            QStringLiteral(
                "[Unit]\nDescription=stand-in for the bus socket\n[Socket]\nListenStream=%t/stand-in-bus\n"));
        write(QStringLiteral("config/systemd/user/dbus.service"),
              QStringLiteral("[Unit]\nDescription=stand-in for the "
                             "bus\n[Service]\nType=simple\nExecStart=/bin/sleep infinity\n"));
        if (!unitFile.isNull())
            write(QStringLiteral("config/systemd/user/") + UnitFileName, unitFile);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), PrivateSessionBus::instance()->address());
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), root.filePath(QStringLiteral("run")));
        env.insert(QStringLiteral("HOME"), root.filePath(QStringLiteral("home")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), root.filePath(QStringLiteral("config")));
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(
            QStringLiteral("unshare"),
            {QStringLiteral("--mount"), QStringLiteral("sh"), QStringLiteral("-c"),
             QStringLiteral("mount -t tmpfs corvina-test /run/systemd && mkdir /run/systemd/system && "
                            "exec /lib/systemd/systemd --user --unit=corvina-test.target")});
        if (!m_process.waitForStarted(10000)) {
            *error = QStringLiteral("unshare did not start: ") + m_process.errorString();
            return false;
        }
        if (!waitFor([&] { return systemdOnBus() || m_process.state() == QProcess::NotRunning; },
                     UnitTestBoundMs) ||
            !systemdOnBus()) {
            *error = QStringLiteral("systemd --user did not come onto the bus: ") +
                     QString::fromLocal8Bit(m_process.readAll());
            return false;
        }
        return true;
    }
    ~UserSystemd() {
        stopProcess(m_process, 20000);
        // The next test may need the bus without systemd.
        waitFor([] { return !systemdOnBus(); }, UnitTestBoundMs);
    }

    // Stops systemd in its tracks (SIGSTOP): it keeps its name on the bus but answers nothing, as
    // a hung one does. resume() lets it go on.
    void freeze() { ::kill(pid_t(m_process.processId()), SIGSTOP); }
    void resume() { ::kill(pid_t(m_process.processId()), SIGCONT); }

    QString wantsLink() const {
        return m_dir.filePath(QStringLiteral("config/systemd/user/default.target.wants/") + UnitFileName);
    }

private:
    void write(const QString& relative, const QString& text) {
        QFile file(m_dir.filePath(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
    }

    QLockFile m_lock{QDir::temp().filePath(QStringLiteral("corvina-test-user-systemd.lock"))};
    QTemporaryDir m_dir;
    QProcess m_process;
};

// The bridge's unit as installed, but running a stand-in program.
const QString StandInUnit = QStringLiteral("[Unit]\nDescription=stand-in for the bridge\n"
                                           "[Service]\nType=simple\nExecStart=/bin/sleep infinity\n"
                                           "[Install]\nWantedBy=default.target\n");

class BridgeUnitTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(PrivateSessionBus::instance(), nullptr);
        ASSERT_TRUE(config.isValid());
    }
    QString configPath() const { return config.filePath(QStringLiteral("bridge.conf")); }
    static QString stateFromSystemd() {
        QDBusMessage load = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.systemd1"), QStringLiteral("/org/freedesktop/systemd1"),
            QStringLiteral("org.freedesktop.systemd1.Manager"), QStringLiteral("GetUnitFileState"));
        load.setArguments({UnitFileName});
        return QDBusConnection::sessionBus().call(load, QDBus::Block, 10000).arguments().value(0).toString();
    }

    QTemporaryDir config;
};

TEST_F(BridgeUnitTest, WithoutSystemdTheSwitchIsOffAndSaysHowToStartTheBridge) {
    ASSERT_FALSE(systemdOnBus());
    AccountsWindow window(configPath(), config.filePath(QStringLiteral("status.json")), 5);
    KeepCurrentRow& row = window.keepCurrent();
    ASSERT_TRUE(QTest::qWaitFor([&] { return window.bridgeUnit().checked(); }, UnitTestBoundMs));
    EXPECT_FALSE(window.bridgeUnit().available());
    EXPECT_FALSE(row.toggle()->isEnabled());
    EXPECT_FALSE(row.toggle()->isChecked());
    EXPECT_EQ(row.toggle()->accessibleName(), QStringLiteral("Keep my mail current"));
    const QString expected = QStringLiteral(
        "There is no systemd for your user here, so this window cannot start the bridge. Start it "
        "yourself: run corvina-mail-bridge in a terminal, or add it to the programs your desktop "
        "starts at login.");
    EXPECT_EQ(row.stateText(), expected);
    EXPECT_EQ(row.toggle()->accessibleDescription(), expected);
}

TEST_F(BridgeUnitTest, TheSwitchEnablesStartsFollowsStopsAndDisablesTheUnit) {
    UserSystemd systemd;
    QString error;
    ASSERT_TRUE(systemd.start(StandInUnit, &error)) << error.toStdString();
    AccountsWindow window(configPath(), config.filePath(QStringLiteral("status.json")), 5);
    KeepCurrentRow& row = window.keepCurrent();
    BridgeUnit& unit = window.bridgeUnit();
    ASSERT_TRUE(QTest::qWaitFor([&] { return unit.checked(); }, UnitTestBoundMs));
    EXPECT_TRUE(unit.available());
    EXPECT_TRUE(unit.installed()) << unit.error().toStdString();
    EXPECT_EQ(unit.unitFileState(), QStringLiteral("disabled"));
    EXPECT_TRUE(row.toggle()->isEnabled());
    EXPECT_FALSE(row.toggle()->isChecked());
    EXPECT_EQ(row.stateText(), QStringLiteral("The bridge is not running: your mail is not kept current."));

    // The keyboard reaches it after the list's buttons: Tab from "Add account…" (with no account,
    // "Remove…" is not shown).
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QPushButton* add = nullptr;
    for (QPushButton* button : window.findChildren<QPushButton*>()) {
        if (button->accessibleName() == QLatin1String("Add account"))
            add = button;
    }
    ASSERT_NE(add, nullptr);
    add->setFocus(Qt::OtherFocusReason);
    QTest::keyClick(add, Qt::Key_Tab);
    EXPECT_TRUE(row.toggle()->hasFocus());

    // Switched on as a person does: `enable --now`.
    row.toggle()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !unit.busy() && unit.activeState() == QLatin1String("active"); },
                                UnitTestBoundMs))
        << row.stateText().toStdString();
    EXPECT_TRUE(QFile::exists(systemd.wantsLink()));
    EXPECT_EQ(stateFromSystemd(), QStringLiteral("enabled"));
    EXPECT_TRUE(row.toggle()->isChecked());
    EXPECT_EQ(row.stateText(),
              QStringLiteral("The bridge is running and keeps your mail current; it starts at every login."));
    // Drawn into CORVINA_ACCOUNTS_SHOTS when that names a folder (docs/accounts-keep-current.png).
    const QString shots = qEnvironmentVariable("CORVINA_ACCOUNTS_SHOTS");
    if (!shots.isEmpty()) {
        QDir().mkpath(shots);
        for (int i = 0; i < 3; ++i)
            QCoreApplication::processEvents();
        EXPECT_TRUE(window.grab().save(QDir(shots).filePath(QStringLiteral("accounts-keep-current.png"))));
    }

    // Stopped behind the window's back (`systemctl --user stop`): the line follows.
    QDBusMessage stop = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.systemd1"), QStringLiteral("/org/freedesktop/systemd1"),
        QStringLiteral("org.freedesktop.systemd1.Manager"), QStringLiteral("StopUnit"));
    stop.setArguments({UnitFileName, QStringLiteral("replace")});
    ASSERT_EQ(QDBusConnection::sessionBus().call(stop, QDBus::Block, 10000).type(),
              QDBusMessage::ReplyMessage);
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return unit.activeState() == QLatin1String("inactive"); }, UnitTestBoundMs))
        << unit.activeState().toStdString();
    EXPECT_EQ(row.stateText(), QStringLiteral("The bridge is not running: your mail is not kept current."));

    // Switched off: stopped and no longer enabled.
    row.toggle()->click(); // off
    ASSERT_TRUE(QTest::qWaitFor([&] { return !unit.busy() && unit.checked(); }, UnitTestBoundMs));
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return unit.unitFileState() == QLatin1String("disabled"); }, UnitTestBoundMs));
    EXPECT_FALSE(QFile::exists(systemd.wantsLink()));
    EXPECT_EQ(stateFromSystemd(), QStringLiteral("disabled"));
    EXPECT_FALSE(row.toggle()->isChecked());
    EXPECT_EQ(unit.error(), QString());
}

TEST_F(BridgeUnitTest, WithTheUnitNotInstalledTheSwitchIsOffAndSaysSo) {
    UserSystemd systemd;
    QString error;
    ASSERT_TRUE(systemd.start(QString(), &error)) << error.toStdString();
    AccountsWindow window(configPath(), config.filePath(QStringLiteral("status.json")), 5);
    KeepCurrentRow& row = window.keepCurrent();
    ASSERT_TRUE(QTest::qWaitFor([&] { return window.bridgeUnit().checked(); }, UnitTestBoundMs));
    EXPECT_TRUE(window.bridgeUnit().available());
    EXPECT_FALSE(window.bridgeUnit().installed());
    EXPECT_FALSE(row.toggle()->isEnabled());
    EXPECT_FALSE(row.toggle()->isChecked());
    EXPECT_EQ(row.stateText(),
              QStringLiteral("The bridge's systemd unit is not installed (%1). Start the bridge "
                             "yourself: run corvina-mail-bridge in a terminal.")
                  .arg(window.bridgeUnit().error()));
    EXPECT_FALSE(window.bridgeUnit().error().isEmpty());
}

TEST_F(BridgeUnitTest, AUnitThatCannotStartIsShownInSystemdsWords) {
    UserSystemd systemd;
    QString error;
    // A unit without a program: systemd enables it but refuses to start it.
    ASSERT_TRUE(systemd.start(QStringLiteral("[Unit]\nDescription=broken\n[Service]\nType=simple\n"
                                             "[Install]\nWantedBy=default.target\n"),
                              &error))
        << error.toStdString();
    AccountsWindow window(configPath(), config.filePath(QStringLiteral("status.json")), 5);
    KeepCurrentRow& row = window.keepCurrent();
    BridgeUnit& unit = window.bridgeUnit();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return unit.checked() && row.toggle()->isEnabled(); }, UnitTestBoundMs));
    row.toggle()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !unit.busy() && !unit.error().isEmpty(); }, UnitTestBoundMs));
    EXPECT_TRUE(unit.error().startsWith(QStringLiteral("The bridge was not started: ")))
        << unit.error().toStdString();
    EXPECT_TRUE(row.stateText().startsWith(unit.error() + QLatin1Char(' '))) << row.stateText().toStdString();
    EXPECT_NE(unit.activeState(), QStringLiteral("active"));
}

TEST_F(BridgeUnitTest, AHungSystemdCostsTheSwitchALineNotTheWindow) {
    UserSystemd systemd;
    QString error;
    ASSERT_TRUE(systemd.start(StandInUnit, &error)) << error.toStdString();
    systemd.freeze();
    // A short timeout of its own, so that the test need not wait the window's ten seconds.
    BridgeUnit unit(QDBusConnection::sessionBus(), 1000);
    KeepCurrentRow row(&unit);
    unit.refresh();
    // Answered by the timeout, not by systemd: the bound is generous for a busy machine.
    EXPECT_TRUE(QTest::qWaitFor([&] { return unit.checked(); }, UnitTestBoundMs));
    systemd.resume();
    EXPECT_FALSE(unit.available());
    EXPECT_EQ(unit.error(), QStringLiteral("systemd did not answer within 1 s"));
    EXPECT_FALSE(row.toggle()->isEnabled());
    EXPECT_EQ(row.stateText(),
              QStringLiteral("systemd did not answer within 1 s. Start the bridge yourself: run "
                             "corvina-mail-bridge in a terminal."));
}

} // namespace
} // namespace corvina::test
