#include "platform/DesktopNotifier.h"

#include "support/LogCapture.h"
#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;
using corvina::test::NotificationRecorder;
using corvina::test::PrivateSessionBus;

TEST(DesktopNotifier, TheServiceGetsSummaryAndBody) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    NotificationRecorder service(bus->address());
    ASSERT_TRUE(service.isRegistered());

    DesktopNotifier notifier;
    QSignalSpy answered(&notifier, &DesktopNotifier::notified);
    notifier.notify(QStringLiteral("Could not archive"), QStringLiteral("work: folder missing: Archive"));
    ASSERT_TRUE(answered.wait(5000));
    EXPECT_EQ(answered.at(0).at(0).toUInt(), 1u);
    EXPECT_TRUE(answered.at(0).at(1).toString().isEmpty());

    const auto shown = service.notifications();
    ASSERT_EQ(shown.size(), 1);
    EXPECT_EQ(shown.at(0).applicationName, QStringLiteral("Corvina Mail"));
    EXPECT_EQ(shown.at(0).icon, QStringLiteral("internet-mail"));
    EXPECT_EQ(shown.at(0).summary, QStringLiteral("Could not archive"));
    EXPECT_EQ(shown.at(0).body, QStringLiteral("work: folder missing: Archive"));
    EXPECT_EQ(shown.at(0).replacesId, 0u);
    EXPECT_EQ(shown.at(0).expireTimeout, -1);

    // another application's name and icon, for the widget
    DesktopNotifier widget(QStringLiteral("Corvina Today"), QStringLiteral("mail-unread"));
    QSignalSpy widgetAnswered(&widget, &DesktopNotifier::notified);
    widget.notify(QStringLiteral("s"), QStringLiteral("b"));
    ASSERT_TRUE(widgetAnswered.wait(5000));
    ASSERT_EQ(service.notifications().size(), 2);
    EXPECT_EQ(service.notifications().at(1).applicationName, QStringLiteral("Corvina Today"));
    EXPECT_EQ(service.notifications().at(1).icon, QStringLiteral("mail-unread"));
}

TEST(DesktopNotifier, NoServiceIsOneLineAndNoWait) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    LogCapture log;
    DesktopNotifier notifier;
    QSignalSpy answered(&notifier, &DesktopNotifier::notified);
    notifier.notify(QStringLiteral("one"), QStringLiteral("body"));
    notifier.notify(QStringLiteral("two"), QStringLiteral("body"));
    // both calls returned at once; their answers come from the bus
    EXPECT_EQ(answered.size(), 0);
    while (answered.size() < 2 && answered.wait(5000)) {
    }
    ASSERT_EQ(answered.size(), 2);
    EXPECT_EQ(answered.at(0).at(0).toUInt(), 0u);
    EXPECT_TRUE(answered.at(0).at(1).toString().startsWith(
        QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown")))
        << answered.at(0).at(1).toString().toStdString();
    QStringList lines;
    for (const QString& line : log.lines()) {
        if (line.startsWith(QStringLiteral("desktop notifications are not shown: ")))
            lines << line;
    }
    ASSERT_EQ(lines.size(), 1) << log.lines().join(u'\n').toStdString();
    EXPECT_TRUE(lines.first().contains(QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown")));
}

TEST(DesktopNotifier, ActionsReplacementsAndTheServicesSignals) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    NotificationRecorder service(bus->address());
    ASSERT_TRUE(service.isRegistered());

    DesktopNotifier notifier(QStringLiteral("Corvina Today"), QStringLiteral("mail-unread"));
    QSignalSpy invoked(&notifier, &DesktopNotifier::actionInvoked);
    QSignalSpy closed(&notifier, &DesktopNotifier::closed);
    uint first = 0;
    notifier.notify(QStringLiteral("Ann"), QStringLiteral("Lunch?"),
                    {QStringLiteral("archive"), QStringLiteral("Archive")}, 0,
                    {{QStringLiteral("category"), QStringLiteral("email.arrived")}},
                    [&](uint id, const QString& error) {
                        EXPECT_TRUE(error.isEmpty());
                        first = id;
                    });
    QSignalSpy answered(&notifier, &DesktopNotifier::notified);
    ASSERT_TRUE(answered.wait(5000));
    ASSERT_EQ(first, 1u);
    ASSERT_EQ(service.notifications().size(), 1);
    EXPECT_EQ(service.notifications().at(0).actions, (QStringList{"archive", "Archive"}));
    EXPECT_EQ(service.notifications().at(0).hints.value(QStringLiteral("category")).toString(),
              QStringLiteral("email.arrived"));

    // In place of the first.
    uint second = 0;
    notifier.notify(QStringLiteral("Ann"), QStringLiteral("Lunch at one?"), {}, first, {},
                    [&](uint id, const QString&) { second = id; });
    ASSERT_TRUE(answered.wait(5000));
    EXPECT_EQ(second, first);
    EXPECT_EQ(service.notifications().at(1).replacesId, first);

    service.invokeAction(first, QStringLiteral("archive"));
    ASSERT_TRUE(invoked.wait(5000));
    EXPECT_EQ(invoked.at(0).at(0).toUInt(), first);
    EXPECT_EQ(invoked.at(0).at(1).toString(), QStringLiteral("archive"));

    notifier.close(first);
    ASSERT_TRUE(closed.wait(5000));
    EXPECT_EQ(service.closed(), QList<uint>{first});
    EXPECT_EQ(closed.at(0).at(0).toUInt(), first);
    EXPECT_EQ(closed.at(0).at(1).toUInt(), 3u);
}
