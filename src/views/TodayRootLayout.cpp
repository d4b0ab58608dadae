#include "TodayRootLayout.h"

#include "TodayMetrics.h"

#include <QVariantAnimation>
#include <QWidget>

namespace corvina {

namespace {

constexpr int kAnimationMs = 250;

} // namespace

TodayRootLayout::TodayRootLayout(QWidget* root, QWidget* header, QWidget* table, LayoutConstraint* height)
    : QLayout(root), m_header(header), m_table(table), m_height(height), m_shown(height->value()) {
    setContentsMargins(0, 0, 0, 0);
    setSizeConstraint(QLayout::SetFixedSize);
    m_animation = new QVariantAnimation(this);
    m_animation->setDuration(kAnimationMs);
    m_animation->setEasingCurve(QEasingCurve::InOutQuad);
    connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& v) {
        m_shown = v.toReal();
        invalidate();
        if (parentWidget())
            parentWidget()->updateGeometry();
        activate();
    });
    connect(m_height, &LayoutConstraint::changed, this, [this] {
        m_animation->stop();
        m_animation->setStartValue(m_shown);
        m_animation->setEndValue(m_height->value());
        m_animation->start();
    });
}

bool TodayRootLayout::isAnimating() const {
    return m_animation->state() == QAbstractAnimation::Running;
}

void TodayRootLayout::finishAnimation() {
    if (!isAnimating())
        return;
    m_animation->stop();
    m_shown = m_height->value();
    invalidate();
    if (parentWidget())
        parentWidget()->updateGeometry();
    activate();
}

QSize TodayRootLayout::sizeHint() const {
    return QSize(TodayMetrics::width, TodayMetrics::headerHeight + TodayMetrics::headerGap + qRound(m_shown));
}

void TodayRootLayout::setGeometry(const QRect& rect) {
    QLayout::setGeometry(rect);
    m_header->setGeometry(0, 0, TodayMetrics::width, TodayMetrics::headerHeight);
    m_table->setGeometry(0, TodayMetrics::headerHeight + TodayMetrics::headerGap, TodayMetrics::width,
                         qRound(m_shown));
}

} // namespace corvina
