// A table as a screen reader sees it, through Qt's accessibility interfaces: a list of its rows,
// each row an item named as its cell with the cell's buttons as children in the order they are
// drawn, and the focus told on the row the keys move to.
#include "ui/TableViewAccessible.h"

#include "ui/ImageButton.h"
#include "ui/TableView.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QTest>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

namespace {

constexpr int kAccessibleRowHeight = 40;

// A cell like the widget's: its buttons made in another order than they are drawn (Archive,
// Delete, Reply, drawn Reply, Archive, Delete), inside a view of their own.
class AccessibleRows : public TableViewDataSource, public TableViewDelegate {
public:
    qint64 count = 4;
    QList<QPair<qint64, QString>> clicks;

    qint64 numberOfRowsInTableView(TableView*) override { return count; }
    QWidget* viewForTableColumn(TableView* table, TableColumn*, qint64 row) override {
        auto* cell = new QWidget;
        cell->resize(table->width(), kAccessibleRowHeight);
        cell->setAccessibleName(QStringLiteral("row %1").arg(row));
        cell->setAccessibleDescription(QStringLiteral("about row %1").arg(row));
        auto* inner = new QWidget(cell);
        inner->setGeometry(0, 0, table->width(), kAccessibleRowHeight);
        const QList<QPair<QString, int>> buttons{{"Archive", 128}, {"Delete", 156}, {"Reply", 100}};
        for (const auto& [name, x] : buttons) {
            auto* button = new ImageButton(inner);
            button->setGeometry(x, 10, 20, 20);
            button->setAccessibleName(name);
            button->setAction([this, row, name = name](ImageButton*) { clicks << qMakePair(row, name); });
        }
        // Hidden: not part of what a screen reader hears.
        auto* hidden = new ImageButton(inner);
        hidden->setGeometry(10, 10, 20, 20);
        hidden->setAccessibleName(QStringLiteral("Hidden"));
        hidden->hide();
        return cell;
    }
};

class TableViewAccessibility : public ::testing::Test {
protected:
    void SetUp() override {
        window.resize(200, 240);
        table = new TableView(QRect(0, 0, 200, 200), &window);
        table->setAccessibleName(QStringLiteral("Messages"));
        table->setRowHeight(kAccessibleRowHeight);
        table->setIntercellSpacing(QSizeF(0, 0));
        table->setDataSource(&rows);
        table->setDelegate(&rows);
        table->reloadData();
        window.show();
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
        list = QAccessible::queryAccessibleInterface(table);
        ASSERT_NE(list, nullptr);
    }

    void press(Qt::Key key) { QTest::keyClick(window.windowHandle(), key); }

    AccessibleRows rows;
    QWidget window;
    TableView* table = nullptr;
    QAccessibleInterface* list = nullptr;
};

} // namespace

TEST_F(TableViewAccessibility, IsAListOfItsRows) {
    EXPECT_NE(dynamic_cast<TableViewAccessible*>(list), nullptr);
    EXPECT_EQ(list->role(), QAccessible::List);
    EXPECT_EQ(list->text(QAccessible::Name), QStringLiteral("Messages"));
    // The table's header row (it has one here) is not an item of the list.
    ASSERT_NE(table->headerView(), nullptr);
    ASSERT_EQ(list->childCount(), 4);
    for (int i = 0; i < 4; ++i) {
        QAccessibleInterface* item = list->child(i);
        ASSERT_NE(item, nullptr) << i;
        EXPECT_EQ(item->object(), table->rowViewAtRow(i));
        EXPECT_EQ(item->role(), QAccessible::ListItem);
        EXPECT_EQ(item->text(QAccessible::Name), QStringLiteral("row %1").arg(i));
        EXPECT_EQ(item->text(QAccessible::Description), QStringLiteral("about row %1").arg(i));
        EXPECT_EQ(item->parent(), list);
        EXPECT_EQ(list->indexOfChild(item), i);
        const QRect rect = item->rect();
        EXPECT_EQ(list->childAt(rect.center().x(), rect.center().y()), item);
    }
    EXPECT_EQ(list->child(4), nullptr);
    EXPECT_EQ(list->child(-1), nullptr);
}

TEST_F(TableViewAccessibility, ARowReadsWhatItsCellSaysNow) {
    // A cell whose texts change after the table took it (a message marked new, say) is read anew.
    QWidget* cell = table->viewAtColumn(0, 1);
    cell->setAccessibleName(QStringLiteral("row 1, new"));
    cell->setAccessibleDescription(QStringLiteral("about row 1, new"));
    EXPECT_EQ(list->child(1)->text(QAccessible::Name), QStringLiteral("row 1, new"));
    EXPECT_EQ(list->child(1)->text(QAccessible::Description), QStringLiteral("about row 1, new"));
}

TEST_F(TableViewAccessibility, ARowsButtonsComeInTheOrderTheyAreDrawn) {
    QAccessibleInterface* item = list->child(2);
    ASSERT_EQ(item->childCount(), 3);
    QStringList names;
    for (int b = 0; b < 3; ++b) {
        QAccessibleInterface* button = item->child(b);
        ASSERT_NE(button, nullptr);
        EXPECT_EQ(button->role(), QAccessible::Button);
        names << button->text(QAccessible::Name);
        // Up from a button leads to the row, where down from the row led.
        EXPECT_EQ(button->parent(), item);
        EXPECT_EQ(item->indexOfChild(button), b);
        EXPECT_EQ(item->childAt(button->rect().center().x(), button->rect().center().y()), button);
    }
    EXPECT_EQ(names, (QStringList{"Reply", "Archive", "Delete"}));
    EXPECT_EQ(item->child(3), nullptr);
}

TEST_F(TableViewAccessibility, PressingAButtonIsAClickOnIt) {
    QAccessibleInterface* archive = list->child(1)->child(1);
    ASSERT_NE(archive, nullptr);
    QAccessibleActionInterface* action = archive->actionInterface();
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->actionNames().value(0), QAccessibleActionInterface::pressAction());
    action->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(rows.clicks, (QList<QPair<qint64, QString>>{{1, QStringLiteral("Archive")}}));
    // A disabled button (a row on its way out) takes no press, as it takes no click.
    QWidget* button = qobject_cast<QWidget*>(archive->object());
    button->setEnabled(false);
    action->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(rows.clicks.size(), 1);
    EXPECT_TRUE(archive->state().disabled);
}

TEST_F(TableViewAccessibility, ARemovedRowIsNoLongerAnItemWhileItSlidesOut) {
    QAccessibleInterface* leaving = list->child(1);
    table->removeRowsAtIndexes({1}, TableView::AnimationSlideLeft);
    ASSERT_TRUE(table->isAnimating());
    ASSERT_EQ(list->childCount(), 3);
    EXPECT_EQ(list->child(1)->text(QAccessible::Name), QStringLiteral("row 2"));
    EXPECT_EQ(list->indexOfChild(leaving), -1);
}

// The focus events themselves go out only while a screen reader listens, which an offscreen test
// cannot have: ScreenReaderProgram (tests/e2e) hears them through AT-SPI. Here, what a screen
// reader asks when it gets one.
TEST_F(TableViewAccessibility, TheRowTheKeysMoveToIsTheFocusedOne) {
    ASSERT_TRUE(table->hasFocus());
    EXPECT_EQ(list->focusChild(), nullptr) << "no current row yet";
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    press(Qt::Key_Up);
    EXPECT_EQ(list->focusChild(), list->child(0));
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(list->child(i)->state().focusable) << i;
        EXPECT_EQ(list->child(i)->state().focused, i == 0) << i;
    }
    press(Qt::Key_End);
    EXPECT_EQ(list->focusChild(), list->child(3));
    EXPECT_TRUE(list->child(3)->state().focused);
    EXPECT_FALSE(list->child(0)->state().focused);
    // Without the focus, no row has it.
    QWidget other(&window);
    other.setFocusPolicy(Qt::StrongFocus);
    other.show();
    other.setFocus(Qt::OtherFocusReason);
    EXPECT_EQ(list->focusChild(), nullptr);
    EXPECT_FALSE(list->child(3)->state().focused);
    table->setFocus(Qt::TabFocusReason);
    EXPECT_TRUE(list->child(3)->state().focused);
}

TEST_F(TableViewAccessibility, ASelectedRowSaysSo) {
    QTest::mouseClick(table, Qt::LeftButton, {}, table->rectOfRow(3).center());
    EXPECT_TRUE(list->child(3)->state().selected);
    EXPECT_TRUE(list->child(3)->state().selectable);
    EXPECT_FALSE(list->child(2)->state().selected);
}
