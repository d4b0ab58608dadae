#include "ImageButton.h"

#include "ImageButtonAccessible.h"
#include "Images.h"
#include "SystemColors.h"

#include <QAccessible>
#include <QPainter>

namespace corvina {

ImageButton::ImageButton(QWidget* parent) : QAbstractButton(parent) {
    // In a table row the button belongs to the row's list item for a screen reader; its interface
    // says so. Once per program.
    static const bool factoryInstalled = [] {
        QAccessible::installFactory(&ImageButtonAccessible::create);
        return true;
    }();
    Q_UNUSED(factoryInstalled);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    connect(this, &QAbstractButton::clicked, this, [this] {
        if (m_action)
            m_action(this);
    });
}

void ImageButton::setImage(const QString& name) {
    m_imageName = name;
    update();
}

void ImageButton::setAlphaValue(qreal alpha) {
    m_alpha = alpha;
    update();
}

void ImageButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setOpacity(m_alpha);
    if (m_background.alpha() > 0)
        painter.fillRect(rect(), m_background);
    // The image is drawn at the button's size for the screen's pixel ratio, so it stays sharp.
    QPixmap pixmap = Images::imageNamed(m_imageName, size(), devicePixelRatioF());
    // The buttons' glyphs are white, made for the dark panel; on the light one they are drawn in
    // the text colour instead.
    if (SystemColors::isLight())
        pixmap = Images::tinted(pixmap, SystemColors::labelColor());
    if (isDown()) {
        painter.setOpacity(m_alpha * 0.6);
    } else if (underMouse()) {
        // Hover brings a dimmed button forward a little, so it reads as something to click.
        painter.setOpacity(std::min(1.0, m_alpha * 2.5));
    }
    painter.drawPixmap(rect(), pixmap);
}

} // namespace corvina
