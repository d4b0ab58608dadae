#pragma once

#include "TableColumn.h"
#include "TableRowView.h"

#include <QColor>
#include <QList>
#include <QPointer>
#include <QSize>
#include <QWidget>
#include <memory>
#include <vector>

class QVariantAnimation;

namespace corvina {

class TableView;

// Where a table's rows come from.
class TableViewDataSource {
public:
    virtual ~TableViewDataSource() = default;
    virtual qint64 numberOfRowsInTableView(TableView* table) = 0;
};

// What a table asks and tells its delegate.
class TableViewDelegate {
public:
    virtual ~TableViewDelegate() = default;
    // The view shown in `row` (the table takes it over).
    virtual QWidget* viewForTableColumn(TableView* table, TableColumn* column, qint64 row) = 0;
    // After the user changed the selection.
    virtual void tableViewSelectionDidChange() {}
    // The row view for `row`; null (the default) for the table's plain TableRowView.
    virtual TableRowView* rowViewForRow(TableView*, qint64) { return nullptr; }
};

// A table whose rows are views, one column, rows of a fixed height stacked from the top. It asks
// its data source for the number of rows and its delegate for each row's view on reloadData and
// keeps them until the next reloadData: in between it changes only when rows are removed, and it
// does not ask its data source again then (the row count is its own).
//
// A click on a row (outside any button of its view) selects it and tells the delegate; clicking
// the selected row again changes nothing. Removing rows slides them out and moves the rows below
// up; the table's own height is left to its owner.
//
// The keyboard has a current row of its own, apart from the selection: Up, Down, Home and End move
// it (with a focus ring on it) and select nothing; Enter or Return selects it, as a click on it
// does. A click makes the clicked row the current one as well. Other keys are left to the parents.
class TableView : public QWidget {
    Q_OBJECT

public:
    enum AnimationOptions : quint32 {
        AnimationEffectNone = 0x0,
        AnimationEffectFade = 0x1,
        AnimationEffectGap = 0x2,
        AnimationSlideUp = 0x10,
        AnimationSlideDown = 0x20,
        AnimationSlideLeft = 0x30,
        AnimationSlideRight = 0x40,
    };
    enum FocusRingType { FocusRingTypeDefault = 0, FocusRingTypeNone = 1, FocusRingTypeExterior = 2 };

    explicit TableView(const QRect& frame = QRect(), QWidget* parent = nullptr);
    ~TableView() override;

    void setDataSource(TableViewDataSource* dataSource) { m_dataSource = dataSource; }
    void setDelegate(TableViewDelegate* delegate) { m_delegate = delegate; }

    qreal rowHeight() const { return m_rowHeight; }
    void setRowHeight(qreal height);
    QSizeF intercellSpacing() const { return m_intercellSpacing; }
    void setIntercellSpacing(QSizeF spacing);
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor& color);
    FocusRingType focusRingType() const { return m_focusRingType; }
    void setFocusRingType(FocusRingType type) { m_focusRingType = type; }
    // A table header row; the widget's table has none.
    QWidget* headerView() const { return m_headerView.get(); }
    void setHeaderView(QWidget* header);

    void addTableColumn(std::unique_ptr<TableColumn> column);
    QList<TableColumn*> tableColumns() const;

    void reloadData();
    qint64 numberOfRows() const { return qint64(m_rows.size()); }
    // -1 when no row is selected.
    qint64 selectedRow() const { return m_selectedRow; }
    // Selects `row` (or nothing for -1) and, when that changes the selection, tells the delegate.
    void selectRow(qint64 row);
    // The keyboard's current row, -1 for none. Setting it selects nothing and tells no one.
    qint64 currentRow() const { return m_currentRow; }
    void setCurrentRow(qint64 row);

    // Removes the rows at `indexes`, animated as `options` says.
    void removeRowsAtIndexes(const QList<qint64>& indexes, quint32 options);

    TableRowView* rowViewAtRow(qint64 row) const;
    // The row a row view shows, -1 for none (a removed row still sliding out, or another table's).
    qint64 rowOfView(const TableRowView* rowView) const;
    QWidget* viewAtColumn(qint64 column, qint64 row) const;
    // The row under a point of the table, or -1.
    qint64 rowAtPoint(const QPoint& point) const;
    QRect rectOfRow(qint64 row) const;

    // Animations of removed rows still running (for a caller that waits until the table is still).
    bool isAnimating() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Row {
        std::unique_ptr<TableRowView> rowView;
        QWidget* cell; // a child of its row view
    };
    void clearRows();
    void placeRows(bool animated);
    // The ring goes on the current row while the table has focus that the keyboard gave or used.
    void updateFocusRing();
    void clipLeavingRows();
    void tellChildrenChanged();
    // Tells a screen reader that the keyboard's current row has the focus (when the table has it).
    void tellFocusedRow();

    TableViewDataSource* m_dataSource = nullptr;
    TableViewDelegate* m_delegate = nullptr;
    qreal m_rowHeight = 17;
    QSizeF m_intercellSpacing{3, 2};
    QColor m_backgroundColor{Qt::white};
    FocusRingType m_focusRingType = FocusRingTypeDefault;
    std::unique_ptr<QWidget> m_headerView;
    std::vector<std::unique_ptr<TableColumn>> m_columns;
    // The rows, and apart from them the removed rows still sliding out. Owned here: as members they
    // go before the QWidget base deletes the children left.
    std::vector<Row> m_rows;
    std::vector<std::unique_ptr<TableRowView>> m_leaving;
    qint64 m_selectedRow = -1;
    qint64 m_currentRow = -1;
    bool m_keyboardFocus = false;
    QList<QPointer<QVariantAnimation>> m_animations;
};

} // namespace corvina
