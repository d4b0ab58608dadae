#include "OAuthTokens.h"

#include "OAuthHttp.h"

#include <QHash>
#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>

namespace corvina {

namespace {

using Clock = std::chrono::steady_clock;

// One account's access token in memory. `refreshing` is held while its token is refreshed, so that
// the account's other threads wait for that refresh instead of making their own.
struct Cached {
    std::timed_mutex refreshing;
    QString accessToken; // empty: none yet, or forgotten
    Clock::time_point expiresAt;
};

// The cache's map: held only to find or make an entry, never while the network is asked.
std::mutex& cacheMutex() {
    static std::mutex mutex;
    return mutex;
}

QHash<QString, std::shared_ptr<Cached>>& cache() {
    static QHash<QString, std::shared_ptr<Cached>> map;
    return map;
}

// The account's sign-in: a changed mail or provider is another sign-in with another token.
QString cacheKey(const OAuthEndpoints::Settings& settings) {
    return settings.account + QLatin1Char('\n') + settings.mail + QLatin1Char('\n') + settings.provider +
           QLatin1Char('\n') + settings.clientId + QLatin1Char('\n') + settings.tokenUrl + QLatin1Char('\n') +
           settings.issuer;
}

std::shared_ptr<Cached> entryOf(const OAuthEndpoints::Settings& settings) {
    const std::lock_guard<std::mutex> lock(cacheMutex());
    std::shared_ptr<Cached>& entry = cache()[cacheKey(settings)];
    if (!entry)
        entry = std::make_shared<Cached>();
    return entry;
}

std::optional<QString> failWith(QString* error, OAuthTokens::Failure* failure, OAuthTokens::Failure kind,
                                const QString& text) {
    if (error)
        *error = text;
    if (failure)
        *failure = kind;
    return std::nullopt;
}

// The provider's words for a refused request: "invalid_grant (Token has been revoked)".
QString providerError(const OAuthHttp::Reply& reply) {
    const QString code = reply.json.value(QLatin1String("error")).toString();
    const QString description = reply.json.value(QLatin1String("error_description")).toString();
    QString text = code.isEmpty() ? QStringLiteral("HTTP %1").arg(reply.status) : code;
    if (!description.isEmpty())
        text += QStringLiteral(" (%1)").arg(description.left(200));
    return text;
}

} // namespace

std::optional<QString> OAuthTokens::accessToken(const BridgeConfig::Account& account, QString* error,
                                                Failure* failure, int timeoutMs) {
    return accessToken(settingsOf(account), error, failure, timeoutMs);
}

void OAuthTokens::forget(const BridgeConfig::Account& account) {
    forget(settingsOf(account));
}

std::optional<QString> OAuthTokens::accessToken(const OAuthEndpoints::Settings& settings, QString* error,
                                                Failure* failure, int timeoutMs) {
    if (failure)
        *failure = Failure::None;
    const std::shared_ptr<Cached> entry = entryOf(settings);
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    // Waiting for another thread's refresh counts against this call's own deadline.
    std::unique_lock<std::timed_mutex> refresh(entry->refreshing, std::defer_lock);
    if (!refresh.try_lock_until(deadline))
        return failWith(
            error, failure, Failure::Unreachable,
            QStringLiteral("the sign-in provider did not answer within %1 s").arg((timeoutMs + 999) / 1000));
    if (!entry->accessToken.isEmpty() &&
        Clock::now() + std::chrono::seconds(RefreshMarginSeconds) < entry->expiresAt)
        return entry->accessToken;
    entry->accessToken.clear();

    bool unreachable = false;
    QString problem;
    const std::optional<OAuthEndpoints> endpoints =
        OAuthEndpoints::resolve(settings, &problem, timeoutMs, &unreachable);
    if (!endpoints)
        return failWith(error, failure, unreachable ? Failure::Unreachable : Failure::Other, problem);
    if (endpoints->clientId.isEmpty())
        return failWith(
            error, failure, Failure::SignInNeeded,
            signInNeeded(settings, QStringLiteral("the bridge is not registered with the provider yet")));

    const SecretStore store(timeoutMs);
    const SecretStore::TokenKey key = refreshTokenKey(settings, endpoints->issuer);
    const SecretStore::Lookup stored = store.lookupToken(key);
    if (!stored.error.isEmpty())
        return failWith(error, failure, Failure::Other, stored.error);
    if (!stored.password || stored.password->isEmpty())
        return failWith(
            error, failure, Failure::SignInNeeded,
            signInNeeded(settings, QStringLiteral("%1 has not signed in yet").arg(settings.mail)));

    OAuthHttp::Form form{{QStringLiteral("grant_type"), QStringLiteral("refresh_token")},
                         {QStringLiteral("refresh_token"), *stored.password},
                         {QStringLiteral("client_id"), endpoints->clientId}};
    if (!endpoints->clientSecret.isEmpty())
        form.append({QStringLiteral("client_secret"), endpoints->clientSecret});
    const int left = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
    const OAuthHttp::Reply reply = OAuthHttp::postForm(endpoints->tokenUrl, form, std::max(left, 1000));
    if (!reply.reached)
        return failWith(error, failure, Failure::Unreachable,
                        QStringLiteral("cannot refresh the sign-in: %1").arg(reply.error));
    if (reply.status >= 500)
        return failWith(
            error, failure, Failure::Unreachable,
            QStringLiteral("cannot refresh the sign-in: the provider answered %1").arg(reply.status));
    const QString code = reply.json.value(QLatin1String("error")).toString();
    // RFC 6749 5.2: the refresh token is invalid, expired or revoked. Only a new sign-in helps;
    // asking again would only be refused again.
    if (code == QLatin1String("invalid_grant"))
        return failWith(
            error, failure, Failure::SignInNeeded,
            signInNeeded(
                settings,
                QStringLiteral("the provider no longer accepts the sign-in of %1").arg(settings.mail)));
    if (reply.status != 200 || !code.isEmpty() || !reply.error.isEmpty())
        return failWith(
            error, failure, Failure::Other,
            QStringLiteral("the provider refused to refresh the sign-in: %1").arg(providerError(reply)));
    const QString accessToken = reply.json.value(QLatin1String("access_token")).toString();
    if (accessToken.isEmpty())
        return failWith(error, failure, Failure::Other,
                        QStringLiteral("the provider's answer to a refresh holds no access token"));
    const int expiresIn = reply.json.value(QLatin1String("expires_in")).toInt(AssumedLifetimeSeconds);
    entry->accessToken = accessToken;
    entry->expiresAt =
        Clock::now() + std::chrono::seconds(expiresIn > 0 ? expiresIn : AssumedLifetimeSeconds);

    // A provider that rotates refresh tokens has just made the stored one useless: keep the new one.
    const QString newRefresh = reply.json.value(QLatin1String("refresh_token")).toString();
    if (!newRefresh.isEmpty() && newRefresh != *stored.password) {
        QString storeError;
        if (!store.storeToken(key, refreshTokenLabel(settings, endpoints->issuer), newRefresh, &storeError)) {
            // The token in hand still works; without the new refresh token the next refresh cannot.
            return failWith(error, failure, Failure::Other, storeError);
        }
    }
    return accessToken;
}

void OAuthTokens::forget(const OAuthEndpoints::Settings& settings) {
    const std::shared_ptr<Cached> entry = entryOf(settings);
    const std::lock_guard<std::timed_mutex> refresh(entry->refreshing);
    entry->accessToken.clear();
}

void OAuthTokens::forgetAll() {
    const std::lock_guard<std::mutex> lock(cacheMutex());
    cache().clear();
}

OAuthEndpoints::Settings OAuthTokens::settingsOf(const BridgeConfig::Account& account) {
    OAuthEndpoints::Settings settings;
    settings.account = account.name;
    settings.mail = account.mail;
    settings.host = account.host;
    settings.provider = account.oauthProvider;
    settings.clientId = account.oauthClientId;
    settings.clientSecret = account.oauthClientSecret;
    settings.authorizeUrl = account.oauthAuthorizeUrl;
    settings.tokenUrl = account.oauthTokenUrl;
    settings.scope = account.oauthScope;
    settings.issuer = account.oauthIssuer;
    return settings;
}

SecretStore::TokenKey OAuthTokens::refreshTokenKey(const OAuthEndpoints::Settings& settings,
                                                   const QString& issuer) {
    return {settings.account, settings.mail, issuer, QStringLiteral("refresh-token")};
}

QString OAuthTokens::refreshTokenLabel(const OAuthEndpoints::Settings& settings, const QString& issuer) {
    return QStringLiteral("Corvina mail sign-in for %1 (%2)").arg(settings.mail, issuer);
}

QString OAuthTokens::signInNeeded(const OAuthEndpoints::Settings& settings, const QString& why) {
    return QStringLiteral("sign-in needed: %1; run corvina-mail-bridge account signin %2")
        .arg(why, settings.account);
}

} // namespace corvina
