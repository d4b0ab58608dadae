#include "SegmentedControl.h"

#include "SegmentedControlAccessible.h"
#include "SystemColors.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace corvina {

SegmentedControl::SegmentedControl(QWidget* parent) : QWidget(parent) {
    // The segments are drawn, not widgets: screen readers learn of them from this factory's
    // interface. Once per program.
    static const bool factoryInstalled = [] {
        QAccessible::installFactory(&SegmentedControlAccessible::create);
        return true;
    }();
    Q_UNUSED(factoryInstalled);
    setFocusPolicy(Qt::TabFocus);
    QFont f = font();
    f.setPixelSize(12);
    setFont(f);
}

void SegmentedControl::setSegmentCount(int count) {
    while (m_labels.size() < count)
        m_labels << QString();
    while (m_labels.size() > count)
        m_labels.removeLast();
    if (m_selected >= count)
        m_selected = -1;
    updateGeometry();
    update();
}

void SegmentedControl::setLabel(const QString& label, int segment) {
    if (segment < 0 || segment >= m_labels.size())
        return;
    m_labels[segment] = label;
    updateGeometry();
    update();
}

void SegmentedControl::setDescription(const QString& description, int segment) {
    if (segment < 0 || segment >= m_labels.size())
        return;
    while (m_descriptions.size() <= segment)
        m_descriptions << QString();
    m_descriptions[segment] = description;
}

void SegmentedControl::setSelectedSegment(int segment) {
    m_selected = segment >= 0 && segment < m_labels.size() ? segment : -1;
    update();
}

QRect SegmentedControl::segmentRect(int segment) const {
    const int n = segmentCount();
    if (n == 0 || segment < 0 || segment >= n)
        return {};
    const int left = segment * width() / n;
    const int right = (segment + 1) * width() / n;
    return QRect(left, 0, right - left, height());
}

int SegmentedControl::segmentAt(const QPoint& point) const {
    for (int s = 0; s < segmentCount(); ++s) {
        if (segmentRect(s).contains(point))
            return s;
    }
    return -1;
}

QSize SegmentedControl::sizeHint() const {
    const QFontMetrics metrics(font());
    int widest = 0;
    for (const QString& label : m_labels)
        widest = std::max(widest, metrics.horizontalAdvance(label));
    return QSize((widest + 16) * std::max(1, segmentCount()), 20);
}

void SegmentedControl::choose(int segment) {
    if (segment < 0 || segment >= segmentCount())
        return;
    // Like any segmented control, picking the selected segment again still sends the action.
    m_selected = segment;
    update();
    if (m_action)
        m_action(this);
}

void SegmentedControl::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_pressed = segmentAt(event->position().toPoint());
        update();
    }
}

void SegmentedControl::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    const int pressed = m_pressed;
    m_pressed = -1;
    update();
    if (pressed >= 0 && segmentAt(event->position().toPoint()) == pressed)
        choose(pressed);
}

void SegmentedControl::focusInEvent(QFocusEvent* event) {
    m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason;
    QWidget::focusInEvent(event);
}

void SegmentedControl::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Left && m_selected > 0)
        choose(m_selected - 1);
    else if (event->key() == Qt::Key_Right && m_selected + 1 < segmentCount())
        choose(m_selected + 1);
    else
        QWidget::keyPressEvent(event);
}

void SegmentedControl::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath outline;
    outline.addRoundedRect(frame, 5, 5);
    painter.fillPath(outline, SystemColors::controlBackground());

    painter.save();
    painter.setClipPath(outline);
    for (int s = 0; s < segmentCount(); ++s) {
        const QRect r = segmentRect(s);
        if (s == m_selected)
            painter.fillRect(r, SystemColors::selectedContentBackground());
        else if (s == m_pressed)
            painter.fillRect(r, SystemColors::contentColor(0.12));
    }
    painter.restore();

    painter.setPen(QPen(SystemColors::controlBorder(), 1));
    painter.drawPath(outline);
    // Dividers between unselected neighbours only: the selected segment is one solid piece.
    for (int s = 1; s < segmentCount(); ++s) {
        if (s == m_selected || s - 1 == m_selected)
            continue;
        const qreal x = segmentRect(s).left() + 0.5;
        painter.drawLine(QPointF(x, 4), QPointF(x, height() - 4));
    }

    painter.setFont(font());
    for (int s = 0; s < segmentCount(); ++s) {
        painter.setPen(s == m_selected ? SystemColors::whiteColor() : SystemColors::labelColor());
        const QRect r = segmentRect(s);
        const QString text = fontMetrics().elidedText(m_labels.at(s), Qt::ElideRight, r.width() - 6);
        painter.drawText(r, Qt::AlignCenter, text);
    }
    // The ring shows only for focus that came from the keyboard, not for the window's first focus.
    if (hasFocus() && m_keyboardFocus) {
        painter.setPen(QPen(SystemColors::selectedContentBackground().lighter(140), 1.5));
        painter.drawRoundedRect(frame.adjusted(1, 1, -1, -1), 4, 4);
    }
}

} // namespace corvina
