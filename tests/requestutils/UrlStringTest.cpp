#include "requestutils/RequestUtils.h"
#include "support/Fixtures.h"

#include <gtest/gtest.h>

using namespace corvina::RequestUtils;
using corvina::test::s;

TEST(URLStrings, Fragments) {
    EXPECT_EQ(s(URLFragment("a?b#c")), "c");
    EXPECT_TRUE(URLFragment("a?b").isNull());
    EXPECT_EQ(s(URLFragment("a#")), "");
    EXPECT_EQ(s(stringByDeletingURLFragment("a?b#c")), "a?b");
    EXPECT_EQ(s(stringByAppendingURLFragment("a", "f")), "a#f");
    // a fragment already there grows
    EXPECT_EQ(s(stringByAppendingURLFragment("a#f", "g")), "a#fg");
    EXPECT_EQ(s(stringByAppendingURLFragment("a", QString())), "a");
}

TEST(URLStrings, Queries) {
    EXPECT_EQ(s(stringByDeletingURLQuery("a?x=1#f")), "a#f");
    EXPECT_EQ(s(stringByDeletingURLQuery("abc")), "abc");
    EXPECT_EQ(s(stringByAppendingURLQuery("a", "x=1")), "a?x=1");
    EXPECT_EQ(s(stringByAppendingURLQuery("a?y=2", "x=1")), "a?y=2&x=1");
    EXPECT_EQ(s(stringByAppendingURLQuery("a#f", "x=1")), "a?x=1#f");
    // a text ending in "?" takes the query without "&"
    EXPECT_EQ(s(stringByAppendingURLQuery("a?", "x=1")), "a?x=1");
    EXPECT_EQ(s(stringByAppendingURLQuery("a", "")), "a");
    EXPECT_EQ(s(stringByReplacingURLQueryWithQuery("a?y=2#f", "x=1")), "a?x=1#f");
}

TEST(URLStrings, MergingQueries) {
    EXPECT_EQ(s(stringByMergingURLQuery("a?x=1&y=2#f", "y=3&z=4")), "a?x=1&y=3&z=4#f");
    EXPECT_EQ(s(stringByMergingURLQuery("a?x=1", "x=2", URLQueryKeepFirst)), "a?x=1");
    EXPECT_EQ(s(stringByMergingURLQuery("a?x=1", "x=2", URLQueryCollectRepeats)), "a?x=1&x=2");
    EXPECT_EQ(s(stringByMergingURLQuery("a?x=1", "z=2", URLQueryCollectAll)), "a?x=1&z=2");
    EXPECT_EQ(s(stringByMergingURLQuery("a", "x=1")), "a?x=1");
    EXPECT_EQ(s(stringByMergingURLQuery("a?x=1", "")), "a?x=1");
    // a bare query merges in place, without a "?"
    EXPECT_EQ(s(stringByMergingURLQuery("x=1", "y=2")), "x=1&y=2");
}

TEST(URLStrings, PathComponentsKeepQueryAndFragment) {
    EXPECT_EQ(s(stringByAppendingURLPathComponent("http://h/a?q=1#f", "b")), "http://h/a/b?q=1#f");
    EXPECT_EQ(s(stringByAppendingURLPathComponent("http://h/a/", "/b")), "http://h/a/b");
    EXPECT_EQ(s(stringByAppendingURLPathComponent("", "b")), "b");
    EXPECT_EQ(s(stringByDeletingLastURLPathComponent("http://h/a/b?q=1#f")), "http://h/a/?q=1#f");
    // a path without "/" and a path ending in "/" come back unchanged, by design
    EXPECT_EQ(s(stringByDeletingLastURLPathComponent("file")), "file");
    EXPECT_EQ(s(stringByDeletingLastURLPathComponent("a/b/")), "a/b/");
    EXPECT_EQ(s(lastURLPathComponent("http://h/a/b.txt?q=1")), "b.txt");
    EXPECT_EQ(s(lastURLPathComponent("a/b/")), "");
    EXPECT_EQ(s(lastURLPathComponent("file")), "file");
}

TEST(URLStrings, PathExtensions) {
    EXPECT_EQ(s(URLPathExtension("http://h/a/b.tar.gz?q=1")), "gz");
    EXPECT_EQ(s(URLPathExtension("http://h/a/b")), "");
    EXPECT_EQ(s(URLPathExtension("a/.hidden")), "");
    EXPECT_EQ(s(stringByAppendingURLPathExtension("http://h/a/b?q=1#f", "txt")), "http://h/a/b.txt?q=1#f");
    EXPECT_EQ(s(stringByDeletingURLPathExtension("http://h/a/b.txt?q=1#f")), "http://h/a/b?q=1#f");
}

TEST(URLStrings, URLValues) {
    const auto file = URLValue("/tmp/a b.txt");
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->isFileURL());
    EXPECT_EQ(s(file->absoluteString()), "file:///tmp/a%20b.txt");
    EXPECT_EQ(s(file->filePath()), "/tmp/a b.txt");
    EXPECT_EQ(s(URLValue("http://h/p")->host()), "h");
    EXPECT_FALSE(URLValue("not a url"));
    const auto base = URLValue("http://h/a/b?x=1");
    EXPECT_EQ(s(URLValueRelativeToURL("c", *base)->absoluteString()), "http://h/a/c");
    EXPECT_EQ(s(URLValueRelativeToURL("/d", *base)->absoluteString()), "http://h/d");
    EXPECT_FALSE(URLValueRelativeToURL("a b", *base));
}

TEST(Base64, KnownVectors) {
    // RFC 4648, section 10
    const char* vectors[][2] = {{"", ""},
                                {"f", "Zg=="},
                                {"fo", "Zm8="},
                                {"foo", "Zm9v"},
                                {"foob", "Zm9vYg=="},
                                {"fooba", "Zm9vYmE="},
                                {"foobar", "Zm9vYmFy"}};
    for (const auto& v : vectors) {
        EXPECT_EQ(s(base64EncodedString(v[0])), v[1]);
        if (*v[0]) {
            EXPECT_EQ(s(base64DecodedString(v[1])), v[0]);
        }
    }
    EXPECT_EQ(base64EncodedString(QStringLiteral("é")), QStringLiteral("w6k="));
    EXPECT_EQ(base64DecodedString("w6k="), QStringLiteral("é"));
}

TEST(Base64, UnpaddedAndNoisyInputDecodes) {
    EXPECT_EQ(s(base64DecodedString("Zm9vYg")), "foob");
    EXPECT_EQ(s(base64DecodedString("Zm9vYmE")), "fooba");
    EXPECT_EQ(s(base64DecodedString("Zm9v\r\nYmFy")), "foobar");
    EXPECT_EQ(s(base64DecodedString(" Z m 9 v ! ")), "foo");
    // a lone trailing character gives no byte
    EXPECT_EQ(s(base64DecodedString("Zm9vY")), "foo");
    EXPECT_TRUE(base64DecodedString("").isNull());
    EXPECT_TRUE(base64DecodedString("====").isNull());
    EXPECT_TRUE(base64DecodedString("Z").isNull());
}
