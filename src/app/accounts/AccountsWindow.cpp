#include "AccountsWindow.h"

#include "AccountList.h"
#include "AddAccountPage.h"
#include "BackgroundJob.h"
#include "EditAccountPage.h"
#include "KeepCurrentRow.h"
#include "PasswordPage.h"
#include "SignInJob.h"
#include "bridge/config/AccountChanges.h"
#include "bridge/config/BrowserSignIn.h"
#include "bridge/service/BridgeNudge.h"
#include "bridge/service/BridgeUnit.h"
#include "platform/Localization.h"

#include <QCheckBox>
#include <QDBusConnection>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <memory>

namespace corvina {

namespace {

// How long one call to systemd may take: it answers in milliseconds unless it is stuck, and a
// stuck one must cost the switch a line, not the window.
constexpr int SystemdTimeoutMs = 10000;

} // namespace

AccountsWindow::AccountsWindow(const QString& configPath, const QString& statusPath, int timeoutSeconds,
                               QWidget* parent)
    : QWidget(parent), m_accounts(new AccountList(configPath, statusPath, this)),
      m_timeoutSeconds(timeoutSeconds) {
    setWindowTitle(Localization::text("Mail accounts"));

    m_listPage = new QWidget;
    auto* heading = new QLabel(Localization::text("Your mail accounts"));
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    m_list = new QListView;
    m_list->setModel(m_accounts);
    m_list->setWordWrap(true);
    m_list->setSpacing(4);
    m_list->setAccessibleName(Localization::text("Accounts"));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_empty = new QLabel(Localization::text("No accounts yet"));
    m_empty->setAlignment(Qt::AlignCenter);
    m_add = new QPushButton(Localization::text("&Add account…"));
    m_add->setAccessibleName(Localization::text("Add account"));
    m_remove = new QPushButton(Localization::text("&Remove…"));
    m_remove->setAccessibleName(Localization::text("Remove account"));
    m_signInAgain = new QPushButton(Localization::text("Sign &in again"));
    m_signInAgain->setAccessibleName(Localization::text("Sign in again"));
    m_edit = new QPushButton(Localization::text("&Edit…"));
    m_edit->setAccessibleName(Localization::text("Edit account"));
    // Its words follow the selected account (updateListPage).
    m_toggle = new QPushButton;
    m_password = new QPushButton(Localization::text("Change &password…"));
    m_password->setAccessibleName(Localization::text("Change password"));
    m_message = new QLabel;
    m_message->setWordWrap(true);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_bridgeUnit = new BridgeUnit(QDBusConnection::sessionBus(), SystemdTimeoutMs, this);
    m_keepCurrent = new KeepCurrentRow(m_bridgeUnit);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_add);
    buttons->addWidget(m_edit);
    buttons->addWidget(m_toggle);
    buttons->addWidget(m_password);
    buttons->addWidget(m_signInAgain);
    buttons->addStretch();
    buttons->addWidget(m_remove);
    auto* listLayout = new QVBoxLayout(m_listPage);
    listLayout->addWidget(heading);
    listLayout->addWidget(m_list, 1);
    listLayout->addWidget(m_empty, 1);
    listLayout->addLayout(buttons);
    listLayout->addWidget(m_message);
    listLayout->addWidget(m_keepCurrent);
    setTabOrder(m_list, m_add);
    setTabOrder(m_add, m_edit);
    setTabOrder(m_edit, m_toggle);
    setTabOrder(m_toggle, m_password);
    setTabOrder(m_password, m_signInAgain);
    setTabOrder(m_signInAgain, m_remove);
    setTabOrder(m_remove, m_keepCurrent->toggle());

    m_addPage = new AddAccountPage(configPath, timeoutSeconds);
    m_pages = new QStackedWidget;
    m_pages->addWidget(m_listPage);
    m_pages->addWidget(m_addPage);
    m_editPage = new EditAccountPage(configPath, timeoutSeconds);
    m_pages->addWidget(m_editPage);
    m_passwordPage = new PasswordPage(configPath, timeoutSeconds);
    m_pages->addWidget(m_passwordPage);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_pages);
    resize(520, 480);

    // The list is read again whenever bridge.conf or the status file changes (a sync, a change made
    // here): the selected account stays selected, so that the buttons still act on it.
    connect(m_accounts, &QAbstractItemModel::modelAboutToBeReset, this, [this] {
        const std::optional<BridgeConfig::Account> selected = selectedAccount();
        m_keptSelection = selected ? selected->name : QString();
    });
    connect(m_accounts, &AccountList::reloaded, this, [this] {
        for (int row = 0; row < m_accounts->rowCount() && !m_keptSelection.isEmpty(); ++row) {
            const QModelIndex index = m_accounts->index(row);
            if (index.data(AccountList::NameRole).toString() == m_keptSelection)
                m_list->setCurrentIndex(index);
        }
        updateListPage();
    });
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &AccountsWindow::updateListPage);
    connect(m_add, &QPushButton::clicked, this, &AccountsWindow::showAddPage);
    connect(m_remove, &QPushButton::clicked, this, [this] { removeSelected(); });
    connect(m_signInAgain, &QPushButton::clicked, this, &AccountsWindow::signInSelected);
    connect(m_edit, &QPushButton::clicked, this, &AccountsWindow::showEditPage);
    connect(m_toggle, &QPushButton::clicked, this, &AccountsWindow::toggleSelected);
    connect(m_password, &QPushButton::clicked, this, &AccountsWindow::showPasswordPage);
    connect(m_editPage, &EditAccountPage::cancelled, this, [this] {
        showMessage(QString());
        showList();
    });
    connect(m_editPage, &EditAccountPage::saved, this, [this](const QString& name) {
        BridgeNudge::send();
        m_accounts->reload();
        showMessage(
            Localization::text("Saved the account %1; a running bridge follows the new settings at once.")
                .arg(name));
        showList();
    });
    connect(m_passwordPage, &PasswordPage::cancelled, this, [this] {
        showMessage(QString());
        showList();
    });
    connect(m_passwordPage, &PasswordPage::saved, this, [this](const QString& name) {
        BridgeNudge::send();
        showMessage(Localization::text("Stored the new password of %1 in the keyring.").arg(name));
        showList();
    });
    connect(m_addPage, &AddAccountPage::cancelled, this, [this] {
        showMessage(QString());
        showList();
    });
    connect(m_addPage, &AddAccountPage::saved, this, [this](const QString& name, const QString& note) {
        BridgeNudge::send();
        m_accounts->reload();
        showMessage(note.isEmpty() ? Localization::text("Added the account %1.").arg(name)
                                   : Localization::text("Added the account %1. %2").arg(name, note));
        showList();
    });
    updateListPage();
    m_bridgeUnit->refresh();
    // The list has the keyboard from the start, on its first account, so that Edit, Turn off and
    // the others act at once.
    if (m_accounts->rowCount() > 0) {
        m_list->setCurrentIndex(m_accounts->index(0));
        m_list->setFocus();
    }
}

AccountsWindow::~AccountsWindow() = default;

QString AccountsWindow::messageText() const {
    return m_message->text();
}

void AccountsWindow::showMessage(const QString& text) {
    m_message->setText(text);
}

void AccountsWindow::showAddPage() {
    // Shown first: the address field takes the keyboard only once it can be seen.
    m_pages->setCurrentWidget(m_addPage);
    m_addPage->clear();
}

void AccountsWindow::showList() {
    m_pages->setCurrentWidget(m_listPage);
    updateListPage();
    if (m_accounts->rowCount() > 0)
        m_list->setFocus();
    else
        m_add->setFocus();
}

void AccountsWindow::updateListPage() {
    const bool empty = m_accounts->rowCount() == 0;
    m_list->setVisible(!empty);
    m_empty->setVisible(empty);
    m_remove->setVisible(!empty);
    const bool idle = m_job == nullptr && m_signIn == nullptr;
    m_remove->setEnabled(idle && m_list->selectionModel()->hasSelection());
    const std::optional<BridgeConfig::Account> selected = selectedAccount();
    m_edit->setVisible(!empty);
    m_edit->setEnabled(idle && selected.has_value());
    m_toggle->setVisible(!empty);
    m_toggle->setEnabled(idle && selected.has_value());
    const bool on = !selected || selected->enabled;
    m_toggle->setText(on ? Localization::text("Turn o&ff") : Localization::text("Turn o&n"));
    m_toggle->setAccessibleName(on ? Localization::text("Turn off") : Localization::text("Turn on"));
    // Only a password the keyring holds is changed here; a passwordCommand or a sign-in is not.
    m_password->setVisible(selected && PasswordPage::changes(*selected));
    m_password->setEnabled(idle);
    // Only for an account that signs in in the browser; while one signs in, the button stops it.
    const bool signsIn = selected && BrowserSignIn::problem(*selected).isEmpty();
    m_signInAgain->setVisible(!empty && (signsIn || m_signIn != nullptr));
    m_signInAgain->setEnabled(m_job == nullptr);
    m_signInAgain->setText(m_signIn != nullptr ? Localization::text("Stop &waiting for the browser")
                                               : Localization::text("Sign &in again"));
    m_signInAgain->setAccessibleName(m_signIn != nullptr ? Localization::text("Stop waiting for the browser")
                                                         : Localization::text("Sign in again"));
}

std::optional<BridgeConfig::Account> AccountsWindow::selectedAccount() const {
    const QModelIndexList selected = m_list->selectionModel()->selectedIndexes();
    if (selected.isEmpty())
        return std::nullopt;
    const BridgeConfig::Account* found =
        m_accounts->config().account(selected.first().data(AccountList::NameRole).toString());
    if (found == nullptr)
        return std::nullopt;
    return *found;
}

void AccountsWindow::signInSelected() {
    if (m_signIn != nullptr) {
        m_signIn->cancel();
        showMessage(Localization::text("Stopping the sign-in…"));
        return;
    }
    const std::optional<BridgeConfig::Account> found = selectedAccount();
    if (!found || m_job != nullptr)
        return;
    // The same sign-in as `account signin`; the running bridge finds the new token at its next try.
    m_signIn = new SignInJob(*found, SignInJob::BrowserWaitSeconds, m_timeoutSeconds, this);
    connect(m_signIn, &SignInJob::finished, this, [this](bool ok, const QString& error) {
        const BridgeConfig::Account account = m_signIn->account();
        m_signIn->deleteLater();
        m_signIn = nullptr;
        if (ok)
            BridgeNudge::send();
        if (ok)
            showMessage(Localization::text("Signed in to %1 (%2) again; a running bridge tries it at once.")
                            .arg(account.name, account.mail));
        else
            showMessage(Localization::text("%1 is not signed in: %2").arg(account.name, error));
        updateListPage();
    });
    showMessage(
        Localization::text("Waiting for you to finish signing in to %1 in the browser…").arg(found->mail));
    m_signIn->start();
    updateListPage();
}

void AccountsWindow::showEditPage() {
    const std::optional<BridgeConfig::Account> account = selectedAccount();
    if (!account || m_job != nullptr)
        return;
    m_pages->setCurrentWidget(m_editPage);
    if (!m_editPage->load(account->name)) {
        showList();
        showMessage(Localization::text("The account %1 is no longer in bridge.conf.").arg(account->name));
    }
}

void AccountsWindow::showPasswordPage() {
    const std::optional<BridgeConfig::Account> account = selectedAccount();
    if (!account || m_job != nullptr)
        return;
    m_pages->setCurrentWidget(m_passwordPage);
    if (!m_passwordPage->load(account->name))
        showList();
}

void AccountsWindow::toggleSelected() {
    const std::optional<BridgeConfig::Account> account = selectedAccount();
    if (!account || m_job != nullptr)
        return;
    const bool on = !account->enabled;
    QString error;
    // A file write, no keyring and no server: quick enough for the GUI thread.
    if (!AccountChanges(m_accounts->configPath()).setEnabled(*account, on, &error))
        showMessage(Localization::text("The account %1 was not changed: %2").arg(account->name, error));
    else if (on)
        showMessage(
            Localization::text("Turned on %1: a running bridge syncs it at once.").arg(account->name));
    else
        showMessage(Localization::text("Turned off %1: a running bridge stops syncing it at once.")
                        .arg(account->name));
    m_accounts->reload();
    // Harmless when nothing was written: the bridge finds the file as it was.
    BridgeNudge::send();
}

void AccountsWindow::removeSelected(bool confirm) {
    const QModelIndexList selected = m_list->selectionModel()->selectedIndexes();
    if (selected.isEmpty() || m_job != nullptr || m_signIn != nullptr)
        return;
    const QString name = selected.first().data(AccountList::NameRole).toString();
    const BridgeConfig::Account* found = m_accounts->config().account(name);
    if (found == nullptr)
        return;
    const BridgeConfig::Account account = *found;
    if (confirm) {
        QMessageBox ask(
            QMessageBox::Question, Localization::text("Remove account"),
            Localization::text("Remove the account %1 (%2)? Its settings leave bridge.conf and its password "
                               "leaves the keyring; the mail on the server stays.")
                .arg(account.name, account.mail),
            QMessageBox::Cancel, this);
        QPushButton* remove = ask.addButton(Localization::text("&Remove"), QMessageBox::DestructiveRole);
        remove->setAccessibleName(Localization::text("Remove"));
        ask.setDefaultButton(QMessageBox::Cancel);
        ask.exec();
        if (ask.clickedButton() != remove)
            return;
    }
    struct Outcome {
        bool ok = false;
        bool keyringCleared = false;
        QString error;
    };
    auto outcome = std::make_shared<Outcome>();
    const QString path = m_accounts->configPath();
    m_job = new BackgroundJob(
        [outcome, account, path] {
            // The same code as `account remove`.
            outcome->ok = AccountChanges(path).remove(account, &outcome->error, &outcome->keyringCleared);
        },
        this);
    connect(m_job, &BackgroundJob::finished, this, [this, outcome, account] {
        m_job->deleteLater();
        m_job = nullptr;
        if (outcome->ok)
            BridgeNudge::send();
        m_accounts->reload();
        if (!outcome->ok)
            showMessage(
                Localization::text("The account %1 was not removed: %2").arg(account.name, outcome->error));
        else if (outcome->keyringCleared)
            showMessage(Localization::text("Removed the account %1 and its password.").arg(account.name));
        else
            showMessage(Localization::text(
                            "Removed the account %1; the keyring could not be reached, so a password it "
                            "holds for it stays there.")
                            .arg(account.name));
    });
    showMessage(Localization::text("Removing %1…").arg(account.name));
    m_job->start();
    updateListPage();
}

} // namespace corvina
