// Records built from property-list files written by another program (tools/make-fixtures.py, with
// Python's plistlib), once from the XML form and once from the binary form of the same lists.
#include "model/ExtensionAccount.h"
#include "model/ExtensionAddress.h"
#include "model/ExtensionDate.h"
#include "model/ExtensionGroup.h"
#include "model/ExtensionMessage.h"
#include "platform/PlistValue.h"
#include "platform/PropertyList.h"
#include "support/Fixtures.h"
#include "support/LogCapture.h"

#include <QColor>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;

namespace {

class RecordFixtures : public testing::TestWithParam<const char*> {
protected:
    // The list stored in records/<name>.<form>.plist.
    QVariantList list(const QString& name) const {
        const auto result = PropertyList::read(
            test::fixtureBytes(QStringLiteral("records/%1.%2.plist").arg(name, GetParam())));
        EXPECT_TRUE(result.ok()) << result.error.toStdString();
        EXPECT_TRUE(PlistValue::isArray(result.value));
        return result.value.toList();
    }

    template <typename Build> auto build(const QString& name, Build builder) const {
        std::vector<decltype(builder(QVariant()))> records;
        for (const QVariant& element : list(name)) {
            records.push_back(builder(element));
        }
        return records;
    }
};

QDateTime fixtureEpochPlus(qint64 seconds) {
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

} // namespace

TEST_P(RecordFixtures, Messages) {
    LogCapture capture;
    const auto m = build("messages", &ExtensionMessage::initWithDictonary);
    ASSERT_EQ(m.size(), 9u);
    EXPECT_EQ(capture.lines(),
              QStringList{"ExtensionMessage initWithDictonary floatValue: unsupported value of type array"});

    // 0: every key
    EXPECT_EQ(m[0]->subject(), QStringLiteral("Quarterly report"));
    EXPECT_EQ(m[0]->messageId(), QStringLiteral("<m1@example.org>"));
    EXPECT_EQ(m[0]->from(), QStringLiteral("Ada Lovelace"));
    EXPECT_EQ(m[0]->account(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(m[0]->folderPath(), QStringLiteral("INBOX"));
    EXPECT_EQ(m[0]->folderStandardId().toLongLong(), 1);
    EXPECT_EQ(m[0]->unread().toLongLong(), 1);
    EXPECT_EQ(m[0]->date(), fixtureEpochPlus(1700000000));
    EXPECT_EQ(m[0]->dateString(), ExtensionDate::shared().centralDate(fixtureEpochPlus(1700000000)));
    ASSERT_FALSE(m[0]->image().isNull());
    EXPECT_EQ(m[0]->image().size(), QSize(3, 2));
    EXPECT_EQ(QColor(m[0]->image().pixel(2, 1)), QColor(200, 40, 90));
    EXPECT_FALSE(m[0]->to());
    EXPECT_TRUE(m[0]->plainBody().isNull());

    // 1: nothing at all
    EXPECT_EQ(m[1]->subject(), QStringLiteral("No subject"));
    EXPECT_EQ(m[1]->messageId(), QString(""));
    EXPECT_EQ(m[1]->from(), QString(""));
    EXPECT_EQ(m[1]->account(), QString(""));
    EXPECT_EQ(m[1]->folderPath(), QString(""));
    EXPECT_EQ(m[1]->folderStandardId().toLongLong(), 0);
    EXPECT_EQ(m[1]->unread().toLongLong(), 0);
    EXPECT_EQ(m[1]->date(), fixtureEpochPlus(0));
    EXPECT_TRUE(m[1]->image().isNull());

    // 2: the date as a numeric text
    EXPECT_EQ(m[2]->date(), fixtureEpochPlus(1700000000));

    // 3: a date that is a list: everything before it set, the date and what follows null
    EXPECT_EQ(m[3]->subject(), QStringLiteral("Broken date"));
    EXPECT_EQ(m[3]->messageId(), QStringLiteral("m3"));
    EXPECT_EQ(m[3]->from(), QStringLiteral("Grace Hopper"));
    EXPECT_EQ(m[3]->account(), QStringLiteral("grace@example.org"));
    EXPECT_EQ(m[3]->folderPath(), QStringLiteral("Todo"));
    EXPECT_EQ(m[3]->folderStandardId().toLongLong(), 2);
    EXPECT_EQ(m[3]->unread().toLongLong(), 0);
    EXPECT_TRUE(m[3]->unread().isValid());
    EXPECT_FALSE(m[3]->date().isValid());
    EXPECT_TRUE(m[3]->dateString().isNull());
    EXPECT_TRUE(m[3]->image().isNull());

    // 4: an avatar without Base64 content, a real-valued date
    EXPECT_TRUE(m[4]->image().isNull());
    EXPECT_EQ(m[4]->date(), fixtureEpochPlus(1700000128));

    // 5: a number where a text belongs, a text where a number belongs, a boolean flag
    EXPECT_EQ(m[5]->subject(), QStringLiteral("42"));
    EXPECT_EQ(m[5]->folderStandardId().toLongLong(), 3);
    EXPECT_TRUE(m[5]->unread().toBool());

    // 6: non-ASCII texts kept exactly
    EXPECT_EQ(m[6]->subject(), QStringLiteral("Grüße aus Köln 🌧"));
    EXPECT_EQ(m[6]->from(), QStringLiteral("Jürgen Groß"));
    EXPECT_EQ(m[6]->date(), fixtureEpochPlus(1700000000));

    // 7: Base64 of bytes that are no image
    EXPECT_TRUE(m[7]->image().isNull());

    // 8: a dictionary and a list where texts belong count as absent
    EXPECT_EQ(m[8]->subject(), QStringLiteral("No subject"));
    EXPECT_EQ(m[8]->from(), QString(""));
    EXPECT_EQ(m[8]->messageId(), QStringLiteral("m8"));
}

TEST_P(RecordFixtures, Accounts) {
    LogCapture capture;
    const auto a = build("accounts", &ExtensionAccount::initWithDictonary);
    ASSERT_EQ(a.size(), 10u);
    EXPECT_EQ(capture.lines(),
              (QStringList{
                  "ExtensionAlias initWithDictonary objectForKey: unsupported value of type string",
                  "ExtensionAccount initWithDictonary enumerate: unsupported value of type string",
                  "ExtensionAlias initWithDictonary objectForKey: unsupported value of type string",
                  "ExtensionAlias initWithDictonary objectForKey: unsupported value of type string",
              }));

    EXPECT_EQ(a[0]->mail(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a[0]->name(), QStringLiteral("Ada"));
    EXPECT_EQ(a[0]->type(), 1);
    EXPECT_TRUE(a[0]->enabled());
    ASSERT_EQ(a[0]->aliases()->size(), 2);
    EXPECT_EQ(a[0]->aliases()->at(0)->mail(), QStringLiteral("countess@example.org"));
    EXPECT_EQ(a[0]->aliases()->at(0)->name(), QStringLiteral("The Countess"));
    EXPECT_EQ(a[0]->aliases()->at(0)->account(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a[0]->aliases()->at(1)->mail(), QStringLiteral("a.l@example.org"));
    EXPECT_EQ(a[0]->aliases()->at(1)->account(), QString(""));

    EXPECT_EQ(a[1]->mail(), QStringLiteral("No Mail"));
    EXPECT_EQ(a[1]->name(), QString(""));
    EXPECT_EQ(a[1]->type(), 0);
    EXPECT_FALSE(a[1]->enabled());
    EXPECT_TRUE(a[1]->aliases()->isEmpty());
    EXPECT_EQ(a[1]->description(), QStringLiteral("ExtensionAccount No Mail"));

    EXPECT_TRUE(a[2]->enabled());  // "YES"
    EXPECT_EQ(a[2]->type(), 3);    // "3"
    EXPECT_TRUE(a[3]->enabled());  // "true"
    EXPECT_EQ(a[3]->type(), 3);    // "3.9"
    EXPECT_FALSE(a[4]->enabled()); // 0
    EXPECT_FALSE(a[5]->enabled()); // "NO"
    EXPECT_FALSE(a[6]->enabled()); // "false"

    // a string among the aliases: three aliases, the second unset
    EXPECT_TRUE(a[7]->enabled());
    ASSERT_EQ(a[7]->aliases()->size(), 3);
    EXPECT_EQ(a[7]->aliases()->at(0)->mail(), QStringLiteral("first@example.org"));
    EXPECT_TRUE(a[7]->aliases()->at(1)->mail().isNull());
    EXPECT_EQ(a[7]->aliases()->at(2)->mail(), QStringLiteral("third@example.org"));

    // aliases that are a text: the account keeps what it read, with no aliases
    EXPECT_EQ(a[8]->mail(), QStringLiteral("text@example.org"));
    EXPECT_EQ(a[8]->name(), QStringLiteral("Text aliases"));
    EXPECT_EQ(a[8]->type(), 7);
    EXPECT_TRUE(a[8]->enabled());
    EXPECT_TRUE(a[8]->aliases()->isEmpty());

    // aliases that are a dictionary: one unset alias per key
    ASSERT_EQ(a[9]->aliases()->size(), 2);
    EXPECT_TRUE(a[9]->aliases()->at(0)->mail().isNull());
}

TEST_P(RecordFixtures, Addresses) {
    LogCapture capture;
    const auto a = build("addresses", &ExtensionAddress::initWithDictonary);
    ASSERT_EQ(a.size(), 7u);
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAddress initWithDictonary integerValue: unsupported value of type array"});

    EXPECT_EQ(a[0]->mail(), QStringLiteral("No Mail"));
    EXPECT_EQ(a[0]->rank(), 0);
    EXPECT_EQ(a[0]->fullName(), QString(""));
    EXPECT_EQ(a[0]->prettyprint(), QStringLiteral("<No Mail>"));

    EXPECT_EQ(a[1]->mail(), QStringLiteral("ada@example.org"));
    EXPECT_EQ(a[1]->firstName(), QStringLiteral("Ada"));
    EXPECT_EQ(a[1]->lastName(), QStringLiteral("Lovelace"));
    EXPECT_EQ(a[1]->company(), QStringLiteral("Analytical Engines"));
    EXPECT_EQ(a[1]->nickname(), QStringLiteral("Countess"));
    EXPECT_EQ(a[1]->rank(), 12);
    EXPECT_EQ(a[1]->prettyprint(), QStringLiteral("Ada Lovelace <ada@example.org>"));

    EXPECT_EQ(a[2]->fullName(), QStringLiteral("Ada"));
    EXPECT_EQ(a[3]->prettyprint(), QStringLiteral("Example Ltd <sales@example.com>"));
    EXPECT_EQ(a[4]->prettyprint(), QStringLiteral("No Address"));
    EXPECT_EQ(a[5]->rank(), 7);
    EXPECT_EQ(a[6]->firstName(), QStringLiteral("Bad"));
    EXPECT_EQ(a[6]->nickname(), QString(""));
    EXPECT_EQ(a[6]->rank(), 0);
}

TEST_P(RecordFixtures, Groups) {
    LogCapture capture;
    const auto g = build("groups", &ExtensionGroup::initWithDictonary);
    ASSERT_EQ(g.size(), 5u);
    EXPECT_EQ(capture.lines(),
              (QStringList{
                  "ExtensionAddress initWithDictonary objectForKey: unsupported value of type string",
                  "ExtensionGroup initWithDictonary enumerate: unsupported value of type string",
              }));

    EXPECT_EQ(g[0]->idx(), QString(""));
    EXPECT_EQ(g[0]->name(), QStringLiteral("No Name"));
    EXPECT_TRUE(g[0]->addresses()->isEmpty());
    EXPECT_EQ(g[1]->prettyprint(), QStringLiteral("Alone"));
    EXPECT_EQ(g[2]->prettyprint(), QStringLiteral("Friends (2)"));
    EXPECT_EQ(g[2]->addresses()->at(1)->mail(), QStringLiteral("b@example.org"));
    EXPECT_EQ(g[3]->prettyprint(), QStringLiteral("Odd members (2)"));
    EXPECT_EQ(g[4]->idx(), QStringLiteral("g4"));
    EXPECT_TRUE(g[4]->addresses()->isEmpty());
}

INSTANTIATE_TEST_SUITE_P(BothForms, RecordFixtures, testing::Values("xml", "bin"),
                         [](const testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param);
                         });
