// corvina-today --tray as a desktop runs it: a real X server (Xvfb), a private session bus with a
// tray of the test's own (a status notifier watcher, where Qt puts its tray icon) and a
// notification service recording what it is sent, the real program, and a stand-in mail
// application recording the commands it gets.
#include "support/FakeHostApp.h"
#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"
#include "support/StatusNotifierWatcher.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "support/XServer.h"

#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina::test;

namespace {

const QString kTrayAccount = QStringLiteral("ann@example.org");
const QString kTitle = QStringLiteral("Corvina Today");

QVariantList trayMessages(const QStringList& ids) {
    return TempContainer::inboxMessages(kTrayAccount, ids);
}

class TrayProgram : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(x.start()) << "Xvfb could not be started";
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr);
        tray = std::make_unique<StatusNotifierWatcher>(bus->address());
        ASSERT_TRUE(tray->isRegistered());
        notifications = std::make_unique<NotificationRecorder>(bus->address());
        ASSERT_TRUE(notifications->isRegistered());
        container.writeAccounts({TempContainer::account(kTrayAccount)});
        container.writeSnapshot(kTrayAccount, QStringLiteral("inbox.plist"),
                                trayMessages({"m0", "m1", "m2"}));
        host.installRecorder(QStringLiteral("org.corvina.mail"));

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), x.display());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
        // No desktop named: Qt's generic desktop, which finds the tray on the bus.
        for (const char* name : {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "KDE_FULL_SESSION",
                                 "GNOME_DESKTOP_SESSION_ID", "QT_QPA_PLATFORMTHEME", "WAYLAND_DISPLAY"})
            env.remove(QString::fromLatin1(name));
        widget.setProcessEnvironment(env);
        widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                     {QStringLiteral("--tray"), QStringLiteral("--container"), container.root(),
                      QStringLiteral("--interval"), QStringLiteral("3600")});
        ASSERT_TRUE(widget.waitForStarted(5000));
        // The test's own tray and notification service answer on this thread: keep it turning.
        ASSERT_TRUE(drain([&] { return !tray->items().isEmpty(); }, 15000)) << "no tray icon was registered";
        item = tray->items().constFirst();
        // The first read is done once the widget keeps what it saw for the account.
        const QString settings = config.filePath(QStringLiteral("corvina/org.corvina.mail.today.conf"));
        ASSERT_TRUE(drain(
            [&] {
                return QSettings(settings, QSettings::IniFormat)
                    .contains(QStringLiteral("seen/ann%40example.org"));
            },
            15000))
            << "the widget did not read the shared folder";
    }

    void TearDown() override {
        if (widget.state() != QProcess::NotRunning) {
            widget.terminate();
            widget.waitForFinished(3000);
        }
    }

    // The mail application replaces its snapshot the way it is meant to: a new file renamed over the old.
    void replaceSnapshot(const QStringList& ids) {
        container.writeSnapshot(kTrayAccount, QStringLiteral(".inbox.plist.new"), trayMessages(ids));
        const QString folder = container.data() + QStringLiteral("/Today/") + kTrayAccount;
        ASSERT_EQ(std::rename(QFile::encodeName(folder + QStringLiteral("/.inbox.plist.new")).constData(),
                              QFile::encodeName(folder + QStringLiteral("/inbox.plist")).constData()),
                  0);
    }

    bool windowShown() const {
        return !x.xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                           QStringLiteral("--name"), kTitle})
                    .isEmpty();
    }

    XServer x;
    PrivateSessionBus* bus = nullptr;
    std::unique_ptr<StatusNotifierWatcher> tray;
    std::unique_ptr<NotificationRecorder> notifications;
    TempContainer container;
    FakeHostApp host;
    QTemporaryDir config;
    QProcess widget;
    QString item;
};

} // namespace

TEST_F(TrayProgram, TwoNewMessagesCountTwoTheirArchiveActionReachesTheMailAppAndOpeningClears) {
    EXPECT_EQ(tray->toolTip(item), QStringLiteral("No new mail"));
    // Started in the tray: no window yet.
    EXPECT_FALSE(windowShown());

    replaceSnapshot({"n1", "n2", "m0", "m1", "m2"});
    ASSERT_TRUE(drain([&] { return tray->toolTip(item).startsWith(QStringLiteral("2 new")); }, 10000))
        << tray->toolTip(item).toStdString();
    EXPECT_EQ(tray->toolTip(item), QStringLiteral("2 new messages\nSender n1\nSender n2"));
    ASSERT_TRUE(drain([&] { return notifications->notifications().size() == 2; }, 10000));
    EXPECT_EQ(notifications->notifications().at(0).summary, QStringLiteral("Sender n1"));
    EXPECT_EQ(notifications->notifications().at(1).summary, QStringLiteral("Sender n2"));
    EXPECT_EQ(notifications->notifications().at(1).body, QStringLiteral("Subject n2"));

    // The user picks "Archive" on n2's notification.
    notifications->invokeAction(notifications->idOf(1), QStringLiteral("archive"));
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=n2&folderstandardid=1")});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    ASSERT_TRUE(
        drain([&] { return tray->toolTip(item) == QStringLiteral("1 new message\nSender n1"); }, 10000))
        << tray->toolTip(item).toStdString();

    // A click on the tray icon opens the window, and that clears the count.
    ASSERT_TRUE(tray->activate(item));
    EXPECT_FALSE(x.findWindow(kTitle).isEmpty()) << "the window did not open";
    ASSERT_TRUE(drain([&] { return tray->toolTip(item) == QStringLiteral("No new mail"); }, 10000))
        << tray->toolTip(item).toStdString();
    // A second click hides it again; the program stays in the tray.
    ASSERT_TRUE(tray->activate(item));
    ASSERT_TRUE(drain([&] { return !windowShown(); }, 10000));
    EXPECT_EQ(widget.state(), QProcess::Running);

    // The tray's menu, as the desktop shows it; its Quit ends the program.
    const QStringList labels = tray->menuLabels(item);
    EXPECT_EQ(labels, (QStringList{"Show the list", "Notify about new mail", "Accounts…", "", "Quit"}));
    ASSERT_TRUE(tray->clickMenu(item, QStringLiteral("Quit")));
    ASSERT_TRUE(widget.waitForFinished(5000)) << "Quit did not end the program";
    EXPECT_EQ(widget.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(widget.exitCode(), 0);
}

TEST(TrayProgramWithoutTray, ShowsTheWindowAndSaysWhyAndEscapeStillQuits) {
    XServer x;
    ASSERT_TRUE(x.start()) << "Xvfb could not be started";
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    TempContainer container;
    container.writeAccounts({TempContainer::account(kTrayAccount)});
    container.writeSnapshot(kTrayAccount, QStringLiteral("inbox.plist"), trayMessages({"m0"}));
    QTemporaryDir config;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), x.display());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
    for (const char* name :
         {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "KDE_FULL_SESSION", "QT_QPA_PLATFORMTHEME"})
        env.remove(QString::fromLatin1(name));
    QProcess widget;
    widget.setProcessEnvironment(env);
    widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                 {QStringLiteral("--tray"), QStringLiteral("--container"), container.root()});
    ASSERT_TRUE(widget.waitForStarted(5000));
    // No tray on this desktop: the window, so that the program is not left invisible.
    const QString window = x.findWindow(kTitle);
    ASSERT_FALSE(window.isEmpty()) << "the window did not appear";
    x.xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), window});
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), window, QStringLiteral("Escape")});
    ASSERT_TRUE(widget.waitForFinished(5000)) << "Escape did not end the program";
    EXPECT_EQ(widget.exitCode(), 0);
    EXPECT_TRUE(QString::fromUtf8(widget.readAllStandardError())
                    .contains(QStringLiteral("the desktop shows no tray; the window is shown instead")));
}

TEST_F(TrayProgram, EscapeHidesTheWindowKeepsItsPlaceAndTheProgramStaysInTheTray) {
    ASSERT_TRUE(tray->activate(item));
    const QString window = x.findWindow(kTitle);
    ASSERT_FALSE(window.isEmpty()) << "the window did not open";
    x.xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), window});
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), window, QStringLiteral("Escape")});
    ASSERT_TRUE(drain([&] { return !windowShown(); }, 10000)) << "Escape did not hide the window";
    EXPECT_EQ(widget.state(), QProcess::Running);
    const QString settings = config.filePath(QStringLiteral("corvina/org.corvina.mail.today.conf"));
    EXPECT_TRUE(drain(
        [&] { return QSettings(settings, QSettings::IniFormat).contains(QStringLiteral("window/position")); },
        10000))
        << "the window's place was not kept";
    // The tray brings it back.
    ASSERT_TRUE(tray->activate(item));
    EXPECT_FALSE(x.findWindow(kTitle).isEmpty()) << "the window did not open again";
}
