#include "model/ExtensionAccount.h"

#include "support/LogCapture.h"
#include "support/ScopedZone.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;

namespace {
bool enabledFor(const QVariant& value) {
    return ExtensionAccount::initWithDictonary(QVariantMap{{"enabled", value}})->enabled();
}
qint64 typeFor(const QVariant& value) {
    return ExtensionAccount::initWithDictonary(QVariantMap{{"type", value}})->type();
}
} // namespace

TEST(ExtensionAccount, EmptyDictionaryTakesEveryDefault) {
    LogCapture capture;
    const auto a = ExtensionAccount::initWithDictonary(QVariantMap());
    EXPECT_EQ(a->mail(), QStringLiteral("No Mail"));
    EXPECT_EQ(a->name(), QString(""));
    EXPECT_FALSE(a->name().isNull());
    EXPECT_EQ(a->type(), 0);
    EXPECT_FALSE(a->enabled());
    ASSERT_TRUE(a->aliases());
    EXPECT_TRUE(a->aliases()->isEmpty());
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAccount No Mail"));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionAccount, MissingMailIsTranslated) {
    test::ScopedLanguage german(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(ExtensionAccount::initWithDictonary(QVariantMap())->mail(), QStringLiteral("Keine E-Mail"));
}

TEST(ExtensionAccount, FullDictionary) {
    const auto a = ExtensionAccount::initWithDictonary(QVariantMap{{"mail", "ada@example.org"},
                                                                   {"name", "Ada"},
                                                                   {"type", qint64(2)},
                                                                   {"enabled", qint64(1)},
                                                                   {"color", "red"}});
    EXPECT_EQ(a->mail(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a->name(), QStringLiteral("Ada"));
    EXPECT_EQ(a->type(), 2);
    EXPECT_TRUE(a->enabled());
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAccount ada@example.org"));
}

TEST(ExtensionAccount, EnabledReadsNumbersAndTextsAsBooleans) {
    EXPECT_TRUE(enabledFor(qint64(1)));
    EXPECT_TRUE(enabledFor(true));
    EXPECT_TRUE(enabledFor(QStringLiteral("YES")));
    EXPECT_TRUE(enabledFor(QStringLiteral("true")));
    EXPECT_TRUE(enabledFor(QStringLiteral("  +007")));
    EXPECT_TRUE(enabledFor(QStringLiteral("yep")));
    EXPECT_TRUE(enabledFor(2.5));
    EXPECT_FALSE(enabledFor(qint64(0)));
    EXPECT_FALSE(enabledFor(false));
    EXPECT_FALSE(enabledFor(QStringLiteral("NO")));
    EXPECT_FALSE(enabledFor(QStringLiteral("false")));
    EXPECT_FALSE(enabledFor(QStringLiteral("")));
    EXPECT_FALSE(enabledFor(QStringLiteral("000")));
    EXPECT_FALSE(enabledFor(QVariant()));
    EXPECT_FALSE(ExtensionAccount::initWithDictonary(QVariantMap{{"mail", "x"}})->enabled());
}

TEST(ExtensionAccount, TypeReadsIntegerValues) {
    EXPECT_EQ(typeFor(qint64(3)), 3);
    EXPECT_EQ(typeFor(QStringLiteral("3")), 3);
    EXPECT_EQ(typeFor(QStringLiteral("3.9")), 3);
    EXPECT_EQ(typeFor(3.9), 3);
    EXPECT_EQ(typeFor(-3.9), -3);
    EXPECT_EQ(typeFor(QStringLiteral(" -12abc")), -12);
    EXPECT_EQ(typeFor(QStringLiteral("abc")), 0);
    EXPECT_EQ(typeFor(true), 1);
}

TEST(ExtensionAccount, AliasesKeepTheirOrder) {
    LogCapture capture;
    const auto a = ExtensionAccount::initWithDictonary(QVariantMap{
        {"mail", "ada@example.org"},
        {"aliases",
         QVariantList{
             QVariantMap{{"mail", "one@example.org"}, {"name", "One"}, {"account", "ada@example.org"}},
             QVariantMap{{"mail", "two@example.org"}, {"name", "Two"}}}}});
    ASSERT_EQ(a->aliases()->size(), 2);
    EXPECT_EQ(a->aliases()->at(0)->mail(), QStringLiteral("one@example.org"));
    EXPECT_EQ(a->aliases()->at(0)->name(), QStringLiteral("One"));
    EXPECT_EQ(a->aliases()->at(0)->account(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a->aliases()->at(1)->mail(), QStringLiteral("two@example.org"));
    EXPECT_EQ(a->aliases()->at(1)->account(), QString(""));
    EXPECT_FALSE(a->aliases()->at(1)->account().isNull());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionAccount, AnAliasThatIsNoDictionaryIsKeptUnsetAndLogged) {
    LogCapture capture;
    const auto a = ExtensionAccount::initWithDictonary(
        QVariantMap{{"mail", "ada@example.org"},
                    {"enabled", true},
                    {"aliases", QVariantList{QVariantMap{{"mail", "first@example.org"}}, "not a dictionary",
                                             QVariantMap{{"mail", "third@example.org"}}}}});
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionAlias initWithDictonary objectForKey: unsupported value of type string"});
    ASSERT_EQ(a->aliases()->size(), 3);
    EXPECT_EQ(a->aliases()->at(0)->mail(), QStringLiteral("first@example.org"));
    EXPECT_TRUE(a->aliases()->at(1)->mail().isNull());
    EXPECT_TRUE(a->aliases()->at(1)->name().isNull());
    EXPECT_TRUE(a->aliases()->at(1)->account().isNull());
    EXPECT_EQ(a->aliases()->at(2)->mail(), QStringLiteral("third@example.org"));
    EXPECT_TRUE(a->enabled());
}

TEST(ExtensionAccount, AliasesThatAreADictionaryGiveOneUnsetAliasPerKey) {
    LogCapture capture;
    const auto a = ExtensionAccount::initWithDictonary(QVariantMap{
        {"mail", "d@example.org"}, {"aliases", QVariantMap{{"k1", QVariantMap{{"mail", "x"}}}, {"k2", 2}}}});
    ASSERT_EQ(a->aliases()->size(), 2);
    for (const auto& alias : *a->aliases()) {
        EXPECT_TRUE(alias->mail().isNull());
        EXPECT_TRUE(alias->account().isNull());
    }
    EXPECT_EQ(
        capture.count("ExtensionAlias initWithDictonary objectForKey: unsupported value of type string"), 2);
    EXPECT_EQ(capture.lines().size(), 2);
}

TEST(ExtensionAccount, AliasesThatCannotBeIteratedStopTheAccountWithAnEmptyList) {
    for (const QVariant& bad : {QVariant(QStringLiteral("not a list")), QVariant(qint64(4))}) {
        LogCapture capture;
        const auto a = ExtensionAccount::initWithDictonary(QVariantMap{{"mail", "text@example.org"},
                                                                       {"name", "Text"},
                                                                       {"type", qint64(7)},
                                                                       {"enabled", qint64(1)},
                                                                       {"aliases", bad}});
        EXPECT_EQ(
            capture.lines(),
            QStringList{
                QStringLiteral("ExtensionAccount initWithDictonary enumerate: unsupported value of type %1")
                    .arg(bad.typeId() == QMetaType::QString ? "string" : "number")});
        EXPECT_EQ(a->mail(), QStringLiteral("text@example.org"));
        EXPECT_EQ(a->name(), QStringLiteral("Text"));
        EXPECT_EQ(a->type(), 7);
        EXPECT_TRUE(a->enabled());
        ASSERT_TRUE(a->aliases());
        EXPECT_TRUE(a->aliases()->isEmpty());
    }
}

TEST(ExtensionAccount, ATypeThatIsNoNumberStopsTheRestUnset) {
    LogCapture capture;
    const auto a = ExtensionAccount::initWithDictonary(QVariantMap{{"mail", "m@example.org"},
                                                                   {"name", "N"},
                                                                   {"type", QVariantList{1}},
                                                                   {"enabled", qint64(1)},
                                                                   {"aliases", QVariantList{QVariantMap()}}});
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAccount initWithDictonary integerValue: unsupported value of type array"});
    EXPECT_EQ(a->mail(), QStringLiteral("m@example.org"));
    EXPECT_EQ(a->name(), QStringLiteral("N"));
    EXPECT_EQ(a->type(), 0);
    EXPECT_FALSE(a->enabled());
    EXPECT_FALSE(a->aliases()) << "no list: the step that makes it never ran";
}

TEST(ExtensionAccount, AnEnabledValueThatIsNoNumberStopsTheRestUnset) {
    LogCapture capture;
    const auto a =
        ExtensionAccount::initWithDictonary(QVariantMap{{"type", qint64(5)}, {"enabled", QVariantMap()}});
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAccount initWithDictonary boolValue: unsupported value of type dictionary"});
    EXPECT_EQ(a->type(), 5);
    EXPECT_FALSE(a->enabled());
    EXPECT_FALSE(a->aliases());
}

TEST(ExtensionAccount, NotADictionaryLeavesEverythingUnset) {
    LogCapture capture;
    const auto a = ExtensionAccount::initWithDictonary(QVariantList{1});
    ASSERT_TRUE(a);
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAccount initWithDictonary objectForKey: unsupported value of type array"});
    EXPECT_TRUE(a->mail().isNull());
    EXPECT_TRUE(a->name().isNull());
    EXPECT_EQ(a->type(), 0);
    EXPECT_FALSE(a->enabled());
    EXPECT_FALSE(a->aliases());
    EXPECT_EQ(a->description(), QStringLiteral("ExtensionAccount (null)"));
}
