#include "OAuthSignIn.h"

#include "OAuthHttp.h"
#include "OAuthTokens.h"
#include "SecretStore.h"

#include <QCryptographicHash>
#include <QEventLoop>
#include <QHostAddress>
#include <QJsonArray>
#include <QMultiMap>
#include <QOAuth2AuthorizationCodeFlow>
#include <QOAuthHttpServerReplyHandler>
#include <QRandomGenerator>
#include <QTimer>
#include <QUrlQuery>
#include <QVariantMap>

namespace corvina {

namespace {

QByteArray base64Url(const QByteArray& bytes) {
    return bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
}

QString randomText(int bytes) {
    QByteArray random(bytes, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(random.data()), bytes / 4);
    return QString::fromLatin1(base64Url(random));
}

bool fail(QString* error, const QString& text) {
    if (error)
        *error = text;
    return false;
}

// RFC 7591: registers the bridge as a public native client (no secret) and returns its client id.
// It registers the listener's address of this sign-in; RFC 8252 7.3 has the provider accept any
// port of the loopback address later, as the next sign-in's listener will have another.
std::optional<QString> registerClient(const QUrl& registrationUrl, const QString& redirectUri, int timeoutMs,
                                      QString* error) {
    const QJsonObject request{
        {QStringLiteral("client_name"), QStringLiteral("Corvina mail bridge")},
        {QStringLiteral("application_type"), QStringLiteral("native")},
        {QStringLiteral("redirect_uris"), QJsonArray{redirectUri}},
        {QStringLiteral("grant_types"),
         QJsonArray{QStringLiteral("authorization_code"), QStringLiteral("refresh_token")}},
        {QStringLiteral("response_types"), QJsonArray{QStringLiteral("code")}},
        {QStringLiteral("token_endpoint_auth_method"), QStringLiteral("none")},
    };
    const OAuthHttp::Reply reply = OAuthHttp::postJson(registrationUrl, request, timeoutMs);
    if (!reply.reached) {
        fail(error, QStringLiteral("cannot register with the provider: %1").arg(reply.error));
        return std::nullopt;
    }
    const QString clientId = reply.json.value(QLatin1String("client_id")).toString();
    if ((reply.status != 200 && reply.status != 201) || clientId.isEmpty()) {
        fail(error, QStringLiteral("the provider refused to register the bridge: %1")
                        .arg(reply.json.value(QLatin1String("error"))
                                 .toString(QStringLiteral("HTTP %1").arg(reply.status))));
        return std::nullopt;
    }
    return clientId;
}

// How long the listener is kept after the redirect, for its page to be written out.
constexpr int PageGraceMs = 300;

// What came back to the listener.
struct Redirect {
    bool arrived = false;
    QString code;
    QString problem; // why it was refused; empty when it is good
};

} // namespace

QString OAuthSignIn::signedInPage() {
    return QStringLiteral("Signed in; you can close this tab.");
}

QString OAuthSignIn::makeVerifier() {
    return randomText(32);
}

QString OAuthSignIn::challengeOf(const QString& verifier) {
    return QString::fromLatin1(
        base64Url(QCryptographicHash::hash(verifier.toLatin1(), QCryptographicHash::Sha256)));
}

bool OAuthSignIn::run(const OAuthEndpoints::Settings& settings, const Options& options, QString* error) {
    const auto say = [&options](const QString& line) {
        if (options.progress)
            options.progress(line);
    };
    QString problem;
    std::optional<OAuthEndpoints> endpoints =
        OAuthEndpoints::resolve(settings, &problem, options.requestTimeoutMs);
    if (!endpoints)
        return fail(error, problem);
    // The listener on the loopback address and a port the system picks (RFC 8252 7.3).
    QOAuthHttpServerReplyHandler listener(QHostAddress(QHostAddress::LocalHost), 0);
    if (!listener.isListening())
        return fail(error, QStringLiteral("cannot listen on 127.0.0.1 for the browser's answer"));
    const SecretStore store(options.secretTimeoutMs);
    if (endpoints->clientId.isEmpty()) {
        if (endpoints->registrationUrl.isEmpty())
            return fail(error,
                        QStringLiteral("%1 offers no registration: set oauthClientId to a client id the "
                                       "provider gave")
                            .arg(endpoints->issuer));
        const std::optional<QString> clientId = registerClient(
            endpoints->registrationUrl, listener.callback(), options.requestTimeoutMs, &problem);
        if (!clientId)
            return fail(error, problem);
        // Kept at once: a sign-in given up on below can use it next time instead of registering again.
        if (!store.storeToken(
                {settings.account, settings.mail, endpoints->issuer, QStringLiteral("client-id")},
                QStringLiteral("Corvina mail client id for %1 (%2)").arg(settings.mail, endpoints->issuer),
                *clientId, &problem))
            return fail(error, problem);
        endpoints->clientId = *clientId;
        say(QStringLiteral("Registered with %1.").arg(endpoints->issuer));
    }

    QOAuth2AuthorizationCodeFlow flow;
    flow.setAuthorizationUrl(endpoints->authorizeUrl);
    flow.setAccessTokenUrl(endpoints->tokenUrl);
    flow.setClientIdentifier(endpoints->clientId);
    flow.setScope(endpoints->scope);
    flow.setReplyHandler(&listener);
    // 6.4's flow makes a short state of its own; a longer one leaves nothing to guess.
    flow.setState(randomText(24));
    const QString verifier = makeVerifier();
    flow.setModifyParametersFunction(
        [&](QAbstractOAuth::Stage stage, QMultiMap<QString, QVariant>* parameters) {
            if (stage != QAbstractOAuth::Stage::RequestingAuthorization)
                return;
            parameters->replace(QStringLiteral("code_challenge"), challengeOf(verifier));
            parameters->replace(QStringLiteral("code_challenge_method"), QStringLiteral("S256"));
            if (!settings.mail.isEmpty())
                parameters->replace(QStringLiteral("login_hint"), settings.mail);
            if (endpoints->scope.isEmpty())
                parameters->remove(QStringLiteral("scope"));
        });

    QEventLoop loop;
    QString expectedState;
    // The token request must name the redirect address exactly as the authorization did (RFC 6749 4.1.3).
    QString redirectUri;
    QString browserProblem;
    QObject::connect(&flow, &QAbstractOAuth::authorizeWithBrowser, &loop, [&](const QUrl& url) {
        expectedState = QUrlQuery(url).queryItemValue(QStringLiteral("state"), QUrl::FullyDecoded);
        redirectUri = QUrlQuery(url).queryItemValue(QStringLiteral("redirect_uri"), QUrl::FullyDecoded);
        say(QStringLiteral("Opening the sign-in page in your browser; if none opens, visit:\n%1")
                .arg(url.toString(QUrl::FullyEncoded)));
        if (options.openBrowser && !options.openBrowser(url, &browserProblem))
            loop.quit();
    });
    Redirect redirect;
    QObject::connect(
        &listener, &QAbstractOAuthReplyHandler::callbackReceived, &loop, [&](const QVariantMap& values) {
            // A browser also asks the listener for its icon; only an answer to the
            // authorization counts.
            if (redirect.arrived ||
                (!values.contains(QStringLiteral("state")) && !values.contains(QStringLiteral("code")) &&
                 !values.contains(QStringLiteral("error"))))
                return;
            redirect.arrived = true;
            const QString state =
                QUrl::fromPercentEncoding(values.value(QStringLiteral("state")).toByteArray());
            const QString providerError =
                QUrl::fromPercentEncoding(values.value(QStringLiteral("error")).toByteArray());
            redirect.code = QUrl::fromPercentEncoding(values.value(QStringLiteral("code")).toByteArray());
            if (expectedState.isEmpty() || state != expectedState)
                redirect.problem = QStringLiteral("the browser came back with another sign-in's state");
            else if (!providerError.isEmpty())
                redirect.problem = QStringLiteral("the provider refused: %1").arg(providerError.left(200));
            else if (redirect.code.isEmpty())
                redirect.problem = QStringLiteral("the browser came back without an authorization code");
            // Written into the page the listener answers with, right after this.
            listener.setCallbackText(redirect.problem.isEmpty()
                                         ? signedInPage()
                                         : QStringLiteral("Not signed in: %1.").arg(redirect.problem));
            loop.quit();
        });
    QTimer wait;
    wait.setSingleShot(true);
    QObject::connect(&wait, &QTimer::timeout, &loop, &QEventLoop::quit);
    wait.start(options.waitMs);
    // A person who gives up waiting ends the wait at once; nothing has been traded or stored yet.
    bool cancelled = false;
    QTimer cancelPoll;
    if (options.cancelled) {
        QObject::connect(&cancelPoll, &QTimer::timeout, &loop, [&] {
            if (!redirect.arrived && options.cancelled()) {
                cancelled = true;
                loop.quit();
            }
        });
        cancelPoll.start(CancelPollMs);
    }
    flow.grant();
    // Deliberate: the code is traded below, not by the flow. Qt 6.4's flow only writes a warning
    // when the token endpoint refuses the code (or a redirect comes without one), and would leave
    // the person waiting out the whole wait; the state is still the flow's own.
    // grant() connects it; the browser cannot have come back before this line.
    QObject::disconnect(&listener, &QAbstractOAuthReplyHandler::callbackReceived, &flow, nullptr);

    say(QStringLiteral("Waiting for the browser (at most %1 s)...").arg(options.waitMs / 1000));
    if (browserProblem.isEmpty() && !redirect.arrived) {
        if (options.cancelled && options.cancelled())
            cancelled = true;
        else
            loop.exec();
    }
    cancelPoll.stop();
    // The listener's page goes out from the event loop: give it a moment to reach the browser
    // before the listener closes (a local socket; this is plenty even on a busy machine).
    if (redirect.arrived) {
        QTimer::singleShot(PageGraceMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    listener.close();
    if (!browserProblem.isEmpty())
        return fail(error, browserProblem);
    if (cancelled)
        return fail(error, QStringLiteral("the sign-in was cancelled; nothing was stored"));
    if (!redirect.arrived)
        return fail(error,
                    QStringLiteral("the browser did not come back within %1 s").arg(options.waitMs / 1000));
    if (!redirect.problem.isEmpty())
        return fail(error, QStringLiteral("sign-in refused: %1; nothing was stored").arg(redirect.problem));

    OAuthHttp::Form form{{QStringLiteral("grant_type"), QStringLiteral("authorization_code")},
                         {QStringLiteral("code"), redirect.code},
                         {QStringLiteral("redirect_uri"), redirectUri},
                         {QStringLiteral("client_id"), endpoints->clientId},
                         {QStringLiteral("code_verifier"), verifier}};
    if (!endpoints->clientSecret.isEmpty())
        form.append({QStringLiteral("client_secret"), endpoints->clientSecret});
    const OAuthHttp::Reply reply = OAuthHttp::postForm(endpoints->tokenUrl, form, options.requestTimeoutMs);
    if (!reply.reached)
        return fail(error, QStringLiteral("cannot trade the sign-in for tokens: %1").arg(reply.error));
    const QString refusal = reply.json.value(QLatin1String("error")).toString();
    if (reply.status != 200 || !refusal.isEmpty()) {
        QString why = refusal.isEmpty() ? QStringLiteral("HTTP %1").arg(reply.status) : refusal;
        const QString description = reply.json.value(QLatin1String("error_description")).toString();
        if (!description.isEmpty())
            why += QStringLiteral(" (%1)").arg(description.left(200));
        return fail(error,
                    QStringLiteral("the provider refused to trade the sign-in for tokens: %1").arg(why));
    }
    const QString refreshToken = reply.json.value(QLatin1String("refresh_token")).toString();
    if (refreshToken.isEmpty())
        return fail(error,
                    QStringLiteral("the provider gave no refresh token (its scope may need offline_access)"));
    if (!store.storeToken(OAuthTokens::refreshTokenKey(settings, endpoints->issuer),
                          OAuthTokens::refreshTokenLabel(settings, endpoints->issuer), refreshToken,
                          &problem))
        return fail(error, problem);
    // A token cached before this sign-in (in this process) belongs to the old one.
    OAuthTokens::forget(settings);
    return true;
}

} // namespace corvina
