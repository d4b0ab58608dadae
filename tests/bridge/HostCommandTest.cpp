#include "bridge/commands/HostCommand.h"

#include "model/ExtensionAddress.h"
#include "model/ExtensionMessage.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::s;

namespace {

HostCommand parsed(const QString& url) {
    QString error = QStringLiteral("stale");
    const std::optional<HostCommand> command = HostCommand::parse(url, &error);
    EXPECT_TRUE(command) << s(url) << ": " << s(error);
    EXPECT_TRUE(error.isEmpty()) << s(error);
    if (!command)
        return *HostCommand::parse(QStringLiteral("corvina://open?mail=x&messageid=x&folderstandardid=1"),
                                   nullptr);
    return *command;
}

QString refusal(const QString& url) {
    QString error;
    const std::optional<HostCommand> command = HostCommand::parse(url, &error);
    EXPECT_FALSE(command) << s(url);
    EXPECT_FALSE(error.isEmpty()) << s(url);
    EXPECT_FALSE(error.contains(u'\n')) << s(error);
    return error;
}

MutableList<ExtensionAddressPtr> recipients(const QStringList& mails) {
    auto list = makeMutableList<ExtensionAddressPtr>();
    for (const QString& mail : mails)
        list->append(ExtensionAddress::initWithDictonary(QVariantMap{{"mail", mail}}));
    return list;
}

QString writeFile(const QTemporaryDir& dir, const QString& name) {
    const QString path = dir.filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("content\n");
    return path;
}

} // namespace

TEST(HostCommand, TheGuideExamples) {
    const HostCommand archive =
        parsed(QStringLiteral("corvina://archive?mail=Ann%20Lee%2Bwork%40ex%C3%A4mple.org"
                              "&messageid=abc.123@mail.example.org&folderstandardid=4"));
    EXPECT_EQ(archive.kind(), HostCommand::Kind::Archive);
    EXPECT_EQ(s(archive.kindName()), "archive");
    EXPECT_EQ(archive.account(), QStringLiteral("Ann Lee+work@ex\u00e4mple.org"));
    EXPECT_EQ(s(archive.messageId()), "abc.123@mail.example.org");
    EXPECT_EQ(s(archive.folderStandardId()), "4");
    EXPECT_TRUE(archive.changesServer());

    const HostCommand open =
        parsed(QStringLiteral("corvina://open?mail=ann%40example.org&messageid=1042&folderstandardid=1"));
    EXPECT_EQ(open.kind(), HostCommand::Kind::Open);
    EXPECT_EQ(s(open.account()), "ann@example.org");
    EXPECT_EQ(s(open.messageId()), "1042");
    EXPECT_EQ(s(open.folderStandardId()), "1");
    EXPECT_TRUE(open.changesServer()); // it marks the message read
}

TEST(HostCommand, EveryCommandTheBridgeCarriesOut) {
    const QString query = QStringLiteral("?mail=a%40b.org&messageid=INBOX/1700000000/42&folderstandardid=11");
    struct Case {
        const char* name;
        HostCommand::Kind kind;
        bool changes;
    };
    for (const Case& c :
         {Case{"open", HostCommand::Kind::Open, true}, Case{"reply", HostCommand::Kind::Reply, false},
          Case{"archive", HostCommand::Kind::Archive, true},
          Case{"delete", HostCommand::Kind::Delete, true}}) {
        const HostCommand command = parsed(QStringLiteral("corvina://") + QLatin1String(c.name) + query);
        EXPECT_EQ(command.kind(), c.kind) << c.name;
        EXPECT_EQ(s(command.kindName()), c.name);
        EXPECT_EQ(command.changesServer(), c.changes) << c.name;
        EXPECT_EQ(s(command.messageId()), "INBOX/1700000000/42");
        EXPECT_EQ(s(command.folderStandardId()), "11");
        EXPECT_TRUE(command.draft().to.isEmpty());
    }
}

TEST(HostCommand, TheIdIsTakenRawUpToTheLastFolderKey) {
    const HostCommand command = parsed(QStringLiteral(
        "corvina://delete?mail=a%40b.org&messageid=x&y=z&folderstandardid=3&more&folderstandardid=12"));
    EXPECT_EQ(s(command.messageId()), "x&y=z&folderstandardid=3&more");
    EXPECT_EQ(s(command.folderStandardId()), "12");

    // never decoded: "%2F" is three characters of the id; a first "#" belongs to the id too
    const HostCommand encoded = parsed(
        QStringLiteral("corvina://open?mail=a%40b.org&messageid=My%20Box%2Fsub/17/4#2&folderstandardid=1"));
    EXPECT_EQ(s(encoded.messageId()), "My%20Box%2Fsub/17/4#2");
    EXPECT_EQ(s(encoded.folderStandardId()), "1");

    const HostCommand messageidTwice =
        parsed(QStringLiteral("corvina://open?mail=a%40b.org&messageid=a&messageid=b&folderstandardid=1"));
    EXPECT_EQ(s(messageidTwice.messageId()), "a&messageid=b");
}

TEST(HostCommand, FolderKindsAsTheWidgetWritesThem) {
    const QString prefix = QStringLiteral("corvina://archive?mail=a%40b.org&messageid=1&folderstandardid=");
    EXPECT_EQ(s(parsed(prefix + QStringLiteral("2.5")).folderStandardId()), "2.5");
    EXPECT_EQ(s(parsed(prefix + QStringLiteral("0")).folderStandardId()), "0");
    // a folder kind the snapshot left out is no reason to refuse: the id names the message
    EXPECT_EQ(s(parsed(prefix + QStringLiteral("(null)")).folderStandardId()), "");
}

TEST(HostCommand, EachMalformedKindIsRefusedWithItsLine) {
    const QString good = QStringLiteral("?mail=a%40b.org&messageid=1&folderstandardid=1");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://message") + good)),
              "message is not carried out by the bridge");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://send?subject=x"))),
              "send is not carried out by the bridge");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://frobnicate") + good)), "unknown command \"frobnicate\"");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://Open") + good)), "unknown command \"Open\"");
    EXPECT_EQ(s(refusal(QStringLiteral("https://open") + good)),
              "not a corvina: URL: https://open" + s(good));
    EXPECT_EQ(s(refusal(QStringLiteral("corvina:open") + good)),
              "no command where the host stands in corvina:open" + s(good));
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open/x") + good)),
              "more than a command where the host stands in corvina://open/x" + s(good));
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open:8") + good)),
              "more than a command where the host stands in corvina://open:8" + s(good));
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open?mail=a b&messageid=1&folderstandardid=1"))),
              "not a URL: corvina://open?mail=a b&messageid=1&folderstandardid=1");
    EXPECT_EQ(s(refusal(QString())), "not a URL: ");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open"))),
              "open without mail, messageid and folderstandardid");
    const std::string shape = ": the query is not mail=...&messageid=...&folderstandardid=...";
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://reply?messageid=1&mail=a%40b.org&folderstandardid=1"))),
              "reply" + shape);
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://reply?mail=a%40b.org&messageid=1"))), "reply" + shape);
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://reply?mail=a%40b.org&folderstandardid=1&messageid=1"))),
              "reply" + shape);
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://archive?mail=(null)&messageid=1&folderstandardid=1"))),
              "archive: no mail (the account of the message)");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://archive?mail=&messageid=1&folderstandardid=1"))),
              "archive: no mail (the account of the message)");
    EXPECT_EQ(
        s(refusal(QStringLiteral("corvina://delete?mail=a%40b.org&messageid=(null)&folderstandardid=1"))),
        "delete: no messageid");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://delete?mail=a%40b.org&messageid=&folderstandardid=1"))),
              "delete: no messageid");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open?mail=%FF%FE&messageid=1&folderstandardid=1"))),
              "open: mail is not percent-encoded UTF-8: %FF%FE");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open?mail=a%40b&messageid=1&folderstandardid=inbox"))),
              "open: folderstandardid is not a number: inbox");
    EXPECT_EQ(s(refusal(QStringLiteral("corvina://open?mail=a%40b&messageid=1&folderstandardid="))),
              "open: folderstandardid is not a number: ");

    const QString huge = QStringLiteral("corvina://open?mail=a%40b.org&messageid=") +
                         QString(HostCommand::MaximumUrlLength, u'x') + QStringLiteral("&folderstandardid=1");
    EXPECT_EQ(s(refusal(huge)), QStringLiteral("command URL of %1 characters is longer than %2")
                                    .arg(huge.size())
                                    .arg(HostCommand::MaximumUrlLength)
                                    .toStdString());
    // a long refused URL is shortened in its line
    const QString longOther = QStringLiteral("https://") + QString(500, u'y');
    EXPECT_LT(refusal(longOther).size(), 120);
}

TEST(HostCommand, AComposeUrlMadeByTheExtensionsComesBackAsADraft) {
    QTemporaryDir dir;
    const QString first = writeFile(dir, QStringLiteral("report 1.pdf"));
    const QString second = writeFile(dir, QStringLiteral("it's \"$(x)\"; rm -rf ~.txt"));
    ExtensionMessagePtr message = ExtensionMessage::init();
    message->setSubject(QStringLiteral("Caf\u00e9 & \"quotes\" $(id); 100% +1"));
    message->setPlainBody(QStringLiteral("Line one\nLine two: a=b&c=d #x\n-- \n\u00c4nne"));
    message->setAccount(QStringLiteral("Ann Lee+work@ex\u00e4mple.org"));
    message->setTo(recipients({QStringLiteral("ada@example.org"), QStringLiteral("bob+x@example.org")}));
    message->setCc(recipients({QStringLiteral("cy@example.org")}));
    message->setBcc(recipients({QStringLiteral("dee@example.org")}));
    auto attachments = makeMutableList<QVariant>();
    attachments->append(first);
    attachments->append(second);
    message->setAttachments(attachments);
    const std::optional<Url> url = message->queryUrl(QStringLiteral("compose"));
    ASSERT_TRUE(url);

    const HostCommand command = parsed(url->absoluteString());
    EXPECT_EQ(command.kind(), HostCommand::Kind::Compose);
    EXPECT_FALSE(command.changesServer());
    EXPECT_EQ(command.account(), message->account());
    const MailDraft& draft = command.draft();
    EXPECT_EQ(draft.to,
              QStringList({QStringLiteral("ada@example.org"), QStringLiteral("bob+x@example.org")}));
    EXPECT_EQ(draft.cc, QStringList{QStringLiteral("cy@example.org")});
    EXPECT_EQ(draft.bcc, QStringList{QStringLiteral("dee@example.org")});
    EXPECT_EQ(draft.subject, message->subject());
    EXPECT_EQ(draft.body, message->plainBody());
    EXPECT_EQ(draft.account, message->account());
    QStringList got = draft.attachments;
    got.sort();
    QStringList want{first, second};
    want.sort();
    EXPECT_EQ(got, want);
    EXPECT_TRUE(command.note().isEmpty()) << s(command.note());
    EXPECT_TRUE(command.messageId().isEmpty());
}

TEST(HostCommand, AttachmentsThatAreNoFilesAreLeftOutWithANote) {
    QTemporaryDir dir;
    const QString file = writeFile(dir, QStringLiteral("a.txt"));
    ExtensionMessagePtr message = ExtensionMessage::init();
    message->setSubject(QStringLiteral("s"));
    auto attachments = makeMutableList<QVariant>();
    attachments->append(file);
    attachments->append(dir.filePath(QStringLiteral("missing.txt")));
    attachments->append(dir.path()); // a folder
    attachments->append(QStringLiteral("relative.txt"));
    message->setAttachments(attachments);
    const HostCommand command = parsed(message->queryUrl(QStringLiteral("compose"))->absoluteString());
    EXPECT_EQ(command.draft().attachments, QStringList{file});
    EXPECT_TRUE(
        command.note().startsWith(QStringLiteral("compose: left out 3 attachment(s) that are no absolute "
                                                 "path of a file: ")))
        << s(command.note());
    EXPECT_TRUE(command.note().contains(QStringLiteral("missing.txt")));
    EXPECT_TRUE(command.note().contains(QStringLiteral("relative.txt")));
}

TEST(HostCommand, AnHtmlOnlyDraftKeepsItsText) {
    ExtensionMessagePtr message = ExtensionMessage::init();
    message->setHtmlBody(
        QStringLiteral("<html><head><style>p{color:red}</style><script>alert(1)</script></head>"
                       "<body><p>Hello&nbsp;<b>Ann</b>,</p><p>a &lt;b&gt; &amp; &#228;&#x1F600;"
                       "<br>next   line</p><div>end</div></body></html>"));
    const HostCommand command = parsed(message->queryUrl(QStringLiteral("compose"))->absoluteString());
    EXPECT_EQ(command.draft().body, QStringLiteral("Hello Ann,\na <b> & \u00e4\U0001F600\nnext line\nend"));

    // with both bodies, the plain one is the draft's
    message->setPlainBody(QStringLiteral("plain"));
    EXPECT_EQ(s(parsed(message->queryUrl(QStringLiteral("compose"))->absoluteString()).draft().body),
              "plain");
}

TEST(HostCommand, AnEmptyComposeIsAnEmptyDraft) {
    const HostCommand command = parsed(QStringLiteral("corvina://compose?unknown=1"));
    EXPECT_EQ(command.kind(), HostCommand::Kind::Compose);
    EXPECT_TRUE(command.draft().to.isEmpty());
    EXPECT_TRUE(command.draft().subject.isEmpty());
    EXPECT_TRUE(command.account().isEmpty());
    EXPECT_EQ(
        s(parsed(QStringLiteral("corvina://compose?to=%3B%3Ba%40b.org%3B%20%3B")).draft().to.join(u'|')),
        "a@b.org");
}
