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

} // namespace corvina
