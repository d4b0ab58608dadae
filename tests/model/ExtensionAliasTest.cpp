#include "model/ExtensionAlias.h"

#include "support/LogCapture.h"
#include "support/ScopedZone.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;

TEST(ExtensionAlias, FullDictionary) {
    const auto a = ExtensionAlias::initWithDictonary(QVariantMap{
        {"mail", "c@example.org"}, {"name", "Countess"}, {"account", "ada@example.org"}, {"x", 1}});
    EXPECT_EQ(a->mail(), QStringLiteral("c@example.org"));
    EXPECT_EQ(a->name(), QStringLiteral("Countess"));
    EXPECT_EQ(a->account(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAlias c@example.org"));
}

TEST(ExtensionAlias, EmptyDictionaryTakesEveryDefault) {
    LogCapture capture;
    const auto a = ExtensionAlias::initWithDictonary(QVariantMap());
    EXPECT_EQ(a->mail(), QStringLiteral("No Mail"));
    EXPECT_EQ(a->name(), QString(""));
    EXPECT_FALSE(a->name().isNull());
    EXPECT_EQ(a->account(), QString(""));
    EXPECT_FALSE(a->account().isNull());
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAlias No Mail"));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionAlias, MissingMailIsTranslated) {
    test::ScopedLanguage french(QLocale(QLocale::French, QLocale::France));
    const auto a = ExtensionAlias::initWithDictonary(QVariantMap());
    EXPECT_NE(a->mail(), QStringLiteral("No Mail"));
    EXPECT_FALSE(a->mail().isEmpty());
}

TEST(ExtensionAlias, NotADictionaryIsLoggedAndLeftUnset) {
    LogCapture capture;
    const auto a = ExtensionAlias::initWithDictonary(qint64(2));
    ASSERT_TRUE(a);
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionAlias initWithDictonary objectForKey: unsupported value of type number"});
    EXPECT_TRUE(a->mail().isNull());
    EXPECT_TRUE(a->name().isNull());
    EXPECT_TRUE(a->account().isNull());
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAlias (null)"));
}
