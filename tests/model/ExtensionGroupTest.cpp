#include "model/ExtensionGroup.h"

#include "support/LogCapture.h"
#include "support/ScopedZone.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;

TEST(ExtensionGroup, EmptyDictionaryTakesEveryDefault) {
    LogCapture capture;
    const auto g = ExtensionGroup::initWithDictonary(QVariantMap());
    EXPECT_EQ(g->idx(), QString(""));
    EXPECT_FALSE(g->idx().isNull());
    EXPECT_EQ(g->name(), QStringLiteral("No Name"));
    ASSERT_TRUE(g->addresses());
    EXPECT_TRUE(g->addresses()->isEmpty());
    EXPECT_EQ(g->prettyprint(), QStringLiteral("No Name"));
    EXPECT_EQ(g->description(), QStringLiteral("ExtensionGroup No Name"));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionGroup, MissingNameIsTranslated) {
    test::ScopedLanguage german(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(ExtensionGroup::initWithDictonary(QVariantMap())->name(), QStringLiteral("Kein Name"));
}

TEST(ExtensionGroup, WithoutMembersPrintsTheNameAlone) {
    const auto g = ExtensionGroup::initWithDictonary(QVariantMap{{"idx", "g1"}, {"name", "Alone"}});
    EXPECT_EQ(g->idx(), QStringLiteral("g1"));
    EXPECT_EQ(g->prettyprint(), QStringLiteral("Alone"));
}

TEST(ExtensionGroup, WithMembersPrintsTheirCount) {
    const auto g = ExtensionGroup::initWithDictonary(
        QVariantMap{{"idx", "g2"},
                    {"name", "Friends"},
                    {"addresses", QVariantList{QVariantMap{{"mail", "a@example.org"}},
                                               QVariantMap{{"mail", "b@example.org"}}}}});
    ASSERT_EQ(g->addresses()->size(), 2);
    EXPECT_EQ(g->addresses()->at(0)->mail(), QStringLiteral("a@example.org"));
    EXPECT_EQ(g->addresses()->at(1)->mail(), QStringLiteral("b@example.org"));
    EXPECT_EQ(g->prettyprint(), QStringLiteral("Friends (2)"));
    EXPECT_EQ(g->description(), QStringLiteral("ExtensionGroup Friends"));
}

TEST(ExtensionGroup, TheIdentifierIsTextEvenWhenANumberIsGiven) {
    EXPECT_EQ(ExtensionGroup::initWithDictonary(QVariantMap{{"idx", qint64(17)}})->idx(),
              QStringLiteral("17"));
}

TEST(ExtensionGroup, AMemberThatIsNoDictionaryIsKeptUnsetAndLogged) {
    LogCapture capture;
    const auto g = ExtensionGroup::initWithDictonary(
        QVariantMap{{"name", "Odd"},
                    {"addresses", QVariantList{QVariantMap{{"mail", "c@example.org"}}, "not a dictionary"}}});
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAddress initWithDictonary objectForKey: unsupported value of type string"});
    ASSERT_EQ(g->addresses()->size(), 2);
    EXPECT_TRUE(g->addresses()->at(1)->mail().isNull());
    EXPECT_EQ(g->prettyprint(), QStringLiteral("Odd (2)"));
}

TEST(ExtensionGroup, MembersThatCannotBeIteratedStopTheGroupWithAnEmptyList) {
    LogCapture capture;
    const auto g = ExtensionGroup::initWithDictonary(
        QVariantMap{{"idx", "g4"}, {"name", "Text"}, {"addresses", "not a list"}});
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionGroup initWithDictonary enumerate: unsupported value of type string"});
    EXPECT_EQ(g->idx(), QStringLiteral("g4"));
    EXPECT_EQ(g->name(), QStringLiteral("Text"));
    ASSERT_TRUE(g->addresses());
    EXPECT_TRUE(g->addresses()->isEmpty());
}

TEST(ExtensionGroup, NotADictionaryIsLoggedAndLeftUnset) {
    LogCapture capture;
    const auto g = ExtensionGroup::initWithDictonary(QVariantList{});
    ASSERT_TRUE(g);
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionGroup initWithDictonary objectForKey: unsupported value of type array"});
    EXPECT_TRUE(g->idx().isNull());
    EXPECT_TRUE(g->name().isNull());
    EXPECT_FALSE(g->addresses());
    EXPECT_EQ(g->prettyprint(), QString(""));
    EXPECT_EQ(g->description(), QStringLiteral("ExtensionGroup (null)"));
}
