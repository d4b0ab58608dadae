#include "views/TodayTableView.h"

#include "support/WidgetTesting.h"
#include "ui/SystemColors.h"
#include "ui/TableRowView.h"
#include "views/TodayMetrics.h"
#include "views/TodayTableRowView.h"

#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QVariantAnimation>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

namespace {

class TodayRows : public TableViewDataSource, public TableViewDelegate {
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
std::unique_ptr<TodayTableView> loadedTable(TodayRows& rows, int height = 200) {
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
    TodayRows rows;
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
    TodayRows rows;
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
    TodayRows rows;
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
    TodayRows rows;
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
class PaintedRows : public TodayRows {
public:
    qint64 redRow = 1;
    QWidget* viewForTableColumn(TableView* table, TableColumn* column, qint64 row) override {
        QWidget* w = TodayRows::viewForTableColumn(table, column, row);
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

namespace {

// Rows whose cells draw thin lines of their own colour across their width and leave the rest
// transparent, as text does: the first removed one red, the second green, the others blue.
class LinedRows : public TodayRows {
public:
    QWidget* viewForTableColumn(TableView* table, TableColumn*, qint64 row) override {
        const QColor colour = row == 1 ? QColor(Qt::red) : row == 2 ? QColor(Qt::green) : QColor(Qt::blue);
        auto* w = new Lines(colour);
        w->resize(table->width(), int(table->rowHeight()));
        return w;
    }

private:
    class Lines : public QWidget {
    public:
        explicit Lines(QColor colour) : m_colour(colour) {}

    protected:
        void paintEvent(QPaintEvent*) override {
            QPainter painter(this);
            for (int y = 4; y < height(); y += 6)
                painter.fillRect(0, y, width(), 2, m_colour);
        }

    private:
        QColor m_colour;
    };
};

} // namespace

TEST(TodayTableView, ALeavingRowShowsNothingThroughItInEitherAppearance) {
    for (const auto appearance : {SystemColors::Appearance::Dark, SystemColors::Appearance::Light}) {
        SystemColors::setAppearance(appearance);
        LinedRows rows;
        rows.count = 4;
        auto loaded = loadedTable(rows, 4 * TodayMetrics::rowHeight);
        TodayTableView& table = *loaded;
        table.show();
        // The red row leaves to the right; while it is still on its way, the green row that was
        // moving up into its place leaves too, to the left, over it.
        table.removeRowsAtIndexes({1}, TableView::AnimationSlideRight);
        QList<QVariantAnimation*> first = table.findChildren<QVariantAnimation*>();
        for (QVariantAnimation* animation : first)
            animation->setCurrentTime(animation->duration() * 2 / 10);
        TableRowView* green = table.rowViewAtRow(1);
        table.removeRowsAtIndexes({1}, TableView::AnimationSlideLeft);
        const QList<QVariantAnimation*> all = table.findChildren<QVariantAnimation*>();
        for (const double part : {0.0, 0.1, 0.2, 0.3}) {
            for (QVariantAnimation* animation : all) {
                if (!first.contains(animation))
                    animation->setCurrentTime(int(animation->duration() * part));
                else
                    animation->setCurrentTime(int(animation->duration() * (0.2 + part)));
            }
            ASSERT_TRUE(green->isVisible());
            const QRect leaving = green->geometry();
            const QImage picture = test::renderTransparent(table);
            int redThrough = 0;
            int panel = 0;
            for (int y = std::max(0, leaving.top()); y <= std::min(picture.height() - 1, leaving.bottom());
                 ++y)
                for (int x = std::max(0, leaving.left()); x <= std::min(picture.width() - 1, leaving.right());
                     ++x) {
                    redThrough += picture.pixelColor(x, y) == QColor(Qt::red);
                    panel += picture.pixelColor(x, y) == SystemColors::panelBackground();
                }
            EXPECT_EQ(redThrough, 0) << part << ": the row under the leaving one shows through it";
            // Between its lines, the leaving row is the panel's colour, light or dark.
            EXPECT_GT(panel, 1000) << part;
        }
    }
    SystemColors::setAppearance(SystemColors::Appearance::Dark);
}
