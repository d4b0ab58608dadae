#pragma once

#include "ui/TableView.h"

#include <QPointF>

namespace corvina {

// The widget's message table: one column "col" 320 wide that cannot be edited, no header row, no
// focus ring, a transparent background and no spacing between rows.
class TodayTableView : public TableView {
    Q_OBJECT

public:
    explicit TodayTableView(const QRect& frame = QRect(), QWidget* parent = nullptr);

    // Declared for a swipe-to-reveal row that is laid out but never driven: nothing reads or
    // writes them after construction, on purpose.
    QPointF startDrag() const { return m_startDrag; }
    qint64 swipeOnRowIndex() const { return m_swipeOnRowIndex; }

private:
    QPointF m_startDrag;
    qint64 m_swipeOnRowIndex = 0;
};

} // namespace corvina
