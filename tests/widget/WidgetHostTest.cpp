// The widget's host in this process, as corvina-today runs it: a change to a large shared folder
// puts the rows the update will show in the table first only while the window is on the screen;
// with the window hidden (as in the tray, where the tray's click hides it) the update runs at once.
//
// What tells the two apart without a clock: the controller says each time the rows it shows
// changed (shownRowsChanged). Early rows with the new message on top are shown while the list it
// read last does not hold that message yet; the update's own rows come after its read.
#include "today/WidgetHost.h"

#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "today/TodayWindow.h"
#include "widget/TodayViewController.h"

#include <QFile>
#include <QWindow>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::drain;
using corvina::test::TempContainer;

namespace {

const QString kAccount = QStringLiteral("ann@example.org");
// Over WidgetHost::changedRowsFromMessages: a folder whose changes go to the early rows when the
// window shows them.
constexpr int kMessages = 2500;

bool holds(const ExtensionMessageList& list, const QString& id) {
    for (const auto& m : list)
        if (m->messageId() == id)
            return true;
    return false;
}

class WidgetHostTest : public ::testing::Test {
protected:
    void SetUp() override {
        container.writeAccounts({TempContainer::account(kAccount)});
        QVariantList inbox;
        for (int i = 0; i < kMessages; ++i)
            inbox << TempContainer::message(QStringLiteral("m%1").arg(i), kAccount, 1795000000 - i * 60);
        container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"), inbox);
        // The desktop's light or dark is not asked for: nothing here is about colours.
        host.setAppearance(WidgetHost::Appearance::Light);
        host.start(false);
        ASSERT_TRUE(drain([&] { return host.isSettled() && isExposed(); }, 15000))
            << "the widget did not show its first update";
        ASSERT_EQ(host.controller()->dataFromDisk().size(), kMessages);
    }

    bool isExposed() const {
        const QWindow* handle = host.window()->windowHandle();
        return host.window()->isVisible() && handle && handle->isExposed();
    }

    // Renames into place a snapshot file holding one message, `id`, newer than all the others (as
    // the mail application's writers replace a file), and waits until the update that read it
    // completed and its rows are shown. Each time the shown rows changed to rows with that message
    // on top: whether the last read held it by then.
    QList<bool> change(const QString& id, qint64 date) {
        QList<bool> seen;
        const QMetaObject::Connection watching =
            QObject::connect(host.controller(), &TodayViewController::shownRowsChanged, [&, id] {
                const auto rows = host.controller()->dataToShow();
                if (rows && !rows->isEmpty() && rows->first()->messageId() == id)
                    seen << holds(host.controller()->dataFromDisk(), id);
            });
        const int updates = host.completedUpdates();
        container.writeSnapshot(kAccount, QStringLiteral(".") + id + QStringLiteral(".plist.tmp"),
                                {TempContainer::message(id, kAccount, date)});
        const QString folder = container.data() + QStringLiteral("/Today/") + kAccount;
        EXPECT_TRUE(QFile::rename(folder + QStringLiteral("/.") + id + QStringLiteral(".plist.tmp"),
                                  folder + u'/' + id + QStringLiteral(".plist")));
        EXPECT_TRUE(drain(
            [&] {
                const auto rows = host.controller()->dataToShow();
                return host.completedUpdates() > updates && host.isSettled() && rows && !rows->isEmpty() &&
                       rows->first()->messageId() == id;
            },
            15000))
            << "the change to " << id.toStdString() << " was not shown";
        QObject::disconnect(watching);
        return seen;
    }

    test::ScopedSettings settings;
    TempContainer container;
    WidgetHost host{3600};
};

} // namespace

// On the screen the new message's rows come first, from a read that builds only them: the first
// rows with it on top are shown while the last read does not hold it yet. (This is what the hidden
// window must not do; seen here, it shows that the record below would see it.)
TEST_F(WidgetHostTest, AChangeShownInTheWindowPutsItsRowsFirst) {
    const QList<bool> seen = change(QStringLiteral("early"), 1795000000 + 600);
    ASSERT_FALSE(seen.isEmpty());
    EXPECT_FALSE(seen.first()) << "the first rows with the new message came from the update's read";
    EXPECT_TRUE(seen.last());
}

// Hidden, as in the tray: no early rows. The first rows shown after the change are the update's,
// from a read that already holds the new message.
TEST_F(WidgetHostTest, AChangeWhileTheWindowIsHiddenRunsTheUpdateAtOnce) {
    host.window()->hide();
    ASSERT_TRUE(drain([&] { return !isExposed(); }, 5000));
    const QList<bool> seen = change(QStringLiteral("hidden"), 1795000000 + 600);
    ASSERT_FALSE(seen.isEmpty());
    for (const bool readHeldIt : seen)
        EXPECT_TRUE(readHeldIt) << "rows with the new message were shown before the update read it";
}
