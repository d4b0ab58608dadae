// A message record read straight from the parser's node (what the snapshot loader does) is the
// record the Qt form of the same dictionary gives, field by field and log line by log line, for
// every value, absent key, wrong type and odd shape.
#include "model/ExtensionMessage.h"
#include "platform/PlistDocument.h"
#include "platform/PropertyList.h"
#include "support/Fixtures.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;

namespace {

struct Built {
    ExtensionMessagePtr message;
    QStringList lines;
};

void expectSameRecord(const Built& fromNode, const Built& fromVariant, const std::string& what) {
    const ExtensionMessage& a = *fromNode.message;
    const ExtensionMessage& b = *fromVariant.message;
    auto sameText = [&](const QString& x, const QString& y, const char* field) {
        EXPECT_EQ(x, y) << what << " " << field;
        EXPECT_EQ(x.isNull(), y.isNull()) << what << " " << field << " null";
    };
    sameText(a.subject(), b.subject(), "subject");
    sameText(a.messageId(), b.messageId(), "messageId");
    sameText(a.from(), b.from(), "from");
    sameText(a.account(), b.account(), "account");
    sameText(a.folderPath(), b.folderPath(), "folderPath");
    sameText(a.dateString(), b.dateString(), "dateString");
    EXPECT_EQ(a.folderStandardId(), b.folderStandardId()) << what;
    EXPECT_EQ(a.folderStandardId().typeId(), b.folderStandardId().typeId()) << what;
    EXPECT_EQ(a.unread(), b.unread()) << what;
    EXPECT_EQ(a.unread().typeId(), b.unread().typeId()) << what;
    EXPECT_EQ(a.date(), b.date()) << what;
    EXPECT_EQ(a.date().isValid(), b.date().isValid()) << what;
    EXPECT_EQ(a.hasAvatar(), b.hasAvatar()) << what;
    EXPECT_EQ(a.image(), b.image()) << what;
    EXPECT_FALSE(a.to()) << what;
    EXPECT_TRUE(a.plainBody().isNull()) << what;
    EXPECT_EQ(fromNode.lines, fromVariant.lines) << what;
}

// Every element of the array at the top of `bytes` (or of its "data", for an envelope), built both
// ways and compared.
void expectBothWaysAlike(const QByteArray& bytes, const std::string& what) {
    const PlistDocument document = PropertyList::parse(bytes);
    ASSERT_TRUE(document.ok()) << what << " " << document.error().toStdString();
    const PropertyList::Result variant = PropertyList::read(bytes);
    ASSERT_TRUE(variant.ok()) << what;
    PlistNode array = document.root();
    QVariantList elements = variant.value.toList();
    if (array.isDictionary()) {
        static constexpr const char* Data[] = {"data"};
        array.valuesForKeys(Data, 1, &array);
        elements = variant.value.toMap().value(QStringLiteral("data")).toList();
    }
    ASSERT_TRUE(array.isArray()) << what;
    ASSERT_EQ(array.arraySize(), elements.size()) << what;
    void* cursor = nullptr;
    for (const QVariant& element : elements) {
        const PlistNode node = array.nextElement(cursor);
        ASSERT_FALSE(node.isNull()) << what;
        Built fromNode;
        Built fromVariant;
        {
            LogCapture capture;
            fromNode.message = ExtensionMessage::initWithNode(node);
            (void)fromNode.message->image();
            fromNode.lines = capture.lines();
        }
        {
            LogCapture capture;
            fromVariant.message = ExtensionMessage::initWithDictonary(element);
            (void)fromVariant.message->image();
            fromVariant.lines = capture.lines();
        }
        expectSameRecord(fromNode, fromVariant, what);
    }
    PlistNode::endElements(cursor);
}

QByteArray xmlList(const QByteArray& elements) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><array>" + elements +
           "</array></plist>\n";
}

} // namespace

TEST(MessageFromNode, TheFixtureMessagesInBothForms) {
    for (const char* form : {"xml", "bin"}) {
        expectBothWaysAlike(test::fixtureBytes(QStringLiteral("records/messages.%1.plist").arg(form)), form);
    }
}

TEST(MessageFromNode, WrongTypesAndOddShapes) {
    const QByteArray png = QByteArray::fromBase64(
        "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");
    const QByteArray elements =
        // not dictionaries at all
        "<string>text</string><integer>3</integer><array><string>a</string></array><true/>"
        "<date>2023-11-14T22:13:20Z</date><data>AAEC</data><real>2.5</real>"
        // every field of the wrong kind
        "<dict><key>subject</key><array/><key>from</key><dict/><key>account</key><date>2001-01-01T00:00:00Z</"
        "date>"
        "<key>messageId</key><data>AA==</data><key>folder</key><true/><key>folderStid</key><string>12</"
        "string>"
        "<key>isUnread</key><string>yes</string><key>date</key><string> 1700000063.5x</string></dict>"
        // numbers where texts belong, texts where numbers belong
        "<dict><key>subject</key><real>2.5</real><key>messageId</key><integer>-7</integer>"
        "<key>from</key><false/><key>folderStid</key><string>2.5e1</string><key>isUnread</key><real>0.0</"
        "real>"
        "<key>date</key><integer>1700000000</integer></dict>"
        // a date that cannot be one, then an avatar that is no text
        "<dict><key>subject</key><string>late</string><key>date</key><real>1e300</real></dict>"
        "<dict><key>subject</key><string>face</string><key>avatar</key><integer>1</integer></dict>"
        // avatars: good, empty, no picture, not Base64
        "<dict><key>avatar</key><string>" +
        png.toBase64() +
        "</string></dict>"
        "<dict><key>avatar</key><string></string></dict>"
        "<dict><key>avatar</key><string>" +
        QByteArray("not a picture at all").toBase64() +
        "</string></dict>"
        "<dict><key>avatar</key><string>***</string></dict>"
        // a key given twice: the last one counts in the Qt form
        "<dict><key>subject</key><string>first</string><key>subject</key><string>second</string></dict>"
        // keys in no particular order, unknown keys among them, and an empty dictionary
        "<dict><key>zzz</key><string>x</string><key>date</key><integer>1600000000</integer><key>account</key>"
        "<string>a@example.org</string><key>subject</key><string>s</string><key>aaa</key><integer>1</integer>"
        "<key>messageId</key><string>m</string><key>from</key><string>f</string></dict>"
        "<dict/>";
    expectBothWaysAlike(xmlList(elements), "odd shapes");
}
