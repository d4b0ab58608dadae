#pragma once

#include <QColor>

namespace corvina {

// The named system colours the widget's views use, as they look on the widget's dark panel.
// Text colours are white at fixed alphas, so that they stay readable on any dark backdrop.
class SystemColors {
public:
    static QColor labelColor() { return QColor(255, 255, 255, 217); }          // white at 0.85
    static QColor secondaryLabelColor() { return QColor(255, 255, 255, 140); } // white at 0.55
    static QColor whiteColor(qreal alpha = 1.0) {
        QColor c(Qt::white);
        c.setAlphaF(float(alpha));
        return c;
    }
    static QColor clearColor() { return QColor(0, 0, 0, 0); }
    // The panel the widget sits on.
    static QColor panelBackground() { return QColor(0x24, 0x26, 0x2b); }
    // The selected segment and the selected row.
    static QColor selectedContentBackground() { return QColor(0x3a, 0x6e, 0xd8); }
    static QColor controlBackground() { return QColor(255, 255, 255, 30); }
    static QColor controlBorder() { return QColor(255, 255, 255, 45); }
};

} // namespace corvina
