#include "AccountSetup.h"

#include "bridge/config/AccountPassword.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
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

// "ada@fastmail.com" suggests "fastmail".
QString suggestedName(const QString& mail, const BridgeConfig& config) {
    QString base = mail.section(u'@', 1).section(u'.', 0, 0).toLower();
    if (!AccountGroup::isPlainName(base))
        base = QStringLiteral("mail");
    QString name = base;
    for (int n = 2; config.account(name) != nullptr; ++n)
        name = base + QString::number(n);
    return name;
}

// A path typed at the prompt, where no shell expands it: "~/" is the home folder, and a relative
// path is taken from the folder the command runs in, as it would be in the shell.
QString absolutePath(const QString& typed) {
    if (typed == QLatin1String("~") || typed.startsWith(QLatin1String("~/")))
        return QDir::cleanPath(QDir::homePath() + typed.mid(1));
    return QDir::cleanPath(QDir::current().absoluteFilePath(typed));
}

// `text` as one word for a POSIX shell: as it is when it holds nothing the shell reads, else in
// single quotes (a quote inside written '\'').
QString shellWord(const QString& text) {
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_@%+=:,./-]+$"));
    if (plain.match(text).hasMatch())
        return text;
    QString quoted = text;
    quoted.replace(u'\'', QLatin1String("'\\''"));
    return u'\'' + quoted + u'\'';
}

} // namespace

QString AccountSetup::checkCommand(const QString& name) const {
    QString command = QStringLiteral("corvina-mail-bridge");
    // The hint must work as printed: a config other than the one the bridge reads by default is
    // named, by its absolute path, so that the command works from any folder.
    const QString path = QFileInfo(m_path).absoluteFilePath();
    if (path != QFileInfo(BridgeConfig::defaultPath()).absoluteFilePath())
        command += QStringLiteral(" --config ") + shellWord(path);
    return command + QStringLiteral(" check ") + shellWord(name);
}

AccountSetup::AccountSetup(QString configPath, QTextStream& in, QTextStream& out, QTextStream& err,
                           bool terminal, int secretTimeoutMs)
    : m_path(std::move(configPath)), m_in(in), m_out(out), m_err(err), m_terminal(terminal),
      m_secrets(secretTimeoutMs) {}

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

QList<AccountSetup::Question> AccountSetup::questions(const BridgeConfig& config) const {
    const auto fixed = [](const char* text) {
        return [value = QString::fromLatin1(text)](const Answers&) { return value; };
    };
    const auto answerTo = [](const char* key) {
        return [key = QString::fromLatin1(key)](const Answers& answers) { return answers.value(key); };
    };
    // The server's own authority is asked for TLS only: a company's or one's own server is the
    // case where the system's store does not know it.
    const auto withTls = [](const Answers& answers) {
        const QString security = answers.value(QStringLiteral("security"));
        return security == QLatin1String("tls") || security == QLatin1String("starttls");
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
         .check = mailCheck},
        {.key = QStringLiteral("group"),
         .prompt = QStringLiteral("Account name in bridge.conf"),
         .what = QStringLiteral("the account name"),
         .kept = Kept::GroupName,
         .defaultValue =
             [&config](const Answers& answers) {
                 return suggestedName(answers.value(QStringLiteral("mail")), config);
             },
         .check = nameCheck},
        {.key = QStringLiteral("host"),
         .prompt = QStringLiteral("IMAP server"),
         .what = QStringLiteral("the IMAP server"),
         .defaultValue =
             [](const Answers& answers) {
                 return QStringLiteral("imap.") + answers.value(QStringLiteral("mail")).section(u'@', 1);
             }},
        {.key = QStringLiteral("security"),
         .prompt = QStringLiteral("Security: tls, starttls, or none (only for this computer)"),
         .what = QStringLiteral("the security"),
         .defaultValue = fixed("tls"),
         .check = lowerCase},
        {.key = QStringLiteral("port"),
         .prompt = QStringLiteral("Port"),
         .what = QStringLiteral("the port"),
         .defaultValue =
             [](const Answers& answers) {
                 return answers.value(QStringLiteral("security")) == QLatin1String("tls")
                            ? QStringLiteral("993")
                            : QStringLiteral("143");
             }},
        {.key = QStringLiteral("user"),
         .prompt = QStringLiteral("Login name"),
         .what = QStringLiteral("the login name"),
         .defaultValue = answerTo("mail")},
        {.key = QStringLiteral("inbox"),
         .prompt = QStringLiteral("Inbox folder"),
         .what = QStringLiteral("the inbox folder"),
         .kept = Kept::UnlessDefault,
         .defaultValue = fixed("INBOX")},
        {.key = QStringLiteral("todo"),
         .prompt = QStringLiteral("To Do folder (empty: the flagged messages of the inbox)"),
         .what = QStringLiteral("the To Do folder"),
         .kept = Kept::UnlessEmpty},
        {.key = QStringLiteral("memo"),
         .prompt = QStringLiteral("Memo folder (empty: no Memo list)"),
         .what = QStringLiteral("the Memo folder"),
         .kept = Kept::UnlessEmpty},
        {.key = QStringLiteral("caFile"),
         .prompt = QStringLiteral("Certificate authority file (empty: the system's trusted certificates)"),
         .what = QStringLiteral("the certificate authority file"),
         .kept = Kept::UnlessEmpty,
         .asked = withTls,
         .check = caFileCheck},
        {.key = QStringLiteral("passwordCommand"),
         .prompt =
             QStringLiteral("Password command (empty: type the password now, kept in the Secret Service)"),
         .what = QStringLiteral("the password command"),
         .kept = Kept::UnlessEmpty},
    };
}

std::optional<AccountSetup::Answers> AccountSetup::askAll(const QList<Question>& questions) {
    Answers answers;
    for (const Question& question : questions) {
        if (question.asked && !question.asked(answers))
            continue;
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
    }
    return answers;
}

AccountGroup AccountSetup::groupOf(const QList<Question>& questions, const Answers& answers) {
    QString name;
    QVariantMap keys;
    for (const Question& question : questions) {
        const auto it = answers.find(question.key);
        if (it == answers.end())
            continue;
        switch (question.kept) {
        case Kept::GroupName:
            name = *it;
            break;
        case Kept::Always:
            keys.insert(question.key, *it);
            break;
        case Kept::UnlessEmpty:
            if (!it->isEmpty())
                keys.insert(question.key, *it);
            break;
        case Kept::UnlessDefault:
            if (*it != question.defaultValue(answers))
                keys.insert(question.key, *it);
            break;
        }
    }
    return AccountGroup(name, keys);
}

int AccountSetup::add() {
    const BridgeConfig config = BridgeConfig::load(m_path);
    const QList<Question> asked = questions(config);
    const std::optional<Answers> answers = askAll(asked);
    if (!answers)
        return Failed;
    const AccountGroup group = groupOf(asked, *answers);
    const BridgeConfig::Account account = group.read();
    if (!account.problem.isEmpty())
        return fail(QStringLiteral("account add: %1; nothing was written").arg(account.problem));
    if (group.keys().contains(QStringLiteral("passwordCommand"))) {
        // The command is the password's only home: nothing is asked, nothing stored. It is first
        // run by `check`, as when it was written into bridge.conf by hand.
        QString error;
        if (!group.writeTo(m_path, &error))
            return fail(QStringLiteral("account add: %1").arg(error));
        m_out << "Added account " << group.name() << " ("
              << group.keys().value(QStringLiteral("mail")).toString() << ") to " << m_path
              << "; its password comes from its passwordCommand. Try it: " << checkCommand(group.name())
              << Qt::endl;
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

    // The password first: a group in bridge.conf without a password to go with it would only fail.
    QString error;
    if (!m_secrets.store(AccountPassword::keyOf(account), AccountPassword::labelOf(account), *password,
                         &error))
        return fail(QStringLiteral("account add: %1; nothing was written (a passwordCommand in bridge.conf "
                                   "is the other way, see docs/bridge.md)")
                        .arg(error));
    if (!group.writeTo(m_path, &error)) {
        QString ignored;
        m_secrets.clear(group.name(), &ignored);
        return fail(QStringLiteral("account add: %1").arg(error));
    }
    m_out << "Added account " << group.name() << " (" << group.keys().value(QStringLiteral("mail")).toString()
          << ") to " << m_path
          << "; its password is in the Secret Service. Try it: " << checkCommand(group.name()) << Qt::endl;
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
    if (!m_secrets.store(AccountPassword::keyOf(*account), AccountPassword::labelOf(*account), *password,
                         &error))
        return fail(QStringLiteral("account password: %1").arg(error));
    m_out << "Stored the password of " << account->name << " (" << account->mail << ") in the Secret Service"
          << Qt::endl;
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
    // An account that takes its password from a command may never have had one stored: without a
    // Secret Service it can still be removed.
    if (!m_secrets.clear(group, &error) && account->passwordCommand.isEmpty())
        return fail(QStringLiteral("account remove: %1; nothing was changed").arg(error));
    QString writeError;
    if (!AccountGroup::removeFrom(m_path, group, &writeError))
        return fail(QStringLiteral("account remove: %1").arg(writeError));
    m_out << "Removed account " << group << " (" << account->mail << ") from " << m_path;
    if (error.isEmpty())
        m_out << " and its password from the Secret Service";
    m_out << Qt::endl;
    return Ok;
}

} // namespace corvina
