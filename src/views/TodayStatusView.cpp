#include "TodayStatusView.h"

#include "TodayMetrics.h"
#include "ui/SystemColors.h"

#include <QLabel>
#include <QVBoxLayout>

namespace corvina {

namespace {

// The text as drawn: a hyphen inside a word is held to what follows it (an invisible word joiner),
// so that a command the bridge names ("run corvina-mail-bridge account signin work") is never
// broken as "corvina-mail-" and "bridge", two words a person would type apart. Lines still break
// at spaces. Screen readers get the text as it is.
QString unbrokenAtHyphens(const QString& text) {
    QString shown;
    shown.reserve(text.size() + 8);
    for (qsizetype i = 0; i < text.size(); ++i) {
        shown += text.at(i);
        if (text.at(i) == u'-' && i > 0 && text.at(i - 1).isLetterOrNumber() && i + 1 < text.size() &&
            text.at(i + 1).isLetterOrNumber())
            shown += QChar(0x2060); // WORD JOINER
    }
    return shown;
}

} // namespace

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
    m_label->setText(unbrokenAtHyphens(text()));
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
