#include "AddAccountPage.h"

#include "BackgroundJob.h"
#include "ConnectionCheck.h"
#include "SecurityBox.h"
#include "bridge/config/AccountAnswers.h"
#include "bridge/config/AccountChanges.h"
#include "platform/Localization.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <memory>

namespace corvina {

namespace {

const QString OAuth2 = QStringLiteral("oauth2");
constexpr int TlsPort = 993;
constexpr int PlainPort = 143;

// A label for a field: its words, with the key that reaches it (Alt and the underlined letter).
QLabel* fieldLabel(const QString& text, QWidget* field) {
    auto* label = new QLabel(text);
    label->setBuddy(field);
    return label;
}

} // namespace

AddAccountPage::AddAccountPage(QString configPath, int timeoutSeconds, QWidget* parent)
    : QWidget(parent), m_configPath(std::move(configPath)), m_timeoutSeconds(timeoutSeconds) {
    QString tableError;
    m_providers = ProviderTable::builtIn(&tableError);

    auto* heading = new QLabel(Localization::text("Add a mail account"));
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);

    m_mail = new QLineEdit;
    m_mail->setAccessibleName(Localization::text("Mail address"));
    m_mail->setPlaceholderText(QStringLiteral("ada@example.org"));
    m_providerText = new QLabel;
    m_providerText->setWordWrap(true);
    m_providerText->setTextFormat(Qt::RichText);
    m_providerText->setOpenExternalLinks(true);
    // The table is compiled in, so this is a broken build; the server's fields still work.
    if (!m_providers)
        m_providerText->setText(tableError.toHtmlEscaped());

    m_host = new QLineEdit;
    m_host->setAccessibleName(Localization::text("IMAP server"));
    m_port = new QSpinBox;
    m_port->setRange(1, 65535);
    m_port->setValue(TlsPort);
    m_port->setAccessibleName(Localization::text("Port"));
    // Each choice says in one line what it means, so that the person need not know the words.
    m_security = new SecurityBox;
    m_user = new QLineEdit;
    m_user->setAccessibleName(Localization::text("Login name"));
    m_user->setPlaceholderText(Localization::text("the mail address"));
    m_server = new QGroupBox(Localization::text("Server"));
    auto* serverForm = new QFormLayout(m_server);
    serverForm->addRow(fieldLabel(Localization::text("IMAP ser&ver:"), m_host), m_host);
    serverForm->addRow(fieldLabel(Localization::text("Securit&y:"), m_security), m_security);
    serverForm->addRow(fieldLabel(Localization::text("P&ort:"), m_port), m_port);
    serverForm->addRow(fieldLabel(Localization::text("&Login name:"), m_user), m_user);

    m_password = new QLineEdit;
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setAccessibleName(Localization::text("Password"));
    m_passwordLabel = fieldLabel(Localization::text("&Password:"), m_password);
    m_passwordNote = new QLabel;
    m_passwordNote->setWordWrap(true);
    m_passwordNote->setTextFormat(Qt::RichText);
    m_passwordNote->setOpenExternalLinks(true);
    m_foldersNote = new QLabel(
        Localization::text("The To Do and Memo lists' folders are chosen later, from the server's own "
                           "list; until then To Do shows the inbox's flagged messages."));
    m_foldersNote->setWordWrap(true);

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
    // The line is what the person reads after a test or a save; a screen reader reads it too.
    m_result->setAccessibleDescription(Localization::text("The result of the connection test or the save"));

    auto* form = new QFormLayout;
    form->addRow(fieldLabel(Localization::text("Mail &address:"), m_mail), m_mail);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_test);
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_save);
    auto* passwordForm = new QFormLayout;
    passwordForm->addRow(m_passwordLabel, m_password);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addLayout(form);
    layout->addWidget(m_providerText);
    layout->addWidget(m_server);
    layout->addLayout(passwordForm);
    layout->addWidget(m_passwordNote);
    layout->addWidget(m_foldersNote);
    layout->addLayout(buttons);
    layout->addWidget(m_result);
    layout->addStretch();

    // The order the fields are filled in, then the buttons: the order Tab takes.
    setTabOrder(m_mail, m_host);
    setTabOrder(m_host, m_security);
    setTabOrder(m_security, m_port);
    setTabOrder(m_port, m_user);
    setTabOrder(m_user, m_password);
    setTabOrder(m_password, m_test);
    setTabOrder(m_test, m_save);
    setTabOrder(m_save, m_cancel);

    connect(m_mail, &QLineEdit::textChanged, this, &AddAccountPage::addressChanged);
    connect(m_security, &QComboBox::currentIndexChanged, this, [this] {
        // The usual port goes with the security, unless the person typed another one.
        const bool tls = m_security->security() == QLatin1String("tls");
        if (m_port->value() == (tls ? PlainPort : TlsPort))
            m_port->setValue(tls ? TlsPort : PlainPort);
    });
    connect(m_test, &QPushButton::clicked, this, &AddAccountPage::testConnection);
    connect(m_save, &QPushButton::clicked, this, &AddAccountPage::save);
    connect(m_cancel, &QPushButton::clicked, this, [this] {
        // A test goes on to its end on its own thread; a save under way still completes (the list
        // shows the account when it does): neither is cut off half way.
        if (m_job != nullptr) {
            m_job->abandon();
            m_job = nullptr;
        }
        emit cancelled();
    });
    addressChanged();
}

AddAccountPage::~AddAccountPage() = default;

void AddAccountPage::clear() {
    if (m_job != nullptr) {
        m_job->abandon();
        m_job = nullptr;
    }
    for (QLineEdit* field : {m_mail, m_host, m_user, m_password})
        field->clear();
    m_security->setCurrentIndex(0);
    m_port->setValue(TlsPort);
    m_result->clear();
    setBusy(nullptr, QString());
    addressChanged();
    m_mail->setFocus();
}

QString AddAccountPage::resultText() const {
    return m_result->text();
}

bool AddAccountPage::isBusy() const {
    return m_job != nullptr;
}

std::optional<ProviderTable::Provider> AddAccountPage::provider() const {
    if (!m_providers)
        return std::nullopt;
    return m_providers->find(m_mail->text().trimmed());
}

bool AddAccountPage::signsInOnly() const {
    const std::optional<ProviderTable::Provider> p = provider();
    return p && p->auth == OAuth2 && p->passwordsRefused;
}

void AddAccountPage::addressChanged() {
    const QString mail = m_mail->text().trimmed();
    const std::optional<ProviderTable::Provider> p = provider();
    const bool typed = mail.contains(u'@') && !ProviderTable::domainOf(mail).isEmpty();
    m_server->setVisible(typed && !p);
    const bool password = !signsInOnly();
    m_passwordLabel->setVisible(password);
    m_password->setVisible(password);
    m_test->setVisible(password);
    m_passwordNote->clear();
    if (!typed) {
        if (m_providers)
            m_providerText->setText(
                Localization::text("Type your mail address first: the settings of a known provider are "
                                   "filled in for you."));
        return;
    }
    if (!p) {
        // A guess from the domain, for the person to confirm; only when the fields are still empty,
        // never over what was typed.
        const ProviderTable::Provider guess = ProviderTable::fallback(mail);
        if (m_host->text().isEmpty())
            m_host->setPlaceholderText(guess.host);
        m_providerText->setText(
            Localization::text("Your provider is not in the list this program knows: give its IMAP "
                               "server's settings (your provider's help pages name them)."));
        return;
    }
    QString text = Localization::text("%1: server %2, port %3, %4. %5")
                       .arg(p->name.toHtmlEscaped(), p->host.toHtmlEscaped(), QString::number(p->port),
                            p->security, p->note.toHtmlEscaped());
    m_providerText->setText(text);
    const QString where =
        p->appPasswordUrl.isNull()
            ? QString()
            : QStringLiteral(" <a href=\"%1\">%2</a>")
                  .arg(p->appPasswordUrl.toHtmlEscaped(), Localization::text("Make one at your provider."));
    if (signsInOnly()) {
        m_passwordNote->setText(Localization::text(
            "It takes no password: you sign in in your browser. This window cannot do that yet: save the "
            "account, then run the command it shows."));
    } else if (p->auth == OAuth2) {
        m_passwordNote->setText(
            Localization::text("Use an app password made for this program, not your account's password "
                               "(signing in in the browser is not in this window yet).") +
            where);
    } else if (p->appPassword) {
        m_passwordNote->setText(
            Localization::text("It needs an app password made for this program, not your account's "
                               "password.") +
            where);
    }
}

AccountGroup AddAccountPage::group() const {
    const BridgeConfig config = BridgeConfig::load(m_configPath);
    AccountAnswers answers;
    answers.mail = m_mail->text().trimmed();
    answers.name = AccountGroup::suggestedName(answers.mail, config);
    if (const std::optional<ProviderTable::Provider> p = provider()) {
        if (signsInOnly())
            answers.auth = OAuth2;
        answers.takeServerOf(*p);
    } else {
        const QString host = m_host->text().trimmed();
        answers.host = host.isEmpty() ? m_host->placeholderText() : host;
        answers.port = QString::number(m_port->value());
        answers.security = m_security->security();
        answers.user = m_user->text().trimmed();
    }
    return answers.group();
}

QString AddAccountPage::problem(const AccountGroup& group, const BridgeConfig::Account& account) const {
    const QString mail = group.keys().value(QStringLiteral("mail")).toString();
    if (!mail.contains(u'@'))
        return Localization::text("A mail address is needed (like ada@example.org).");
    const BridgeConfig config = BridgeConfig::load(m_configPath);
    if (const BridgeConfig::Account* taken = config.account(mail))
        return Localization::text("%1 is already the account %2.").arg(mail, taken->name);
    if (!account.problem.isEmpty())
        return account.problem;
    if (!signsInOnly() && m_password->text().isEmpty())
        return Localization::text("Type the password first.");
    return QString();
}

void AddAccountPage::showResult(const QString& text, bool ok) {
    m_result->setText(text);
    m_result->setProperty("ok", ok);
}

void AddAccountPage::setBusy(BackgroundJob* job, const QString& what) {
    m_job = job;
    const bool busy = job != nullptr;
    m_test->setEnabled(!busy);
    m_save->setEnabled(!busy);
    if (busy)
        showResult(what, true);
}

void AddAccountPage::finishJob() {
    if (m_job != nullptr)
        m_job->deleteLater();
    setBusy(nullptr, QString());
}

void AddAccountPage::testConnection() {
    if (m_job != nullptr)
        return;
    const AccountGroup g = group();
    const BridgeConfig::Account account = g.read();
    const QString wrong = problem(g, account);
    if (!wrong.isEmpty()) {
        showResult(wrong, false);
        return;
    }
    // The password goes to the check's thread and the server only; it is not kept anywhere.
    BackgroundJob* job = ConnectionCheck::start(account, m_password->text(), m_timeoutSeconds, this,
                                                [this](bool ok, const QString& line) {
                                                    finishJob();
                                                    showResult(line, ok);
                                                });
    setBusy(job, ConnectionCheck::busyText());
}

void AddAccountPage::save() {
    if (m_job != nullptr)
        return;
    const AccountGroup g = group();
    const BridgeConfig::Account account = g.read();
    const QString wrong = problem(g, account);
    if (!wrong.isEmpty()) {
        showResult(wrong, false);
        return;
    }
    struct Outcome {
        bool ok = false;
        QString error;
    };
    auto outcome = std::make_shared<Outcome>();
    const QString path = m_configPath;
    const bool withPassword = !signsInOnly();
    const QString password = m_password->text();
    auto* job = new BackgroundJob(
        [outcome, g, account, path, withPassword, password] {
            // The same code as `account add`: the password first, then the group.
            outcome->ok = withPassword
                              ? AccountChanges(path).addWithPassword(g, account, password, &outcome->error)
                              : g.writeTo(path, &outcome->error);
        },
        this);
    const QString& name = g.name();
    connect(job, &BackgroundJob::finished, this, [this, outcome, name, withPassword] {
        finishJob();
        if (!outcome->ok) {
            showResult(outcome->error, false);
            return;
        }
        const QString note =
            withPassword ? QString()
                         : Localization::text(
                               "Sign in in your browser to finish: run corvina-mail-bridge account signin %1")
                               .arg(name);
        emit saved(name, note);
    });
    setBusy(job, Localization::text("Saving…"));
    job->start();
}

} // namespace corvina
