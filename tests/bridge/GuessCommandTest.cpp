// `corvina-mail-bridge account guess ADDRESS` as a person or a script runs it: the JSON it prints,
// its exit status for a known and an unknown domain, and its usage errors.
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

struct GuessRun {
    int exitCode = -1;
    QString out;
    QString err;
    QJsonObject json() const { return QJsonDocument::fromJson(out.toUtf8()).object(); }
};

GuessRun runGuess(const QStringList& arguments) {
    // A config that does not exist: guessing reads none.
    QTemporaryDir dir;
    QProcess process;
    process.start(QStringLiteral(CORVINA_BRIDGE_BINARY),
                  QStringList{QStringLiteral("--config"), dir.filePath(QStringLiteral("none.conf")),
                              QStringLiteral("account"), QStringLiteral("guess")} +
                      arguments);
    EXPECT_TRUE(process.waitForStarted(10000));
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(60000));
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

const QStringList allKeys = {"address",        "known", "provider",      "host",        "port",
                             "security",       "auth",  "oauthProvider", "appPassword", "passwordsRefused",
                             "appPasswordUrl", "note"};

TEST(GuessCommandTest, AKnownProviderIsPrintedAsJsonWithStatusZero) {
    const GuessRun run = runGuess({QStringLiteral("Ada@GMail.com")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    const QJsonObject json = run.json();
    EXPECT_EQ(json.keys().size(), allKeys.size()) << run.out.toStdString();
    for (const QString& key : allKeys)
        EXPECT_TRUE(json.contains(key)) << key.toStdString();
    EXPECT_EQ(json.value("address").toString(), QStringLiteral("Ada@GMail.com"));
    EXPECT_EQ(json.value("known"), QJsonValue(true));
    EXPECT_EQ(json.value("provider").toString(), QStringLiteral("Gmail and Google Workspace"));
    EXPECT_EQ(json.value("host").toString(), QStringLiteral("imap.gmail.com"));
    EXPECT_EQ(json.value("port"), QJsonValue(993));
    EXPECT_EQ(json.value("security").toString(), QStringLiteral("tls"));
    EXPECT_EQ(json.value("auth").toString(), QStringLiteral("oauth2"));
    EXPECT_EQ(json.value("oauthProvider").toString(), QStringLiteral("google"));
    EXPECT_EQ(json.value("appPassword"), QJsonValue(true));
    EXPECT_EQ(json.value("passwordsRefused"), QJsonValue(false));
    EXPECT_EQ(json.value("appPasswordUrl").toString(),
              QStringLiteral("https://myaccount.google.com/apppasswords"));
    EXPECT_FALSE(json.value("note").toString().isEmpty());
}

TEST(GuessCommandTest, WhatAProviderDoesNotHaveIsNull) {
    const QJsonObject outlook = runGuess({QStringLiteral("ada@hotmail.com")}).json();
    EXPECT_EQ(outlook.value("host").toString(), QStringLiteral("outlook.office365.com"));
    EXPECT_EQ(outlook.value("oauthProvider").toString(), QStringLiteral("microsoft"));
    EXPECT_EQ(outlook.value("passwordsRefused"), QJsonValue(true));
    EXPECT_EQ(outlook.value("appPassword"), QJsonValue(false));
    EXPECT_TRUE(outlook.value("appPasswordUrl").isNull());

    const GuessRun proton = runGuess({QStringLiteral("ada@pm.me")});
    EXPECT_EQ(proton.exitCode, 0);
    const QJsonObject json = proton.json();
    EXPECT_EQ(json.value("host").toString(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(json.value("port"), QJsonValue(1143));
    EXPECT_EQ(json.value("security").toString(), QStringLiteral("starttls"));
    EXPECT_EQ(json.value("auth").toString(), QStringLiteral("password"));
    EXPECT_TRUE(json.value("oauthProvider").isNull());
    EXPECT_TRUE(json.contains("oauthProvider"));
}

TEST(GuessCommandTest, AnUnknownDomainGetsTheDefaultsOfAccountAddWithStatusOne) {
    const GuessRun run = runGuess({QStringLiteral("grace@example.org")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QString());
    const QJsonObject json = run.json();
    EXPECT_EQ(json.keys().size(), allKeys.size()) << run.out.toStdString();
    EXPECT_EQ(json.value("known"), QJsonValue(false));
    EXPECT_TRUE(json.value("provider").isNull());
    EXPECT_EQ(json.value("host").toString(), QStringLiteral("imap.example.org"));
    EXPECT_EQ(json.value("port"), QJsonValue(993));
    EXPECT_EQ(json.value("security").toString(), QStringLiteral("tls"));
    EXPECT_EQ(json.value("auth").toString(), QStringLiteral("password"));
    EXPECT_TRUE(json.value("oauthProvider").isNull());
    EXPECT_EQ(json.value("appPassword"), QJsonValue(false));
    EXPECT_EQ(
        json.value("note").toString(),
        QStringLiteral("not a provider this program knows: imap.example.org is a guess; your provider's "
                       "help pages name its IMAP server"));
}

TEST(GuessCommandTest, UsageErrorsSayWhatIsWrongWithStatusTwo) {
    const struct {
        QStringList arguments;
        const char* error;
    } cases[] = {
        {{}, "corvina-mail-bridge: account guess takes one mail address; see account guess --help\n"},
        {{"ada@gmail.com", "grace@gmail.com"},
         "corvina-mail-bridge: account guess takes one mail address; see account guess --help\n"},
        {{"gmail.com"},
         "corvina-mail-bridge: account guess: gmail.com is not a mail address (like ada@example.org)\n"},
        {{"ada@"}, "corvina-mail-bridge: account guess: ada@ is not a mail address (like ada@example.org)\n"},
        {{"@gmail.com"},
         "corvina-mail-bridge: account guess: @gmail.com is not a mail address (like ada@example.org)\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const GuessRun run = runGuess(c.arguments);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err.toStdString(), c.error);
        EXPECT_EQ(run.out, QString());
    }
}

TEST(GuessCommandTest, HelpSaysWhatItPrintsAndItsStatuses) {
    const GuessRun run = runGuess({QStringLiteral("--help")});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, QString());
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("Usage: corvina-mail-bridge account guess ADDRESS\n")))
        << run.out.toStdString();
    for (const QString& key : allKeys)
        EXPECT_TRUE(run.out.contains(QStringLiteral("  ") + key + u' ')) << key.toStdString();
    EXPECT_TRUE(run.out.contains(QStringLiteral("  1  the domain is not in the table")));

    // The program's own help names the subcommand.
    QProcess process;
    process.start(QStringLiteral(CORVINA_BRIDGE_BINARY), {QStringLiteral("--help")});
    ASSERT_TRUE(process.waitForFinished(60000));
    EXPECT_TRUE(process.readAllStandardOutput().contains("  account guess ADDRESS\n"));
}

} // namespace
} // namespace corvina::test
