#pragma once

#include <QPixmap>
#include <QSize>
#include <QString>

namespace corvina {

// The widget's image resources ("prof10", "w_reply", "w_archive", "w_trash"): SVG artwork rendered
// for the screen it is shown on, so that it is sharp at any device pixel ratio.
class Images {
public:
    // The resource `name` drawn at `size` points for `devicePixelRatio`; a null pixmap when there
    // is no such resource.
    static QPixmap imageNamed(const QString& name, QSize size, qreal devicePixelRatio);
    static QString resourcePath(const QString& name);
};

} // namespace corvina
