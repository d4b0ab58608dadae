// The widget's own ways to the Accounts window, in the real program on an X server (Xvfb) with a
// real pointer and keyboard (xdotool): "Accounts…" in the header's context menu, and the link "Add
// your mail account…" under an empty list. corvina-today is copied into a folder of the test's
// own beside a stand-in corvina-accounts (a script that leaves a mark), which it finds there first.
#include "support/TempContainer.h"
#include "support/Wait.h"
#include "support/XServer.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using corvina::test::TempContainer;
using corvina::test::waitFor;
using corvina::test::XServer;

namespace {

const QString kEntryAccount = QStringLiteral("ann@example.org");
// Bounds for a machine kept busy: each wait ends as soon as what it waits for is there.
constexpr int kEntryWaitMs = 20000;

class AccountsEntryProgram : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(x.start()) << "Xvfb could not be started";
        ASSERT_TRUE(QFile::copy(QStringLiteral(CORVINA_TODAY_BINARY),
                                programs.filePath(QStringLiteral("corvina-today"))));
        // the program shows its widget from the window's half beside it
        ASSERT_TRUE(QFile::copy(QStringLiteral(CORVINA_TODAY_WINDOW),
                                programs.filePath(QStringLiteral("corvina-today-window.so"))));
        // The stand-in for the Accounts window.
        QFile script(programs.filePath(QStringLiteral("corvina-accounts")));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho started \"$@\" >> '" + QFile::encodeName(marker()) + "'\n");
        script.close();
        ASSERT_TRUE(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

        // No messages: the words for the empty list, and the link under them.
        container.writeAccounts({TempContainer::account(kEntryAccount)});
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), x.display());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        env.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
        env.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
        widget.setProcessEnvironment(env);
        widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        widget.start(programs.filePath(QStringLiteral("corvina-today")),
                     {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                      QStringLiteral("3600")});
        ASSERT_TRUE(widget.waitForStarted(5000));
        windowId = x.findWindow(QStringLiteral("Corvina Today"));
        ASSERT_FALSE(windowId.isEmpty()) << "the widget's window did not appear";
    }
    void TearDown() override {
        if (widget.state() != QProcess::NotRunning) {
            widget.terminate();
            widget.waitForFinished(5000);
        }
    }

    QString marker() const { return programs.filePath(QStringLiteral("marker")); }
    bool started() const { return QFile::exists(marker()); }
    int windowHeight() const {
        const QString shell =
            x.xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), windowId});
        for (const QString& line : shell.split(u'\n')) {
            if (line.startsWith(QLatin1String("HEIGHT=")))
                return line.mid(7).toInt();
        }
        return -1;
    }

    XServer x;
    QTemporaryDir programs;
    TempContainer container;
    QTemporaryDir config;
    QTemporaryDir state;
    QProcess widget;
    QString windowId;
};

TEST_F(AccountsEntryProgram, TheHeadersMenuStartsTheAccountsWindow) {
    // A right click on the list selector, then the menu's only entry by the keyboard.
    x.xdotool({QStringLiteral("mousemove"), QStringLiteral("--window"), windowId, QStringLiteral("160"),
               QStringLiteral("10"), QStringLiteral("click"), QStringLiteral("3")});
    // The menu is a window of its own, beside the widget's.
    const auto visibleWindows = [&] {
        return x
            .xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--class"),
                      QStringLiteral("corvina-today")})
            .split(u'\n', Qt::SkipEmptyParts)
            .size();
    };
    ASSERT_TRUE(waitFor([&] { return visibleWindows() >= 2; }, kEntryWaitMs)) << "no menu appeared";
    x.xdotool({QStringLiteral("key"), QStringLiteral("Down"), QStringLiteral("Return")});
    EXPECT_TRUE(waitFor([&] { return started(); }, kEntryWaitMs)) << "corvina-accounts was not started";
    // A left click on the header still only picks a list.
    QFile::remove(marker());
    x.click(windowId, 280, 10);
    EXPECT_FALSE(waitFor([&] { return started(); }, 1000));
}

TEST_F(AccountsEntryProgram, TheLinkUnderAnEmptyListStartsTheAccountsWindow) {
    // The empty list's words, then the link: the window grows by them once the list is read.
    ASSERT_TRUE(waitFor([&] { return windowHeight() > 35 + 8 + 10 + 10 + 12; }, kEntryWaitMs))
        << "no link under the empty list: " << windowHeight();
    // The link's line is the last, above the 12 of margin: click its first word.
    x.click(windowId, 60, windowHeight() - 12 - 8);
    EXPECT_TRUE(waitFor([&] { return started(); }, kEntryWaitMs)) << "corvina-accounts was not started";
}

} // namespace
