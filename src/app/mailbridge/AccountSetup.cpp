#include "AccountSetup.h"

#include "bridge/config/AccountChanges.h"
#include "bridge/config/CommandLine.h"
#include "bridge/service/BridgeNudge.h"

#include <QDir>
#include <csignal>
#include <termios.h>
#include <unistd.h>

namespace corvina {

namespace {

// The terminal's settings while the password is typed without echo, to be put back even when the
// user interrupts.
termios savedTerminal{};
volatile std::sig_atomic_t echoIsOff = 0;

void restoreTerminalAndExit(int signal) {
    if (echoIsOff)
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// A path typed at the prompt, where no shell expands it: "~/" is the home folder, and a relative
// path is taken from the folder the command runs in, as it would be in the shell.
QString absolutePath(const QString& typed) {
    if (typed == QLatin1String("~") || typed.startsWith(QLatin1String("~/")))
        return QDir::cleanPath(QDir::homePath() + typed.mid(1));
    return QDir::cleanPath(QDir::current().absoluteFilePath(typed));
}

const QString Password = QStringLiteral("password");
const QString OAuth2 = QStringLiteral("oauth2");

// What a person is told of a known provider once its address is given: the server it takes, how to
// sign in there, and the table's note.
QString providerSummary(const ProviderTable::Provider& p) {
    QStringList lines{QStringLiteral("%1: IMAP server %2, port %3, %4.")
                          .arg(p.name, p.host, QString::number(p.port), p.security)};
    const QString where =
        p.appPasswordUrl.isNull() ? QString() : QStringLiteral(", made at %1").arg(p.appPasswordUrl);
    if (p.passwordsRefused)
        lines << QStringLiteral("It takes no password over IMAP: you sign in in your browser (oauth2).");
    else if (p.auth == OAuth2 && p.appPassword)
        lines << QStringLiteral("Sign in in your browser (oauth2), or use an app password (password)%1.")
                     .arg(where);
    else if (p.appPassword)
        lines << QStringLiteral(
                     "It needs an app password made for this program, not the account's password%1.")
                     .arg(where);
    lines << p.note;
    return lines.join(u'\n');
}

} // namespace

QString AccountSetup::commandFor(const QString& words, const QString& name) const {
    return CommandLine::bridgeCommand(m_path, words, name);
}

AccountSetup::AccountSetup(QString configPath, QTextStream& in, QTextStream& out, QTextStream& err,
                           bool terminal, int secretTimeoutMs)
    : m_path(std::move(configPath)), m_in(in), m_out(out), m_err(err), m_terminal(terminal),
      m_changes(m_path, secretTimeoutMs) {}

int AccountSetup::fail(const QString& text) {
    m_err << "corvina-mail-bridge: " << text << Qt::endl;
    return Failed;
}

std::optional<QString> AccountSetup::ask(const QString& question, const QString& defaultValue) {
    m_out << question;
    if (!defaultValue.isEmpty())
        m_out << " [" << defaultValue << "]";
    m_out << ": " << Qt::flush;
    QString line;
    if (!m_in.readLineInto(&line))
        return std::nullopt;
    if (!m_terminal)
        m_out << Qt::endl; // a piped answer is not echoed: keep one prompt a line
    line = line.trimmed();
    return line.isEmpty() ? defaultValue : line;
}

std::optional<QString> AccountSetup::askPassword() {
    // Echo goes off before the prompt shows, so that nothing typed after it is ever displayed; and
    // nothing typed ahead is thrown away (no flush).
    const bool quiet = m_terminal && ::tcgetattr(STDIN_FILENO, &savedTerminal) == 0;
    if (quiet) {
        termios noEcho = savedTerminal;
        noEcho.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        echoIsOff = 1;
        std::signal(SIGINT, restoreTerminalAndExit);
        std::signal(SIGTERM, restoreTerminalAndExit);
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &noEcho);
    }
    m_out << "Password (or app password): " << Qt::flush;
    QString line;
    const bool got = m_in.readLineInto(&line);
    if (quiet) {
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &savedTerminal);
        echoIsOff = 0;
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
    }
    m_out << Qt::endl;
    if (!got)
        return std::nullopt;
    // Spaces may belong to a password; only the line's end is not part of it.
    if (line.endsWith(u'\r'))
        line.chop(1);
    return line;
}

QList<AccountSetup::Question> AccountSetup::questions(const BridgeConfig& config,
                                                      const ProviderTable& providers) const {
    const auto fixed = [](const char* text) {
        return [value = QString::fromLatin1(text)](const Answers&) { return value; };
    };
    const auto answerTo = [](const char* key) {
        return [key = QString::fromLatin1(key)](const Answers& answers) { return answers.value(key); };
    };
    // The provider of the address given, when the table knows its domain.
    const auto providerOf = [&providers](const Answers& answers) {
        return providers.find(answers.value(QStringLiteral("mail")));
    };
    // A known provider's server is filled in, not asked; anything else is a guess to be confirmed.
    const auto unknownProvider = [providerOf](const Answers& answers) {
        return !providerOf(answers).has_value();
    };
    // The table's entry, or the defaults offered for a domain it does not know.
    const auto serverOf = [providerOf](const Answers& answers) {
        const QString mail = answers.value(QStringLiteral("mail"));
        return providerOf(answers).value_or(ProviderTable::fallback(mail));
    };
    // The server's own authority is asked for TLS only: a company's or one's own server is the
    // case where the system's store does not know it. A known provider's certificate is one the
    // system trusts, except that of a bridge program on this computer, which makes its own.
    const auto withTls = [providerOf](const Answers& answers) {
        const QString security = answers.value(QStringLiteral("security"));
        if (security != QLatin1String("tls") && security != QLatin1String("starttls"))
            return false;
        const std::optional<ProviderTable::Provider> provider = providerOf(answers);
        return !provider || provider->host == QLatin1String("127.0.0.1") ||
               provider->host == QLatin1String("localhost");
    };
    const auto signsIn = [](const Answers& answers) {
        return answers.value(QStringLiteral("auth")) == OAuth2;
    };
    const auto authCheck = [](QString& auth, const Answers&) {
        auth = auth.toLower();
        if (auth != Password && auth != OAuth2)
            return QStringLiteral("sign in with oauth2 or password, not %1").arg(auth);
        return QString();
    };
    const auto mailCheck = [this, &config](QString& mail, const Answers&) {
        if (mail.isEmpty() || !mail.contains(u'@'))
            return QStringLiteral("a mail address is needed (like ada@example.org)");
        for (const BridgeConfig::Account& taken : config.accounts()) {
            if (taken.mail.compare(mail, Qt::CaseInsensitive) == 0)
                return QStringLiteral("%1 is already account %2 in %3").arg(mail, taken.name, m_path);
        }
        return QString();
    };
    const auto nameCheck = [this, &config](QString& name, const Answers&) {
        if (!AccountGroup::isPlainName(name))
            return QStringLiteral(
                       "an account name is made of letters, digits, \"-\", \"_\" and \".\", not %1")
                .arg(name);
        if (config.account(name) != nullptr)
            return QStringLiteral("there is already an account %1 in %2").arg(name, m_path);
        return QString();
    };
    const auto lowerCase = [](QString& word, const Answers&) {
        word = word.toLower();
        return QString();
    };
    // Read as the bridge reads its caFile, and refused at once, before the password is asked.
    const auto caFileCheck = [](QString& path, const Answers&) {
        if (path.isEmpty())
            return QString();
        path = absolutePath(path);
        const QString problem = BridgeConfig::caFileProblem(path);
        return problem.isEmpty() ? QString() : problem + QStringLiteral("; nothing was written");
    };
    // In the order they are asked; a default or a check reads the answers before it.
    return {
        {.key = QStringLiteral("mail"),
         .prompt = QStringLiteral("Mail address"),
         .what = QStringLiteral("the mail address"),
         .field = &AccountAnswers::mail,
         .check = mailCheck,
         .told =
             [providerOf](const Answers& answers) {
                 const std::optional<ProviderTable::Provider> provider = providerOf(answers);
                 return provider ? providerSummary(*provider) : QString();
             }},
        {.key = QStringLiteral("group"),
         .prompt = QStringLiteral("Account name in bridge.conf"),
         .what = QStringLiteral("the account name"),
         .field = &AccountAnswers::name,
         .defaultValue =
             [&config](const Answers& answers) {
                 return AccountGroup::suggestedName(answers.value(QStringLiteral("mail")), config);
             },
         .check = nameCheck},
        // Asked only where the provider takes both; a provider that takes no password signs in.
        {.key = QStringLiteral("auth"),
         .prompt = QStringLiteral("Sign in: oauth2 (in your browser) or password (an app password)"),
         .what = QStringLiteral("the way of signing in"),
         .field = &AccountAnswers::auth,
         .defaultValue = [serverOf](const Answers& answers) { return serverOf(answers).auth; },
         .asked =
             [providerOf](const Answers& answers) {
                 const std::optional<ProviderTable::Provider> p = providerOf(answers);
                 return p && p->auth == OAuth2 && !p->passwordsRefused;
             },
         .check = authCheck},
        {.key = QStringLiteral("host"),
         .prompt = QStringLiteral("IMAP server"),
         .what = QStringLiteral("the IMAP server"),
         .field = &AccountAnswers::host,
         .defaultValue = [serverOf](const Answers& answers) { return serverOf(answers).host; },
         .asked = unknownProvider},
        {.key = QStringLiteral("security"),
         .prompt = QStringLiteral("Security: tls, starttls, or none (only for this computer)"),
         .what = QStringLiteral("the security"),
         .field = &AccountAnswers::security,
         .defaultValue = [serverOf](const Answers& answers) { return serverOf(answers).security; },
         .asked = unknownProvider,
         .check = lowerCase},
        {.key = QStringLiteral("port"),
         .prompt = QStringLiteral("Port"),
         .what = QStringLiteral("the port"),
         .field = &AccountAnswers::port,
         .defaultValue =
             [providerOf](const Answers& answers) {
                 if (const std::optional<ProviderTable::Provider> p = providerOf(answers))
                     return QString::number(p->port);
                 return answers.value(QStringLiteral("security")) == QLatin1String("tls")
                            ? QStringLiteral("993")
                            : QStringLiteral("143");
             },
         .asked = unknownProvider},
        // Which provider's endpoints the sign-in uses: the table's, never asked.
        {.key = QStringLiteral("oauthProvider"),
         .prompt = QString(),
         .what = QString(),
         .field = &AccountAnswers::oauthProvider,
         .defaultValue =
             [serverOf, signsIn](const Answers& answers) {
                 return signsIn(answers) ? serverOf(answers).oauthProvider : QString();
             },
         .asked = [](const Answers&) { return false; }},
        {.key = QStringLiteral("oauthClientId"),
         .prompt = QStringLiteral("OAuth client id registered with the provider (empty: the one built into "
                                  "this program, if any)"),
         .what = QStringLiteral("the OAuth client id"),
         .field = &AccountAnswers::oauthClientId,
         .asked = signsIn},
        {.key = QStringLiteral("oauthClientSecret"),
         .prompt = QStringLiteral("OAuth client secret (empty: none)"),
         .what = QStringLiteral("the OAuth client secret"),
         .field = &AccountAnswers::oauthClientSecret,
         .asked = signsIn},
        {.key = QStringLiteral("user"),
         .prompt = QStringLiteral("Login name"),
         .what = QStringLiteral("the login name"),
         .field = &AccountAnswers::user,
         .defaultValue = answerTo("mail")},
        {.key = QStringLiteral("inbox"),
         .prompt = QStringLiteral("Inbox folder"),
         .what = QStringLiteral("the inbox folder"),
         .field = &AccountAnswers::inbox,
         .defaultValue = fixed("INBOX")},
        {.key = QStringLiteral("todo"),
         .prompt = QStringLiteral("To Do folder (empty: the flagged messages of the inbox)"),
         .what = QStringLiteral("the To Do folder"),
         .field = &AccountAnswers::todo},
        {.key = QStringLiteral("memo"),
         .prompt = QStringLiteral("Memo folder (empty: no Memo list)"),
         .what = QStringLiteral("the Memo folder"),
         .field = &AccountAnswers::memo},
        {.key = QStringLiteral("caFile"),
         .prompt = QStringLiteral("Certificate authority file (empty: the system's trusted certificates)"),
         .what = QStringLiteral("the certificate authority file"),
         .field = &AccountAnswers::caFile,
         .asked = withTls,
         .check = caFileCheck},
        {.key = QStringLiteral("passwordCommand"),
         .prompt =
             QStringLiteral("Password command (empty: type the password now, kept in the Secret Service)"),
         .what = QStringLiteral("the password command"),
         .field = &AccountAnswers::passwordCommand,
         .asked = [signsIn](const Answers& answers) { return !signsIn(answers); }},
    };
}

std::optional<AccountSetup::Answers> AccountSetup::askAll(const QList<Question>& questions) {
    Answers answers;
    for (const Question& question : questions) {
        if (question.asked && !question.asked(answers)) {
            // Deliberate: what is not asked is still decided, by its default (a known provider's
            // server), so that the questions after it and the group see it.
            if (question.defaultValue)
                answers.insert(question.key, question.defaultValue(answers));
            continue;
        }
        std::optional<QString> answer =
            ask(question.prompt, question.defaultValue ? question.defaultValue(answers) : QString());
        if (!answer) {
            fail(QStringLiteral("account add: the input ended before %1; nothing was written")
                     .arg(question.what));
            return std::nullopt;
        }
        if (question.check) {
            const QString problem = question.check(*answer, answers);
            if (!problem.isEmpty()) {
                fail(QStringLiteral("account add: ") + problem);
                return std::nullopt;
            }
        }
        answers.insert(question.key, *answer);
        if (question.told) {
            const QString told = question.told(answers);
            if (!told.isEmpty())
                m_out << told << Qt::endl;
        }
    }
    return answers;
}

AccountGroup AccountSetup::groupOf(const QList<Question>& questions, const Answers& answers) {
    AccountAnswers given;
    for (const Question& question : questions) {
        const auto it = answers.find(question.key);
        if (it != answers.end() && question.field != nullptr)
            given.*question.field = *it;
    }
    return given.group();
}

int AccountSetup::add() {
    const BridgeConfig config = BridgeConfig::load(m_path);
    QString tableError;
    const std::optional<ProviderTable> providers = ProviderTable::builtIn(&tableError);
    // The table is compiled in, so this is a broken build; the questions still work without it.
    if (!providers)
        m_err << "corvina-mail-bridge: account add: " << tableError << "; every setting is asked" << Qt::endl;
    const ProviderTable table = providers.value_or(ProviderTable());
    const QList<Question> asked = questions(config, table);
    const std::optional<Answers> answers = askAll(asked);
    if (!answers)
        return Failed;
    const AccountGroup group = groupOf(asked, *answers);
    const BridgeConfig::Account account = group.read();
    if (!account.problem.isEmpty())
        return fail(QStringLiteral("account add: %1; nothing was written").arg(account.problem));
    if (group.keys().value(QStringLiteral("auth")).toString() == OAuth2) {
        // No password at all: the sign-in in the browser gives the account its tokens, and that is
        // a command of its own, run by the person when they are ready for the browser.
        QString error;
        if (!group.writeTo(m_path, &error))
            return fail(QStringLiteral("account add: %1").arg(error));
        m_out << "Added account " << group.name() << " ("
              << group.keys().value(QStringLiteral("mail")).toString() << ") to " << m_path
              << "; it signs in with oauth2. Next, sign in in your browser: "
              << commandFor(QStringLiteral("account signin"), group.name()) << Qt::endl;
        return Ok;
    }
    if (group.keys().contains(QStringLiteral("passwordCommand"))) {
        // The command is the password's only home: nothing is asked, nothing stored. It is first
        // run by `check`, as when it was written into bridge.conf by hand.
        QString error;
        if (!group.writeTo(m_path, &error))
            return fail(QStringLiteral("account add: %1").arg(error));
        m_out << "Added account " << group.name() << " ("
              << group.keys().value(QStringLiteral("mail")).toString() << ") to " << m_path
              << "; its password comes from its passwordCommand. Try it: "
              << commandFor(QStringLiteral("check"), group.name()) << Qt::endl;
        return Ok;
    }
    return storeAndWrite(group, account);
}

int AccountSetup::storeAndWrite(const AccountGroup& group, const BridgeConfig::Account& account) {
    const std::optional<QString> password = askPassword();
    if (!password)
        return fail(QStringLiteral("account add: the input ended before the password; nothing was written"));
    if (password->isEmpty())
        return fail(QStringLiteral("account add: no password given; nothing was written"));

    QString error;
    if (!m_changes.addWithPassword(group, account, *password, &error))
        return fail(QStringLiteral("account add: %1").arg(error));
    m_out << "Added account " << group.name() << " (" << group.keys().value(QStringLiteral("mail")).toString()
          << ") to " << m_path << "; its password is in the Secret Service. Try it: "
          << commandFor(QStringLiteral("check"), group.name()) << Qt::endl;
    return Ok;
}

int AccountSetup::setPassword(const QString& name) {
    const BridgeConfig config = BridgeConfig::load(m_path);
    const BridgeConfig::Account* account = config.account(name);
    if (account == nullptr) {
        m_err << "corvina-mail-bridge: no account " << name << " in " << m_path << Qt::endl;
        return UsageError;
    }
    if (!account->passwordCommand.isEmpty())
        return fail(QStringLiteral("account password: %1 takes its password from its passwordCommand; "
                                   "remove that key to use the Secret Service")
                        .arg(account->name));
    if (account->host.isEmpty())
        return fail(QStringLiteral("account password: %1: %2").arg(account->name, account->problem));
    const std::optional<QString> password = askPassword();
    if (!password || password->isEmpty())
        return fail(QStringLiteral("account password: no password given; nothing was changed"));
    QString error;
    if (!m_changes.replacePassword(*account, *password, &error))
        return fail(QStringLiteral("account password: %1").arg(error));
    m_out << "Stored the password of " << account->name << " (" << account->mail << ") in the Secret Service"
          << Qt::endl;
    // A running bridge follows bridge.conf, but a new password changes no file: told, as the
    // Accounts window tells it, so that an account waiting after a refused login tries at once.
    BridgeNudge::sendBeforeExit();
    return Ok;
}

int AccountSetup::remove(const QString& name) {
    const BridgeConfig config = BridgeConfig::load(m_path);
    const BridgeConfig::Account* account = config.account(name);
    if (account == nullptr) {
        m_err << "corvina-mail-bridge: no account " << name << " in " << m_path << Qt::endl;
        return UsageError;
    }
    const QString group = account->name;
    QString error;
    bool keyringCleared = false;
    if (!m_changes.remove(*account, &error, &keyringCleared))
        return fail(QStringLiteral("account remove: %1").arg(error));
    m_out << "Removed account " << group << " (" << account->mail << ") from " << m_path;
    if (keyringCleared)
        m_out << " and its password from the Secret Service";
    m_out << Qt::endl;
    return Ok;
}

} // namespace corvina
