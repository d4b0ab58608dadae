// The command centre's word to the person when a command fails: a desktop notification whose
// title is in the person's language, with the log's line under it. No IMAP server is needed: a
// command for an account the bridge does not know fails before any connection.
#include "bridge/commands/CommandCenter.h"

#include "BridgeTesting.h"
#include "bridge/config/BridgeConfig.h"
#include "model/CommandKind.h"
#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"
#include "support/ScopedZone.h"
#include "support/WidgetTesting.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;
using corvina::test::drain;
using corvina::test::NotificationRecorder;
using corvina::test::PrivateSessionBus;
using corvina::test::ScopedLanguage;

namespace {

const QLocale German(QLocale::German, QLocale::Germany);
const QLocale French(QLocale::French, QLocale::France);
const QLocale English(QLocale::English, QLocale::UnitedStates);

class CommandCenterTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
        recorder = std::make_unique<NotificationRecorder>(bus->address());
        ASSERT_TRUE(recorder->isRegistered());
        ASSERT_TRUE(dir.isValid());
    }

    // A centre with no accounts (bridge.conf is missing) and no passwords.
    std::unique_ptr<CommandCenter> center() const {
        return std::make_unique<CommandCenter>(
            BridgeConfig::load(configPath()),
            [](const BridgeConfig::Account&, QString* error) -> std::optional<QString> {
                *error = QStringLiteral("no password in this test");
                return std::nullopt;
            },
            5, dir.filePath(QStringLiteral("cache")));
    }

    QString configPath() const { return dir.filePath(QStringLiteral("bridge.conf")); }

    PrivateSessionBus* bus = nullptr;
    std::unique_ptr<NotificationRecorder> recorder;
    QTemporaryDir dir;
};

} // namespace

TEST_F(CommandCenterTest, AFailedCommandIsNotifiedWithItsTitleInThePersonsLanguage) {
    const ScopedLanguage language(German);
    const std::unique_ptr<CommandCenter> commands = center();
    QSignalSpy logged(commands.get(), &CommandCenter::log);
    QSignalSpy done(commands.get(), &CommandCenter::commandDone);
    commands->open({QStringLiteral("corvina://archive?mail=nobody%40example.org&messageid=INBOX/1/1&"
                                   "folderstandardid=1")},
                   {});
    ASSERT_TRUE(drain([&] { return !recorder->notifications().isEmpty(); }, 15000));

    const QString line =
        QStringLiteral("archive: no account with the mail nobody@example.org in ") + configPath();
    const NotificationRecorder::Notification shown = recorder->notifications().first();
    EXPECT_EQ(shown.summary, QStringLiteral("Die Nachricht konnte nicht archiviert werden"));
    // The line under it is the log's, which stays in English.
    EXPECT_EQ(shown.body, line);
    ASSERT_EQ(logged.size(), 1);
    EXPECT_EQ(logged.at(0).at(0).toString(), line);
    // The status file hears the command by its name.
    ASSERT_EQ(done.size(), 1);
    EXPECT_EQ(done.at(0).at(0).value<CommandKind>(), CommandKind::Archive);
    EXPECT_EQ(done.at(0).at(1).toString(), QStringLiteral("nobody@example.org"));
    EXPECT_FALSE(done.at(0).at(2).toBool());
    EXPECT_EQ(done.at(0).at(3).toString(), line);
    EXPECT_TRUE(commands->isIdle());
}

TEST_F(CommandCenterTest, InEnglishTheTitleIsTheKeyItself) {
    const ScopedLanguage language(English);
    const std::unique_ptr<CommandCenter> commands = center();
    commands->open({QStringLiteral("corvina://delete?mail=nobody%40example.org&messageid=INBOX/1/1&"
                                   "folderstandardid=1")},
                   {});
    ASSERT_TRUE(drain([&] { return !recorder->notifications().isEmpty(); }, 15000));
    EXPECT_EQ(recorder->notifications().first().summary,
              QStringLiteral("Could not move the message to the trash"));
}

TEST(CommandCenterTitles, EachKindHasItsTitleInGermanAndFrench) {
    struct Case {
        CommandKind kind;
        const char* english;
        const char* german;
        const char* french;
    };
    const Case cases[] = {
        {CommandKind::Archive, "Could not archive the message",
         "Die Nachricht konnte nicht archiviert werden", "Impossible d\u2019archiver le message"},
        {CommandKind::Delete, "Could not move the message to the trash",
         "Die Nachricht konnte nicht in den Papierkorb verschoben werden",
         "Impossible de mettre le message \u00e0 la corbeille"},
        {CommandKind::Open, "Could not open the message", "Die Nachricht konnte nicht ge\u00f6ffnet werden",
         "Impossible d\u2019ouvrir le message"},
        {CommandKind::Reply, "Could not start a reply", "Die Antwort konnte nicht begonnen werden",
         "Impossible de commencer la r\u00e9ponse"},
        {CommandKind::Compose, "Could not hand the message to your mail client",
         "Die Nachricht konnte nicht an das Mailprogramm \u00fcbergeben werden",
         "Impossible de transmettre le message au logiciel de messagerie"},
    };
    for (const Case& c : cases) {
        const std::string name = commandName(c.kind).toStdString();
        {
            const ScopedLanguage language(English);
            EXPECT_EQ(CommandCenter::failureTitle(c.kind), QString::fromUtf8(c.english)) << name;
        }
        {
            const ScopedLanguage language(German);
            EXPECT_EQ(CommandCenter::failureTitle(c.kind), QString::fromUtf8(c.german)) << name;
        }
        {
            const ScopedLanguage language(French);
            EXPECT_EQ(CommandCenter::failureTitle(c.kind), QString::fromUtf8(c.french)) << name;
        }
    }
}

// The running bridge read bridge.conf again: the commands follow the accounts it names now.
TEST_F(CommandCenterTest, TheCommandsFollowTheAccountsOfAConfigReadAgain) {
    const std::unique_ptr<CommandCenter> commands = center();
    QSignalSpy done(commands.get(), &CommandCenter::commandDone);
    const QString url =
        QStringLiteral("corvina://archive?mail=bob%40example.org&messageid=INBOX/1/1&folderstandardid=1");
    commands->open({url}, {});
    ASSERT_TRUE(drain([&] { return done.size() == 1; }, 15000));
    EXPECT_EQ(done.at(0).at(3).toString(),
              QStringLiteral("archive: no account with the mail bob@example.org in ") + configPath());

    // Added, turned off: the command is refused for that reason now, not for an unknown address.
    {
        QFile file(configPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[bob]\nmail = bob@example.org\nhost = 127.0.0.1\nsecurity = none\nport = 143\n"
                   "enabled = false\n");
    }
    commands->setConfig(BridgeConfig::load(configPath()));
    commands->open({url}, {});
    ASSERT_TRUE(drain([&] { return done.size() == 2; }, 15000));
    EXPECT_EQ(done.at(1).at(3).toString(),
              QStringLiteral("archive: account bob (bob@example.org) is disabled in ") + configPath());
    EXPECT_TRUE(commands->isIdle());
}
