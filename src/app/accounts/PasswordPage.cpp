#include "PasswordPage.h"

#include "BackgroundJob.h"
#include "ConnectionCheck.h"
#include "bridge/config/AccountChanges.h"
#include "platform/Localization.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <memory>

namespace corvina {

PasswordPage::PasswordPage(QString configPath, int timeoutSeconds, QWidget* parent)
    : QWidget(parent), m_configPath(std::move(configPath)), m_timeoutSeconds(timeoutSeconds) {
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

    m_test = new QPushButton(Localization::text("&Test connection"));
    m_test->setAccessibleName(Localization::text("Test connection"));
    m_save = new QPushButton(Localization::text("&Save"));
    m_save->setAccessibleName(Localization::text("Save"));
    m_cancel = new QPushButton(Localization::text("Cancel"));
    m_cancel->setAccessibleName(Localization::text("Cancel"));
    m_cancel->setShortcut(QKeySequence(Qt::Key_Escape));
    m_result = new QLabel;
    m_result->setWordWrap(true);
    m_result->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_result->setAccessibleDescription(Localization::text("The result of the connection test or the save"));

    auto* form = new QFormLayout;
    form->addRow(label, m_password);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_test);
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_save);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_heading);
    layout->addLayout(form);
    layout->addWidget(note);
    layout->addLayout(buttons);
    layout->addWidget(m_result);
    layout->addStretch();
    setTabOrder(m_password, m_test);
    setTabOrder(m_test, m_save);
    setTabOrder(m_save, m_cancel);

    connect(m_test, &QPushButton::clicked, this, &PasswordPage::testConnection);
    connect(m_save, &QPushButton::clicked, this, &PasswordPage::save);
    connect(m_cancel, &QPushButton::clicked, this, [this] {
        abandonJob();
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
    abandonJob();
    const BridgeConfig config = BridgeConfig::load(m_configPath);
    const BridgeConfig::Account* account = config.account(name);
    if (account == nullptr || !changes(*account))
        return false;
    m_account = *account;
    m_heading->setText(Localization::text("Change the password of %1 (%2 on %3)")
                           .arg(account->name, account->user, account->host));
    m_password->clear();
    m_result->clear();
    setBusy(nullptr, QString());
    m_password->setFocus();
    return true;
}

QString PasswordPage::resultText() const {
    return m_result->text();
}

bool PasswordPage::isBusy() const {
    return m_job != nullptr;
}

void PasswordPage::showResult(const QString& text, bool ok) {
    m_result->setText(text);
    m_result->setProperty("ok", ok);
}

void PasswordPage::setBusy(BackgroundJob* job, const QString& what) {
    m_job = job;
    const bool busy = job != nullptr;
    m_test->setEnabled(!busy);
    m_save->setEnabled(!busy);
    if (busy)
        showResult(what, true);
}

void PasswordPage::finishJob() {
    if (m_job != nullptr)
        m_job->deleteLater();
    setBusy(nullptr, QString());
}

void PasswordPage::abandonJob() {
    if (m_job != nullptr) {
        m_job->abandon();
        m_job = nullptr;
    }
}

void PasswordPage::testConnection() {
    if (m_job != nullptr)
        return;
    if (m_password->text().isEmpty()) {
        showResult(Localization::text("Type the new password first."), false);
        return;
    }
    BackgroundJob* job = ConnectionCheck::start(m_account, m_password->text(), m_timeoutSeconds, this,
                                                [this](bool ok, const QString& line) {
                                                    finishJob();
                                                    showResult(line, ok);
                                                });
    setBusy(job, ConnectionCheck::busyText());
}

void PasswordPage::save() {
    if (m_job != nullptr)
        return;
    if (m_password->text().isEmpty()) {
        showResult(Localization::text("Type the new password first."), false);
        return;
    }
    struct Outcome {
        bool ok = false;
        QString error;
    };
    auto outcome = std::make_shared<Outcome>();
    const QString path = m_configPath;
    const BridgeConfig::Account account = m_account;
    const QString password = m_password->text();
    auto* job = new BackgroundJob(
        [outcome, path, account, password] {
            // The same code as `account password`.
            outcome->ok = AccountChanges(path).replacePassword(account, password, &outcome->error);
        },
        this);
    connect(job, &BackgroundJob::finished, this, [this, outcome, name = account.name] {
        finishJob();
        if (!outcome->ok) {
            showResult(outcome->error, false);
            return;
        }
        m_password->clear();
        emit saved(name);
    });
    setBusy(job, Localization::text("Saving…"));
    job->start();
}

} // namespace corvina
