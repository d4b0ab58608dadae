#pragma once

// What the in-process tests of the Accounts window share: finding a control as a screen reader
// names it, the steps a person takes on a page (typing a server's settings, pressing a button and
// waiting for its work), waiting for a row of the list, and drawing the window for
// docs/accounts-*.png.
#include <QPushButton>
#include <QString>
#include <QTest>
#include <QWidget>
#include <gtest/gtest.h>

class QComboBox;

namespace corvina {
class AccountsWindow;
}

namespace corvina::test {

// The control of type W under `root` whose accessible name is `name`, or null.
template <class W> W* named(QWidget& root, const QString& name) {
    for (W* w : root.findChildren<W*>()) {
        if (w->accessibleName() == name)
            return w;
    }
    return nullptr;
}

// Presses the button `button` of `page` (it must be shown) and waits for the page's work to end.
template <class Page> void pressAndWait(Page& page, const QString& button) {
    QPushButton* b = named<QPushButton>(page, button);
    ASSERT_NE(b, nullptr) << button.toStdString();
    ASSERT_TRUE(b->isVisible()) << button.toStdString();
    QTest::mouseClick(b, Qt::LeftButton);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !page.isBusy(); }, 60000)) << button.toStdString();
}

// Types an address whose domain the providers table does not know into the add page `page`, and
// the test server's settings into the server's fields that it shows: `host` and `port` without
// TLS, and the login name `user` unless it is null.
void typeServer(QWidget& page, const QString& mail, const QString& host, int port, const QString& user);

// The items of `box`, as shown.
QStringList itemsOf(const QComboBox* box);

// Selects row `row` of the window's list of accounts.
void selectRow(AccountsWindow& window, int row);

// Waits until row `row` of the window's list says the account is current (the bridge synced it,
// as its status file says); the failure names what the row says instead.
testing::AssertionResult waitUntilCurrent(AccountsWindow& window, int row);

// Draws the window as it is now into the folder CORVINA_ACCOUNTS_SHOTS names, as
// accounts-NAME.png, if that variable is set (how docs/accounts-*.png are made).
void shootWindow(QWidget& window, const QString& name);

} // namespace corvina::test
