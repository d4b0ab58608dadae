#pragma once

#include "PageActions.h"
#include "bridge/config/AccountGroup.h"
#include "bridge/config/BridgeConfig.h"

#include <QString>
#include <QWidget>
#include <optional>

class QSpinBox;
class QLabel;
class QLineEdit;

namespace corvina {

class FolderChooser;
class SecurityBox;

// The Accounts window's page for an account already in bridge.conf: its server, port, security,
// login name and folders as the file has them, the way it signs in shown but not changed.
// "Test connection" runs the bridge's check on the settings as typed (the page's account, before
// anything is written) and offers the server's folders for the lists, as the add page does; the
// account's own stay chosen until another is. "Save" writes them through AccountChanges::edit, the same code
// a command line change would take. A password already in the keyring is kept unless the server or login name
// changes: then the password for the new ones is asked (the keyring never hands a password to another
// server).
class EditAccountPage : public QWidget {
    Q_OBJECT
public:
    EditAccountPage(QString configPath, int timeoutSeconds, QWidget* parent = nullptr);
    ~EditAccountPage() override;

    // Shows the account `name` of bridge.conf as the file has it now; false when there is none.
    bool load(const QString& name);
    QString resultText() const;
    bool isBusy() const;
    // The choice of the lists' folders (the server's, after a connection test).
    FolderChooser& folders() { return *m_folders; }

signals:
    void saved(const QString& name);
    void cancelled();

private:
    // The group as edited, from the group in the file and the fields.
    std::optional<AccountGroup> edited() const;
    // Whether the typed server or login name no longer match the stored password's.
    bool needsNewPassword() const;
    void fieldsChanged();
    void testConnection();
    void save();
    // The edited group; when the account is gone from bridge.conf, nothing, and the page says so.
    std::optional<AccountGroup> editedOrSaid();
    // Sets `*password` to what a test or a save takes: none (the stored one serves), or the typed
    // one for a new server or login name. False, and the page asks for it, when that is not typed.
    bool passwordToUse(std::optional<QString>* password);

    QString m_configPath;
    int m_timeoutSeconds;
    BridgeConfig::Account m_before;

    QLabel* m_heading = nullptr;
    QLineEdit* m_host = nullptr;
    SecurityBox* m_security = nullptr;
    QSpinBox* m_port = nullptr;
    QLineEdit* m_user = nullptr;
    FolderChooser* m_folders = nullptr;
    QLineEdit* m_auth = nullptr;
    QLabel* m_passwordLabel = nullptr;
    QLineEdit* m_password = nullptr;
    PageActions m_actions;
};

} // namespace corvina
