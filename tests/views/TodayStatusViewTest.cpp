#include "views/TodayStatusView.h"

#include "ui/SystemColors.h"
#include "views/TodayMetrics.h"

#include <QAccessible>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <gtest/gtest.h>

using namespace corvina;

TEST(TodayStatusView, HiddenWhileItHasNothingToSay) {
    TodayStatusView view;
    EXPECT_TRUE(view.isHidden());
    EXPECT_EQ(view.width(), TodayMetrics::width);
    view.setLines({QStringLiteral("No messages")});
    EXPECT_FALSE(view.isHidden());
    EXPECT_EQ(view.text(), QStringLiteral("No messages"));
    view.setLines({});
    EXPECT_TRUE(view.isHidden());
}

TEST(TodayStatusView, EachLineOnItsOwnAndReadToScreenReaders) {
    TodayStatusView view;
    view.setLines({QStringLiteral("No messages"), QStringLiteral("As of 10:42: login refused for ada")});
    const QLabel* label = view.findChild<QLabel*>();
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->text(), QStringLiteral("No messages\nAs of 10:42: login refused for ada"));
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(const_cast<QLabel*>(label));
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->text(QAccessible::Name), label->text());
}

TEST(TodayStatusView, ALongLineWrapsInsideTheWidgetsWidth) {
    TodayStatusView view;
    view.setLines(
        {QStringLiteral("No shared folder: is the mail application (or corvina-mail-bridge) running?")});
    view.adjustSize();
    const QLabel* label = view.findChild<QLabel*>();
    ASSERT_NE(label, nullptr);
    EXPECT_LE(label->geometry().right(), TodayMetrics::width);
    // More than one line high: wrapped, not cut.
    EXPECT_GT(label->height(), label->fontMetrics().height() * 3 / 2);
}

TEST(TodayStatusView, ItsTextTakesTheAppearancesColour) {
    TodayStatusView view;
    const QLabel* label = view.findChild<QLabel*>();
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->palette().color(QPalette::WindowText), SystemColors::secondaryLabelColor());
    SystemColors::setAppearance(SystemColors::Appearance::Light);
    view.applyColors();
    EXPECT_EQ(label->palette().color(QPalette::WindowText), QColor(0, 0, 0, 140));
    SystemColors::setAppearance(SystemColors::Appearance::Dark);
    view.applyColors();
    EXPECT_EQ(label->palette().color(QPalette::WindowText), QColor(255, 255, 255, 140));
}

// Under the lines of an empty or failing list: "Add your mail account…", a link to the Accounts
// window that the keyboard reaches and screen readers name.
TEST(TodayStatusViewAccounts, TheLinkShowsWithTheLinesAndHasAName) {
    TodayStatusView view;
    QLabel* link = view.accountsLink();
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link->accessibleName(), QStringLiteral("Add your mail account…"));
    EXPECT_TRUE(link->text().contains(QStringLiteral(">Add your mail account…</a>")))
        << link->text().toStdString();
    view.setLines({QStringLiteral("No messages")});
    view.show();
    EXPECT_TRUE(link->isVisible());
    // The lines read as before: the link is not one of them.
    EXPECT_EQ(view.text(), QStringLiteral("No messages"));
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(link);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->text(QAccessible::Name), QStringLiteral("Add your mail account…"));
    view.setLines({});
    EXPECT_FALSE(link->isVisible());
}

TEST(TodayStatusViewAccounts, TheKeyboardReachesAndFollowsTheLink) {
    QWidget window;
    auto* before = new QLineEdit(&window);
    auto* view = new TodayStatusView(&window);
    view->move(0, 40);
    view->setLines({QStringLiteral("No messages")});
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    int asked = 0;
    QObject::connect(view, &TodayStatusView::accountsRequested, [&] { ++asked; });
    before->setFocus(Qt::OtherFocusReason);
    ASSERT_TRUE(QTest::qWaitFor([&] { return before->hasFocus(); }, 5000));
    QTest::keyClick(before, Qt::Key_Tab);
    EXPECT_TRUE(view->accountsLink()->hasFocus());
    // One Tab selects the link itself (drawn so), and Enter follows it.
    QCoreApplication::processEvents();
    QTest::keyClick(view->accountsLink(), Qt::Key_Return);
    EXPECT_EQ(asked, 1);
    // Space too, as on a button.
    QTest::keyClick(view->accountsLink(), Qt::Key_Space);
    EXPECT_EQ(asked, 2);
    // The next Tab leaves it.
    QTest::keyClick(view->accountsLink(), Qt::Key_Tab);
    EXPECT_FALSE(view->accountsLink()->hasFocus());
}

TEST(TodayStatusViewAccounts, TheLinkIsDrawnInThePanelsTextColourInBothAppearances) {
    TodayStatusView view;
    view.setLines({QStringLiteral("No messages")});
    view.show();
    for (const SystemColors::Appearance appearance :
         {SystemColors::Appearance::Light, SystemColors::Appearance::Dark}) {
        SystemColors::setAppearance(appearance);
        view.applyColors();
        QLabel* link = view.accountsLink();
        // Drawn on a panel of the appearance's colour, as the window does.
        QImage image(link->size(), QImage::Format_ARGB32);
        image.fill(SystemColors::panelBackground());
        link->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        const QColor wanted = SystemColors::labelColor();
        int ink = 0;
        int blue = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                if (c == SystemColors::panelBackground())
                    continue;
                ++ink;
                // The style's link blue would have far more blue than red: the label colour is grey.
                blue += c.blue() - c.red() > 40;
            }
        }
        EXPECT_GT(ink, 50) << "nothing drawn";
        EXPECT_EQ(blue, 0) << "a blue link, unreadable on the dark panel";
        EXPECT_TRUE(link->text().contains(
            QStringLiteral("rgba(%1, %2, %3, ").arg(wanted.red()).arg(wanted.green()).arg(wanted.blue())))
            << link->text().toStdString();
    }
}
