#include "ProviderTable.h"

#include "OAuthHttp.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QSet>
#include <QUrl>
#include <cmath>

namespace corvina {

const QString ProviderTable::BuiltInPath = QStringLiteral(":/corvina/providers/providers.json");

namespace {

// The only layout of the file this code reads; a table written for another is refused, not guessed.
constexpr int TableVersion = 1;

const QStringList requiredKeys = {"id",       "name", "domains",     "host", "port",
                                  "security", "auth", "appPassword", "note"};
const QStringList optionalKeys = {"oauthProvider", "passwordsRefused", "appPasswordUrl"};

// One entry read, or the first thing wrong with it.
class EntryReader {
public:
    explicit EntryReader(const QJsonObject& entry) : m_entry(entry) {}

    QString problem() const { return m_problem; }

    // A non-empty text of one line.
    QString text(const char* key) {
        const QJsonValue value = m_entry.value(QLatin1String(key));
        if (value.isUndefined())
            return QString();
        if (!value.isString() || value.toString().trimmed().isEmpty() || value.toString().contains(u'\n')) {
            fail(QStringLiteral("%1 must be a text of one line").arg(QLatin1String(key)));
            return QString();
        }
        return value.toString();
    }
    bool flag(const char* key) {
        const QJsonValue value = m_entry.value(QLatin1String(key));
        if (value.isUndefined())
            return false;
        if (!value.isBool())
            fail(QStringLiteral("%1 must be true or false").arg(QLatin1String(key)));
        return value.toBool();
    }
    int port() {
        const QJsonValue value = m_entry.value(QLatin1String("port"));
        const double number = value.toDouble(-1);
        if (!value.isDouble() || number != std::floor(number) || number < 1 || number > 65535) {
            fail(QStringLiteral("port must be a whole number from 1 to 65535"));
            return 0;
        }
        return static_cast<int>(number);
    }
    QStringList domains() {
        const QJsonValue value = m_entry.value(QLatin1String("domains"));
        if (!value.isArray() || value.toArray().isEmpty()) {
            fail(QStringLiteral("domains must be a list of at least one domain"));
            return {};
        }
        QStringList domains;
        for (const QJsonValue domain : value.toArray()) {
            const QString name = domain.toString();
            // Lower case as written, so that the lookup's own lowering is the only one.
            if (!domain.isString() || name.isEmpty() || name != name.toLower() || !name.contains(u'.') ||
                name.contains(u'@') || name.contains(u' ') || name.startsWith(u'.') || name.endsWith(u'.')) {
                fail(QStringLiteral("domain %1 is not a domain in lower case")
                         .arg(domain.isString() ? name : QStringLiteral("(not a text)")));
                return {};
            }
            domains << name;
        }
        return domains;
    }
    void fail(const QString& problem) {
        if (m_problem.isEmpty())
            m_problem = problem;
    }

private:
    const QJsonObject& m_entry;
    QString m_problem;
};

// The entry's provider, or its first problem in `*problem`.
ProviderTable::Provider readEntry(const QJsonObject& entry, QString* problem) {
    EntryReader read(entry);
    for (const QString& key : entry.keys()) {
        if (!requiredKeys.contains(key) && !optionalKeys.contains(key))
            read.fail(QStringLiteral("unknown key %1").arg(key));
    }
    for (const QString& key : requiredKeys) {
        if (!entry.contains(key))
            read.fail(QStringLiteral("%1 is missing").arg(key));
    }
    ProviderTable::Provider p;
    p.id = read.text("id");
    p.name = read.text("name");
    p.domains = read.domains();
    p.host = read.text("host");
    p.port = read.port();
    p.security = read.text("security");
    p.auth = read.text("auth");
    p.oauthProvider = read.text("oauthProvider");
    p.appPassword = read.flag("appPassword");
    p.passwordsRefused = read.flag("passwordsRefused");
    p.appPasswordUrl = read.text("appPasswordUrl");
    p.note = read.text("note");

    static const QStringList securities = {"tls", "starttls", "none"};
    if (!p.security.isNull() && !securities.contains(p.security))
        read.fail(QStringLiteral("security must be tls, starttls or none, not %1").arg(p.security));
    // The same rule as bridge.conf's: plain IMAP only to this computer.
    if (p.security == QLatin1String("none") && !OAuthHttp::isLoopback(p.host))
        read.fail(QStringLiteral("security none is only allowed for 127.0.0.1 or localhost"));
    if (!p.auth.isNull() && p.auth != QLatin1String("password") && p.auth != QLatin1String("oauth2"))
        read.fail(QStringLiteral("auth must be password or oauth2, not %1").arg(p.auth));
    if (p.auth == QLatin1String("oauth2")) {
        if (p.oauthProvider != QLatin1String("google") && p.oauthProvider != QLatin1String("microsoft"))
            read.fail(QStringLiteral("auth oauth2 needs oauthProvider google or microsoft"));
    } else if (!p.oauthProvider.isNull()) {
        read.fail(QStringLiteral("oauthProvider is only for auth oauth2"));
    }
    if (p.passwordsRefused && p.auth != QLatin1String("oauth2"))
        read.fail(QStringLiteral("passwordsRefused needs auth oauth2: else there is no way in"));
    if (p.passwordsRefused && p.appPassword)
        read.fail(QStringLiteral("passwordsRefused and appPassword contradict each other"));
    if (!p.appPasswordUrl.isNull()) {
        const QUrl url(p.appPasswordUrl, QUrl::StrictMode);
        if (!p.appPassword)
            read.fail(QStringLiteral("appPasswordUrl is only for appPassword true"));
        else if (!url.isValid() || url.scheme() != QLatin1String("https") || url.host().isEmpty())
            read.fail(QStringLiteral("appPasswordUrl must be an https address"));
    }
    *problem = read.problem();
    return p;
}

} // namespace

std::optional<ProviderTable> ProviderTable::load(const QByteArray& json, const QString& source,
                                                 QString* error) {
    const auto fail = [&](const QString& what) {
        if (error != nullptr)
            *error = QStringLiteral("providers table %1: %2").arg(source, what);
        return std::nullopt;
    };
    QJsonParseError parse{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parse);
    if (parse.error != QJsonParseError::NoError)
        return fail(QStringLiteral("not JSON at byte %1: %2").arg(parse.offset).arg(parse.errorString()));
    if (!document.isObject())
        return fail(QStringLiteral("not a JSON object"));
    const QJsonObject top = document.object();
    for (const QString& key : top.keys()) {
        if (key != QLatin1String("version") && key != QLatin1String("providers"))
            return fail(QStringLiteral("unknown key %1").arg(key));
    }
    if (top.value(QLatin1String("version")) != QJsonValue(TableVersion))
        return fail(QStringLiteral("version must be %1").arg(TableVersion));
    const QJsonValue list = top.value(QLatin1String("providers"));
    if (!list.isArray())
        return fail(QStringLiteral("providers must be a list"));

    ProviderTable table;
    QSet<QString> ids;
    QSet<QString> domains;
    int n = 0;
    for (const QJsonValue value : list.toArray()) {
        ++n;
        if (!value.isObject())
            return fail(QStringLiteral("entry %1: not a JSON object").arg(n));
        QString problem;
        const Provider provider = readEntry(value.toObject(), &problem);
        const QString entry = QStringLiteral("entry %1 (%2)")
                                  .arg(n)
                                  .arg(provider.id.isEmpty() ? QStringLiteral("no id") : provider.id);
        if (!problem.isEmpty())
            return fail(entry + QStringLiteral(": ") + problem);
        if (ids.contains(provider.id))
            return fail(entry + QStringLiteral(": id %1 is already taken").arg(provider.id));
        ids.insert(provider.id);
        // One domain, one answer: a second entry for it would make the lookup depend on the order.
        for (const QString& domain : provider.domains) {
            if (domains.contains(domain))
                return fail(entry + QStringLiteral(": domain %1 is already another entry's").arg(domain));
            domains.insert(domain);
        }
        table.m_providers.append(provider);
    }
    return table;
}

std::optional<ProviderTable> ProviderTable::builtIn(QString* error) {
    QFile file(BuiltInPath);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error != nullptr)
            *error = QStringLiteral("providers table %1: %2").arg(BuiltInPath, file.errorString());
        return std::nullopt;
    }
    return load(file.readAll(), BuiltInPath, error);
}

QString ProviderTable::domainOf(const QString& address) {
    const qsizetype at = address.lastIndexOf(u'@');
    if (at < 0)
        return QString();
    QString domain = address.mid(at + 1).trimmed().toLower();
    // "gmail.com." is the same domain written fully qualified.
    if (domain.endsWith(u'.'))
        domain.chop(1);
    return domain;
}

ProviderTable::Provider ProviderTable::fallback(const QString& address) {
    Provider p;
    p.host = QStringLiteral("imap.") + domainOf(address);
    p.port = 993;
    p.security = QStringLiteral("tls");
    p.auth = QStringLiteral("password");
    return p;
}

std::optional<ProviderTable::Provider> ProviderTable::find(const QString& address) const {
    const QString domain = domainOf(address);
    if (domain.isEmpty())
        return std::nullopt;
    for (const Provider& provider : m_providers) {
        if (provider.domains.contains(domain))
            return provider;
    }
    return std::nullopt;
}

} // namespace corvina
