// An account's command worker against a real Dovecot: the connection kept for the next command and
// closed by the worker's idle timer after a while without one.
#include "bridge/commands/CommandWorker.h"

#include "BridgeTesting.h"
#include "bridge/imap/ImapSession.h"
#include "bridge/sync/AccountSync.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <atomic>
#include <csignal>

namespace corvina::test {
namespace {

class CommandWorkerTest : public BridgeServerTest {
protected:
    void SetUp() override {
        // As the bridge does when it starts: a write to a closed connection fails instead of ending
        // the process.
        std::signal(SIGPIPE, SIG_IGN);
        server.setRecordSessions(true);
        BridgeServerTest::SetUp();
    }

    // The identifier the bridge lists the message with that subject under, read from the server.
    QString idOf(const QString& subject) {
        const QString folder = QStringLiteral("INBOX");
        ImapSession session({server.host(), server.port(), BridgeConfig::Security::None, 10, QString()});
        if (!session.connectToServer() || !session.login(User, Password))
            return QString();
        const std::optional<ImapSession::Folder> opened = session.examine(folder);
        const auto envelopes = opened ? session.fetchNewest(1000) : std::nullopt;
        if (!envelopes)
            return QString();
        for (const ImapSession::Envelope& envelope : *envelopes) {
            if (envelope.subject == subject)
                return AccountSync::messageIdFor(folder, opened->uidValidity, envelope.uid);
        }
        return QString();
    }

    // A worker for ada that counts how often it asks for the password: once per connection made.
    std::unique_ptr<CommandWorker> makeWorker() {
        auto worker = std::make_unique<CommandWorker>(
            account(), cache.path(), 10,
            [this](const BridgeConfig::Account&, QString*) -> std::optional<QString> {
                ++passwordsAsked;
                return Password;
            });
        QObject::connect(worker.get(), &CommandWorker::finished, worker.get(),
                         [this](int, const MessageCommand::Outcome& outcome) { outcomes << outcome; });
        return worker;
    }

    // Turns the event loop until `condition` holds, at most 20 s.
    template <typename Condition> static bool turnUntil(Condition condition) {
        QDeadlineTimer deadline(20000);
        while (!condition() && !deadline.hasExpired()) {
            QEventLoop loop;
            QTimer::singleShot(20, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return condition();
    }

    int logouts() const { return static_cast<int>(server.clientCommands().count("LOGOUT")); }

    QTemporaryDir cache;
    std::atomic<int> passwordsAsked = 0;
    QList<MessageCommand::Outcome> outcomes;
};

TEST_F(CommandWorkerTest, CommandsInARowShareOneConnection) {
    deliver(QStringLiteral("Open me"));
    const QString id = idOf(QStringLiteral("Open me"));
    ASSERT_FALSE(id.isEmpty());
    const int before = logouts();
    auto worker = makeWorker();
    worker->enqueue(MessageCommand::Action::Open, id, 1);
    worker->enqueue(MessageCommand::Action::Open, id, 2);
    ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 2; }));
    EXPECT_TRUE(outcomes.at(0).ok) << outcomes.at(0).error.toStdString();
    EXPECT_TRUE(outcomes.at(1).ok) << outcomes.at(1).error.toStdString();
    EXPECT_EQ(passwordsAsked, 1);
    EXPECT_EQ(logouts(), before) << "the connection was closed between the commands";
}

TEST_F(CommandWorkerTest, AConnectionWithoutCommandsIsClosedAfterTheIdleTimeAndMadeAgainForTheNext) {
    deliver(QStringLiteral("Open me"));
    const QString id = idOf(QStringLiteral("Open me"));
    ASSERT_FALSE(id.isEmpty());
    const int before = logouts();
    auto worker = makeWorker();
    worker->setIdleCloseMs(50);
    worker->enqueue(MessageCommand::Action::Open, id, 1);
    ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 1; }));
    EXPECT_TRUE(outcomes.at(0).ok) << outcomes.at(0).error.toStdString();
    // The worker says goodbye to the server once the idle time has passed.
    ASSERT_TRUE(turnUntil([&] { return logouts() == before + 1; })) << server.clientCommands().toStdString();

    worker->enqueue(MessageCommand::Action::Open, id, 2);
    ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 2; }));
    EXPECT_TRUE(outcomes.at(1).ok) << outcomes.at(1).error.toStdString();
    EXPECT_EQ(passwordsAsked, 2) << "no new connection for the second command";
}

} // namespace
} // namespace corvina::test
