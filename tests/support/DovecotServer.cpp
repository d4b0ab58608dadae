#include "DovecotServer.h"

#include "ProcessStop.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMultiHash>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <csignal>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace corvina::test {

namespace {

// Long enough for a loaded machine, short enough that a broken set-up fails the test instead of
// hanging it.
constexpr int DovecotStartTimeoutMs = 20000;
constexpr int DovecotStopTimeoutMs = 10000;

// The owner of the mail files: the static user database below serves every user as nobody.
struct MailOwner {
    uid_t uid = 65534;
    gid_t gid = 65534;
};

MailOwner mailOwner() {
    MailOwner owner;
    if (const passwd* pw = ::getpwnam("nobody")) {
        owner.uid = pw->pw_uid;
        owner.gid = pw->pw_gid;
    }
    return owner;
}

void giveToMailOwner(const QString& path) {
    const MailOwner owner = mailOwner();
    // Only root can give files away; the server's processes then read them as nobody.
    if (::geteuid() == 0)
        (void)::chown(QFile::encodeName(path).constData(), owner.uid, owner.gid);
}

quint16 freePort() {
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

QString tail(const QString& text, int lines) {
    QStringList all = text.split(u'\n', Qt::SkipEmptyParts);
    return all.mid(qMax(0, all.size() - lines)).join(u'\n');
}

} // namespace

DovecotServer::DovecotServer() {
    // Dovecot's unprivileged processes must reach their sockets and the mail below this folder.
    QFile::setPermissions(m_dir.path(), QFile::permissions(m_dir.path()) | QFile::ReadGroup |
                                            QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
    QDir(m_dir.path()).mkpath(QStringLiteral("mail"));
    giveToMailOwner(m_dir.filePath(QStringLiteral("mail")));
    QDir(m_dir.path()).mkpath(QStringLiteral("rawlog"));
    giveToMailOwner(m_dir.filePath(QStringLiteral("rawlog")));
    QFile passwd(m_dir.filePath(QStringLiteral("passwd")));
    if (passwd.open(QIODevice::WriteOnly))
        passwd.close();
}

DovecotServer::~DovecotServer() {
    stop();
}

bool DovecotServer::writeConfig(QString* error) {
    const QString dir = m_dir.path();
    const bool tokens = !m_introspectionUrl.isEmpty();
    if (tokens && !writeOAuthConfig(error))
        return false;
    const QString config =
        QStringLiteral("base_dir = %1/run\n"
                       "state_dir = %1/state\n"
                       "log_path = %1/dovecot.log\n"
                       "protocols = imap\n"
                       "listen = 127.0.0.1\n"
                       "%3"
                       "disable_plaintext_auth = no\n"
                       "auth_mechanisms = plain login%5\n"
                       // a refused login answers at once, so the wrong-password tests do not wait
                       "auth_failure_delay = 0\n"
                       "default_login_user = dovenull\n"
                       "default_internal_user = dovecot\n"
                       "mail_location = maildir:~/Maildir\n"
                       // what each session sent and received, for tests that check how little was fetched
                       "imap_logout_format = in=%i out=%o\n"
                       "%6"
                       "passdb {\n"
                       "  driver = passwd-file\n"
                       "%7"
                       "  args = scheme=PLAIN username_format=%u %1/passwd\n"
                       "}\n"
                       "userdb {\n"
                       "  driver = static\n"
                       "  args = uid=nobody gid=nogroup home=%1/mail/%u\n"
                       "}\n"
                       // nor slows down the next logins from 127.0.0.1 (the authentication service
                       // counts failures per address only when it can reach this socket)
                       "service anvil {\n"
                       "  unix_listener anvil-auth-penalty {\n"
                       "    mode = 0\n"
                       "  }\n"
                       "}\n"
                       "service imap-login {\n"
                       "  inet_listener imap {\n"
                       "    address = 127.0.0.1\n"
                       "    port = %2\n"
                       "  }\n"
                       "  inet_listener imaps {\n"
                       // also on a loopback address the certificate does not name
                       "    address = 127.0.0.1, 127.0.0.2\n"
                       "    port = %4\n"
                       "  }\n"
                       "}\n")
            .arg(dir)
            .arg(m_port)
            .arg(m_tls ? QStringLiteral("ssl = required\n"
                                        "ssl_cert = <%1/tls/server.pem\n"
                                        "ssl_key = <%1/tls/server.key\n")
                             .arg(dir)
                       : QStringLiteral("ssl = no\n"))
            .arg(m_tls ? m_tlsPort : 0)
            .arg(tokens ? u' ' + m_tokenMechanisms : QString())
            // Tokens go to the provider only, passwords to the password file only: a token is
            // never tried as a password.
            .arg(tokens ? QStringLiteral("passdb {\n"
                                         "  driver = oauth2\n"
                                         "  mechanisms = %2\n"
                                         "  args = %1/oauth2.conf\n"
                                         "}\n")
                              .arg(dir, m_tokenMechanisms)
                        : QString())
            .arg(tokens ? QStringLiteral("  mechanisms = plain login\n") : QString()) +
        (m_capabilities.isEmpty() ? QString()
                                  : QStringLiteral("imap_capability = %1\n").arg(m_capabilities)) +
        // what each session's client sent, for tests that check which commands went out
        (m_recordSessions ? QStringLiteral("rawlog_dir = %1/rawlog\n").arg(dir) : QString()) +
        QStringLiteral("namespace inbox {\n"
                       "  inbox = yes\n") +
        (m_specialUse ? QStringLiteral("  mailbox Archive {\n"
                                       "    auto = create\n"
                                       "    special_use = \\Archive\n"
                                       "  }\n"
                                       "  mailbox Trash {\n"
                                       "    auto = create\n"
                                       "    special_use = \\Trash\n"
                                       "  }\n")
                      : QString()) +
        QStringLiteral("}\n");
    QFile file(m_dir.filePath(QStringLiteral("dovecot.conf")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(config.toUtf8()) < 0) {
        if (error)
            *error = QStringLiteral("cannot write the Dovecot configuration: ") + file.errorString();
        return false;
    }
    return true;
}

bool DovecotServer::writeOAuthConfig(QString* error) {
    // Every token is asked about, at every login (force_introspection: nothing is taken from the
    // token itself), so a token the provider revoked or let expire is refused at once. The auth
    // cache is off (Dovecot's default), which the revocation tests rely on.
    const QString config = QStringLiteral("introspection_url = %1\n"
                                          "introspection_mode = post\n"
                                          "force_introspection = yes\n"
                                          "username_attribute = username\n"
                                          "active_attribute = active\n"
                                          "active_value = true\n"
                                          // a provider that does not answer fails the login, not the test
                                          "timeout_msecs = 10000\n")
                               .arg(m_introspectionUrl);
    QFile file(m_dir.filePath(QStringLiteral("oauth2.conf")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(config.toUtf8()) < 0) {
        if (error)
            *error = QStringLiteral("cannot write Dovecot's oauth2 configuration: ") + file.errorString();
        return false;
    }
    return true;
}

bool DovecotServer::start(QString* error) {
    if (isRunning())
        return true;
    if (!m_dir.isValid()) {
        if (error)
            *error = QStringLiteral("no temporary folder for Dovecot");
        return false;
    }
    if (::geteuid() != 0) {
        if (error)
            *error = QStringLiteral("the Dovecot fixture runs its master as root (it hands mail to nobody)");
        return false;
    }
    // A port found free can be taken by someone else before Dovecot binds it: try a few.
    const bool keepPort = m_port != 0;
    QString reason;
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (!keepPort || m_port == 0) {
            m_port = freePort();
            if (m_tls)
                m_tlsPort = freePort();
        }
        if (m_port == 0 || (m_tls && (m_tlsPort == 0 || m_tlsPort == m_port))) {
            reason = QStringLiteral("no free port on 127.0.0.1");
            break;
        }
        if (!writeConfig(error))
            return false;
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral("dovecot"), {QStringLiteral("-F"), QStringLiteral("-c"),
                                                    m_dir.filePath(QStringLiteral("dovecot.conf"))});
        if (!m_process.waitForStarted(DovecotStartTimeoutMs)) {
            reason = QStringLiteral("dovecot could not be started: ") + m_process.errorString();
            break;
        }
        if (waitForGreeting(&reason))
            return true;
        const bool portTaken = log().contains(QLatin1String("Address already in use"));
        stop();
        if (!portTaken || keepPort)
            break;
    }
    if (error)
        *error = reason + QStringLiteral("\n") + tail(log(), 20);
    return false;
}

bool DovecotServer::enableTls(QString* error) {
    const QString dir = m_dir.filePath(QStringLiteral("tls"));
    QDir().mkpath(dir);
    QFile extensions(dir + QStringLiteral("/server.ext"));
    if (!extensions.open(QIODevice::WriteOnly) ||
        extensions.write("basicConstraints = CA:FALSE\n"
                         "keyUsage = critical, digitalSignature, keyEncipherment\n"
                         "extendedKeyUsage = serverAuth\n"
                         "subjectAltName = DNS:localhost, IP:127.0.0.1\n") < 0) {
        if (error)
            *error = QStringLiteral("cannot write the certificate extensions: ") + extensions.errorString();
        return false;
    }
    extensions.close();
    // Elliptic-curve keys: made in a moment, where RSA keys would slow every TLS test down.
    const QStringList newKey = {QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                                QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes")};
    const QList<QStringList> steps = {
        QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + newKey +
            QStringList{QStringLiteral("-keyout"), QStringLiteral("ca.key"), QStringLiteral("-out"),
                        QStringLiteral("ca.pem"), QStringLiteral("-days"), QStringLiteral("2"),
                        QStringLiteral("-subj"), QStringLiteral("/O=Corvina tests/CN=Corvina test authority"),
                        QStringLiteral("-addext"), QStringLiteral("basicConstraints=critical,CA:TRUE"),
                        QStringLiteral("-addext"), QStringLiteral("keyUsage=critical,keyCertSign,cRLSign")},
        QStringList{QStringLiteral("req")} + newKey +
            QStringList{QStringLiteral("-keyout"), QStringLiteral("server.key"), QStringLiteral("-out"),
                        QStringLiteral("server.csr"), QStringLiteral("-subj"),
                        QStringLiteral("/O=Corvina tests/CN=localhost")},
        QStringList{QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"),
                    QStringLiteral("server.csr"), QStringLiteral("-CA"), QStringLiteral("ca.pem"),
                    QStringLiteral("-CAkey"), QStringLiteral("ca.key"), QStringLiteral("-CAcreateserial"),
                    QStringLiteral("-out"), QStringLiteral("server.pem"), QStringLiteral("-days"),
                    QStringLiteral("2"), QStringLiteral("-extfile"), QStringLiteral("server.ext")},
    };
    for (const QStringList& arguments : steps) {
        QProcess openssl;
        openssl.setWorkingDirectory(dir);
        openssl.setProcessChannelMode(QProcess::MergedChannels);
        openssl.start(QStringLiteral("openssl"), arguments);
        if (!openssl.waitForFinished(DovecotStartTimeoutMs) || openssl.exitStatus() != QProcess::NormalExit ||
            openssl.exitCode() != 0) {
            if (error)
                *error =
                    QStringLiteral("openssl %1 failed: %2 %3")
                        .arg(arguments.first(), openssl.errorString(), QString::fromUtf8(openssl.readAll()));
            return false;
        }
    }
    m_tls = true;
    return true;
}

QString DovecotServer::caFile() const {
    return m_dir.filePath(QStringLiteral("tls/ca.pem"));
}

bool DovecotServer::waitForGreeting(QString* error) {
    const QDeadlineTimer deadline(DovecotStartTimeoutMs);
    while (!deadline.hasExpired()) {
        if (m_process.state() != QProcess::Running) {
            *error = QStringLiteral("dovecot exited: ") + QString::fromUtf8(m_process.readAll());
            return false;
        }
        QTcpSocket probe;
        probe.connectToHost(host(), m_port);
        if (probe.waitForConnected(1000)) {
            QByteArray greeting;
            while (!greeting.contains('\n') && probe.waitForReadyRead(1000))
                greeting += probe.readAll();
            if (greeting.startsWith("* OK"))
                return true;
        }
        // Not listening yet: the master is still reading its configuration.
        m_process.waitForFinished(50);
    }
    *error = QStringLiteral("dovecot did not greet on port %1 within %2 s")
                 .arg(m_port)
                 .arg(DovecotStartTimeoutMs / 1000);
    return false;
}

namespace {

// The processes below `root`, read from /proc: Dovecot's login and mail processes.
QList<pid_t> descendants(pid_t root) {
    QMultiHash<pid_t, pid_t> children;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool number = false;
        const pid_t pid = entry.toInt(&number);
        if (!number)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (name) state ppid ...": the name may hold anything, so read after its last ')'.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1)
            children.insert(fields[1].toInt(), pid);
    }
    QList<pid_t> found;
    QList<pid_t> next{root};
    while (!next.isEmpty()) {
        const pid_t parent = next.takeFirst();
        for (const pid_t child : children.values(parent)) {
            found << child;
            next << child;
        }
    }
    return found;
}

bool isGone(pid_t pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray line = stat.readAll();
    // A zombie has closed its connections; its new parent reaps it when it likes.
    return line.mid(line.lastIndexOf(')') + 2).startsWith('Z');
}

} // namespace

void DovecotServer::stop() {
    if (!isRunning())
        return;
    // A mail process that is serving a client outlives its master: a stopped server must not keep
    // talking to the clients it had.
    const QList<pid_t> sessions = descendants(static_cast<pid_t>(m_process.processId()));
    stopProcess(m_process, DovecotStopTimeoutMs);
    for (const pid_t pid : sessions)
        ::kill(pid, SIGKILL);
    const QDeadlineTimer deadline(DovecotStopTimeoutMs);
    for (const pid_t pid : sessions) {
        while (!isGone(pid) && !deadline.hasExpired())
            QThread::msleep(10);
    }
}

bool DovecotServer::restart(QString* error) {
    stop();
    return start(error);
}

bool DovecotServer::isRunning() const {
    return m_process.state() == QProcess::Running;
}

void DovecotServer::addUser(const QString& user, const QString& password) {
    QFile passwd(m_dir.filePath(QStringLiteral("passwd")));
    if (passwd.open(QIODevice::Append))
        passwd.write(QStringLiteral("%1:{PLAIN}%2::::::\n").arg(user, password).toUtf8());
    createFolder(user, QStringLiteral("INBOX"));
}

QString DovecotServer::maildir(const QString& user, const QString& folder) const {
    const QString root = m_dir.filePath(QStringLiteral("mail/") + user + QStringLiteral("/Maildir"));
    if (folder.compare(QLatin1String("INBOX"), Qt::CaseInsensitive) == 0)
        return root;
    // Maildir++: a folder is a hidden sub-folder of the inbox's Maildir
    return root + QStringLiteral("/.") + folder;
}

void DovecotServer::makeMaildir(const QString& path) {
    QString made = m_dir.filePath(QStringLiteral("mail"));
    const QString relative = QDir(made).relativeFilePath(path);
    for (const QString& part : relative.split(u'/', Qt::SkipEmptyParts)) {
        made += u'/' + part;
        if (QDir().mkdir(made))
            giveToMailOwner(made);
    }
    for (const char* sub : {"cur", "new", "tmp"}) {
        const QString p = path + u'/' + QLatin1String(sub);
        if (QDir().mkdir(p))
            giveToMailOwner(p);
    }
}

void DovecotServer::createFolder(const QString& user, const QString& folder) {
    makeMaildir(maildir(user, folder));
}

QString DovecotServer::deliver(const QString& user, const QString& folder, const QByteArray& message,
                               const QString& flags, const QDateTime& received) {
    const QString dir = maildir(user, folder);
    makeMaildir(dir);
    ++m_delivered;
    // Dovecot gives new files their UIDs in the order of their names: a zero-padded counter first
    // keeps that the order of delivery.
    const QString name = QStringLiteral("%1.M%2P%3.corvina-test:2,%4")
                             .arg(m_delivered, 10, 10, QLatin1Char('0'))
                             .arg(m_delivered)
                             .arg(QCoreApplication::applicationPid())
                             .arg(flags);
    // Written whole in tmp/ and then renamed into cur/, as a mail server delivers: a file made in
    // cur/ and written after could be seen by the server while still empty (it is told of the new
    // name at once, and on a busy machine the write can come much later), and what it read of the
    // empty file would stay in its cache.
    const QString written = dir + QStringLiteral("/tmp/") + name;
    const QString path = dir + QStringLiteral("/cur/") + name;
    QFile file(written);
    if (!file.open(QIODevice::WriteOnly) || file.write(message) != message.size())
        return QString();
    file.close();
    if (received.isValid()) {
        utimbuf times{};
        times.actime = times.modtime = static_cast<time_t>(received.toSecsSinceEpoch());
        ::utime(QFile::encodeName(written).constData(), &times);
    }
    giveToMailOwner(written);
    if (::rename(QFile::encodeName(written).constData(), QFile::encodeName(path).constData()) != 0)
        return QString();
    return path;
}

QString DovecotServer::setFlags(const QString& path, const QString& flags) {
    const int colon = path.lastIndexOf(QLatin1String(":2,"));
    const QString renamed = (colon < 0 ? path : path.left(colon)) + QStringLiteral(":2,") + flags;
    if (::rename(QFile::encodeName(path).constData(), QFile::encodeName(renamed).constData()) != 0)
        return QString();
    return renamed;
}

QString DovecotServer::capabilitiesWithout(const QStringList& left) {
    // Dovecot's own list after login, less what the test leaves out.
    QStringList capabilities =
        QStringLiteral("IMAP4rev1 SASL-IR LOGIN-REFERRALS ID ENABLE IDLE SORT SORT=DISPLAY "
                       "THREAD=REFERENCES THREAD=REFS THREAD=ORDEREDSUBJECT MULTIAPPEND "
                       "URL-PARTIAL CATENATE UNSELECT CHILDREN NAMESPACE UIDPLUS LIST-EXTENDED "
                       "I18NLEVEL=1 CONDSTORE QRESYNC ESEARCH ESORT SEARCHRES WITHIN "
                       "CONTEXT=SEARCH LIST-STATUS BINARY MOVE SNIPPET=FUZZY PREVIEW=FUZZY "
                       "PREVIEW STATUS=SIZE SAVEDATE LITERAL+ NOTIFY SPECIAL-USE")
            .split(u' ');
    for (const QString& capability : left)
        capabilities.removeAll(capability);
    return capabilities.join(u' ');
}

namespace {

// The Message-ID header of a message file: a test's own look at what it delivered.
QString messageIdOfFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray head = file.read(64 * 1024);
    for (const QByteArray& line : head.split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (trimmed.isEmpty())
            break;
        if (trimmed.toLower().startsWith("message-id:"))
            return QString::fromUtf8(trimmed.mid(11).trimmed());
    }
    return QStringLiteral("");
}

QStringList messageFiles(const QString& maildir) {
    QStringList files;
    for (const char* sub : {"cur", "new"}) {
        const QDir dir(maildir + u'/' + QLatin1String(sub));
        for (const QString& name : dir.entryList(QDir::Files))
            files << dir.filePath(name);
    }
    return files;
}

} // namespace

QStringList DovecotServer::messageIds(const QString& user, const QString& folder) const {
    QStringList ids;
    for (const QString& path : messageFiles(maildir(user, folder)))
        ids << messageIdOfFile(path);
    ids.sort();
    return ids;
}

QString DovecotServer::fileOf(const QString& user, const QString& folder, const QString& messageId) const {
    for (const QString& path : messageFiles(maildir(user, folder))) {
        if (messageIdOfFile(path) == messageId)
            return path;
    }
    return QString();
}

QString DovecotServer::flagsOf(const QString& user, const QString& folder, const QString& messageId) const {
    const QString path = fileOf(user, folder, messageId);
    if (path.isEmpty())
        return QString();
    const int info = path.lastIndexOf(QLatin1String(":2,"));
    return info < 0 ? QStringLiteral("") : path.mid(info + 3);
}

void DovecotServer::forgetUids(const QString& user, const QString& folder) {
    const QDir dir(maildir(user, folder));
    for (const QString& name :
         dir.entryList({QStringLiteral("dovecot-uidlist*"), QStringLiteral("dovecot.index*")},
                       QDir::Files | QDir::Hidden))
        QFile::remove(dir.filePath(name));
}

QByteArray DovecotServer::clientCommands() const {
    QDir dir(m_dir.filePath(QStringLiteral("rawlog")));
    QByteArray all;
    for (const QString& name : dir.entryList({QStringLiteral("*.in")}, QDir::Files, QDir::Name)) {
        QFile file(dir.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            all += file.readAll();
    }
    return all;
}

QByteArray DovecotServer::message(const QString& subject, const QString& from, const QString& date,
                                  const QString& messageId, const QByteArray& body) {
    QByteArray text;
    if (!from.isNull())
        text += "From: " + from.toUtf8() + "\r\n";
    text += "To: someone@example.org\r\n";
    if (!subject.isNull())
        text += "Subject: " + subject.toUtf8() + "\r\n";
    if (!date.isNull())
        text += "Date: " + date.toUtf8() + "\r\n";
    if (!messageId.isNull())
        text += "Message-ID: " + messageId.toUtf8() + "\r\n";
    text += "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
    return text + body;
}

QString DovecotServer::log() const {
    QFile file(m_dir.filePath(QStringLiteral("dovecot.log")));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

} // namespace corvina::test
