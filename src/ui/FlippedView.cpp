#include "FlippedView.h"

#include "platform/NotificationCenter.h"

#include <QPaintEvent>
#include <QResizeEvent>

namespace corvina {

FlippedView::FlippedView(const QRect& frame, QWidget* parent) : QWidget(parent) {
    setGeometry(frame);
    watchParent();
}

FlippedView::FlippedView(const QRect& frame, DrawingBlock drawingBlock, QWidget* parent) : QWidget(parent) {
    setGeometry(frame);
    setDrawingBlock(std::move(drawingBlock));
    watchParent();
}

FlippedView::~FlippedView() {
    if (drawingBlock())
        setDrawingBlock(nullptr);
    NotificationCenter::defaultCenter().removeObserver(this);
}

void FlippedView::paintEvent(QPaintEvent* event) {
    const DrawingBlock block = drawingBlock();
    if (!block)
        return;
    block(QRectF(event->rect()), this);
}

void FlippedView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ParentChange)
        watchParent();
    QWidget::changeEvent(event);
}

void FlippedView::watchParent() {
    if (m_watchedParent == parentWidget())
        return;
    if (m_watchedParent)
        m_watchedParent->removeEventFilter(this);
    m_watchedParent = parentWidget();
    if (m_watchedParent)
        m_watchedParent->installEventFilter(this);
}

bool FlippedView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_watchedParent && event->type() == QEvent::Resize) {
        const auto* change = static_cast<QResizeEvent*>(event);
        // A parent without a size yet reports an invalid old size: nothing to follow from.
        if (change->oldSize().isValid()) {
            const QSize delta = change->size() - change->oldSize();
            QSize size = this->size();
            if (m_autoresizingMask & WidthSizable)
                size.rwidth() += delta.width();
            if (m_autoresizingMask & HeightSizable)
                size.rheight() += delta.height();
            QWidget::resize(size.expandedTo(QSize(0, 0)));
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace corvina
