#pragma once

#include <QColor>
#include <atomic>

namespace corvina {

// The named system colours the widget's views use, for the current appearance.
//
// Dark is the widget's own look (and the default): a dark panel with white text at fixed alphas,
// readable on any dark backdrop. Light follows a light desktop: a light panel with black text at
// the same alphas. The views ask at the time they draw or are made, so a change of appearance
// shows once the views are drawn (and the rows made) again.
class SystemColors {
public:
    enum class Appearance { Dark, Light };

    static Appearance appearance() { return Appearance(s_appearance.load(std::memory_order_relaxed)); }
    static void setAppearance(Appearance appearance) {
        s_appearance.store(int(appearance), std::memory_order_relaxed);
    }
    static bool isLight() { return appearance() == Appearance::Light; }

    static QColor labelColor() { return content(217); }          // at 0.85
    static QColor secondaryLabelColor() { return content(140); } // at 0.55
    // The colour of text and lines at `alpha`: white on the dark panel, black on the light one.
    static QColor contentColor(qreal alpha) {
        QColor c(isLight() ? Qt::black : Qt::white);
        c.setAlphaF(float(alpha));
        return c;
    }
    static QColor whiteColor(qreal alpha = 1.0) {
        QColor c(Qt::white);
        c.setAlphaF(float(alpha));
        return c;
    }
    static QColor clearColor() { return QColor(0, 0, 0, 0); }
    // The panel the widget sits on.
    static QColor panelBackground() {
        return isLight() ? QColor(0xf3, 0xf4, 0xf6) : QColor(0x24, 0x26, 0x2b);
    }
    // The selected segment and the selected row.
    static QColor selectedContentBackground() { return QColor(0x3a, 0x6e, 0xd8); }
    static QColor controlBackground() { return content(30); }
    static QColor controlBorder() { return content(45); }

private:
    static QColor content(int alpha) {
        return isLight() ? QColor(0, 0, 0, alpha) : QColor(255, 255, 255, alpha);
    }

    static inline std::atomic<int> s_appearance{int(Appearance::Dark)};
};

} // namespace corvina
