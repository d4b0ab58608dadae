#include "requestutils/RequestUtils.h"
#include "support/Fixtures.h"

#include <QRandomGenerator>
#include <gtest/gtest.h>

using namespace corvina::RequestUtils;
using corvina::test::s;

TEST(URLEncodedString, KeepsOnlyUnreservedCharacters) {
    EXPECT_EQ(s(URLEncodedString("a b")), "a%20b");
    EXPECT_EQ(s(URLEncodedString("1+1")), "1%2B1");
    EXPECT_EQ(s(URLEncodedString("~-_.AZaz09")), "~-_.AZaz09");
    EXPECT_EQ(s(URLEncodedString("/?&=#[]")), "%2F%3F%26%3D%23%5B%5D");
    EXPECT_EQ(s(URLEncodedString("!*'\"();:@+$,%")), "%21%2A%27%22%28%29%3B%3A%40%2B%24%2C%25");
    EXPECT_EQ(s(URLEncodedString(QStringLiteral("é€"))), "%C3%A9%E2%82%AC");
    EXPECT_EQ(s(URLEncodedString("")), "");
}

TEST(URLDecodedString, PlusIsASpaceOnlyWhenAsked) {
    EXPECT_EQ(s(URLDecodedString("a+b%20c", true)), "a b c");
    EXPECT_EQ(s(URLDecodedString("a+b%20c", false)), "a+b c");
    EXPECT_EQ(s(URLDecodedString("%2B", true)), "+");
    EXPECT_EQ(URLDecodedString("%C3%A9", false), QStringLiteral("é"));
    EXPECT_EQ(s(URLDecodedString("plain text", false)), "plain text");
}

TEST(URLDecodedString, EscapesThatMakeNoUtf8GiveNull) {
    EXPECT_TRUE(URLDecodedString("%C3", false).isNull());
    EXPECT_TRUE(URLDecodedString("%FF%FE", false).isNull());
    EXPECT_TRUE(URLDecodedString("%zz", false).isNull());
    EXPECT_TRUE(URLDecodedString("50%", false).isNull());
    EXPECT_FALSE(URLDecodedString("", false).isNull());
}

TEST(URLEncodedString, DecodingAnEncodedStringGivesItBack) {
    QRandomGenerator random(20261122);
    for (int round = 0; round < 2000; ++round) {
        QString text;
        const int length = random.bounded(0, 24);
        for (int i = 0; i < length; ++i) {
            // printable ASCII, Latin-1, other planes, and the odd surrogate pair
            const int kind = random.bounded(4);
            char32_t c = kind == 0   ? random.bounded(0x20, 0x7F)
                         : kind == 1 ? random.bounded(0xA0, 0x100)
                         : kind == 2 ? random.bounded(0x100, 0xD800)
                                     : random.bounded(0x10000, 0x10FFFF);
            text += QString::fromUcs4(&c, 1);
        }
        const QString encoded = URLEncodedString(text);
        ASSERT_EQ(URLDecodedString(encoded, false), text) << s(encoded);
        ASSERT_EQ(URLDecodedString(encoded, true), text) << s(encoded);
    }
}

TEST(URLQueryWithParameters, OptionsTable) {
    const Parameters list{{"a", QStringList{"1", "2"}}};
    const Parameters one{{"a", "1"}};
    const Parameters empty{{"a", QStringList{}}};
    struct Row {
        quint32 options;
        const char* list;
        const char* one;
    };
    const Row rows[] = {
        {0, "a=1&a=2", "a=1"},
        {1, "a=2", "a=1"},
        {2, "a=1", "a=1"},
        {3, "a=1&a=2", "a=1"},
        {4, "a=1&a=2", "a=1"},
        {5, "a=1&a=2", "a=1"},
        {6, "a=1&a=2", "a=1"},
        {7, "a=1&a=2", "a=1"},
        {8, "a[]=1&a[]=2", "a=1"},
        {9, "a=2", "a=1"},
        {10, "a=1", "a=1"},
        {11, "a[]=1&a[]=2", "a=1"},
        {12, "a[]=1&a[]=2", "a[]=1"},
        {13, "a[]=1&a[]=2", "a=1"},
        {14, "a[]=1&a[]=2", "a=1"},
        {15, "a[]=1&a[]=2", "a=1"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(s(URLQueryWithParameters(list, row.options)), row.list) << row.options;
        EXPECT_EQ(s(URLQueryWithParameters(one, row.options)), row.one) << row.options;
        // an empty list writes nothing, whatever the mode
        EXPECT_EQ(s(URLQueryWithParameters(empty, row.options)), "") << row.options;
    }
}

TEST(URLQueryWithParameters, EncodesKeysAndValuesAndJoinsPairs) {
    const QString query = URLQueryWithParameters({{"a b", "c&d"}, {"e", QVariantList{"x=y", "+"}}});
    EXPECT_EQ(s(query), "a%20b=c%26d&e=x%3Dy&e=%2B");
    EXPECT_EQ(s(URLQueryWithParameters({})), "");
    EXPECT_FALSE(URLQueryWithParameters({}).isNull());
}

TEST(URLQueryParameters, OptionsTable) {
    // reading: mode 0 keeps the last value; bit 8 is ignored
    struct Row {
        quint32 options;
        QVariant repeated;  // a=1&a=2
        QVariant bracketed; // a[]=1
        QVariant single;    // a=1
    };
    const QStringList both{"1", "2"};
    const Row rows[] = {
        {0, "2", "1", "1"},
        {1, "2", "1", "1"},
        {2, "1", "1", "1"},
        {3, both, QStringList{"1"}, "1"},
        {4, both, QStringList{"1"}, QStringList{"1"}},
        {5, both, "1", "1"},
        {6, both, "1", "1"},
        {7, both, "1", "1"},
    };
    for (const Row& row : rows) {
        for (quint32 bracketBit : {0u, 8u}) {
            const quint32 options = row.options | bracketBit;
            EXPECT_EQ(URLQueryParametersWithOptions("a=1&a=2", options).value("a"), row.repeated) << options;
            EXPECT_EQ(URLQueryParametersWithOptions("a[]=1", options).value("a"), row.bracketed) << options;
            EXPECT_EQ(URLQueryParametersWithOptions("a=1", options).value("a"), row.single) << options;
        }
    }
}

TEST(URLQueryParameters, ListsGrowInEveryMode) {
    // once a key holds a list, later values are appended, in modes 1 and 2 as well
    for (quint32 mode : {1u, 2u, 3u}) {
        EXPECT_EQ(URLQueryParametersWithOptions("a[]=1&a=2&a=3", mode).value("a"),
                  mode == 3 ? QVariant(QStringList{"1", "2", "3"}) : QVariant(mode == 1 ? "3" : "1"))
            << mode;
    }
    EXPECT_EQ(URLQueryParametersWithOptions("a=1&a[]=2&a=3", 4).value("a"),
              QVariant(QStringList{"1", "2", "3"}));
}

TEST(URLQueryParameters, WorkedExamples) {
    EXPECT_EQ(URLQueryParameters("a=1&a=2"), (Parameters{{"a", "2"}}));
    EXPECT_EQ(URLQueryParameters("a[]=1"), (Parameters{{"a", "1"}}));
    EXPECT_EQ(URLQueryParameters("x=%20+y"), (Parameters{{"x", "  y"}}));
    EXPECT_EQ(URLQueryParameters("flag&b=2"), (Parameters{{"b", "2"}}));
    EXPECT_EQ(URLQueryParameters("a=b=c"), (Parameters{{"a", "b"}}));
    EXPECT_EQ(URLQueryParameters("http://h/p?q=1#x=2"), (Parameters{{"q", "1"}}));
    EXPECT_EQ(URLQueryParameters("a+b=c+d"), (Parameters{{"a b", "c d"}}));
    EXPECT_TRUE(URLQueryParameters("abc").isEmpty());
    EXPECT_TRUE(URLQueryParameters("").isEmpty());
}

TEST(URLQueryParameters, APieceThatDoesNotDecodeIsSkipped) {
    EXPECT_EQ(URLQueryParameters("a=%FF&b=2&%C3=x&c=%zz"), (Parameters{{"b", "2"}}));
}

TEST(URLQueryParameters, WritingThenReadingInMode3GivesTheParametersBack) {
    QRandomGenerator random(7);
    auto word = [&random] {
        QString w;
        const int n = random.bounded(1, 8);
        for (int i = 0; i < n; ++i) {
            const char32_t c =
                random.bounded(3) == 0 ? random.bounded(0xA0, 0x800) : random.bounded(0x21, 0x7F);
            w += QString::fromUcs4(&c, 1);
        }
        return w;
    };
    for (int round = 0; round < 500; ++round) {
        Parameters parameters;
        const int keys = random.bounded(0, 6);
        for (int k = 0; k < keys; ++k) {
            QString key = word();
            if (key.endsWith("[]")) {
                key += "x"; // a key ending in "[]" reads back without them, by design
            }
            if (random.bounded(2) == 0) {
                parameters.insert(key, word());
            } else {
                QStringList values;
                const int n = random.bounded(2, 5); // a one-element list reads back as a string
                for (int i = 0; i < n; ++i) {
                    values << word();
                }
                parameters.insert(key, values);
            }
        }
        const QString query = URLQueryWithParameters(parameters, URLQueryCollectRepeats);
        ASSERT_EQ(URLQueryParametersWithOptions(query, URLQueryCollectRepeats), parameters) << s(query);
    }
}

TEST(RangeOfURLQuery, FindsTheQueryBetweenQuestionMarkAndHash) {
    EXPECT_EQ(rangeOfURLQuery("a?x=1#f"), (Range{1, 4}));
    EXPECT_EQ(rangeOfURLQuery("path?"), (Range{4, 1}));
    EXPECT_EQ(rangeOfURLQuery("x=1&y=2"), (Range{0, 7}));
    EXPECT_EQ(rangeOfURLQuery("x=1#f"), (Range{0, 3}));
    EXPECT_EQ(rangeOfURLQuery("abc"), (Range{Range::NotFound, 0}));
    EXPECT_EQ(rangeOfURLQuery("abc#x=1"), (Range{Range::NotFound, 0}));
}

TEST(RangeOfURLQuery, AQuestionMarkAfterTheHashMeansNoQuery) {
    EXPECT_EQ(rangeOfURLQuery("a#frag?x=1"), (Range{Range::NotFound, 0}));
    EXPECT_TRUE(URLQuery("a#frag?x=1").isNull());
    EXPECT_TRUE(URLQueryParameters("a#frag?x=1").isEmpty());
}

TEST(URLQuery, WorkedExamples) {
    EXPECT_EQ(s(URLQuery("a?x=1#f")), "x=1");
    EXPECT_EQ(s(URLQuery("x=1&y=2")), "x=1&y=2");
    EXPECT_EQ(s(URLQuery("path?")), "");
    EXPECT_FALSE(URLQuery("path?").isNull());
    EXPECT_TRUE(URLQuery("abc").isNull());
}
