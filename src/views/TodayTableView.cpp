#include "TodayTableView.h"

#include "TodayMetrics.h"
#include "platform/Localization.h"
#include "ui/SystemColors.h"

namespace corvina {

TodayTableView::TodayTableView(const QRect& frame, QWidget* parent) : TableView(frame, parent) {
    m_swipeOnRowIndex = -1;
    auto column = std::make_unique<TableColumn>(QStringLiteral("col"));
    // The header text is looked up like every visible text, although no header row is shown.
    column->setHeaderText(Localization::text(QString()));
    column->setWidth(TodayMetrics::width);
    column->setEditable(false);
    addTableColumn(std::move(column));
    setFocusRingType(FocusRingTypeNone);
    setHeaderView(nullptr);
    setBackgroundColor(SystemColors::clearColor());
    setIntercellSpacing(QSizeF(0, 0));
}

} // namespace corvina
