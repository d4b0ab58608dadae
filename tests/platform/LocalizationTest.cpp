#include "platform/Localization.h"

#include "support/ScopedZone.h"

#include <gtest/gtest.h>

using namespace corvina;

TEST(Localization, EnglishAnswersTheKeyItself) {
    test::ScopedLanguage language(QLocale(QLocale::English, QLocale::UnitedStates));
    for (const char* key : {"No subject", "No Mail", "No Name", "Inbox", "To Do", "Memo"}) {
        EXPECT_EQ(Localization::text(QString::fromUtf8(key)), QString::fromUtf8(key));
    }
}

TEST(Localization, GermanTableCoversTheVisibleTexts) {
    test::ScopedLanguage language(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(Localization::text("No subject"), QStringLiteral("Kein Betreff"));
    EXPECT_EQ(Localization::text("No Mail"), QStringLiteral("Keine E-Mail"));
    EXPECT_EQ(Localization::text("No Name"), QStringLiteral("Kein Name"));
    EXPECT_EQ(Localization::text("Inbox"), QStringLiteral("Posteingang"));
    EXPECT_EQ(Localization::text("To Do"), QStringLiteral("Zu erledigen"));
    EXPECT_EQ(Localization::text("Memo"), QStringLiteral("Notiz"));
}

TEST(Localization, FrenchTableCoversTheVisibleTexts) {
    test::ScopedLanguage language(QLocale(QLocale::French, QLocale::France));
    EXPECT_EQ(Localization::text("No subject"), QStringLiteral("Sans objet"));
    EXPECT_EQ(Localization::text("Inbox"), QStringLiteral("Boîte de réception"));
    EXPECT_EQ(Localization::text("To Do"), QStringLiteral("À faire"));
}

TEST(Localization, AKeyWithoutTranslationAnswersItself) {
    test::ScopedLanguage language(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(Localization::text("Not in any table"), QStringLiteral("Not in any table"));
    EXPECT_EQ(Localization::text(""), QStringLiteral(""));
}

TEST(Localization, ALanguageWithoutATableAnswersTheKey) {
    test::ScopedLanguage language(QLocale(QLocale::Japanese, QLocale::Japan));
    EXPECT_EQ(Localization::text("No subject"), QStringLiteral("No subject"));
}
