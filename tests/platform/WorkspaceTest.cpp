#include "platform/Workspace.h"

#include "support/FakeHostApp.h"
#include "support/PrivateSessionBus.h"
#include "support/ScopedEnvironment.h"

#include <atomic>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::FakeHostApp;
using corvina::test::PrivateSessionBus;

namespace {

const QString kId = QStringLiteral("org.corvina.mail");
const QStringList kUrls{QStringLiteral("corvina://archive?mail=a%40b.org&messageid=1&folderstandardid=1"),
                        QStringLiteral("corvina://archive?mail=a%40b.org&messageid=2&folderstandardid=1"),
                        QStringLiteral("corvina://archive?mail=c%40d.org&messageid=3&folderstandardid=5")};

} // namespace

TEST(Workspace, RecorderReceivesEveryUrlInOrderInOneStart) {
    FakeHostApp host;
    host.installRecorder(kId);
    ASSERT_TRUE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.first().arguments, kUrls);
}

TEST(Workspace, ExecLaunchTellsForegroundFromBackground) {
    FakeHostApp host;
    host.installRecorder(kId);
    ASSERT_TRUE(Workspace::openURLs({kUrls.first()}, kId, Workspace::LaunchAllowingClassicStartup));
    auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
    EXPECT_FALSE(launches.at(0).values.value(QStringLiteral("XDG_ACTIVATION_TOKEN")).isEmpty());
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("DESKTOP_STARTUP_ID")),
              launches.at(0).values.value(QStringLiteral("XDG_ACTIVATION_TOKEN")));

    // Background: no token, even one this process inherited.
    corvina::test::ScopedEnvironment inherited("XDG_ACTIVATION_TOKEN", QByteArray("from-our-own-start"));
    ASSERT_TRUE(Workspace::openURLs({kUrls.first()}, kId, Workspace::LaunchWithoutActivation));
    launches = host.waitForLaunches(2);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(1).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    EXPECT_FALSE(launches.at(1).values.contains(QStringLiteral("XDG_ACTIVATION_TOKEN")));
    EXPECT_FALSE(launches.at(1).values.contains(QStringLiteral("DESKTOP_STARTUP_ID")));
}

TEST(Workspace, SingleUrlExecLineStartsOncePerUrlInOrder) {
    FakeHostApp host;
    host.installRecorder(kId, QStringLiteral("--open %u"));
    ASSERT_TRUE(Workspace::openURLs(kUrls, kId, Workspace::LaunchWithoutActivation));
    const auto launches = host.waitForLaunches(3);
    ASSERT_EQ(launches.size(), 3);
    // Detached starts may finish in any order; each got exactly one URL, all three arrived.
    QStringList got;
    for (const auto& l : launches) {
        ASSERT_EQ(l.arguments.size(), 2);
        EXPECT_EQ(l.arguments.at(0), QStringLiteral("--open"));
        got << l.arguments.at(1);
    }
    got.sort();
    QStringList want = kUrls;
    want.sort();
    EXPECT_EQ(got, want);
}

TEST(Workspace, NoDesktopFileIsFalse) {
    FakeHostApp host;
    EXPECT_FALSE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
    EXPECT_FALSE(Workspace::openURLs(kUrls, QString(), Workspace::LaunchAllowingClassicStartup));
}

TEST(Workspace, ExecThatCannotRunIsFalse) {
    FakeHostApp host;
    host.installDesktopFile(
        kId + QStringLiteral(".desktop"),
        "[Desktop Entry]\nType=Application\nName=Gone\nExec=/nonexistent/corvina-mail %U\n");
    EXPECT_FALSE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
    host.installDesktopFile(kId + QStringLiteral(".desktop"),
                            "[Desktop Entry]\nType=Application\nName=Broken\nExec=mail \"%U\n");
    EXPECT_FALSE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
}

TEST(Workspace, HiddenOrNonApplicationEntriesAreNotInstalledApplications) {
    FakeHostApp host;
    host.installDesktopFile(kId + QStringLiteral(".desktop"),
                            QStringLiteral("[Desktop Entry]\nType=Application\nHidden=true\nExec=%1 %2 %U\n")
                                .arg(FakeHostApp::recorderProgram(), host.recordFile())
                                .toUtf8());
    EXPECT_FALSE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
    host.installDesktopFile(
        kId + QStringLiteral(".desktop"),
        QStringLiteral("[Desktop Entry]\nType=Link\nURL=https://example.org\nExec=%1 %2 %U\n")
            .arg(FakeHostApp::recorderProgram(), host.recordFile())
            .toUtf8());
    EXPECT_FALSE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
    EXPECT_TRUE(host.launches().isEmpty());
}

TEST(Workspace, DBusActivatableAppIsStartedByTheBusAndGetsOneOpenCall) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
    FakeHostApp host;
    host.installDBusService(kId);
    // The service is not running: the bus starts it for the call.
    ASSERT_TRUE(Workspace::openURLs(kUrls, kId, Workspace::LaunchAllowingClassicStartup));
    // The service records before it answers, so the record is complete when the call returns.
    auto launches = host.launches();
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).method, QStringLiteral("Open"));
    EXPECT_EQ(launches.at(0).arguments, kUrls);
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("corvina-launch-options")),
              QStringLiteral("131072"));
    EXPECT_FALSE(launches.at(0).values.value(QStringLiteral("activation-token")).isEmpty());
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("desktop-startup-id")),
              launches.at(0).values.value(QStringLiteral("activation-token")));

    // Now running: a background request reaches the same service without a token.
    ASSERT_TRUE(Workspace::openURLs({kUrls.last()}, kId, Workspace::LaunchWithoutActivation));
    launches = host.launches();
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(1).arguments, QStringList{kUrls.last()});
    EXPECT_EQ(launches.at(1).values.value(QStringLiteral("corvina-launch-options")), QStringLiteral("512"));
    EXPECT_FALSE(launches.at(1).values.contains(QStringLiteral("activation-token")));
    EXPECT_FALSE(launches.at(1).values.contains(QStringLiteral("desktop-startup-id")));
}

TEST(Workspace, DBusActivatableWithoutAServiceIsFalse) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
    FakeHostApp host;
    host.installDesktopFile(QStringLiteral("org.corvina.nothing.desktop"),
                            "[Desktop Entry]\nType=Application\nName=No service\nDBusActivatable=true\n");
    EXPECT_FALSE(Workspace::openURLs(kUrls, QStringLiteral("org.corvina.nothing"),
                                     Workspace::LaunchAllowingClassicStartup));
}

TEST(Workspace, DBusCallThatIsNotAnsweredInTimeIsFalse) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
    FakeHostApp host;
    const QString slow = QStringLiteral("org.corvina.slow");
    host.installDBusService(slow, 3000);
    const int saved = Workspace::callTimeout();
    Workspace::setCallTimeout(300);
    EXPECT_FALSE(Workspace::openURLs(kUrls, slow, Workspace::LaunchAllowingClassicStartup));
    Workspace::setCallTimeout(saved);
}

TEST(Workspace, ObjectPathOfAnIdentifier) {
    EXPECT_EQ(Workspace::objectPathForIdentifier(QStringLiteral("org.corvina.mail")),
              QStringLiteral("/org/corvina/mail"));
    EXPECT_EQ(Workspace::objectPathForIdentifier(QStringLiteral("org.corvina-mail.beta8")),
              QStringLiteral("/org/corvina_mail/beta8"));
}

TEST(Workspace, BackgroundLaunchReturnsAtOnceAndKeepsTheBound) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
    FakeHostApp host;
    const QString slow = QStringLiteral("org.corvina.slower");
    host.installDBusService(slow, 3000);
    const int saved = Workspace::callTimeout();
    Workspace::setCallTimeout(300);
    std::atomic<int> answer{-1};
    Workspace::openURLsInBackground(kUrls, slow, Workspace::LaunchWithoutActivation,
                                    [&answer](bool ok) { answer = ok ? 1 : 0; });
    // Back before the application could have answered, or the call could have timed out.
    EXPECT_EQ(answer.load(), -1);
    ASSERT_TRUE(Workspace::waitForBackgroundLaunches(10000));
    EXPECT_EQ(answer.load(), 0); // not answered within the bound: false, as openURLs says
    Workspace::setCallTimeout(saved);
}

TEST(Workspace, BackgroundLaunchesReachTheApplicationInTheOrderAsked) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
    FakeHostApp host;
    const QString id = QStringLiteral("org.corvina.ordered");
    host.installDBusService(id, 100);
    std::atomic<int> succeeded{0};
    for (const QString& url : kUrls)
        Workspace::openURLsInBackground({url}, id, Workspace::LaunchWithoutActivation,
                                        [&succeeded](bool ok) { succeeded += ok; });
    ASSERT_TRUE(Workspace::waitForBackgroundLaunches(10000));
    EXPECT_EQ(succeeded.load(), 3);
    const auto launches = host.launches();
    ASSERT_EQ(launches.size(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(launches.at(i).arguments, QStringList{kUrls.at(i)}) << i;
}
