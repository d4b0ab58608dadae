#include "widget/TrayIcon.h"

#include "platform/Localization.h"
#include "platform/UserDefaults.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "widget/MailNotifier.h"
#include "widget/NewMailTracker.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QWidget>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::TempContainer;

namespace {

const QString kTrayAccount = QStringLiteral("ann@example.org");

ExtensionMessagePtr trayMessage(const QString& id, const QString& from, qint64 folder = 1) {
    QVariantMap m = TempContainer::message(id, kTrayAccount, 1795000000, folder);
    m.insert(QStringLiteral("from"), from);
    return ExtensionMessage::initWithDictonary(m);
}

ExtensionMessageList trayMessages(const QStringList& ids) {
    ExtensionMessageList out;
    for (const QString& id : ids)
        out << trayMessage(id, QStringLiteral("Sender ") + id);
    return out;
}

class TrayIconTest : public ::testing::Test {
protected:
    test::ScopedSettings settings;
    NewMailTracker tracker;
    QWidget window;
};

} // namespace

TEST_F(TrayIconTest, TheCountAndTheNewestSendersOfTheInbox) {
    TrayIcon tray(&tracker, &window);
    tracker.update(trayMessages({"m0", "m1"}));
    EXPECT_EQ(tray.count(), 0);
    EXPECT_EQ(tray.toolTip(), QStringLiteral("No new mail"));
    const QImage none = tray.icon().pixmap(32, 32).toImage();

    tracker.update(trayMessages({"n1", "n2", "m0", "m1"}));
    EXPECT_EQ(tray.count(), 2);
    EXPECT_EQ(tray.toolTip(), QStringLiteral("2 new messages\nSender n1\nSender n2"));
    // The icon carries the count.
    EXPECT_NE(tray.icon().pixmap(32, 32).toImage(), none);
    EXPECT_EQ(tray.icon().pixmap(32, 32).toImage(), TrayIcon::iconForCount(2).pixmap(32, 32).toImage());
    EXPECT_NE(TrayIcon::iconForCount(2).pixmap(32, 32).toImage(),
              TrayIcon::iconForCount(3).pixmap(32, 32).toImage());

    // At most three senders, newest first, each once; another list's message does not count.
    tracker.update(ExtensionMessageList{trayMessage("n5", QStringLiteral("Dora")),
                                        trayMessage("n4", QStringLiteral("Carl")),
                                        trayMessage("n3", QStringLiteral("Carl")),
                                        trayMessage("t1", QStringLiteral("Eve"), 11),
                                        trayMessage("n6", QStringLiteral("Bea"))} +
                   trayMessages({"n1", "n2", "m0", "m1"}));
    EXPECT_EQ(tray.count(), 6);
    EXPECT_EQ(tray.toolTip(), QStringLiteral("6 new messages\nDora\nCarl\nBea"));
}

TEST_F(TrayIconTest, OpeningTheWindowClearsTheCountAndAClickToggles) {
    TrayIcon tray(&tracker, &window);
    tracker.watchWindow(&window);
    tracker.update(trayMessages({"m0"}));
    tracker.update(trayMessages({"n1", "n2", "m0"}));
    ASSERT_EQ(tray.count(), 2);
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(tray.toggleAction()->text(), QStringLiteral("Show the list"));

    tray.toggleWindow();
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(tray.count(), 0);
    EXPECT_EQ(tray.toolTip(), QStringLiteral("No new mail"));
    EXPECT_EQ(tray.toggleAction()->text(), QStringLiteral("Hide the list"));

    tray.toggleAction()->trigger();
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(tray.toggleAction()->text(), QStringLiteral("Show the list"));
    // Still 0 after the window went: those two were seen.
    tracker.update(trayMessages({"n1", "n2", "m0"}));
    EXPECT_EQ(tray.count(), 0);
    tracker.update(trayMessages({"n3", "n1", "n2", "m0"}));
    EXPECT_EQ(tray.count(), 1);
}

TEST_F(TrayIconTest, TheMenuTurnsNotificationsOffAndOn) {
    TrayIcon tray(&tracker, &window);
    ASSERT_NE(tray.menu(), nullptr);
    const QList<QAction*> actions = tray.menu()->actions();
    ASSERT_EQ(actions.size(), 5);
    EXPECT_EQ(actions.at(0), tray.toggleAction());
    EXPECT_EQ(actions.at(1), tray.notificationsAction());
    EXPECT_EQ(actions.at(2), tray.accountsAction());
    EXPECT_EQ(tray.accountsAction()->text(), QStringLiteral("Accounts…"));
    EXPECT_TRUE(actions.at(3)->isSeparator());
    EXPECT_EQ(actions.at(4), tray.quitAction());
    EXPECT_EQ(tray.quitAction()->text(), QStringLiteral("Quit"));

    EXPECT_TRUE(tray.notificationsAction()->isCheckable());
    EXPECT_TRUE(tray.notificationsAction()->isChecked());
    tray.notificationsAction()->trigger();
    EXPECT_FALSE(MailNotifier::isEnabled());
    EXPECT_EQ(UserDefaults::valueForKey(MailNotifier::enabledKey).toBool(), false);
    // Changed in the settings file meanwhile: the menu shows the setting when it opens.
    MailNotifier::setEnabled(true);
    emit tray.menu()->aboutToShow();
    EXPECT_TRUE(tray.notificationsAction()->isChecked());
    // The tray's own icon object has the menu and the icon.
    EXPECT_EQ(tray.systemTrayIcon()->contextMenu(), tray.menu());
    EXPECT_FALSE(tray.systemTrayIcon()->icon().isNull());
}

TEST_F(TrayIconTest, APictureOfThePanelWithTheMenuOpen) {
    TrayIcon tray(&tracker, &window);
    tracker.update(trayMessages({"m0"}));
    tracker.update(trayMessages({"n1", "n2", "m0"}));
    const QImage picture = tray.picture();
    ASSERT_FALSE(picture.isNull());
    const QSize menu = tray.menu()->sizeHint();
    EXPECT_GE(picture.width(), menu.width());
    EXPECT_GE(picture.height(), 32 + menu.height());
    // The count's badge is red, in the icon near the panel's right end.
    int red = 0;
    for (int y = 0; y < 32; ++y)
        for (int x = picture.width() - 48; x < picture.width(); ++x) {
            const QColor c = picture.pixelColor(x, y);
            red += c.red() > 180 && c.green() < 90 && c.blue() < 90;
        }
    EXPECT_GT(red, 10);
}

TEST_F(TrayIconTest, TextsInTheUsersLanguage) {
    const QLocale before = Localization::locale();
    Localization::setLocale(QLocale(QLocale::German, QLocale::Germany));
    {
        TrayIcon tray(&tracker, &window);
        tracker.update(trayMessages({"m0"}));
        tracker.update(trayMessages({"n1", "n2", "m0"}));
        EXPECT_EQ(tray.toolTip(), QStringLiteral("2 neue Nachrichten\nSender n1\nSender n2"));
        EXPECT_EQ(tray.toggleAction()->text(), QStringLiteral("Liste zeigen"));
        EXPECT_EQ(tray.quitAction()->text(), QStringLiteral("Beenden"));
        EXPECT_EQ(tray.accountsAction()->text(), QStringLiteral("Konten…"));
    }
    Localization::setLocale(QLocale(QLocale::French, QLocale::France));
    {
        TrayIcon tray(&tracker, &window);
        EXPECT_EQ(tray.toolTip(), QStringLiteral("2 nouveaux messages\nSender n1\nSender n2"));
        EXPECT_EQ(tray.notificationsAction()->text(), QStringLiteral("Notifier les nouveaux messages"));
        EXPECT_EQ(tray.accountsAction()->text(), QStringLiteral("Comptes…"));
    }
    Localization::setLocale(before);
}
