// corvina-mail-bridge as the mail application: the widget's own launch code sends its command URLs
// over a private session bus, the bus starts the bridge from its service file (or a running bridge
// takes them), and each command's effect is checked on a real Dovecot and at a recorder mail client
// reached through the real xdg-utils.
#include "BridgeTesting.h"
#include "bridge/service/CommandService.h"
#include "bridge/sync/AccountSync.h"
#include "model/ExtensionAddress.h"
#include "model/ExtensionMessage.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "support/MailDesktop.h"
#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"
#include "support/XServer.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <csignal>
#include <functional>

namespace corvina::test {
namespace {

constexpr int WaitMs = 15000;

// Waits for `condition`, keeping this thread's event loop going meanwhile: the test's own
// notification service answers the bridge's calls on it.
bool waitFor(const std::function<bool()>& condition, int timeoutMs = WaitMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(10);
    }
    return true;
}

QString readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

class BridgeHostTest : public BridgeServerTest {
protected:
    void SetUp() override {
        // The bus first: this process's own connection is made to it before anything changes the
        // environment (the mail desktop points xdg-utils' bus at nothing).
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
        BridgeServerTest::SetUp();
        if (HasFatalFailure())
            return;
        desktop = std::make_unique<MailDesktop>();
        desktop->installDefaultClient();
        // The mail application's desktop file as installed: D-Bus activatable.
        QFile installed(QStringLiteral(CORVINA_SOURCE_DIR "/resources/desktop/org.corvina.mail.desktop"));
        ASSERT_TRUE(installed.open(QIODevice::ReadOnly));
        desktop->host().installDesktopFile(QStringLiteral("org.corvina.mail.desktop"), installed.readAll());
        config = writeConfig({{QStringLiteral("work"), accountKeys()}});
    }

    void TearDown() override {
        stopBridge();
        if (bus)
            bus->removeService(QLatin1String(CommandService::ServiceName));
    }

    // What the bridge runs with: the mail desktop, the test's shared folder, state and cache, and
    // the private bus.
    QProcessEnvironment bridgeEnvironment() const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
        env.insert(QStringLiteral("XDG_STATE_HOME"), stateDir.filePath(QStringLiteral("state")));
        env.insert(QStringLiteral("XDG_CACHE_HOME"), stateDir.filePath(QStringLiteral("cache")));
        return env;
    }

    // The bus starts the bridge when a command comes and no bridge runs, as the installed service
    // file says; its log goes to a file of the test's.
    void installActivatableBridge() {
        QStringList arguments{QStringLiteral("-i")};
        const QProcessEnvironment env = bridgeEnvironment();
        for (const QString& key : env.keys()) {
            const QString value = env.value(key);
            // The service file's Exec line is split at spaces; none of the test's values has one.
            if (!value.contains(u' ') && !value.contains(u'\'') && !value.contains(u'"') &&
                !value.contains(u'\\'))
                arguments << key + u'=' + value;
        }
        arguments << QStringLiteral("/bin/sh") << QStringLiteral("-c")
                  << QStringLiteral("'exec \"$0\" \"$@\" 2>>%1'").arg(logPath())
                  << QStringLiteral(CORVINA_BRIDGE_BINARY) << QStringLiteral("--config") << config
                  << QStringLiteral("--timeout") << QStringLiteral("10");
        bus->installService(QLatin1String(CommandService::ServiceName), QStringLiteral("/usr/bin/env"),
                            arguments);
    }

    QString logPath() const { return stateDir.filePath(QStringLiteral("bridge.log")); }
    QString log() const { return readAll(logPath()); }

    // The pid of whoever owns the mail application's name, or 0.
    static uint bridgePid() {
        const QDBusReply<uint> pid =
            QDBusConnection::sessionBus().interface()->servicePid(QLatin1String(CommandService::ServiceName));
        return pid.isValid() ? pid.value() : 0;
    }

    void stopBridge() {
        const uint pid = bridgePid();
        if (pid == 0)
            return;
        ::kill(static_cast<pid_t>(pid), SIGTERM);
        waitFor([] { return bridgePid() == 0; }, 5000);
    }

    // Fills the shared folder once, and answers the widget's record of the message with `subject`.
    ExtensionMessagePtr shownMessage(const QString& subject) {
        const BridgeRun run = runBridge({QStringLiteral("--once")}, config, {}, bridgeEnvironment());
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        for (const ExtensionMessagePtr& m : widgetMessages()) {
            if (m->subject() == subject && m->folderStandardId().toInt() == AccountSync::InboxStid)
                return m;
        }
        ADD_FAILURE() << "the widget does not show " << subject.toStdString();
        return nullptr;
    }

    static bool widgetShows(const QString& subject) {
        for (const ExtensionMessagePtr& m : widgetMessages()) {
            if (m->subject() == subject)
                return true;
        }
        return false;
    }

    QJsonObject status() const {
        return QJsonDocument::fromJson(
                   readAll(stateDir.filePath(QStringLiteral("state/corvina/bridge-status.json"))).toUtf8())
            .object();
    }

    // Delivers a message with a Message-ID of its own, which the server checks find it by;
    // answers the header's value.
    QString deliverWithId(const QString& subject, const QString& id,
                          const QString& date = QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000")) {
        server.deliver(User, QStringLiteral("INBOX"),
                       DovecotServer::message(subject, QStringLiteral("Grace <grace@example.org>"), date,
                                              u'<' + id + u'>'));
        // As the server's folders list it.
        return u'<' + id + u'>';
    }

    // The bridge in the foreground, as the systemd unit runs it, once it has the bus name and has
    // written the inbox.
    void startRunningBridge(QProcess& running, QString& output) {
        running.setProcessEnvironment(bridgeEnvironment());
        running.start(
            QStringLiteral(CORVINA_BRIDGE_BINARY),
            {QStringLiteral("--config"), config, QStringLiteral("--timeout"), QStringLiteral("10")});
        ASSERT_TRUE(running.waitForStarted(5000));
        ASSERT_TRUE(waitFor([&] {
            running.waitForReadyRead(10);
            output += QString::fromUtf8(running.readAllStandardError());
            return output.contains(
                       QStringLiteral("carrying out the widget's commands as org.corvina.mail")) &&
                   output.contains(QStringLiteral("work: synced"));
        })) << output.toStdString();
    }

    PrivateSessionBus* bus = nullptr;
    std::unique_ptr<MailDesktop> desktop;
    QTemporaryDir stateDir;
    QString config;
};

TEST_F(BridgeHostTest, ArchiveFromTheWidgetStartsTheBridgeMovesTheMessageAndTheListFollows) {
    installActivatableBridge();
    deliverWithId(QStringLiteral("Keep me"), QStringLiteral("keep@example.org"));
    const QString id = deliverWithId(QStringLiteral("Archive me"), QStringLiteral("archive@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Archive me"));
    ASSERT_TRUE(message);
    ASSERT_EQ(bridgePid(), 0u) << "no bridge runs before the command";

    // The widget's own launch code: the bus starts the bridge, which answers within the widget's bound.
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandArchive, true))
        << log().toStdString();
    EXPECT_NE(bridgePid(), 0u);

    ASSERT_TRUE(waitFor([&] { return server.messageIds(User, QStringLiteral("Archive")).contains(id); }))
        << log().toStdString();
    // The server copies before it removes: the message leaves the inbox a moment later.
    EXPECT_TRUE(waitFor([&] { return !server.messageIds(User, QStringLiteral("INBOX")).contains(id); }));
    EXPECT_TRUE(
        server.messageIds(User, QStringLiteral("INBOX")).contains(QStringLiteral("<keep@example.org>")));
    // The widget's next read no longer has it; the other message stays.
    ASSERT_TRUE(waitFor([&] { return !widgetShows(QStringLiteral("Archive me")); })) << log().toStdString();
    EXPECT_TRUE(widgetShows(QStringLiteral("Keep me")));
    EXPECT_TRUE(waitFor([&] {
        return status().value(QStringLiteral("lastCommand")).toObject().value(QStringLiteral("ok")).toBool();
    }));
    EXPECT_EQ(status().value(QStringLiteral("lastCommand")).toObject().value(QStringLiteral("command")),
              QStringLiteral("archive"));
}

TEST_F(BridgeHostTest, DeleteMovesTheMessageToTheTrashAndNeverDeletesItForGood) {
    installActivatableBridge();
    const QString id = deliverWithId(QStringLiteral("Delete me"), QStringLiteral("delete@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Delete me"));
    ASSERT_TRUE(message);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandDelete, true));
    ASSERT_TRUE(waitFor([&] { return server.messageIds(User, QStringLiteral("Trash")).contains(id); }))
        << log().toStdString();
    // The server copies before it removes: the message leaves the inbox a moment later.
    EXPECT_TRUE(waitFor([&] { return !server.messageIds(User, QStringLiteral("INBOX")).contains(id); }));
    EXPECT_TRUE(waitFor([&] { return !widgetShows(QStringLiteral("Delete me")); }));
}

TEST_F(BridgeHostTest, OpenHandsTheMessageToTheMailClientInFrontAndMarksItRead) {
    installActivatableBridge();
    const QString id = deliverWithId(QStringLiteral("Open me"), QStringLiteral("open@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Open me"));
    ASSERT_TRUE(message);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandOpen, false));

    const QList<HostLaunch> launches = desktop->waitForLaunches(1, WaitMs);
    ASSERT_EQ(launches.size(), 1) << log().toStdString();
    ASSERT_EQ(launches.at(0).arguments.size(), 1);
    const QString file = launches.at(0).arguments.at(0);
    EXPECT_TRUE(file.startsWith(stateDir.filePath(QStringLiteral("cache/corvina/messages/"))))
        << file.toStdString();
    EXPECT_TRUE(file.endsWith(QStringLiteral(".eml")));
    QFile saved(file);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    QFile delivered(server.fileOf(User, QStringLiteral("INBOX"), id));
    ASSERT_TRUE(delivered.open(QIODevice::ReadOnly));
    EXPECT_EQ(saved.readAll(), delivered.readAll());
    // A foreground command: the widget's token reaches the mail client, so it may come to the front.
    EXPECT_TRUE(launches.at(0)
                    .values.value(QStringLiteral("XDG_ACTIVATION_TOKEN"))
                    .startsWith(QStringLiteral("corvina-")))
        << launches.at(0).values.value(QStringLiteral("XDG_ACTIVATION_TOKEN")).toStdString();
    EXPECT_TRUE(waitFor([&] { return server.flagsOf(User, QStringLiteral("INBOX"), id).contains(u'S'); }));
    // Read now: the list says so.
    EXPECT_TRUE(waitFor([&] {
        for (const ExtensionMessagePtr& m : widgetMessages()) {
            if (m->subject() == QStringLiteral("Open me"))
                return !m->unread().toBool();
        }
        return false;
    }));
}

TEST_F(BridgeHostTest, OpenReachesTheMailClientWhereATextEditorIsTheDefaultForText) {
    // Much real mail starts with a DKIM signature, which a type sniffer takes for plain text.
    desktop->installTextEditor();
    installActivatableBridge();
    server.deliver(User, QStringLiteral("INBOX"),
                   "DKIM-Signature: v=1; a=rsa-sha256; d=example.org; s=mail; bh=AAAA; b=BBBB\r\n" +
                       DovecotServer::message(QStringLiteral("Signed"),
                                              QStringLiteral("Grace <grace@example.org>"),
                                              QStringLiteral("Tue, 14 Nov 2023 22:13:20 +0000"),
                                              QStringLiteral("<signed@example.org>")));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Signed"));
    ASSERT_TRUE(message);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandOpen, false));
    const QList<HostLaunch> launches = desktop->waitForLaunches(1, WaitMs);
    ASSERT_EQ(launches.size(), 1) << log().toStdString();
    ASSERT_EQ(launches.at(0).arguments.size(), 1)
        << "not the mail client: " << launches.at(0).arguments.join(u' ').toStdString();
    EXPECT_TRUE(launches.at(0).arguments.at(0).endsWith(QStringLiteral(".eml")));
    EXPECT_TRUE(waitFor([&] { return log().contains(QStringLiteral("open for ada@example.org: done")); }))
        << log().toStdString();
}

TEST_F(BridgeHostTest, AnOpenWithNoMailClientSetIsNotifiedSayingWhatToSet) {
    NotificationRecorder notifications(bus->address());
    ASSERT_TRUE(notifications.isRegistered());
    desktop->setDefault(QStringLiteral("message/rfc822"), QString());
    desktop->installTextEditor();
    installActivatableBridge();
    deliverWithId(QStringLiteral("Nowhere to open"), QStringLiteral("nowhere@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Nowhere to open"));
    ASSERT_TRUE(message);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandOpen, false));
    ASSERT_TRUE(waitFor([&] { return !notifications.notifications().isEmpty(); })) << log().toStdString();
    const auto shown = notifications.notifications().first();
    EXPECT_EQ(shown.summary, QStringLiteral("Could not open the message"));
    const QString line = QStringLiteral(
        "open: no application is set for message/rfc822 (xdg-mime query default message/rfc822 names none): "
        "choose your mail client for it, or set openCommand");
    EXPECT_EQ(shown.body, line);
    EXPECT_TRUE(log().contains(line + u'\n')) << log().toStdString();
    EXPECT_TRUE(desktop->launches().isEmpty()) << "started anyway";
}

TEST_F(BridgeHostTest, ReplyStartsADraftAnsweringTheMessageInTheMailClient) {
    installActivatableBridge();
    deliverWithId(QStringLiteral("Re: Lunch?"), QStringLiteral("lunch@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Re: Lunch?"));
    ASSERT_TRUE(message);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandReply, false));
    const QList<HostLaunch> launches = desktop->waitForLaunches(1, WaitMs);
    ASSERT_EQ(launches.size(), 1) << log().toStdString();
    const QString url = launches.at(0).arguments.value(0);
    EXPECT_TRUE(url.startsWith(QStringLiteral("mailto:grace@example.org?"))) << url.toStdString();
    // "Re: " once, not twice.
    EXPECT_TRUE(url.contains(QStringLiteral("subject=Re%3A%20Lunch%3F"))) << url.toStdString();
    EXPECT_TRUE(url.contains(QStringLiteral("In-Reply-To=%3Clunch%40example.org%3E"))) << url.toStdString();
    // Nothing changed on the server.
    EXPECT_TRUE(
        server.messageIds(User, QStringLiteral("INBOX")).contains(QStringLiteral("<lunch@example.org>")));
}

TEST_F(BridgeHostTest, ComposeFromTheShareCommandHandsTheDraftWithItsAttachmentToTheMailClient) {
    installActivatableBridge();
    const QString attachment = desktop->file(QStringLiteral("notes.txt"), "notes\n");
    ExtensionMessagePtr draft = ExtensionMessage::init();
    draft->setSubject(QStringLiteral("Shared notes"));
    draft->setPlainBody(QStringLiteral("See the file."));
    auto to = makeMutableList<ExtensionAddressPtr>();
    to->append(ExtensionAddress::initWithDictonary(
        QVariantMap{{QStringLiteral("mail"), QStringLiteral("bob@example.org")}}));
    draft->setTo(to);
    auto attachments = makeMutableList<QVariant>();
    attachments->append(attachment);
    draft->setAttachments(attachments);
    const std::optional<Url> url = draft->queryUrl(ConstVars::commandCompose);
    ASSERT_TRUE(url);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommands({*url}, false));
    const QList<HostLaunch> launches = desktop->waitForLaunches(1, WaitMs);
    ASSERT_EQ(launches.size(), 1) << log().toStdString();
    const QString got = launches.at(0).arguments.join(u' ');
    EXPECT_TRUE(got.contains(QStringLiteral("bob@example.org"))) << got.toStdString();
    EXPECT_TRUE(got.contains(QStringLiteral("Shared%20notes"))) << got.toStdString();
    EXPECT_TRUE(got.contains(QStringLiteral("notes.txt"))) << got.toStdString();
}

TEST_F(BridgeHostTest, ACommandThatFailsIsShownAsANotificationAndKeptInTheStatus) {
    NotificationRecorder notifications(bus->address());
    ASSERT_TRUE(notifications.isRegistered());
    installActivatableBridge();
    const QString id = deliverWithId(QStringLiteral("Gone soon"), QStringLiteral("gone@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("Gone soon"));
    ASSERT_TRUE(message);
    // Another mail client removed it meanwhile.
    ASSERT_TRUE(QFile::remove(server.fileOf(User, QStringLiteral("INBOX"), id)));

    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandArchive, true));
    ASSERT_TRUE(waitFor([&] { return !notifications.notifications().isEmpty(); })) << log().toStdString();
    const auto shown = notifications.notifications().first();
    EXPECT_EQ(shown.summary, QStringLiteral("Could not archive the message"));
    EXPECT_FALSE(shown.body.isEmpty());
    // The notification and the status file are two writes: on a busy machine the second may come a
    // moment after the first is seen.
    ASSERT_TRUE(waitFor([&] { return status().contains(QStringLiteral("lastCommandFailure")); }))
        << log().toStdString();
    const QJsonObject failure = status().value(QStringLiteral("lastCommandFailure")).toObject();
    EXPECT_EQ(failure.value(QStringLiteral("command")), QStringLiteral("archive"));
    EXPECT_EQ(failure.value(QStringLiteral("account")), Mail);
    EXPECT_EQ(failure.value(QStringLiteral("error")).toString(), shown.body);
    EXPECT_TRUE(log().contains(shown.body)) << log().toStdString();
    // Nothing was archived.
    EXPECT_TRUE(server.messageIds(User, QStringLiteral("Archive")).isEmpty());
}

TEST_F(BridgeHostTest, ACommandForAnUnknownAccountIsNotifiedToo) {
    NotificationRecorder notifications(bus->address());
    ASSERT_TRUE(notifications.isRegistered());
    installActivatableBridge();
    ASSERT_TRUE(ExtensionUtilities::LaunchCommands(
        {*Url::URLWithString(QStringLiteral(
            "corvina://delete?mail=nobody%40example.org&messageid=INBOX/1/1&folderstandardid=1"))},
        true));
    ASSERT_TRUE(waitFor([&] { return !notifications.notifications().isEmpty(); })) << log().toStdString();
    EXPECT_EQ(notifications.notifications().first().summary,
              QStringLiteral("Could not move the message to the trash"));
    EXPECT_TRUE(notifications.notifications().first().body.contains(QStringLiteral("nobody@example.org")));
}

TEST_F(BridgeHostTest, AMalformedUrlIsRefusedWithALogLineAndNothingElse) {
    NotificationRecorder notifications(bus->address());
    ASSERT_TRUE(notifications.isRegistered());
    installActivatableBridge();
    const QString id = deliverWithId(QStringLiteral("Untouched"), QStringLiteral("untouched@example.org"));
    ASSERT_TRUE(ExtensionUtilities::LaunchCommands(
        {*Url::URLWithString(QStringLiteral("corvina://archive?mail=ada%40example.org&folderstandardid=1"))},
        true));
    ASSERT_TRUE(waitFor([&] { return log().contains(QStringLiteral("refused corvina://archive?")); }))
        << log().toStdString();
    waitFor([] { return false; }, 300);
    EXPECT_TRUE(notifications.notifications().isEmpty());
    EXPECT_TRUE(server.messageIds(User, QStringLiteral("INBOX")).contains(id));
    EXPECT_TRUE(server.messageIds(User, QStringLiteral("Archive")).isEmpty());
}

TEST_F(BridgeHostTest, ARunningBridgeTakesTheCommandAndASecondOneDoesNotStart) {
    // No service file: only the running bridge can answer.
    QProcess running;
    QString output;
    startRunningBridge(running, output);
    if (HasFatalFailure())
        return;

    const BridgeRun second = runBridge({}, config, {}, bridgeEnvironment());
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_TRUE(second.err.contains(
        QStringLiteral("org.corvina.mail belongs to another process (pid %1)").arg(running.processId())))
        << second.err.toStdString();

    const QString id =
        deliverWithId(QStringLiteral("Archive via the running one"), QStringLiteral("run@example.org"));
    ExtensionMessagePtr message;
    ASSERT_TRUE(waitFor([&] {
        for (const ExtensionMessagePtr& m : widgetMessages()) {
            if (m->subject() == QStringLiteral("Archive via the running one"))
                message = m;
        }
        return message != nullptr;
    }));
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandArchive, true));
    EXPECT_TRUE(waitFor([&] {
        output += QString::fromUtf8(running.readAllStandardError());
        return output.contains(QStringLiteral("archive for ada@example.org: done"));
    })) << output.toStdString();
    EXPECT_TRUE(server.messageIds(User, QStringLiteral("Archive")).contains(id));
    running.terminate();
    running.waitForFinished(5000);
}

TEST_F(BridgeHostTest, WithoutASessionBusTheOpenCommandCarriesTheUrlsOutItself) {
    const QString id = deliverWithId(QStringLiteral("No bus"), QStringLiteral("nobus@example.org"));
    const ExtensionMessagePtr message = shownMessage(QStringLiteral("No bus"));
    ASSERT_TRUE(message);
    QProcessEnvironment env = bridgeEnvironment();
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    const std::optional<Url> url =
        ExtensionUtilities::CommandURLForMessage(message, ConstVars::commandArchive);
    ASSERT_TRUE(url);
    const BridgeRun run = runBridge({QStringLiteral("open"), url->absoluteString()}, config, {}, env);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(server.messageIds(User, QStringLiteral("Archive")).contains(id));
    EXPECT_FALSE(widgetShows(QStringLiteral("No bus")));

    // A refused URL makes the exit status say so.
    const BridgeRun refused =
        runBridge({QStringLiteral("open"), QStringLiteral("corvina://archive?mail=x")}, config, {}, env);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains(QStringLiteral("refused corvina://archive?mail=x")))
        << refused.err.toStdString();
}

TEST_F(BridgeHostTest, ClickingArchiveInTheWidgetArchivesTheMessageOnTheServer) {
    deliverWithId(QStringLiteral("Older"), QStringLiteral("older@example.org"),
                  QStringLiteral("Tue, 14 Nov 2023 20:00:00 +0000"));
    const QString id = deliverWithId(QStringLiteral("Click to archive"), QStringLiteral("click@example.org"),
                                     QStringLiteral("Tue, 14 Nov 2023 22:00:00 +0000"));
    QProcess running;
    QString output;
    startRunningBridge(running, output);
    if (HasFatalFailure())
        return;

    XServer x;
    ASSERT_TRUE(x.start()) << "Xvfb could not be started";
    QTemporaryDir widgetConfig;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), x.display());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus->address());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), widgetConfig.path());
    QProcess widget;
    widget.setProcessEnvironment(env);
    widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                 {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                  QStringLiteral("3600")});
    ASSERT_TRUE(widget.waitForStarted(5000));
    const QString window = x.findWindow(QStringLiteral("Corvina Today"));
    ASSERT_FALSE(window.isEmpty()) << "the widget's window did not appear";
    // Let it draw its rows before the click (the newest message is the first row).
    QThread::msleep(500);
    // The first row's archive button: below the header (30 + 5), 30..50 into the row, x 252..272.
    x.click(window, 262, 30 + 5 + 40);

    EXPECT_TRUE(waitFor([&] { return server.messageIds(User, QStringLiteral("Archive")).contains(id); }))
        << output.toStdString() << QString::fromUtf8(running.readAllStandardError()).toStdString();
    // The server copies before it removes: the message leaves the inbox a moment later.
    EXPECT_TRUE(waitFor([&] { return !server.messageIds(User, QStringLiteral("INBOX")).contains(id); }));
    EXPECT_TRUE(waitFor([&] { return !widgetShows(QStringLiteral("Click to archive")); }));
    EXPECT_TRUE(widgetShows(QStringLiteral("Older")));
    EXPECT_EQ(server.messageIds(User, QStringLiteral("Archive")).size(), 1);
    widget.terminate();
    widget.waitForFinished(3000);
    running.terminate();
    running.waitForFinished(5000);
}

} // namespace
} // namespace corvina::test
