#include "requestutils/UrlCharacters.h"

#include <QByteArray>
#include <gtest/gtest.h>

using namespace corvina;

TEST(UrlCharacters, SpacesControlsAndNinePunctuationMarksAreNeverInAURL) {
    for (char32_t c = 0; c <= 0x20; ++c)
        EXPECT_TRUE(UrlCharacters::neverInURL(c)) << int(c);
    EXPECT_TRUE(UrlCharacters::neverInURL(0x7F));
    for (const char c : {'"', '<', '>', '\\', '^', '`', '{', '|', '}'})
        EXPECT_TRUE(UrlCharacters::neverInURL(char32_t(c))) << c;
}

TEST(UrlCharacters, EveryOtherPrintableCharacterMayBe) {
    const QByteArray never = "\"<>\\^`{|}";
    for (char32_t c = 0x21; c < 0x7F; ++c)
        EXPECT_EQ(UrlCharacters::neverInURL(c), never.contains(char(c))) << char(c);
    // Above ASCII the rule is the caller's: a URL string refuses it, the link detector asks more.
    EXPECT_FALSE(UrlCharacters::neverInURL(U'é'));
}
