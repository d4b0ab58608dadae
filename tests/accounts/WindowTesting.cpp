#include "WindowTesting.h"

#include "accounts/AccountList.h"
#include "accounts/AccountsWindow.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QLineEdit>
#include <QListView>
#include <QPixmap>
#include <QSpinBox>

namespace corvina::test {

void typeServer(QWidget& page, const QString& mail, const QString& host, int port, const QString& user) {
    QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Mail address")), mail);
    QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("IMAP server")), host);
    QComboBox* security = named<QComboBox>(page, QStringLiteral("Security"));
    security->setCurrentIndex(security->findData(QStringLiteral("none")));
    named<QSpinBox>(page, QStringLiteral("Port"))->setValue(port);
    if (!user.isNull())
        QTest::keyClicks(named<QLineEdit>(page, QStringLiteral("Login name")), user);
}

QStringList itemsOf(const QComboBox* box) {
    QStringList items;
    for (int i = 0; i < box->count(); ++i)
        items << box->itemText(i);
    return items;
}

void selectRow(AccountsWindow& window, int row) {
    named<QListView>(window, QStringLiteral("Accounts"))->setCurrentIndex(window.accounts().index(row));
}

testing::AssertionResult waitUntilCurrent(AccountsWindow& window, int row) {
    const auto state = [&] { return window.accounts().index(row).data(AccountList::StateRole).toString(); };
    if (QTest::qWaitFor([&] { return state().startsWith(QStringLiteral("Current as of ")); }, 20000))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the row says: " << state().toStdString();
}

void shootWindow(QWidget& window, const QString& name) {
    const QString folder = qEnvironmentVariable("CORVINA_ACCOUNTS_SHOTS");
    if (folder.isEmpty())
        return;
    QDir().mkpath(folder);
    // The layout follows a changed text through posted events: drawn before them, a label would
    // keep the size of its old text.
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
    EXPECT_TRUE(window.grab().save(QDir(folder).filePath(QStringLiteral("accounts-%1.png").arg(name))));
}

} // namespace corvina::test
