// The widget with the keyboard alone, and as a screen reader reads it: real key events delivered to
// the window (which hands them to its focus widget), the commands reaching a recorder mail
// application, and the names and descriptions read through Qt's accessibility interfaces.
#include "widget/TodayKeyboard.h"

#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "support/FakeHostApp.h"
#include "support/TempContainer.h"
#include "support/WidgetTesting.h"
#include "ui/SegmentedControl.h"
#include "views/TodayTableViewCell.h"
#include "widget/TodayViewController.h"

#include <QAccessible>
#include <QApplication>
#include <QKeyEvent>
#include <QLayout>
#include <QPointer>
#include <QTest>
#include <QVBoxLayout>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::drain;
using corvina::test::FakeHostApp;
using corvina::test::TempContainer;

namespace {

const QString kKeyboardAccount = QStringLiteral("ann@example.org");
constexpr qint64 kNow = 1795000000;

QString url(const QString& command, const QString& id, int folder = 1) {
    return QStringLiteral("corvina://%1?mail=ann%40example.org&messageid=%2&folderstandardid=%3")
        .arg(command, id)
        .arg(folder);
}

class TodayKeyboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        container.writeAccounts({TempContainer::account(kKeyboardAccount)});
        host.installRecorder(ConstVars::appIdentifier);
    }

    // Messages (id, folder kind, unread), newest first, ten minutes apart.
    void write(const QList<std::tuple<QString, qint64, bool>>& rows) {
        QVariantList out;
        qint64 date = kNow;
        for (const auto& [id, folder, unread] : rows) {
            QVariantMap m = TempContainer::message(id, kKeyboardAccount, date, folder);
            m.insert(QStringLiteral("subject"), QStringLiteral("Subject ") + id);
            m.insert(QStringLiteral("from"), QStringLiteral("Sender ") + id);
            m.insert(QStringLiteral("isUnread"), unread);
            out << m;
            date -= 600;
        }
        container.writeSnapshot(kKeyboardAccount, QStringLiteral("inbox.plist"), out);
    }

    void writeInbox(const QStringList& ids) {
        QList<std::tuple<QString, qint64, bool>> rows;
        for (const QString& id : ids)
            rows << std::make_tuple(id, qint64(1), false);
        write(rows);
    }

    // The widget in an active window, as its host shows it, its rows shown.
    void show() {
        controller = std::make_unique<TodayViewController>();
        window = std::make_unique<QWidget>();
        auto* layout = new QVBoxLayout(window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSizeConstraint(QLayout::SetFixedSize);
        layout->addWidget(controller->view());
        window->show();
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        controller->viewWillAppear();
        settle();
    }

    void settle() {
        ASSERT_TRUE(drain([this] { return !controller->isAnimating(); }));
    }

    // A key as the window system delivers it.
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(window->windowHandle(), key, modifiers);
    }

    TableView* table() const { return controller->myTableView(); }
    TodayTableViewCell* cellAt(qint64 row) const {
        return dynamic_cast<TodayTableViewCell*>(table()->viewAtColumn(0, row));
    }
    QStringList shownIds() const {
        QStringList out;
        if (const auto rows = controller->dataToShow())
            for (const auto& m : *rows)
                out << m->messageId();
        return out;
    }

    test::ScopedSettings settings;
    TempContainer container;
    FakeHostApp host;
    std::unique_ptr<TodayViewController> controller;
    std::unique_ptr<QWidget> window;
};

} // namespace

TEST_F(TodayKeyboardTest, TheRowsHaveTheFirstFocus) {
    writeInbox({"m0", "m1"});
    show();
    EXPECT_EQ(QApplication::focusWidget(), table());
}

TEST_F(TodayKeyboardTest, ArrowsMoveTheCurrentRowAndSendNothing) {
    writeInbox({"m0", "m1", "m2"});
    show();
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    press(Qt::Key_Up);
    EXPECT_EQ(table()->currentRow(), 1);
    EXPECT_TRUE(table()->rowViewAtRow(1)->showsFocusRing()) << "the current row is visible";
    EXPECT_EQ(table()->selectedRow(), -1);
    settle();
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty()) << "moving through the rows opens nothing";
}

TEST_F(TodayKeyboardTest, EnterOpensTheCurrentRowAsAClickDoes) {
    writeInbox({"m0", "m1", "m2"});
    show();
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    press(Qt::Key_Return);
    EXPECT_EQ(table()->selectedRow(), 1);
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments, QStringList{url(QStringLiteral("open"), QStringLiteral("m1"))});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
}

TEST_F(TodayKeyboardTest, RRepliesAArchivesDeleteDeletesTheCurrentRow) {
    writeInbox({"m0", "m1", "m2", "m3"});
    show();
    press(Qt::Key_Down);
    press(Qt::Key_Down); // m1
    press(Qt::Key_R);
    auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments, QStringList{url(QStringLiteral("reply"), QStringLiteral("m1"))});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
    EXPECT_EQ(table()->numberOfRows(), 4);

    QPointer<TableRowView> archived = table()->rowViewAtRow(1);
    press(Qt::Key_A);
    launches = host.waitForLaunches(2);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(1).arguments, QStringList{url(QStringLiteral("archive"), QStringLiteral("m1"))});
    EXPECT_EQ(launches.at(1).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    ASSERT_TRUE(drain([&] { return archived && archived->x() < -20; }, 2000))
        << "the row slides out to the left";
    settle();
    EXPECT_EQ(shownIds(), (QStringList{"m0", "m2", "m3"}));
    EXPECT_EQ(table()->numberOfRows(), 3);
    EXPECT_EQ(table()->currentRow(), 1) << "the next message is current";

    QPointer<TableRowView> deleted = table()->rowViewAtRow(1);
    press(Qt::Key_Delete);
    launches = host.waitForLaunches(3);
    ASSERT_EQ(launches.size(), 3);
    EXPECT_EQ(launches.at(2).arguments, QStringList{url(QStringLiteral("delete"), QStringLiteral("m2"))});
    ASSERT_TRUE(drain([&] { return deleted && deleted->x() > 20; }, 2000))
        << "the row slides out to the right";
    settle();
    EXPECT_EQ(shownIds(), (QStringList{"m0", "m3"}));
    EXPECT_EQ(table()->selectedRow(), -1) << "nothing was opened";
}

TEST_F(TodayKeyboardTest, WithoutACurrentRowOrWithCtrlTheKeysSendNothing) {
    writeInbox({"m0", "m1"});
    show();
    press(Qt::Key_R);
    press(Qt::Key_A);
    press(Qt::Key_Delete);
    press(Qt::Key_Return);
    press(Qt::Key_Down);
    press(Qt::Key_A, Qt::ControlModifier);
    press(Qt::Key_R, Qt::AltModifier);
    settle();
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty());
    EXPECT_EQ(table()->numberOfRows(), 2);
}

TEST_F(TodayKeyboardTest, AHeldKeyActsOnce) {
    writeInbox({"m0", "m1", "m2"});
    show();
    press(Qt::Key_Down);
    press(Qt::Key_A);
    ASSERT_EQ(host.waitForLaunches(1).size(), 1);
    settle();
    // The repeats of a held A reach the rows, which leave them to the widget: no more archives.
    for (int i = 0; i < 3; ++i) {
        QKeyEvent repeat(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, QStringLiteral("a"), true);
        QApplication::sendEvent(table(), &repeat);
    }
    settle();
    EXPECT_EQ(host.waitForLaunches(2, 300).size(), 1);
    EXPECT_EQ(table()->numberOfRows(), 2);
}

TEST_F(TodayKeyboardTest, OneTwoThreePickTheListAsAClickOnItsSegment) {
    write({{"a", 1, false}, {"b", 11, false}, {"c", 12, false}, {"d", 11, true}});
    show();
    SegmentedControl* control = controller->myHeaderView()->control();
    press(Qt::Key_2);
    EXPECT_EQ(UserDefaults::integerForKey(ConstVars::segmentedKey), 2);
    EXPECT_EQ(control->selectedSegment(), 1);
    EXPECT_EQ(shownIds(), (QStringList{"b", "d"})) << "at once, from memory, as after a click";
    settle();
    EXPECT_EQ(table()->numberOfRows(), 2);
    press(Qt::Key_3);
    settle();
    EXPECT_EQ(control->selectedSegment(), 2);
    EXPECT_EQ(shownIds(), QStringList{"c"});
    press(Qt::Key_1, Qt::KeypadModifier);
    settle();
    EXPECT_EQ(UserDefaults::integerForKey(ConstVars::segmentedKey), 1);
    EXPECT_EQ(shownIds(), QStringList{"a"});
    // Also with the focus on the header's control.
    control->setFocus(Qt::TabFocusReason);
    press(Qt::Key_2);
    settle();
    EXPECT_EQ(shownIds(), (QStringList{"b", "d"}));
    EXPECT_TRUE(host.waitForLaunches(1, 200).isEmpty());
}

TEST_F(TodayKeyboardTest, EveryRowButtonAndSegmentHasANameAndADescription) {
    write({{"m0", 1, true}, {"m1", 1, false}});
    show();
    ASSERT_EQ(table()->numberOfRows(), 2);
    for (qint64 row = 0; row < 2; ++row) {
        TodayTableViewCell* cell = cellAt(row);
        ASSERT_NE(cell, nullptr);
        const QString id = QStringLiteral("m%1").arg(row);
        for (QWidget* w : {static_cast<QWidget*>(table()->rowViewAtRow(row)), static_cast<QWidget*>(cell)}) {
            QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(w);
            ASSERT_NE(iface, nullptr);
            const QString name = iface->text(QAccessible::Name);
            const QString description = iface->text(QAccessible::Description);
            EXPECT_TRUE(name.contains(QStringLiteral("Sender ") + id)) << name.toStdString();
            EXPECT_TRUE(name.contains(QStringLiteral("Subject ") + id)) << name.toStdString();
            EXPECT_TRUE(name.contains(cell->dateField()->stringValue())) << name.toStdString();
            EXPECT_FALSE(cell->dateField()->stringValue().isEmpty());
            EXPECT_TRUE(description.startsWith(row == 0 ? QStringLiteral("Unread") : QStringLiteral("Read")))
                << description.toStdString();
        }
        for (ImageButton* button : {cell->replyButton(), cell->archiveButton(), cell->trashButton()}) {
            QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(button);
            ASSERT_NE(iface, nullptr);
            EXPECT_EQ(iface->role(), QAccessible::Button);
            EXPECT_FALSE(iface->text(QAccessible::Name).isEmpty());
            EXPECT_TRUE(iface->text(QAccessible::Description).contains(QStringLiteral("Subject ") + id));
        }
        EXPECT_EQ(QAccessible::queryAccessibleInterface(cell->replyButton())->text(QAccessible::Name),
                  QStringLiteral("Reply"));
        EXPECT_EQ(QAccessible::queryAccessibleInterface(cell->archiveButton())->text(QAccessible::Name),
                  QStringLiteral("Archive"));
        EXPECT_EQ(QAccessible::queryAccessibleInterface(cell->trashButton())->text(QAccessible::Name),
                  QStringLiteral("Delete"));
    }
    QAccessibleInterface* list = QAccessible::queryAccessibleInterface(table());
    EXPECT_EQ(list->text(QAccessible::Name), QStringLiteral("Messages"));
    QAccessibleInterface* lists =
        QAccessible::queryAccessibleInterface(controller->myHeaderView()->control());
    EXPECT_EQ(lists->text(QAccessible::Name), QStringLiteral("List"));
    ASSERT_EQ(lists->childCount(), 3);
    const QStringList labels{"Inbox", "To Do", "Memo"};
    for (int s = 0; s < 3; ++s) {
        EXPECT_EQ(lists->child(s)->text(QAccessible::Name), labels.at(s));
        EXPECT_TRUE(lists->child(s)->text(QAccessible::Description).contains(QString::number(s + 1)));
        EXPECT_EQ(lists->child(s)->state().selected, s == 0);
    }
}
