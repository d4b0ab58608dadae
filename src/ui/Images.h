#pragma once

#include <QPixmap>
#include <QSize>
#include <QString>

namespace corvina {

// Named SVG artwork from the resources under ":/icons/" (the widget's own, "prof10", "w_reply",
// "w_archive" and "w_trash", are compiled in by views/), rendered for the screen it is shown on, so
// that it is sharp at any device pixel ratio.
class Images {
public:
    // The resource `name` drawn at `size` points for `devicePixelRatio`; a null pixmap when there
    // is no such resource.
    static QPixmap imageNamed(const QString& name, QSize size, qreal devicePixelRatio);
    static QString resourcePath(const QString& name);
    // `pixmap` with every painted pixel in `color`, its shape (alpha) kept: the white glyphs drawn
    // for the dark panel, made dark for a light one.
    static QPixmap tinted(const QPixmap& pixmap, const QColor& color);
};

} // namespace corvina
