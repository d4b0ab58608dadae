#include "SegmentedControl.h"

#include "SegmentedControlAccessible.h"
#include "SystemColors.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <numeric>

namespace corvina {

namespace {

constexpr int kPixelSize = 12;
// Below this a label is no longer read at a glance; a label still too long is cut with "…".
constexpr int kSmallestPixelSize = 9;

// The room each label needs: its text and the inset on both sides.
QList<int> labelNeeds(const QStringList& labels, const QFontMetrics& metrics) {
    QList<int> needs;
    for (const QString& label : labels)
        needs << metrics.horizontalAdvance(label) + 2 * SegmentedControl::labelInset;
    return needs;
}

int sum(const QList<int>& values) {
    return std::accumulate(values.begin(), values.end(), 0);
}

// The left edge of each segment, then the control's width. Equal widths when every label fits its
// equal share (the usual case, English); otherwise each segment as wide as its label with the room
// left shared equally, so that a long translation ("Boîte de réception") takes what its short
// neighbours do not need; and when even that is too little, widths in proportion to the labels.
QList<int> segmentEdges(const QStringList& labels, const QFontMetrics& metrics, int width) {
    const int n = int(labels.size());
    const QList<int> needs = labelNeeds(labels, metrics);
    bool equalFits = true;
    for (int s = 0; s < n; ++s)
        equalFits = equalFits && needs.at(s) <= (s + 1) * width / n - s * width / n;
    const int total = sum(needs);
    QList<int> edges{0};
    int x = 0;
    for (int s = 0; s < n; ++s) {
        x += needs.at(s);
        if (equalFits || total <= 0)
            edges << (s + 1) * width / n;
        else if (total <= width)
            edges << x + (s + 1) * (width - total) / n;
        else
            edges << int(qint64(x) * width / total);
    }
    return edges;
}

} // namespace

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
    f.setPixelSize(kPixelSize);
    setFont(f);
}

QFont SegmentedControl::labelFont() const {
    // The control's own size when the labels fit side by side, else the largest smaller one at
    // which they do (translations run longer than the English labels the control was sized for).
    QFont f = font();
    const int usual = f.pixelSize() > 0 ? f.pixelSize() : kPixelSize;
    for (int size = usual; size >= kSmallestPixelSize; --size) {
        f.setPixelSize(size);
        if (size == kSmallestPixelSize || sum(labelNeeds(m_labels, QFontMetrics(f))) <= width())
            break;
    }
    return f;
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
    const QList<int> edges = segmentEdges(m_labels, QFontMetrics(labelFont()), width());
    return QRect(edges.at(segment), 0, edges.at(segment + 1) - edges.at(segment), height());
}

QString SegmentedControl::displayedLabelForSegment(int segment) const {
    return QFontMetrics(labelFont())
        .elidedText(m_labels.value(segment), Qt::ElideRight, segmentRect(segment).width() - 2 * labelInset);
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

    painter.setFont(labelFont());
    for (int s = 0; s < segmentCount(); ++s) {
        painter.setPen(s == m_selected ? SystemColors::whiteColor() : SystemColors::labelColor());
        const QRect r = segmentRect(s);
        painter.drawText(r, Qt::AlignCenter, displayedLabelForSegment(s));
    }
    // The ring shows only for focus that came from the keyboard, not for the window's first focus.
    if (hasFocus() && m_keyboardFocus) {
        painter.setPen(QPen(SystemColors::selectedContentBackground().lighter(140), 1.5));
        painter.drawRoundedRect(frame.adjusted(1, 1, -1, -1), 4, 4);
    }
}

} // namespace corvina
