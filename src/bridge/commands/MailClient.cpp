#include "MailClient.h"

#include "bridge/config/CommandLine.h"
#include "requestutils/RequestUtils.h"

#include <QByteArrayList>
#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTimer>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace corvina {

namespace {

// A started program as its lines name it: `what` names the command ("xdg-email", "openCommand
// my-mail-client"); `xdgStatus` says that it is one of xdg-utils, whose exit statuses have fixed
// meanings, one of which names the `action` it found no application for.
struct Program {
    QString what;
    QString action;
    bool xdgStatus = false;
};

QString strerrorText(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// What a program's end means, in one line; empty for success.
QString exitProblem(const Program& program, int status) {
    if (WIFSIGNALED(status))
        return QStringLiteral("%1 was killed by signal %2").arg(program.what).arg(WTERMSIG(status));
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code == 0)
        return QString();
    if (program.xdgStatus) {
        // xdg-utils' exit statuses, as their manual pages list them.
        switch (code) {
        case 1:
            return QStringLiteral("%1 refused its arguments (exit status 1)").arg(program.what);
        case 2:
            return QStringLiteral("%1 did not find a file it was given (exit status 2)").arg(program.what);
        case 3:
            return QStringLiteral("%1 found no application %2 (exit status 3)")
                .arg(program.what, program.action);
        case 4:
            return QStringLiteral("%1: the application %2 failed (exit status 4)")
                .arg(program.what, program.action);
        case 5:
            return QStringLiteral("%1 may not read a file it was given (exit status 5)").arg(program.what);
        default:
            break;
        }
    }
    return QStringLiteral("%1 failed with status %2").arg(program.what).arg(code);
}

// What the watch's report on a program means: success, or failure with one line saying why. Still
// running at the end of the wait is a success: a client that stays in the foreground.
std::pair<bool, QString> verdict(const Program& program, ChildWatch::State state, int waitStatus) {
    switch (state) {
    case ChildWatch::State::Running:
        break;
    case ChildWatch::State::Ended: {
        const QString problem = exitProblem(program, waitStatus);
        return {problem.isEmpty(), problem};
    }
    case ChildWatch::State::StatusLost:
        return {false, QStringLiteral("%1 ended; its exit status was lost").arg(program.what)};
    }
    return {true, QString()};
}

// The bridge's environment for the program, with the activation token it should come to the front
// with, or none.
QStringList childEnvironment(const QString& activationToken) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("XDG_ACTIVATION_TOKEN"));
    environment.remove(QStringLiteral("DESKTOP_STARTUP_ID"));
    if (!activationToken.isEmpty()) {
        environment.insert(QStringLiteral("XDG_ACTIVATION_TOKEN"), activationToken);
        environment.insert(QStringLiteral("DESKTOP_STARTUP_ID"), activationToken);
    }
    return environment.toStringList();
}

// Texts in the local encoding, as the null-terminated array of C strings that exec wants.
class CStringArray {
public:
    explicit CStringArray(const QStringList& texts) {
        for (const QString& text : texts)
            m_bytes << text.toLocal8Bit();
        for (QByteArray& bytes : m_bytes)
            m_pointers.push_back(bytes.data());
        m_pointers.push_back(nullptr);
    }
    char* const* data() const { return m_pointers.data(); }
    const char* first() const { return m_pointers.front(); }

private:
    QByteArrayList m_bytes;
    std::vector<char*> m_pointers;
};

// What posix_spawn does to the program's files: standard input from /dev/null, nothing of the
// bridge's own open, and the working folder `directory` when not empty.
class SpawnFileActions {
public:
    explicit SpawnFileActions(const QByteArray& directory) {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
        // The bridge's sockets and files are none of the mail client's business.
        posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
#endif
        if (!directory.isEmpty()) {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 29)
            // A desktop file's Path: the folder the application is started in.
            posix_spawn_file_actions_addchdir_np(&m_actions, directory.constData());
#endif
        }
    }
    ~SpawnFileActions() {
        posix_spawn_file_actions_destroy(&m_actions);
    }
    SpawnFileActions(const SpawnFileActions&) = delete;
    SpawnFileActions& operator=(const SpawnFileActions&) = delete;
    const posix_spawn_file_actions_t* get() const {
        return &m_actions;
    }

private:
    posix_spawn_file_actions_t m_actions;
};

// A session of its own: the client neither gets the bridge's terminal signals nor dies with it.
// Signals the bridge blocks or ignores (it handles SIGTERM and SIGINT itself) are the client's to
// have as usual.
class SpawnAttributes {
public:
    SpawnAttributes() {
        posix_spawnattr_init(&m_attributes);
        sigset_t none;
        sigemptyset(&none);
        sigset_t defaults;
        sigemptyset(&defaults);
        for (int sig : {SIGPIPE, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGCHLD, SIGALRM})
            sigaddset(&defaults, sig);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setsigdefault(&m_attributes, &defaults);
        posix_spawnattr_setflags(&m_attributes,
                                 POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes;
};

// Starts `arguments` (the program looked up in PATH) in a session of its own; 0, with its pid in
// `pid`, or the error number. Everything the child needs is prepared before: posix_spawn does the
// rest without running any of our code between fork and exec.
int spawnInOwnSession(const QStringList& arguments, const QStringList& environment,
                      const QString& workingDirectory, pid_t* pid) {
    const CStringArray argv(arguments);
    const CStringArray envp(environment);
    const SpawnFileActions actions(workingDirectory.toLocal8Bit());
    const SpawnAttributes attributes;
    return posix_spawnp(pid, argv.first(), actions.get(), attributes.get(), argv.data(), envp.data());
}

QString percentEncoded(const QString& text) {
    return RequestUtils::URLEncodedString(text);
}

// An address in a mailto: URL: encoded like any text, but with its "@" as it is, as mail clients
// expect to read it.
QString encodedAddresses(const QStringList& addresses) {
    QStringList out;
    for (const QString& address : addresses)
        out << percentEncoded(address).replace(QLatin1String("%40"), QLatin1String("@"));
    return out.join(u',');
}

QString bracketed(const QString& id) {
    return u'<' + id + u'>';
}

} // namespace

MailClient::MailClient(QObject* parent) : QObject(parent), m_children(new ChildWatch(this)) {}

MailClient::~MailClient() {
    // Programs still running are not abandoned as zombies: their watch moves to the application
    // object, which keeps it until they have ended and been reaped; nobody is told any more.
    m_children->handOver(QCoreApplication::instance());
}

QString MailClient::mailtoUrl(const MailDraft& draft) {
    QStringList fields;
    auto add = [&fields](const QString& name, const QString& value) {
        if (!value.isEmpty())
            fields << name + u'=' + value;
    };
    add(QStringLiteral("cc"), encodedAddresses(draft.cc));
    add(QStringLiteral("bcc"), encodedAddresses(draft.bcc));
    add(QStringLiteral("subject"), percentEncoded(draft.subject));
    QString body = draft.body;
    body.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    body.replace(u'\n', QLatin1String("\r\n"));
    add(QStringLiteral("body"), percentEncoded(body));
    if (!draft.inReplyTo.isEmpty())
        add(QStringLiteral("In-Reply-To"), percentEncoded(bracketed(draft.inReplyTo)));
    QStringList references;
    for (const QString& id : draft.references)
        references << bracketed(id);
    add(QStringLiteral("References"), percentEncoded(references.join(u' ')));
    QString url = QStringLiteral("mailto:") + encodedAddresses(draft.to);
    if (!fields.isEmpty())
        url += u'?' + fields.join(u'&');
    return url;
}

void MailClient::openMessage(const QString& openCommand, const QString& file, const QString& messageIdHeader,
                             const QString& activationToken, Done done) {
    const QString action = QStringLiteral("to open the message");
    if (openCommand.trimmed().isEmpty()) {
        // An absolute path never starts with "-", so the client cannot take it for an option.
        if (!file.startsWith(u'/')) {
            finish(done, false, QStringLiteral("the message file %1 is no absolute path").arg(file));
            return;
        }
        const QString type = QStringLiteral("message/rfc822");
        withDefaultApplication(type, QStringLiteral("openCommand"), done,
                               [this, type, file, activationToken](const DesktopEntry& entry,
                                                                   const QString& desktopId, Done next) {
                                   launch(entry, desktopId, type, file, activationToken, std::move(next));
                               });
        return;
    }
    QString error;
    QList<QChar> used;
    const auto words = CommandLine::expand(CommandLine::words(openCommand),
                                           {{u'f', file}, {u'm', messageIdHeader}}, {}, &error, &used);
    const QString what = QStringLiteral("openCommand %1").arg(CommandLine::words(openCommand).value(0));
    if (!words) {
        finish(done, false, QStringLiteral("openCommand: %1").arg(error));
        return;
    }
    QStringList arguments = *words;
    if (!used.contains(u'f') && !used.contains(u'm'))
        arguments << file;
    if (arguments.isEmpty() || arguments.first().isEmpty()) {
        finish(done, false, QStringLiteral("openCommand names no program"));
        return;
    }
    run(arguments, what, action, false, activationToken, std::move(done));
}

void MailClient::compose(const QString& composeCommand, const MailDraft& draft,
                         const QString& activationToken, Done done) {
    const QString url = mailtoUrl(draft);
    const QString action = QStringLiteral("for mailto: URLs");
    if (composeCommand.trimmed().isEmpty()) {
        // The URL carries every field; xdg-email adds each attachment to it as an "attach" field.
        // --utf8: the paths are UTF-8 already, whatever the locale says.
        QStringList arguments{QStringLiteral("xdg-email"), QStringLiteral("--utf8")};
        for (const QString& path : draft.attachments) {
            if (!path.startsWith(u'/')) {
                finish(done, false,
                       QStringLiteral("xdg-email: the attachment %1 is no absolute path").arg(path));
                return;
            }
            arguments << QStringLiteral("--attach") << path;
        }
        arguments << url;
        const QString type = QStringLiteral("x-scheme-handler/mailto");
        const bool attaches = !draft.attachments.isEmpty();
        // The handler is asked for first even when xdg-email does the rest: without one, xdg-email
        // would hand the URL to a web browser.
        withDefaultApplication(type, QStringLiteral("composeCommand"), done,
                               [this, type, url, arguments, action, attaches, activationToken](
                                   const DesktopEntry& entry, const QString& desktopId, Done next) {
                                   if (attaches)
                                       run(arguments, QStringLiteral("xdg-email"), action, true,
                                           activationToken, std::move(next));
                                   else
                                       launch(entry, desktopId, type, url, activationToken, std::move(next));
                               });
        return;
    }
    QString error;
    QList<QChar> used;
    const QStringList split = CommandLine::words(composeCommand);
    const auto words = CommandLine::expand(split, {{u'u', url}}, {{u'a', draft.attachments}}, &error, &used);
    if (!words) {
        finish(done, false, QStringLiteral("composeCommand: %1").arg(error));
        return;
    }
    if (!draft.attachments.isEmpty() && !used.contains(u'a')) {
        finish(
            done, false,
            QStringLiteral("composeCommand has no %a for the draft's %1 attachment(s), which would be lost")
                .arg(draft.attachments.size()));
        return;
    }
    QStringList arguments = *words;
    if (!used.contains(u'u'))
        arguments << url;
    if (arguments.isEmpty() || arguments.first().isEmpty()) {
        finish(done, false, QStringLiteral("composeCommand names no program"));
        return;
    }
    run(arguments, QStringLiteral("composeCommand %1").arg(split.value(0)), action, false, activationToken,
        std::move(done));
}

void MailClient::withDefaultApplication(const QString& mimeType, const QString& setting, const Done& done,
                                        Found found) {
    const QString asked = QStringLiteral("xdg-mime query default %1").arg(mimeType);
    if (QStandardPaths::findExecutable(QStringLiteral("xdg-mime")).isEmpty()) {
        finish(done, false,
               QStringLiteral("%1: xdg-mime is not installed (it comes with xdg-utils)").arg(asked));
        return;
    }
    auto* query = new QProcess(this);
    query->setProgram(QStringLiteral("xdg-mime"));
    query->setArguments({QStringLiteral("query"), QStringLiteral("default"), mimeType});
    query->setStandardInputFile(QProcess::nullDevice());
    // Whatever xdg-mime complains about belongs in the bridge's log.
    query->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    auto* timer = new QTimer(query);
    timer->setSingleShot(true);
    // Answered once: by the query's end, its failure to start, or the timer.
    auto answered = std::make_shared<bool>(false);
    auto fail = [this, query, timer, answered, done](const QString& error) {
        if (std::exchange(*answered, true))
            return;
        timer->stop();
        query->deleteLater();
        finish(done, false, error);
    };
    QObject::connect(timer, &QTimer::timeout, this, [fail, query, asked, this] {
        query->kill();
        fail(QStringLiteral("%1 did not answer within %2 s").arg(asked).arg(m_exitWaitMs / 1000.0));
    });
    QObject::connect(
        query, &QProcess::errorOccurred, this, [fail, query, asked](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                fail(QStringLiteral("%1 could not be started: %2").arg(asked, query->errorString()));
        });
    QObject::connect(
        query, &QProcess::finished, this,
        [this, query, timer, answered, fail, asked, mimeType, setting, done,
         found = std::move(found)](int exitCode, QProcess::ExitStatus status) {
            if (*answered)
                return;
            if (status != QProcess::NormalExit) {
                fail(QStringLiteral("%1 was killed").arg(asked));
                return;
            }
            if (exitCode != 0) {
                fail(QStringLiteral("%1 failed with status %2").arg(asked).arg(exitCode));
                return;
            }
            const QString desktopFile =
                QString::fromLocal8Bit(query->readAllStandardOutput()).section(u'\n', 0, 0).trimmed();
            if (desktopFile.isEmpty()) {
                fail(QStringLiteral("no application is set for %1 (%2 names none): choose your mail client "
                                    "for it, or set %3")
                         .arg(mimeType, asked, setting));
                return;
            }
            *answered = true;
            timer->stop();
            query->deleteLater();
            QString desktopId = desktopFile;
            if (desktopId.endsWith(QLatin1String(".desktop")))
                desktopId.chop(8);
            QString problem;
            const std::optional<DesktopEntry> entry = DesktopEntry::application(desktopId, &problem);
            if (!entry) {
                finish(done, false,
                       QStringLiteral("the default application for %1 cannot be started: %2")
                           .arg(mimeType, problem));
                return;
            }
            found(*entry, desktopFile, done);
        });
    timer->start(m_exitWaitMs);
    query->start();
}

void MailClient::launch(const DesktopEntry& entry, const QString& desktopId, const QString& mimeType,
                        const QString& argument, const QString& activationToken, Done done) {
    const QString what = QStringLiteral("%1, the default application for %2,").arg(desktopId, mimeType);
    const auto lines = entry.commandLines({argument});
    if (!lines || lines->isEmpty()) {
        // A desktop file that only a D-Bus call can start: xdg-open could not start it either.
        finish(done, false,
               QStringLiteral("%1 has no Exec line to start it with (%2)").arg(what, entry.path()));
        return;
    }
    QStringList arguments = lines->first();
    // A line without a field code for it gets the file or URL as its last word, as xdg-open does.
    if (lines == entry.commandLines({}))
        arguments << argument;
    if (entry.boolValue(QStringLiteral("Terminal"))) {
        // As xdg-open does: $TERMINAL, one word given "-e"; else Debian's terminal alternative.
        QStringList terminal = CommandLine::words(qEnvironmentVariable("TERMINAL"));
        if (terminal.isEmpty())
            terminal = {QStringLiteral("x-terminal-emulator")};
        if (terminal.size() == 1)
            terminal << QStringLiteral("-e");
        arguments = terminal + arguments;
    }
    run(arguments, what, QString(), false, activationToken, std::move(done),
        entry.value(QStringLiteral("Path")));
}

void MailClient::finish(const Done& done, bool ok, const QString& error) {
    if (!done)
        return;
    QMetaObject::invokeMethod(
        this, [done, ok, error] { done(ok, error); }, Qt::QueuedConnection);
}

void MailClient::run(const QStringList& arguments, const QString& what, const QString& action, bool xdgStatus,
                     const QString& activationToken, Done done, const QString& workingDirectory) {
    pid_t pid = -1;
    const int spawned =
        spawnInOwnSession(arguments, childEnvironment(activationToken), workingDirectory, &pid);
    if (spawned != 0) {
        finish(done, false, QStringLiteral("%1 could not be started: %2").arg(what, strerrorText(spawned)));
        return;
    }
    const Program program{what, action, xdgStatus};
    m_children->watch(pid, m_exitWaitMs,
                      [this, program, done = std::move(done)](ChildWatch::State state, int waitStatus) {
                          const auto [ok, error] = verdict(program, state, waitStatus);
                          finish(done, ok, error);
                      });
}

} // namespace corvina
