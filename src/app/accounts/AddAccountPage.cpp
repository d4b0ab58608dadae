#include "AddAccountPage.h"

#include "BackgroundJob.h"
#include "ChoiceBox.h"
#include "FieldLabel.h"
#include "FolderChooser.h"
#include "SecurityBox.h"
#include "SignInJob.h"
#include "bridge/config/AccountAnswers.h"
#include "bridge/config/AccountChanges.h"
#include "bridge/config/SecretStore.h"
#include "bridge/service/LiveBridge.h"
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

namespace corvina {

namespace {

const QString OAuth2 = QStringLiteral("oauth2");
const QString Discover = QStringLiteral("discover");
constexpr int TlsPort = 993;
constexpr int PlainPort = 143;

} // namespace

AddAccountPage::AddAccountPage(QString configPath, int timeoutSeconds, QWidget* parent)
    : QWidget(parent), m_configPath(std::move(configPath)), m_timeoutSeconds(timeoutSeconds),
      m_actions(this) {
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
    m_auth = new ChoiceBox;
    m_auth->setAccessibleName(Localization::text("Sign-in"));
    m_auth->addItem(Localization::text("Password: the account's password, or an app password"),
                    QStringLiteral("password"));
    m_auth->addItem(Localization::text("In the browser: the provider publishes its sign-in (OAuth 2)"),
                    OAuth2);
    m_issuer = new QLineEdit;
    m_issuer->setAccessibleName(Localization::text("Sign-in address"));
    m_issuerLabel = new FieldLabel(Localization::text("Sign-in addr&ess:"), m_issuer);
    m_server = new QGroupBox(Localization::text("Server"));
    auto* serverForm = new QFormLayout(m_server);
    serverForm->addRow(new FieldLabel(Localization::text("IMAP ser&ver:"), m_host), m_host);
    serverForm->addRow(new FieldLabel(Localization::text("Securit&y:"), m_security), m_security);
    serverForm->addRow(new FieldLabel(Localization::text("P&ort:"), m_port), m_port);
    serverForm->addRow(new FieldLabel(Localization::text("&Login name:"), m_user), m_user);
    serverForm->addRow(new FieldLabel(Localization::text("Sig&n-in:"), m_auth), m_auth);
    serverForm->addRow(m_issuerLabel, m_issuer);

    m_password = new QLineEdit;
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setAccessibleName(Localization::text("Password"));
    m_passwordLabel = new FieldLabel(Localization::text("&Password:"), m_password);
    m_passwordNote = new QLabel;
    m_passwordNote->setWordWrap(true);
    m_passwordNote->setTextFormat(Qt::RichText);
    m_passwordNote->setOpenExternalLinks(true);
    m_folders = new FolderChooser;

    m_signIn = new QPushButton(Localization::text("Sign in with the &browser"));
    m_signIn->setAccessibleName(Localization::text("Sign in with the browser"));

    auto* form = new QFormLayout;
    form->addRow(new FieldLabel(Localization::text("Mail &address:"), m_mail), m_mail);
    auto* passwordForm = new QFormLayout;
    passwordForm->addRow(m_passwordLabel, m_password);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addLayout(form);
    layout->addWidget(m_providerText);
    layout->addWidget(m_server);
    layout->addLayout(passwordForm);
    layout->addWidget(m_passwordNote);
    layout->addWidget(m_folders);
    layout->addLayout(m_actions.buttonRow({m_signIn}));
    layout->addWidget(m_actions.result());
    layout->addStretch();

    // The order the fields are filled in, then the buttons: the order Tab takes.
    setTabOrder(m_mail, m_host);
    setTabOrder(m_host, m_security);
    setTabOrder(m_security, m_port);
    setTabOrder(m_port, m_user);
    setTabOrder(m_user, m_auth);
    setTabOrder(m_auth, m_issuer);
    setTabOrder(m_issuer, m_password);
    setTabOrder(m_password, m_signIn);
    setTabOrder(m_signIn, m_actions.test());
    setTabOrder(m_actions.test(), m_folders->firstField());
    setTabOrder(m_folders->lastField(), m_actions.save());
    setTabOrder(m_actions.save(), m_actions.cancel());

    connect(m_mail, &QLineEdit::textChanged, this, &AddAccountPage::addressChanged);
    connect(m_auth, &QComboBox::currentIndexChanged, this, &AddAccountPage::addressChanged);
    // A sign-in is for the address and the provider it was made with: another one needs its own.
    connect(m_issuer, &QLineEdit::textChanged, this, &AddAccountPage::forgetUnsavedSignIn);
    connect(m_security, &QComboBox::currentIndexChanged, this, [this] {
        // The usual port goes with the security, unless the person typed another one.
        const bool tls = m_security->security() == QLatin1String("tls");
        if (m_port->value() == (tls ? PlainPort : TlsPort))
            m_port->setValue(tls ? TlsPort : PlainPort);
    });
    connect(m_signIn, &QPushButton::clicked, this, &AddAccountPage::signIn);
    connect(m_actions.test(), &QPushButton::clicked, this, &AddAccountPage::testConnection);
    connect(m_actions.save(), &QPushButton::clicked, this, &AddAccountPage::save);
    connect(m_actions.cancel(), &QPushButton::clicked, this, [this] {
        // While the browser is awaited, Cancel stops that wait and stays: the person may want to
        // try again, or use a password instead.
        if (m_signInJob != nullptr) {
            m_signInJob->cancel();
            m_actions.showResult(Localization::text("Stopping the sign-in…"), true);
            return;
        }
        forgetUnsavedSignIn();
        // A test goes on to its end on its own thread; a save under way still completes (the list
        // shows the account when it does): neither is cut off half way.
        m_actions.abandonJob();
        emit cancelled();
    });
    addressChanged();
}

AddAccountPage::~AddAccountPage() {
    // A window closed after a sign-in that was never saved leaves nothing in the keyring.
    forgetUnsavedSignIn();
}

void AddAccountPage::clear() {
    m_actions.abandonJob();
    if (m_signInJob != nullptr) {
        m_signInJob->abandon();
        m_signInJob = nullptr;
    }
    m_actions.setHeld(false);
    forgetUnsavedSignIn();
    for (QLineEdit* field : {m_mail, m_host, m_user, m_password, m_issuer})
        field->clear();
    m_security->setCurrentIndex(0);
    m_auth->setCurrentIndex(0);
    m_port->setValue(TlsPort);
    m_actions.clearResult();
    m_actions.setBusy(nullptr, QString());
    addressChanged();
    m_mail->setFocus();
}

QString AddAccountPage::resultText() const {
    return m_actions.resultText();
}

bool AddAccountPage::isBusy() const {
    return m_actions.isBusy() || m_signInJob != nullptr;
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

bool AddAccountPage::usesBrowser() const {
    if (m_signedIn || signsInOnly())
        return true;
    return !provider() && m_auth->currentData().toString() == OAuth2;
}

void AddAccountPage::addressChanged() {
    forgetUnsavedSignIn();
    // Another address may be another server: its folders come with its own test.
    m_folders->reset();
    const QString mail = m_mail->text().trimmed();
    const std::optional<ProviderTable::Provider> p = provider();
    const bool typed = mail.contains(u'@') && !ProviderTable::domainOf(mail).isEmpty();
    m_server->setVisible(typed && !p);
    const bool browser = !p && m_auth->currentData().toString() == OAuth2;
    m_issuerLabel->setVisible(browser);
    m_issuer->setVisible(browser);
    const bool password = !signsInOnly() && !browser;
    m_passwordLabel->setVisible(password);
    m_password->setVisible(password);
    // A test needs a password, or a finished sign-in: signIn() shows it then.
    m_actions.test()->setVisible(password);
    m_signIn->setVisible(typed && ((p && p->auth == OAuth2) || (!p && browser)));
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
        m_issuer->setPlaceholderText(QStringLiteral("https://") + ProviderTable::domainOf(mail));
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
            "It takes no password: press Sign in with the browser and finish there, then save."));
    } else if (p->auth == OAuth2) {
        m_passwordNote->setText(
            Localization::text("Sign in with the browser; or use an app password made for this program, "
                               "not your account's password.") +
            where);
    } else if (p->appPassword) {
        m_passwordNote->setText(
            Localization::text("It needs an app password made for this program, not your account's "
                               "password.") +
            where);
    }
}

AccountGroup AddAccountPage::group(bool browser) const {
    const BridgeConfig config = BridgeConfig::load(m_configPath);
    AccountAnswers answers;
    answers.mail = m_mail->text().trimmed();
    answers.name = AccountGroup::suggestedName(answers.mail, config);
    if (const std::optional<ProviderTable::Provider> p = provider()) {
        if (browser)
            answers.auth = OAuth2;
        answers.takeServerOf(*p);
    } else {
        const QString host = m_host->text().trimmed();
        answers.host = host.isEmpty() ? m_host->placeholderText() : host;
        answers.port = QString::number(m_port->value());
        answers.security = m_security->security();
        answers.user = m_user->text().trimmed();
        if (browser) {
            // Found from the provider's published metadata, as `oauthProvider = discover` does: the
            // issuer is the IMAP server's own address unless the person names another.
            answers.auth = OAuth2;
            answers.oauthProvider = Discover;
            answers.oauthIssuer = m_issuer->text().trimmed();
        }
    }
    // The inbox, To Do and Memo as chosen (before a test: the defaults, which add no key).
    answers.inbox = m_folders->inbox();
    answers.todo = m_folders->todo();
    answers.memo = m_folders->memo();
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
    if (account.auth != BridgeConfig::Auth::OAuth2 && m_password->text().isEmpty())
        return Localization::text("Type the password first.");
    return QString();
}

void AddAccountPage::testConnection() {
    if (m_actions.isBusy())
        return;
    const AccountGroup g = group(usesBrowser());
    const BridgeConfig::Account account = g.read();
    const QString wrong = problem(g, account);
    if (!wrong.isEmpty()) {
        m_actions.showResult(wrong, false);
        return;
    }
    // The password goes to the check's thread and the server only; it is not kept anywhere. After
    // a sign-in the check logs in with the sign-in's token, as the bridge will.
    // The same connection then lists the server's folders, for the lists to be chosen from.
    const std::optional<QString> password =
        usesBrowser() ? std::nullopt : std::optional<QString>(m_password->text());
    m_actions.testListingFolders(account, password, m_timeoutSeconds, *m_folders);
}

void AddAccountPage::save() {
    if (m_actions.isBusy())
        return;
    const AccountGroup g = group(usesBrowser());
    const BridgeConfig::Account account = g.read();
    const QString wrong = problem(g, account);
    if (!wrong.isEmpty()) {
        m_actions.showResult(wrong, false);
        return;
    }
    const bool withPassword = !usesBrowser();
    const bool signedIn = m_signedIn.has_value();
    m_actions.startSave(
        [g, account, path = m_configPath, withPassword, password = m_password->text()](QString* error) {
            // The same code as `account add`: the password first, then the group.
            return withPassword ? AccountChanges(path).addWithPassword(g, account, password, error)
                                : g.writeTo(path, error);
        },
        [this, name = g.name(), withPassword, signedIn] {
            // The sign-in now belongs to the saved account.
            m_signedIn.reset();
            const QString note =
                withPassword || signedIn
                    ? QString()
                    : Localization::text("Sign in in your browser to finish: select it and press "
                                         "Sign in again (or run corvina-mail-bridge account "
                                         "signin %1).")
                          .arg(name);
            emit saved(name, note);
        });
}

void AddAccountPage::signIn() {
    if (isBusy())
        return;
    forgetUnsavedSignIn();
    const AccountGroup g = group(true);
    const BridgeConfig::Account account = g.read();
    const QString wrong = problem(g, account);
    if (!wrong.isEmpty()) {
        m_actions.showResult(wrong, false);
        return;
    }
    m_signInJob = new SignInJob(account, SignInJob::BrowserWaitSeconds, m_timeoutSeconds, this);
    connect(m_signInJob, &SignInJob::finished, this, [this](bool ok, const QString& error) {
        const BridgeConfig::Account signedIn = m_signInJob->account();
        m_signInJob->deleteLater();
        m_signInJob = nullptr;
        m_actions.setHeld(false);
        m_signedIn = signedIn;
        if (!ok) {
            // A client id a provider registered on the way is no use to an account never saved.
            forgetUnsavedSignIn();
            m_actions.showResult(Localization::text("Not signed in: %1").arg(error), false);
            return;
        }
        m_actions.test()->setVisible(true);
        m_actions.showResult(
            Localization::text("Signed in as %1 in the browser. Test the connection, or save the "
                               "account.")
                .arg(signedIn.mail),
            true);
    });
    m_actions.setHeld(true);
    m_actions.showResult(
        Localization::text("Waiting for you to finish in the browser… (Cancel stops waiting)"), true);
    m_signInJob->start();
}

void AddAccountPage::forgetUnsavedSignIn() {
    if (!m_signedIn)
        return;
    // The name is the new account's, which bridge.conf does not have: only what this page's sign-in
    // stored is taken.
    const QString name = m_signedIn->name;
    m_signedIn.reset();
    auto* job = new BackgroundJob(
        [name] {
            QString ignored;
            SecretStore().clear(name, &ignored);
        },
        this);
    job->start();
    job->abandon();
}

} // namespace corvina
