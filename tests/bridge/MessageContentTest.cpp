// What a message may hold, from a real Dovecot to the shared folder: control characters, no sender,
// bare 8-bit text. Each snapshot is read back by a standard XML property-list parser (Python's
// plistlib) and by the widget's own loader.
#include "BridgeTesting.h"
#include "bridge/sync/AccountSync.h"
#include "bridge/sync/SnapshotWriter.h"
#include "model/SnapshotFormat.h"
#include "shared/ConstVars.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace corvina::test {
namespace {

class MessageContentTest : public BridgeServerTest {
protected:
    // Reads the account once and writes what it found, as --once does.
    void syncOnce() {
        const BridgeConfig::Account ada = account();
        AccountSync reader(ada, 10);
        const AccountSync::Result result = reader.run(Password);
        ASSERT_TRUE(result.ok) << result.error.toStdString();
        SnapshotWriter writer(container.data());
        QString error;
        ASSERT_TRUE(writer.writeAccounts(SnapshotWriter::accountsFromConfig(BridgeConfig::load(
                                             configDir.filePath(QStringLiteral("bridge.conf")))),
                                         &error))
            << error.toStdString();
        ASSERT_TRUE(writer.writeSnapshots(ada.mail, result.snapshots, &error)) << error.toStdString();
    }

    // Places a message given byte for byte (header lines joined with CRLF, then a body).
    void deliverRaw(const QList<QByteArray>& header) {
        ++delivered;
        QByteArray message = header.join("\r\n");
        message += "\r\nMessage-ID: <raw" + QByteArray::number(delivered) +
                   "@example.org>\r\nDate: Tue, 14 Nov 2023 22:13:20 +0000\r\n\r\nBody.\r\n";
        server.deliver(User, QStringLiteral("INBOX"), message);
    }

    QString inboxPath() const {
        return container.data() + u'/' + ConstVars::todayFolder + u'/' + Mail +
               QStringLiteral("/inbox.plist");
    }

    // The inbox as Python's plistlib reads it: {subject: from}, or the parser's error.
    QMap<QString, QString> readByPlistlib(QString* error) const {
        QProcess python;
        python.start(
            QStringLiteral("python3"),
            {QStringLiteral("-c"),
             QStringLiteral("import json, plistlib, sys\n"
                            "with open(sys.argv[1], 'rb') as f:\n"
                            "    data = plistlib.load(f)['data']\n"
                            "print(json.dumps([[m.get('subject'), m.get('from')] for m in data]))\n"),
             inboxPath()});
        if (!python.waitForFinished(30000) || python.exitCode() != 0) {
            *error = QString::fromUtf8(python.readAllStandardError());
            return {};
        }
        QMap<QString, QString> messages;
        for (const QJsonValue& row : QJsonDocument::fromJson(python.readAllStandardOutput()).array())
            messages.insert(row.toArray().at(0).toString(), row.toArray().at(1).toString());
        return messages;
    }

    // The same through the widget's loader.
    static QMap<QString, QString> readByWidget() {
        QMap<QString, QString> messages;
        for (const ExtensionMessagePtr& m : widgetMessages()) {
            if (m->folderStandardId().toInt() == SnapshotFormat::number(SnapshotFormat::ListKind::Inbox))
                messages.insert(m->subject(), m->from());
        }
        return messages;
    }

    // Both readers, which must agree.
    QMap<QString, QString> readBack() {
        QString error;
        const QMap<QString, QString> python = readByPlistlib(&error);
        EXPECT_EQ(error, QString()) << "plistlib refused the snapshot";
        const QMap<QString, QString> widget = readByWidget();
        EXPECT_EQ(python, widget);
        return widget;
    }

    static std::string show(const QMap<QString, QString>& messages) {
        QStringList rows;
        for (auto it = messages.begin(); it != messages.end(); ++it)
            rows << it.key() + QStringLiteral(" | ") + it.value();
        return rows.join(u'\n').toStdString();
    }
};

TEST_F(MessageContentTest, ControlCharactersFromTheServerAreReplacedAndTheSnapshotStaysWellFormedXml) {
    // Raw in the header, and made by encoded words (ESC, form feed, U+FFFF), in subject and sender.
    deliverRaw({"From: \"Eve\x1b[1m Evil\x07\" <eve@example.org>", "Subject: Red \x1b[31malert\x07 end"});
    deliverRaw({"From: =?UTF-8?Q?Mall=0Cory=1B?= <mallory@example.org>",
                "Subject: =?UTF-8?Q?x=1By=0Cz_=EF=BF=BF?="});
    syncOnce();

    QFile file(inboxPath());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_FALSE(bytes.contains('\x1b'));
    EXPECT_FALSE(bytes.contains('\x07'));
    EXPECT_FALSE(bytes.contains('\x0c'));

    const QMap<QString, QString> messages = readBack();
    const QMap<QString, QString> expected{
        {QStringLiteral("Red \uFFFD[31malert\uFFFD end"), QStringLiteral("Eve\uFFFD[1m Evil\uFFFD")},
        {QStringLiteral("x\uFFFDy\uFFFDz \uFFFD"), QStringLiteral("Mall\uFFFDory\uFFFD")},
    };
    EXPECT_EQ(messages, expected) << show(messages);
}

TEST_F(MessageContentTest, WithoutAFromTheSenderOrTheReplyToIsNamedElseNoSender) {
    deliverRaw({"Sender: List Owner <owner@example.org>", "Subject: Only a Sender"});
    deliverRaw({"Reply-To: replies@example.org", "Subject: Only a Reply-To"});
    deliverRaw({"Subject: Nobody"});
    deliverRaw({"From: Grace <grace@example.org>", "Sender: owner@example.org", "Subject: Both"});
    syncOnce();
    const QMap<QString, QString> messages = readBack();
    const QMap<QString, QString> expected{
        {QStringLiteral("Only a Sender"), QStringLiteral("List Owner")},
        {QStringLiteral("Only a Reply-To"), QStringLiteral("replies@example.org")},
        {QStringLiteral("Nobody"), QStringLiteral("(no sender)")},
        {QStringLiteral("Both"), QStringLiteral("Grace")},
    };
    EXPECT_EQ(messages, expected) << show(messages);
}

TEST_F(MessageContentTest, NoSenderIsWrittenInTheLanguageOfTheBridgesUser) {
    deliverRaw({"Subject: Nobody"});
    for (const auto& [language, words] : {std::pair{"de_DE.UTF-8", QStringLiteral("(kein Absender)")},
                                          std::pair{"fr_FR.UTF-8", QStringLiteral("(sans expéditeur)")}}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LANG"), QLatin1String(language));
        environment.insert(QStringLiteral("LC_ALL"), QLatin1String(language));
        const BridgeRun run =
            runBridge({QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), accountKeys()}}), {},
                      environment);
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        const QMap<QString, QString> messages = readBack();
        EXPECT_EQ(messages.value(QStringLiteral("Nobody")), words) << language << '\n' << show(messages);
    }
}

TEST_F(MessageContentTest, Bare8BitSubjectsAreReadWithTheMessagesOwnCharsetElseWindows1252) {
    // UTF-8 as it is, whatever is declared
    deliverRaw({"From: a@example.org",
                "Subject: utf-8 Gr\xc3\xbc\xc3\x9f"
                "e",
                "Content-Type: text/plain; charset=iso-8859-1"});
    // the charset of the Content-Type
    deliverRaw({"From: a@example.org",
                "Subject: latin-1 Gr\xfc\xdf"
                "e aus K\xf6ln",
                "MIME-Version: 1.0", "Content-Type: text/plain; charset=\"ISO-8859-1\""});
    deliverRaw({"From: a@example.org", "Subject: koi8-r \xf0\xd2\xc9\xd7\xc5\xd4", "MIME-Version: 1.0",
                "Content-Type: text/plain;\r\n\tcharset=koi8-r; format=flowed"});
    // a multipart message declares at its top no charset; its sender's encoded name does
    deliverRaw({"From: =?koi8-r?B?8NLJ18XU?= <b@example.org>", "Subject: multipart \xf0\xd2\xc9\xd7\xc5\xd4",
                "MIME-Version: 1.0", "Content-Type: multipart/mixed; boundary=xyz"});
    // nothing declared: windows-1252 (an en dash at 0x96, the euro at 0x80)
    deliverRaw({"From: c@example.org", "Subject: undeclared caf\xe9 \x96 \x80"
                                       "5"});
    // an 8-bit sender name is read the same way
    deliverRaw({"From: J\xf6rg <joerg@example.org>", "Subject: 8-bit name",
                "Content-Type: text/plain; charset=iso-8859-1"});
    syncOnce();
    const QMap<QString, QString> messages = readBack();
    const QMap<QString, QString> expected{
        {QStringLiteral("utf-8 Grüße"), QStringLiteral("a@example.org")},
        {QStringLiteral("latin-1 Grüße aus Köln"), QStringLiteral("a@example.org")},
        {QStringLiteral("koi8-r Привет"), QStringLiteral("a@example.org")},
        {QStringLiteral("multipart Привет"), QStringLiteral("Привет")},
        {QStringLiteral("undeclared café – €5"), QStringLiteral("c@example.org")},
        {QStringLiteral("8-bit name"), QStringLiteral("Jörg")},
    };
    EXPECT_EQ(messages, expected) << show(messages);
}

} // namespace
} // namespace corvina::test
