#include "platform/LinkDetector.h"

#include <QRandomGenerator>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

using corvina::LinkDetector;

namespace {

struct Expected {
    const char* found; // the link's text as it stands in the searched text
    const char* url;   // the absolute link the detector gives for it
};

struct Case {
    const char* name;
    const char* text;
    std::vector<Expected> links;
};

// Failures name the case and its text rather than the bytes of the parameter.
[[maybe_unused]] void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name << ": \"" << c.text << "\"";
}

QString utf8(const char* text) {
    return QString::fromUtf8(text);
}

// Every case is a text and the links a reader would point at in it, in order.
const std::vector<Case>& cases() {
    static const std::vector<Case> table = {
        // ---- texts without links
        {"Empty", "", {}},
        {"PlainSentence", "Lunch at noon? Bring the slides.", {}},
        {"Abbreviations", "e.g. this, i.e. that, etc. and so on", {}},
        {"VersionNumbers", "Update to v1.2.3 or 10.0.1 before 3.14pm", {}},
        {"FileNames", "See report.pdf, notes.txt and photo.jpeg", {}},
        {"UnlistedLastLabel", "the config.local and build.internal hosts", {}},
        {"LeftOutGenericDomain", "unpack notes.zip first", {}},
        {"TimeAndReply", "Re: meeting at 10:30", {}},
        {"BareIpAddress", "ping 192.168.0.1 now", {}},
        {"AtSignsAlone", "meet @ noon, ask @grace", {}},
        {"AddressWithoutRealDomain", "root@localhost and me@host.invalid", {}},
        {"SchemeWithNothingAfter", "http:// is the prefix, https://. too", {}},
        {"DriveLetterIsNoScheme", "copy to C://temp", {}},
        {"HashTag", "#example.com is trending", {}},
        {"JoinedToOtherWords", "file_example.com, a/example.com, example.com_old, example.com+more", {}},
        {"HyphenAtLabelEdge", "-bad-.com", {}},
        {"WwwAndANumber", "www.1.2", {}},
        {"WwwAndOneLabel", "www.example alone", {}},

        // ---- links with a scheme
        {"Http", "Visit http://example.com now", {{"http://example.com", "http://example.com"}}},
        {"HttpsPathQueryFragment",
         "https://example.com/a/b?x=1&y=2#top",
         {{"https://example.com/a/b?x=1&y=2#top", "https://example.com/a/b?x=1&y=2#top"}}},
        {"Ftp",
         "get ftp://files.example.org/pub/file.tar.gz",
         {{"ftp://files.example.org/pub/file.tar.gz", "ftp://files.example.org/pub/file.tar.gz"}}},
        {"AnySchemeName",
         "corvina://compose?subject=Hi",
         {{"corvina://compose?subject=Hi", "corvina://compose?subject=Hi"}}},
        {"FileUrl",
         "file:///home/me/notes.txt",
         {{"file:///home/me/notes.txt", "file:///home/me/notes.txt"}}},
        {"UserPasswordAndPort",
         "https://user:pw@example.com:8443/x",
         {{"https://user:pw@example.com:8443/x", "https://user:pw@example.com:8443/x"}}},
        {"Localhost",
         "http://localhost:8080/status",
         {{"http://localhost:8080/status", "http://localhost:8080/status"}}},
        {"Ipv6Literal", "http://[::1]:631/admin", {{"http://[::1]:631/admin", "http://[::1]:631/admin"}}},
        {"CaseKeptAsWritten",
         "HTTPS://Example.COM/Path",
         {{"HTTPS://Example.COM/Path", "HTTPS://Example.COM/Path"}}},
        {"Mailto",
         "mailto:someone@example.com?subject=Hi",
         {{"mailto:someone@example.com?subject=Hi", "mailto:someone@example.com?subject=Hi"}}},
        {"MailtoUpperCase",
         "MAILTO:Someone@Example.com",
         {{"MAILTO:Someone@Example.com", "MAILTO:Someone@Example.com"}}},
        {"QueryHoldingAnotherUrl",
         "https://a.example/?next=https://b.example/x",
         {{"https://a.example/?next=https://b.example/x", "https://a.example/?next=https://b.example/x"}}},
        {"LabelBeforeScheme", "URL:https://example.com", {{"https://example.com", "https://example.com"}}},
        {"AtStartOfText", "https://example.com is up", {{"https://example.com", "https://example.com"}}},
        {"AtEndOfText", "it is at https://example.com", {{"https://example.com", "https://example.com"}}},
        {"WholeText", "https://example.com", {{"https://example.com", "https://example.com"}}},

        // ---- punctuation around links
        {"FullStopAfter",
         "See https://example.com/page.",
         {{"https://example.com/page", "https://example.com/page"}}},
        {"QuestionAndExclamation",
         "Have you seen https://example.com/faq?!",
         {{"https://example.com/faq", "https://example.com/faq"}}},
        {"CommaSemicolonColon",
         "https://a.example, https://b.example; https://c.example:",
         {{"https://a.example", "https://a.example"},
          {"https://b.example", "https://b.example"},
          {"https://c.example", "https://c.example"}}},
        {"SingleQuotes", "'https://example.com/x'", {{"https://example.com/x", "https://example.com/x"}}},
        {"DoubleQuotes", "\"www.example.com\"", {{"www.example.com", "http://www.example.com"}}},
        {"MarkdownBold", "**https://example.com**", {{"https://example.com", "https://example.com"}}},
        {"InParentheses", "(https://example.com)", {{"https://example.com", "https://example.com"}}},
        {"ParenthesesInsideLink",
         "see https://en.wikipedia.org/wiki/Mercury_(planet) for more",
         {{"https://en.wikipedia.org/wiki/Mercury_(planet)",
           "https://en.wikipedia.org/wiki/Mercury_(planet)"}}},
        {"ParenthesesInsideAndOutside",
         "(see https://en.wikipedia.org/wiki/Mercury_(planet)).",
         {{"https://en.wikipedia.org/wiki/Mercury_(planet)",
           "https://en.wikipedia.org/wiki/Mercury_(planet)"}}},
        {"BareDomainInParentheses", "(example.com)", {{"example.com", "http://example.com"}}},
        {"InAngleBrackets", "<https://example.com/a>", {{"https://example.com/a", "https://example.com/a"}}},
        {"InSquareBrackets", "[https://example.com]", {{"https://example.com", "https://example.com"}}},
        {"MarkdownLink",
         "[docs](https://example.com/docs)",
         {{"https://example.com/docs", "https://example.com/docs"}}},
        {"HtmlLineBreaks",
         "line one<br>www.example.com<br>line two",
         {{"www.example.com", "http://www.example.com"}}},
        {"EmojiAfter",
         "https://example.com\xF0\x9F\x8E\x89",
         {{"https://example.com", "https://example.com"}}},
        {"EmDashAfter", "example.com\xE2\x80\x94or not", {{"example.com", "http://example.com"}}},
        {"EllipsisBefore", "Wait...example.com...really", {{"example.com", "http://example.com"}}},
        {"FullWidthColonBefore",
         "\xEF\xBC\xB5\xEF\xBC\xB2\xEF\xBC\xAC\xEF\xBC\x9Ahttps://example.jp",
         {{"https://example.jp", "https://example.jp"}}},

        // ---- links without a scheme
        {"Www", "go to www.example.com today", {{"www.example.com", "http://www.example.com"}}},
        {"WwwWithUnlistedLastLabel",
         "www.intranet.corp",
         {{"www.intranet.corp", "http://www.intranet.corp"}}},
        {"BareDomain", "example.com", {{"example.com", "http://example.com"}}},
        {"BareDomainWithPath",
         "example.com/path/to?q=1#x",
         {{"example.com/path/to?q=1#x", "http://example.com/path/to?q=1#x"}}},
        {"BareDomainWithPort", "example.com:8080/x", {{"example.com:8080/x", "http://example.com:8080/x"}}},
        {"ColonThatIsNoPort", "example.org: great", {{"example.org", "http://example.org"}}},
        {"LettersAfterColon", "example.com:abc", {{"example.com", "http://example.com"}}},
        {"Subdomains", "docs.example.co.uk", {{"docs.example.co.uk", "http://docs.example.co.uk"}}},
        {"HyphenInLabel", "my-site.example.org", {{"my-site.example.org", "http://my-site.example.org"}}},
        {"UpperCaseDomain", "Example.COM", {{"Example.COM", "http://Example.COM"}}},
        {"DomainBeforeFullStop", "I use example.org.", {{"example.org", "http://example.org"}}},
        {"Possessive", "example.com's new page", {{"example.com", "http://example.com"}}},
        {"FrenchElision", "l'exemple.fr", {{"exemple.fr", "http://exemple.fr"}}},
        {"PathWithAtSign", "medium.com/@someone", {{"medium.com/@someone", "http://medium.com/@someone"}}},

        // ---- letters of other scripts
        {"NonAsciiDomain",
         "b\xC3\xBC"
         "cher.de",
         {{"b\xC3\xBC"
           "cher.de",
           "http://b\xC3\xBC"
           "cher.de"}}},
        {"NonAsciiPath",
         "https://de.wikipedia.org/wiki/K\xC3\xB6ln.",
         {{"https://de.wikipedia.org/wiki/K\xC3\xB6ln", "https://de.wikipedia.org/wiki/K\xC3\xB6ln"}}},
        {"CyrillicDomain",
         "\xD0\xBF\xD1\x80\xD0\xB8\xD0\xBC\xD0\xB5\xD1\x80.\xD1\x80\xD1\x84",
         {{"\xD0\xBF\xD1\x80\xD0\xB8\xD0\xBC\xD0\xB5\xD1\x80.\xD1\x80\xD1\x84",
           "http://\xD0\xBF\xD1\x80\xD0\xB8\xD0\xBC\xD0\xB5\xD1\x80.\xD1\x80\xD1\x84"}}},
        {"ChineseDomainAndFullStop",
         "\xE8\xAE\xBF\xE9\x97\xAE \xE4\xBE\x8B\xE5\xAD\x90.\xE4\xB8\xAD\xE5\x9B\xBD\xE3\x80\x82",
         {{"\xE4\xBE\x8B\xE5\xAD\x90.\xE4\xB8\xAD\xE5\x9B\xBD",
           "http://\xE4\xBE\x8B\xE5\xAD\x90.\xE4\xB8\xAD\xE5\x9B\xBD"}}},
        {"GermanQuotationMarks",
         "\xE2\x80\x9Ehttps://example.de/seite\xE2\x80\x9C",
         {{"https://example.de/seite", "https://example.de/seite"}}},
        {"NonAsciiAddress",
         "\xC3\xA9"
         "crivez \xC3\xA0 \xC3\xA9lodie@exemple.fr",
         {{"\xC3\xA9lodie@exemple.fr", "mailto:\xC3\xA9lodie@exemple.fr"}}},

        // ---- e-mail addresses
        {"Address", "mail me@example.com", {{"me@example.com", "mailto:me@example.com"}}},
        {"AddressWithTagAndDots",
         "first.last+tag@mail.example.co.uk",
         {{"first.last+tag@mail.example.co.uk", "mailto:first.last+tag@mail.example.co.uk"}}},
        {"AddressBeforeFullStop",
         "Write to grace@example.org.",
         {{"grace@example.org", "mailto:grace@example.org"}}},
        {"AddressInParentheses", "(grace@example.org)", {{"grace@example.org", "mailto:grace@example.org"}}},
        {"AddressInAngleBrackets",
         "Grace <grace@example.org>",
         {{"grace@example.org", "mailto:grace@example.org"}}},
        {"AddressThenLinkAfterComma",
         "grace@example.org,https://example.org",
         {{"grace@example.org", "mailto:grace@example.org"}, {"https://example.org", "https://example.org"}}},
        {"AddressThenBareDomain",
         "grace@example.org or example.net",
         {{"grace@example.org", "mailto:grace@example.org"}, {"example.net", "http://example.net"}}},
        {"BareDomainThenAddress",
         "example.net;grace@example.org",
         {{"example.net", "http://example.net"}, {"grace@example.org", "mailto:grace@example.org"}}},
        {"UserInLinkIsNoAddress",
         "ftp://anonymous@ftp.example.org/pub",
         {{"ftp://anonymous@ftp.example.org/pub", "ftp://anonymous@ftp.example.org/pub"}}},

        // ---- several links
        {"SeveralInOrder",
         "a.example.com, then https://b.example.org and c@d.example.net",
         {{"a.example.com", "http://a.example.com"},
          {"https://b.example.org", "https://b.example.org"},
          {"c@d.example.net", "mailto:c@d.example.net"}}},
        {"SameLinkTwice",
         "https://example.com and https://example.com",
         {{"https://example.com", "https://example.com"}, {"https://example.com", "https://example.com"}}},
        {"LinkThatStartsALongerOne",
         "https://example.com and https://example.com/longer",
         {{"https://example.com", "https://example.com"},
          {"https://example.com/longer", "https://example.com/longer"}}},
        {"TabsAndLineBreaks",
         "a\thttps://x.example\nexample.org\r\nwww.example.net",
         {{"https://x.example", "https://x.example"},
          {"example.org", "http://example.org"},
          {"www.example.net", "http://www.example.net"}}},
    };
    return table;
}

class LinkDetectorTable : public ::testing::TestWithParam<Case> {};

} // namespace

TEST_P(LinkDetectorTable, FindsTheLinksAReaderWouldPointAt) {
    const Case& c = GetParam();
    const QString text = utf8(c.text);
    const QList<LinkDetector::Match> matches = LinkDetector::matches(text);
    std::vector<std::string> found;
    for (const auto& match : matches) {
        found.push_back(text.mid(match.location, match.length).toStdString() + " -> " +
                        match.url.toStdString());
    }
    std::vector<std::string> expected;
    for (const Expected& e : c.links) {
        expected.push_back(std::string(e.found) + " -> " + e.url);
    }
    EXPECT_EQ(found, expected) << "text: " << c.text;
    for (const auto& match : matches) {
        const auto kind = match.url.startsWith(QLatin1String("mailto:"), Qt::CaseInsensitive)
                              ? LinkDetector::Kind::Mail
                              : LinkDetector::Kind::Web;
        EXPECT_EQ(match.kind, kind) << match.url.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, LinkDetectorTable, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return std::string(info.param.name);
                         });

TEST(LinkDetector, TheTableIsLargeEnough) {
    EXPECT_GE(cases().size(), 60u);
}

TEST(LinkDetector, KnowsTheRealTopLevelDomains) {
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(u"com"));
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(u"COM")) << "case does not matter";
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(u"de"));
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(u"io"));
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(u"org"));
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(u"xn--p1ai"));
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(utf8(("\xD1\x80\xD1\x84")))) << "рф, in its own letters";
    EXPECT_TRUE(LinkDetector::isTopLevelDomain(utf8(("\xD0\xA0\xD0\xA4")))) << "РФ, upper case";
    EXPECT_FALSE(LinkDetector::isTopLevelDomain(u""));
    EXPECT_FALSE(LinkDetector::isTopLevelDomain(u"example"));
    EXPECT_FALSE(LinkDetector::isTopLevelDomain(u"local"));
    EXPECT_FALSE(LinkDetector::isTopLevelDomain(u"txt"));
    EXPECT_FALSE(LinkDetector::isTopLevelDomain(u"zip")) << "left out of the list on purpose";
    EXPECT_FALSE(LinkDetector::isTopLevelDomain(u"com ")) << "the label as it stands, not trimmed";
}

TEST(LinkDetector, MatchesAreInOrderAndApartAndGiveTheirOwnText) {
    // Random texts built from pieces that make and break links: whatever comes out, every match
    // must lie inside the text, after the one before it, and be the text its url was made from.
    const char* pieces[] = {"https://", "www.", "example", ".com",     ".zz", "@",   "me",
                            "/",        "?q=1", "(",       ")",        ".",   ",",   " ",
                            "\n",       "<br>", "mailto:", "\xC3\xBC", "..",  ":80", "\xF0\x9F\x8E\x89",
                            "-",        "_",    "'",       "#"};
    QRandomGenerator random(7);
    for (int round = 0; round < 3000; ++round) {
        QString text;
        const int count = random.bounded(0, 16);
        for (int i = 0; i < count; ++i) {
            text += utf8(pieces[random.bounded(int(std::size(pieces)))]);
        }
        qsizetype previousEnd = 0;
        for (const auto& match : LinkDetector::matches(text)) {
            ASSERT_GE(match.location, previousEnd) << text.toStdString();
            ASSERT_GT(match.length, 0) << text.toStdString();
            ASSERT_LE(match.location + match.length, text.size()) << text.toStdString();
            ASSERT_TRUE(match.url.endsWith(text.mid(match.location, match.length))) << text.toStdString();
            previousEnd = match.location + match.length;
        }
    }
}
