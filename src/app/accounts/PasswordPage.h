#pragma once

#include "PageActions.h"
#include "bridge/config/BridgeConfig.h"

#include <QString>
#include <QWidget>

class QLabel;
class QLineEdit;

namespace corvina {

// The Accounts window's page that replaces an account's stored password, as `corvina-mail-bridge
// account password` does (AccountChanges::replacePassword): the new password typed (masked),
// optionally tried with the bridge's check first, stored only on "Save". It is never shown, logged
// or written anywhere but the keyring.
class PasswordPage : public QWidget {
    Q_OBJECT
public:
    PasswordPage(QString configPath, int timeoutSeconds, QWidget* parent = nullptr);
    ~PasswordPage() override;

    // Shows the page for the account `name` of bridge.conf; false when there is none, or when its
    // password is not one the keyring holds (a passwordCommand, a sign-in).
    bool load(const QString& name);
    QString resultText() const;
    bool isBusy() const;

    // Whether `account` takes a password from the keyring, the only kind this page changes.
    static bool changes(const BridgeConfig::Account& account);

signals:
    void saved(const QString& name);
    void cancelled();

private:
    void testConnection();
    void save();

    QString m_configPath;
    int m_timeoutSeconds;
    BridgeConfig::Account m_account;

    QLabel* m_heading = nullptr;
    QLineEdit* m_password = nullptr;
    PageActions m_actions;
};

} // namespace corvina
