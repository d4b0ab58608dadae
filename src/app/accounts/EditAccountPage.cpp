#include "EditAccountPage.h"

#include "FieldLabel.h"
#include "FolderChooser.h"
#include "SecurityBox.h"
#include "bridge/config/AccountChanges.h"
#include "platform/Localization.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace corvina {

namespace {

const QString DefaultInbox = QStringLiteral("INBOX");

QLineEdit* editField(const QString& accessibleName) {
    auto* field = new QLineEdit;
    field->setAccessibleName(accessibleName);
    return field;
}

} // namespace

EditAccountPage::EditAccountPage(QString configPath, int timeoutSeconds, QWidget* parent)
    : QWidget(parent), m_configPath(std::move(configPath)), m_timeoutSeconds(timeoutSeconds),
      m_actions(this) {
    m_heading = new QLabel;
    QFont bold = m_heading->font();
    bold.setBold(true);
    m_heading->setFont(bold);

    m_host = editField(Localization::text("IMAP server"));
    m_security = new SecurityBox;
    m_port = new QSpinBox;
    m_port->setRange(1, 65535);
    m_port->setAccessibleName(Localization::text("Port"));
    m_user = editField(Localization::text("Login name"));
    m_user->setPlaceholderText(Localization::text("the mail address"));
    // The lists' folders are chosen from the server's own list, as on the add page: the account's
    // current ones until a connection test brings that list.
    m_folders = new FolderChooser(this);
    // Shown, not changed here: a new way of signing in is a new account.
    m_auth = editField(Localization::text("Signs in with"));
    m_auth->setReadOnly(true);
    m_password = editField(Localization::text("Password for the new server or login name"));
    m_password->setEchoMode(QLineEdit::Password);
    m_passwordLabel = new FieldLabel(Localization::text("&Password:"), m_password);

    auto* form = new QFormLayout;
    form->addRow(new FieldLabel(Localization::text("IMAP ser&ver:"), m_host), m_host);
    form->addRow(new FieldLabel(Localization::text("Securit&y:"), m_security), m_security);
    form->addRow(new FieldLabel(Localization::text("P&ort:"), m_port), m_port);
    form->addRow(new FieldLabel(Localization::text("&Login name:"), m_user), m_user);
    form->addRow(new FieldLabel(Localization::text("Signs in &with:"), m_auth), m_auth);
    form->addRow(m_passwordLabel, m_password);
    // In the same form: the folders' labels in the column of the others.
    m_folders->moveRowsTo(form);

    auto* note = new QLabel(
        Localization::text("A running bridge follows the changed settings as soon as they are saved."));
    note->setWordWrap(true);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_heading);
    layout->addLayout(form);
    layout->addWidget(note);
    layout->addLayout(m_actions.buttonRow());
    layout->addWidget(m_actions.result());
    layout->addStretch();

    // The fields top to bottom, Test, the folders it offers, then Save: the order Tab takes, as on
    // the add page.
    setTabOrder(m_host, m_security);
    setTabOrder(m_security, m_port);
    setTabOrder(m_port, m_user);
    setTabOrder(m_user, m_auth);
    setTabOrder(m_auth, m_password);
    setTabOrder(m_password, m_actions.test());
    setTabOrder(m_actions.test(), m_folders->firstField());
    setTabOrder(m_folders->lastField(), m_actions.save());
    setTabOrder(m_actions.save(), m_actions.cancel());

    connect(m_host, &QLineEdit::textChanged, this, &EditAccountPage::fieldsChanged);
    connect(m_user, &QLineEdit::textChanged, this, &EditAccountPage::fieldsChanged);
    connect(m_actions.test(), &QPushButton::clicked, this, &EditAccountPage::testConnection);
    connect(m_actions.save(), &QPushButton::clicked, this, &EditAccountPage::save);
    connect(m_actions.cancel(), &QPushButton::clicked, this, [this] {
        // As on the add page: a test or a save under way ends on its own thread, unseen.
        m_actions.abandonJob();
        emit cancelled();
    });
}

EditAccountPage::~EditAccountPage() = default;

bool EditAccountPage::load(const QString& name) {
    m_actions.abandonJob();
    const BridgeConfig config = BridgeConfig::load(m_configPath);
    const BridgeConfig::Account* account = config.account(name);
    if (account == nullptr)
        return false;
    m_before = *account;
    m_heading->setText(Localization::text("Edit %1 (%2)").arg(account->name, account->mail));
    m_host->setText(account->host);
    m_security->setSecurity(BridgeConfig::securityName(account->security));
    m_port->setValue(account->port);
    m_user->setText(account->user == account->mail ? QString() : account->user);
    m_folders->showCurrent(account->inbox, account->todo, account->memo);
    QString auth = BridgeConfig::authName(account->auth);
    if (!account->passwordCommand.isEmpty())
        auth = Localization::text("password, from its passwordCommand");
    m_auth->setText(auth);
    m_password->clear();
    m_actions.clearResult();
    m_actions.setBusy(nullptr, QString());
    fieldsChanged();
    m_host->setFocus();
    return true;
}

QString EditAccountPage::resultText() const {
    return m_actions.resultText();
}

bool EditAccountPage::isBusy() const {
    return m_actions.isBusy();
}

bool EditAccountPage::needsNewPassword() const {
    BridgeConfig::Account typed = m_before;
    typed.host = m_host->text().trimmed();
    typed.user = m_user->text().trimmed().isEmpty() ? m_before.mail : m_user->text().trimmed();
    return AccountChanges::movesPassword(m_before, typed);
}

void EditAccountPage::fieldsChanged() {
    const bool needed = needsNewPassword();
    m_passwordLabel->setVisible(needed);
    m_password->setVisible(needed);
}

std::optional<AccountGroup> EditAccountPage::edited() const {
    const std::optional<AccountGroup> current = AccountGroup::readFrom(m_configPath, m_before.name);
    if (!current)
        return std::nullopt;
    const QString inbox = m_folders->inbox();
    // An empty text takes the key out: the bridge's default (the mail address, INBOX, no folder)
    // then holds, as for an account added with those answers.
    return current->with({{QStringLiteral("host"), m_host->text().trimmed()},
                          {QStringLiteral("security"), m_security->security()},
                          {QStringLiteral("port"), QString::number(m_port->value())},
                          {QStringLiteral("user"), m_user->text().trimmed()},
                          {QStringLiteral("inbox"), inbox == DefaultInbox ? QString() : inbox},
                          {QStringLiteral("todo"), m_folders->todo()},
                          {QStringLiteral("memo"), m_folders->memo()}});
}

bool EditAccountPage::passwordToUse(std::optional<QString>* password) {
    // The stored password still serves the same server and login; for new ones the typed one is
    // taken, and it goes to the check's thread, the server and the keyring only.
    password->reset();
    if (!needsNewPassword())
        return true;
    if (m_password->text().isEmpty()) {
        m_actions.showResult(Localization::text("Type the password for the new server or login name first."),
                             false);
        return false;
    }
    *password = m_password->text();
    return true;
}

std::optional<AccountGroup> EditAccountPage::editedOrSaid() {
    std::optional<AccountGroup> group = edited();
    if (!group)
        m_actions.showResult(
            Localization::text("The account %1 is no longer in bridge.conf.").arg(m_before.name), false);
    return group;
}

void EditAccountPage::testConnection() {
    if (m_actions.isBusy())
        return;
    const std::optional<AccountGroup> group = editedOrSaid();
    if (!group)
        return;
    const BridgeConfig::Account account = group->read();
    if (!account.problem.isEmpty()) {
        m_actions.showResult(account.problem, false);
        return;
    }
    std::optional<QString> password;
    if (!passwordToUse(&password))
        return;
    // Deliberately tried with the default folders (INBOX, no To Do or Memo folder): a chosen
    // folder that is gone from the server would fail the check, and with it the list of the
    // folders to choose another from. The chosen ones are compared with that list instead.
    BridgeConfig::Account probe = account;
    probe.inbox = DefaultInbox;
    probe.todo.clear();
    probe.memo.clear();
    m_actions.testListingFolders(probe, password, m_timeoutSeconds, *m_folders);
}

void EditAccountPage::save() {
    if (m_actions.isBusy())
        return;
    const std::optional<AccountGroup> group = editedOrSaid();
    if (!group)
        return;
    std::optional<QString> password;
    if (!passwordToUse(&password))
        return;
    m_actions.startSave([path = m_configPath, before = m_before, g = *group, password](
                            QString* error) { return AccountChanges(path).edit(before, g, password, error); },
                        [this, name = m_before.name] { emit saved(name); });
}

} // namespace corvina
