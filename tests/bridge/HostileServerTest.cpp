// corvina-mail-bridge against a server that breaks or lies: the scripted server of
// tests/support/programs/hostile_imap.py (a stand-in, see HostileServer.h), beside the test's own
// Dovecot for the accounts that behave. Every run is --once or check with --timeout 5, as a person
// (or a timer) runs them; each must end within the bound, in bounded memory, with one line that
// says what happened, and leave the last good snapshot as it was.
#include "HostileServer.h"

#include "BridgeTesting.h"
#include "bridge/imap/ImapSession.h"
#include "shared/ConstVars.h"
#include "support/ProgramRunner.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>
#include <chrono>
#include <gtest/gtest.h>
#include <iostream>

namespace corvina::test {
namespace {

using namespace std::chrono_literals;

constexpr int TimeoutSeconds = 5;
// What a run may take at most: the timeout, and a generous margin for a machine kept busy.
constexpr auto Bound = std::chrono::seconds(TimeoutSeconds + 4);
// A run that hangs is killed here, well past the bound, so that the test fails instead of waiting.
constexpr auto Deadline = 40s;
constexpr qint64 MemoryBoundKiB = 200 * 1024;

const QString HostileMail = QStringLiteral("hostile@example.org");

class HostileServerTest : public BridgeServerTest {
protected:
    void SetUp() override {
        BridgeServerTest::SetUp();
        ASSERT_TRUE(state.isValid());
    }

    // The keys of an account on the scripted server listening on `port`.
    QVariantMap hostileKeys(quint16 port, const QVariantMap& extra = {}) const {
        QVariantMap keys = accountKeys({{"mail", HostileMail}, {"port", port}});
        keys.insert(extra);
        return keys;
    }

    ProgramRunner::Outcome run(const QStringList& arguments, const QString& config) const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
        return ProgramRunner::run(QStringLiteral(CORVINA_BRIDGE_BINARY),
                                  QStringList{QStringLiteral("--config"), config, QStringLiteral("--timeout"),
                                              QString::number(TimeoutSeconds)} +
                                      arguments,
                                  Deadline, environment);
    }

    QString inboxPath(const QString& mail) const {
        return container.data() + u'/' + ConstVars::todayFolder + u'/' + mail +
               QStringLiteral("/inbox.plist");
    }

    static QByteArray contents(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // The hostile account's inbox as a behaving server of the same script makes it: three messages.
    QByteArray syncedInbox() {
        HostileServer honest;
        QString error;
        EXPECT_TRUE(honest.start({}, &error)) << error.toStdString();
        const ProgramRunner::Outcome first = run(
            {QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), hostileKeys(honest.port())}}));
        EXPECT_TRUE(first.exitedWith(0)) << first.err.toStdString();
        const QByteArray inbox = contents(inboxPath(HostileMail));
        EXPECT_TRUE(inbox.contains("Message 3")) << inbox.toStdString();
        return inbox;
    }

    // The account's entry in the status file.
    QJsonObject status(const QString& account) const {
        const QByteArray json = contents(state.filePath(QStringLiteral("corvina/bridge-status.json")));
        return QJsonDocument::fromJson(json)
            .object()[QStringLiteral("accounts")]
            .toObject()[account]
            .toObject();
    }

    static void expectWithinBound(const ProgramRunner::Outcome& outcome) {
        EXPECT_TRUE(outcome.started);
        EXPECT_FALSE(outcome.timedOut) << "still running after " << Deadline.count() << " s";
        EXPECT_EQ(outcome.signal, 0) << "ended by signal " << outcome.signal;
        EXPECT_LE(outcome.elapsed, Bound) << outcome.elapsed.count() << " ms";
    }

    QTemporaryDir state;
};

TEST_F(HostileServerTest, AResetDuringOnceCostsThatAccountALineAndTheNextAccountStillSyncs) {
    HostileServer hostile;
    QString error;
    ASSERT_TRUE(hostile.start({QStringLiteral("--mode"), QStringLiteral("reset")}, &error))
        << error.toStdString();
    deliver(QStringLiteral("Still here"));
    // Accounts are taken in the order of their names: the broken one first.
    const QString config = writeConfig({{QStringLiteral("a-broken"), hostileKeys(hostile.port())},
                                        {QStringLiteral("b-work"), accountKeys()}});
    const ProgramRunner::Outcome once = run({QStringLiteral("--once")}, config);
    expectWithinBound(once);
    EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
    const QString line =
        QStringLiteral("the server 127.0.0.1:%1 reset the connection during FETCH").arg(hostile.port());
    EXPECT_EQ(QString::fromUtf8(once.err), QStringLiteral("a-broken: ") + line + u'\n');
    EXPECT_FALSE(status(QStringLiteral("a-broken"))[QStringLiteral("ok")].toBool(true));
    EXPECT_EQ(status(QStringLiteral("a-broken"))[QStringLiteral("lastError")].toString(), line);
    EXPECT_TRUE(status(QStringLiteral("b-work"))[QStringLiteral("ok")].toBool());
    const ExtensionMessageList messages = widgetMessages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages.first()->subject(), QStringLiteral("Still here"));
}

TEST_F(HostileServerTest, AResetDuringCheckCostsThatAccountALine) {
    HostileServer hostile;
    QString error;
    ASSERT_TRUE(hostile.start({QStringLiteral("--mode"), QStringLiteral("reset"), QStringLiteral("--at"),
                               QStringLiteral("EXAMINE")},
                              &error))
        << error.toStdString();
    const QString config = writeConfig({{QStringLiteral("a-broken"), hostileKeys(hostile.port())},
                                        {QStringLiteral("b-work"), accountKeys()}});
    const ProgramRunner::Outcome check = run({QStringLiteral("check")}, config);
    expectWithinBound(check);
    EXPECT_TRUE(check.exitedWith(1)) << check.exitCode;
    EXPECT_EQ(QString::fromUtf8(check.out),
              QStringLiteral("a-broken: the server 127.0.0.1:%1 reset the connection during EXAMINE INBOX\n"
                             "b-work: ok\n")
                  .arg(hostile.port()));
}

TEST_F(HostileServerTest, APasswordCommandThatPrintsTenMegabytesIsRefusedAndTheNextAccountStillSyncs) {
    deliver(QStringLiteral("Still here"));
    const QString config = writeConfig(
        {{QStringLiteral("a-big"),
          accountKeys({{"mail", HostileMail},
                       {"passwordCommand", "python3 -c \"import sys; sys.stdout.write('a' * 10485760)\""}})},
         {QStringLiteral("b-work"), accountKeys()}});
    const ProgramRunner::Outcome once = run({QStringLiteral("--once")}, config);
    expectWithinBound(once);
    EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
    const QString line = QStringLiteral("passwordCommand python3 printed more than 65536 bytes");
    EXPECT_EQ(QString::fromUtf8(once.err), QStringLiteral("a-big: ") + line + u'\n');
    EXPECT_EQ(status(QStringLiteral("a-big"))[QStringLiteral("lastError")].toString(), line);
    ASSERT_EQ(widgetMessages().size(), 1);
}

TEST_F(HostileServerTest, AServerAnsweringAByteASecondIsGivenUpWithinTheTimeout) {
    const QByteArray before = syncedInbox();
    HostileServer hostile;
    QString error;
    ASSERT_TRUE(hostile.start({QStringLiteral("--mode"), QStringLiteral("trickle")}, &error))
        << error.toStdString();
    const QString config = writeConfig({{QStringLiteral("work"), hostileKeys(hostile.port())}});
    const QString line =
        QStringLiteral("the server 127.0.0.1:%1 did not answer within 5 s (LOGIN)").arg(hostile.port());

    const ProgramRunner::Outcome check = run({QStringLiteral("check")}, config);
    expectWithinBound(check);
    EXPECT_TRUE(check.exitedWith(1)) << check.exitCode;
    EXPECT_EQ(QString::fromUtf8(check.out), QStringLiteral("work: ") + line + u'\n');

    const ProgramRunner::Outcome once = run({QStringLiteral("--once")}, config);
    expectWithinBound(once);
    EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
    EXPECT_EQ(QString::fromUtf8(once.err), QStringLiteral("work: ") + line + u'\n');
    EXPECT_EQ(status(QStringLiteral("work"))[QStringLiteral("lastError")].toString(), line);
    EXPECT_EQ(contents(inboxPath(HostileMail)), before);
}

TEST_F(HostileServerTest, WithoutADeadlineForTheAttemptEachCommandStillHasTheTimeout) {
    // The foreground mode sets no deadline for a whole attempt (its waits in IDLE are long on
    // purpose); a command's answer must still be over within the timeout, not only each byte of it.
    HostileServer hostile;
    QString error;
    ASSERT_TRUE(hostile.start({QStringLiteral("--mode"), QStringLiteral("trickle")}, &error))
        << error.toStdString();
    ImapSession session(
        {QStringLiteral("127.0.0.1"), hostile.port(), BridgeConfig::Security::None, 2, QString()});
    ASSERT_TRUE(session.connectToServer()) << session.errorText().toStdString();
    QElapsedTimer clock;
    clock.start();
    EXPECT_FALSE(session.login(User, Password));
    EXPECT_LE(clock.elapsed(), (2 + 4) * 1000);
    EXPECT_EQ(session.failure(), ImapSession::Failure::ConnectionLost);
    EXPECT_EQ(
        session.errorText(),
        QStringLiteral("the server 127.0.0.1:%1 did not answer within 2 s (LOGIN)").arg(hostile.port()));
    EXPECT_FALSE(session.isConnected());
}

TEST_F(HostileServerTest, AFloodOfUnaskedAnswersFailsTheSyncInBoundedMemory) {
    const QByteArray before = syncedInbox();
    struct Case {
        QStringList mode;
        QVariantMap keys;
        QString line; // %1: the port
    };
    const QList<Case> cases{
        // Two MiB, and a kilobyte for each of the three messages asked for.
        {{QStringLiteral("--mode"), QStringLiteral("flood"), QStringLiteral("--count"),
          QStringLiteral("200000")},
         {},
         QStringLiteral("sent more than 2100224 bytes in answer to FETCH")},
        // Ten thousand answers besides the three asked for.
        {{QStringLiteral("--mode"), QStringLiteral("lines"), QStringLiteral("--count"),
          QStringLiteral("2000000")},
         {},
         QStringLiteral("sent more than 10003 answers to FETCH")},
        // Answers of 200 recipients each, at the largest `messages`: the byte budget ends it.
        {{QStringLiteral("--mode"), QStringLiteral("flood"), QStringLiteral("--count"),
          QStringLiteral("200000"), QStringLiteral("--recipients"), QStringLiteral("200")},
         {{"messages", 1000}},
         QStringLiteral("sent more than 2100224 bytes in answer to FETCH")},
        // The densest answer for libetpan's memory: lines of one-letter words.
        {{QStringLiteral("--mode"), QStringLiteral("words"), QStringLiteral("--count"),
          QStringLiteral("10000000")},
         {},
         QStringLiteral("sent more than 2097152 bytes in answer to LOGIN")},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.mode.join(u' ').toStdString());
        HostileServer hostile;
        QString error;
        ASSERT_TRUE(hostile.start(test.mode, &error)) << error.toStdString();
        const ProgramRunner::Outcome once =
            run({QStringLiteral("--once")},
                writeConfig({{QStringLiteral("work"), hostileKeys(hostile.port(), test.keys)}}));
        expectWithinBound(once);
        EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
        EXPECT_EQ(once.err.toStdString(),
                  (QStringLiteral("work: the server 127.0.0.1:%1 ").arg(hostile.port()) + test.line + u'\n')
                      .toStdString());
        if (ProgramRunner::memoryIsMeaningful()) {
            EXPECT_GT(once.peakRssKiB, 0);
            EXPECT_LT(once.peakRssKiB, MemoryBoundKiB);
        }
        std::cout << "[ figures  ] " << test.mode.join(u' ').toStdString() << ": " << once.elapsed.count()
                  << " ms, peak " << once.peakRssKiB << " KiB\n";
        EXPECT_EQ(contents(inboxPath(HostileMail)), before);
    }
}

TEST_F(HostileServerTest, NegativeAndHugeUidsFailTheSyncAndKeepTheLastSnapshot) {
    const QByteArray before = syncedInbox();
    // -5 is no number at all; 10^20 wraps around 32 bits in the parser, to a number that is not
    // below the folder's next UID.
    for (const QString& uid : {QStringLiteral("-5"), QStringLiteral("100000000000000000000")}) {
        SCOPED_TRACE(uid.toStdString());
        HostileServer hostile;
        QString error;
        ASSERT_TRUE(hostile.start(
            {QStringLiteral("--mode"), QStringLiteral("uid"), QStringLiteral("--uid"), uid}, &error))
            << error.toStdString();
        const ProgramRunner::Outcome once = run(
            {QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), hostileKeys(hostile.port())}}));
        expectWithinBound(once);
        EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
        const QString err = QString::fromUtf8(once.err);
        EXPECT_TRUE(err.startsWith(QStringLiteral("work: the server 127.0.0.1:%1 ").arg(hostile.port())))
            << err.toStdString();
        EXPECT_EQ(err.count(u'\n'), 1) << err.toStdString();
        EXPECT_EQ(status(QStringLiteral("work"))[QStringLiteral("lastError")].toString() + u'\n',
                  err.mid(QStringLiteral("work: ").size()));
        EXPECT_EQ(contents(inboxPath(HostileMail)), before);
    }
}

TEST_F(HostileServerTest, AnUntrustedCertificateIsToldNothingAfterTheHandshake) {
    // A certificate of its own, which no authority the bridge trusts has issued.
    QTemporaryDir tls;
    ASSERT_TRUE(tls.isValid());
    QProcess openssl;
    openssl.setWorkingDirectory(tls.path());
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                   QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-keyout"),
                   QStringLiteral("key.pem"), QStringLiteral("-out"), QStringLiteral("cert.pem"),
                   QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                   QStringLiteral("/CN=localhost"), QStringLiteral("-addext"),
                   QStringLiteral("subjectAltName=IP:127.0.0.1,DNS:localhost")});
    ASSERT_TRUE(openssl.waitForFinished(60000));
    ASSERT_EQ(openssl.exitCode(), 0) << openssl.readAll().toStdString();

    for (const QString& command : {QStringLiteral("check"), QStringLiteral("--once")}) {
        SCOPED_TRACE(command.toStdString());
        const QString record =
            tls.filePath(command.mid(command.lastIndexOf(u'-') + 1) + QStringLiteral(".received"));
        HostileServer recorder;
        QString error;
        ASSERT_TRUE(recorder.start({QStringLiteral("--cert"), tls.filePath(QStringLiteral("cert.pem")),
                                    QStringLiteral("--key"), tls.filePath(QStringLiteral("key.pem")),
                                    QStringLiteral("--record"), record},
                                   &error))
            << error.toStdString();
        const QString config =
            writeConfig({{QStringLiteral("work"), hostileKeys(recorder.port(), {{"security", "tls"}})}});
        const ProgramRunner::Outcome outcome = run({command}, config);
        expectWithinBound(outcome);
        EXPECT_TRUE(outcome.exitedWith(1)) << outcome.exitCode;
        EXPECT_TRUE(QString::fromUtf8(outcome.out + outcome.err)
                        .startsWith(QStringLiteral("work: certificate of 127.0.0.1 not trusted: ")))
            << outcome.out.toStdString() << outcome.err.toStdString();
        // The recorder notes when the bridge has gone; then it holds all that was said.
        for (int i = 0; i < 200 && !QFile::exists(record + QStringLiteral(".ended")); ++i)
            QThread::msleep(50);
        ASSERT_TRUE(QFile::exists(record + QStringLiteral(".ended")));
        EXPECT_EQ(contents(record), QByteArray())
            << "received after the handshake: " << contents(record).toStdString();
    }
}

// libetpan reads a literal until it has all of it; a stream that only says "nothing more" would
// keep it asking at full speed until the deadline (the fuzz target's stream found it).
TEST_F(HostileServerTest, AServerThatClosesInsideALiteralFailsTheSyncAtOnce) {
    const QByteArray before = syncedInbox();
    HostileServer hostile;
    QString error;
    ASSERT_TRUE(hostile.start({QStringLiteral("--mode"), QStringLiteral("cut")}, &error))
        << error.toStdString();
    const ProgramRunner::Outcome once =
        run({QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), hostileKeys(hostile.port())}}));
    expectWithinBound(once);
    // Well within the timeout: the end of the connection is seen as such, not waited out.
    EXPECT_LT(once.elapsed, std::chrono::seconds(TimeoutSeconds)) << once.elapsed.count() << " ms";
    EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
    EXPECT_EQ(QString::fromUtf8(once.err),
              QStringLiteral("work: the server 127.0.0.1:%1 closed the connection during FETCH\n")
                  .arg(hostile.port()));
    EXPECT_EQ(contents(inboxPath(HostileMail)), before);
}

// libetpan reserves a literal's whole announced size before it reads any of it. A literal that
// cannot fit in what the command may receive ends the answer at its announcement, at once, instead
// of four gigabytes being reserved and the rest waited for until the timeout.
TEST_F(HostileServerTest, ALiteralAnnouncedLargerThanTheAnswerMayBeFailsTheSyncAtOnce) {
    const QByteArray before = syncedInbox();
    // the largest 32-bit size, the smallest that cannot fit after the line announcing it, and a
    // size of more digits than any number holds
    for (const QString& size : {QStringLiteral("4294967295"), QStringLiteral("2100224"),
                                QStringLiteral("99999999999999999999999999999999999999")}) {
        SCOPED_TRACE(size.toStdString());
        HostileServer hostile;
        QString error;
        ASSERT_TRUE(hostile.start(
            {QStringLiteral("--mode"), QStringLiteral("huge-literal"), QStringLiteral("--count"), size},
            &error))
            << error.toStdString();
        const ProgramRunner::Outcome once = run(
            {QStringLiteral("--once")}, writeConfig({{QStringLiteral("work"), hostileKeys(hostile.port())}}));
        expectWithinBound(once);
        EXPECT_LT(once.elapsed, std::chrono::seconds(TimeoutSeconds)) << once.elapsed.count() << " ms";
        EXPECT_TRUE(once.exitedWith(1)) << once.exitCode;
        EXPECT_EQ(
            once.err.toStdString(),
            QStringLiteral("work: the server 127.0.0.1:%1 sent more than 2100224 bytes in answer to FETCH\n")
                .arg(hostile.port())
                .toStdString());
        if (ProgramRunner::memoryIsMeaningful()) {
            EXPECT_LT(once.peakRssKiB, MemoryBoundKiB);
        }
        EXPECT_EQ(contents(inboxPath(HostileMail)), before);
    }
}

TEST_F(HostileServerTest, AServerThatClosesAtOnceIsSaidToHaveClosed) {
    HostileServer hostile;
    QString error;
    ASSERT_TRUE(hostile.start({QStringLiteral("--mode"), QStringLiteral("close")}, &error))
        << error.toStdString();
    const ProgramRunner::Outcome check =
        run({QStringLiteral("check")}, writeConfig({{QStringLiteral("work"), hostileKeys(hostile.port())}}));
    expectWithinBound(check);
    EXPECT_TRUE(check.exitedWith(1)) << check.exitCode;
    EXPECT_EQ(
        QString::fromUtf8(check.out),
        QStringLiteral("work: host unreachable: 127.0.0.1:%1 (the server closed the connection before its "
                       "greeting)\n")
            .arg(hostile.port()));
}

} // namespace
} // namespace corvina::test
