#include "AccountSetup.h"

#include "bridge/config/AccountPassword.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
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

// Group names become INI section names: plain words keep bridge.conf readable and editable.
bool isPlainName(const QString& name) {
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9._-]*$"));
    return plain.match(name).hasMatch();
}

// "ada@fastmail.com" suggests "fastmail".
QString suggestedName(const QString& mail, const BridgeConfig& config) {
    QString base = mail.section(u'@', 1).section(u'.', 0, 0).toLower();
    if (!isPlainName(base))
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

BridgeConfig::Account AccountSetup::validate(const QString& name, const QVariantMap& keys) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bridge.conf"));
    {
        QSettings settings(path, QSettings::IniFormat);
        settings.beginGroup(name);
        for (auto it = keys.begin(); it != keys.end(); ++it)
            settings.setValue(it.key(), it.value());
        settings.endGroup();
    }
    const BridgeConfig config = BridgeConfig::load(path);
    if (config.accounts().size() != 1) {
        BridgeConfig::Account broken;
        broken.problem = QStringLiteral("the account could not be written as an INI group");
        return broken;
    }
    return config.accounts().first();
}

bool AccountSetup::writeGroup(const QString& name, const QVariantMap& keys, QString* error) const {
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    QSettings settings(m_path, QSettings::IniFormat);
    settings.beginGroup(name);
    for (auto it = keys.begin(); it != keys.end(); ++it)
        settings.setValue(it.key(), it.value());
    settings.endGroup();
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        *error = QStringLiteral("cannot write %1").arg(m_path);
        return false;
    }
    return true;
}

int AccountSetup::add() {
    const BridgeConfig config = BridgeConfig::load(m_path);
    const auto ended = [this](const char* what) {
        return fail(QStringLiteral("account add: the input ended before %1; nothing was written")
                        .arg(QLatin1String(what)));
    };

    const std::optional<QString> mail = ask(QStringLiteral("Mail address"));
    if (!mail)
        return ended("the mail address");
    if (mail->isEmpty() || !mail->contains(u'@'))
        return fail(QStringLiteral("account add: a mail address is needed (like ada@example.org)"));
    for (const BridgeConfig::Account& taken : config.accounts()) {
        if (taken.mail.compare(*mail, Qt::CaseInsensitive) == 0)
            return fail(
                QStringLiteral("account add: %1 is already account %2 in %3").arg(*mail, taken.name, m_path));
    }

    const std::optional<QString> name =
        ask(QStringLiteral("Account name in bridge.conf"), suggestedName(*mail, config));
    if (!name)
        return ended("the account name");
    if (!isPlainName(*name))
        return fail(QStringLiteral("account add: an account name is made of letters, digits, \"-\", \"_\" "
                                   "and \".\", not %1")
                        .arg(*name));
    if (config.account(*name) != nullptr)
        return fail(QStringLiteral("account add: there is already an account %1 in %2").arg(*name, m_path));

    const std::optional<QString> host =
        ask(QStringLiteral("IMAP server"), QStringLiteral("imap.") + mail->section(u'@', 1));
    if (!host)
        return ended("the IMAP server");
    const std::optional<QString> security = ask(
        QStringLiteral("Security: tls, starttls, or none (only for this computer)"), QStringLiteral("tls"));
    if (!security)
        return ended("the security");
    const bool implicitTls = security->compare(QLatin1String("tls"), Qt::CaseInsensitive) == 0;
    const std::optional<QString> port =
        ask(QStringLiteral("Port"), implicitTls ? QStringLiteral("993") : QStringLiteral("143"));
    if (!port)
        return ended("the port");
    const std::optional<QString> user = ask(QStringLiteral("Login name"), *mail);
    if (!user)
        return ended("the login name");
    const std::optional<QString> inbox = ask(QStringLiteral("Inbox folder"), QStringLiteral("INBOX"));
    if (!inbox)
        return ended("the inbox folder");
    const std::optional<QString> todo =
        ask(QStringLiteral("To Do folder (empty: the flagged messages of the inbox)"));
    if (!todo)
        return ended("the To Do folder");
    const std::optional<QString> memo = ask(QStringLiteral("Memo folder (empty: no Memo list)"));
    if (!memo)
        return ended("the Memo folder");

    // The server's own authority, for TLS: asked here because a company's or one's own server is
    // the case where the system's store does not know it.
    QString caFile;
    const QString securityWord = security->toLower();
    if (securityWord == QLatin1String("tls") || securityWord == QLatin1String("starttls")) {
        const std::optional<QString> answer =
            ask(QStringLiteral("Certificate authority file (empty: the system's trusted certificates)"));
        if (!answer)
            return ended("the certificate authority file");
        if (!answer->isEmpty()) {
            caFile = absolutePath(*answer);
            if (!QFileInfo(caFile).isFile() || !QFileInfo(caFile).isReadable())
                return fail(
                    QStringLiteral("account add: caFile %1 cannot be read; nothing was written").arg(caFile));
        }
    }
    const std::optional<QString> passwordCommand =
        ask(QStringLiteral("Password command (empty: type the password now, kept in the Secret Service)"));
    if (!passwordCommand)
        return ended("the password command");

    QVariantMap keys{{QStringLiteral("mail"), *mail},
                     {QStringLiteral("host"), *host},
                     {QStringLiteral("security"), securityWord},
                     {QStringLiteral("port"), *port},
                     {QStringLiteral("user"), *user}};
    if (*inbox != QLatin1String("INBOX"))
        keys.insert(QStringLiteral("inbox"), *inbox);
    if (!todo->isEmpty())
        keys.insert(QStringLiteral("todo"), *todo);
    if (!memo->isEmpty())
        keys.insert(QStringLiteral("memo"), *memo);
    if (!caFile.isEmpty())
        keys.insert(QStringLiteral("caFile"), caFile);
    if (!passwordCommand->isEmpty())
        keys.insert(QStringLiteral("passwordCommand"), *passwordCommand);
    const BridgeConfig::Account account = validate(*name, keys);
    if (!account.problem.isEmpty())
        return fail(QStringLiteral("account add: %1; nothing was written").arg(account.problem));

    QString error;
    if (!passwordCommand->isEmpty()) {
        // The command is the password's only home: nothing is asked, nothing stored. It is first
        // run by `check`, as when it was written into bridge.conf by hand.
        if (!writeGroup(*name, keys, &error))
            return fail(QStringLiteral("account add: %1").arg(error));
        m_out << "Added account " << *name << " (" << *mail << ") to " << m_path
              << "; its password comes from its passwordCommand. Try it: " << checkCommand(*name) << Qt::endl;
        return Ok;
    }

    const std::optional<QString> password = askPassword();
    if (!password)
        return ended("the password");
    if (password->isEmpty())
        return fail(QStringLiteral("account add: no password given; nothing was written"));

    // The password first: a group in bridge.conf without a password to go with it would only fail.
    if (!m_secrets.store(AccountPassword::keyOf(account), AccountPassword::labelOf(account), *password,
                         &error))
        return fail(QStringLiteral("account add: %1; nothing was written (a passwordCommand in bridge.conf "
                                   "is the other way, see docs/bridge.md)")
                        .arg(error));
    if (!writeGroup(*name, keys, &error)) {
        QString ignored;
        m_secrets.clear(*name, &ignored);
        return fail(QStringLiteral("account add: %1").arg(error));
    }
    m_out << "Added account " << *name << " (" << *mail << ") to " << m_path
          << "; its password is in the Secret Service. Try it: " << checkCommand(*name) << Qt::endl;
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
    QSettings settings(m_path, QSettings::IniFormat);
    settings.remove(group);
    settings.sync();
    if (settings.status() != QSettings::NoError)
        return fail(QStringLiteral("account remove: cannot write %1").arg(m_path));
    m_out << "Removed account " << group << " (" << account->mail << ") from " << m_path;
    if (error.isEmpty())
        m_out << " and its password from the Secret Service";
    m_out << Qt::endl;
    return Ok;
}

} // namespace corvina
