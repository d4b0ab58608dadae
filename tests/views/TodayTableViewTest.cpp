#include "views/TodayTableView.h"

#include "support/WidgetTesting.h"
#include "ui/TableRowView.h"
#include "views/TodayMetrics.h"
#include "views/TodayTableRowView.h"

#include <QImage>
#include <QPalette>
#include <QVariantAnimation>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

namespace {

class Rows : public TableViewDataSource, public TableViewDelegate {
public:
    qint64 count = 3;
    bool todayRows = false;
    int selectionChanges = 0;
    qint64 numberOfRowsInTableView(TableView*) override { return count; }
    QWidget* viewForTableColumn(TableView* table, TableColumn*, qint64) override {
        auto* w = new QWidget;
        w->resize(table->width(), int(table->rowHeight()));
        return w;
    }
    void tableViewSelectionDidChange() override { ++selectionChanges; }
    TableRowView* rowViewForRow(TableView*, qint64) override {
        return todayRows ? new TodayTableRowView : nullptr;
    }
};

int paintedPixels(QWidget* w) {
    return corvina::test::opaquePixels(corvina::test::renderTransparent(*w));
}

// A table of `rows` (the data source and delegate) rows of the widget's height and width, loaded.
std::unique_ptr<TodayTableView> loadedTable(Rows& rows, int height = 200) {
    auto table = std::make_unique<TodayTableView>(QRect(0, 0, TodayMetrics::width, height));
    table->setRowHeight(TodayMetrics::rowHeight);
    table->setDataSource(&rows);
    table->setDelegate(&rows);
    table->reloadData();
    return table;
}

} // namespace

TEST(TodayTableView, OneColumnOfThreeHundredTwentyWhateverTheFrame) {
    for (const QRect frame : {QRect(), QRect(0, 0, 100, 100), QRect(0, 0, 900, 50)}) {
        TodayTableView table(frame);
        ASSERT_EQ(table.tableColumns().size(), 1);
        const TableColumn* column = table.tableColumns().first();
        EXPECT_EQ(column->identifier(), QStringLiteral("col"));
        EXPECT_EQ(column->width(), TodayMetrics::width);
        EXPECT_FALSE(column->isEditable());
        EXPECT_EQ(column->headerText(), QString(""));
    }
}

TEST(TodayTableView, NoHeaderNoFocusRingTransparentNoSpacing) {
    TodayTableView table;
    EXPECT_EQ(table.headerView(), nullptr);
    EXPECT_EQ(table.focusRingType(), TableView::FocusRingTypeNone);
    EXPECT_EQ(table.backgroundColor().alpha(), 0);
    EXPECT_EQ(table.intercellSpacing(), QSizeF(0, 0));
    EXPECT_EQ(table.swipeOnRowIndex(), -1);
    EXPECT_EQ(table.startDrag(), QPointF(0, 0));
}

TEST(TodayTableView, FirstRowStartsAtTheTopEdge) {
    Rows rows;
    auto loaded = loadedTable(rows);
    TodayTableView& table = *loaded;
    EXPECT_EQ(table.numberOfRows(), 3);
    EXPECT_EQ(table.rowViewAtRow(0)->geometry(), QRect(0, 0, TodayMetrics::width, TodayMetrics::rowHeight));
    EXPECT_EQ(table.rowViewAtRow(2)->geometry(),
              QRect(0, 2 * TodayMetrics::rowHeight, TodayMetrics::width, TodayMetrics::rowHeight));
    // A plain table keeps its header row above the first row.
    TableView plain(QRect(0, 0, TodayMetrics::width, 200));
    plain.setRowHeight(TodayMetrics::rowHeight);
    plain.setDataSource(&rows);
    plain.setDelegate(&rows);
    plain.reloadData();
    EXPECT_GT(plain.rowViewAtRow(0)->geometry().top(), 0);
}

TEST(TodayTableView, SelectedTodayRowsDrawNoHighlightPlainRowsDo) {
    Rows rows;
    auto loaded = loadedTable(rows);
    TodayTableView& table = *loaded;
    table.selectRow(1);
    ASSERT_TRUE(table.rowViewAtRow(1)->isSelected());
    EXPECT_GT(paintedPixels(table.rowViewAtRow(1)), 0); // the default row view's highlight
    EXPECT_EQ(paintedPixels(table.rowViewAtRow(0)), 0); // not selected

    rows.todayRows = true;
    table.reloadData();
    ASSERT_EQ(table.selectedRow(), 1);
    ASSERT_TRUE(table.rowViewAtRow(1)->isSelected());
    EXPECT_EQ(paintedPixels(table.rowViewAtRow(1)), 0);
}

TEST(TodayTableView, SelectingTellsTheDelegateOnlyOnChange) {
    Rows rows;
    auto loaded = loadedTable(rows);
    TodayTableView& table = *loaded;
    table.selectRow(2);
    table.selectRow(2);
    EXPECT_EQ(rows.selectionChanges, 1);
    EXPECT_EQ(table.selectedRow(), 2);
    table.selectRow(7); // outside: nothing selected
    EXPECT_EQ(table.selectedRow(), -1);
    EXPECT_EQ(rows.selectionChanges, 2);
}

TEST(TodayTableView, RemovingRowsKeepsItsOwnCountAndMovesRowsUp) {
    Rows rows;
    rows.count = 5;
    auto loaded = loadedTable(rows, 300);
    TodayTableView& table = *loaded;
    TableRowView* fourth = table.rowViewAtRow(3);
    table.removeRowsAtIndexes({1}, TableView::AnimationEffectNone);
    EXPECT_EQ(table.numberOfRows(), 4);
    EXPECT_EQ(table.rowViewAtRow(2), fourth);
    EXPECT_EQ(fourth->geometry(),
              QRect(0, 2 * TodayMetrics::rowHeight, TodayMetrics::width, TodayMetrics::rowHeight));
}

namespace {

// Rows that fill their whole rect with a colour: the removed one red, the others blue.
class PaintedRows : public Rows {
public:
    qint64 redRow = 1;
    QWidget* viewForTableColumn(TableView* table, TableColumn* column, qint64 row) override {
        QWidget* w = Rows::viewForTableColumn(table, column, row);
        QPalette palette = w->palette();
        palette.setColor(QPalette::Window, row == redRow ? QColor(Qt::red) : QColor(Qt::blue));
        w->setPalette(palette);
        w->setAutoFillBackground(true);
        return w;
    }
};

} // namespace

TEST(TodayTableView, ASlidingRowIsNeverDrawnOverTheRowsMovingUp) {
    for (const quint32 slide :
         {quint32(TableView::AnimationSlideLeft), quint32(TableView::AnimationSlideRight)}) {
        PaintedRows rows;
        rows.count = 4;
        auto loaded = loadedTable(rows, 4 * TodayMetrics::rowHeight);
        TodayTableView& table = *loaded;
        table.show();
        table.removeRowsAtIndexes({1}, slide);
        const QList<QVariantAnimation*> animations = table.findChildren<QVariantAnimation*>();
        ASSERT_EQ(animations.size(), 3); // the removed row out, the two below it up
        // Several moments of the animation, each set on every animation at once.
        for (const double part : {0.1, 0.3, 0.5}) {
            for (QVariantAnimation* animation : animations)
                animation->setCurrentTime(int(animation->duration() * part));
            const QRect below = table.rowViewAtRow(1)->geometry();
            ASSERT_LT(below.top(), 2 * TodayMetrics::rowHeight) << "the row below has begun to move up";
            ASSERT_GT(below.top(), TodayMetrics::rowHeight);
            const QImage picture = test::renderTransparent(table);
            int red = 0;
            int redOverOthers = 0;
            for (int y = 0; y < picture.height(); ++y)
                for (int x = 0; x < picture.width(); ++x) {
                    if (picture.pixelColor(x, y) != QColor(Qt::red))
                        continue;
                    ++red;
                    for (qint64 r = 0; r < table.numberOfRows(); ++r)
                        redOverOthers += table.rowViewAtRow(r)->geometry().contains(x, y);
                }
            EXPECT_GT(red, 0) << part << ": the removed row is still seen while it slides";
            EXPECT_EQ(redOverOthers, 0) << part;
        }
    }
}
