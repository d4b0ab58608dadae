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
    // as the loader reads a file: one set of repeated texts for all its messages
    ExtensionMessage::RepeatedTexts repeated;
    for (const QVariant& element : elements) {
        const PlistNode node = array.nextElement(cursor);
        ASSERT_FALSE(node.isNull()) << what;
        Built fromNode;
        Built fromVariant;
        Built sharing;
        {
            LogCapture capture;
            fromNode.message = ExtensionMessage::initWithNode(node);
            (void)fromNode.message->image();
            fromNode.lines = capture.lines();
        }
        {
            LogCapture capture;
            sharing.message = ExtensionMessage::initWithNode(node, repeated);
            (void)sharing.message->image();
            sharing.lines = capture.lines();
        }
        {
            LogCapture capture;
            fromVariant.message = ExtensionMessage::initWithDictonary(element);
            (void)fromVariant.message->image();
            fromVariant.lines = capture.lines();
        }
        expectSameRecord(fromNode, fromVariant, what);
        expectSameRecord(sharing, fromVariant, what + " (sharing repeated texts)");
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

namespace {

QByteArray messageElement(const QByteArray& account, const QByteArray& folder) {
    return "<dict><key>subject</key><string>s</string><key>account</key><string>" + account +
           "</string><key>folder</key><string>" + folder + "</string></dict>";
}

} // namespace

// A file's messages share their account's and folders' texts (one text instead of one a message),
// and the records are the ones made without sharing: also when more folders come by than are kept,
// for bytes that differ only past a common start, and for texts beyond ASCII.
TEST(MessageFromNode, RepeatedAccountAndFolderTextsAreShared) {
    using Entry = std::pair<QByteArray, QByteArray>;
    QList<Entry> plan = {{"a@example.org", "INBOX"},
                         {"a@example.org", "INBOX"},
                         {"a@example.org", "Archive"},
                         {"a@example.org", "INBOX"}};
    for (int i = 0; i < ExtensionMessage::RepeatedTexts::Kept + 2; ++i) {
        plan.append(Entry("a@example.org", "Folder " + QByteArray::number(i)));
    }
    const qsizetype inboxAgain = plan.size();
    plan.append(Entry("a@example.org", "INBOX"));
    plan.append(Entry("b@example.org", "Folder 9x")); // "Folder 9" is among the kept
    plan.append(Entry("b@example.org", "caf\xc3\xa9"));
    plan.append(Entry("b@example.org", "caf\xc3\xa9"));
    QByteArray elements;
    for (const auto& [account, folder] : plan) {
        elements += messageElement(account, folder);
    }
    const QByteArray xml = xmlList(elements);
    expectBothWaysAlike(xml, "repeated texts");

    const PlistDocument document = PropertyList::parse(xml);
    ASSERT_TRUE(document.ok());
    ExtensionMessage::RepeatedTexts repeated;
    QList<ExtensionMessagePtr> records;
    void* cursor = nullptr;
    for (PlistNode node = document.root().nextElement(cursor); !node.isNull();
         node = document.root().nextElement(cursor)) {
        records.append(ExtensionMessage::initWithNode(node, repeated));
    }
    PlistNode::endElements(cursor);
    ASSERT_EQ(records.size(), plan.size());
    const auto account = [&records](qsizetype i) { return records[i]->account().constData(); };
    const auto folder = [&records](qsizetype i) { return records[i]->folderPath().constData(); };
    // one text for one account, its own for another
    EXPECT_EQ(account(0), account(inboxAgain));
    EXPECT_NE(account(inboxAgain), account(inboxAgain + 1));
    EXPECT_EQ(account(inboxAgain + 1), account(inboxAgain + 3));
    // a folder seen shortly before is shared, also across another one
    EXPECT_EQ(folder(0), folder(1));
    EXPECT_EQ(folder(0), folder(3));
    EXPECT_NE(folder(0), folder(2));
    // ten other folders later it is no longer kept (eight are): made again, the same text
    EXPECT_NE(folder(0), folder(inboxAgain));
    EXPECT_EQ(records[0]->folderPath(), records[inboxAgain]->folderPath());
    // "Folder 9x" is not the kept "Folder 9"; the text beyond ASCII is shared and reads as it should
    EXPECT_EQ(records[inboxAgain + 1]->folderPath(), QStringLiteral("Folder 9x"));
    EXPECT_EQ(records[inboxAgain + 2]->folderPath(), QString::fromUtf8("caf\xc3\xa9"));
    EXPECT_EQ(folder(inboxAgain + 2), folder(inboxAgain + 3));
    // without sharing, every record has texts of its own
    cursor = nullptr;
    const ExtensionMessagePtr alone = ExtensionMessage::initWithNode(document.root().nextElement(cursor));
    PlistNode::endElements(cursor);
    EXPECT_NE(alone->account().constData(), account(0));
    EXPECT_EQ(alone->account(), records[0]->account());
}

// The date and kind a record would have, taken from the node without building it (the loader picks
// the newest rows with them): the record's own where its block runs through, an invalid date where
// the date cannot be read; never a log line.
TEST(MessageFromNode, TheSortKeyIsTheRecordsDateAndKind) {
    const QByteArray bytes =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><array>"
        "<dict><key>messageId</key><string>a</string><key>date</key><real>1795000000.5</real>"
        "<key>folderStid</key><integer>11</integer></dict>"
        "<dict><key>messageId</key><string>no-date</string></dict>"
        "<dict><key>date</key><string>1700000063</string><key>folderStid</key><string>12</string></dict>"
        "<dict><key>date</key><array/><key>folderStid</key><integer>1</integer></dict>"
        "<dict><key>date</key><real>1e300</real></dict>"
        "<string>no dictionary</string>"
        "</array></plist>";
    const PlistDocument document = PropertyList::parse(bytes);
    ASSERT_TRUE(document.ok()) << document.error().toStdString();
    void* cursor = nullptr;
    QList<ExtensionMessage::SortKey> keys;
    ExtensionMessageList records;
    {
        LogCapture capture;
        for (PlistNode node = document.root().nextElement(cursor); !node.isNull();
             node = document.root().nextElement(cursor)) {
            keys << ExtensionMessage::sortKeyOfNode(node);
        }
        EXPECT_TRUE(capture.lines().isEmpty()) << capture.lines().join('\n').toStdString();
    }
    PlistNode::endElements(cursor);
    cursor = nullptr;
    for (PlistNode node = document.root().nextElement(cursor); !node.isNull();
         node = document.root().nextElement(cursor)) {
        records << ExtensionMessage::initWithNode(node);
    }
    PlistNode::endElements(cursor);
    ASSERT_EQ(keys.size(), 6);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(keys[i].date.isValid()) << i;
        EXPECT_EQ(keys[i].date, records[i]->date()) << i;
        EXPECT_EQ(keys[i].folderStandardId, records[i]->folderStandardId()) << i;
    }
    EXPECT_EQ(keys[1].date.toSecsSinceEpoch(), 0); // absent reads as 1970, as in the record
    // a date of the wrong shape or out of range: none, as the record has none
    for (int i = 3; i < 6; ++i) {
        EXPECT_FALSE(keys[i].date.isValid()) << i;
        EXPECT_FALSE(records[i]->date().isValid()) << i;
    }
}
