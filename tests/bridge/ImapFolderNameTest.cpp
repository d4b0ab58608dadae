// Folder names to and from IMAP's encoding of names outside ASCII, with the examples of the IMAP
// standard itself and names a careless or hostile server could send.
#include "bridge/imap/ImapFolderName.h"

#include "BridgeTesting.h"

#include <gtest/gtest.h>

namespace corvina::test {
namespace {

TEST(ImapFolderNameTest, TheStandardsExampleRoundTrips) {
    const QString name = QStringLiteral("~peter/mail/") + QString::fromUtf8("\xe5\x8f\xb0\xe5\x8c\x97") +
                         u'/' + QString::fromUtf8("\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e");
    const QByteArray wire = "~peter/mail/&U,BTFw-/&ZeVnLIqe-";
    EXPECT_EQ(ImapFolderName::encode(name), wire);
    EXPECT_EQ(ImapFolderName::decode(wire), std::optional<QString>(name));
}

TEST(ImapFolderNameTest, AnAmpersandIsWrittenAmpersandDash) {
    EXPECT_EQ(ImapFolderName::encode(QStringLiteral("&")), QByteArray("&-"));
    EXPECT_EQ(ImapFolderName::encode(QStringLiteral("Tom & Jerry")), QByteArray("Tom &- Jerry"));
    EXPECT_EQ(ImapFolderName::decode("&-"), std::optional<QString>(QStringLiteral("&")));
    EXPECT_EQ(ImapFolderName::decode("Tom &- Jerry"), std::optional<QString>(QStringLiteral("Tom & Jerry")));
}

TEST(ImapFolderNameTest, PrintableAsciiStandsForItself) {
    const QString ascii = QStringLiteral(" !\"#$%'()*+,-./0123456789:;<=>?@AZ[\\]^_`az{|}~");
    EXPECT_EQ(ImapFolderName::encode(ascii), ascii.toLatin1());
    EXPECT_EQ(ImapFolderName::decode(ascii.toLatin1()), std::optional<QString>(ascii));
    EXPECT_EQ(ImapFolderName::encode(QString()), QByteArray());
    EXPECT_EQ(ImapFolderName::decode(QByteArray()), std::optional<QString>(QString()));
}

TEST(ImapFolderNameTest, OtherCharactersGoInRunsOfBase64) {
    const QString notes = QStringLiteral("Notizen ") + QChar(0xe4);
    EXPECT_EQ(ImapFolderName::encode(notes), QByteArray("Notizen &AOQ-"));
    EXPECT_EQ(ImapFolderName::decode("Notizen &AOQ-"), std::optional<QString>(notes));
    // Neighbouring characters outside ASCII share one run; ASCII between them ends it.
    const QString umlauts = QString(QChar(0xe4)) + QChar(0xf6) + u'-' + QChar(0xfc);
    EXPECT_EQ(ImapFolderName::encode(umlauts), QByteArray("&AOQA9g--&APw-"));
    EXPECT_EQ(ImapFolderName::decode("&AOQA9g--&APw-"), std::optional<QString>(umlauts));
    // A character beyond the first 65536 is a surrogate pair in UTF-16, kept whole.
    const QString emoji = QString::fromUtf8("Post \xf0\x9f\x93\xab");
    const QByteArray emojiWire = ImapFolderName::encode(emoji);
    EXPECT_EQ(emojiWire, QByteArray("Post &2D3c6w-"));
    EXPECT_EQ(ImapFolderName::decode(emojiWire), std::optional<QString>(emoji));
    // Control characters are not printable: they go in a run too, never raw onto the wire.
    EXPECT_EQ(ImapFolderName::encode(QStringLiteral("a\tb")), QByteArray("a&AAk-b"));
    // The base64 alphabet writes "," where "/" would be.
    const QString slash = QString(QChar(0xffff));
    EXPECT_EQ(ImapFolderName::encode(slash), QByteArray("&,,8-"));
    EXPECT_EQ(ImapFolderName::decode("&,,8-"), std::optional<QString>(slash));
}

TEST(ImapFolderNameTest, MalformedNamesAreRefused) {
    for (const QByteArray& wire : {
             QByteArray("&"),                // a run never ended
             QByteArray("&AOQ"),             // the same, with content
             QByteArray("Notizen &AOQ"),     //
             QByteArray("&AOQ/-"),           // "/" is not in the alphabet
             QByteArray("&AOQ=-"),           // nor is padding
             QByteArray("&A-"),              // not even one UTF-16 unit
             QByteArray("&AOQA-"),           // a unit and a half
             QByteArray("&AOR-"),            // bits left over that are not zero
             QByteArray("&AGE-"),            // "a", which stands for itself
             QByteArray("&ACY-"),            // "&", which is written "&-"
             QByteArray("&2D0-"),            // half a surrogate pair
             QByteArray("&3ADYPQ-"),         // the halves the wrong way round
             QByteArray("Notizen \xc3\xa4"), // UTF-8 sent as it is
             QByteArray("tab\there"),        // a control character
             QByteArray("nul\0here", 8),     //
             QByteArray("del\x7fhere"),      //
             QByteArray("&AOQ-&"),           //
             QByteArray("&&-"),              //
         }) {
        EXPECT_EQ(ImapFolderName::decode(wire), std::nullopt) << wire.toStdString();
    }
}

} // namespace
} // namespace corvina::test
