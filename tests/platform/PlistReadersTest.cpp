// The fast property-list readers (PlistXmlReader, PlistBinaryReader): the lists writers make are
// taken by them, everything outside their subset is declined, and PropertyList::read gives for
// every input exactly what the libplist path gives (the value, or the error text).
#include "platform/PlistBinaryReader.h"
#include "platform/PlistDocument.h"
#include "platform/PlistTree.h"
#include "platform/PlistXmlReader.h"
#include "platform/PropertyList.h"
#include "support/BinaryPlistBuilder.h"
#include "support/Fixtures.h"

#include <QDateTime>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimeZone>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

using namespace corvina;
using corvina::test::BinaryPlistBuilder;
using corvina::test::fixtureBytes;
using corvina::test::fixturePath;
using corvina::test::s;

namespace {

// Whether a fast reader takes `bytes`, and then what it reads.
bool taken(const QByteArray& bytes, QVariant* value = nullptr) {
    PlistTree tree;
    const bool ok = bytes.startsWith("bplist00") ? PlistBinaryReader::read(bytes, tree)
                                                 : PlistXmlReader::read(bytes, tree);
    if (ok && value) {
        *value = tree.toVariant(0);
    }
    return ok;
}

// Deep equality with types, doubles bit for bit, null and empty texts told apart.
::testing::AssertionResult same(const QVariant& a, const QVariant& b, const QString& where = "root") {
    if (a.typeId() != b.typeId()) {
        return ::testing::AssertionFailure() << s(where) << ": type " << a.typeId() << " vs " << b.typeId();
    }
    switch (a.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap x = a.toMap();
        const QVariantMap y = b.toMap();
        if (x.keys() != y.keys()) {
            return ::testing::AssertionFailure() << s(where) << ": keys differ";
        }
        for (auto i = x.cbegin(); i != x.cend(); ++i) {
            auto r = same(i.value(), y.value(i.key()), where + "." + i.key());
            if (!r) {
                return r;
            }
        }
        return ::testing::AssertionSuccess();
    }
    case QMetaType::QVariantList: {
        const QVariantList x = a.toList();
        const QVariantList y = b.toList();
        if (x.size() != y.size()) {
            return ::testing::AssertionFailure() << s(where) << ": sizes differ";
        }
        for (qsizetype i = 0; i < x.size(); ++i) {
            auto r = same(x.at(i), y.at(i), where + "[" + QString::number(i) + "]");
            if (!r) {
                return r;
            }
        }
        return ::testing::AssertionSuccess();
    }
    case QMetaType::Double: {
        const double x = a.toDouble();
        const double y = b.toDouble();
        return std::memcmp(&x, &y, sizeof x) == 0
                   ? ::testing::AssertionSuccess()
                   : ::testing::AssertionFailure() << s(where) << ": " << x << " vs " << y;
    }
    case QMetaType::QString:
        if (a.toString().isNull() != b.toString().isNull()) {
            return ::testing::AssertionFailure() << s(where) << ": null vs empty text";
        }
        break;
    case QMetaType::QDateTime:
        if (a.toDateTime().toMSecsSinceEpoch() != b.toDateTime().toMSecsSinceEpoch() ||
            a.toDateTime().timeSpec() != b.toDateTime().timeSpec()) {
            return ::testing::AssertionFailure() << s(where) << ": dates differ";
        }
        return ::testing::AssertionSuccess();
    default:
        break;
    }
    return a == b ? ::testing::AssertionSuccess()
                  : ::testing::AssertionFailure()
                        << s(where) << ": " << s(a.toString()) << " vs " << s(b.toString());
}

// PropertyList::read against the libplist path alone: the same value, or the same error.
::testing::AssertionResult readsAsLibplist(const QByteArray& bytes) {
    const PropertyList::Result read = PropertyList::read(bytes);
    const PlistDocument reference = PropertyList::parseWithLibplist(bytes);
    if (read.ok() != reference.ok()) {
        return ::testing::AssertionFailure()
               << "read " << (read.ok() ? "took" : "refused") << " it, libplist "
               << (reference.ok() ? "took" : "refused") << " it (" << s(read.error) << " / "
               << s(reference.error()) << ")";
    }
    if (!read.ok()) {
        return read.error == reference.error()
                   ? ::testing::AssertionSuccess()
                   : ::testing::AssertionFailure() << s(read.error) << " vs " << s(reference.error());
    }
    return same(read.value, reference.root().toVariant());
}

QByteArray xml(const QByteArray& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n" + value + "\n</plist>\n";
}

} // namespace

TEST(PlistReaders, WriterOutputIsTakenByTheFastReadersAndReadsAsLibplistReadsIt) {
    for (const char* name :
         {"writer-snapshot.xml.plist", "writer-snapshot.bin.plist", "writer-texts.xml.plist",
          "writer-texts.bin.plist", "writer-reals.xml.plist", "writer-reals.bin.plist",
          "writer-integers.xml.plist", "writer-integers.bin.plist", "every-type.bin.plist"}) {
        SCOPED_TRACE(name);
        const QByteArray bytes = fixtureBytes(QStringLiteral("plist/") + name);
        QVariant value;
        ASSERT_TRUE(taken(bytes, &value));
        const PlistDocument reference = PropertyList::parseWithLibplist(bytes);
        ASSERT_TRUE(reference.ok());
        EXPECT_TRUE(same(value, reference.root().toVariant()));
        EXPECT_TRUE(readsAsLibplist(bytes));
    }
}

TEST(PlistReaders, OwnWriterOutputIsTaken) {
    const QVariantMap value{{"text", QStringLiteral("Grüße <&> \"'")},
                            {"integer", qint64(-42)},
                            {"large", std::numeric_limits<qint64>::max()},
                            {"real", 0.1},
                            {"yes", true},
                            {"no", false},
                            {"data", QByteArray("\x00\x01\xff", 3)},
                            {"list", QVariantList{QVariantMap(), QVariantList(), QString("")}}};
    for (const PropertyList::Format format : {PropertyList::Format::Xml, PropertyList::Format::Binary}) {
        const QByteArray bytes = PropertyList::write(value, format);
        QVariant read;
        ASSERT_TRUE(taken(bytes, &read)) << bytes.left(200).toStdString();
        EXPECT_TRUE(same(read, value));
        EXPECT_TRUE(readsAsLibplist(bytes));
    }
    // and a date in XML, the one format they are written in
    const QVariantMap dated{{"date", QDateTime(QDate(2023, 11, 14), QTime(22, 13, 20), QTimeZone::utc())}};
    QVariant read;
    ASSERT_TRUE(taken(PropertyList::write(dated, PropertyList::Format::Xml), &read));
    EXPECT_TRUE(same(read, dated));
}

// Each thing outside the subset is declined, and the read then is libplist's, value or error.
TEST(PlistReaders, WhatIsOutsideTheSubsetIsDeclinedAndReadByLibplist) {
    const QList<std::pair<const char*, QByteArray>> declined = {
        {"numeric character reference", xml("<string>&#65;&#x42;</string>")},
        {"unknown entity", xml("<string>&nbsp;</string>")},
        {"CDATA", xml("<string><![CDATA[x<y]]></string>")},
        {"comment", xml("<dict><!-- c --><key>a</key><integer>1</integer></dict>")},
        {"processing instruction", xml("<array><?pi x?></array>")},
        {"carriage return", xml("<string>a\r\nb</string>")},
        {"control character", xml("<string>a\x01"
                                  "b</string>")},
        {"NUL", xml(QByteArray("<string>a\0b</string>", 20))},
        {"invalid UTF-8", xml("<string>caf\xe9</string>")},
        {"UTF-8 surrogate", xml("<string>\xed\xa0\x80</string>")},
        {"overlong UTF-8", xml("<string>\xc0\xaf</string>")},
        {"plus sign", xml("<integer>+5</integer>")},
        {"hex integer", xml("<integer>0x10</integer>")},
        {"leading zero", xml("<integer>010</integer>")},
        {"minus zero", xml("<integer>-0</integer>")},
        {"integer overflow", xml("<integer>18446744073709551615</integer>")},
        {"space in integer", xml("<integer> 5</integer>")},
        {"nan", xml("<real>nan</real>")},
        {"infinity", xml("<real>-inf</real>")},
        {"real out of range", xml("<real>1e400</real>")},
        {"real without digits", xml("<real>.5</real>")},
        {"date with fraction", xml("<date>2020-01-01T00:00:00.5Z</date>")},
        {"date before 2001", xml("<date>1990-01-01T00:00:00Z</date>")},
        {"date that does not exist", xml("<date>2021-02-30T00:00:00Z</date>")},
        {"empty data", xml("<data></data>")},
        {"data out of the alphabet", xml("<data>YW=j</data>")},
        {"data with bits past the end", xml("<data>YR==</data>")},
        {"key without a value", xml("<dict><key>a</key></dict>")},
        {"value without a key", xml("<dict><string>a</string></dict>")},
        {"key outside a dictionary", xml("<array><key>a</key></array>")},
        {"unknown element", xml("<thing/>")},
        {"other attributes", "<plist version=\"1.0\" foo=\"x\"><string>a</string></plist>"},
        {"other declaration", "<?xml version=\"1.1\"?><plist><string>a</string></plist>"},
        {"internal subset", "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>"},
        {"byte order mark", "\xef\xbb\xbf<plist version=\"1.0\"><string>bom</string></plist>"},
        {"trailing comment", "<plist><string>a</string></plist><!-- x -->"},
        {"two values", "<plist><string>a</string><string>b</string></plist>"},
        {"no value", "<plist></plist>"},
        {"not XML", "hello"},
    };
    for (const auto& [reason, bytes] : declined) {
        SCOPED_TRACE(reason);
        EXPECT_FALSE(taken(bytes));
        EXPECT_TRUE(readsAsLibplist(bytes));
    }
    // a few of them with what libplist makes of them, as the reads gave them before
    EXPECT_EQ(PropertyList::read(xml("<string>&#65;&#x42;</string>")).value, QVariant(QString("AB")));
    EXPECT_EQ(PropertyList::read(xml("<dict><string>a</string></dict>")).error,
              QString("not a property list"));
    EXPECT_EQ(
        PropertyList::read("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>").error,
        QString("XML property list declares entities"));
}

TEST(PlistReaders, BinaryOutsideTheSubsetIsDeclinedAndReadByLibplist) {
    QList<std::pair<const char*, QByteArray>> declined;
    {
        BinaryPlistBuilder b;
        declined.append({"null", b.finish(b.raw(QByteArray(1, '\x00')))});
    }
    {
        BinaryPlistBuilder b;
        declined.append({"uid", b.finish(b.raw(QByteArray("\x80\x05", 2)))});
    }
    {
        BinaryPlistBuilder b;
        declined.append(
            {"16-byte integer", b.finish(b.raw(QByteArray("\x14", 1) + QByteArray(15, '\0') + "\x07"))});
    }
    {
        BinaryPlistBuilder b;
        const quint64 one = b.integer(1);
        declined.append({"set", b.finish(b.raw(QByteArray("\xc1", 1) + QByteArray(3, '\0') + char(one)))});
    }
    {
        BinaryPlistBuilder b;
        const quint64 inner = b.array({});
        declined.append({"container referenced twice", b.finish(b.array({inner, inner}))});
    }
    {
        BinaryPlistBuilder b;
        declined.append({"lone surrogate", b.finish(b.raw(QByteArray("\x61\xd8\x00", 3)))});
    }
    {
        BinaryPlistBuilder b;
        declined.append({"empty UTF-16 text", b.finish(b.raw(QByteArray("\x60", 1)))});
    }
    {
        BinaryPlistBuilder b;
        declined.append({"ASCII text past 0x7F", b.finish(b.text("caf\xe9"))});
    }
    {
        BinaryPlistBuilder b;
        declined.append({"NUL in ASCII text", b.finish(b.text(QByteArray("a\0b", 3)))});
    }
    {
        BinaryPlistBuilder b;
        // 0.5 seconds after 2001
        declined.append({"date with a fraction", b.finish(b.raw(QByteArray("\x33\x3f\xe0\0\0\0\0\0\0", 9)))});
    }
    {
        BinaryPlistBuilder b;
        const quint64 key = b.integer(1);
        declined.append({"key not a text", b.finish(b.dictionary({{key, key}}))});
    }
    for (const auto& [reason, bytes] : declined) {
        SCOPED_TRACE(reason);
        EXPECT_FALSE(taken(bytes));
        EXPECT_TRUE(readsAsLibplist(bytes));
    }
    // what they read to, as before
    EXPECT_EQ(PropertyList::read(declined.at(5).second).error,
              QString("binary property list has a text that is not valid UTF-16"));
    EXPECT_EQ(PropertyList::read(declined.at(10).second).error,
              QString("binary property list has a dictionary key that is not a text"));
    EXPECT_EQ(PropertyList::read(declined.at(4).second).value,
              QVariant(QVariantList{QVariantList(), QVariantList()}));
}

TEST(PlistReaders, SharedTextsAndNumbersAreTakenOnceForEachReference) {
    BinaryPlistBuilder b;
    const quint64 key = b.text("k");
    const quint64 value = b.integer(7);
    const quint64 first = b.dictionary({{key, value}});
    const quint64 second = b.dictionary({{key, value}});
    const QByteArray bytes = b.finish(b.array({first, second, value, key}));
    QVariant read;
    ASSERT_TRUE(taken(bytes, &read));
    const QVariantMap map{{"k", qint64(7)}};
    EXPECT_TRUE(same(read, QVariantList{map, map, qint64(7), QString("k")}));
    EXPECT_TRUE(readsAsLibplist(bytes));
}

// The bounds hold on the fast path: a list at a bound is taken, one past it declined, and the
// read then refuses it with the error it always gave.
TEST(PlistReaders, DepthAtTheBoundIsTakenAndPastItRefusedAsBefore) {
    auto nested = [](int levels) {
        return xml(QByteArray("<array>").repeated(levels - 1) + "<array/>" +
                   QByteArray("</array>").repeated(levels - 1));
    };
    EXPECT_TRUE(taken(nested(PropertyList::MaximumDepth)));
    EXPECT_TRUE(readsAsLibplist(nested(PropertyList::MaximumDepth)));
    EXPECT_FALSE(taken(nested(PropertyList::MaximumDepth + 1)));
    EXPECT_EQ(PropertyList::read(nested(PropertyList::MaximumDepth + 1)).error,
              QString("property list nests deeper than 128 levels"));
    for (const char* name : {"depth-128.bin.plist", "depth-129.bin.plist", "depth-128.xml.plist",
                             "depth-129.xml.plist", "hostile-deep.bin.plist", "hostile-deep.xml.plist"}) {
        SCOPED_TRACE(name);
        const QByteArray bytes = fixtureBytes(QStringLiteral("plist/") + name);
        EXPECT_EQ(taken(bytes), QByteArray(name).startsWith("depth-128"));
        EXPECT_TRUE(readsAsLibplist(bytes));
    }
}

TEST(PlistReaders, TooManyObjectsOrBytesAreDeclinedAndRefusedAsBefore) {
    const QByteArray many =
        xml("<array>" + QByteArray("<true/>").repeated(PropertyList::MaximumNodes) + "</array>");
    EXPECT_FALSE(taken(many));
    EXPECT_EQ(PropertyList::read(many).error, QString("XML property list holds more than 131072 objects"));
    const QByteArray justEnough =
        xml("<array>" + QByteArray("<true/>").repeated(PropertyList::MaximumNodes - 1) + "</array>");
    EXPECT_TRUE(taken(justEnough));
    const QByteArray huge =
        xml("<array><string>" + QByteArray(PropertyList::MaximumBytes / 2 + 1, 'x') + "</string><string>" +
            QByteArray(PropertyList::MaximumBytes / 2, 'x') + "</string></array>");
    EXPECT_FALSE(taken(huge));
    EXPECT_EQ(PropertyList::read(huge).error,
              QString("XML property list holds more than 16777216 bytes of text and data"));

    BinaryPlistBuilder b;
    const quint64 text = b.text(QByteArray(PropertyList::MaximumBytes / 4, 'y'));
    const QByteArray expanding = b.finish(b.repeated(text, 5));
    EXPECT_FALSE(taken(expanding));
    EXPECT_EQ(PropertyList::read(expanding).error,
              QString("binary property list expands past 16777216 bytes of text and data"));
}

// Every committed fixture, hostile ones included, and every prefix of the writers' lists (a file
// cut anywhere): read as the libplist path reads them.
TEST(PlistReaders, EveryFixtureAndEveryCutReadAsLibplistReadsThem) {
    const QDir folder(fixturePath("plist"));
    const QStringList names = folder.entryList(QDir::Files);
    ASSERT_GT(names.size(), 30);
    for (const QString& name : names) {
        SCOPED_TRACE(s(name));
        EXPECT_TRUE(readsAsLibplist(fixtureBytes("plist/" + name)));
    }
    for (const char* name :
         {"writer-snapshot.xml.plist", "writer-snapshot.bin.plist", "writer-texts.bin.plist"}) {
        const QByteArray bytes = fixtureBytes(QStringLiteral("plist/") + name);
        for (qsizetype length = 0; length < bytes.size(); ++length) {
            SCOPED_TRACE(std::string(name) + " cut at " + std::to_string(length));
            const QByteArray cut = bytes.left(length);
            // a cut XML list never ends with its </plist>: declined, whatever libplist makes of it
            if (!cut.startsWith("bplist")) {
                EXPECT_FALSE(taken(cut) && length < bytes.size() - 9);
            }
            ASSERT_TRUE(readsAsLibplist(cut));
        }
    }
}

TEST(PlistReaders, DuplicateKeysKeepTheLastValueAsBefore) {
    const QByteArray bytes = xml("<dict><key>a</key><integer>1</integer><key>b</key><true/>"
                                 "<key>a</key><string>2</string></dict>");
    ASSERT_TRUE(taken(bytes));
    EXPECT_TRUE(readsAsLibplist(bytes));
    const PlistDocument document = PropertyList::parse(bytes);
    const char* const keys[] = {"a", "b", "c"};
    PlistNode values[3];
    document.root().valuesForKeys(keys, 3, values);
    EXPECT_EQ(values[0].toVariant(), QVariant(QString("2")));
    EXPECT_EQ(values[1].toVariant(), QVariant(true));
    EXPECT_TRUE(values[2].isNull());
    EXPECT_EQ(values[0].textBytes(), QByteArrayView("2"));
}

TEST(PlistReaders, ArraysWalkTheSameOnEitherPath) {
    const QByteArray bytes = xml("<array><integer>1</integer><string>x</string><array/></array>");
    for (const bool fast : {true, false}) {
        SCOPED_TRACE(fast ? "fast" : "libplist");
        const PlistDocument document =
            fast ? PropertyList::parse(bytes) : PropertyList::parseWithLibplist(bytes);
        ASSERT_TRUE(document.ok());
        const PlistNode root = document.root();
        EXPECT_TRUE(root.isArray());
        EXPECT_EQ(root.arraySize(), 3);
        void* cursor = nullptr;
        QVariantList walked;
        for (PlistNode element = root.nextElement(cursor); !element.isNull();
             element = root.nextElement(cursor)) {
            walked.append(element.toVariant());
        }
        // past the end it stays at the end
        EXPECT_TRUE(root.nextElement(cursor).isNull());
        PlistNode::endElements(cursor);
        EXPECT_EQ(cursor, nullptr);
        EXPECT_EQ(walked, (QVariantList{qint64(1), QString("x"), QVariantList()}));
    }
}

// Qt sets the process's locale from the environment; under one whose decimal mark is a comma the
// C library reads "1.5" as 1. A real reads as 1.5 all the same, whichever reader takes the list.
TEST(PlistReaders, RealsReadTheSameUnderALocaleWithADecimalComma) {
    QTemporaryDir locales;
    ASSERT_TRUE(locales.isValid());
    QProcess make;
    make.start(QStringLiteral("localedef"),
               {QStringLiteral("-i"), QStringLiteral("de_DE"), QStringLiteral("-f"), QStringLiteral("UTF-8"),
                locales.filePath(QStringLiteral("de_DE.UTF-8"))});
    ASSERT_TRUE(make.waitForFinished(60000));
    ASSERT_EQ(make.exitCode(), 0) << "localedef (Debian package locales): "
                                  << make.readAllStandardError().toStdString();
    const std::string before = std::setlocale(LC_ALL, nullptr);
    qputenv("LOCPATH", locales.path().toLocal8Bit());
    struct Restore {
        std::string locale;
        ~Restore() {
            std::setlocale(LC_ALL, locale.c_str());
            qunsetenv("LOCPATH");
        }
    } restore{before};
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    ASSERT_EQ(std::strtod("1.5", nullptr), 1.0) << "the locale's decimal mark is not a comma";

    // taken by the fast reader
    const QByteArray plain = xml("<real>1.5</real>");
    EXPECT_EQ(PropertyList::read(plain).value, QVariant(1.5));
    // declined (a comment), read by libplist
    const QByteArray declined = xml("<array><!-- c --><real>1.5</real><real>-2.25e1</real></array>");
    PlistTree tree;
    EXPECT_FALSE(PlistXmlReader::read(declined, tree));
    const QVariant read = PropertyList::read(declined).value;
    EXPECT_EQ(read, QVariant(QVariantList{1.5, -22.5})) << read.toStringList().join(u' ').toStdString();
    EXPECT_EQ(PropertyList::parseWithLibplist(plain).root().toVariant(), QVariant(1.5));
}
