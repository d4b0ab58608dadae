// `corvina-mail-bridge account add | password | remove` as a user (or a script) runs them, with a
// real keyring daemon on a private session bus and the test's own Dovecot.
#include "BridgeTesting.h"
#include "KeyringTest.h"
#include "bridge/config/AccountPassword.h"
#include "bridge/config/SecretStore.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

namespace corvina::test {
namespace {

class AccountCommandTest : public KeyringTest<BridgeServerTest> {
protected:
    // A password nothing else in the output could contain by chance.
    static inline const QString GracePassword = QStringLiteral("Tr0ub4dor&3 corvina");

    void SetUp() override {
        KeyringTest::SetUp();
        server.addUser(QStringLiteral("grace"), GracePassword);
        server.deliver(QStringLiteral("grace"), QStringLiteral("INBOX"),
                       DovecotServer::message(QStringLiteral("For Grace"), QStringLiteral("ada@example.org"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<g1@example.org>")));
        config = configDir.filePath(QStringLiteral("bridge.conf"));
    }

    // The answers to `account add`, one a line; empty ones take the defaults. The folders are left
    // at theirs; the certificate authority is asked for TLS only (an empty security is TLS); the
    // password is asked only without a password command.
    QByteArray answers(const QString& mail, const QString& name, const QString& host, const QString& security,
                       const QString& port, const QString& user, const QString& password,
                       const QString& caFile = QString(), const QString& passwordCommand = QString()) const {
        QStringList lines{mail, name, host, security, port, user, QString(), QString(), QString()};
        const QString tls = security.toLower();
        if (tls.isEmpty() || tls == QLatin1String("tls") || tls == QLatin1String("starttls"))
            lines << caFile;
        lines << passwordCommand;
        if (passwordCommand.isEmpty())
            lines << password;
        return lines.join(u'\n').toUtf8() + '\n';
    }
    QByteArray graceAnswers(const QString& name = QStringLiteral("work")) const {
        return answers(QStringLiteral("grace@example.org"), name, server.host(), QStringLiteral("none"),
                       QString::number(server.port()), QStringLiteral("grace"), GracePassword);
    }

    QString configText() const {
        QFile file(config);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    SecretStore::Lookup stored(const QString& account, const QString& user, const QString& host) const {
        return SecretStore(10000).lookup({account, user, host});
    }

    QString config;
};

TEST_F(AccountCommandTest, AddedAccountSyncsWithThePasswordFromTheKeyring) {
    const BridgeRun add =
        runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, graceAnswers());
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    EXPECT_EQ(add.err, QString());
    EXPECT_TRUE(add.out.contains(QStringLiteral("Added account work (grace@example.org)")))
        << add.out.toStdString();

    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.childGroups(), QStringList{QStringLiteral("work")});
    EXPECT_EQ(written.value(QStringLiteral("work/mail")).toString(), QStringLiteral("grace@example.org"));
    EXPECT_EQ(written.value(QStringLiteral("work/host")).toString(), server.host());
    EXPECT_EQ(written.value(QStringLiteral("work/port")).toString(), QString::number(server.port()));
    EXPECT_EQ(written.value(QStringLiteral("work/security")).toString(), QStringLiteral("none"));
    EXPECT_EQ(written.value(QStringLiteral("work/user")).toString(), QStringLiteral("grace"));
    EXPECT_FALSE(written.contains(QStringLiteral("work/passwordCommand")));
    EXPECT_EQ(
        stored(QStringLiteral("work"), QStringLiteral("grace"), server.host()).password.value_or(QString()),
        GracePassword);

    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 0) << check.out.toStdString() << check.err.toStdString();
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n")) << check.out.toStdString();
    const BridgeRun once = runBridge({QStringLiteral("--once")}, config);
    EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages.first()->subject(), QStringLiteral("For Grace"));

    // The password went to the keyring and the server only: not into any output, nor into
    // anything the bridge wrote.
    for (const BridgeRun& run : {add, check, once}) {
        EXPECT_FALSE(run.out.contains(GracePassword));
        EXPECT_FALSE(run.err.contains(GracePassword));
    }
    EXPECT_FALSE(configText().isEmpty());
    EXPECT_FALSE(configText().contains(GracePassword));
    QDirIterator files(container.data(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    int scanned = 0;
    while (files.hasNext()) {
        QFile file(files.next());
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
        EXPECT_FALSE(file.readAll().contains(GracePassword.toUtf8())) << file.fileName().toStdString();
        ++scanned;
    }
    EXPECT_GE(scanned, 2); // Accounts.plist and the inbox at least
}

TEST_F(AccountCommandTest, AddAsksWithDefaultsAndTakesThemFromEmptyAnswers) {
    // Only the mail address, the server and the password are given.
    const QByteArray input =
        answers(QStringLiteral("grace@example.org"), QString(), QStringLiteral("imap.example.org"), QString(),
                QString(), QString(), GracePassword);
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    for (const char* prompt :
         {"Mail address: ", "Account name in bridge.conf [example]: ", "IMAP server [imap.example.org]: ",
          "[tls]: ", "Port [993]: ", "Login name [grace@example.org]: ", "Inbox folder [INBOX]: ",
          "To Do folder (empty: the flagged messages of the inbox): ", "Memo folder (empty: no Memo list): ",
          "Certificate authority file (empty: the system's trusted certificates): ",
          "Password command (empty: type the password now, kept in the Secret Service): ",
          "Password (or app password): "})
        EXPECT_TRUE(add.out.contains(QLatin1String(prompt))) << prompt << "\n" << add.out.toStdString();
    const BridgeConfig read = BridgeConfig::load(config);
    ASSERT_EQ(read.accounts().size(), 1);
    const BridgeConfig::Account& a = read.accounts().first();
    EXPECT_EQ(a.problem, QString());
    EXPECT_EQ(a.name, QStringLiteral("example"));
    EXPECT_EQ(a.host, QStringLiteral("imap.example.org"));
    EXPECT_EQ(a.security, BridgeConfig::Security::Tls);
    EXPECT_EQ(a.port, 993);
    EXPECT_EQ(a.user, QStringLiteral("grace@example.org"));
    EXPECT_EQ(a.inbox, QStringLiteral("INBOX"));
    EXPECT_EQ(a.todo, QString());
    EXPECT_EQ(a.memo, QString());
    EXPECT_EQ(a.caFile, QString());
    EXPECT_EQ(a.passwordCommand, QString());
    EXPECT_FALSE(configText().contains(QStringLiteral("caFile")));
    EXPECT_FALSE(configText().contains(QStringLiteral("passwordCommand")));
    // A domain the providers table does not know: nothing is said of it, no sign-in is offered.
    EXPECT_FALSE(add.out.contains(QStringLiteral("Sign in"))) << add.out.toStdString();
    EXPECT_FALSE(configText().contains(QStringLiteral("auth")));
    EXPECT_EQ(stored(QStringLiteral("example"), QStringLiteral("grace@example.org"),
                     QStringLiteral("imap.example.org"))
                  .password.value_or(QString()),
              GracePassword);
}

TEST_F(AccountCommandTest, AKnownProviderFillsTheServerAndNamesTheAppPassword) {
    // The address, then the defaults (name, login name, folders), no password command, the password.
    const QByteArray input =
        QStringList{"grace@fastmail.com", "", "", "", "", "", "", GracePassword}.join(u'\n').toUtf8() + '\n';
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString() << add.out.toStdString();
    EXPECT_EQ(add.err, QString());
    EXPECT_TRUE(
        add.out.contains(QStringLiteral("Mail address: \nFastmail: IMAP server imap.fastmail.com, port "
                                        "993, tls.\nIt needs an app password made for this program, "
                                        "not the account's password.\n")))
        << add.out.toStdString();
    // The server, its security and port come from the table; the system's store knows its authority.
    for (const char* notAsked : {"IMAP server [", "Security:", "Port", "Certificate authority", "Sign in:"})
        EXPECT_FALSE(add.out.contains(QLatin1String(notAsked))) << notAsked << "\n" << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(QStringLiteral("Login name [grace@fastmail.com]: ")));
    EXPECT_TRUE(add.out.contains(QStringLiteral("Password (or app password): ")));
    const BridgeConfig read = BridgeConfig::load(config);
    ASSERT_EQ(read.accounts().size(), 1);
    const BridgeConfig::Account& a = read.accounts().first();
    EXPECT_EQ(a.problem, QString());
    EXPECT_EQ(a.name, QStringLiteral("fastmail"));
    EXPECT_EQ(a.host, QStringLiteral("imap.fastmail.com"));
    EXPECT_EQ(a.security, BridgeConfig::Security::Tls);
    EXPECT_EQ(a.port, 993);
    EXPECT_EQ(a.user, QStringLiteral("grace@fastmail.com"));
    EXPECT_FALSE(configText().contains(QStringLiteral("auth"))); // a password is the bridge's default
    EXPECT_EQ(stored(QStringLiteral("fastmail"), QStringLiteral("grace@fastmail.com"),
                     QStringLiteral("imap.fastmail.com"))
                  .password.value_or(QString()),
              GracePassword);
}

TEST_F(AccountCommandTest, AProviderThatAlsoSignsInMayBeGivenAnAppPassword) {
    const QByteArray input = QStringList{"grace@gmail.com", "", "password", "", "", "", "", "", GracePassword}
                                 .join(u'\n')
                                 .toUtf8() +
                             '\n';
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString() << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(
        QStringLiteral("Sign in in your browser (oauth2), or use an app password (password), made at "
                       "https://myaccount.google.com/apppasswords.\n")))
        << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(
        QStringLiteral("Sign in: oauth2 (in your browser) or password (an app password) [oauth2]: ")));
    EXPECT_FALSE(add.out.contains(QStringLiteral("OAuth client"))) << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(QStringLiteral("its password is in the Secret Service")));
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.value(QStringLiteral("gmail/host")).toString(), QStringLiteral("imap.gmail.com"));
    EXPECT_EQ(written.value(QStringLiteral("gmail/port")).toString(), QStringLiteral("993"));
    EXPECT_EQ(written.value(QStringLiteral("gmail/security")).toString(), QStringLiteral("tls"));
    EXPECT_FALSE(written.contains(QStringLiteral("gmail/auth")));
    EXPECT_FALSE(written.contains(QStringLiteral("gmail/oauthProvider")));
    EXPECT_EQ(
        stored(QStringLiteral("gmail"), QStringLiteral("grace@gmail.com"), QStringLiteral("imap.gmail.com"))
            .password.value_or(QString()),
        GracePassword);
}

TEST_F(AccountCommandTest, SigningInWithOAuth2AsksNoPasswordAndNamesTheSignIn) {
    // The address, the name, the way of signing in (oauth2, the default), a client id, no secret,
    // the login name and the folders: nothing more.
    const QByteArray input =
        QStringList{"grace@gmail.com", "", "", "corvina-test", "", "", "", "", ""}.join(u'\n').toUtf8() +
        '\n';
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString() << add.out.toStdString();
    EXPECT_EQ(add.err, QString());
    for (const char* notAsked : {"Password command", "Password (or app password)", "Certificate authority"})
        EXPECT_FALSE(add.out.contains(QLatin1String(notAsked))) << notAsked << "\n" << add.out.toStdString();
    EXPECT_TRUE(
        add.out.endsWith(QStringLiteral("Added account gmail (grace@gmail.com) to %1; it signs in with "
                                        "oauth2. Next, sign in in your browser: corvina-mail-bridge "
                                        "--config %1 account signin gmail\n")
                             .arg(config)))
        << add.out.toStdString();
    const BridgeConfig read = BridgeConfig::load(config);
    ASSERT_EQ(read.accounts().size(), 1);
    const BridgeConfig::Account& a = read.accounts().first();
    EXPECT_EQ(a.problem, QString());
    EXPECT_EQ(a.auth, BridgeConfig::Auth::OAuth2);
    EXPECT_EQ(a.oauthProvider, QStringLiteral("google"));
    EXPECT_EQ(a.oauthClientId, QStringLiteral("corvina-test"));
    EXPECT_FALSE(configText().contains(QStringLiteral("oauthClientSecret")));
    EXPECT_EQ(a.host, QStringLiteral("imap.gmail.com"));
    EXPECT_EQ(a.user, QStringLiteral("grace@gmail.com"));
    // Nothing went to the keyring: the sign-in keeps what it gets.
    const SecretStore::Lookup lookup =
        stored(QStringLiteral("gmail"), QStringLiteral("grace@gmail.com"), QStringLiteral("imap.gmail.com"));
    EXPECT_EQ(lookup.error, QString());
    EXPECT_FALSE(lookup.password.has_value());
}

TEST_F(AccountCommandTest, AProviderThatRefusesPasswordsIsNotOfferedOne) {
    // The address, the name, no client id (the built-in one), no secret, the login name, the folders.
    const QByteArray input =
        QStringList{"grace@hotmail.com", "work", "", "", "", "", "", ""}.join(u'\n').toUtf8() + '\n';
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString() << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(QStringLiteral("Outlook.com and Microsoft 365: IMAP server "
                                                "outlook.office365.com, port 993, tls.\nIt takes no password "
                                                "over IMAP: you sign in in your browser (oauth2).\n")))
        << add.out.toStdString();
    EXPECT_FALSE(add.out.contains(QStringLiteral("Sign in: "))) << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(QStringLiteral("account signin work\n"))) << add.out.toStdString();
    QSettings written(config, QSettings::IniFormat);
    EXPECT_EQ(written.value(QStringLiteral("work/auth")).toString(), QStringLiteral("oauth2"));
    EXPECT_EQ(written.value(QStringLiteral("work/oauthProvider")).toString(), QStringLiteral("microsoft"));
    EXPECT_FALSE(written.contains(QStringLiteral("work/oauthClientId")));
    EXPECT_EQ(BridgeConfig::load(config).accounts().value(0).problem, QString());
}

TEST_F(AccountCommandTest, AWayOfSigningInOtherThanTheTwoIsRefused) {
    const QByteArray input = "grace@gmail.com\nwork\nkerberos\n";
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_EQ(
        add.err,
        QStringLiteral("corvina-mail-bridge: account add: sign in with oauth2 or password, not kerberos\n"));
    EXPECT_FALSE(QFile::exists(config));
}

TEST_F(AccountCommandTest, ALocalBridgeProgramIsAskedForItsCertificateAuthority) {
    // The address, the defaults (name, login name, folders), the certificate authority, no password
    // command, the password.
    const QString ca = configDir.filePath(QStringLiteral("bridge-cert.pem"));
    QFile caFile(ca);
    ASSERT_TRUE(caFile.open(QIODevice::WriteOnly));
    caFile.write("-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n");
    caFile.close();
    const QByteArray input =
        QStringList{"grace@pm.me", "", "", "", "", "", ca, "", GracePassword}.join(u'\n').toUtf8() + '\n';
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString() << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(QStringLiteral("Certificate authority file"))) << add.out.toStdString();
    EXPECT_FALSE(add.out.contains(QStringLiteral("IMAP server ["))) << add.out.toStdString();
    const BridgeConfig read = BridgeConfig::load(config);
    ASSERT_EQ(read.accounts().size(), 1);
    const BridgeConfig::Account& a = read.accounts().first();
    EXPECT_EQ(a.host, QStringLiteral("127.0.0.1"));
    EXPECT_EQ(a.port, 1143);
    EXPECT_EQ(a.security, BridgeConfig::Security::StartTls);
    EXPECT_EQ(a.caFile, ca);
}

TEST_F(AccountCommandTest, PlainImapIsNotAskedForACertificateAuthority) {
    const BridgeRun add =
        runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, graceAnswers());
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    EXPECT_FALSE(add.out.contains(QStringLiteral("Certificate authority"))) << add.out.toStdString();
    EXPECT_TRUE(add.out.contains(QStringLiteral("Password command"))) << add.out.toStdString();
}

TEST_F(AccountCommandTest, WithAPasswordCommandNoPasswordIsAskedNorStored) {
    // Double quotes keep the password's space inside one word of the command.
    const QString command = QStringLiteral("printf \"%s\\n\" \"%1\"").arg(GracePassword);
    const QByteArray input = answers(QStringLiteral("grace@example.org"), QStringLiteral("work"),
                                     server.host(), QStringLiteral("none"), QString::number(server.port()),
                                     QStringLiteral("grace"), QString(), QString(), command);
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    EXPECT_EQ(add.err, QString());
    EXPECT_FALSE(add.out.contains(QStringLiteral("Password (or app password)"))) << add.out.toStdString();
    EXPECT_TRUE(add.out.endsWith(
        QStringLiteral("Added account work (grace@example.org) to %1; its password comes from its "
                       "passwordCommand. Try it: corvina-mail-bridge --config %1 check work\n")
            .arg(config)))
        << add.out.toStdString();
    EXPECT_EQ(
        QSettings(config, QSettings::IniFormat).value(QStringLiteral("work/passwordCommand")).toString(),
        command);
    // Nothing went to the keyring: the command is the password's only home.
    const SecretStore::Lookup lookup = stored(QStringLiteral("work"), QStringLiteral("grace"), server.host());
    EXPECT_EQ(lookup.error, QString());
    EXPECT_FALSE(lookup.password.has_value());

    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n")) << check.out.toStdString() << check.err.toStdString();
}

TEST_F(AccountCommandTest, TheHintedCheckWorksAsPrintedWithTheConfigItWasAddedTo) {
    // A config of its own, at a path a shell would split and unquote.
    const QString folder = configDir.filePath(QStringLiteral("Ada's mail $HOME"));
    ASSERT_TRUE(QDir().mkpath(folder));
    config = folder + QStringLiteral("/bridge (work).conf");
    const QByteArray input =
        answers(QStringLiteral("grace@example.org"), QStringLiteral("work"), server.host(),
                QStringLiteral("none"), QString::number(server.port()), QStringLiteral("grace"), QString(),
                QString(), QStringLiteral("printf \"%s\\n\" \"%1\"").arg(GracePassword));
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    const qsizetype at = add.out.lastIndexOf(QStringLiteral("Try it: "));
    ASSERT_GE(at, 0) << add.out.toStdString();
    const QString hint = add.out.mid(at + 8).trimmed();
    QString quoted = config;
    quoted.replace(u'\'', QStringLiteral("'\\''"));
    EXPECT_EQ(hint, QStringLiteral("corvina-mail-bridge --config '%1' check work").arg(quoted));

    // Run as printed, by a shell, from another folder, where the default config has no accounts.
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PATH"),
                       QFileInfo(QStringLiteral(CORVINA_BRIDGE_BINARY)).absolutePath() + u':' +
                           environment.value(QStringLiteral("PATH")));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    QProcess shell;
    shell.setProcessEnvironment(environment);
    shell.setWorkingDirectory(home.path());
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), hint});
    ASSERT_TRUE(shell.waitForFinished(60000));
    EXPECT_EQ(shell.exitCode(), 0) << shell.readAllStandardError().toStdString();
    EXPECT_EQ(QString::fromUtf8(shell.readAllStandardOutput()), QStringLiteral("work: ok\n"));
}

TEST_F(AccountCommandTest, AddRefusesAnUnreadableCertificateAuthorityAndWritesNothing) {
    const QString absent = configDir.filePath(QStringLiteral("no-such-ca.pem"));
    const QByteArray input = answers(QStringLiteral("grace@example.org"), QStringLiteral("work"),
                                     QStringLiteral("imap.example.org"), QStringLiteral("tls"), QString(),
                                     QStringLiteral("grace"), GracePassword, absent);
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_EQ(
        add.err,
        QStringLiteral("corvina-mail-bridge: account add: caFile %1 cannot be read; nothing was written\n")
            .arg(absent));
    EXPECT_FALSE(add.out.contains(QStringLiteral("Password"))) << add.out.toStdString();
    EXPECT_FALSE(QFile::exists(config));
    EXPECT_FALSE(stored(QStringLiteral("work"), QStringLiteral("grace"), QStringLiteral("imap.example.org"))
                     .password.has_value());
}

TEST_F(AccountCommandTest, AddRefusesADuplicateAndChangesNothing) {
    ASSERT_EQ(runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, graceAnswers()).exitCode,
              0);
    const QString before = configText();

    const BridgeRun sameMail = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config,
                                         graceAnswers(QStringLiteral("other")));
    EXPECT_EQ(sameMail.exitCode, 1);
    EXPECT_EQ(sameMail.err,
              QStringLiteral("corvina-mail-bridge: account add: grace@example.org is already account "
                             "work in %1\n")
                  .arg(config));

    const QByteArray sameName =
        answers(QStringLiteral("ada@example.org"), QStringLiteral("work"), server.host(),
                QStringLiteral("none"), QString::number(server.port()), User, Password);
    const BridgeRun again = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, sameName);
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.err,
              QStringLiteral("corvina-mail-bridge: account add: there is already an account work in %1\n")
                  .arg(config));

    EXPECT_EQ(configText(), before);
    EXPECT_EQ(
        stored(QStringLiteral("work"), QStringLiteral("grace"), server.host()).password.value_or(QString()),
        GracePassword);
    EXPECT_FALSE(stored(QStringLiteral("work"), User, server.host()).password.has_value());
}

TEST_F(AccountCommandTest, AddRefusesPlainImapToAnotherComputerAndWritesNothing) {
    const QByteArray input = answers(QStringLiteral("grace@example.org"), QStringLiteral("work"),
                                     QStringLiteral("imap.example.org"), QStringLiteral("none"), QString(),
                                     QStringLiteral("grace"), GracePassword);
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_EQ(add.err,
              QStringLiteral("corvina-mail-bridge: account add: security none is only allowed for 127.0.0.1 "
                             "or localhost, not imap.example.org; nothing was written\n"));
    EXPECT_FALSE(QFile::exists(config));
    EXPECT_FALSE(stored(QStringLiteral("work"), QStringLiteral("grace"), QStringLiteral("imap.example.org"))
                     .password.has_value());
}

TEST_F(AccountCommandTest, AddWithoutASecretServiceFailsClearlyAndWritesNothing) {
    keyring.stop();
    const BridgeRun add =
        runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, graceAnswers());
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_TRUE(add.err.startsWith(QStringLiteral(
        "corvina-mail-bridge: account add: cannot store the password in the Secret Service: ")))
        << add.err.toStdString();
    EXPECT_TRUE(
        add.err.endsWith(QStringLiteral("nothing was written (a passwordCommand in bridge.conf is the other "
                                        "way, see docs/bridge.md)\n")))
        << add.err.toStdString();
    EXPECT_FALSE(add.err.contains(GracePassword));
    EXPECT_FALSE(QFile::exists(config));
}

TEST_F(AccountCommandTest, AddStopsWhenTheInputEndsEarly) {
    const QByteArray input = "grace@example.org\nwork\n";
    const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_EQ(add.err,
              QStringLiteral("corvina-mail-bridge: account add: the input ended before the IMAP server; "
                             "nothing was written\n"));
    EXPECT_FALSE(QFile::exists(config));
}

TEST_F(AccountCommandTest, AtATerminalThePasswordIsNotEchoed) {
    // A pseudo-terminal stands in for the person's: what the program and the terminal's own echo
    // show is read from its other side.
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::grantpt(terminal), 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const QString device = QString::fromLocal8Bit(::ptsname(terminal));
    QByteArray shown;
    const auto readUntil = [&](const QByteArray& text) {
        const QDeadlineTimer deadline(20000);
        while (!shown.contains(text) && !deadline.hasExpired()) {
            pollfd ready{terminal, POLLIN, 0};
            if (::poll(&ready, 1, 100) <= 0)
                continue;
            char buffer[4096];
            const ssize_t n = ::read(terminal, buffer, sizeof buffer);
            if (n <= 0)
                break; // the program's side is closed
            shown.append(buffer, n);
        }
        return shown.contains(text);
    };

    QProcess process;
    process.setStandardInputFile(device);
    process.setStandardOutputFile(device);
    process.start(QStringLiteral(CORVINA_BRIDGE_BINARY),
                  {QStringLiteral("--config"), config, QStringLiteral("account"), QStringLiteral("add")});
    ASSERT_TRUE(process.waitForStarted(10000));
    const QByteArray typed = graceAnswers();
    const QByteArray beforePassword = typed.left(typed.indexOf(GracePassword.toUtf8()));
    ASSERT_EQ(::write(terminal, beforePassword.constData(), static_cast<size_t>(beforePassword.size())),
              beforePassword.size());
    ASSERT_TRUE(readUntil("Password (or app password): ")) << shown.toStdString();
    const QByteArray password = GracePassword.toUtf8() + '\n';
    ASSERT_EQ(::write(terminal, password.constData(), static_cast<size_t>(password.size())), password.size());
    EXPECT_TRUE(readUntil("Try it: corvina-mail-bridge --config " + config.toUtf8() + " check work"))
        << shown.toStdString();
    EXPECT_TRUE(process.waitForFinished(30000));
    ::close(terminal);
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();

    // The other answers were echoed as typed; the password was not.
    EXPECT_TRUE(shown.contains("grace@example.org")) << shown.toStdString();
    EXPECT_FALSE(shown.contains(GracePassword.toUtf8())) << shown.toStdString();
    EXPECT_EQ(
        stored(QStringLiteral("work"), QStringLiteral("grace"), server.host()).password.value_or(QString()),
        GracePassword);
}

TEST_F(AccountCommandTest, RemoveTakesTheGroupAndClearsTheSecret) {
    ASSERT_EQ(runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, graceAnswers()).exitCode,
              0);
    ASSERT_EQ(runBridge({QStringLiteral("account"), QStringLiteral("add")}, config,
                        answers(QStringLiteral("ada@example.org"), QStringLiteral("home"), server.host(),
                                QStringLiteral("none"), QString::number(server.port()), User, Password))
                  .exitCode,
              0);
    ASSERT_TRUE(stored(QStringLiteral("work"), QStringLiteral("grace"), server.host()).password.has_value());

    const BridgeRun remove = runBridge(
        {QStringLiteral("account"), QStringLiteral("remove"), QStringLiteral("grace@example.org")}, config);
    EXPECT_EQ(remove.exitCode, 0) << remove.err.toStdString();
    EXPECT_EQ(remove.out,
              QStringLiteral("Removed account work (grace@example.org) from %1 and its password from the "
                             "Secret Service\n")
                  .arg(config));
    EXPECT_EQ(QSettings(config, QSettings::IniFormat).childGroups(), QStringList{QStringLiteral("home")});
    const SecretStore::Lookup gone = stored(QStringLiteral("work"), QStringLiteral("grace"), server.host());
    EXPECT_EQ(gone.error, QString());
    EXPECT_FALSE(gone.password.has_value());
    // The other account and its password are untouched.
    EXPECT_EQ(stored(QStringLiteral("home"), User, server.host()).password.value_or(QString()), Password);
    const BridgeRun home = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(home.out, QStringLiteral("home: ok\n")) << home.out.toStdString() << home.err.toStdString();

    const BridgeRun unknown =
        runBridge({QStringLiteral("account"), QStringLiteral("remove"), QStringLiteral("work")}, config);
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.err, QStringLiteral("corvina-mail-bridge: no account work in %1\n").arg(config));
}

TEST_F(AccountCommandTest, AHandWrittenAccountIsToldHowToStoreItsPassword) {
    const QString written =
        writeConfig({{QStringLiteral("work"), accountKeys({{"passwordCommand", QVariant()}})}});
    const BridgeRun before = runBridge({QStringLiteral("check")}, written);
    EXPECT_EQ(before.exitCode, 1);
    EXPECT_EQ(before.out,
              QStringLiteral("work: no password stored for ada@example.org (ada on 127.0.0.1): run "
                             "corvina-mail-bridge account password work, or set a passwordCommand\n"));

    const BridgeRun set =
        runBridge({QStringLiteral("account"), QStringLiteral("password"), QStringLiteral("work")}, written,
                  Password.toUtf8() + '\n');
    EXPECT_EQ(set.exitCode, 0) << set.err.toStdString();
    EXPECT_TRUE(set.out.endsWith(
        QStringLiteral("Stored the password of work (ada@example.org) in the Secret Service\n")))
        << set.out.toStdString();
    const BridgeRun after = runBridge({QStringLiteral("check")}, written);
    EXPECT_EQ(after.out, QStringLiteral("work: ok\n")) << after.out.toStdString() << after.err.toStdString();

    // A password stored for this account never goes to another server named later.
    const QString moved = writeConfig(
        {{QStringLiteral("work"), accountKeys({{"passwordCommand", QVariant()}, {"host", "localhost"}})}});
    EXPECT_EQ(runBridge({QStringLiteral("check")}, moved).out,
              QStringLiteral("work: no password stored for ada@example.org (ada on localhost): run "
                             "corvina-mail-bridge account password work, or set a passwordCommand\n"));
}

// `account add` against a server that requires TLS and whose certificate comes from an authority of
// its own: named at the prompt, it is stored as caFile and trusts the server.
class AccountCommandTlsTest : public AccountCommandTest {
protected:
    bool withTls() const override { return true; }
};

TEST_F(AccountCommandTlsTest, TheCertificateAuthorityAskedForIsStoredAndTrusted) {
    for (const QString& security : {QStringLiteral("tls"), QStringLiteral("starttls")}) {
        SCOPED_TRACE(security.toStdString());
        QFile::remove(config);
        const quint16 port = security == QLatin1String("tls") ? server.tlsPort() : server.port();
        const QByteArray input =
            answers(QStringLiteral("grace@example.org"), QStringLiteral("work"), server.host(), security,
                    QString::number(port), QStringLiteral("grace"), GracePassword, server.caFile());
        const BridgeRun add = runBridge({QStringLiteral("account"), QStringLiteral("add")}, config, input);
        ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
        EXPECT_TRUE(add.out.contains(QStringLiteral("its password is in the Secret Service")));
        const BridgeConfig read = BridgeConfig::load(config);
        ASSERT_EQ(read.accounts().size(), 1);
        EXPECT_EQ(read.accounts().first().problem, QString());
        EXPECT_EQ(read.accounts().first().caFile, server.caFile());
        const BridgeRun check = runBridge({QStringLiteral("check")}, config);
        EXPECT_EQ(check.out, QStringLiteral("work: ok\n"))
            << check.out.toStdString() << check.err.toStdString();
    }
}

TEST_F(AccountCommandTlsTest, WithoutTheCertificateAuthorityTheServerIsNotTrusted) {
    // The empty answer: the system's trusted certificates, which do not know the test's authority.
    const BridgeRun add =
        runBridge({QStringLiteral("account"), QStringLiteral("add")}, config,
                  answers(QStringLiteral("grace@example.org"), QStringLiteral("work"), server.host(),
                          QStringLiteral("tls"), QString::number(server.tlsPort()), QStringLiteral("grace"),
                          GracePassword));
    ASSERT_EQ(add.exitCode, 0) << add.err.toStdString();
    EXPECT_FALSE(QSettings(config, QSettings::IniFormat).contains(QStringLiteral("work/caFile")));
    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_TRUE(check.out.startsWith(QStringLiteral("work: certificate of 127.0.0.1 not trusted: ")))
        << check.out.toStdString();
}

} // namespace
} // namespace corvina::test
