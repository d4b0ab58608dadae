#include "platform/PlistValue.h"

#include "platform/Exception.h"

#include <QDateTime>
#include <QVariantMap>
#include <gtest/gtest.h>

using namespace corvina;

namespace {
QVariant i64(qint64 v) {
    return QVariant::fromValue<qint64>(v);
}
QVariant str(const char* s) {
    return QVariant(QString::fromUtf8(s));
}
QVariant list() {
    return QVariantList{1, 2};
}
QVariant dict() {
    return QVariantMap{{"k", 1}};
}
QVariant date() {
    return QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
}
QVariant data() {
    return QByteArray("xy");
}
} // namespace

TEST(PlistValue, ObjectForKeyReadsDictionariesAndNullReceivers) {
    EXPECT_EQ(PlistValue::objectForKey(dict(), "k"), QVariant(1));
    EXPECT_FALSE(PlistValue::objectForKey(dict(), "missing").isValid());
    EXPECT_FALSE(PlistValue::objectForKey(QVariant(), "k").isValid());
}

TEST(PlistValue, ObjectForKeyOnAnythingButADictionaryRaises) {
    for (const QVariant& v : {str("x"), list(), i64(1), date(), data()}) {
        EXPECT_THROW(PlistValue::objectForKey(v, "k"), Exception) << PlistValue::kindName(v).toStdString();
    }
    try {
        PlistValue::objectForKey(str("x"), "k");
    } catch (const Exception& e) {
        EXPECT_EQ(e.description(), QStringLiteral("objectForKey: unsupported value of type string"));
    }
}

TEST(PlistValue, StringValueKeepsTextsAndWritesNumbers) {
    EXPECT_EQ(PlistValue::stringValue(str("  as is ")), QStringLiteral("  as is "));
    EXPECT_EQ(PlistValue::stringValue(i64(-42)), QStringLiteral("-42"));
    EXPECT_EQ(PlistValue::stringValue(QVariant(2.5)), QStringLiteral("2.5"));
    EXPECT_EQ(PlistValue::stringValue(QVariant(true)), QStringLiteral("1"));
    for (const QVariant& v : {list(), dict(), date(), data(), QVariant()}) {
        EXPECT_TRUE(PlistValue::stringValue(v).isNull()) << PlistValue::kindName(v).toStdString();
    }
    EXPECT_FALSE(PlistValue::stringValue(str("")).isNull());
}

TEST(PlistValue, NumberValueKeepsNumbersAndReadsWholeNumericTexts) {
    EXPECT_EQ(PlistValue::numberValue(QVariant(7)).metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(PlistValue::numberValue(QVariant(7)).toLongLong(), 7);
    EXPECT_EQ(PlistValue::numberValue(QVariant(true)), QVariant(true));
    EXPECT_EQ(PlistValue::numberValue(QVariant(1.5)).toDouble(), 1.5);
    EXPECT_EQ(PlistValue::numberValue(str(" 12 ")).toLongLong(), 12);
    EXPECT_EQ(PlistValue::numberValue(str("2.5")).toDouble(), 2.5);
    EXPECT_FALSE(PlistValue::numberValue(str("12abc")).isValid());
    EXPECT_FALSE(PlistValue::numberValue(str("")).isValid());
    EXPECT_FALSE(PlistValue::numberValue(list()).isValid());
}

TEST(PlistValue, IntegerValueFollowsTheHostRules) {
    EXPECT_EQ(PlistValue::integerValue(QVariant()), 0);
    EXPECT_EQ(PlistValue::integerValue(str("3")), 3);
    EXPECT_EQ(PlistValue::integerValue(str("3.9")), 3);
    EXPECT_EQ(PlistValue::integerValue(str("  -17xyz")), -17);
    EXPECT_EQ(PlistValue::integerValue(str("+5")), 5);
    EXPECT_EQ(PlistValue::integerValue(str("abc")), 0);
    EXPECT_EQ(PlistValue::integerValue(str("99999999999999999999999")), std::numeric_limits<qint64>::max());
    EXPECT_EQ(PlistValue::integerValue(str("-99999999999999999999999")), std::numeric_limits<qint64>::min());
    EXPECT_EQ(PlistValue::integerValue(str("-9223372036854775808")), std::numeric_limits<qint64>::min());
    EXPECT_EQ(PlistValue::integerValue(QVariant(3.9)), 3);
    EXPECT_EQ(PlistValue::integerValue(QVariant(-3.9)), -3);
    EXPECT_EQ(PlistValue::integerValue(QVariant(1e300)), std::numeric_limits<qint64>::max());
    EXPECT_EQ(PlistValue::integerValue(QVariant(true)), 1);
    EXPECT_EQ(PlistValue::integerValue(QVariant::fromValue<quint64>(18446744073709551615ULL)), -1);
    for (const QVariant& v : {list(), dict(), date(), data()}) {
        EXPECT_THROW(PlistValue::integerValue(v), Exception);
    }
}

TEST(PlistValue, BoolValueFollowsTheHostRules) {
    for (const char* yes : {"YES", "yes", "true", "T", "1", "9", "  +0001", "-y", "00t"}) {
        EXPECT_TRUE(PlistValue::boolValue(str(yes))) << yes;
    }
    for (const char* no : {"NO", "no", "false", "0", "", "   ", "x", "+-0", " n"}) {
        EXPECT_FALSE(PlistValue::boolValue(str(no))) << no;
    }
    EXPECT_TRUE(PlistValue::boolValue(QVariant(1)));
    EXPECT_TRUE(PlistValue::boolValue(QVariant(0.5)));
    EXPECT_FALSE(PlistValue::boolValue(QVariant(0)));
    EXPECT_FALSE(PlistValue::boolValue(QVariant()));
    EXPECT_THROW(PlistValue::boolValue(list()), Exception);
}

TEST(PlistValue, FloatValueReadsTheLeadingNumber) {
    EXPECT_EQ(PlistValue::floatValue(QVariant()), 0.0f);
    EXPECT_EQ(PlistValue::floatValue(str("1700000063")), 1700000000.0f);
    EXPECT_EQ(PlistValue::floatValue(str(" 12.5e1x")), 125.0f);
    EXPECT_EQ(PlistValue::floatValue(str("-.5")), -0.5f);
    EXPECT_EQ(PlistValue::floatValue(str("abc")), 0.0f);
    EXPECT_EQ(PlistValue::floatValue(str("1e")), 1.0f);
    EXPECT_TRUE(std::isinf(PlistValue::floatValue(str("1e400"))));
    EXPECT_EQ(PlistValue::floatValue(str("1e-400")), 0.0f);
    EXPECT_EQ(PlistValue::floatValue(i64(1700000100)), 1700000128.0f);
    EXPECT_THROW(PlistValue::floatValue(list()), Exception);
    EXPECT_THROW(PlistValue::floatValue(date()), Exception);
}

TEST(PlistValue, EnumerateGivesElementsOrKeys) {
    EXPECT_EQ(PlistValue::enumerate(list()), (QVariantList{1, 2}));
    EXPECT_EQ(PlistValue::enumerate(QVariantMap{{"b", 1}, {"a", 2}}), (QVariantList{"a", "b"}));
    EXPECT_TRUE(PlistValue::enumerate(QVariant()).isEmpty());
    for (const QVariant& v : {str("x"), i64(3), date(), data(), QVariant(true)}) {
        EXPECT_THROW(PlistValue::enumerate(v), Exception);
    }
}
