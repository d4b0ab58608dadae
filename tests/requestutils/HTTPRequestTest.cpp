#include "requestutils/RequestUtils.h"
#include "support/Fixtures.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::s;
using namespace corvina::RequestUtils;

namespace {
Url url(const char* text) {
    return *Url::URLWithString(text);
}
} // namespace

TEST(HTTPRequest, GetPutsTheParametersInTheQuery) {
    const HTTPRequest request = GETRequestWithURL(url("http://h/p?a=1"), {{"b", "x y"}});
    EXPECT_EQ(s(request.HTTPMethod()), "GET");
    EXPECT_EQ(s(request.URL().absoluteString()), "http://h/p?a=1&b=x%20y");
    EXPECT_EQ(GETParameters(request), (Parameters{{"a", "1"}, {"b", "x y"}}));
    EXPECT_TRUE(request.HTTPBody().isEmpty());
    EXPECT_EQ(s(request.valueForHTTPHeaderField("accept-encoding")), "gzip");
    EXPECT_EQ(s(GETRequestWithURL(url("http://h/p"), {{"b", "1"}}).URL().absoluteString()), "http://h/p?b=1");
    EXPECT_EQ(s(GETRequestWithURL(url("http://h/p"), {}).URL().absoluteString()), "http://h/p");
}

TEST(HTTPRequest, PostInLowerCaseIsStillAPostWithABody) {
    const HTTPRequest request =
        HTTPRequestWithURL(url("http://h/p"), "post", {{"a", "1"}, {"b", QStringList{"2", "3"}}});
    EXPECT_EQ(s(request.HTTPMethod()), "POST");
    EXPECT_EQ(request.HTTPBody(), QByteArray("a=1&b=2&b=3"));
    EXPECT_EQ(s(request.URL().absoluteString()), "http://h/p");
    EXPECT_EQ(s(request.valueForHTTPHeaderField("Content-Type")), "application/x-www-form-urlencoded");
    EXPECT_EQ(s(request.valueForHTTPHeaderField("Content-Transfer-Encoding")), "8bit");
    EXPECT_EQ(s(request.valueForHTTPHeaderField("Content-Length")), "11");
    EXPECT_EQ(POSTParameters(request), (Parameters{{"a", "1"}, {"b", "3"}}));
}

TEST(HTTPRequest, HeadersAreAddedNotReplaced) {
    HTTPRequest request = POSTRequestWithURL(url("http://h/p"), {{"a", "1"}});
    setPOSTParameters(request, {{"b", "22"}});
    EXPECT_EQ(request.HTTPBody(), QByteArray("b=22"));
    EXPECT_EQ(s(request.valueForHTTPHeaderField("Content-Length")), "3,4");
    EXPECT_EQ(s(request.valueForHTTPHeaderField("Content-Type")),
              "application/x-www-form-urlencoded,application/x-www-form-urlencoded");
    addPOSTParameters(request, {{"c", "3"}});
    EXPECT_EQ(request.HTTPBody(), QByteArray("b=22&c=3"));
}

TEST(HTTPRequest, SetAndAddGetParameters) {
    HTTPRequest request(url("http://h/p?a=1#f"));
    setGETParameters(request, {{"b", "2"}});
    EXPECT_EQ(s(request.URL().absoluteString()), "http://h/p?b=2#f");
    addGETParameters(request, {{"b", "3"}, {"c", "4"}}, URLQueryCollectRepeats);
    EXPECT_EQ(s(request.URL().absoluteString()), "http://h/p?b=2&b=3&c=4#f");
}

TEST(HTTPRequest, BasicAuthentication) {
    HTTPRequest request(url("http://h/"));
    setHTTPBasicAuthUser(request, "ann", "secret");
    EXPECT_EQ(s(request.valueForHTTPHeaderField("Authorization")), "Basic YW5uOnNlY3JldA==");
    EXPECT_EQ(HTTPBasicAuthComponents(request), (QStringList{"ann", "secret"}));
    EXPECT_EQ(s(HTTPBasicAuthUser(request)), "ann");
    EXPECT_EQ(s(HTTPBasicAuthPassword(request)), "secret");
}

TEST(HTTPRequest, APasswordWithAColonCannotBeToldApart) {
    HTTPRequest request(url("http://h/"));
    setHTTPBasicAuthUser(request, "ann", "se:cret");
    EXPECT_EQ(s(HTTPBasicAuthUser(request)), "ann");
    EXPECT_TRUE(HTTPBasicAuthPassword(request).isNull());
}

TEST(HTTPRequest, WithoutAHeaderTheURLsUserAndPasswordServe) {
    EXPECT_EQ(HTTPBasicAuthComponents(HTTPRequest(url("http://ann:pw@h/"))), (QStringList{"ann", "pw"}));
    EXPECT_EQ(HTTPBasicAuthComponents(HTTPRequest(url("http://h/"))), (QStringList{"", ""}));
    EXPECT_EQ(s(HTTPBasicAuthPassword(HTTPRequest(url("http://h/")))), "");
}

TEST(HTTPRequest, BecomesWhatQtsNetworkStackSends) {
    HTTPRequest request = POSTRequestWithURL(url("https://h/p?x=1"), {{"a", "1"}});
    setHTTPBasicAuthUser(request, "ann", "pw");
    const QNetworkRequest network = request.toNetworkRequest();
    EXPECT_EQ(network.url(), QUrl("https://h/p?x=1"));
    EXPECT_EQ(network.rawHeader("Content-Type"), QByteArray("application/x-www-form-urlencoded"));
    EXPECT_EQ(network.rawHeader("Authorization"), QByteArray("Basic YW5uOnB3"));
    EXPECT_EQ(network.rawHeader("Accept-Encoding"), QByteArray("gzip"));
    EXPECT_EQ(request.verb(), QByteArray("POST"));
}
