// The shared folder's keys and list numbers, spelled out here once more on purpose: they are the
// file format other writers rely on, so a change to the one home in the code must fail here.
#include "model/SnapshotFormat.h"

#include <gtest/gtest.h>

using namespace corvina;

namespace {

using Kind = SnapshotFormat::ListKind;

} // namespace

TEST(SnapshotFormat, TheEnvelopesKeys) {
    using Key = SnapshotFormat::EnvelopeKey;
    EXPECT_EQ(SnapshotFormat::EnvelopeKeyCount, 3);
    EXPECT_EQ(SnapshotFormat::key(Key::Folder), QStringLiteral("folder"));
    EXPECT_EQ(SnapshotFormat::key(Key::Account), QStringLiteral("account"));
    EXPECT_EQ(SnapshotFormat::key(Key::Data), QStringLiteral("data"));
}

TEST(SnapshotFormat, TheMessageKeysInTheOrderTheyAreWritten) {
    using Key = SnapshotFormat::MessageKey;
    const QStringList expected{"subject",    "messageId", "from", "account", "folder",
                               "folderStid", "isUnread",  "date", "avatar"};
    ASSERT_EQ(SnapshotFormat::MessageKeyCount, expected.size());
    QStringList texts;
    for (int i = 0; i < SnapshotFormat::MessageKeyCount; ++i) {
        texts << QString::fromLatin1(SnapshotFormat::messageKeys[i]);
        // the text by enum is the text at the enum's place
        EXPECT_EQ(SnapshotFormat::key(static_cast<Key>(i)), texts.last());
    }
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(SnapshotFormat::key(Key::FolderStid), QStringLiteral("folderStid"));
    EXPECT_EQ(SnapshotFormat::key(Key::IsUnread), QStringLiteral("isUnread"));
    EXPECT_EQ(SnapshotFormat::key(Key::MessageId), QStringLiteral("messageId"));
}

TEST(SnapshotFormat, TheAccountKeys) {
    using Key = SnapshotFormat::AccountKey;
    EXPECT_EQ(SnapshotFormat::AccountKeyCount, 5);
    EXPECT_EQ(SnapshotFormat::key(Key::Mail), QStringLiteral("mail"));
    EXPECT_EQ(SnapshotFormat::key(Key::Name), QStringLiteral("name"));
    EXPECT_EQ(SnapshotFormat::key(Key::Type), QStringLiteral("type"));
    EXPECT_EQ(SnapshotFormat::key(Key::Enabled), QStringLiteral("enabled"));
    EXPECT_EQ(SnapshotFormat::key(Key::Aliases), QStringLiteral("aliases"));
}

TEST(SnapshotFormat, TheListKindsNumbers) {
    EXPECT_EQ(SnapshotFormat::number(Kind::Inbox), 1);
    EXPECT_EQ(SnapshotFormat::number(Kind::ToDo), 11);
    EXPECT_EQ(SnapshotFormat::number(Kind::Memo), 12);
    EXPECT_EQ(SnapshotFormat::number(Kind::Fourth), 13);
}

TEST(SnapshotFormat, AKindIsANumberEqualToItsOwn) {
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant::fromValue<qint64>(1), Kind::Inbox));
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant(1.0), Kind::Inbox));
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant(11), Kind::ToDo));
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant(12.0), Kind::Memo));
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant::fromValue<qint64>(13), Kind::Fourth));
    // a text that is wholly a number is that number, as every boxed number field reads it
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant(QStringLiteral("11")), Kind::ToDo));
    // a boolean is a number too (true is 1): what the list filter always did
    EXPECT_TRUE(SnapshotFormat::isOfKind(QVariant(true), Kind::Inbox));
}

TEST(SnapshotFormat, AnythingElseIsOfNoKind) {
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(11), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(1.5), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(2), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(0), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(false), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(QStringLiteral("Inbox")), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(QStringLiteral("1x")), Kind::Inbox));
    EXPECT_FALSE(SnapshotFormat::isOfKind(QVariant(QVariantList{1}), Kind::Inbox));
}
