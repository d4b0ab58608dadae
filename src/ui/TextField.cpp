#include "TextField.h"

#include <QFontMetrics>
#include <QPainter>
#include <QRegularExpression>

namespace corvina {

TextField::TextField(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TranslucentBackground);
}

void TextField::setStringValue(const QString& text) {
    m_text = text;
    updateGeometry();
    update();
}

void TextField::setTextColor(const QColor& color) {
    m_textColor = color;
    update();
}

void TextField::setDrawsBackground(bool draws) {
    m_drawsBackground = draws;
    update();
}

void TextField::setTruncatesLastVisibleLine(bool truncates) {
    m_truncates = truncates;
    update();
}

QString TextField::displayedText() const {
    const qsizetype lineEnd =
        m_text.indexOf(QRegularExpression(QStringLiteral("[\\r\\n\\x{2028}\\x{2029}]")));
    const bool more = lineEnd >= 0;
    QString first = more ? m_text.left(lineEnd) : m_text;
    if (!m_truncates)
        return first;
    const QFontMetrics metrics(font());
    if (!more)
        return metrics.elidedText(first, Qt::ElideRight, width());
    // The text goes on below the one visible line: that line ends in an ellipsis in any case.
    const QString ellipsis(QChar(0x2026));
    QString shown = first;
    while (!shown.isEmpty() && metrics.horizontalAdvance(shown + ellipsis) > width())
        shown.chop(1);
    return shown + ellipsis;
}

QSize TextField::sizeHint() const {
    const QFontMetrics metrics(font());
    const qsizetype lineEnd = m_text.indexOf(u'\n');
    const QString first = lineEnd >= 0 ? m_text.left(lineEnd) : m_text;
    return QSize(metrics.horizontalAdvance(first) + 2, metrics.height());
}

void TextField::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (m_drawsBackground)
        painter.fillRect(rect(), m_backgroundColor);
    painter.setPen(m_textColor);
    painter.setFont(font());
    painter.setClipRect(rect());
    painter.drawText(rect().adjusted(1, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter, displayedText());
}

} // namespace corvina
