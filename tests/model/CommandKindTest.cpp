#include "model/CommandKind.h"

#include "model/CommandURL.h"

#include <QSet>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

// The names the mail application knows its commands by (docs/host-commands.md, "Command names"):
// spelled out here to prove that the one home holds them.
const std::pair<CommandKind, const char*> Documented[] = {
    {CommandKind::Open, "open"},     {CommandKind::Reply, "reply"},     {CommandKind::Archive, "archive"},
    {CommandKind::Delete, "delete"}, {CommandKind::Compose, "compose"}, {CommandKind::Message, "message"},
    {CommandKind::Send, "send"},
};

} // namespace

TEST(CommandKind, EachKindHasItsDocumentedName) {
    for (const auto& [kind, name] : Documented)
        EXPECT_EQ(commandName(kind), QString::fromLatin1(name));
}

TEST(CommandKind, EachNameGivesItsKind) {
    for (const auto& [kind, name] : Documented) {
        const std::optional<CommandKind> found = commandKindNamed(QString::fromLatin1(name));
        ASSERT_TRUE(found) << name;
        EXPECT_EQ(*found, kind) << name;
    }
}

TEST(CommandKind, EveryKindIsListedOnceWithANameOfItsOwn) {
    QSet<QString> names;
    for (const CommandKind kind : AllCommandKinds) {
        const QString name = commandName(kind);
        EXPECT_FALSE(name.isEmpty());
        EXPECT_FALSE(names.contains(name)) << name.toStdString();
        names.insert(name);
        EXPECT_EQ(commandKindNamed(name), kind) << name.toStdString();
    }
    EXPECT_EQ(names.size(), qsizetype(std::size(Documented)));
}

TEST(CommandKind, AnUnknownNameIsRefused) {
    for (const QString& name : {QStringLiteral("archived"), QStringLiteral("Archive"), QStringLiteral("OPEN"),
                                QStringLiteral(" open"), QStringLiteral("open "), QStringLiteral("trash"),
                                QStringLiteral(""), QString()}) {
        EXPECT_FALSE(commandKindNamed(name)) << '"' << name.toStdString() << '"';
    }
}

// The query keys are lower case and part of the interface; a message command lays them out in
// one order, each field as given.
TEST(CommandKind, AMessageCommandsQueryKeysAndLayout) {
    EXPECT_EQ(CommandURL::mailKey, QStringLiteral("mail"));
    EXPECT_EQ(CommandURL::messageIdKey, QStringLiteral("messageid"));
    EXPECT_EQ(CommandURL::folderStandardIdKey, QStringLiteral("folderstandardid"));
    EXPECT_EQ(CommandURL::nullField, QStringLiteral("(null)"));
    EXPECT_EQ(CommandURL::messageCommand(commandName(CommandKind::Archive), QStringLiteral("a%40b"),
                                         QStringLiteral("INBOX/1/2"), QStringLiteral("11")),
              QStringLiteral("corvina://archive?mail=a%40b&messageid=INBOX/1/2&folderstandardid=11"));
    // "%1" in a field is text, not a place for the next field.
    EXPECT_EQ(CommandURL::messageCommand(QStringLiteral("open"), QStringLiteral("%2"), QStringLiteral("%1"),
                                         CommandURL::nullField),
              QStringLiteral("corvina://open?mail=%2&messageid=%1&folderstandardid=(null)"));
}
