// TLS and STARTTLS against the test's own Dovecot, whose certificate is issued by an authority the
// fixture made: trusted only when the account names that authority in its caFile.
#include "BridgeTesting.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class TlsTest : public BridgeServerTest {
protected:
    bool withTls() const override { return true; }

    QVariantMap tls(const QVariantMap& extra = {}) const {
        QVariantMap keys{{QStringLiteral("security"), QStringLiteral("tls")},
                         {QStringLiteral("port"), server.tlsPort()}};
        keys.insert(extra);
        return accountKeys(keys);
    }
    QVariantMap startTls(const QVariantMap& extra = {}) const {
        QVariantMap keys{{QStringLiteral("security"), QStringLiteral("starttls")},
                         {QStringLiteral("port"), server.port()}};
        keys.insert(extra);
        return accountKeys(keys);
    }

    // Dovecot logs a connection when it ends; waits (bounded) until `count` have ended without
    // a login attempt.
    bool connectionsEndedWithoutLogin(int count) const {
        const QDeadlineTimer deadline(15000);
        while (!deadline.hasExpired()) {
            if (server.log().count(QLatin1String("no auth attempts")) >= count)
                return true;
            QThread::msleep(50);
        }
        return false;
    }
};

TEST_F(TlsTest, TlsAndStartTlsSyncWhenCaFileNamesTheServersAuthority) {
    deliver(QStringLiteral("Over TLS"));
    for (const QVariantMap& keys :
         {tls({{"caFile", server.caFile()}}), startTls({{"caFile", server.caFile()}})}) {
        const QString config = writeConfig({{QStringLiteral("work"), keys}});
        const BridgeRun check = runBridge({QStringLiteral("check")}, config);
        EXPECT_EQ(check.exitCode, 0) << check.out.toStdString();
        EXPECT_EQ(check.out, QStringLiteral("work: ok\n"))
            << keys.value("security").toString().toStdString() << ": " << check.out.toStdString()
            << check.err.toStdString();
        const BridgeRun once = runBridge({QStringLiteral("--once")}, config);
        EXPECT_EQ(once.exitCode, 0) << once.err.toStdString();
        const ExtensionMessageList messages = widgetMessages();
        ASSERT_EQ(messages.size(), 1);
        EXPECT_EQ(messages.first()->subject(), QStringLiteral("Over TLS"));
    }
    // Every login went through TLS: the server requires it, so none was refused for want of it.
    EXPECT_FALSE(server.log().contains(QLatin1String("Plaintext authentication disallowed")));
}

TEST_F(TlsTest, ARelativeCaFileIsFoundBesideTheConfig) {
    ASSERT_TRUE(QFile::copy(server.caFile(), configDir.filePath(QStringLiteral("company-ca.pem"))));
    const QString config = writeConfig({{QStringLiteral("work"), tls({{"caFile", "company-ca.pem"}})}});
    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.out, QStringLiteral("work: ok\n")) << check.out.toStdString() << check.err.toStdString();
}

TEST_F(TlsTest, WithoutCaFileTheCertificateIsRefusedBeforeThePasswordIsSent) {
    int refused = 0;
    for (const QVariantMap& keys : {tls(), startTls()}) {
        const QString config = writeConfig({{QStringLiteral("work"), keys}});
        const BridgeRun check = runBridge({QStringLiteral("check")}, config);
        EXPECT_EQ(check.exitCode, 1);
        EXPECT_EQ(check.out,
                  QStringLiteral("work: certificate of 127.0.0.1 not trusted: O=Corvina tests,CN=localhost "
                                 "issued by O=Corvina tests,CN=Corvina test authority, which is not a "
                                 "trusted authority\n"))
            << keys.value("security").toString().toStdString() << ": " << check.out.toStdString();
        const BridgeRun once = runBridge({QStringLiteral("--once")}, config);
        EXPECT_EQ(once.exitCode, 1);
        EXPECT_TRUE(once.err.startsWith(QStringLiteral("work: certificate of 127.0.0.1 not trusted: ")))
            << once.err.toStdString();
        refused += 2;
    }
    EXPECT_TRUE(widgetMessages().isEmpty());
    // Each connection ended without a login: the password never left the bridge.
    EXPECT_TRUE(connectionsEndedWithoutLogin(refused)) << server.log().toStdString();
    EXPECT_FALSE(server.log().contains(QStringLiteral("user=<%1>").arg(User))) << server.log().toStdString();
}

TEST_F(TlsTest, ACaFileOfAnotherAuthorityIsRefused) {
    DovecotServer other;
    QString error;
    ASSERT_TRUE(other.enableTls(&error)) << error.toStdString();
    const QString config = writeConfig({{QStringLiteral("work"), tls({{"caFile", other.caFile()}})}});
    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(check.out,
              QStringLiteral("work: certificate of 127.0.0.1 not trusted: O=Corvina tests,CN=localhost "
                             "issued by O=Corvina tests,CN=Corvina test authority, which is not in caFile "
                             "%1\n")
                  .arg(other.caFile()))
        << check.out.toStdString();
}

TEST_F(TlsTest, ACertificateForAnotherNameIsRefused) {
    // The server's certificate names 127.0.0.1 and localhost; the same server under another name
    // of this computer is not what it was issued for.
    const QString config =
        writeConfig({{QStringLiteral("work"), tls({{"caFile", server.caFile()}, {"host", "127.0.0.2"}})}});
    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(check.out,
              QStringLiteral("work: certificate of 127.0.0.2 not trusted: O=Corvina tests,CN=localhost "
                             "made for another name than 127.0.0.2\n"))
        << check.out.toStdString();
}

TEST_F(TlsTest, AMissingCaFileIsAProblemOfTheConfig) {
    const QString config = writeConfig({{QStringLiteral("work"), tls({{"caFile", "/nonexistent/ca.pem"}})}});
    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(check.out, QStringLiteral("work: caFile /nonexistent/ca.pem cannot be read\n"));
}

TEST_F(TlsTest, PlainImapToAnotherComputerIsRefusedWithoutConnecting) {
    const QString config = writeConfig(
        {{QStringLiteral("work"), accountKeys({{"host", "imap.example.org"}, {"security", "none"}})}});
    const BridgeRun check = runBridge({QStringLiteral("check")}, config);
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(check.out,
              QStringLiteral(
                  "work: security none is only allowed for 127.0.0.1 or localhost, not imap.example.org\n"));
    const BridgeRun once = runBridge({QStringLiteral("--once")}, config);
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_EQ(once.err,
              QStringLiteral(
                  "work: security none is only allowed for 127.0.0.1 or localhost, not imap.example.org\n"));
}

} // namespace
} // namespace corvina::test
