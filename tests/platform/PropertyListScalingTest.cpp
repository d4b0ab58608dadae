// Binary lists as large as the reader takes, read whole. Their arrays hold over a hundred thousand
// elements: reading them by index, which walks every element before the one fetched, took about
// 20 s per read on a 2-core machine. This program runs under its own CTest TIMEOUT, which is what
// fails when the reader turns quadratic again; the tests check only what is read. Each list is read
// a few times over, as the widget reads its files again on every update.
#include "platform/PropertyList.h"
#include "support/BinaryPlistBuilder.h"

#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::BinaryPlistBuilder;

namespace {

constexpr int Reads = 4;

} // namespace

TEST(PropertyListScaling, AnArrayOfTheMostElementsIsReadInOrder) {
    BinaryPlistBuilder builder;
    std::vector<quint64> elements;
    for (qint64 i = 0; i < PropertyList::MaximumNodes - 1; ++i) {
        elements.push_back(builder.integer(i));
    }
    const QByteArray bytes = builder.finish(builder.array(elements));
    for (int round = 0; round < Reads; ++round) {
        const auto read = PropertyList::read(bytes);
        ASSERT_TRUE(read.ok()) << read.error.toStdString();
        const QVariantList list = read.value.toList();
        ASSERT_EQ(list.size(), PropertyList::MaximumNodes - 1);
        for (qsizetype i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].toLongLong(), i);
        }
    }
}

TEST(PropertyListScaling, AnArrayOfReferencesToOneDictionaryIsCopiedOut) {
    BinaryPlistBuilder builder;
    const quint64 empty = builder.dictionary({});
    // the array, and one dictionary for each reference once copied out
    const qint64 references = PropertyList::MaximumNodes - 1;
    const QByteArray bytes = builder.finish(builder.repeated(empty, references));
    const QVariant same = QVariantMap();
    for (int round = 0; round < Reads; ++round) {
        const auto read = PropertyList::read(bytes);
        ASSERT_TRUE(read.ok()) << read.error.toStdString();
        const QVariantList list = read.value.toList();
        ASSERT_EQ(list.size(), references);
        EXPECT_EQ(list.first(), same);
        EXPECT_EQ(list.last(), same);
    }
}
