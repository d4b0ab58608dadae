#include "ImageView.h"

#include "Images.h"

#include <QPainter>

namespace corvina {

ImageView::ImageView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TranslucentBackground);
}

void ImageView::setImageNamed(const QString& name) {
    m_name = name;
    m_image = QImage();
    update();
}

void ImageView::setImage(const QImage& image) {
    m_name.clear();
    m_image = image;
    update();
}

void ImageView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!m_name.isEmpty()) {
        painter.drawPixmap(rect(), Images::imageNamed(m_name, size(), devicePixelRatioF()));
        return;
    }
    if (m_image.isNull())
        return;
    QSizeF fitted = m_image.size();
    if (fitted.width() > width() || fitted.height() > height())
        fitted.scale(size(), Qt::KeepAspectRatio);
    const QRectF target(QPointF((width() - fitted.width()) / 2, (height() - fitted.height()) / 2), fitted);
    painter.drawImage(target, m_image);
}

} // namespace corvina
