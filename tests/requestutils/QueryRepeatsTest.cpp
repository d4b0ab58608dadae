// A query that repeats one key many times, through the readers that collect repeats (options 3 to
// 7) and the merges and parameter adders built on them. The sizes are ones where work that grows
// with the square of the repeats takes minutes; this program runs under its own CTest TIMEOUT,
// which is what fails when it hangs. What each test checks is the result, not the time.
#include "requestutils/RequestUtils.h"

#include <gtest/gtest.h>

using namespace corvina;
using namespace corvina::RequestUtils;

namespace {

constexpr int Repeats = 200000;

// "a=0&a=1&...": the values tell their order
QString repeatedKey(int repeats, const QString& key = QStringLiteral("a")) {
    QString query;
    query.reserve(repeats * 10);
    for (int i = 0; i < repeats; ++i) {
        if (i > 0) {
            query += QLatin1Char('&');
        }
        query += key + QLatin1Char('=') + QString::number(i);
    }
    return query;
}

void expectAllInOrder(const QStringList& values, int from, int count) {
    ASSERT_EQ(values.size(), count);
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(values[i], QString::number(from + i)) << i;
    }
}

} // namespace

TEST(QueryRepeats, EveryCollectingModeKeepsEveryRepeatInOrder) {
    const QString query = repeatedKey(Repeats);
    for (quint32 options = URLQueryCollectRepeats; options <= URLQueryRepeatMode; ++options) {
        const Parameters parameters = URLQueryParametersWithOptions(query, options);
        ASSERT_EQ(parameters.size(), 1) << options;
        const QVariant value = parameters.value(QStringLiteral("a"));
        EXPECT_EQ(value.typeId(), QMetaType::QStringList) << options;
        expectAllInOrder(value.toStringList(), 0, Repeats);
    }
}

TEST(QueryRepeats, BracketedRepeatsAreCollected) {
    const Parameters parameters =
        URLQueryParametersWithOptions(repeatedKey(Repeats, QStringLiteral("a[]")), URLQueryCollectRepeats);
    expectAllInOrder(parameters.value(QStringLiteral("a")).toStringList(), 0, Repeats);
}

TEST(QueryRepeats, KeepingOneValueReadsTheRepeatsToo) {
    const QString query = repeatedKey(Repeats);
    EXPECT_EQ(URLQueryParameters(query).value(QStringLiteral("a")), QVariant(QString::number(Repeats - 1)));
    EXPECT_EQ(URLQueryParametersWithOptions(query, URLQueryKeepFirst).value(QStringLiteral("a")),
              QVariant(QStringLiteral("0")));
}

TEST(QueryRepeats, MergingAQueryOfRepeatsKeepsThemAll) {
    const QString merged = stringByMergingURLQuery(QStringLiteral("http://h/p?a=x#f"), repeatedKey(Repeats),
                                                   URLQueryCollectRepeats);
    ASSERT_TRUE(merged.startsWith(QStringLiteral("http://h/p?a=x&a=0&a=1&")));
    ASSERT_TRUE(merged.endsWith(QStringLiteral("&a=%1#f").arg(Repeats - 1)));
    const QStringList values = URLQueryParametersWithOptions(merged, URLQueryCollectRepeats)
                                   .value(QStringLiteral("a"))
                                   .toStringList();
    ASSERT_EQ(values.size(), Repeats + 1);
    EXPECT_EQ(values.first(), QStringLiteral("x"));
    expectAllInOrder(values.mid(1), 0, Repeats);
}

TEST(QueryRepeats, AddingParametersToARequestOfRepeats) {
    HTTPRequest get(*Url::URLWithString(QStringLiteral("http://h/p?") + repeatedKey(Repeats)));
    addGETParameters(get, {{QStringLiteral("a"), QStringLiteral("new")}}, URLQueryCollectAll);
    QStringList values = URLQueryParametersWithOptions(get.URL().query(), URLQueryCollectAll)
                             .value(QStringLiteral("a"))
                             .toStringList();
    ASSERT_EQ(values.size(), Repeats + 1);
    EXPECT_EQ(values.last(), QStringLiteral("new"));
    values.removeLast();
    expectAllInOrder(values, 0, Repeats);

    HTTPRequest post(*Url::URLWithString(QStringLiteral("http://h/p")));
    post.setHTTPBody(repeatedKey(Repeats).toUtf8());
    addPOSTParameters(post, {{QStringLiteral("b"), QStringLiteral("1")}}, URLQueryCollectRepeats);
    const Parameters body =
        URLQueryParametersWithOptions(QString::fromUtf8(post.HTTPBody()), URLQueryCollectRepeats);
    EXPECT_EQ(body.value(QStringLiteral("b")), QVariant(QStringLiteral("1")));
    expectAllInOrder(body.value(QStringLiteral("a")).toStringList(), 0, Repeats);
}
