#include "ui/ImageButton.h"
#include "ui/Images.h"
#include "ui/SystemColors.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

// Sets the appearance for a block of a test, back to dark after.
struct ScopedAppearance {
    explicit ScopedAppearance(SystemColors::Appearance a) { SystemColors::setAppearance(a); }
    ~ScopedAppearance() { SystemColors::setAppearance(SystemColors::Appearance::Dark); }
};

// The mean lightness of the pixels that are painted (alpha above 0) in `image`.
int paintedLightness(const QImage& image) {
    qint64 sum = 0;
    qint64 count = 0;
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < argb.height(); ++y)
        for (int x = 0; x < argb.width(); ++x) {
            const QColor c = argb.pixelColor(x, y);
            if (c.alpha() > 40) {
                sum += c.lightness();
                ++count;
            }
        }
    return count ? int(sum / count) : -1;
}

} // namespace

TEST(SystemColors, DarkIsTheDefaultLook) {
    EXPECT_EQ(SystemColors::appearance(), SystemColors::Appearance::Dark);
    EXPECT_EQ(SystemColors::labelColor(), QColor(255, 255, 255, 217));
    EXPECT_EQ(SystemColors::secondaryLabelColor(), QColor(255, 255, 255, 140));
    EXPECT_EQ(SystemColors::panelBackground(), QColor(0x24, 0x26, 0x2b));
    EXPECT_EQ(SystemColors::controlBackground(), QColor(255, 255, 255, 30));
}

TEST(SystemColors, LightTurnsTextDarkOnALightPanel) {
    ScopedAppearance light(SystemColors::Appearance::Light);
    EXPECT_EQ(SystemColors::labelColor(), QColor(0, 0, 0, 217));
    EXPECT_EQ(SystemColors::secondaryLabelColor(), QColor(0, 0, 0, 140));
    EXPECT_EQ(SystemColors::contentColor(0.4).rgb() & 0xffffff, 0u);
    EXPECT_GT(SystemColors::panelBackground().lightness(), 200);
    EXPECT_EQ(SystemColors::controlBorder(), QColor(0, 0, 0, 45));
    // White stays white: the selected segment's text is on the blue either way.
    EXPECT_EQ(SystemColors::whiteColor(), QColor(Qt::white));
}

TEST(SystemColors, TintingKeepsTheShapeAndChangesTheColour) {
    QPixmap glyph(10, 10);
    glyph.fill(Qt::transparent);
    {
        QPainter p(&glyph);
        p.fillRect(2, 2, 4, 4, Qt::white);
    }
    const QImage tinted = Images::tinted(glyph, QColor(10, 20, 30, 200)).toImage();
    EXPECT_EQ(tinted.pixelColor(3, 3), QColor(10, 20, 30));
    EXPECT_EQ(tinted.pixelColor(8, 8).alpha(), 0);
}

TEST(SystemColors, ButtonGlyphsAreDarkOnTheLightPanel) {
    ImageButton button;
    button.setImage(QStringLiteral("w_archive"));
    button.setAlphaValue(1.0);
    button.resize(20, 20);
    ASSERT_FALSE(Images::imageNamed(QStringLiteral("w_archive"), QSize(20, 20), 1.0).isNull())
        << "the glyph resource is not linked into this test";
    QImage dark(20, 20, QImage::Format_ARGB32_Premultiplied);
    dark.fill(Qt::transparent);
    button.render(&dark, QPoint(), QRegion(), QWidget::DrawChildren);
    EXPECT_GT(paintedLightness(dark), 200);

    ScopedAppearance light(SystemColors::Appearance::Light);
    QImage onLight(20, 20, QImage::Format_ARGB32_Premultiplied);
    onLight.fill(Qt::transparent);
    button.render(&onLight, QPoint(), QRegion(), QWidget::DrawChildren);
    EXPECT_LT(paintedLightness(onLight), 60);
}
