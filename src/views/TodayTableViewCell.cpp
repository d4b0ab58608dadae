#include "TodayTableViewCell.h"

#include "platform/Localization.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "ui/Images.h"
#include "ui/SystemColors.h"

#include <QPainter>

namespace corvina {

namespace {

TextField* makeField(QWidget* parent, const QColor& textColor) {
    auto* field = new TextField(parent);
    field->setDrawsBackground(false);
    QFont font = field->font();
    font.setPixelSize(13);
    field->setFont(font);
    field->setTextColor(textColor);
    return field;
}

ImageButton* makeButton(QWidget* parent, const QString& image, std::function<void(ImageButton*)> action) {
    auto* button = new ImageButton(parent);
    button->setBackgroundColor(SystemColors::clearColor());
    button->setImage(image);
    button->setAlphaValue(0.3);
    button->setAction(std::move(action));
    return button;
}

} // namespace

TodayTableViewCell::TodayTableViewCell(const QRect& frame, QWidget* parent) : QWidget(parent) {
    setGeometry(frame);
    setAttribute(Qt::WA_TranslucentBackground);

    // Fills the cell by its autoresizing mask, not by layout.
    m_swipingView = new FlippedView(QRect(0, 0, frame.width(), frame.height()), this);

    m_avatarIMview = new ImageView(m_swipingView);
    m_avatarIMview->setImageNamed(QStringLiteral("prof10"));
    m_fromField = makeField(m_swipingView, SystemColors::labelColor());
    // A sender too long for the room the date leaves ends in "…" rather than being cut mid-letter.
    m_fromField->setTruncatesLastVisibleLine(true);
    m_dateField = makeField(m_swipingView, SystemColors::contentColor(0.4));
    m_subjectField = makeField(m_swipingView, SystemColors::secondaryLabelColor());
    // Set although never painted: the field draws no background.
    m_subjectField->setBackgroundColor(SystemColors::labelColor());
    m_subjectField->setTruncatesLastVisibleLine(true);
    m_archiveButton =
        makeButton(m_swipingView, QStringLiteral("w_archive"), [this](ImageButton* b) { archive(b); });
    m_trashButton =
        makeButton(m_swipingView, QStringLiteral("w_trash"), [this](ImageButton* b) { trash(b); });
    m_replyButton =
        makeButton(m_swipingView, QStringLiteral("w_reply"), [this](ImageButton* b) { reply(b); });
    m_horizontalSeparator1 = new FlippedView(QRect(), m_swipingView);
    m_horizontalSeparator1->setDrawingBlock([](const QRectF& rect, FlippedView* view) {
        QPainter painter(view);
        painter.fillRect(rect, SystemColors::contentColor(double(0.2f)));
    });
    layoutContent();
    updateAccessibleTexts();
}

void TodayTableViewCell::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    layoutContent();
}

void TodayTableViewCell::layoutContent() {
    const int w = m_swipingView->width();
    // "V:|-(0)-[horizontalSeparator1(1)]", "H:|-(35)-[horizontalSeparator1(>=1)]-(0)-|"
    m_horizontalSeparator1->setGeometry(35, 0, std::max(1, w - 35), 1);
    // "H:|-(35)-[avatarIMview(20)]", "V:|-(20)-[avatarIMview(20)]"
    m_avatarIMview->setGeometry(35, 20, 20, 20);
    // "H:|-(70)-[fromField]-(>=10)-[dateField]", "H:[dateField]-(20)-|", both 20 high at y 10.
    // Both are as wide as their texts; when they do not both fit, the sender gives way first, so
    // the date stays whole and the gap never falls below 10.
    const int dateRight = w - 20;
    const int dateWidth = std::min(m_dateField->sizeHint().width(), std::max(0, dateRight - 70 - 10));
    const int dateLeft = dateRight - dateWidth;
    const int fromWidth = std::min(m_fromField->sizeHint().width(), std::max(0, dateLeft - 10 - 70));
    m_fromField->setGeometry(70, 10, fromWidth, 20);
    m_dateField->setGeometry(dateLeft, 10, dateWidth, 20);
    // "H:|-(70)-[subjectField]-(3)-[replyButton(20)]-(8)-[archiveButton(20)]-(8)-[trashButton(20)]-(20)-|"
    // and each of them at y 30, 20 high.
    const int subjectWidth = std::max(0, w - 169);
    m_subjectField->setGeometry(70, 30, subjectWidth, 20);
    m_replyButton->setGeometry(70 + subjectWidth + 3, 30, 20, 20);
    m_archiveButton->setGeometry(70 + subjectWidth + 3 + 28, 30, 20, 20);
    m_trashButton->setGeometry(70 + subjectWidth + 3 + 56, 30, 20, 20);
}

void TodayTableViewCell::setMarkedNew(bool marked) {
    if (marked == m_markedNew)
        return;
    m_markedNew = marked;
    updateAccessibleTexts();
    update();
}

void TodayTableViewCell::updateAccessibleTexts() {
    const ExtensionMessagePtr current = message();
    const QString from = current ? current->from() : QString();
    const QString subject = current ? current->subject() : QString();
    const QString date = current ? current->dateString() : QString();
    setAccessibleName(QStringLiteral("%1, %2, %3").arg(from, subject, date));
    QStringList description;
    const bool unread = current && current->unread().toBool();
    description << (unread ? Localization::text(QStringLiteral("Unread"))
                           : Localization::text(QStringLiteral("Read")));
    if (m_markedNew)
        description << Localization::text(QStringLiteral("New since you last looked"));
    description << Localization::text(QStringLiteral("Enter opens, R replies, A archives, Delete deletes"));
    setAccessibleDescription(description.join(QStringLiteral(". ")));
    const QString about = Localization::text(QStringLiteral("The message from %1: %2")).arg(from, subject);
    m_replyButton->setAccessibleName(Localization::text(QStringLiteral("Reply")));
    m_replyButton->setAccessibleDescription(about);
    m_archiveButton->setAccessibleName(Localization::text(QStringLiteral("Archive")));
    m_archiveButton->setAccessibleDescription(about);
    m_trashButton->setAccessibleName(Localization::text(QStringLiteral("Delete")));
    m_trashButton->setAccessibleDescription(about);
}

void TodayTableViewCell::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    if (!m_markedNew)
        return;
    // In the free space left of the avatar, level with the sender; the rows' content does not move.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(SystemColors::selectedContentBackground().lighter(125));
    painter.drawEllipse(QPointF(20.5, 20.5), 3.5, 3.5);
}

void TodayTableViewCell::PopulateExtensionMessage(const ExtensionMessagePtr& message) {
    setMessage(message);
    if (!message)
        return;
    m_subjectField->setStringValue(message->subject());
    m_fromField->setStringValue(message->from());
    m_dateField->setStringValue(message->dateString());
    const QImage image = message->image();
    if (!image.isNull())
        m_avatarIMview->setImage(image);
    layoutContent();
    updateAccessibleTexts();
}

void TodayTableViewCell::send(const QString& command, bool background) {
    const ExtensionMessagePtr current = message();
    // A cell never filled has no message to send: nothing happens.
    if (!current)
        return;
    // A row on its way out (its message archived or deleted) sends nothing more: a second click,
    // or one while it slides, would send its command twice.
    if (m_leaving)
        return;
    // Without waiting for the mail application: one that is slow to answer must not hold the window.
    // The command's notification still goes out here, before this returns.
    ExtensionUtilities::LaunchCommandForMessagesWithoutWaiting({current}, command, background);
}

void TodayTableViewCell::reply(ImageButton*) {
    send(ConstVars::commandReply, false);
}

void TodayTableViewCell::trash(ImageButton*) {
    send(ConstVars::commandDelete, true);
}

void TodayTableViewCell::archive(ImageButton*) {
    send(ConstVars::commandArchive, true);
}

} // namespace corvina
