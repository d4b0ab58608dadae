#include "PasswordPage.h"

#include "bridge/config/AccountChanges.h"
#include "platform/Localization.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace corvina {

PasswordPage::PasswordPage(QString configPath, int timeoutSeconds, QWidget* parent)
    : QWidget(parent), m_configPath(std::move(configPath)), m_timeoutSeconds(timeoutSeconds),
      m_actions(this) {
    m_heading = new QLabel;
    QFont bold = m_heading->font();
    bold.setBold(true);
    m_heading->setFont(bold);
    m_heading->setWordWrap(true);
    m_password = new QLineEdit;
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setAccessibleName(Localization::text("New password"));
    auto* label = new QLabel(Localization::text("&New password:"));
    label->setBuddy(m_password);
    auto* note = new QLabel(Localization::text("It replaces the password kept in the keyring for this "
                                               "account; the bridge takes it at its next login."));
    note->setWordWrap(true);

    auto* form = new QFormLayout;
    form->addRow(label, m_password);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_heading);
    layout->addLayout(form);
    layout->addWidget(note);
    layout->addLayout(m_actions.buttonRow());
    layout->addWidget(m_actions.result());
    layout->addStretch();
    setTabOrder(m_password, m_actions.test());
    setTabOrder(m_actions.test(), m_actions.save());
    setTabOrder(m_actions.save(), m_actions.cancel());

    connect(m_actions.test(), &QPushButton::clicked, this, &PasswordPage::testConnection);
    connect(m_actions.save(), &QPushButton::clicked, this, &PasswordPage::save);
    connect(m_actions.cancel(), &QPushButton::clicked, this, [this] {
        m_actions.abandonJob();
        m_password->clear();
        emit cancelled();
    });
}

PasswordPage::~PasswordPage() = default;

bool PasswordPage::changes(const BridgeConfig::Account& account) {
    return account.problem.isEmpty() && account.auth == BridgeConfig::Auth::Password &&
           account.passwordCommand.isEmpty();
}

bool PasswordPage::load(const QString& name) {
    m_actions.abandonJob();
    const BridgeConfig config = BridgeConfig::load(m_configPath);
    const BridgeConfig::Account* account = config.account(name);
    if (account == nullptr || !changes(*account))
        return false;
    m_account = *account;
    m_heading->setText(Localization::text("Change the password of %1 (%2 on %3)")
                           .arg(account->name, account->user, account->host));
    m_password->clear();
    m_actions.clearResult();
    m_actions.setBusy(nullptr, QString());
    m_password->setFocus();
    return true;
}

QString PasswordPage::resultText() const {
    return m_actions.resultText();
}

bool PasswordPage::isBusy() const {
    return m_actions.isBusy();
}

void PasswordPage::testConnection() {
    if (m_actions.isBusy())
        return;
    if (m_password->text().isEmpty()) {
        m_actions.showResult(Localization::text("Type the new password first."), false);
        return;
    }
    m_actions.testConnection(m_account, m_password->text(), m_timeoutSeconds);
}

void PasswordPage::save() {
    if (m_actions.isBusy())
        return;
    if (m_password->text().isEmpty()) {
        m_actions.showResult(Localization::text("Type the new password first."), false);
        return;
    }
    m_actions.startSave(
        [path = m_configPath, account = m_account, password = m_password->text()](QString* error) {
            // The same code as `account password`.
            return AccountChanges(path).replacePassword(account, password, error);
        },
        [this, name = m_account.name] {
            m_password->clear();
            emit saved(name);
        });
}

} // namespace corvina
