#include "views/TodayStatusView.h"

#include "ui/SystemColors.h"
#include "views/TodayMetrics.h"

#include <QAccessible>
#include <QLabel>
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
