#include "TableRowView.h"

#include "SystemColors.h"

#include <QPainter>
#include <QPainterPath>

namespace corvina {

TableRowView::TableRowView(const QRect& frame, QWidget* parent) : QWidget(parent) {
    setGeometry(frame);
    setAttribute(Qt::WA_TranslucentBackground);
}

void TableRowView::setSelected(bool selected) {
    if (selected == m_selected)
        return;
    m_selected = selected;
    update();
}

void TableRowView::drawSelectionInRect(QPainter& painter, const QRect& rect) {
    QColor highlight = SystemColors::selectedContentBackground();
    highlight.setAlphaF(0.45f);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect).adjusted(4, 1, -4, -1), 5, 5);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(path, highlight);
}

void TableRowView::paintEvent(QPaintEvent*) {
    if (!m_selected)
        return;
    QPainter painter(this);
    drawSelectionInRect(painter, rect());
}

} // namespace corvina
