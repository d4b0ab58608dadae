#include "OAuthEndpoints.h"

#include "OAuthHttp.h"
#include "SecretStore.h"

#include <QHash>
#include <QJsonArray>
#include <mutex>

#ifndef CORVINA_OAUTH_GOOGLE_CLIENT_ID
#define CORVINA_OAUTH_GOOGLE_CLIENT_ID ""
#endif
#ifndef CORVINA_OAUTH_MICROSOFT_CLIENT_ID
#define CORVINA_OAUTH_MICROSOFT_CLIENT_ID ""
#endif

namespace corvina {

namespace {

struct BuiltIn {
    const char* name;
    const char* issuer;
    const char* authorize;
    const char* token;
    const char* scope;
    const char* help; // the section of docs/bridge.md that says how to register a client id
};

// From the providers' public documentation of OAuth 2 for IMAP. Microsoft's offline_access is what
// makes it hand out a refresh token at all.
constexpr BuiltIn builtIns[] = {
    {"google", "https://accounts.google.com", "https://accounts.google.com/o/oauth2/v2/auth",
     "https://oauth2.googleapis.com/token", "https://mail.google.com/", "Gmail and Google Workspace"},
    {"microsoft", "https://login.microsoftonline.com/common",
     "https://login.microsoftonline.com/common/oauth2/v2.0/authorize",
     "https://login.microsoftonline.com/common/oauth2/v2.0/token",
     "https://outlook.office.com/IMAP.AccessAsUser.All offline_access", "Outlook.com and Microsoft 365"},
};

// The metadata read so far, by issuer: a provider's endpoints do not change while the bridge runs,
// and every refresh of a discovered account needs its token endpoint.
struct Discovered {
    QUrl authorizeUrl;
    QUrl tokenUrl;
    QUrl registrationUrl;
    QString scope;
};

std::mutex& discoveredMutex() {
    static std::mutex mutex;
    return mutex;
}

QHash<QString, Discovered>& discoveredByIssuer() {
    static QHash<QString, Discovered> map;
    return map;
}

QString fail(QString* error, const QString& text) {
    if (error)
        *error = text;
    return text;
}

std::optional<Discovered> fetchMetadata(const QUrl& issuer, QString* error, int timeoutMs,
                                        bool* unreachable) {
    const QString key = issuer.toString();
    {
        const std::lock_guard<std::mutex> lock(discoveredMutex());
        const auto found = discoveredByIssuer().constFind(key);
        if (found != discoveredByIssuer().constEnd())
            return *found;
    }
    const QUrl address = OAuthEndpoints::metadataUrl(issuer);
    const OAuthHttp::Reply reply = OAuthHttp::get(address, timeoutMs);
    if (!reply.reached) {
        if (unreachable)
            *unreachable = true;
        fail(error, QStringLiteral("cannot read the sign-in metadata: %1").arg(reply.error));
        return std::nullopt;
    }
    if (reply.status != 200 || !reply.error.isEmpty()) {
        fail(error, QStringLiteral("%1 publishes no sign-in metadata (HTTP %2)")
                        .arg(address.toString())
                        .arg(reply.status));
        return std::nullopt;
    }
    // RFC 8414 3.3: metadata that names another issuer than the one asked is not to be used.
    const QString named = reply.json.value(QLatin1String("issuer")).toString();
    if (QUrl(named).adjusted(QUrl::StripTrailingSlash) != issuer.adjusted(QUrl::StripTrailingSlash)) {
        fail(error, QStringLiteral("the sign-in metadata of %1 names another issuer (%2)").arg(key, named));
        return std::nullopt;
    }
    // Without PKCE a code caught on its way to our listener could be traded by anyone.
    const QJsonArray methods = reply.json.value(QLatin1String("code_challenge_methods_supported")).toArray();
    if (!methods.contains(QLatin1String("S256"))) {
        fail(error, QStringLiteral("%1 does not offer PKCE with S256, which the sign-in needs").arg(key));
        return std::nullopt;
    }
    Discovered found;
    found.authorizeUrl = QUrl(reply.json.value(QLatin1String("authorization_endpoint")).toString());
    found.tokenUrl = QUrl(reply.json.value(QLatin1String("token_endpoint")).toString());
    const QString registration = reply.json.value(QLatin1String("registration_endpoint")).toString();
    if (!registration.isEmpty())
        found.registrationUrl = QUrl(registration);
    const QJsonArray scopes = reply.json.value(QLatin1String("scopes_supported")).toArray();
    QStringList scopeWords;
    for (const auto& scope : scopes)
        scopeWords << scope.toString();
    found.scope = scopeWords.join(u' ');
    for (const QUrl& endpoint : {found.authorizeUrl, found.tokenUrl}) {
        const QString problem = OAuthHttp::endpointProblem(endpoint);
        if (!problem.isEmpty()) {
            fail(error, QStringLiteral("the sign-in metadata of %1: %2").arg(key, problem));
            return std::nullopt;
        }
    }
    if (!found.registrationUrl.isEmpty()) {
        const QString problem = OAuthHttp::endpointProblem(found.registrationUrl);
        if (!problem.isEmpty()) {
            fail(error, QStringLiteral("the sign-in metadata of %1: %2").arg(key, problem));
            return std::nullopt;
        }
    }
    const std::lock_guard<std::mutex> lock(discoveredMutex());
    discoveredByIssuer().insert(key, found);
    return found;
}

} // namespace

std::optional<OAuthEndpoints> OAuthEndpoints::resolve(const Settings& settings, QString* error, int timeoutMs,
                                                      bool* unreachable) {
    if (unreachable)
        *unreachable = false;
    OAuthEndpoints endpoints;
    endpoints.clientId = settings.clientId;
    endpoints.clientSecret = settings.clientSecret;
    for (const BuiltIn& builtIn : builtIns) {
        if (settings.provider != QLatin1String(builtIn.name))
            continue;
        endpoints.issuer = QString::fromUtf8(builtIn.issuer);
        endpoints.authorizeUrl = QUrl(QString::fromUtf8(builtIn.authorize));
        endpoints.tokenUrl = QUrl(QString::fromUtf8(builtIn.token));
        endpoints.scope = QString::fromUtf8(builtIn.scope);
        if (endpoints.clientId.isEmpty())
            endpoints.clientId = compiledClientId(settings.provider);
        if (endpoints.clientId.isEmpty()) {
            fail(error, QStringLiteral("no OAuth client id for %1: register one with the provider and set "
                                       "oauthClientId (see \"%2\" in docs/bridge.md), or use a package "
                                       "built with one")
                            .arg(settings.provider, QString::fromUtf8(builtIn.help)));
            return std::nullopt;
        }
        return endpoints;
    }
    if (settings.provider == QLatin1String("custom")) {
        endpoints.authorizeUrl = QUrl(settings.authorizeUrl);
        endpoints.tokenUrl = QUrl(settings.tokenUrl);
        endpoints.scope = settings.scope;
        endpoints.issuer = endpoints.tokenUrl.toString();
        for (const QUrl& endpoint : {endpoints.authorizeUrl, endpoints.tokenUrl}) {
            const QString problem = OAuthHttp::endpointProblem(endpoint);
            if (!problem.isEmpty()) {
                fail(error, problem);
                return std::nullopt;
            }
        }
        if (endpoints.clientId.isEmpty()) {
            fail(error, QStringLiteral("no OAuth client id: set oauthClientId to the one the provider gave"));
            return std::nullopt;
        }
        return endpoints;
    }
    if (settings.provider == QLatin1String("discover")) {
        const QUrl issuer(settings.issuer.isEmpty() ? QStringLiteral("https://%1").arg(settings.host)
                                                    : settings.issuer);
        const QString problem = OAuthHttp::endpointProblem(issuer);
        if (!problem.isEmpty()) {
            fail(error, problem);
            return std::nullopt;
        }
        const std::optional<Discovered> found = fetchMetadata(issuer, error, timeoutMs, unreachable);
        if (!found)
            return std::nullopt;
        endpoints.issuer = issuer.toString();
        endpoints.authorizeUrl = found->authorizeUrl;
        endpoints.tokenUrl = found->tokenUrl;
        endpoints.registrationUrl = found->registrationUrl;
        endpoints.scope = settings.scope.isEmpty() ? found->scope : settings.scope;
        if (endpoints.clientId.isEmpty()) {
            const SecretStore::Lookup registered = SecretStore(timeoutMs).lookupToken(
                {settings.account, settings.mail, endpoints.issuer, QStringLiteral("client-id")});
            if (!registered.error.isEmpty()) {
                fail(error, registered.error);
                return std::nullopt;
            }
            endpoints.clientId = registered.password.value_or(QString());
        }
        return endpoints;
    }
    fail(error, QStringLiteral("unknown oauthProvider %1 (google, microsoft, custom or discover)")
                    .arg(settings.provider));
    return std::nullopt;
}

QString OAuthEndpoints::compiledClientId(const QString& provider) {
    if (provider == QLatin1String("google"))
        return QStringLiteral(CORVINA_OAUTH_GOOGLE_CLIENT_ID);
    if (provider == QLatin1String("microsoft"))
        return QStringLiteral(CORVINA_OAUTH_MICROSOFT_CLIENT_ID);
    return QString();
}

QUrl OAuthEndpoints::metadataUrl(const QUrl& issuer) {
    QUrl url = issuer.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::StripTrailingSlash);
    QString path = url.path();
    if (path == QLatin1String("/"))
        path.clear();
    url.setPath(QStringLiteral("/.well-known/oauth-authorization-server") + path);
    return url;
}

void OAuthEndpoints::forgetDiscovered() {
    const std::lock_guard<std::mutex> lock(discoveredMutex());
    discoveredByIssuer().clear();
}

} // namespace corvina
