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

void TableRowView::setShowsFocusRing(bool shown) {
    if (shown == m_focusRing)
        return;
    m_focusRing = shown;
    update();
}

void TableRowView::drawFocusRingInRect(QPainter& painter, const QRect& rect) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(SystemColors::selectedContentBackground().lighter(140), 1.5));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(rect).adjusted(4.75, 1.75, -4.75, -1.75), 5, 5);
}

void TableRowView::setLeaving(bool leaving) {
    if (leaving == m_leaving)
        return;
    m_leaving = leaving;
    update();
}

void TableRowView::paintEvent(QPaintEvent*) {
    if (!m_selected && !m_focusRing && !m_leaving)
        return;
    QPainter painter(this);
    if (m_leaving)
        painter.fillRect(rect(), SystemColors::panelBackground());
    if (m_selected)
        drawSelectionInRect(painter, rect());
    if (m_focusRing)
        drawFocusRingInRect(painter, rect());
}

} // namespace corvina
