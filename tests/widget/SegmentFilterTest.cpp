#include "widget/SegmentFilter.h"

#include <gtest/gtest.h>

using namespace corvina;

namespace {

ExtensionMessagePtr message(const QString& id, const QVariant& folderStandardId) {
    auto m = ExtensionMessage::init();
    m->setMessageId(id);
    m->setAccount("a@example.org");
    m->setFolderStandardId(folderStandardId);
    return m;
}

QStringList filteredIds(const std::optional<ExtensionMessageList>& messages) {
    QStringList out;
    for (const auto& m : messages.value_or(ExtensionMessageList())) {
        out << m->messageId();
    }
    return out;
}

// One message of each kind the segments know, and two they do not.
ExtensionMessageList mixed() {
    return {message("inbox", qint64(1)),     message("todo", qint64(11)), message("memo", qint64(12)),
            message("thirteen", qint64(13)), message("sent", qint64(2)),  message("none", qint64(0)),
            message("absent", QVariant())};
}

} // namespace

TEST(SegmentFilter, NeverChosenShowsEveryFolder) {
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(mixed(), 0)),
              (QStringList{"inbox", "todo", "memo", "thirteen", "sent", "none", "absent"}));
}

TEST(SegmentFilter, EachSegmentSelectsItsFolderKind) {
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(mixed(), 1)), QStringList{"inbox"});
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(mixed(), 2)), QStringList{"todo"});
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(mixed(), 3)), QStringList{"memo"});
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(mixed(), 4)), QStringList{"thirteen"});
}

TEST(SegmentFilter, OtherValuesKeepWhatIsShown) {
    EXPECT_FALSE(SegmentFilter::dataToShow(mixed(), 7));
    EXPECT_FALSE(SegmentFilter::dataToShow(mixed(), 5));
    EXPECT_FALSE(SegmentFilter::dataToShow(mixed(), -1));
}

TEST(SegmentFilter, TheKindIsComparedAsANumber) {
    const ExtensionMessageList list{message("real", 11.0), message("bool", true),
                                    message("text", QStringLiteral("11")), message("other", 11.5)};
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(list, 2)), (QStringList{"real", "text"}));
    EXPECT_EQ(filteredIds(SegmentFilter::dataToShow(list, 1)), QStringList{"bool"});
}

TEST(SegmentFilter, ElevenMatchingGiveTheFirstTen) {
    ExtensionMessageList list;
    for (int i = 0; i < 11; ++i) {
        list << message(QString::number(i), qint64(12));
    }
    list.insert(3, message("elsewhere", qint64(1)));
    const auto shown = SegmentFilter::dataToShow(list, 3);
    ASSERT_EQ(shown->size(), 10);
    EXPECT_EQ(shown->first()->messageId(), QStringLiteral("0"));
    EXPECT_EQ(shown->last()->messageId(), QStringLiteral("9"));
    EXPECT_EQ(SegmentFilter::dataToShow(list, 0)->size(), 10);
}

TEST(SegmentFilter, TenMatchingAreAllShown) {
    ExtensionMessageList list;
    for (int i = 0; i < 10; ++i) {
        list << message(QString::number(i), qint64(11));
    }
    EXPECT_EQ(SegmentFilter::dataToShow(list, 2)->size(), 10);
    EXPECT_TRUE(SegmentFilter::dataToShow({}, 2)->isEmpty());
}
