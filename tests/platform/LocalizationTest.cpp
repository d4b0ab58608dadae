#include "platform/Localization.h"

#include <gtest/gtest.h>

using namespace corvina;

namespace {
// Restores the language the other tests expect.
struct LanguageGuard {
    QLocale saved = Localization::locale();
    ~LanguageGuard() { Localization::setLocale(saved); }
};
} // namespace

TEST(Localization, EnglishAnswersTheKeyItself) {
    LanguageGuard guard;
    Localization::setLocale(QLocale(QLocale::English, QLocale::UnitedStates));
    for (const char* key : {"No subject", "No Mail", "No Name", "Inbox", "To Do", "Memo"}) {
        EXPECT_EQ(Localization::text(QString::fromUtf8(key)), QString::fromUtf8(key));
    }
}

TEST(Localization, GermanTableCoversTheVisibleTexts) {
    LanguageGuard guard;
    Localization::setLocale(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(Localization::text("No subject"), QStringLiteral("Kein Betreff"));
    EXPECT_EQ(Localization::text("No Mail"), QStringLiteral("Keine E-Mail"));
    EXPECT_EQ(Localization::text("No Name"), QStringLiteral("Kein Name"));
    EXPECT_EQ(Localization::text("Inbox"), QStringLiteral("Posteingang"));
    EXPECT_EQ(Localization::text("To Do"), QStringLiteral("Zu erledigen"));
    EXPECT_EQ(Localization::text("Memo"), QStringLiteral("Notiz"));
}

TEST(Localization, FrenchTableCoversTheVisibleTexts) {
    LanguageGuard guard;
    Localization::setLocale(QLocale(QLocale::French, QLocale::France));
    EXPECT_EQ(Localization::text("No subject"), QStringLiteral("Sans objet"));
    EXPECT_EQ(Localization::text("Inbox"), QStringLiteral("Boîte de réception"));
    EXPECT_EQ(Localization::text("To Do"), QStringLiteral("À faire"));
}

TEST(Localization, AKeyWithoutTranslationAnswersItself) {
    LanguageGuard guard;
    Localization::setLocale(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(Localization::text("Not in any table"), QStringLiteral("Not in any table"));
    EXPECT_EQ(Localization::text(""), QStringLiteral(""));
}

TEST(Localization, ALanguageWithoutATableAnswersTheKey) {
    LanguageGuard guard;
    Localization::setLocale(QLocale(QLocale::Japanese, QLocale::Japan));
    EXPECT_EQ(Localization::text("No subject"), QStringLiteral("No subject"));
}
