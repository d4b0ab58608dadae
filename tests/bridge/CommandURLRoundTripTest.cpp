// The two ends of a command URL, with nothing between them: what the widget's own builder writes
// (ExtensionUtilities::CommandURLForMessage, ExtensionMessage::queryUrl) the bridge's parser
// (HostCommand::parse) reads back as the same kind and the same fields.
#include "bridge/commands/HostCommand.h"
#include "model/CommandKind.h"
#include "model/ExtensionAddress.h"
#include "model/ExtensionMessage.h"
#include "shared/ExtensionUtilities.h"

#include <gtest/gtest.h>

using namespace corvina;

namespace {

ExtensionMessagePtr message(const QString& id, const QString& account, const QVariant& folderStandardId) {
    ExtensionMessagePtr m = ExtensionMessage::init();
    m->setMessageId(id);
    m->setAccount(account);
    m->setFolderStandardId(folderStandardId);
    return m;
}

// The widget's URL for `kind` about `m`, as the bridge reads it.
std::optional<HostCommand> sentAndRead(const ExtensionMessagePtr& m, CommandKind kind, QString* error) {
    const std::optional<Url> url = ExtensionUtilities::CommandURLForMessage(m, commandName(kind));
    EXPECT_TRUE(url) << commandName(kind).toStdString();
    if (!url)
        return std::nullopt;
    return HostCommand::parse(url->absoluteString(), error);
}

} // namespace

TEST(CommandURLRoundTrip, EachMessageCommandComesBackWithItsKindAndFields) {
    const ExtensionMessagePtr m = message(QStringLiteral("INBOX/1700000000/42"),
                                          QStringLiteral("Ann Lee+work@ex\u00e4mple.org"), qint64(11));
    for (const CommandKind kind :
         {CommandKind::Open, CommandKind::Reply, CommandKind::Archive, CommandKind::Delete}) {
        QString error;
        const std::optional<HostCommand> command = sentAndRead(m, kind, &error);
        ASSERT_TRUE(command) << commandName(kind).toStdString() << ": " << error.toStdString();
        EXPECT_EQ(command->kind(), kind);
        EXPECT_EQ(command->account(), m->account());
        EXPECT_EQ(command->messageId(), m->messageId());
        EXPECT_EQ(command->folderStandardId(), QStringLiteral("11"));
    }
}

TEST(CommandURLRoundTrip, AnIdHoldingTheQueryKeysAndAFolderLeftOutComeBackAsTheyWere) {
    // The id goes in raw, so it may hold the keys themselves; the reader takes it up to the last
    // folder key, which is the widget's own.
    const QString id = QStringLiteral("a=1&messageid=2&folderstandardid=3&mail=b");
    const ExtensionMessagePtr m = message(id, QStringLiteral("a&b@example.org"), QVariant());
    QString error;
    const std::optional<HostCommand> command = sentAndRead(m, CommandKind::Archive, &error);
    ASSERT_TRUE(command) << error.toStdString();
    EXPECT_EQ(command->kind(), CommandKind::Archive);
    EXPECT_EQ(command->account(), QStringLiteral("a&b@example.org"));
    EXPECT_EQ(command->messageId(), id);
    // Sent as "(null)", read as no folder kind.
    EXPECT_TRUE(command->folderStandardId().isEmpty());

    const std::optional<HostCommand> fraction =
        sentAndRead(message(QStringLiteral("x"), QStringLiteral("a@b.org"), 2.5), CommandKind::Open, &error);
    ASSERT_TRUE(fraction) << error.toStdString();
    EXPECT_EQ(fraction->folderStandardId(), QStringLiteral("2.5"));
}

TEST(CommandURLRoundTrip, TheCommandsTheBridgeDoesNotCarryOutAreRefusedByName) {
    const ExtensionMessagePtr m = message(QStringLiteral("1"), QStringLiteral("a@b.org"), qint64(1));
    for (const CommandKind kind : {CommandKind::Message, CommandKind::Send}) {
        QString error;
        EXPECT_FALSE(sentAndRead(m, kind, &error));
        EXPECT_EQ(error, commandName(kind) + QStringLiteral(" is not carried out by the bridge"));
    }
}

TEST(CommandURLRoundTrip, AComposeUrlComesBackAsTheDraft) {
    ExtensionMessagePtr draft = ExtensionMessage::init();
    draft->setSubject(QStringLiteral("Shared notes"));
    draft->setPlainBody(QStringLiteral("See below."));
    draft->setAccount(QStringLiteral("ada@example.org"));
    auto to = makeMutableList<ExtensionAddressPtr>();
    to->append(ExtensionAddress::initWithDictonary(
        QVariantMap{{QStringLiteral("mail"), QStringLiteral("bob@example.org")}}));
    draft->setTo(to);
    const std::optional<Url> url = draft->queryUrl(commandName(CommandKind::Compose));
    ASSERT_TRUE(url);
    QString error;
    const std::optional<HostCommand> command = HostCommand::parse(url->absoluteString(), &error);
    ASSERT_TRUE(command) << error.toStdString();
    EXPECT_EQ(command->kind(), CommandKind::Compose);
    EXPECT_EQ(command->draft().to, QStringList{QStringLiteral("bob@example.org")});
    EXPECT_EQ(command->draft().subject, QStringLiteral("Shared notes"));
    EXPECT_EQ(command->draft().body, QStringLiteral("See below."));
    EXPECT_EQ(command->account(), QStringLiteral("ada@example.org"));
}
