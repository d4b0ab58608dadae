#include "model/ExtensionAddress.h"
#include "model/ExtensionMessage.h"
#include "requestutils/RequestUtils.h"
#include "support/Fixtures.h"
#include "support/LogCapture.h"

#include <QBuffer>
#include <QUrl>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;
using corvina::test::s;

namespace {

ExtensionAddressPtr composeAddress(const QString& mail) {
    return ExtensionAddress::initWithDictonary(QVariantMap{{"mail", mail}});
}

MutableList<ExtensionAddressPtr> recipients(const QStringList& mails) {
    auto list = makeMutableList<ExtensionAddressPtr>();
    for (const QString& mail : mails) {
        list->append(composeAddress(mail));
    }
    return list;
}

RequestUtils::Parameters parametersOf(const std::optional<Url>& url) {
    return url ? RequestUtils::URLQueryParameters(url->absoluteString()) : RequestUtils::Parameters();
}

Url urlFrom(const QString& text) {
    const std::optional<Url> url = Url::URLWithString(text);
    EXPECT_TRUE(url) << s(text);
    return url.value_or(*Url::URLWithString(QStringLiteral("corvina://compose")));
}

QStringList texts(const MutableList<QVariant>& list) {
    QStringList out;
    for (const QVariant& element : *list) {
        EXPECT_EQ(element.metaType(), QMetaType::fromType<QString>());
        out << element.toString();
    }
    return out;
}

QString anchor(const QString& link) {
    return "<a href='" + link + "'>" + link + "</a>";
}

QByteArray pngBase64() {
    QImage image(1, 1, QImage::Format_RGB32);
    image.fill(Qt::blue);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes.toBase64();
}

} // namespace

// ---- queryUrl

TEST(ExtensionMessageQueryUrl, OnlyASubjectGivesThatOneParameter) {
    const auto m = ExtensionMessage::init();
    m->setSubject("Hi");
    const auto url = m->queryUrl("compose");
    ASSERT_TRUE(url);
    EXPECT_EQ(s(url->absoluteString()), "corvina://compose?subject=Hi");
    EXPECT_EQ(s(url->scheme()), "corvina");
    EXPECT_EQ(s(url->host()), "compose") << "the command stands where a host would";
}

TEST(ExtensionMessageQueryUrl, EmptyAndMissingFieldsAreNotWritten) {
    // init() leaves both bodies "" and subject, sender and account null: nothing to write
    const auto m = ExtensionMessage::init();
    EXPECT_EQ(s(m->queryUrl("compose")->absoluteString()), "corvina://compose?");

    m->setSubject("");
    m->setFrom("");
    m->setAccount("");
    EXPECT_EQ(s(m->queryUrl("compose")->absoluteString()), "corvina://compose?");

    // a record from a snapshot has null bodies and lists
    const auto row = ExtensionMessage::initWithDictonary(QVariantMap{});
    EXPECT_EQ(parametersOf(row->queryUrl("compose")).keys(), (QStringList{"subject"}))
        << "of the snapshot's defaults, \"\" is not written and \"No subject\" is";
    EXPECT_EQ(parametersOf(row->queryUrl("compose")).value("subject").toString(), QString("No subject"));
}

TEST(ExtensionMessageQueryUrl, EachTextFieldUnderItsKey) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("plain");
    m->setHtmlBody("<p>html</p>");
    m->setSubject("Subject");
    m->setFrom("Ada <ada@example.org>");
    m->setAccount("ada@example.org");
    const auto parameters = parametersOf(m->queryUrl("compose"));
    EXPECT_EQ(parameters, (RequestUtils::Parameters{{"plainBody", "plain"},
                                                    {"htmlBody", "<p>html</p>"},
                                                    {"subject", "Subject"},
                                                    {"from", "Ada <ada@example.org>"},
                                                    {"account", "ada@example.org"}}));
}

TEST(ExtensionMessageQueryUrl, RecipientsAreJoinedEachFollowedByASemicolon) {
    const auto m = ExtensionMessage::init();
    m->setTo(recipients({"A", "B"}));
    m->setCc(recipients({"carol@example.org"}));
    m->setBcc(recipients({}));
    const auto url = m->queryUrl("compose");
    const auto parameters = parametersOf(url);
    EXPECT_EQ(s(parameters.value("to").toString()), "A;B;");
    EXPECT_EQ(s(parameters.value("cc").toString()), "carol@example.org;");
    EXPECT_FALSE(parameters.contains("bcc")) << "an empty list writes nothing";

    const auto back = ExtensionMessage::ExtensionMessageWithUrl(*url);
    EXPECT_EQ(s(back->toString()), "A;B;");
    EXPECT_EQ(s(back->ccString()), "carol@example.org;");
    EXPECT_TRUE(back->bccString().isNull());
    ASSERT_TRUE(back->to());
    EXPECT_TRUE(back->to()->isEmpty()) << "recipients come back as one text, not as records";
    EXPECT_TRUE(back->cc()->isEmpty());
    EXPECT_TRUE(back->bcc()->isEmpty());
}

TEST(ExtensionMessageQueryUrl, AnEmptyAddressStillAddsItsSemicolon) {
    const auto m = ExtensionMessage::init();
    m->setTo(recipients({""}));
    const auto withNull = composeAddress("x");
    withNull->setMail(QString());
    m->setBcc(makeMutableList<ExtensionAddressPtr>());
    m->bcc()->append(withNull);
    const auto parameters = parametersOf(m->queryUrl("compose"));
    EXPECT_EQ(s(parameters.value("to").toString()), ";") << "the joined text is not empty, so it is written";
    EXPECT_EQ(s(parameters.value("bcc").toString()), "(null);")
        << "a missing address reads as in a description";
}

TEST(ExtensionMessageQueryUrl, AttachmentsKeepTheirIndexAndSkipOtherKinds) {
    const auto m = ExtensionMessage::init();
    m->attachments()->append(QStringLiteral("/tmp/a.pdf"));
    m->attachments()->append(42);
    m->attachments()->append(QUrl::fromLocalFile("/tmp/b c.pdf"));
    m->attachments()->append(QVariant::fromValue(Url::fileURLWithPath("/tmp/d\u00e9.png")));
    const auto parameters = parametersOf(m->queryUrl("compose"));
    EXPECT_EQ(parameters, (RequestUtils::Parameters{{"attachment_0", "/tmp/a.pdf"},
                                                    {"attachment_2", "/tmp/b c.pdf"},
                                                    {"attachment_3", QString::fromUtf8("/tmp/d\u00e9.png")}}))
        << "no attachment_1: the number is skipped with the element";
}

TEST(ExtensionMessageQueryUrl, ACommandNameThatMakesNoUrlGivesNothingAndLogsNothing) {
    LogCapture log;
    const auto m = ExtensionMessage::init();
    m->setSubject("Hi");
    EXPECT_FALSE(m->queryUrl("com pose"));
    EXPECT_FALSE(m->queryUrl(QString::fromUtf8("c\u00f6mpose")));
    EXPECT_FALSE(m->queryUrl("com\npose"));
    EXPECT_FALSE(m->queryUrl("a%zz"));
    EXPECT_TRUE(log.lines().isEmpty()) << s(log.lines().join('\n'));
    EXPECT_TRUE(m->queryUrl("reply"));
    EXPECT_EQ(s(m->queryUrl("reply")->absoluteString()), "corvina://reply?subject=Hi");
}

TEST(ExtensionMessageQueryUrl, TextThatNeedsEncodingNeverMakesTheUrlInvalid) {
    const auto m = ExtensionMessage::init();
    m->setSubject(QString::fromUtf8("a b&c=d+e#f?g%h \"<>\u00fc\u4f60\U0001F389\n"));
    const auto url = m->queryUrl("compose");
    ASSERT_TRUE(url);
    EXPECT_EQ(parametersOf(url).value("subject").toString(), m->subject());
}

// ---- ExtensionMessageWithUrl

TEST(ExtensionMessageWithUrl, AUrlWithoutQueryGivesAnEmptyComposingRecord) {
    LogCapture log;
    const auto m = ExtensionMessage::ExtensionMessageWithUrl(urlFrom("corvina://compose"));
    ASSERT_TRUE(m);
    EXPECT_EQ(m->plainBody(), QString(""));
    EXPECT_FALSE(m->plainBody().isNull());
    EXPECT_EQ(m->htmlBody(), QString(""));
    EXPECT_FALSE(m->htmlBody().isNull());
    EXPECT_TRUE(m->subject().isNull());
    EXPECT_TRUE(m->from().isNull());
    EXPECT_TRUE(m->account().isNull());
    EXPECT_TRUE(m->toString().isNull());
    for (const auto& list : {m->to(), m->cc(), m->bcc()}) {
        ASSERT_TRUE(list);
        EXPECT_TRUE(list->isEmpty());
    }
    ASSERT_TRUE(m->attachments());
    EXPECT_TRUE(m->attachments()->isEmpty());
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST(ExtensionMessageWithUrl, UnknownMalformedAndMiscasedParametersAreIgnored) {
    LogCapture log;
    const auto m = ExtensionMessage::ExtensionMessageWithUrl(
        urlFrom("corvina://compose?Subject=upper&SUBJECT=x&subject=%C3&from&account=me%40example.org"
                "&attachments=/nope&messageId=1&folder=INBOX&date=1700000000&plainBody=ok"));
    EXPECT_TRUE(m->subject().isNull()) << "keys are compared exactly; an escape that is no UTF-8 is skipped";
    EXPECT_TRUE(m->from().isNull()) << "a piece without \"=\" is no parameter";
    EXPECT_EQ(s(m->account()), "me@example.org");
    EXPECT_EQ(s(m->plainBody()), "ok");
    EXPECT_TRUE(m->attachments()->isEmpty()) << "\"attachments\" does not begin with \"attachment_\"";
    EXPECT_TRUE(m->messageId().isNull());
    EXPECT_TRUE(m->folderPath().isNull());
    EXPECT_FALSE(m->date().isValid());
    EXPECT_TRUE(log.lines().isEmpty()) << s(log.lines().join('\n'));
}

TEST(ExtensionMessageWithUrl, EmptyValuesAreSetAsEmptyTexts) {
    const auto m = ExtensionMessage::ExtensionMessageWithUrl(urlFrom("corvina://compose?subject=&to="));
    EXPECT_EQ(m->subject(), QString(""));
    EXPECT_FALSE(m->subject().isNull());
    EXPECT_EQ(m->toString(), QString(""));
    EXPECT_FALSE(m->toString().isNull());
}

TEST(ExtensionMessageWithUrl, EveryKeyBeginningWithAttachmentAddsAnAttachment) {
    const auto m = ExtensionMessage::ExtensionMessageWithUrl(
        urlFrom("corvina://compose?attachment_=%2Fa&attachment_x=%2Fb&attachment_7=%2Fc"));
    EXPECT_EQ(texts(m->attachments()), (QStringList{"/a", "/c", "/b"})) << "in the order of the keys' text";
}

TEST(ExtensionMessageWithUrl, AttachmentsComeBackInTheOrderOfTheirKeysText) {
    const auto m = ExtensionMessage::init();
    for (int i = 0; i < 12; ++i) {
        m->attachments()->append(QStringLiteral("/files/%1.pdf").arg(i));
    }
    const auto back = ExtensionMessage::ExtensionMessageWithUrl(*m->queryUrl("compose"));
    EXPECT_EQ(texts(back->attachments()),
              (QStringList{"/files/0.pdf", "/files/1.pdf", "/files/10.pdf", "/files/11.pdf", "/files/2.pdf",
                           "/files/3.pdf", "/files/4.pdf", "/files/5.pdf", "/files/6.pdf", "/files/7.pdf",
                           "/files/8.pdf", "/files/9.pdf"}))
        << "attachment_10 sorts before attachment_2: the numbers only keep the keys apart";
}

TEST(ExtensionMessageWithUrl, AFullyFilledMessageComesBackWithTheComposingTextsOnly) {
    const auto original = ExtensionMessage::initWithDictonary(QVariantMap{
        {"subject", "Quarterly numbers"},
        {"messageId", "<q3@example.org>"},
        {"from", "Ada Lovelace <ada@example.org>"},
        {"account", "ada@example.org"},
        {"folder", "INBOX"},
        {"folderStid", qint64(1)},
        {"isUnread", qint64(1)},
        {"date", qint64(1700000063)},
        {"avatar", QString::fromLatin1(pngBase64())},
    });
    ASSERT_FALSE(original->image().isNull());
    original->setPlainBody("Hello Bob,\nthe numbers are in.");
    original->setHtmlBody("<p>Hello Bob,</p><p>the numbers are in.</p>");
    original->setTo(recipients({"bob@example.org", "carol@example.org"}));
    original->setCc(recipients({"dave@example.org"}));
    original->setBcc(recipients({"erin@example.org"}));
    original->setToString("ignored, the writer reads the lists");
    original->setAttachments(makeMutableList<QVariant>());
    original->attachments()->append(QStringLiteral("/home/ada/q3.pdf"));
    original->attachments()->append(QUrl::fromLocalFile("/home/ada/chart 1.png"));

    const auto url = original->queryUrl("compose");
    ASSERT_TRUE(url);
    const auto back = ExtensionMessage::ExtensionMessageWithUrl(*url);

    // what the URL carries
    EXPECT_EQ(s(back->subject()), "Quarterly numbers");
    EXPECT_EQ(s(back->from()), "Ada Lovelace <ada@example.org>");
    EXPECT_EQ(s(back->account()), "ada@example.org");
    EXPECT_EQ(s(back->plainBody()), "Hello Bob,\nthe numbers are in.");
    EXPECT_EQ(s(back->htmlBody()), "<p>Hello Bob,</p><p>the numbers are in.</p>");
    EXPECT_EQ(s(back->toString()), "bob@example.org;carol@example.org;");
    EXPECT_EQ(s(back->ccString()), "dave@example.org;");
    EXPECT_EQ(s(back->bccString()), "erin@example.org;");
    EXPECT_EQ(texts(back->attachments()), (QStringList{"/home/ada/q3.pdf", "/home/ada/chart 1.png"}));

    // what it does not
    EXPECT_TRUE(back->to()->isEmpty());
    EXPECT_TRUE(back->cc()->isEmpty());
    EXPECT_TRUE(back->bcc()->isEmpty());
    EXPECT_TRUE(back->messageId().isNull());
    EXPECT_TRUE(back->folderPath().isNull());
    EXPECT_FALSE(back->date().isValid());
    EXPECT_TRUE(back->dateString().isNull());
    EXPECT_TRUE(back->image().isNull());
    EXPECT_FALSE(back->unread().isValid());
    EXPECT_FALSE(back->folderStandardId().isValid());
    EXPECT_FALSE(back->isEqual(original.get()))
        << "without its identifier the rebuilt message is another one";
}

TEST(ExtensionMessageWithUrl, BodiesThatNeedEncodingSurviveTheTrip) {
    const QStringList bodies = {
        "fish & chips",
        "a=b&c=d",
        "1 + 1 = 2, and a+b",
        "100% sure? #1!",
        QString::fromUtf8(
            "Gr\u00fc\u00dfe aus K\u00f6ln, \u4f60\u597d, \u0645\u0631\u062d\u0628\u0627 \U0001F389"),
        "line one\nline two\r\nline three\rline four\n",
        "  spaces kept  ",
        "<p class=\"x\">'quoted' &amp; tagged</p>",
        "semicolons; slashes / and ?question",
    };
    for (const QString& body : bodies) {
        const auto m = ExtensionMessage::init();
        m->setPlainBody(body);
        m->setHtmlBody(body);
        m->setSubject(body);
        const auto url = m->queryUrl("compose");
        ASSERT_TRUE(url) << s(body);
        const auto back = ExtensionMessage::ExtensionMessageWithUrl(*url);
        EXPECT_EQ(back->plainBody(), body) << s(url->absoluteString());
        EXPECT_EQ(back->htmlBody(), body) << s(url->absoluteString());
        EXPECT_EQ(back->subject(), body) << s(url->absoluteString());
    }
}

// ---- searchUrlsDetector

TEST(ExtensionMessageSearchUrlsDetector, AnswersTheAbsoluteLinksInOrder) {
    LogCapture log;
    const auto m = ExtensionMessage::init();
    EXPECT_TRUE(m->searchUrlsDetector("nothing to see here.").isEmpty());
    EXPECT_TRUE(m->searchUrlsDetector("").isEmpty());
    EXPECT_TRUE(m->searchUrlsDetector(QString()).isEmpty());
    EXPECT_EQ(m->searchUrlsDetector("Mail me@example.com, see www.example.com or https://example.org/a."),
              (QStringList{"mailto:me@example.com", "http://www.example.com", "https://example.org/a"}));
    EXPECT_EQ(m->searchUrlsDetector("example.net and example.net"),
              (QStringList{"http://example.net", "http://example.net"}));
    EXPECT_TRUE(log.lines().isEmpty());
}

// ---- renderHtml

TEST(ExtensionMessageRenderHtml, TwoPlainLinesWithALink) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("Hello Bob,\nsee https://example.com/report for the numbers");
    const QString expected = "Hello Bob,<br>see " + anchor("https://example.com/report") + " for the numbers";
    EXPECT_EQ(s(m->renderHtml()), s(expected));
    EXPECT_EQ(s(m->plainBody()), s(expected)) << "the record holds the rendered body";
    EXPECT_EQ(m->htmlBody(), QString("")) << "the HTML body is left alone";
}

TEST(ExtensionMessageRenderHtml, ALinkJustBeforeALineBreakEndsThere) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("https://example.com/a\nBye");
    EXPECT_EQ(s(m->renderHtml()), s(anchor("https://example.com/a") + "<br>Bye"));
}

TEST(ExtensionMessageRenderHtml, OnlyLineFeedsBecomeBreaks) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("a\r\nb\n\nc");
    EXPECT_EQ(s(m->renderHtml()), "a\r<br>b<br><br>c");
}

TEST(ExtensionMessageRenderHtml, LinksWithoutSchemeAndAddressesStayAsWritten) {
    // Their absolute text ("http://www.example.com", "mailto:me@example.com") is not in the body, so
    // the text substitution finds nothing to wrap.
    const auto m = ExtensionMessage::init();
    m->setPlainBody("Write to me@example.com or see www.example.com");
    EXPECT_EQ(s(m->renderHtml()), "Write to me@example.com or see www.example.com");
}

TEST(ExtensionMessageRenderHtml, ALinkThatOccursTwiceIsWrappedTwice) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("https://a.io and https://a.io");
    // the detector reports the link twice; the first substitution wraps both occurrences, the
    // second wraps each link inside those anchors again
    const QString once = anchor("https://a.io");
    const QString twice = "<a href='" + once + "'>" + once + "</a>";
    EXPECT_EQ(s(m->renderHtml()), s(twice + " and " + twice));
}

TEST(ExtensionMessageRenderHtml, ALinkThatBeginsALongerOne) {
    const auto shortFirst = ExtensionMessage::init();
    shortFirst->setPlainBody("https://a.io and https://a.io/b");
    // the longer link is cut by the shorter one's anchor and is then no longer found
    EXPECT_EQ(s(shortFirst->renderHtml()),
              s(anchor("https://a.io") + " and " + anchor("https://a.io") + "/b"));

    const auto longFirst = ExtensionMessage::init();
    longFirst->setPlainBody("https://a.io/b and https://a.io");
    const QString shortAnchor = anchor("https://a.io");
    EXPECT_EQ(s(longFirst->renderHtml()),
              s("<a href='" + shortAnchor + "/b'>" + shortAnchor + "/b</a> and " + shortAnchor));
}

TEST(ExtensionMessageRenderHtml, EmptyBodiesRenderAsHtmlWithOneImagePerAttachment) {
    const auto m = ExtensionMessage::init();
    m->attachments()->append(QStringLiteral("/tmp/a.png"));
    m->attachments()->append(QUrl::fromLocalFile("/tmp/b c.png"));
    const std::string expected =
        "<img src=\"file:///tmp/a.png\"/><br/><img src=\"file:///tmp/b c.png\"/><br/>";
    EXPECT_EQ(s(m->renderHtml()), expected);
    EXPECT_EQ(s(m->htmlBody()), expected);
    EXPECT_EQ(m->plainBody(), QString(""));
}

TEST(ExtensionMessageRenderHtml, EmptyBodiesWithoutAttachmentsGiveAnEmptyHtmlBody) {
    const auto m = ExtensionMessage::init();
    const QString html = m->renderHtml();
    EXPECT_EQ(html, QString(""));
    EXPECT_FALSE(html.isNull());
}

TEST(ExtensionMessageRenderHtml, NoBodiesAtAllGiveAnEmptyText) {
    const auto m = ExtensionMessage::initWithDictonary(QVariantMap{});
    ASSERT_TRUE(m->htmlBody().isNull());
    ASSERT_TRUE(m->plainBody().isNull());
    const QString html = m->renderHtml();
    EXPECT_EQ(html, QString(""));
    EXPECT_FALSE(html.isNull());
    EXPECT_TRUE(m->htmlBody().isNull()) << "nothing is written back";
    EXPECT_TRUE(m->plainBody().isNull());
}

TEST(ExtensionMessageRenderHtml, AnHtmlBodyWinsOverAPlainOne) {
    const auto m = ExtensionMessage::init();
    m->setHtmlBody("<p>hi</p>");
    m->setPlainBody("hi\nhttps://example.com");
    m->attachments()->append(QStringLiteral("/tmp/a.png"));
    EXPECT_EQ(s(m->renderHtml()), "<p>hi</p><img src=\"file:///tmp/a.png\"/><br/>");
    EXPECT_EQ(s(m->plainBody()), "hi\nhttps://example.com") << "the plain body is left alone";
}

TEST(ExtensionMessageRenderHtml, AnEmptyHtmlBodyGivesWayToAPlainOne) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("hi");
    m->attachments()->append(QStringLiteral("/tmp/a.png"));
    EXPECT_EQ(s(m->renderHtml()), "hi") << "a plain body shows no attachments";
    EXPECT_EQ(m->htmlBody(), QString(""));
}

TEST(ExtensionMessageRenderHtml, AMissingHtmlBodyGivesWayToAPlainOne) {
    const auto m = ExtensionMessage::init();
    m->setHtmlBody(QString());
    m->setPlainBody("a\nb");
    EXPECT_EQ(s(m->renderHtml()), "a<br>b");
    EXPECT_TRUE(m->htmlBody().isNull());
}

TEST(ExtensionMessageRenderHtml, AnEmptyHtmlBodyWithoutAPlainOneIsHtml) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody(QString());
    m->attachments()->append(QStringLiteral("/tmp/a.png"));
    EXPECT_EQ(s(m->renderHtml()), "<img src=\"file:///tmp/a.png\"/><br/>");
}

TEST(ExtensionMessageRenderHtml, AttachmentsOfOtherKindsShowTheirText) {
    const auto m = ExtensionMessage::init();
    m->attachments()->append(QVariant::fromValue(Url::fileURLWithPath("/tmp/x.png")));
    m->attachments()->append(7);
    EXPECT_EQ(s(m->renderHtml()), "<img src=\"file:///tmp/x.png\"/><br/><img src=\"file://7\"/><br/>");
}

TEST(ExtensionMessageRenderHtml, RenderingTwiceAppendsTheImagesAgain) {
    const auto m = ExtensionMessage::init();
    m->setHtmlBody("<p>hi</p>");
    m->attachments()->append(QStringLiteral("/tmp/a.png"));
    const std::string image = "<img src=\"file:///tmp/a.png\"/><br/>";
    EXPECT_EQ(s(m->renderHtml()), "<p>hi</p>" + image);
    EXPECT_EQ(s(m->renderHtml()), "<p>hi</p>" + image + image);
    EXPECT_EQ(s(m->htmlBody()), "<p>hi</p>" + image + image);
}

TEST(ExtensionMessageRenderHtml, RenderingTwiceWrapsTheLinksAgain) {
    const auto m = ExtensionMessage::init();
    m->setPlainBody("see https://a.io");
    const QString first = "see " + anchor("https://a.io");
    EXPECT_EQ(s(m->renderHtml()), s(first));
    // The rendered body holds the link twice (in href and as text) and the detector finds both, so
    // each is wrapped twice more.
    const QString once = anchor("https://a.io");
    const QString twice = "<a href='" + once + "'>" + once + "</a>";
    EXPECT_EQ(s(m->renderHtml()), s("see <a href='" + twice + "'>" + twice + "</a>"));
}

TEST(ExtensionMessageRenderHtml, ALinkRepeatedManyTimesStopsGrowingTheBodyAndLogs) {
    // Each wrapping doubles every occurrence of the link: 40 copies would make about 2^40 anchors.
    // The body may grow to 16 times its size plus 2^20 characters; the tenth wrapping would pass
    // that, so nine are done.
    QStringList copies;
    for (int i = 0; i < 40; ++i) {
        copies << "https://a.io";
    }
    const QString text = copies.join(' ');
    ASSERT_EQ(text.size(), 519);
    LogCapture log;
    const auto m = ExtensionMessage::init();
    m->setPlainBody(text);
    const QString rendered = m->renderHtml();

    QString nested = "https://a.io";
    for (int wraps = 0; wraps < 9; ++wraps) {
        nested = "<a href='" + nested + "'>" + nested + "</a>";
    }
    QStringList expected;
    for (int i = 0; i < 40; ++i) {
        expected << nested;
    }
    EXPECT_EQ(rendered, expected.join(' '));
    EXPECT_EQ(rendered.size(), 552399);
    EXPECT_EQ(m->plainBody(), rendered);
    EXPECT_EQ(log.lines(),
              QStringList{"ExtensionMessage renderHtml stopped after 9 of 40 links: the body would "
                          "grow past 1056880 characters"});
}

TEST(ExtensionMessageRenderHtml, ALongBodyWithManyLinksStopsSearchingAndLogs) {
    // 1000 distinct links in three million characters: each wrapping searches the whole body, and
    // after 2^30 characters searched the remaining links are left as they are.
    QString text;
    const QString padding = " " + QString(3000, 'x') + " ";
    for (int i = 0; i < 1000; ++i) {
        text += QStringLiteral("https://e.io/p%1").arg(i, 4, 10, QLatin1Char('0')) + padding;
    }
    ASSERT_EQ(text.size(), 3020000);
    LogCapture log;
    const auto m = ExtensionMessage::init();
    m->setPlainBody(text);
    const QString rendered = m->renderHtml();
    EXPECT_EQ(log.lines(),
              QStringList{"ExtensionMessage renderHtml stopped after 354 of 1000 links: more than "
                          "1073741824 characters searched"});
    EXPECT_TRUE(rendered.contains(anchor("https://e.io/p0000")));
    EXPECT_TRUE(rendered.contains(anchor("https://e.io/p0353")));
    EXPECT_FALSE(rendered.contains(anchor("https://e.io/p0354")));
    EXPECT_TRUE(rendered.contains("https://e.io/p0354" + padding));
    EXPECT_EQ(rendered.size(), 3020000 + 354 * 33)
        << "each wrapped link adds \"<a href=''>\", itself and \"</a>\"";
    EXPECT_EQ(m->plainBody(), rendered);
}

TEST(ExtensionMessageRenderHtml, AnOrdinaryBodyLogsNothing) {
    LogCapture log;
    const auto m = ExtensionMessage::init();
    m->setPlainBody("Hi,\nhttps://a.io and https://a.io again, and https://b.io/x.");
    (void)m->renderHtml();
    EXPECT_TRUE(log.lines().isEmpty()) << s(log.lines().join('\n'));
}
