// The table's keyboard: a current row of its own that the arrow keys move without selecting, and
// Enter, which selects it as a click does.
#include "support/WidgetTesting.h"
#include "ui/TableView.h"

#include <QAccessible>
#include <QApplication>
#include <QTest>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

namespace {

constexpr int kRowHeight = 40;

class Rows : public TableViewDataSource, public TableViewDelegate {
public:
    qint64 count = 4;
    int selectionChanges = 0;
    qint64 numberOfRowsInTableView(TableView*) override { return count; }
    QWidget* viewForTableColumn(TableView* table, TableColumn*, qint64 row) override {
        auto* cell = new QWidget;
        cell->resize(table->width(), int(table->rowHeight()));
        cell->setAccessibleName(QStringLiteral("row %1").arg(row));
        cell->setAccessibleDescription(QStringLiteral("about row %1").arg(row));
        return cell;
    }
    void tableViewSelectionDidChange() override { ++selectionChanges; }
};

class TableViewKeys : public ::testing::Test {
protected:
    void SetUp() override {
        window.resize(200, 240);
        table = new TableView(QRect(0, 0, 200, 240), &window);
        table->setHeaderView(nullptr);
        table->setRowHeight(kRowHeight);
        table->setIntercellSpacing(QSizeF(0, 0));
        table->setDataSource(&rows);
        table->setDelegate(&rows);
        table->reloadData();
        window.show();
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }

    // The key as the window system delivers it: to the window, which hands it to its focus widget.
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(window.windowHandle(), key, modifiers);
    }

    QList<bool> rings() const {
        QList<bool> out;
        for (qint64 i = 0; i < table->numberOfRows(); ++i)
            out << table->rowViewAtRow(i)->showsFocusRing();
        return out;
    }

    Rows rows;
    QWidget window;
    TableView* table = nullptr;
};

} // namespace

TEST_F(TableViewKeys, TakesFocusFromTheKeyboardAndTheMouse) {
    EXPECT_EQ(table->focusPolicy(), Qt::StrongFocus);
    EXPECT_EQ(QApplication::focusWidget(), table) << "the window's first focus goes to the rows";
}

TEST_F(TableViewKeys, ArrowsMoveTheCurrentRowAndSelectNothing) {
    EXPECT_EQ(table->currentRow(), -1);
    EXPECT_EQ(rings(), (QList<bool>{false, false, false, false}));
    press(Qt::Key_Down);
    EXPECT_EQ(table->currentRow(), 0);
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    EXPECT_EQ(table->currentRow(), 2);
    EXPECT_EQ(rings(), (QList<bool>{false, false, true, false})) << "the ring is on the current row only";
    press(Qt::Key_Up);
    EXPECT_EQ(table->currentRow(), 1);
    press(Qt::Key_End);
    press(Qt::Key_Down); // stops at the last row
    EXPECT_EQ(table->currentRow(), 3);
    press(Qt::Key_Home);
    press(Qt::Key_Up); // and at the first
    EXPECT_EQ(table->currentRow(), 0);
    EXPECT_EQ(table->selectedRow(), -1);
    EXPECT_EQ(rows.selectionChanges, 0);
    for (qint64 i = 0; i < table->numberOfRows(); ++i)
        EXPECT_FALSE(table->rowViewAtRow(i)->isSelected());
}

TEST_F(TableViewKeys, EnterSelectsTheCurrentRowAsAClickDoes) {
    press(Qt::Key_Return); // no current row: nothing
    EXPECT_EQ(rows.selectionChanges, 0);
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    press(Qt::Key_Return);
    EXPECT_EQ(table->selectedRow(), 1);
    EXPECT_EQ(rows.selectionChanges, 1);
    // As a second click on the selected row: no change, nothing told.
    press(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(rows.selectionChanges, 1);
    press(Qt::Key_Down);
    press(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(table->selectedRow(), 2);
    EXPECT_EQ(rows.selectionChanges, 2);
}

TEST_F(TableViewKeys, AClickMakesTheRowCurrentWithoutARingAndTheKeysGoOnFromIt) {
    QTest::mouseClick(table, Qt::LeftButton, {}, QPoint(50, 2 * kRowHeight + 10));
    EXPECT_EQ(table->selectedRow(), 2);
    EXPECT_EQ(table->currentRow(), 2);
    EXPECT_EQ(rings(), (QList<bool>{false, false, false, false})) << "a mouse user sees no ring";
    press(Qt::Key_Down);
    EXPECT_EQ(table->currentRow(), 3);
    EXPECT_EQ(rings(), (QList<bool>{false, false, false, true}));
    EXPECT_EQ(table->selectedRow(), 2);
    EXPECT_EQ(rows.selectionChanges, 1);
}

TEST_F(TableViewKeys, TheRingShowsOnlyWhileTheTableHasFocus) {
    press(Qt::Key_Down);
    EXPECT_TRUE(rings().at(0));
    QWidget other(&window);
    other.setFocusPolicy(Qt::StrongFocus);
    other.show();
    other.setFocus(Qt::OtherFocusReason);
    EXPECT_FALSE(rings().at(0));
    table->setFocus(Qt::TabFocusReason);
    EXPECT_TRUE(rings().at(0));
}

TEST_F(TableViewKeys, TabFocusMakesTheFirstRowCurrent) {
    QWidget other(&window);
    other.setFocusPolicy(Qt::StrongFocus);
    other.show();
    other.setFocus(Qt::OtherFocusReason);
    EXPECT_EQ(table->currentRow(), -1);
    table->setFocus(Qt::TabFocusReason);
    EXPECT_EQ(table->currentRow(), 0);
    EXPECT_TRUE(rings().at(0));
}

TEST_F(TableViewKeys, KeysWithCtrlAndOtherKeysGoToTheParent) {
    int seen = 0;
    class Parent : public QWidget {
    public:
        int* seen = nullptr;

    protected:
        // The Ctrl key's own press comes here too, and is not counted.
        void keyPressEvent(QKeyEvent* event) override { *seen += event->key() != Qt::Key_Control; }
    };
    // Keys the table does not take travel up to its parent, which is where a widget adds its own.
    Parent parent;
    parent.seen = &seen;
    parent.resize(200, 240);
    table->setParent(&parent);
    parent.show();
    parent.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&parent));
    table->setFocus();
    QTest::keyClick(parent.windowHandle(), Qt::Key_Down, Qt::ControlModifier);
    QTest::keyClick(parent.windowHandle(), Qt::Key_A);
    QTest::keyClick(parent.windowHandle(), Qt::Key_Escape);
    EXPECT_EQ(seen, 3);
    EXPECT_EQ(table->currentRow(), -1);
    QTest::keyClick(parent.windowHandle(), Qt::Key_Down);
    EXPECT_EQ(seen, 3);
    EXPECT_EQ(table->currentRow(), 0);
    table->setParent(&window); // the window's children go before it
}

TEST_F(TableViewKeys, RemovingRowsKeepsTheCurrentRowsPlace) {
    press(Qt::Key_Down);
    press(Qt::Key_Down); // row 1
    table->removeRowsAtIndexes({1}, TableView::AnimationEffectNone);
    EXPECT_EQ(table->currentRow(), 1) << "the next row moved up into the current place";
    table->removeRowsAtIndexes({0}, TableView::AnimationEffectNone);
    EXPECT_EQ(table->currentRow(), 0) << "a row above the current one went: it moves up with its row";
    press(Qt::Key_End);
    table->removeRowsAtIndexes({1}, TableView::AnimationEffectNone);
    EXPECT_EQ(table->currentRow(), 0) << "the last row went: the one before it is current";
    table->removeRowsAtIndexes({0}, TableView::AnimationEffectNone);
    EXPECT_EQ(table->currentRow(), -1);
}

TEST_F(TableViewKeys, AReloadKeepsTheCurrentRowWithinTheRows) {
    press(Qt::Key_End);
    EXPECT_EQ(table->currentRow(), 3);
    rows.count = 2;
    table->reloadData();
    EXPECT_EQ(table->currentRow(), 1);
    EXPECT_TRUE(rings().at(1));
    rows.count = 0;
    table->reloadData();
    EXPECT_EQ(table->currentRow(), -1);
    press(Qt::Key_Down);
    EXPECT_EQ(table->currentRow(), -1);
}

TEST_F(TableViewKeys, EachRowReadsAsItsCell) {
    for (qint64 i = 0; i < table->numberOfRows(); ++i) {
        QAccessibleInterface* row = QAccessible::queryAccessibleInterface(table->rowViewAtRow(i));
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->text(QAccessible::Name), QStringLiteral("row %1").arg(i));
        EXPECT_EQ(row->text(QAccessible::Description), QStringLiteral("about row %1").arg(i));
    }
}
