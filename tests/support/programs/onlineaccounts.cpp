// corvina_test_onlineaccounts STATE LOG: a stand-in for the desktop's online accounts service
// (org.gnome.OnlineAccounts) on the session bus, for the accounts no test can have for real (a
// Google account signed in with OAuth 2). It answers what the bridge asks: the ObjectManager's
// GetManagedObjects, Account.EnsureCredentials, OAuth2Based.GetAccessToken and
// PasswordBased.GetPassword. The real goa-daemon is tested beside it with an "IMAP and SMTP"
// account (support/OnlineAccountsDaemon).
//
// STATE is a JSON file the test writes and may change at any time; it is read again at every call:
//   {"hang": false,                  true: take every call and never answer (a hung service)
//    "wrongShape": false,            true: answer GetManagedObjects and GetAccessToken with a number
//    "accounts": [{"id": "account_1", "provider": "Google", "identity": "ada@example.org",
//                  "mailDisabled": false, "email": "ada@example.org", "name": "Ada",
//                  "imapHost": "127.0.0.1:1143", "imapUserName": "ada",
//                  "imapUseSsl": false, "imapUseTls": false,
//                  "secret": "oauth2" | "password" | "none",
//                  "tokens": ["first", "second"],  GetAccessToken hands out the current one; each
//                                                  EnsureCredentials moves on to the next (as the
//                                                  real service refreshes a token it found refused)
//                  "ensureFails": false,       true: EnsureCredentials answers NotAuthorized
//                  "password": "..."}]}
// LOG gets one line a call: "GetManagedObjects", "GetAccessToken ID", "EnsureCredentials ID",
// "GetPassword ID WHICH"; never a secret.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QVariantMap>
#include <cstdio>

using Interfaces = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, Interfaces>;
Q_DECLARE_METATYPE(Interfaces)
Q_DECLARE_METATYPE(ManagedObjects)

namespace {

const QString Root = QStringLiteral("/org/gnome/OnlineAccounts");
const QString AccountsPath = QStringLiteral("/org/gnome/OnlineAccounts/Accounts/");

class OnlineAccounts : public QDBusVirtualObject {
public:
    OnlineAccounts(QString state, QString log) : m_state(std::move(state)), m_log(std::move(log)) {}

    QString introspect(const QString&) const override { return QString(); }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const QJsonObject state = readState();
        const QString member = message.member();
        const QString path = message.path();
        const QString id = path.startsWith(AccountsPath) ? path.mid(AccountsPath.size()) : QString();
        if (member == QLatin1String("GetManagedObjects"))
            note(member);
        else if (member == QLatin1String("GetPassword"))
            note(QStringLiteral("%1 %2 %3").arg(member, id, message.arguments().value(0).toString()));
        else
            note(member + u' ' + id);
        // Taken and never answered: the caller's own timeout is all that ends its wait.
        if (state.value(QStringLiteral("hang")).toBool())
            return true;

        if (state.value(QStringLiteral("wrongShape")).toBool()) {
            connection.send(message.createReply(QVariant(7)));
            return true;
        }
        if (member == QLatin1String("GetManagedObjects") && path == Root) {
            ManagedObjects objects;
            objects.insert(QDBusObjectPath(Root + QStringLiteral("/Manager")),
                           Interfaces{{QStringLiteral("org.gnome.OnlineAccounts.Manager"), QVariantMap()}});
            for (const QJsonValue& value : state.value(QStringLiteral("accounts")).toArray())
                objects.insert(
                    QDBusObjectPath(AccountsPath + value.toObject().value(QStringLiteral("id")).toString()),
                    interfacesOf(value.toObject()));
            connection.send(message.createReply(QVariant::fromValue(objects)));
            return true;
        }
        const QJsonObject account = accountOf(state, id);
        if (account.isEmpty()) {
            connection.send(
                message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
                                         QStringLiteral("No such account: ") + path));
            return true;
        }
        const QJsonArray tokens = account.value(QStringLiteral("tokens")).toArray();
        if (member == QLatin1String("EnsureCredentials") &&
            account.value(QStringLiteral("ensureFails")).toBool()) {
            connection.send(
                message.createErrorReply(QStringLiteral("org.gnome.OnlineAccounts.Error.NotAuthorized"),
                                         QStringLiteral("The provider refused the sign-in")));
        } else if (member == QLatin1String("EnsureCredentials")) {
            if (m_current.value(id) + 1 < tokens.size())
                ++m_current[id];
            connection.send(message.createReply(QVariant(3600)));
        } else if (member == QLatin1String("GetAccessToken") &&
                   account.value(QStringLiteral("secret")).toString() == QLatin1String("oauth2")) {
            const QString token =
                tokens.at(qMin<qsizetype>(m_current.value(id), tokens.size() - 1)).toString();
            connection.send(message.createReply(QVariantList{token, 3600}));
        } else if (member == QLatin1String("GetPassword") &&
                   account.value(QStringLiteral("secret")).toString() == QLatin1String("password")) {
            connection.send(message.createReply(account.value(QStringLiteral("password")).toString()));
        } else {
            connection.send(
                message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"),
                                         QStringLiteral("No such method: ") + member));
        }
        return true;
    }

private:
    QJsonObject readState() const {
        QFile file(m_state);
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                              : QJsonObject();
    }
    static QJsonObject accountOf(const QJsonObject& state, const QString& id) {
        for (const QJsonValue& value : state.value(QStringLiteral("accounts")).toArray()) {
            if (value.toObject().value(QStringLiteral("id")).toString() == id)
                return value.toObject();
        }
        return QJsonObject();
    }
    static Interfaces interfacesOf(const QJsonObject& a) {
        auto text = [&a](const char* key) { return a.value(QLatin1String(key)).toString(); };
        auto flag = [&a](const char* key) { return a.value(QLatin1String(key)).toBool(); };
        Interfaces interfaces;
        interfaces.insert(QStringLiteral("org.gnome.OnlineAccounts.Account"),
                          QVariantMap{{QStringLiteral("ProviderType"), QStringLiteral("stand_in")},
                                      {QStringLiteral("ProviderName"), text("provider")},
                                      {QStringLiteral("Id"), text("id")},
                                      {QStringLiteral("IsLocked"), false},
                                      {QStringLiteral("AttentionNeeded"), false},
                                      {QStringLiteral("Identity"), text("identity")},
                                      {QStringLiteral("PresentationIdentity"), text("identity")},
                                      {QStringLiteral("MailDisabled"), flag("mailDisabled")}});
        interfaces.insert(QStringLiteral("org.gnome.OnlineAccounts.Mail"),
                          QVariantMap{{QStringLiteral("EmailAddress"), text("email")},
                                      {QStringLiteral("Name"), text("name")},
                                      {QStringLiteral("ImapSupported"), true},
                                      {QStringLiteral("ImapHost"), text("imapHost")},
                                      {QStringLiteral("ImapUserName"), text("imapUserName")},
                                      {QStringLiteral("ImapUseSsl"), flag("imapUseSsl")},
                                      {QStringLiteral("ImapUseTls"), flag("imapUseTls")},
                                      {QStringLiteral("ImapAcceptSslErrors"), false}});
        const QString secret = text("secret");
        if (secret == QLatin1String("oauth2"))
            interfaces.insert(QStringLiteral("org.gnome.OnlineAccounts.OAuth2Based"),
                              QVariantMap{{QStringLiteral("ClientId"), QStringLiteral("stand-in")},
                                          {QStringLiteral("ClientSecret"), QString()}});
        else if (secret == QLatin1String("password"))
            interfaces.insert(QStringLiteral("org.gnome.OnlineAccounts.PasswordBased"), QVariantMap());
        return interfaces;
    }
    void note(const QString& line) const {
        QFile file(m_log);
        if (file.open(QIODevice::WriteOnly | QIODevice::Append))
            file.write(line.toUtf8() + '\n');
    }

    QString m_state;
    QString m_log;
    QHash<QString, int> m_current; // by account id: which of its tokens GetAccessToken hands out
};

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: corvina_test_onlineaccounts STATE LOG\n");
        return 2;
    }
    qDBusRegisterMetaType<Interfaces>();
    qDBusRegisterMetaType<ManagedObjects>();
    QDBusConnection bus = QDBusConnection::sessionBus();
    OnlineAccounts accounts(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]));
    if (!bus.registerVirtualObject(Root, &accounts, QDBusConnection::SubPath) ||
        !bus.registerService(QStringLiteral("org.gnome.OnlineAccounts"))) {
        std::fprintf(stderr, "corvina_test_onlineaccounts: cannot own org.gnome.OnlineAccounts: %s\n",
                     qPrintable(bus.lastError().message()));
        return 1;
    }
    return app.exec();
}
