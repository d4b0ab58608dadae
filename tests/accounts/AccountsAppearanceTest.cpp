// The Accounts window light and dark as the desktop: every control takes its colours from the
// application's palette (the window sets none of its own), and in both palettes each text is at
// least 4.5 : 1 against what it is drawn on, disabled texts included. Drawn dark into
// CORVINA_ACCOUNTS_SHOTS when that names a folder (docs/accounts-dark.png).
#include "accounts/AccountsAppearance.h"

#include "accounts/AccountList.h"
#include "accounts/AccountsWindow.h"
#include "accounts/KeepCurrentRow.h"
#include "bridge/service/BridgeUnit.h"
#include "bridge/sync/BridgeStatus.h"
#include "support/PrivateSessionBus.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <cmath>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

double luminance(const QColor& colour) {
    const auto channel = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(colour.redF()) + 0.7152 * channel(colour.greenF()) +
           0.0722 * channel(colour.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

// Each text colour with the background it is drawn on.
const std::pair<QPalette::ColorRole, QPalette::ColorRole> TextOnBackground[] = {
    {QPalette::WindowText, QPalette::Window},
    {QPalette::Text, QPalette::Base},
    {QPalette::ButtonText, QPalette::Button},
    {QPalette::PlaceholderText, QPalette::Base},
    {QPalette::Link, QPalette::Window},
    {QPalette::HighlightedText, QPalette::Highlight},
    {QPalette::ToolTipText, QPalette::ToolTipBase}};

class AccountsAppearanceTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(PrivateSessionBus::instance(), nullptr);
        m_style = QApplication::style()->name();
        m_palette = QApplication::palette();
        // Two accounts, one current and one failing, as the bridge leaves them.
        QSettings settings(config, QSettings::IniFormat);
        settings.setValue(QStringLiteral("home/mail"), QStringLiteral("ada@example.org"));
        settings.setValue(QStringLiteral("home/host"), QStringLiteral("imap.example.org"));
        settings.setValue(QStringLiteral("work/mail"), QStringLiteral("ada@work.example"));
        settings.setValue(QStringLiteral("work/host"), QStringLiteral("imap.work.example"));
        settings.sync();
        BridgeStatus written(status);
        const QDateTime now = QDateTime::currentDateTimeUtc();
        written.recordSync(QStringLiteral("home"), QStringLiteral("ada@example.org"), now);
        written.recordFailure(QStringLiteral("work"), QStringLiteral("ada@work.example"),
                              QStringLiteral("login refused for ada@work.example: AUTHENTICATIONFAILED"),
                              now);
        QString error;
        ASSERT_TRUE(written.write(&error)) << error.toStdString();
    }
    void TearDown() override {
        QApplication::setStyle(m_style);
        QApplication::setPalette(m_palette);
    }

    // Every widget of the window draws with the application's palette, readable.
    static void expectReadable(QWidget& window, const QPalette& palette) {
        for (const QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
            for (const auto& [text, background] : TextOnBackground) {
                EXPECT_GE(contrast(palette.color(group, text), palette.color(group, background)), 4.5)
                    << "group " << int(group) << ", role " << int(text) << " on " << int(background);
            }
        }
        for (QWidget* widget : window.findChildren<QWidget*>()) {
            for (const QPalette::ColorGroup group :
                 {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
                for (const auto& [text, background] : TextOnBackground) {
                    EXPECT_EQ(widget->palette().color(group, text), palette.color(group, text))
                        << widget->metaObject()->className() << " " << widget->accessibleName().toStdString();
                    EXPECT_EQ(widget->palette().color(group, background), palette.color(group, background))
                        << widget->metaObject()->className() << " " << widget->accessibleName().toStdString();
                }
            }
        }
    }

    QTemporaryDir dir;
    QString config = dir.filePath(QStringLiteral("bridge.conf"));
    QString status = dir.filePath(QStringLiteral("state/bridge-status.json"));
    QString m_style;
    QPalette m_palette;
};

TEST_F(AccountsAppearanceTest, DarkEveryTextReadable) {
    AccountsAppearance dark(AccountsAppearance::Mode::Dark);
    dark.start();
    EXPECT_EQ(QApplication::palette().color(QPalette::Window),
              AccountsAppearance::darkPalette().color(QPalette::Window));
    EXPECT_LT(luminance(QApplication::palette().color(QPalette::Window)), 0.1);
    AccountsWindow window(config, status, 5);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    ASSERT_TRUE(QTest::qWaitFor([&] { return window.bridgeUnit().checked(); }, 30000));
    expectReadable(window, AccountsAppearance::darkPalette());
    // Drawn: the window's background is the dark palette's, not the style's light grey.
    const QImage image = window.grab().toImage();
    EXPECT_EQ(image.pixelColor(2, 2), AccountsAppearance::darkPalette().color(QPalette::Window));

    const QString folder = qEnvironmentVariable("CORVINA_ACCOUNTS_SHOTS");
    if (!folder.isEmpty()) {
        QDir().mkpath(folder);
        window.accounts().reload();
        for (int i = 0; i < 3; ++i)
            QCoreApplication::processEvents();
        EXPECT_TRUE(window.grab().save(QDir(folder).filePath(QStringLiteral("accounts-dark.png"))));
    }
}

TEST_F(AccountsAppearanceTest, LightEveryTextReadable) {
    AccountsAppearance light(AccountsAppearance::Mode::Light);
    light.start();
    AccountsWindow window(config, status, 5);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    expectReadable(window, AccountsAppearance::lightPalette());
    EXPECT_GT(luminance(QApplication::palette().color(QPalette::Window)), 0.5);
}

TEST(AccountsAppearanceWords, AutoLightOrDarkAndNothingElse) {
    EXPECT_EQ(AccountsAppearance::parse(QStringLiteral("auto")), AccountsAppearance::Mode::Auto);
    EXPECT_EQ(AccountsAppearance::parse(QStringLiteral("light")), AccountsAppearance::Mode::Light);
    EXPECT_EQ(AccountsAppearance::parse(QStringLiteral("dark")), AccountsAppearance::Mode::Dark);
    EXPECT_EQ(AccountsAppearance::parse(QStringLiteral("Dark")), std::nullopt);
    EXPECT_EQ(AccountsAppearance::parse(QString()), std::nullopt);
}

// The window's own sources name no colour: every one comes from the palette above, so no text can
// be left dark on dark. (The palette itself, in AccountsAppearance, is where colours are named.)
TEST(AccountsAppearanceWords, TheWindowNamesNoColourOfItsOwn) {
    const QDir folder(QStringLiteral(CORVINA_SOURCE_DIR "/src/app/accounts"));
    static const QRegularExpression colour(QStringLiteral(
        R"(QColor\s*\(|setStyleSheet|Qt::(red|green|blue|black|white|gray|darkGray|lightGray)\b|color\s*:)"));
    int read = 0;
    for (const QString& name :
         folder.entryList({QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files)) {
        if (name.startsWith(QLatin1String("AccountsAppearance.")))
            continue;
        QFile file(folder.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QString source = QString::fromUtf8(file.readAll());
        ++read;
        EXPECT_FALSE(colour.match(source).hasMatch())
            << name.toStdString() << ": " << colour.match(source).captured().toStdString();
    }
    EXPECT_GT(read, 5);
}

} // namespace
} // namespace corvina::test
