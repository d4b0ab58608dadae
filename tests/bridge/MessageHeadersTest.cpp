// What the bridge makes of a message's header fields, on envelopes built with libetpan's own
// constructors (as its parser builds them) and on header bytes. The same cases against a real
// server are in AccountSyncTest.
#include "bridge/imap/MessageHeaders.h"

#include "BridgeTesting.h"
#include "support/ScopedZone.h"

#include <QLocale>
#include <cstring>
#include <gtest/gtest.h>
#include <libetpan/libetpan.h>
#include <memory>

namespace corvina::test {
namespace {

// A text as libetpan's parser makes it: a registered string, which its free functions give back
// (they do not free a plain malloc'd one).
char* copy(const char* text) {
    if (text == nullptr)
        return nullptr;
    MMAPString* string = mmap_string_new(text);
    mmap_string_ref(string);
    return string->str;
}

// One address as an IMAP ENVELOPE carries it: (name adl mailbox host).
mailimap_address* address(const char* name, const char* mailbox, const char* host) {
    return mailimap_address_new(copy(name), nullptr, copy(mailbox), copy(host));
}

clist* addresses(std::initializer_list<mailimap_address*> list) {
    clist* result = clist_new();
    for (mailimap_address* a : list)
        clist_append(result, a);
    return result;
}

struct FreeEnvelope {
    void operator()(mailimap_envelope* env) const { mailimap_envelope_free(env); }
};
using Envelope = std::unique_ptr<mailimap_envelope, FreeEnvelope>;

// An envelope with these From, Sender and Reply-To lists (null: NIL) and this subject.
Envelope envelope(clist* from, clist* sender = nullptr, clist* replyTo = nullptr,
                  const char* subject = nullptr) {
    return Envelope(mailimap_envelope_new(
        nullptr, copy(subject), from ? mailimap_env_from_new(from) : nullptr,
        sender ? mailimap_env_sender_new(sender) : nullptr,
        replyTo ? mailimap_env_reply_to_new(replyTo) : nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
}

TEST(MessageHeadersTest, ControlCharactersAreReplacedAndEverythingXmlAllowsIsKept) {
    const QString text = QStringLiteral("Red \x1b[31malert\x07 and \x01\x1f end");
    EXPECT_EQ(MessageHeaders::xmlSafe(text),
              QStringLiteral("Red \uFFFD[31malert\uFFFD and \uFFFD\uFFFD end"));
    // Tab, line feed and carriage return are XML's own; so are every other character and a
    // supplementary one written as its pair of surrogates.
    const QString allowed = QStringLiteral("a\tb\nc\rd é € \U0001F602 \u007F\u0085\uFFFD\uFFFC");
    EXPECT_EQ(MessageHeaders::xmlSafe(allowed), allowed);
    EXPECT_TRUE(MessageHeaders::isXmlSafe(allowed));
    // The two non-characters and surrogates without their pair.
    QString odd = QStringLiteral("x");
    odd += QChar(0xFFFE);
    odd += QChar(0xFFFF);
    odd += QChar(0xD83D); // a high surrogate followed by a letter
    odd += u'y';
    odd += QChar(0xDE02); // a low surrogate alone
    odd += QChar(0xD83D); // a high surrogate at the end
    EXPECT_FALSE(MessageHeaders::isXmlSafe(odd));
    EXPECT_EQ(MessageHeaders::xmlSafe(odd), QStringLiteral("x\uFFFD\uFFFD\uFFFDy\uFFFD\uFFFD"));
    EXPECT_TRUE(MessageHeaders::isXmlSafe(MessageHeaders::xmlSafe(odd)));
    // null stays null, empty stays empty
    EXPECT_TRUE(MessageHeaders::xmlSafe(QString()).isNull());
    EXPECT_FALSE(MessageHeaders::xmlSafe(QStringLiteral("")).isNull());
}

TEST(MessageHeadersTest, BareBytesAreUtf8WhenTheyCanBeElseTheDeclaredCharsetElseWindows1252ElseLatin1) {
    EXPECT_EQ(MessageHeaders::rawText(QByteArray("Gr\xc3\xbc\xc3\x9f"
                                                 "e")),
              QStringLiteral("Grüße"));
    // Latin-1 bytes are no UTF-8: without a declaration, windows-1252 reads them (and its €).
    EXPECT_EQ(MessageHeaders::rawText(QByteArray("Gr\xfc\xdf"
                                                 "e \x80"
                                                 "5")),
              QStringLiteral("Grüße €5"));
    // The message's own declaration goes first: the same bytes as KOI8-R are Cyrillic.
    EXPECT_EQ(MessageHeaders::rawText(QByteArray("\xf0\xd2\xc9\xd7\xc5\xd4"), {"koi8-r"}),
              QStringLiteral("Привет"));
    // A declaration that cannot read the bytes is passed over; one that does not keep ASCII as
    // ASCII (UTF-16, UTF-7) is never used on header bytes; an unknown one neither.
    EXPECT_EQ(
        MessageHeaders::rawText(QByteArray("caf\xe9"), {"utf-8", "utf-16", "no-such-charset", "iso-8859-1"}),
        QStringLiteral("café"));
    // 0x81 is one of the five bytes windows-1252 leaves undefined: Latin-1 reads it.
    EXPECT_EQ(MessageHeaders::rawText(QByteArray("a\x81z")), QStringLiteral("a\u0081z"));
}

TEST(MessageHeadersTest, EncodedWordsAreDecodedBetweenBare8BitText) {
    EXPECT_EQ(MessageHeaders::decodeHeader("=?UTF-8?B?R3LDvMOfZQ==?= aus K\xf6ln", {"iso-8859-1"}),
              QStringLiteral("Grüße aus Köln"));
    EXPECT_EQ(MessageHeaders::decodeHeader("plain"), QStringLiteral("plain"));
    EXPECT_TRUE(MessageHeaders::decodeHeader(nullptr).isNull());
}

TEST(MessageHeadersTest, DeclaredCharsetsComeFromTheContentTypeThenFromEncodedWords) {
    const QByteArray header("Content-Type: text/plain;\r\n\tformat=flowed; CharSet=\"KOI8-R\"\r\n\r\n");
    EXPECT_EQ(MessageHeaders::declaredCharsets(
                  header, {"=?windows-1251?B?AAAA?= and =?utf-8*de?Q?x?=", "=?koi8-r?Q?=F0?="}),
              (QByteArrayList{"koi8-r", "windows-1251", "utf-8"}));
    // A multipart message declares none at its top; nor does a message without a Content-Type.
    EXPECT_TRUE(
        MessageHeaders::declaredCharsets("Content-Type: multipart/mixed; boundary=x\r\n\r\n").isEmpty());
    EXPECT_TRUE(MessageHeaders::declaredCharsets(QByteArray()).isEmpty());
    // Names that are no charset names are not handed to the converter.
    EXPECT_TRUE(
        MessageHeaders::declaredCharsets("Content-Type: text/plain; charset=\"utf-8//TRANSLIT\"\r\n\r\n")
            .isEmpty());
    EXPECT_TRUE(MessageHeaders::declaredCharsets({}, {"=?../../etc/x?B?AA==?=", "=??Q?x?="}).isEmpty());
}

TEST(MessageHeadersTest, WithoutAFromTheSenderThenTheReplyToIsNamed) {
    EXPECT_EQ(MessageHeaders::senderText(envelope(addresses({address("Grace", "grace", "example.org")}),
                                                  addresses({address(nullptr, "list-owner", "example.org")}))
                                             .get()),
              QStringLiteral("Grace"));
    EXPECT_EQ(MessageHeaders::senderText(envelope(nullptr,
                                                  addresses({address(nullptr, "list-owner", "example.org")}),
                                                  addresses({address("Replies", "replies", "example.org")}))
                                             .get()),
              QStringLiteral("list-owner@example.org"));
    EXPECT_EQ(
        MessageHeaders::senderText(
            envelope(nullptr, nullptr, addresses({address("=?UTF-8?Q?R=C3=A9plique?=", "r", "example.org")}))
                .get()),
        QStringLiteral("Réplique"));
    // A group names itself by its start (no host); an address of nothing but NILs (a group's end)
    // names no one, and the next list is asked.
    EXPECT_EQ(
        MessageHeaders::senderText(envelope(addresses({address(nullptr, "undisclosed-recipients", nullptr),
                                                       address(nullptr, nullptr, nullptr)}),
                                            addresses({address(nullptr, "bounce", "example.org")}))
                                       .get()),
        QStringLiteral("undisclosed-recipients"));
    EXPECT_EQ(MessageHeaders::senderText(envelope(addresses({address(nullptr, nullptr, nullptr)}),
                                                  addresses({address(nullptr, "bounce", "example.org")}))
                                             .get()),
              QStringLiteral("bounce@example.org"));
}

TEST(MessageHeadersTest, WithoutAnySenderTheLocalisedNoSenderIsWritten) {
    EXPECT_EQ(MessageHeaders::senderText(envelope(nullptr).get()), QStringLiteral("(no sender)"));
    EXPECT_EQ(MessageHeaders::senderText(nullptr), QStringLiteral("(no sender)"));
    {
        ScopedLanguage german(QLocale(QLocale::German, QLocale::Germany));
        EXPECT_EQ(MessageHeaders::senderText(envelope(nullptr).get()), QStringLiteral("(kein Absender)"));
    }
    {
        ScopedLanguage french(QLocale(QLocale::French, QLocale::France));
        EXPECT_EQ(MessageHeaders::senderText(envelope(nullptr).get()), QStringLiteral("(sans expéditeur)"));
    }
}

TEST(MessageHeadersTest, An8BitNameIsReadWithTheMessagesCharset) {
    EXPECT_EQ(MessageHeaders::senderText(
                  envelope(addresses({address("J\xf6rg", "joerg", "example.org")})).get(), {"iso-8859-1"}),
              QStringLiteral("Jörg"));
}

TEST(MessageHeadersTest, AReplysSubjectIsReadWithTheContentTypesCharset) {
    const ImapSession::ReplyHeaders headers =
        MessageHeaders::parseReplyHeaders("From: a@example.org\r\nSubject: \xf0\xd2\xc9\xd7\xc5\xd4\r\n"
                                          "Content-Type: text/plain; charset=koi8-r\r\n\r\n");
    EXPECT_EQ(headers.subject, QStringLiteral("Привет"));
    EXPECT_EQ(headers.replyAddress, QStringLiteral("a@example.org"));
}

TEST(MessageHeadersTest, DatesAreReadAsBefore) {
    EXPECT_EQ(MessageHeaders::parseDate("Tue, 14 Nov 2023 22:13:20 +0000").toSecsSinceEpoch(), 1700000000);
    EXPECT_EQ(MessageHeaders::parseDate("Wed, 15 Nov 2023 01:13:20 +0300").toSecsSinceEpoch(), 1700000000);
    EXPECT_FALSE(MessageHeaders::parseDate("sometime last week").isValid());
    EXPECT_FALSE(MessageHeaders::parseDate(nullptr).isValid());
}

// A zone is four digits. A server or a sender that sends more must not make the date whatever the
// arithmetic on a too-large number happens to give: 119304700 seconds' worth of hours wraps round
// to a zone of half an hour in 32 bits.
TEST(MessageHeadersTest, AZoneOfMoreThanFourDigitsMakesNoDate) {
    EXPECT_FALSE(MessageHeaders::parseDate("Tue, 14 Nov 2023 22:13:20 +119304700").isValid());
    EXPECT_FALSE(MessageHeaders::parseDate("Tue, 14 Nov 2023 22:13:20 -119304700").isValid());
    EXPECT_FALSE(MessageHeaders::parseDate("Tue, 14 Nov 2023 22:13:20 +2147483647").isValid());
    EXPECT_FALSE(MessageHeaders::parseDate("Tue, 14 Nov 2023 22:13:20 -2147483648").isValid());
    EXPECT_FALSE(
        MessageHeaders::parseDate("Tue, 14 Nov 2023 22:13:20 +00111111111111111111111111111100").isValid());
    // the widest zones in use still are dates
    EXPECT_EQ(MessageHeaders::parseDate("Wed, 15 Nov 2023 12:13:20 +1400").toSecsSinceEpoch(), 1700000000);
    EXPECT_EQ(MessageHeaders::parseDate("Tue, 14 Nov 2023 10:13:20 -1200").toSecsSinceEpoch(), 1700000000);
}

} // namespace
} // namespace corvina::test
