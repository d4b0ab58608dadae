#include "TodayStatusView.h"

#include "TodayMetrics.h"
#include "platform/LineBreaks.h"
#include "platform/Localization.h"
#include "ui/SystemColors.h"

#include <QCoreApplication>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QTimer>
#include <QVBoxLayout>

namespace corvina {

TodayStatusView::TodayStatusView(QWidget* parent)
    : QWidget(parent), m_label(new QLabel(this)), m_link(new QLabel(this)) {
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
    const QString addAccount = Localization::text(QStringLiteral("Add your mail account…"));
    m_link->setTextFormat(Qt::RichText);
    m_link->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    m_link->setFocusPolicy(Qt::StrongFocus);
    m_link->setFont(font);
    m_link->setAccessibleName(addAccount);
    m_link->setAccessibleDescription(Localization::text(QStringLiteral("Opens the Accounts window")));
    layout->addWidget(m_link);
    connect(m_link, &QLabel::linkActivated, this, &TodayStatusView::accountsRequested);
    m_link->installEventFilter(this);
    setAccessibleName(QStringLiteral("Status"));
    applyColors();
    setVisible(false);
}

void TodayStatusView::setLines(const QStringList& lines) {
    if (lines == m_lines)
        return;
    m_lines = lines;
    m_label->setText(LineBreaks::unbrokenAtHyphens(text()));
    m_label->setAccessibleName(text());
    setVisible(!lines.isEmpty());
}

bool TodayStatusView::eventFilter(QObject* watched, QEvent* event) {
    if (watched != m_link)
        return QWidget::eventFilter(watched, event);
    if (event->type() == QEvent::FocusIn) {
        // Tab into the link selects it at once, as in a browser: a label otherwise takes the focus
        // first and its link only at a second Tab, with nothing drawn to show the first.
        const auto reason = static_cast<QFocusEvent*>(event)->reason();
        if (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason) {
            const int key = reason == Qt::TabFocusReason ? Qt::Key_Tab : Qt::Key_Backtab;
            // After the focus change is done: the label's Tab moves between its links.
            QTimer::singleShot(0, m_link, [this, key] {
                QKeyEvent step(QEvent::KeyPress, key, Qt::NoModifier);
                QCoreApplication::sendEvent(m_link, &step);
            });
        }
    } else if (event->type() == QEvent::KeyPress) {
        // Space follows the link too, as it presses a button; Enter is the label's own.
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier) {
            emit accountsRequested();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

QString TodayStatusView::text() const {
    return m_lines.join(QLatin1Char('\n'));
}

void TodayStatusView::applyColors() {
    QPalette p = m_label->palette();
    p.setColor(QPalette::WindowText, SystemColors::secondaryLabelColor());
    m_label->setPalette(p);
    // The link in the panel's text colour, brighter than the lines and underlined; never the
    // style's blue, which cannot be read on the dark panel. Written into the link itself: a label's
    // rich text takes an anchor's colour from the application's palette when the text is set, not
    // from the label's.
    const QColor colour = SystemColors::labelColor();
    m_link->setText(QStringLiteral("<a href=\"corvina-accounts:\" style=\"color: rgba(%1, %2, %3, %4); "
                                   "text-decoration: underline\">%5</a>")
                        .arg(colour.red())
                        .arg(colour.green())
                        .arg(colour.blue())
                        .arg(colour.alphaF(), 0, 'f', 2)
                        .arg(m_link->accessibleName().toHtmlEscaped()));
}

} // namespace corvina
