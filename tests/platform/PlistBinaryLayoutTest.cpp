// The layout of binary property lists (PlistBinaryLayout): the trailer and its checks, the offset
// table, and each object's header with its length field, right at the edges of the data.
#include "platform/PlistBinaryLayout.h"

#include "support/BinaryPlistBuilder.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::BinaryPlistBuilder;

namespace {

using Trailer = PlistBinaryLayout::Trailer;

// `bytes` with the trailer's number of `width` bytes at `at` (counted from the trailer's start)
// set to `value`.
QByteArray layoutWithTrailerField(QByteArray bytes, int at, int width, quint64 value) {
    const qsizetype start = bytes.size() - 32 + at;
    for (int i = width - 1; i >= 0; --i) {
        bytes[start + i] = static_cast<char>(value & 0xFF);
        value >>= 8;
    }
    return bytes;
}

Trailer layoutTrailerOf(const QByteArray& bytes) {
    PlistBinaryLayout layout(bytes);
    return layout.readTrailer();
}

// A list of one array holding a text and an integer.
QByteArray layoutSmallList() {
    BinaryPlistBuilder builder(1);
    const quint64 text = builder.text("abc");
    const quint64 number = builder.integer(7);
    return builder.finish(builder.array({text, number}));
}

} // namespace

TEST(PlistBinaryLayout, TrailerOfAWrittenListIsValidAndDescribesIt) {
    const QByteArray bytes = layoutSmallList();
    PlistBinaryLayout layout(bytes);
    ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
    EXPECT_TRUE(layout.unusedTrailerBytesAreZero());
    EXPECT_EQ(layout.objectCount(), 3u);
    EXPECT_EQ(layout.topObject(), 2u);
    EXPECT_EQ(layout.refSize(), 1u);
    // the offset table comes right after the objects: 3 offsets of one byte, then the trailer
    EXPECT_EQ(layout.tableOffset(), static_cast<quint64>(bytes.size()) - 32 - 3);
    EXPECT_EQ(layout.offsetOf(0), 8u);
    EXPECT_EQ(layout.typeOf(0), 0x5u);
    EXPECT_EQ(layout.typeOf(1), 0x1u);
    EXPECT_EQ(layout.typeOf(2), 0xAu);
    EXPECT_EQ(layout.typeOf(3), PlistBinaryLayout::NoType);
}

TEST(PlistBinaryLayout, TrailerChecksTellTheirProblemsApart) {
    const QByteArray bytes = layoutSmallList();
    EXPECT_EQ(layoutTrailerOf(bytes.left(40)), Trailer::Truncated);
    EXPECT_EQ(layoutTrailerOf(QByteArray(41, '\0')), Trailer::Invalid);
    // offset and reference sizes: 1 to 8
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 6, 1, 0)), Trailer::Invalid);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 6, 1, 9)), Trailer::Invalid);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 7, 1, 0)), Trailer::Invalid);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 7, 1, 9)), Trailer::Invalid);
    // object count: not zero, not more than bytes; top object within it
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 8, 8, 0)), Trailer::Invalid);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 8, 8, static_cast<quint64>(bytes.size()) + 1)),
              Trailer::Invalid);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 16, 8, 3)), Trailer::Invalid);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 16, 8, ~quint64(0))), Trailer::Invalid);
    // the offset table: after the header, before the trailer, with room for every offset
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 24, 8, 7)), Trailer::TableOutsideData);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 24, 8, static_cast<quint64>(bytes.size()) - 31)),
              Trailer::TableOutsideData);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 24, 8, static_cast<quint64>(bytes.size()) - 34)),
              Trailer::TableOutsideData);
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 24, 8, ~quint64(0))), Trailer::TableOutsideData);
    // eight-byte offsets for three objects do not fit in a table of three bytes; counted without
    // overflow however large the count
    EXPECT_EQ(layoutTrailerOf(layoutWithTrailerField(bytes, 6, 1, 8)), Trailer::TableOutsideData);
}

TEST(PlistBinaryLayout, UnusedTrailerBytesAreLookedAt) {
    const QByteArray bytes = layoutWithTrailerField(layoutSmallList(), 5, 1, 1);
    PlistBinaryLayout layout(bytes);
    ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
    EXPECT_FALSE(layout.unusedTrailerBytesAreZero());
}

TEST(PlistBinaryLayout, ObjectOffsetsOutsideTheObjectsAreRefused) {
    BinaryPlistBuilder builder(1);
    builder.boolean(true);
    const QByteArray bytes = builder.finish(0);
    const auto table = static_cast<qsizetype>(bytes.size()) - 32 - 1;
    for (const quint64 offset : {quint64(0), quint64(7), static_cast<quint64>(table)}) {
        QByteArray changed = bytes;
        changed[table] = static_cast<char>(offset);
        PlistBinaryLayout layout(changed);
        ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
        PlistBinaryLayout::Object header;
        EXPECT_FALSE(layout.objectAt(0, header)) << offset;
        EXPECT_EQ(layout.typeOf(0), PlistBinaryLayout::NoType) << offset;
    }
    PlistBinaryLayout layout(bytes);
    ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
    PlistBinaryLayout::Object header;
    ASSERT_TRUE(layout.objectAt(0, header));
    EXPECT_EQ(header.marker, 0x09);
    EXPECT_EQ(header.type, 0x0u);
    EXPECT_EQ(header.info, 0x9u);
    EXPECT_EQ(header.position, 9u);
}

TEST(PlistBinaryLayout, LengthsComeFromTheMarkerOrTheIntegerAfterIt) {
    BinaryPlistBuilder builder(1);
    const quint64 nibble = builder.raw(QByteArray::fromHex("43616263"));     // data, length 3
    const quint64 oneByte = builder.raw(QByteArray::fromHex("4f1002aabb"));  // length 2 in one byte
    const quint64 twoBytes = builder.raw(QByteArray::fromHex("4f110001ee")); // length 1 in two bytes
    const quint64 eightBytes = builder.raw(QByteArray::fromHex("4f130000000000000000")); // 0 in eight
    const quint64 notInteger = builder.raw(QByteArray::fromHex("4f2001")); // a real is no length
    const quint64 sixteen = builder.raw(QByteArray::fromHex("4f14"));      // 16-byte integer
    const QByteArray bytes = builder.finish(nibble);
    PlistBinaryLayout layout(bytes);
    ASSERT_EQ(layout.readTrailer(), Trailer::Valid);

    struct Case {
        quint64 object;
        bool ok;
        quint64 length;
        quint64 skipped; // bytes after the marker that the length took
    };
    for (const Case& c :
         {Case{nibble, true, 3, 0}, Case{oneByte, true, 2, 2}, Case{twoBytes, true, 1, 3},
          Case{eightBytes, true, 0, 9}, Case{notInteger, false, 0, 0}, Case{sixteen, false, 0, 0}}) {
        PlistBinaryLayout::Object header;
        ASSERT_TRUE(layout.objectAt(c.object, header));
        const quint64 start = header.position;
        quint64 length = 99;
        EXPECT_EQ(layout.readLength(header, length), c.ok) << c.object;
        if (c.ok) {
            EXPECT_EQ(length, c.length) << c.object;
            EXPECT_EQ(header.position, start + c.skipped) << c.object;
        }
    }
}

TEST(PlistBinaryLayout, LengthAndRoomStopAtTheEndOfTheObjects) {
    quint64 length = 0;
    PlistBinaryLayout::Object header;
    {
        // the last object: a length marker whose two-byte integer is cut off by the offset table
        BinaryPlistBuilder builder(1);
        builder.boolean(false);
        const quint64 cut = builder.raw(QByteArray::fromHex("4f1100"));
        const QByteArray bytes = builder.finish(0);
        PlistBinaryLayout layout(bytes);
        ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
        ASSERT_TRUE(layout.objectAt(cut, header));
        EXPECT_EQ(layout.bytesLeft(header), 2u);
        EXPECT_TRUE(layout.room(header, 2));
        EXPECT_FALSE(layout.room(header, 3));
        EXPECT_FALSE(layout.readLength(header, length));
    }
    {
        // the last object: a marker announcing a length, and nothing after it
        BinaryPlistBuilder builder(1);
        builder.boolean(false);
        const quint64 bare = builder.raw(QByteArray::fromHex("4f"));
        const QByteArray bytes = builder.finish(0);
        PlistBinaryLayout layout(bytes);
        ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
        ASSERT_TRUE(layout.objectAt(bare, header));
        EXPECT_EQ(layout.bytesLeft(header), 0u);
        EXPECT_TRUE(layout.room(header, 0));
        EXPECT_FALSE(layout.room(header, 1));
        EXPECT_FALSE(layout.room(header, ~quint64(0)));
        EXPECT_FALSE(layout.readLength(header, length));
    }
}

TEST(PlistBinaryLayout, NumbersAndReferencesReadMostSignificantFirst) {
    BinaryPlistBuilder builder(2);
    const quint64 a = builder.integer(0x0102);
    const quint64 b = builder.boolean(true);
    const QByteArray bytes = builder.finish(builder.array({b, a}));
    PlistBinaryLayout layout(bytes);
    ASSERT_EQ(layout.readTrailer(), Trailer::Valid);
    PlistBinaryLayout::Object header;
    ASSERT_TRUE(layout.objectAt(a, header));
    EXPECT_EQ(header.type, 0x1u);
    EXPECT_EQ(layout.number(header.position, 1u << header.info), 0x0102u);
    ASSERT_TRUE(layout.objectAt(2, header));
    quint64 count = 0;
    ASSERT_TRUE(layout.readLength(header, count));
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(layout.reference(header.position, 0), b);
    EXPECT_EQ(layout.reference(header.position, 1), a);
}
