#include "platform/PropertyList.h"

#include "support/Fixtures.h"

#include <QDateTime>
#include <QFile>
#include <QSize>
#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>

using namespace corvina;
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
        {"expansion", "binary property list expands past 4194304 objects"},
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
