#pragma once

#include "bridge/config/AccountGroup.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/config/ProviderTable.h"

#include <QString>
#include <QWidget>
#include <optional>

class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace corvina {

class BackgroundJob;
class SecurityBox;

// The Accounts window's page for a new account. The mail address first: a provider of the
// providers table (the one `account add` reads) fills in the server and shows only what is still
// needed; another domain shows the server's fields. "Test connection" runs the bridge's own check
// (what `corvina-mail-bridge check` runs) with the typed password and shows its line; "Save" writes
// the account and its password through the same code as `account add`, and only when pressed.
// Both run off the GUI thread; Cancel while they run leaves them to end on their own.
class AddAccountPage : public QWidget {
    Q_OBJECT
public:
    // `configPath`: the bridge.conf to add to; `timeoutSeconds`: the check's deadline, as --timeout.
    AddAccountPage(QString configPath, int timeoutSeconds, QWidget* parent = nullptr);
    ~AddAccountPage() override;

    // Empties every field for a new account.
    void clear();
    // The line of the last test or save (what the person reads under the buttons).
    QString resultText() const;
    // Whether a test or a save is under way.
    bool isBusy() const;

signals:
    // The account `name` was written into bridge.conf; `note` says what is still to do, or is empty.
    void saved(const QString& name, const QString& note);
    void cancelled();

private:
    // The provider of the typed address, when the table knows its domain.
    std::optional<ProviderTable::Provider> provider() const;
    // Shows what the typed address needs: the server's fields, or the provider's words.
    void addressChanged();
    // The group the fields make, as `account add` would write it for the same answers.
    AccountGroup group() const;
    // What is wrong before anything can be tried (no address, an address already configured...),
    // or empty.
    QString problem(const AccountGroup& group, const BridgeConfig::Account& account) const;
    void testConnection();
    void save();
    void showResult(const QString& text, bool ok);
    void setBusy(BackgroundJob* job, const QString& what);
    void finishJob();
    // Whether the account signs in in the browser only (no password taken).
    bool signsInOnly() const;

    QString m_configPath;
    int m_timeoutSeconds;
    std::optional<ProviderTable> m_providers;

    QLineEdit* m_mail = nullptr;
    QLabel* m_providerText = nullptr;
    QGroupBox* m_server = nullptr;
    QLineEdit* m_host = nullptr;
    QSpinBox* m_port = nullptr;
    SecurityBox* m_security = nullptr;
    QLineEdit* m_user = nullptr;
    QLabel* m_passwordLabel = nullptr;
    QLineEdit* m_password = nullptr;
    QLabel* m_passwordNote = nullptr;
    QLabel* m_foldersNote = nullptr;
    QPushButton* m_test = nullptr;
    QPushButton* m_save = nullptr;
    QPushButton* m_cancel = nullptr;
    QLabel* m_result = nullptr;
    BackgroundJob* m_job = nullptr;
};

} // namespace corvina
