#include "platform/ColorScheme.h"

#include "support/PrivateSessionBus.h"
#include "support/ScopedEnvironment.h"
#include "support/SettingsPortal.h"

#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::PrivateSessionBus;
using corvina::test::ScopedEnvironment;
using corvina::test::SettingsPortal;

TEST(ColorScheme, PortalValuesMeanDarkLightOrNothing) {
    EXPECT_EQ(ColorScheme::fromPortalValue(1u), ColorScheme::Preference::Dark);
    EXPECT_EQ(ColorScheme::fromPortalValue(2u), ColorScheme::Preference::Light);
    EXPECT_EQ(ColorScheme::fromPortalValue(0u), ColorScheme::Preference::None);
    EXPECT_EQ(ColorScheme::fromPortalValue(7u), ColorScheme::Preference::None);
    EXPECT_EQ(ColorScheme::fromPortalValue(QStringLiteral("dark")), ColorScheme::Preference::None);
    EXPECT_EQ(ColorScheme::fromPortalValue(QVariant()), ColorScheme::Preference::None);
    // As Read answers it: the number in a variant in a variant.
    const QVariant wrapped = QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(2u))));
    EXPECT_EQ(ColorScheme::fromPortalValue(wrapped), ColorScheme::Preference::Light);
}

TEST(ColorScheme, APaletteIsLightWhenItsWindowIsLighterThanItsText) {
    QPalette light;
    light.setColor(QPalette::Window, QColor(0xf0, 0xf0, 0xf0));
    light.setColor(QPalette::WindowText, Qt::black);
    EXPECT_EQ(ColorScheme::fromPalette(light), ColorScheme::Preference::Light);
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x20, 0x20, 0x20));
    dark.setColor(QPalette::WindowText, Qt::white);
    EXPECT_EQ(ColorScheme::fromPalette(dark), ColorScheme::Preference::Dark);
}

TEST(ColorScheme, WithoutPortalOrDesktopThereIsNoPreference) {
    // Qt's palette without a desktop theme is light whatever the desktop: it must not count.
    ScopedEnvironment desktop("XDG_CURRENT_DESKTOP", std::nullopt);
    ColorScheme scheme;
    EXPECT_EQ(scheme.preference(), ColorScheme::Preference::None);
}

TEST(ColorScheme, ADesktopSessionIsJudgedByItsPalette) {
    ScopedEnvironment desktop("XDG_CURRENT_DESKTOP", QByteArray("KDE"));
    ColorScheme scheme;
    EXPECT_EQ(scheme.preference(), ColorScheme::fromPalette(QGuiApplication::palette()));
    EXPECT_NE(scheme.preference(), ColorScheme::Preference::None);
}

TEST(ColorScheme, ThePortalIsAskedAndFollowed) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    ScopedEnvironment desktop("XDG_CURRENT_DESKTOP", std::nullopt);
    SettingsPortal portal(bus->address(), 2);
    ASSERT_TRUE(portal.isRegistered());

    ColorScheme scheme;
    QSignalSpy changed(&scheme, &ColorScheme::changed);
    scheme.start();
    ASSERT_TRUE(changed.wait(5000));
    EXPECT_TRUE(scheme.portalAnswered());
    EXPECT_EQ(scheme.preference(), ColorScheme::Preference::Light);
    EXPECT_EQ(changed.last().at(0).value<ColorScheme::Preference>(), ColorScheme::Preference::Light);

    // The desktop turns dark: the change arrives as the portal's signal.
    portal.setColorScheme(1);
    ASSERT_TRUE(changed.wait(5000));
    EXPECT_EQ(scheme.preference(), ColorScheme::Preference::Dark);

    // No preference any more: nothing else to go by, so no preference.
    portal.setColorScheme(0);
    ASSERT_TRUE(changed.wait(5000));
    EXPECT_EQ(scheme.preference(), ColorScheme::Preference::None);
}

TEST(ColorScheme, NoPortalOnTheBusLeavesThePalette) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    ScopedEnvironment desktop("XDG_CURRENT_DESKTOP", std::nullopt);
    ColorScheme scheme;
    QSignalSpy changed(&scheme, &ColorScheme::changed);
    scheme.start();
    // The bus answers that no one owns the name: the answer comes, and it is no preference.
    ASSERT_TRUE(changed.wait(5000));
    EXPECT_FALSE(scheme.portalAnswered());
    EXPECT_EQ(scheme.preference(), ColorScheme::Preference::None);
}
