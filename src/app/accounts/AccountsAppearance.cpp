#include "AccountsAppearance.h"

#include "platform/ColorScheme.h"

#include <QApplication>
#include <QStyle>
#include <QStyleFactory>
#include <memory>

namespace corvina {

std::optional<AccountsAppearance::Mode> AccountsAppearance::parse(const QString& word) {
    if (word == QLatin1String("auto"))
        return Mode::Auto;
    if (word == QLatin1String("light"))
        return Mode::Light;
    if (word == QLatin1String("dark"))
        return Mode::Dark;
    return std::nullopt;
}

AccountsAppearance::AccountsAppearance(Mode mode, QObject* parent) : QObject(parent), m_mode(mode) {}

void AccountsAppearance::start() {
    if (m_mode != Mode::Auto) {
        apply(m_mode == Mode::Dark);
        return;
    }
    m_scheme = new ColorScheme(this);
    connect(m_scheme, &ColorScheme::changed, this, [](ColorScheme::Preference preference) {
        if (preference != ColorScheme::Preference::None)
            apply(preference == ColorScheme::Preference::Dark);
    });
    m_scheme->start();
}

QPalette AccountsAppearance::lightPalette() {
    const std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette p = fusion->standardPalette();
    // The style's greyed-out texts are too faint to read (under 2 : 1): a disabled switch must
    // still say what it is.
    const QColor dim(0x66, 0x66, 0x66);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, dim);
    // The selection in a blue dark enough for white text on it (the style's is under 4 : 1).
    p.setColor(QPalette::Highlight, QColor(0x2f, 0x5c, 0xb8));
    p.setColor(QPalette::HighlightedText, Qt::white);
    return p;
}

QPalette AccountsAppearance::darkPalette() {
    // Every text colour at least 4.5 : 1 against the background it is drawn on (the contrast the
    // web's accessibility guidelines ask of body text), disabled and placeholder texts included.
    const QColor window(0x2b, 0x2b, 0x2b);
    const QColor base(0x1e, 0x1e, 0x1e);
    const QColor button(0x3a, 0x3a, 0x3a);
    const QColor text(0xee, 0xee, 0xee);
    const QColor dim(0xa6, 0xa6, 0xa6);
    QPalette p;
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, button);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::ToolTipBase, button);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, dim);
    p.setColor(QPalette::Highlight, QColor(0x2f, 0x5c, 0xb8));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x8a, 0xb4, 0xf8));
    p.setColor(QPalette::LinkVisited, QColor(0xc5, 0x8a, 0xf9));
    p.setColor(QPalette::Light, QColor(0x50, 0x50, 0x50));
    p.setColor(QPalette::Midlight, QColor(0x44, 0x44, 0x44));
    p.setColor(QPalette::Mid, QColor(0x33, 0x33, 0x33));
    p.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x18));
    p.setColor(QPalette::Shadow, Qt::black);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, dim);
    p.setColor(QPalette::Disabled, QPalette::Base, window);
    p.setColor(QPalette::Disabled, QPalette::Button, button);
    p.setColor(QPalette::Disabled, QPalette::Highlight, p.color(QPalette::Active, QPalette::Highlight));
    return p;
}

void AccountsAppearance::apply(bool dark) {
    // Fusion draws every control from the palette; a platform style may keep colours of its own.
    if (QApplication::style()->name().compare(QLatin1String("fusion"), Qt::CaseInsensitive) != 0)
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(dark ? darkPalette() : lightPalette());
}

} // namespace corvina
