#include "Images.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

namespace corvina {

QString Images::resourcePath(const QString& name) {
    return QStringLiteral(":/icons/") + name + QStringLiteral(".svg");
}

QPixmap Images::imageNamed(const QString& name, QSize size, qreal devicePixelRatio) {
    if (!QFile::exists(resourcePath(name)) || size.isEmpty())
        return {};
    QSvgRenderer renderer(resourcePath(name));
    if (!renderer.isValid())
        return {};
    QPixmap pixmap(size * devicePixelRatio);
    pixmap.fill(Qt::transparent);
    {
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter);
    }
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

QPixmap Images::tinted(const QPixmap& pixmap, const QColor& color) {
    if (pixmap.isNull())
        return pixmap;
    QPixmap result = pixmap;
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(QRect(QPoint(0, 0), result.size()), QColor(color.red(), color.green(), color.blue()));
    return result;
}

} // namespace corvina
