// The corvina-today widget as a person runs it: a real X server (Xvfb), the real program, real
// mouse and keyboard input (xdotool), a stand-in mail application that records what it is sent.
#include "shared/ConstVars.h"
#include "support/FakeHostApp.h"
#include "support/TempContainer.h"
#include "support/Wait.h"
#include "support/XServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <gtest/gtest.h>

using corvina::test::FakeHostApp;
using corvina::test::TempContainer;
using corvina::test::waitFor;
using corvina::test::XServer;

namespace {

const QString kAccount = QStringLiteral("ann@example.org");
// Where the widget's parts are inside its window: the header and the gap at the window's top edge,
// then rows of 60 (the archive button of a row at x 252..272, y 30..50 of the row).
constexpr int kTableTop = 30 + 5;
constexpr int kRowHeight = 60;
const QColor kPanel(0x24, 0x26, 0x2b);

QVariantList messages(const QStringList& ids) {
    return TempContainer::inboxMessages(kAccount, ids);
}

// Pixels of a window row (inside its text area) that are neither the panel's colour nor the black
// of the screen around the window: the row's text and pictures.
int inkInRow(const QImage& screen, QPoint window, int row) {
    int ink = 0;
    const int top = window.y() + kTableTop + row * kRowHeight;
    for (int y = top + 6; y < top + kRowHeight - 4; ++y)
        for (int x = window.x() + 60; x < window.x() + 220; ++x)
            ink += screen.valid(x, y) && screen.pixelColor(x, y) != kPanel &&
                   screen.pixelColor(x, y) != QColor(Qt::black);
    return ink;
}

class WidgetProgram : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(x.start()) << "Xvfb could not be started";
        container.writeAccounts({TempContainer::account(kAccount)});
        container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"),
                                messages({QStringLiteral("m0"), QStringLiteral("m1"), QStringLiteral("m2")}));
        host.installRecorder(QStringLiteral("org.corvina.mail"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), x.display());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        widget.setProcessEnvironment(env);
        widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                     {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                      QStringLiteral("3600")});
        ASSERT_TRUE(widget.waitForStarted(5000));
        windowId = x.findWindow(QStringLiteral("Corvina Today"));
        ASSERT_FALSE(windowId.isEmpty()) << "the widget's window did not appear";
        origin = x.windowOrigin(windowId);
        ASSERT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 2) > 50; }, 10000, 50))
            << "the rows were not drawn";
    }

    void TearDown() override {
        if (widget.state() != QProcess::NotRunning) {
            widget.terminate();
            widget.waitForFinished(3000);
        }
    }

    XServer x;
    TempContainer container;
    FakeHostApp host;
    QTemporaryDir config;
    QProcess widget;
    QString windowId;
    QPoint origin;
};

} // namespace

TEST_F(WidgetProgram, ArchiveButtonSendsTheCommandAndTheRowLeaves) {
    EXPECT_GT(inkInRow(x.screen(), origin, 0), 50);
    // The first row's archive button.
    x.click(windowId, 262, kTableTop + 40);
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=m0&folderstandardid=1")});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    // Two rows remain, moved up; the third row's place stays, empty, until the next reload.
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 2) == 0; }, 5000, 50));
    EXPECT_GT(inkInRow(x.screen(), origin, 0), 50);
    EXPECT_GT(inkInRow(x.screen(), origin, 1), 50);
}

TEST_F(WidgetProgram, FollowsTheMailAppsFilesAndClosesWithEscape) {
    EXPECT_EQ(inkInRow(x.screen(), origin, 3), 0);
    // The mail application replaces its snapshot the way it is meant to (a new file renamed over
    // the old): the widget shows it without waiting for its hourly update.
    container.writeSnapshot(
        kAccount, QStringLiteral(".inbox.plist.new"),
        messages({QStringLiteral("new"), QStringLiteral("m0"), QStringLiteral("m1"), QStringLiteral("m2")}));
    const QString folder = container.data() + "/" + corvina::ConstVars::todayFolder + "/" + kAccount;
    ASSERT_EQ(std::rename(QFile::encodeName(folder + QStringLiteral("/.inbox.plist.new")).constData(),
                          QFile::encodeName(folder + QStringLiteral("/inbox.plist")).constData()),
              0);
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 3) > 50; }, 5000, 50));

    x.xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), windowId});
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), windowId, QStringLiteral("Escape")});
    ASSERT_TRUE(widget.waitForFinished(5000)) << "Escape did not close the widget";
    EXPECT_EQ(widget.exitCode(), 0);
    // The window's place is kept for the next start.
    const QSettings settings(config.filePath(QStringLiteral("corvina/org.corvina.mail.today.conf")),
                             QSettings::IniFormat);
    EXPECT_TRUE(settings.value(QStringLiteral("window/position")).isValid());
}

TEST_F(WidgetProgram, TheKeyboardAloneOpensAndArchivesARow) {
    x.xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), windowId});
    // Down twice: the second row is current, and nothing is sent for moving there.
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), windowId, QStringLiteral("Down"),
               QStringLiteral("Down")});
    EXPECT_TRUE(host.waitForLaunches(1, 500).isEmpty());
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), windowId, QStringLiteral("Return")});
    auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(
        launches.at(0).arguments,
        QStringList{QStringLiteral("corvina://open?mail=ann%40example.org&messageid=m1&folderstandardid=1")});
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), windowId, QStringLiteral("a")});
    launches = host.waitForLaunches(2);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(1).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=m1&folderstandardid=1")});
    // The row left: two rows remain, the third row's place is empty until the next reload.
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 2) == 0; }, 5000, 50));
    EXPECT_GT(inkInRow(x.screen(), origin, 1), 50);
    // "2" picks the To Do list, where none of these inbox messages is: no rows.
    x.xdotool({QStringLiteral("key"), QStringLiteral("--window"), windowId, QStringLiteral("2")});
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 0) == 0; }, 5000, 50));
    EXPECT_EQ(host.launches().size(), 2);
}

// The widget started before the mail application ever made its shared folder: the folder is seen
// as soon as it is made (the folder above it is watched), not at the next periodic update, which
// here is an hour away.
TEST(WidgetProgramWithoutSharedFolder, SeesTheSharedFolderMadeAfterItStarted) {
    XServer x;
    ASSERT_TRUE(x.start()) << "Xvfb could not be started";
    QTemporaryDir base;
    QTemporaryDir config;
    const QString group = base.path() + QStringLiteral("/later/group");
    QProcess widget;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), x.display());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    widget.setProcessEnvironment(env);
    widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    widget.start(
        QStringLiteral(CORVINA_TODAY_BINARY),
        {QStringLiteral("--container"), group, QStringLiteral("--interval"), QStringLiteral("3600")});
    ASSERT_TRUE(widget.waitForStarted(5000));
    const QString windowId = x.findWindow(QStringLiteral("Corvina Today"));
    ASSERT_FALSE(windowId.isEmpty()) << "the widget's window did not appear";
    const QPoint origin = x.windowOrigin(windowId);
    // Let the first (empty) update finish before the folder comes: no rows, only the words saying
    // that there is no shared folder (two lines, above where the second row will be).
    QThread::msleep(500);
    EXPECT_GT(inkInRow(x.screen(), origin, 0), 50) << "the missing folder was not said in words";
    EXPECT_EQ(inkInRow(x.screen(), origin, 1), 0);

    // The mail application makes the whole shared folder at once: made aside, then moved in place.
    {
        TempContainer made;
        made.writeAccounts({TempContainer::account(kAccount)});
        made.writeSnapshot(kAccount, QStringLiteral("inbox.plist"),
                           messages({QStringLiteral("m0"), QStringLiteral("m1")}));
        ASSERT_TRUE(QDir().mkpath(base.path() + QStringLiteral("/later")));
        ASSERT_EQ(
            std::rename(QFile::encodeName(made.root()).constData(), QFile::encodeName(group).constData()), 0);
    }
    // The folder "later" appeared under the watched base first, then "group" in it: both steps are
    // followed, within a second of the second.
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 1) > 50; }, 1500, 50))
        << "the shared folder made after the start was not seen";
    widget.terminate();
    widget.waitForFinished(3000);
}
