// The bridge's org.freedesktop.Application object on a real (private) session bus, called from
// another connection as the widget calls it.
#include "bridge/service/CommandService.h"

#include "support/PrivateSessionBus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QSignalSpy>
#include <gtest/gtest.h>
#include <unistd.h>

using corvina::CommandService;
using corvina::test::PrivateSessionBus;

namespace {

const QString CallerName = QStringLiteral("host-service-test-caller");

class CommandServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
        caller = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(bus->address(), CallerName));
        ASSERT_TRUE(caller->isConnected());
    }
    void TearDown() override {
        caller.reset();
        QDBusConnection::disconnectFromBus(CallerName);
    }

    // Calls `method` on the bridge's object from the other connection, letting this thread's event
    // loop run meanwhile (the service lives on it), and answers the reply.
    QDBusMessage call(const QString& method, const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            QLatin1String(CommandService::ServiceName), QLatin1String(CommandService::ObjectPath),
            QStringLiteral("org.freedesktop.Application"), method);
        message.setArguments(arguments);
        QDBusPendingCall pending = caller->asyncCall(message, 3000);
        const QDeadlineTimer deadline(5000);
        while (!pending.isFinished() && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        pending.waitForFinished();
        return pending.reply();
    }

    PrivateSessionBus* bus = nullptr;
    std::unique_ptr<QDBusConnection> caller;
};

TEST_F(CommandServiceTest, OpenAnswersAtOnceAndHandsOverTheUrlsInOrderWithThePlatformData) {
    CommandService service;
    QString error;
    ASSERT_TRUE(service.registerOn(QDBusConnection::sessionBus(), &error)) << error.toStdString();
    QSignalSpy opened(&service, &CommandService::urisOpened);

    const QStringList uris = {
        QStringLiteral("corvina://archive?mail=a%40b.org&messageid=INBOX/1/2&folderstandardid=1"),
        QStringLiteral("corvina://delete?mail=a%40b.org&messageid=INBOX/1/3&folderstandardid=1")};
    QVariantMap platformData;
    platformData.insert(QStringLiteral("corvina-launch-options"), QVariant::fromValue(uint(512)));
    const QDBusMessage reply = call(QStringLiteral("Open"), {uris, platformData});
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();

    if (opened.isEmpty())
        opened.wait(2000);
    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened.at(0).at(0).toStringList(), uris);
    EXPECT_EQ(opened.at(0).at(1).toMap().value(QStringLiteral("corvina-launch-options")).toUInt(), 512u);
}

TEST_F(CommandServiceTest, ActivateAndTheSyncActionAskForAFreshLook) {
    CommandService service;
    QString error;
    ASSERT_TRUE(service.registerOn(QDBusConnection::sessionBus(), &error)) << error.toStdString();
    QSignalSpy sync(&service, &CommandService::syncRequested);

    EXPECT_EQ(call(QStringLiteral("Activate"), {QVariantMap()}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(call(QStringLiteral("ActivateAction"),
                   {QStringLiteral("sync"), QVariant::fromValue(QVariantList()), QVariantMap()})
                  .type(),
              QDBusMessage::ReplyMessage);
    while (sync.size() < 2 && sync.wait(2000)) {
    }
    ASSERT_EQ(sync.size(), 2);
    EXPECT_EQ(sync.at(0).at(0).toString(), QStringLiteral("activated"));
    EXPECT_EQ(sync.at(1).at(0).toString(), QStringLiteral("sync action"));
}

// The Accounts window's nudge: the retry action, answered at once, its work left to the owner.
TEST_F(CommandServiceTest, TheRetryActionAsksTheWaitingAccountsToTryNow) {
    CommandService service;
    QString error;
    ASSERT_TRUE(service.registerOn(QDBusConnection::sessionBus(), &error)) << error.toStdString();
    QSignalSpy retry(&service, &CommandService::retryRequested);
    QSignalSpy sync(&service, &CommandService::syncRequested);

    const QDBusMessage reply =
        call(QStringLiteral("ActivateAction"),
             {QStringLiteral("retry"), QVariant::fromValue(QVariantList()), QVariantMap()});
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    if (retry.isEmpty())
        retry.wait(2000);
    ASSERT_EQ(retry.size(), 1);
    EXPECT_EQ(retry.at(0).at(0).toString(), QStringLiteral("nudged"));
    EXPECT_TRUE(sync.isEmpty());
}

TEST_F(CommandServiceTest, AnUnknownActionIsAnsweredWithAnErrorAndDoesNothing) {
    CommandService service;
    QString error;
    ASSERT_TRUE(service.registerOn(QDBusConnection::sessionBus(), &error)) << error.toStdString();
    QSignalSpy sync(&service, &CommandService::syncRequested);

    const QDBusMessage reply =
        call(QStringLiteral("ActivateAction"),
             {QStringLiteral("quit"), QVariant::fromValue(QVariantList()), QVariantMap()});
    EXPECT_EQ(reply.type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(reply.errorName(), QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_TRUE(reply.errorMessage().contains(QStringLiteral("unknown action quit")))
        << reply.errorMessage().toStdString();
    QCoreApplication::processEvents();
    EXPECT_TRUE(sync.isEmpty());
}

TEST_F(CommandServiceTest, ASecondBridgeDoesNotTakeTheNameAndSaysWhoHasIt) {
    // The other connection plays a bridge that is running already.
    ASSERT_TRUE(caller->registerService(QLatin1String(CommandService::ServiceName)));
    CommandService service;
    QString error;
    EXPECT_FALSE(service.registerOn(QDBusConnection::sessionBus(), &error));
    EXPECT_EQ(error,
              QStringLiteral("org.corvina.mail belongs to another process (pid %1): is a bridge running "
                             "already?")
                  .arg(::getpid()));
    EXPECT_FALSE(service.isRegistered());
    caller->unregisterService(QLatin1String(CommandService::ServiceName));

    // Once the name is free again, the bridge can take it.
    EXPECT_TRUE(service.registerOn(QDBusConnection::sessionBus(), &error)) << error.toStdString();
}

TEST_F(CommandServiceTest, WithoutABusTheServiceSaysSo) {
    CommandService service;
    QString error;
    const QDBusConnection none = QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                                               QStringLiteral("host-service-test-none"));
    EXPECT_FALSE(service.registerOn(none, &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("no session bus"))) << error.toStdString();
    QDBusConnection::disconnectFromBus(QStringLiteral("host-service-test-none"));
}

} // namespace
