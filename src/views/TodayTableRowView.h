#pragma once

#include "ui/TableRowView.h"

namespace corvina {

// A row view that draws no selection: a selected message row looks like any other.
// The widget's controller supplies no row views, so its table uses the plain ones; this is the row
// view the table is to have whenever one is supplied.
class TodayTableRowView : public TableRowView {
    Q_OBJECT

public:
    explicit TodayTableRowView(const QRect& frame = QRect(), QWidget* parent = nullptr)
        : TableRowView(frame, parent) {}

    void drawSelectionInRect(QPainter&, const QRect&) override {}
};

} // namespace corvina
