#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QString>
#include <QWidget>
#include <optional>

class QLabel;
class QListView;
class QPushButton;
class QStackedWidget;

namespace corvina {

class AccountList;
class AddAccountPage;
class BackgroundJob;
class BridgeUnit;
class KeepCurrentRow;
class SignInJob;
class EditAccountPage;
class PasswordPage;

// The Accounts window: the accounts of bridge.conf with each one's state, followed live (the list
// page), the page that adds one, the page that edits the selected one, the page that replaces its
// password, and the button that turns it off or on. Every change goes through the bridge's own code
// (AccountChanges, the same as `corvina-mail-bridge account ...`).
class AccountsWindow : public QWidget {
    Q_OBJECT
public:
    AccountsWindow(const QString& configPath, const QString& statusPath, int timeoutSeconds,
                   QWidget* parent = nullptr);
    ~AccountsWindow() override;

    AccountList& accounts() { return *m_accounts; }
    AddAccountPage& addPage() { return *m_addPage; }
    KeepCurrentRow& keepCurrent() { return *m_keepCurrent; }
    BridgeUnit& bridgeUnit() { return *m_bridgeUnit; }
    EditAccountPage& editPage() { return *m_editPage; }
    PasswordPage& passwordPage() { return *m_passwordPage; }
    // The line under the list: what the last change did, or why it failed.
    QString messageText() const;

    void showAddPage();
    void showList();
    // Removes the selected account after the person confirmed it (`confirm` asks them; tests
    // answer for them).
    void removeSelected(bool confirm = true);
    // Signs the selected account in again in the browser (an account whose sign-in ran out); while
    // the browser is awaited, the same button stops waiting.
    void signInSelected();
    // The selected account's settings on a page of their own, to change and save.
    void showEditPage();
    // The page that replaces the selected account's stored password.
    void showPasswordPage();
    // Turns the selected account off when it is on, on when it is off (its `enabled` key).
    void toggleSelected();

private:
    void updateListPage();
    void showMessage(const QString& text);
    // The selected account as bridge.conf has it, if one is selected.
    std::optional<BridgeConfig::Account> selectedAccount() const;

    AccountList* m_accounts = nullptr;
    QStackedWidget* m_pages = nullptr;
    QWidget* m_listPage = nullptr;
    QListView* m_list = nullptr;
    QLabel* m_empty = nullptr;
    QPushButton* m_add = nullptr;
    QPushButton* m_remove = nullptr;
    QPushButton* m_signInAgain = nullptr;
    QPushButton* m_edit = nullptr;
    QPushButton* m_toggle = nullptr;
    QPushButton* m_password = nullptr;
    QLabel* m_message = nullptr;
    AddAccountPage* m_addPage = nullptr;
    EditAccountPage* m_editPage = nullptr;
    PasswordPage* m_passwordPage = nullptr;
    BackgroundJob* m_job = nullptr;
    BridgeUnit* m_bridgeUnit = nullptr;
    KeepCurrentRow* m_keepCurrent = nullptr;
    SignInJob* m_signIn = nullptr;
    int m_timeoutSeconds = 0;
    QString m_keptSelection; // the selected account's name while the list is read again
};

} // namespace corvina
