// A segmented control as a screen reader sees it: a tab list whose children are its segments.
#include "ui/SegmentedControlAccessible.h"

#include "ui/SegmentAccessible.h"
#include "ui/SegmentedControl.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QTest>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

class SegmentedControlAccessibility : public ::testing::Test {
protected:
    void SetUp() override {
        control.setSegmentCount(3);
        for (int s = 0; s < 3; ++s) {
            control.setLabel(QStringLiteral("Label %1").arg(s), s);
            control.setDescription(QStringLiteral("Describes %1").arg(s), s);
        }
        control.setSelectedSegment(1);
        control.setAccessibleName(QStringLiteral("Lists"));
        control.setAction([this](SegmentedControl* sender) { actions << sender->selectedSegment(); });
        control.setGeometry(10, 10, 240, 20);
        control.show();
    }

    SegmentedControl control;
    QList<int> actions;
};

} // namespace

TEST_F(SegmentedControlAccessibility, IsATabListWithASegmentPerChild) {
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(&control);
    ASSERT_NE(iface, nullptr);
    EXPECT_NE(dynamic_cast<SegmentedControlAccessible*>(iface), nullptr);
    EXPECT_EQ(iface->role(), QAccessible::PageTabList);
    EXPECT_EQ(iface->text(QAccessible::Name), QStringLiteral("Lists"));
    ASSERT_EQ(iface->childCount(), 3);
    for (int s = 0; s < 3; ++s) {
        QAccessibleInterface* segment = iface->child(s);
        ASSERT_NE(segment, nullptr) << s;
        EXPECT_TRUE(segment->isValid());
        EXPECT_EQ(segment->role(), QAccessible::PageTab);
        EXPECT_EQ(segment->text(QAccessible::Name), QStringLiteral("Label %1").arg(s));
        EXPECT_EQ(segment->text(QAccessible::Description), QStringLiteral("Describes %1").arg(s));
        EXPECT_EQ(segment->state().selected, s == 1) << s;
        EXPECT_EQ(segment->parent(), iface);
        EXPECT_EQ(iface->indexOfChild(segment), s);
        EXPECT_EQ(iface->child(s), segment) << "asked again, the same interface";
        // Where it is drawn, on the screen.
        const QRect local = control.segmentRect(s);
        EXPECT_EQ(segment->rect(), QRect(control.mapToGlobal(local.topLeft()), local.size()));
        EXPECT_EQ(iface->childAt(segment->rect().center().x(), segment->rect().center().y()), segment);
    }
    EXPECT_EQ(iface->child(3), nullptr);
    EXPECT_EQ(iface->child(-1), nullptr);
}

TEST_F(SegmentedControlAccessibility, PressingASegmentChoosesItAsAClickDoes) {
    QAccessibleInterface* segment = QAccessible::queryAccessibleInterface(&control)->child(2);
    QAccessibleActionInterface* action = segment->actionInterface();
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->actionNames(), QStringList{QAccessibleActionInterface::pressAction()});
    action->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(control.selectedSegment(), 2);
    EXPECT_EQ(actions, QList<int>{2});
    EXPECT_TRUE(segment->state().selected);
    // The selected one again still sends the action, as a click does.
    action->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(actions, (QList<int>{2, 2}));
    action->doAction(QAccessibleActionInterface::toggleAction());
    EXPECT_EQ(actions.size(), 2);
}

TEST_F(SegmentedControlAccessibility, ChooseFromCodeIsTheClick) {
    control.choose(0);
    EXPECT_EQ(actions, QList<int>{0});
    QTest::mouseClick(&control, Qt::LeftButton, {}, control.segmentRect(2).center());
    EXPECT_EQ(actions, (QList<int>{0, 2}));
    control.choose(3); // no such segment
    control.choose(-1);
    EXPECT_EQ(actions, (QList<int>{0, 2}));
    EXPECT_EQ(control.selectedSegment(), 2);
}

TEST_F(SegmentedControlAccessibility, ASegmentThatWentIsNoLongerValid) {
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(&control);
    QAccessibleInterface* last = iface->child(2);
    control.setSegmentCount(2);
    EXPECT_EQ(iface->childCount(), 2);
    EXPECT_FALSE(last->isValid());
    EXPECT_TRUE(last->text(QAccessible::Name).isEmpty());
    EXPECT_EQ(iface->child(2), nullptr);
    EXPECT_EQ(iface->indexOfChild(last), -1);
}

TEST(SegmentedControlDescriptions, AreKeptPerSegmentAndOnlyForSegmentsThatExist) {
    SegmentedControl control;
    control.setSegmentCount(2);
    control.setDescription(QStringLiteral("second"), 1);
    control.setDescription(QStringLiteral("none"), 2);
    EXPECT_EQ(control.descriptionForSegment(0), QString());
    EXPECT_EQ(control.descriptionForSegment(1), QStringLiteral("second"));
    EXPECT_EQ(control.descriptionForSegment(2), QString());
}
