// The Accounts window's combo boxes chosen through the accessibility interface, in-process
// (offscreen): an item selected in the combo's list, as AT-SPI's Toggle action on the item does
// for a screen reader, becomes the combo's choice while the popup is closed.
#include "accounts/ChoiceBox.h"

#include "accounts/SecurityBox.h"

#include <QAbstractItemView>
#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QSignalSpy>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

// What a screen reader's "select this item" does: the item's Toggle action, found through the
// combo's accessible list as AT-SPI shows it.
bool toggleItem(QComboBox& box, int row) {
    QAccessibleInterface* combo = QAccessible::queryAccessibleInterface(&box);
    if (combo == nullptr)
        return false;
    for (int i = 0; i < combo->childCount(); ++i) {
        QAccessibleInterface* list = combo->child(i);
        if (list == nullptr || list->role() != QAccessible::List || row >= list->childCount())
            continue;
        QAccessibleInterface* item = list->child(row);
        if (item == nullptr || item->actionInterface() == nullptr)
            return false;
        item->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        return true;
    }
    return false;
}

TEST(ChoiceBoxTest, AnItemSelectedThroughTheAccessibleListBecomesTheChoice) {
    SecurityBox box;
    box.show();
    ASSERT_EQ(box.security(), QStringLiteral("tls"));
    QSignalSpy changed(&box, &QComboBox::currentIndexChanged);
    ASSERT_TRUE(toggleItem(box, 2));
    EXPECT_EQ(box.security(), QStringLiteral("none"));
    EXPECT_EQ(changed.count(), 1);
    // The accessible name a screen reader gets on Linux is the choice itself (the label names the
    // box through its relation).
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&box)->text(QAccessible::Name), box.currentText());
}

TEST(ChoiceBoxTest, TogglingTheChosenItemAgainKeepsTheChoice) {
    ChoiceBox box;
    box.addItems({QStringLiteral("INBOX"), QStringLiteral("To Do"), QStringLiteral("Tasks")});
    box.show();
    ASSERT_TRUE(toggleItem(box, 1));
    ASSERT_EQ(box.currentText(), QStringLiteral("To Do"));
    // A second Toggle unselects the item in the list; a combo always has a choice, so it stays.
    ASSERT_TRUE(toggleItem(box, 1));
    EXPECT_EQ(box.currentText(), QStringLiteral("To Do"));
}

TEST(ChoiceBoxTest, BrowsingTheOpenPopupChoosesNothingUntilEnter) {
    ChoiceBox box;
    box.addItems({QStringLiteral("INBOX"), QStringLiteral("To Do"), QStringLiteral("Tasks")});
    box.show();
    box.showPopup();
    ASSERT_TRUE(box.view()->isVisible());
    box.view()->selectionModel()->setCurrentIndex(box.model()->index(2, 0),
                                                  QItemSelectionModel::ClearAndSelect);
    EXPECT_EQ(box.currentIndex(), 0) << "the open popup's selection follows the keys, it does not choose";
    box.hidePopup();
    EXPECT_EQ(box.currentIndex(), 0);
}

} // namespace
} // namespace corvina::test
