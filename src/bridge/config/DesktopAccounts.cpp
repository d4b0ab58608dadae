#include "DesktopAccounts.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QVariantMap>

namespace corvina {

namespace {

const QString Service = QStringLiteral("org.gnome.OnlineAccounts");
const QString RootPath = QStringLiteral("/org/gnome/OnlineAccounts");
const QString AccountInterface = QStringLiteral("org.gnome.OnlineAccounts.Account");
const QString MailInterface = QStringLiteral("org.gnome.OnlineAccounts.Mail");
const QString OAuth2Interface = QStringLiteral("org.gnome.OnlineAccounts.OAuth2Based");
const QString PasswordInterface = QStringLiteral("org.gnome.OnlineAccounts.PasswordBased");

const QString NotRunning = QStringLiteral("the desktop's online accounts are not running");

// The service's answer to `message`, or nothing with `error` set to one line.
std::optional<QDBusMessage> ask(const QDBusMessage& message, int timeoutMs, QString* error) {
    auto fail = [error](const QString& why) -> std::optional<QDBusMessage> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return fail(NotRunning + QStringLiteral(" (no session bus)"));
    const QDBusMessage reply = bus.call(message, QDBus::Block, timeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return reply;
    if (reply.type() != QDBusMessage::ErrorMessage)
        return fail(QStringLiteral("the desktop's online accounts gave no answer"));
    const QString name = reply.errorName();
    // Nobody owns the name and the bus cannot start the service: not installed, or not this desktop.
    if (name == QDBusError::errorString(QDBusError::ServiceUnknown) ||
        name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner"))
        return fail(NotRunning);
    if (name == QDBusError::errorString(QDBusError::NoReply) ||
        name == QDBusError::errorString(QDBusError::Timeout) ||
        name == QDBusError::errorString(QDBusError::TimedOut))
        return fail(QStringLiteral("the desktop's online accounts did not answer within %1 s")
                        .arg((timeoutMs + 999) / 1000));
    return fail(QStringLiteral("the desktop's online accounts refused: %1")
                    .arg(reply.errorMessage().isEmpty() ? name : reply.errorMessage().trimmed()));
}

QDBusMessage methodCall(const QString& path, const QString& interface, const QString& method) {
    return QDBusMessage::createMethodCall(Service, path, interface, method);
}

// The first argument of `reply` as text, or nothing with `error` set when it is not one.
std::optional<QString> firstText(const QDBusMessage& reply, const QString& what, QString* error) {
    const QVariant first = reply.arguments().value(0);
    if (first.metaType() != QMetaType::fromType<QString>()) {
        if (error)
            *error = QStringLiteral("the desktop's online accounts gave no %1").arg(what);
        return std::nullopt;
    }
    return first.toString();
}

// The account at `path` from its interfaces and their properties.
DesktopAccounts::Account accountOf(const QString& path, const QMap<QString, QVariantMap>& interfaces) {
    DesktopAccounts::Account a;
    a.path = path;
    const QVariantMap account = interfaces.value(AccountInterface);
    a.id = account.value(QStringLiteral("Id")).toString();
    a.providerName = account.value(QStringLiteral("ProviderName")).toString();
    a.presentationIdentity = account.value(QStringLiteral("PresentationIdentity")).toString();
    a.mailDisabled = account.value(QStringLiteral("MailDisabled")).toBool();
    a.hasMail = interfaces.contains(MailInterface);
    const QVariantMap mail = interfaces.value(MailInterface);
    a.emailAddress = mail.value(QStringLiteral("EmailAddress")).toString();
    a.name = mail.value(QStringLiteral("Name")).toString();
    // Older services have no ImapSupported; an IMAP server named is what counts then.
    a.imapSupported = mail.value(QStringLiteral("ImapSupported"), true).toBool();
    a.imapHost = mail.value(QStringLiteral("ImapHost")).toString().trimmed();
    a.imapUserName = mail.value(QStringLiteral("ImapUserName")).toString();
    a.imapUseSsl = mail.value(QStringLiteral("ImapUseSsl")).toBool();
    a.imapUseTls = mail.value(QStringLiteral("ImapUseTls")).toBool();
    a.imapAcceptSslErrors = mail.value(QStringLiteral("ImapAcceptSslErrors")).toBool();
    // An account that offers both (none does today) is asked for its token: a password may be
    // refused by a provider that takes tokens only.
    if (interfaces.contains(OAuth2Interface))
        a.secret = DesktopAccounts::Secret::OAuth2;
    else if (interfaces.contains(PasswordInterface))
        a.secret = DesktopAccounts::Secret::Password;
    return a;
}

// Where the port starts in "host:port" or "[v6]:port", or -1 when `host` names none.
qsizetype portColon(const QString& host) {
    const qsizetype colon = host.lastIndexOf(u':');
    if (colon <= 0 || colon + 1 >= host.size())
        return -1;
    const QString before = host.left(colon);
    // A bare IPv6 address has colons of its own and no port.
    if (before.contains(u':') && !(before.startsWith(u'[') && before.endsWith(u']')))
        return -1;
    bool ok = false;
    const uint port = host.mid(colon + 1).toUInt(&ok);
    return ok && port > 0 && port <= 65535 ? colon : -1;
}

} // namespace

bool DesktopAccounts::Account::carriesMail() const {
    return hasMail && !mailDisabled && imapSupported && !imapHost.isEmpty();
}

QString DesktopAccounts::Account::host() const {
    const qsizetype colon = portColon(imapHost);
    QString h = colon < 0 ? imapHost : imapHost.left(colon);
    if (h.startsWith(u'[') && h.endsWith(u']'))
        h = h.mid(1, h.size() - 2);
    return h;
}

quint16 DesktopAccounts::Account::port() const {
    const qsizetype colon = portColon(imapHost);
    if (colon >= 0)
        return static_cast<quint16>(imapHost.mid(colon + 1).toUInt());
    return imapUseSsl ? 993 : 143;
}

QString DesktopAccounts::Account::security() const {
    if (imapUseSsl)
        return QStringLiteral("tls");
    return imapUseTls ? QStringLiteral("starttls") : QStringLiteral("none");
}

DesktopAccounts::DesktopAccounts(int timeoutMs) : m_timeoutMs(timeoutMs) {}

std::optional<QList<DesktopAccounts::Account>> DesktopAccounts::accounts(QString* error) const {
    const std::optional<QDBusMessage> reply =
        ask(methodCall(RootPath, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                       QStringLiteral("GetManagedObjects")),
            m_timeoutMs, error);
    if (!reply)
        return std::nullopt;
    const QVariant first = reply->arguments().value(0);
    if (first.metaType() != QMetaType::fromType<QDBusArgument>() ||
        first.value<QDBusArgument>().currentSignature() != QLatin1String("a{oa{sa{sv}}}")) {
        if (error)
            *error =
                QStringLiteral("the desktop's online accounts gave a list of accounts of the wrong shape");
        return std::nullopt;
    }
    // Read by hand rather than through registered types: the signature was checked above, and
    // the loops are linear in the answer.
    const QDBusArgument objects = first.value<QDBusArgument>();
    QList<Account> found;
    objects.beginMap();
    while (!objects.atEnd()) {
        objects.beginMapEntry();
        QDBusObjectPath path;
        objects >> path;
        QMap<QString, QVariantMap> interfaces;
        objects.beginMap();
        while (!objects.atEnd()) {
            objects.beginMapEntry();
            QString interface;
            QVariantMap properties;
            objects >> interface >> properties;
            objects.endMapEntry();
            interfaces.insert(interface, properties);
        }
        objects.endMap();
        objects.endMapEntry();
        // The service's own objects (its Manager) are no accounts.
        if (interfaces.contains(AccountInterface))
            found.append(accountOf(path.path(), interfaces));
    }
    objects.endMap();
    return found;
}

std::optional<QString> DesktopAccounts::accessToken(const Account& account, QString* error) const {
    const std::optional<QDBusMessage> reply =
        ask(methodCall(account.path, OAuth2Interface, QStringLiteral("GetAccessToken")), m_timeoutMs, error);
    if (!reply)
        return std::nullopt;
    std::optional<QString> token = firstText(*reply, QStringLiteral("token"), error);
    if (token && token->isEmpty()) {
        if (error)
            *error = QStringLiteral("the desktop's online accounts gave an empty token");
        return std::nullopt;
    }
    return token;
}

bool DesktopAccounts::ensureCredentials(const Account& account, QString* error) const {
    return ask(methodCall(account.path, AccountInterface, QStringLiteral("EnsureCredentials")), m_timeoutMs,
               error)
        .has_value();
}

std::optional<QString> DesktopAccounts::imapPassword(const Account& account, QString* error) const {
    QDBusMessage call = methodCall(account.path, PasswordInterface, QStringLiteral("GetPassword"));
    call << QStringLiteral("imap-password");
    const std::optional<QDBusMessage> reply = ask(call, m_timeoutMs, error);
    if (!reply)
        return std::nullopt;
    return firstText(*reply, QStringLiteral("password"), error);
}

} // namespace corvina
