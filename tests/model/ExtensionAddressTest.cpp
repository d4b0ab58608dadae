#include "model/ExtensionAddress.h"

#include "support/LogCapture.h"
#include "support/ScopedZone.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;

namespace {
ExtensionAddressPtr address(const QVariantMap& dictionary) {
    return ExtensionAddress::initWithDictonary(dictionary);
}
} // namespace

TEST(ExtensionAddress, EmptyDictionaryTakesEveryDefault) {
    LogCapture capture;
    const auto a = address({});
    EXPECT_EQ(a->mail(), QStringLiteral("No Mail"));
    for (const QString& text : {a->firstName(), a->lastName(), a->company(), a->nickname()}) {
        EXPECT_EQ(text, QString(""));
        EXPECT_FALSE(text.isNull());
    }
    EXPECT_EQ(a->rank(), 0);
    EXPECT_EQ(a->fullName(), QString(""));
    EXPECT_EQ(a->prettyprint(), QStringLiteral("<No Mail>"));
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAddress No Mail"));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionAddress, MissingMailIsNotTranslated) {
    test::ScopedLanguage german(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(address({})->mail(), QStringLiteral("No Mail"));
}

TEST(ExtensionAddress, FullDictionary) {
    const auto a = address({{"mail", "ada@example.org"},
                            {"firstName", "Ada"},
                            {"lastName", "Lovelace"},
                            {"company", "Engines"},
                            {"nickname", "Countess"},
                            {"rank", qint64(12)},
                            {"x", 1}});
    EXPECT_EQ(a->mail(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a->firstName(), QStringLiteral("Ada"));
    EXPECT_EQ(a->lastName(), QStringLiteral("Lovelace"));
    EXPECT_EQ(a->company(), QStringLiteral("Engines"));
    EXPECT_EQ(a->nickname(), QStringLiteral("Countess"));
    EXPECT_EQ(a->rank(), 12);
    EXPECT_EQ(a->fullName(), QStringLiteral("Ada Lovelace"));
    // the company and the nickname are not shown when there is a name
    EXPECT_EQ(a->prettyprint(), QStringLiteral("Ada Lovelace <ada@example.org>"));
}

TEST(ExtensionAddress, OneNameAloneHasNoStraySpace) {
    EXPECT_EQ(address({{"firstName", "Ada"}})->fullName(), QStringLiteral("Ada"));
    EXPECT_EQ(address({{"lastName", "Lovelace"}})->fullName(), QStringLiteral("Lovelace"));
    EXPECT_EQ(address({{"firstName", " Ada\n"}, {"lastName", "\t"}})->fullName(), QStringLiteral("Ada"));
    EXPECT_EQ(address({{"mail", "a@x.org"}, {"firstName", "Ada"}})->prettyprint(),
              QStringLiteral("Ada <a@x.org>"));
}

TEST(ExtensionAddress, CompanyStandsInForAMissingName) {
    const auto a = address(
        {{"mail", "sales@example.com"}, {"firstName", ""}, {"lastName", ""}, {"company", "Example Ltd"}});
    EXPECT_EQ(a->prettyprint(), QStringLiteral("Example Ltd <sales@example.com>"));
}

TEST(ExtensionAddress, TheNicknameIsNeverShown) {
    EXPECT_EQ(address({{"mail", "n@x.org"}, {"nickname", "Nick"}})->prettyprint(),
              QStringLiteral("<n@x.org>"));
}

TEST(ExtensionAddress, AnEmptyMailPrintsTheNameAlone) {
    EXPECT_EQ(address({{"mail", ""}, {"firstName", "No"}, {"lastName", "Address"}})->prettyprint(),
              QStringLiteral("No Address"));
    EXPECT_EQ(address({{"mail", ""}})->prettyprint(), QString(""));
}

TEST(ExtensionAddress, RankReadsIntegerValues) {
    EXPECT_EQ(address({{"rank", "7"}})->rank(), 7);
    EXPECT_EQ(address({{"rank", 7.8}})->rank(), 7);
    EXPECT_EQ(address({{"rank", "x"}})->rank(), 0);
}

TEST(ExtensionAddress, ARankThatIsNoNumberIsLoggedAfterTheTexts) {
    LogCapture capture;
    const auto a = address({{"mail", "bad@example.org"}, {"firstName", "Bad"}, {"rank", QVariantList{1}}});
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAddress initWithDictonary integerValue: unsupported value of type array"});
    EXPECT_EQ(a->mail(), QStringLiteral("bad@example.org"));
    EXPECT_EQ(a->firstName(), QStringLiteral("Bad"));
    EXPECT_EQ(a->nickname(), QString(""));
    EXPECT_EQ(a->rank(), 0);
}

TEST(ExtensionAddress, NotADictionaryIsLoggedAndLeftUnset) {
    LogCapture capture;
    const auto a = ExtensionAddress::initWithDictonary(QStringLiteral("not a dictionary"));
    ASSERT_TRUE(a);
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAddress initWithDictonary objectForKey: unsupported value of type string"});
    EXPECT_TRUE(a->mail().isNull());
    EXPECT_TRUE(a->firstName().isNull());
    EXPECT_TRUE(a->lastName().isNull());
    EXPECT_TRUE(a->company().isNull());
    EXPECT_TRUE(a->nickname().isNull());
    EXPECT_EQ(a->rank(), 0);
    // an unset record still prints, as nothing
    EXPECT_EQ(a->fullName(), QString(""));
    EXPECT_EQ(a->prettyprint(), QString(""));
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAddress (null)"));
}
