#include "Images.h"

#include <QFile>
#include <QIconEngine>
#include <QPainter>
#include <QSvgRenderer>

namespace corvina {

namespace {

// Renders the SVG for whatever size and ratio the icon is painted at, instead of scaling a bitmap.
class SvgIconEngine : public QIconEngine {
public:
    explicit SvgIconEngine(QString name) : m_name(std::move(name)) {}
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
        QSvgRenderer renderer(Images::resourcePath(m_name));
        renderer.render(painter, QRectF(rect));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return scaledPixmap(size, mode, state, 1.0);
    }
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode, QIcon::State, qreal scale) override {
        return Images::imageNamed(m_name, size, scale);
    }
    QIconEngine* clone() const override { return new SvgIconEngine(m_name); }

private:
    QString m_name;
};

} // namespace

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

QIcon Images::iconNamed(const QString& name) {
    return QIcon(new SvgIconEngine(name));
}

} // namespace corvina
