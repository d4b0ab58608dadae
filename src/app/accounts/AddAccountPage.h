#pragma once

#include "PageActions.h"
#include "bridge/config/AccountGroup.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/config/ProviderTable.h"

#include <QString>
#include <QWidget>
#include <optional>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace corvina {

class FolderChooser;
class SecurityBox;
class SignInJob;

// The Accounts window's page for a new account. The mail address first: a provider of the
// providers table (the one `account add` reads) fills in the server and shows only what is still
// needed; another domain shows the server's fields. "Test connection" runs the bridge's own check
// (what `corvina-mail-bridge check` runs) with the typed password and shows its line; "Save" writes
// the account and its password through the same code as `account add`, and only when pressed.
// Both run off the GUI thread; Cancel while they run leaves them to end on their own.
// An account that signs in in the browser (a provider that takes it, or another server whose
// provider publishes its sign-in) has "Sign in with the browser": the bridge's own sign-in
// (SignInJob), whose refresh token goes to the keyring; Cancel then stops waiting for the browser.
// The account is still saved only by Save, like after a test; a sign-in left unsaved (Cancel,
// the page left) is taken out of the keyring again.
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
    // Whether a test, a sign-in or a save is under way.
    bool isBusy() const;
    // The choice of the lists' folders (the server's, after a connection test).
    FolderChooser& folders() { return *m_folders; }
    // Whether a sign-in in the browser was finished for the account the page would save.
    bool isSignedIn() const { return m_signedIn.has_value(); }

signals:
    // The account `name` was written into bridge.conf; `note` says what is still to do, or is empty.
    void saved(const QString& name, const QString& note);
    void cancelled();

private:
    // The provider of the typed address, when the table knows its domain.
    std::optional<ProviderTable::Provider> provider() const;
    // Shows what the typed address needs: the server's fields, or the provider's words.
    void addressChanged();
    // The group the fields make, as `account add` would write it for the same answers; `browser`:
    // one that signs in in the browser.
    AccountGroup group(bool browser) const;
    // Whether the account would sign in in the browser rather than with a password.
    bool usesBrowser() const;
    void signIn();
    // Takes an unsaved sign-in out of the keyring again (on a thread nobody waits for).
    void forgetUnsavedSignIn();
    // What is wrong before anything can be tried (no address, an address already configured...),
    // or empty.
    QString problem(const AccountGroup& group, const BridgeConfig::Account& account) const;
    void testConnection();
    void save();
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
    QComboBox* m_auth = nullptr;
    QLabel* m_issuerLabel = nullptr;
    QLineEdit* m_issuer = nullptr;
    QLabel* m_passwordLabel = nullptr;
    QLineEdit* m_password = nullptr;
    QLabel* m_passwordNote = nullptr;
    FolderChooser* m_folders = nullptr;
    QPushButton* m_signIn = nullptr;
    PageActions m_actions;
    SignInJob* m_signInJob = nullptr;
    // The account as it was signed in (its name and mail key the refresh token), until saved.
    std::optional<BridgeConfig::Account> m_signedIn;
};

} // namespace corvina
