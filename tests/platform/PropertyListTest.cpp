#include "platform/PropertyList.h"

#include "support/BinaryPlistBuilder.h"
#include "support/Fixtures.h"

#include <QDateTime>
#include <QFile>
#include <QSize>
#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>

using namespace corvina;
using corvina::test::BinaryPlistBuilder;
using corvina::test::fixtureBytes;

namespace {

PropertyList::Result fixture(const QString& name) {
    return PropertyList::read(fixtureBytes("plist/" + name));
}

QVariantMap everyType() {
    return {
        {"text", "plain"},
        {"unicode", QStringLiteral("Grüße 🌧 日本")},
        {"empty", QString("")},
        {"integer", qint64(42)},
        {"negative", qint64(-7)},
        {"large", qint64(1) << 62},
        {"smallest", std::numeric_limits<qint64>::min()},
        {"real", 2.5},
        {"negativeReal", -0.125},
        {"yes", true},
        {"no", false},
        {"date", QDateTime(QDate(2023, 11, 14), QTime(22, 13, 20), QTimeZone::utc())},
        {"data", QByteArray("\x00\x01"
                            "binary\xff",
                            9)},
        {"list", QVariantList{qint64(1), "two", QVariantList{3.0}, QVariantMap()}},
        {"nested", QVariantMap{{"inner", QVariantMap{{"deeper", QVariantList()}}}}},
    };
}

void expectSameTypesAndValues(const QVariant& got, const QVariant& want, const QString& where = "root") {
    ASSERT_EQ(got.typeId(), want.typeId()) << where.toStdString();
    if (want.typeId() == QMetaType::QVariantMap) {
        const QVariantMap g = got.toMap();
        const QVariantMap w = want.toMap();
        ASSERT_EQ(g.keys(), w.keys()) << where.toStdString();
        for (const QString& key : w.keys()) {
            expectSameTypesAndValues(g.value(key), w.value(key), where + "." + key);
        }
    } else if (want.typeId() == QMetaType::QVariantList) {
        const QVariantList g = got.toList();
        const QVariantList w = want.toList();
        ASSERT_EQ(g.size(), w.size()) << where.toStdString();
        for (qsizetype i = 0; i < w.size(); ++i) {
            expectSameTypesAndValues(g[i], w[i], where + "[" + QString::number(i) + "]");
        }
    } else {
        EXPECT_EQ(got, want) << where.toStdString();
    }
}

} // namespace

TEST(PropertyList, ReadsEveryValueTypeFromXml) {
    const auto read = fixture("every-type.xml.plist");
    ASSERT_TRUE(read.ok()) << read.error.toStdString();
    EXPECT_TRUE(read.error.isEmpty());
    expectSameTypesAndValues(read.value, everyType());
}

TEST(PropertyList, ReadsEveryValueTypeFromBinary) {
    const auto read = fixture("every-type.bin.plist");
    ASSERT_TRUE(read.ok()) << read.error.toStdString();
    expectSameTypesAndValues(read.value, everyType());
}

TEST(PropertyList, SharedObjectsInBinaryAreCopiedOut) {
    const auto read = fixture("shared.bin.plist");
    ASSERT_TRUE(read.ok()) << read.error.toStdString();
    const QVariantMap shared{{"x", "shared text"}};
    EXPECT_EQ(read.value, QVariant(QVariantList{shared, shared, shared}));
}

TEST(PropertyList, RecordFixturesReadTheSameInBothForms) {
    for (const char* name : {"messages", "accounts", "addresses", "groups"}) {
        const auto xml = PropertyList::read(fixtureBytes(QString("records/%1.xml.plist").arg(name)));
        const auto bin = PropertyList::read(fixtureBytes(QString("records/%1.bin.plist").arg(name)));
        ASSERT_TRUE(xml.ok()) << name << ": " << xml.error.toStdString();
        ASSERT_TRUE(bin.ok()) << name << ": " << bin.error.toStdString();
        expectSameTypesAndValues(bin.value, xml.value, name);
    }
}

TEST(PropertyList, WrittenListsReadBackInBothForms) {
    for (auto format : {PropertyList::Format::Xml, PropertyList::Format::Binary}) {
        QVariantMap value = everyType();
        if (format == PropertyList::Format::Binary) {
            value.remove("date");
        }
        QString error = "stale";
        const QByteArray bytes = PropertyList::write(value, format, &error);
        ASSERT_FALSE(bytes.isEmpty());
        EXPECT_TRUE(error.isEmpty());
        EXPECT_EQ(bytes.startsWith("bplist00"), format == PropertyList::Format::Binary);
        const auto read = PropertyList::read(bytes);
        ASSERT_TRUE(read.ok()) << read.error.toStdString();
        expectSameTypesAndValues(read.value, value);
    }
}

TEST(PropertyList, BinaryDatesKeepTheirMilliseconds) {
    const auto read = fixture("dates.bin.plist");
    ASSERT_TRUE(read.ok()) << read.error.toStdString();
    const QVariantList dates = read.value.toList();
    ASSERT_EQ(dates.size(), 2);
    EXPECT_EQ(dates[0].toDateTime(),
              QDateTime(QDate(1969, 12, 30), QTime(13, 42, 23, 211), QTimeZone::utc()));
    EXPECT_EQ(dates[1].toDateTime(),
              QDateTime(QDate(2023, 11, 14), QTime(22, 13, 20, 123), QTimeZone::utc()));
}

TEST(PropertyList, DatesAreWrittenInWholeSecondsFrom2001AndInXmlOnly) {
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(1700000000923, QTimeZone::utc());
    const QDateTime before2001 = QDateTime::fromMSecsSinceEpoch(-123456789, QTimeZone::utc());
    const auto read = PropertyList::read(PropertyList::write(QVariantList{when}, PropertyList::Format::Xml));
    ASSERT_TRUE(read.ok()) << read.error.toStdString();
    EXPECT_EQ(read.value.toList()[0].toDateTime(),
              QDateTime::fromSecsSinceEpoch(1700000000, QTimeZone::utc()));
    QString error;
    EXPECT_TRUE(PropertyList::write(QVariantList{before2001}, PropertyList::Format::Xml, &error).isNull());
    EXPECT_EQ(error, QStringLiteral("only dates from 2001 to 2069 can be written"));
    EXPECT_TRUE(PropertyList::write(QVariantMap{{"d", when}}, PropertyList::Format::Binary, &error).isNull());
    EXPECT_EQ(error, QStringLiteral("dates are written in XML property lists only"));
}

TEST(PropertyList, ValuesWithoutAPropertyListFormAreNotWritten) {
    QString error;
    EXPECT_TRUE(PropertyList::write(QVariantMap{{"a", QVariant::fromValue(QSize(1, 2))}},
                                    PropertyList::Format::Xml, &error)
                    .isNull());
    EXPECT_EQ(error, QStringLiteral("a value of type QSize cannot be written to a property list"));
    EXPECT_TRUE(PropertyList::write(QVariant(), PropertyList::Format::Binary, &error).isNull());
    EXPECT_EQ(error, QStringLiteral("a value of type null cannot be written to a property list"));
}

TEST(PropertyList, NestingUpToTheLimitIsReadAndOneMoreIsRefused) {
    for (const char* form : {"xml", "bin"}) {
        const auto deepest = fixture(QString("depth-128.%1.plist").arg(form));
        EXPECT_TRUE(deepest.ok()) << form << ": " << deepest.error.toStdString();
        const auto tooDeep = fixture(QString("depth-129.%1.plist").arg(form));
        EXPECT_FALSE(tooDeep.ok()) << form;
        EXPECT_EQ(tooDeep.error, QStringLiteral("property list nests deeper than 128 levels")) << form;
    }
}

TEST(PropertyList, HostileBinaryListsAreRefusedWithTheirReason) {
    const QMap<QString, QString> expected{
        {"self-reference", "binary property list has a reference cycle"},
        {"cycle", "binary property list has a reference cycle"},
        {"reference-out-of-range", "binary property list has a reference outside the object table"},
        {"offset-out-of-range", "binary property list has an object offset outside the data"},
        {"absurd-length", "binary property list has an invalid length field"},
        {"text-longer-than-file", "binary property list has an invalid length field"},
        {"absurd-array", "binary property list has an invalid length field"},
        {"absurd-object-count", "binary property list has an invalid trailer"},
        {"top-out-of-range", "binary property list has an invalid trailer"},
        {"bad-offset-size", "binary property list has an invalid trailer"},
        {"unknown-type", "binary property list has an object of unknown type 7"},
        {"unknown-version", "binary property list of an unknown version"},
        {"deep", "property list nests deeper than 128 levels"},
        {"expansion", "binary property list expands past 131072 objects"},
        {"doubling", "binary property list expands past 131072 objects"},
        {"text-expansion", "binary property list expands past 16777216 bytes of text and data"},
        {"truncated", "binary property list is truncated"},
        {"key-not-text", "binary property list has a dictionary key that is not a text"},
        {"lone-surrogate", "binary property list has a text that is not valid UTF-16"},
        {"utf16-nul", "binary property list has a text holding a NUL character"},
    };
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        const auto read = fixture("hostile-" + it.key() + ".bin.plist");
        EXPECT_FALSE(read.ok()) << it.key().toStdString();
        EXPECT_FALSE(read.value.isValid()) << it.key().toStdString();
        EXPECT_EQ(read.error, it.value()) << it.key().toStdString();
    }
}

TEST(PropertyList, ABinaryListOfTheMostObjectsIsReadAndOneMoreIsRefused) {
    // an array of distinct integers: the array and its elements are the list's objects
    for (const qint64 objects : {PropertyList::MaximumNodes, PropertyList::MaximumNodes + 1}) {
        BinaryPlistBuilder builder;
        std::vector<quint64> elements;
        for (qint64 i = 1; i < objects; ++i) {
            elements.push_back(builder.integer(i));
        }
        const auto read = PropertyList::read(builder.finish(builder.array(elements)));
        if (objects == PropertyList::MaximumNodes) {
            ASSERT_TRUE(read.ok()) << read.error.toStdString();
            EXPECT_EQ(read.value.toList().size(), objects - 1);
        } else {
            EXPECT_FALSE(read.ok());
            EXPECT_EQ(read.error, QStringLiteral("binary property list holds more than 131072 objects"));
        }
    }
}

TEST(PropertyList, ObjectsThatNoReferenceReachesCountToo) {
    // the table of objects is bounded before the walk, which keeps a little for every entry
    BinaryPlistBuilder builder;
    const quint64 top = builder.boolean(true);
    for (qint64 i = 0; i < PropertyList::MaximumNodes; ++i) {
        builder.boolean(false);
    }
    EXPECT_EQ(PropertyList::read(builder.finish(top)).error,
              QStringLiteral("binary property list holds more than 131072 objects"));
}

TEST(PropertyList, SharedReferencesCountOncePerPlaceTheyAppear) {
    // one empty dictionary referenced from every element: copied out, one object per reference
    for (const qint64 references : {PropertyList::MaximumNodes - 1, PropertyList::MaximumNodes}) {
        BinaryPlistBuilder builder;
        const quint64 empty = builder.dictionary({});
        const auto read = PropertyList::read(builder.finish(builder.repeated(empty, references)));
        if (references < PropertyList::MaximumNodes) {
            ASSERT_TRUE(read.ok()) << read.error.toStdString();
            EXPECT_EQ(read.value.toList().size(), references);
            EXPECT_EQ(read.value.toList().last(), QVariant(QVariantMap()));
        } else {
            EXPECT_EQ(read.error, QStringLiteral("binary property list expands past 131072 objects"));
        }
    }
}

TEST(PropertyList, BinaryTextAndDataUpToTheBoundAreReadAndOneByteMoreIsRefused) {
    const QByteArray full(PropertyList::MaximumBytes, 'd');
    {
        BinaryPlistBuilder builder;
        const auto read = PropertyList::read(builder.finish(builder.data(full)));
        ASSERT_TRUE(read.ok()) << read.error.toStdString();
        EXPECT_EQ(read.value.toByteArray().size(), PropertyList::MaximumBytes);
    }
    {
        BinaryPlistBuilder builder;
        EXPECT_EQ(PropertyList::read(builder.finish(builder.data(full + "d"))).error,
                  QStringLiteral("binary property list expands past 16777216 bytes of text and data"));
    }
    {
        // half of it twice, and one byte of text: shared or not, every byte counts
        BinaryPlistBuilder builder;
        const quint64 half = builder.data(full.left(PropertyList::MaximumBytes / 2));
        const auto read = PropertyList::read(builder.finish(builder.array({half, half, builder.text("t")})));
        EXPECT_EQ(read.error,
                  QStringLiteral("binary property list expands past 16777216 bytes of text and data"));
    }
}

TEST(PropertyList, AnXmlListOfTheMostObjectsIsReadAndOneMoreIsRefused) {
    const QByteArray head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<array>\n";
    const QByteArray tail = "</array>\n</plist>\n";
    // the array and its elements
    const auto most =
        PropertyList::read(head + QByteArray("<true/>").repeated(PropertyList::MaximumNodes - 1) + tail);
    ASSERT_TRUE(most.ok()) << most.error.toStdString();
    EXPECT_EQ(most.value.toList().size(), PropertyList::MaximumNodes - 1);
    const auto tooMany =
        PropertyList::read(head + QByteArray("<true/>").repeated(PropertyList::MaximumNodes) + tail);
    EXPECT_FALSE(tooMany.ok());
    EXPECT_EQ(tooMany.error, QStringLiteral("XML property list holds more than 131072 objects"));
    // keys are objects too
    const auto keys = PropertyList::read(
        "<plist><dict>" + QByteArray("<key>k</key><dict/>").repeated(PropertyList::MaximumNodes / 2) +
        "</dict></plist>");
    EXPECT_EQ(keys.error, QStringLiteral("XML property list holds more than 131072 objects"));
}

TEST(PropertyList, XmlTextAndDataUpToTheBoundAreReadAndOneByteMoreIsRefused) {
    const QByteArray full(PropertyList::MaximumBytes, 't');
    const auto most = PropertyList::read("<plist><string>" + full + "</string></plist>");
    ASSERT_TRUE(most.ok()) << most.error.toStdString();
    EXPECT_EQ(most.value.toString().size(), PropertyList::MaximumBytes);
    const QString refused =
        QStringLiteral("XML property list holds more than 16777216 bytes of text and data");
    EXPECT_EQ(PropertyList::read("<plist><string>" + full + "t</string></plist>").error, refused);
    // every text counts, in keys, data and CDATA sections as in strings
    const QByteArray half(PropertyList::MaximumBytes / 2, 'A');
    EXPECT_TRUE(
        PropertyList::read("<plist><dict><key>" + half + "</key><data>" + half + "</data></dict></plist>")
            .ok());
    EXPECT_EQ(
        PropertyList::read("<plist><dict><key>" + half + "</key><data>" + half + "AAAA</data></dict></plist>")
            .error,
        refused);
    EXPECT_EQ(PropertyList::read("<plist><string><![CDATA[" + full + "]]></string></plist>").error, refused);
    // indentation between elements is not text
    const QByteArray indented = "<plist>\n<array>\n" +
                                QByteArray("\t<string>" + half + "</string>\n").repeated(2) +
                                QByteArray(" ").repeated(PropertyList::MaximumBytes) + "</array>\n</plist>\n";
    EXPECT_TRUE(PropertyList::read(indented).ok());
}

TEST(PropertyList, ManyReferencesToOneDictionaryAndARepeatedXmlElementAreRead) {
    const auto shared = fixture("shared-dict-30000.bin.plist");
    ASSERT_TRUE(shared.ok()) << shared.error.toStdString();
    EXPECT_EQ(shared.value.toList().size(), 30000);
    const auto repeated = fixture("repeated-dict-9000.xml.plist");
    ASSERT_TRUE(repeated.ok()) << repeated.error.toStdString();
    EXPECT_EQ(repeated.value.toList().size(), 9000);
}

TEST(PropertyList, InputsTheFuzzerFoundAreRefused) {
    // each once made libplist abort on a dictionary key it could not take
    for (const char* name : {"found-key-not-text", "found-key-bad-utf16", "found-key-wrong-kind"}) {
        const auto read = fixture(QString("%1.bin.plist").arg(name));
        EXPECT_FALSE(read.ok()) << name;
        EXPECT_TRUE(read.error.startsWith("binary property list has "))
            << name << ": " << read.error.toStdString();
    }
}

TEST(PropertyList, HostileXmlListsAreRefusedWithTheirReason) {
    EXPECT_EQ(fixture("hostile-deep.xml.plist").error,
              QStringLiteral("property list nests deeper than 128 levels"));
    EXPECT_EQ(fixture("hostile-entities.xml.plist").error,
              QStringLiteral("XML property list declares entities"));
    EXPECT_EQ(fixture("hostile-unclosed.xml.plist").error, QStringLiteral("not a property list"));
    EXPECT_EQ(fixture("hostile-prose.xml.plist").error, QStringLiteral("not a property list"));
    EXPECT_FALSE(fixture("hostile-prose.xml.plist").ok());
}

TEST(PropertyList, NothingIsNotAPropertyList) {
    EXPECT_EQ(PropertyList::read(QByteArray()).error, QStringLiteral("not a property list"));
    EXPECT_EQ(PropertyList::read(QByteArray("bplist00")).error,
              QStringLiteral("binary property list is truncated"));
}

TEST(PropertyList, InputOverTheCapIsRefusedUnparsed) {
    const QByteArray huge(PropertyList::MaximumSize + 1, ' ');
    const auto read = PropertyList::read(huge);
    EXPECT_FALSE(read.ok());
    EXPECT_EQ(read.error, QStringLiteral("property list is larger than 67108864 bytes"));
    EXPECT_EQ(PropertyList::tooLargeError(), read.error);
}

TEST(PropertyList, AFileOverTheCapIsRefusedUnread) {
    QTemporaryDir dir;
    QFile file(dir.path() + "/huge.plist");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(file.resize(PropertyList::MaximumSize + 1)); // sparse
    file.close();
    EXPECT_EQ(PropertyList::readFile(file.fileName()).error,
              QStringLiteral("property list is larger than 67108864 bytes"));
}

TEST(PropertyList, ReadFileExplainsWhatItCouldNotRead) {
    QTemporaryDir dir;
    const auto missing = PropertyList::readFile(dir.path() + "/missing.plist");
    EXPECT_FALSE(missing.ok());
    EXPECT_TRUE(missing.error.startsWith("cannot read " + dir.path() + "/missing.plist: "))
        << missing.error.toStdString();
    const auto folder = PropertyList::readFile(dir.path());
    EXPECT_FALSE(folder.ok());
    EXPECT_TRUE(folder.error.startsWith("cannot read " + dir.path())) << folder.error.toStdString();
    QFile good(dir.path() + "/good.plist");
    ASSERT_TRUE(good.open(QIODevice::WriteOnly));
    good.write(PropertyList::write(QVariantList{"a"}, PropertyList::Format::Binary));
    good.close();
    EXPECT_EQ(PropertyList::readFile(good.fileName()).value, QVariant(QVariantList{"a"}));
}

TEST(PropertyList, EveryTruncationOfAValidListIsHandled) {
    // each prefix of a valid binary list is refused or read, never a crash (checked under the sanitizers)
    const QByteArray bytes = fixtureBytes("plist/every-type.bin.plist");
    for (qsizetype n = 0; n < bytes.size(); ++n) {
        const auto read = PropertyList::read(bytes.left(n));
        EXPECT_FALSE(read.ok()) << n;
    }
    const QByteArray xml = fixtureBytes("plist/every-type.xml.plist");
    for (qsizetype n = 0; n < xml.size(); n += 7) {
        PropertyList::read(xml.left(n));
    }
}

TEST(PropertyList, EverySingleByteChangeOfABinaryListIsHandled) {
    const QByteArray bytes = fixtureBytes("plist/every-type.bin.plist");
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        for (unsigned char value : {0x00, 0x0F, 0x7F, 0xFF}) {
            QByteArray changed = bytes;
            changed[i] = static_cast<char>(value);
            const auto read = PropertyList::read(changed);
            EXPECT_EQ(read.ok(), read.error.isEmpty());
        }
    }
}
