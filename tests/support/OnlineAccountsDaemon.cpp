#include "OnlineAccountsDaemon.h"

#include "DaemonEnvironment.h"
#include "OnlineAccountsStandIn.h"
#include "ProcessStop.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QFile>
#include <QMap>
#include <QProcessEnvironment>
#include <QVariantMap>

namespace corvina::test {

namespace {

constexpr int DaemonStartTimeoutMs = 15000;
constexpr int DaemonStopTimeoutMs = 5000;
constexpr int CallTimeoutMs = 15000;
const QString AccountsService = QStringLiteral("org.gnome.OnlineAccounts");
const QString AccountsPath = QStringLiteral("/org/gnome/OnlineAccounts/Accounts/");

// A call to the daemon; its error as one line in `error` when it fails.
QDBusMessage call(const QDBusMessage& message, QString* error) {
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, CallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage && error)
        *error = reply.errorName() + QStringLiteral(": ") + reply.errorMessage();
    return reply;
}

} // namespace

OnlineAccountsDaemon::OnlineAccountsDaemon() = default;

OnlineAccountsDaemon::~OnlineAccountsDaemon() {
    stop();
}

QString OnlineAccountsDaemon::log() const {
    QFile file(m_dir.filePath(QStringLiteral("goa-daemon.log")));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool OnlineAccountsDaemon::start(QString* error) {
    auto fail = [this, error](const QString& why) {
        if (error)
            *error = why + u'\n' + log();
        stop();
        return false;
    };
    if (!QFile::exists(QString::fromLatin1(Program)))
        return fail(QStringLiteral("%1 is missing: install gnome-online-accounts (scripts/setup)")
                        .arg(QString::fromLatin1(Program)));
    QString why;
    const std::optional<QProcessEnvironment> environment = daemonEnvironment(m_dir, &why);
    if (!environment)
        return fail(why);
    m_process.setProcessEnvironment(*environment);
    // Its log goes to a file: a pipe nobody reads would stop it once full.
    m_process.setStandardOutputFile(m_dir.filePath(QStringLiteral("goa-daemon.log")));
    m_process.setStandardErrorFile(m_dir.filePath(QStringLiteral("goa-daemon.log")), QIODevice::Append);
    m_process.start(QString::fromLatin1(Program), {QStringLiteral("--replace")});
    if (!m_process.waitForStarted(DaemonStartTimeoutMs))
        return fail(QStringLiteral("goa-daemon could not be started: ") + m_process.errorString());
    if (!waitForBusName(AccountsService, true, DaemonStartTimeoutMs))
        return fail(QStringLiteral("goa-daemon did not own %1 within %2 s")
                        .arg(AccountsService)
                        .arg(DaemonStartTimeoutMs / 1000));
    return true;
}

void OnlineAccountsDaemon::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    stopProcess(m_process, DaemonStopTimeoutMs);
    waitForBusName(AccountsService, false, DaemonStopTimeoutMs);
}

QString OnlineAccountsDaemon::addImapAccount(const QString& mail, const QString& name, const QString& host,
                                             quint16 port, const QString& user, const QString& password,
                                             QString* error) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        AccountsService, QStringLiteral("/org/gnome/OnlineAccounts/Manager"),
        QStringLiteral("org.gnome.OnlineAccounts.Manager"), QStringLiteral("AddAccount"));
    // What the desktop's settings send for an "IMAP and SMTP" account: the server as host:port,
    // the passwords as credentials (kept by the daemon in the Secret Service), mail turned on.
    const QString server = host + u':' + QString::number(port);
    const QMap<QString, QString> details{{QStringLiteral("Enabled"), QStringLiteral("true")},
                                         {QStringLiteral("EmailAddress"), mail},
                                         {QStringLiteral("Name"), name},
                                         {QStringLiteral("ImapHost"), server},
                                         {QStringLiteral("ImapUserName"), user},
                                         {QStringLiteral("ImapUseSsl"), QStringLiteral("false")},
                                         {QStringLiteral("ImapUseTls"), QStringLiteral("false")},
                                         {QStringLiteral("ImapAcceptSslErrors"), QStringLiteral("false")},
                                         {QStringLiteral("SmtpHost"), host + QStringLiteral(":1")},
                                         {QStringLiteral("SmtpUserName"), user},
                                         {QStringLiteral("SmtpUseAuth"), QStringLiteral("true")},
                                         {QStringLiteral("SmtpAuthLogin"), QStringLiteral("false")},
                                         {QStringLiteral("SmtpAuthPlain"), QStringLiteral("true")},
                                         {QStringLiteral("SmtpUseSsl"), QStringLiteral("false")},
                                         {QStringLiteral("SmtpUseTls"), QStringLiteral("false")},
                                         {QStringLiteral("SmtpAcceptSslErrors"), QStringLiteral("false")}};
    // a{ss}: QtDBus marshals a map of texts once told its D-Bus type.
    qDBusRegisterMetaType<QMap<QString, QString>>();
    const QVariantMap credentials{{QStringLiteral("imap-password"), password},
                                  {QStringLiteral("smtp-password"), password}};
    message << QStringLiteral("imap_smtp") << mail << mail << credentials << QVariant::fromValue(details);
    const QDBusMessage reply = call(message, error);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return QString();
    const QString path = reply.arguments().value(0).value<QDBusObjectPath>().path();
    if (!path.startsWith(AccountsPath)) {
        if (error)
            *error = QStringLiteral("AddAccount gave no account: ") + path;
        return QString();
    }
    return path.mid(AccountsPath.size());
}

bool OnlineAccountsDaemon::removeAccount(const QString& id, QString* error) {
    return call(QDBusMessage::createMethodCall(AccountsService, AccountsPath + id,
                                               QStringLiteral("org.gnome.OnlineAccounts.Account"),
                                               QStringLiteral("Remove")),
                error)
               .type() == QDBusMessage::ReplyMessage;
}

bool OnlineAccountsDaemon::setMailDisabled(const QString& id, bool disabled, QString* error) {
    QDBusMessage message = QDBusMessage::createMethodCall(AccountsService, AccountsPath + id,
                                                          QStringLiteral("org.freedesktop.DBus.Properties"),
                                                          QStringLiteral("Set"));
    message << QStringLiteral("org.gnome.OnlineAccounts.Account") << QStringLiteral("MailDisabled")
            << QVariant::fromValue(QDBusVariant(disabled));
    return call(message, error).type() == QDBusMessage::ReplyMessage;
}

} // namespace corvina::test
