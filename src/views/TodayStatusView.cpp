#include "TodayStatusView.h"

#include "TodayMetrics.h"
#include "ui/SystemColors.h"

#include <QLabel>
#include <QVBoxLayout>

namespace corvina {

TodayStatusView::TodayStatusView(QWidget* parent) : QWidget(parent), m_label(new QLabel(this)) {
    setAttribute(Qt::WA_TranslucentBackground);
    setFixedWidth(int(TodayMetrics::width));
    auto* layout = new QVBoxLayout(this);
    // Level with the rows' separator on the left, the dates' right edge on the right.
    layout->setContentsMargins(35, 8, 20, 12);
    layout->addWidget(m_label);
    m_label->setWordWrap(true);
    m_label->setTextFormat(Qt::PlainText);
    QFont font = m_label->font();
    font.setPixelSize(13);
    m_label->setFont(font);
    setAccessibleName(QStringLiteral("Status"));
    applyColors();
    setVisible(false);
}

void TodayStatusView::setLines(const QStringList& lines) {
    if (lines == m_lines)
        return;
    m_lines = lines;
    m_label->setText(text());
    m_label->setAccessibleName(text());
    setVisible(!lines.isEmpty());
}

QString TodayStatusView::text() const {
    return m_lines.join(QLatin1Char('\n'));
}

void TodayStatusView::applyColors() {
    QPalette p = m_label->palette();
    p.setColor(QPalette::WindowText, SystemColors::secondaryLabelColor());
    m_label->setPalette(p);
}

} // namespace corvina
