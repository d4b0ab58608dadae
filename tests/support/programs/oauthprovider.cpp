// A stand-in for an OAuth 2 provider's servers in tests (no real provider can be had in a test).
//
//     corvina_test_oauthprovider [--user DEFAULT_USER] [--access-ttl SECONDS]
//
// Plain HTTP/1.1 on 127.0.0.1, on a free port it picks and prints as its first line of standard
// output, "PORT <n>". One request per connection, every answer with "Connection: close". All it
// knows (clients, codes, tokens) is kept in memory and goes with the process. What it logs on
// standard error (one line a request: method, path, status) never holds a token, code or secret.
//
// Endpoints (form bodies are application/x-www-form-urlencoded):
//   GET  /authorize       approves at once as login_hint (or DEFAULT_USER) and answers 302 to
//                         redirect_uri?code=..&state=..; refuses (400, JSON error) an unknown
//                         client, a redirect_uri other than http://127.0.0.1:PORT/..., a missing
//                         state, and PKCE other than S256.
//   POST /token           grant_type=authorization_code (PKCE checked, a code used once) or
//                         refresh_token; errors as RFC 6749 section 5.2.
//   POST /introspect      token= -> {"active":true,"username":..} or {"active":false}
//                         (what Dovecot's oauth2 passdb asks with introspection_mode = post).
//   GET  /.well-known/oauth-authorization-server   RFC 8414 metadata.
//   POST /register        RFC 7591 dynamic registration of a public client (JSON in and out).
//   POST /control/mint    user=[&ttl=] -> tokens without any browser (tests only).
//   POST /control/revoke  user= -> every grant and token of that user is gone.
//   POST /control/expire  user= -> that user's access tokens are inactive (refresh tokens stay good).
//   GET  /control/stats   how many requests each endpoint had.
// Pre-registered clients: "corvina-test" (public) and "corvina-secret" (confidential, secret
// "s3cret-for-tests", by HTTP Basic or client_secret in the form).
#include <QByteArray>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

// Bounds on what a request may be: far above anything a client of this stand-in sends, low enough
// that a broken client cannot make the stand-in hold much.
constexpr int MaxHeaderBytes = 16 * 1024;
constexpr int MaxBodyBytes = 64 * 1024;
// A connection that never finishes its request is dropped after this long.
constexpr int RequestTimeoutMs = 30000;
// How long an authorization code may wait to be redeemed (RFC 6749 recommends at most 10 minutes).
constexpr qint64 CodeLifetimeSecs = 600;

struct Request {
    QByteArray method;
    QByteArray path;
    QByteArray query;
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
};

struct Response {
    Response() = default;
    Response(int status, QByteArray body, QByteArray contentType = "application/json")
        : status(status), body(std::move(body)), contentType(std::move(contentType)) {}
    void addHeader(const QByteArray& name, const QByteArray& value) {
        headers.append(qMakePair(name, value));
    }

    int status = 200;
    QByteArray body;
    QByteArray contentType = "application/json";
    QList<QPair<QByteArray, QByteArray>> headers;
};

enum class Parsed { Incomplete, Complete, Bad, TooLarge, Chunked };

Parsed parseRequest(const QByteArray& buffer, Request* request) {
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return buffer.size() > MaxHeaderBytes ? Parsed::TooLarge : Parsed::Incomplete;
    if (headerEnd > MaxHeaderBytes)
        return Parsed::TooLarge;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() != 3 || !requestLine[2].startsWith("HTTP/1."))
        return Parsed::Bad;
    request->method = requestLine[0];
    const QByteArray target = requestLine[1];
    const qsizetype question = target.indexOf('?');
    request->path = question < 0 ? target : target.left(question);
    request->query = question < 0 ? QByteArray() : target.mid(question + 1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return Parsed::Bad;
        request->headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    if (request->headers.value("transfer-encoding").toLower().contains("chunked"))
        return Parsed::Chunked;
    bool ok = true;
    const QByteArray lengthText = request->headers.value("content-length", "0");
    const qint64 length = lengthText.toLongLong(&ok);
    if (!ok || length < 0)
        return Parsed::Bad;
    if (length > MaxBodyBytes)
        return Parsed::TooLarge;
    const qsizetype bodyStart = headerEnd + 4;
    if (buffer.size() - bodyStart < length)
        return Parsed::Incomplete;
    request->body = buffer.mid(bodyStart, length);
    return Parsed::Complete;
}

// application/x-www-form-urlencoded (a form body, or a query): '+' is a space, %XX a byte. A name
// given twice counts as malformed (RFC 6749 section 3.1: parameters must not repeat).
std::optional<QHash<QString, QString>> formFields(const QByteArray& text) {
    QHash<QString, QString> fields;
    for (const QByteArray& pair : text.split('&')) {
        if (pair.isEmpty())
            continue;
        const qsizetype equals = pair.indexOf('=');
        QByteArray name = equals < 0 ? pair : pair.left(equals);
        QByteArray value = equals < 0 ? QByteArray() : pair.mid(equals + 1);
        name.replace('+', ' ');
        value.replace('+', ' ');
        const QString key = QString::fromUtf8(QByteArray::fromPercentEncoding(name));
        if (fields.contains(key))
            return std::nullopt;
        fields.insert(key, QString::fromUtf8(QByteArray::fromPercentEncoding(value)));
    }
    return fields;
}

QByteArray json(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

Response error(int status, const QString& code, const QString& description = QString()) {
    QJsonObject body{{QStringLiteral("error"), code}};
    if (!description.isEmpty())
        body.insert(QStringLiteral("error_description"), description);
    Response response{status, json(body)};
    if (status == 401)
        response.addHeader("WWW-Authenticate", "Basic realm=\"corvina-test\"");
    return response;
}

Response jsonResponse(const QJsonObject& object, int status = 200) {
    // Answers that carry tokens must not be cached (RFC 6749 section 5.1).
    Response response{status, json(object)};
    response.addHeader("Cache-Control", "no-store");
    return response;
}

QString randomToken() {
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString s256(const QString& verifier) {
    return QString::fromLatin1(QCryptographicHash::hash(verifier.toLatin1(), QCryptographicHash::Sha256)
                                   .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

// RFC 7636 section 4.1: 43 to 128 characters of the unreserved set.
bool isVerifier(const QString& text) {
    if (text.size() < 43 || text.size() > 128)
        return false;
    for (const QChar c : text) {
        const bool unreserved = (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') ||
                                (c >= u'0' && c <= u'9') || c == u'-' || c == u'.' || c == u'_' || c == u'~';
        if (!unreserved)
            return false;
    }
    return true;
}

// A loopback redirect as RFC 8252 section 7.3 has it: http, the address 127.0.0.1, a port.
bool isLoopbackRedirect(const QString& text) {
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() && url.scheme() == QLatin1String("http") &&
           url.host() == QLatin1String("127.0.0.1") && url.port() > 0 && url.userInfo().isEmpty() &&
           url.fragment().isNull();
}

qint64 now() {
    return QDateTime::currentSecsSinceEpoch();
}

class Provider {
public:
    Provider(QString defaultUser, int accessTtl)
        : m_defaultUser(std::move(defaultUser)), m_accessTtl(accessTtl) {
        m_clients.insert(QStringLiteral("corvina-test"), Client{});
        m_clients.insert(QStringLiteral("corvina-secret"), Client{QStringLiteral("s3cret-for-tests")});
    }

    void setPort(quint16 port) { m_base = QStringLiteral("http://127.0.0.1:%1").arg(port); }

    Response handle(const Request& request) {
        const QByteArray& path = request.path;
        const bool get = request.method == "GET";
        const bool post = request.method == "POST";
        if (path == "/authorize")
            return get ? authorize(request) : error(405, QStringLiteral("invalid_request"));
        if (path == "/token")
            return post ? token(request) : error(405, QStringLiteral("invalid_request"));
        if (path == "/introspect")
            return post ? introspect(request) : error(405, QStringLiteral("invalid_request"));
        if (path == "/.well-known/oauth-authorization-server")
            return get ? metadata() : error(405, QStringLiteral("invalid_request"));
        if (path == "/register")
            return post ? registerClient(request) : error(405, QStringLiteral("invalid_request"));
        if (path == "/control/stats")
            return get ? stats() : error(405, QStringLiteral("invalid_request"));
        if (path.startsWith("/control/"))
            return post ? control(path.mid(9), request) : error(405, QStringLiteral("invalid_request"));
        return error(404, QStringLiteral("not_found"));
    }

private:
    struct Client {
        QString secret; // empty: a public client
    };
    struct Code {
        QString clientId;
        QString redirectUri;
        QString challenge;
        QString user;
        QString scope;
        qint64 issued = 0;
        bool used = false;
    };
    struct AccessToken {
        QString user;
        QString clientId;
        QString scope;
        qint64 expires = 0;
        bool active = true;
    };
    struct RefreshToken {
        QString user;
        QString clientId;
        QString scope;
    };

    Response authorize(const Request& request) {
        ++m_authorizations;
        const auto fields = formFields(request.query);
        if (!fields)
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("a parameter is repeated"));
        const QHash<QString, QString>& q = *fields;
        if (!m_clients.contains(q.value(QStringLiteral("client_id"))))
            return error(400, QStringLiteral("invalid_client"), QStringLiteral("unknown client_id"));
        const QString redirect = q.value(QStringLiteral("redirect_uri"));
        if (!isLoopbackRedirect(redirect)) {
            return error(400, QStringLiteral("invalid_request"),
                         QStringLiteral("redirect_uri must be http://127.0.0.1:PORT/..."));
        }
        if (q.value(QStringLiteral("response_type")) != QLatin1String("code"))
            return error(400, QStringLiteral("unsupported_response_type"));
        if (q.value(QStringLiteral("code_challenge_method")) != QLatin1String("S256"))
            return error(400, QStringLiteral("invalid_request"),
                         QStringLiteral("code_challenge_method must be S256"));
        const QString challenge = q.value(QStringLiteral("code_challenge"));
        // base64url of a SHA-256 digest, without padding: always 43 characters
        if (challenge.size() != 43 ||
            QByteArray::fromBase64Encoding(challenge.toLatin1(), QByteArray::Base64UrlEncoding |
                                                                     QByteArray::AbortOnBase64DecodingErrors)
                    .decodingStatus != QByteArray::Base64DecodingStatus::Ok)
            return error(400, QStringLiteral("invalid_request"),
                         QStringLiteral("code_challenge is not S256"));
        // Deliberately stricter than RFC 6749 (which only recommends it): a client under test that
        // forgets its state must fail here, not pass unnoticed.
        const QString state = q.value(QStringLiteral("state"));
        if (state.isEmpty())
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("state is required"));
        const QString hint = q.value(QStringLiteral("login_hint"));
        const QString code = randomToken();
        m_codes.insert(code,
                       Code{q.value(QStringLiteral("client_id")), redirect, challenge,
                            hint.isEmpty() ? m_defaultUser : hint, q.value(QStringLiteral("scope")), now()});
        const QByteArray location = redirect.toUtf8() + (redirect.contains(u'?') ? "&" : "?") +
                                    "code=" + code.toLatin1() + "&state=" + QUrl::toPercentEncoding(state);
        Response response{302, QByteArray("Signed in as the stand-in's user.\n"), "text/plain"};
        response.addHeader("Location", location);
        return response;
    }

    // Who the client says it is: HTTP Basic (RFC 6749 section 2.3.1) or client_id/client_secret in
    // the form. Null with *failure set when it is an unknown client or a wrong secret.
    QString authenticatedClient(const Request& request, const QHash<QString, QString>& form,
                                Response* failure) {
        QString id = form.value(QStringLiteral("client_id"));
        QString secret = form.value(QStringLiteral("client_secret"));
        const QByteArray authorization = request.headers.value("authorization");
        if (authorization.toLower().startsWith("basic ")) {
            const QByteArray decoded = QByteArray::fromBase64(authorization.mid(6).trimmed());
            const qsizetype colon = decoded.indexOf(':');
            if (colon < 0) {
                *failure = error(401, QStringLiteral("invalid_client"));
                return QString();
            }
            QByteArray basicId = decoded.left(colon);
            QByteArray basicSecret = decoded.mid(colon + 1);
            basicId.replace('+', ' ');
            basicSecret.replace('+', ' ');
            const QString fromHeader = QString::fromUtf8(QByteArray::fromPercentEncoding(basicId));
            if (!id.isEmpty() && id != fromHeader) {
                *failure = error(400, QStringLiteral("invalid_request"), QStringLiteral("two client ids"));
                return QString();
            }
            id = fromHeader;
            secret = QString::fromUtf8(QByteArray::fromPercentEncoding(basicSecret));
        }
        const auto client = m_clients.constFind(id);
        if (id.isEmpty() || client == m_clients.cend()) {
            *failure = error(401, QStringLiteral("invalid_client"), QStringLiteral("unknown client"));
            return QString();
        }
        if (!client->secret.isEmpty() && secret != client->secret) {
            *failure = error(401, QStringLiteral("invalid_client"), QStringLiteral("wrong client secret"));
            return QString();
        }
        return id;
    }

    QJsonObject issue(const QString& user, const QString& clientId, const QString& scope, int ttl,
                      const QString& refreshToken = QString()) {
        const QString access = randomToken();
        m_access.insert(access, AccessToken{user, clientId, scope, now() + ttl});
        QString refresh = refreshToken;
        if (refresh.isEmpty()) {
            refresh = randomToken();
            m_refresh.insert(refresh, RefreshToken{user, clientId, scope});
        }
        QJsonObject answer{{QStringLiteral("access_token"), access},
                           {QStringLiteral("token_type"), QStringLiteral("Bearer")},
                           {QStringLiteral("expires_in"), ttl},
                           {QStringLiteral("refresh_token"), refresh}};
        if (!scope.isEmpty())
            answer.insert(QStringLiteral("scope"), scope);
        return answer;
    }

    Response token(const Request& request) {
        ++m_tokenRequests;
        const auto fields = formFields(request.body);
        if (!fields)
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("a parameter is repeated"));
        const QHash<QString, QString>& form = *fields;
        const QString grant = form.value(QStringLiteral("grant_type"));
        if (grant == QLatin1String("refresh_token"))
            ++m_refreshRequests;
        if (!request.headers.value("content-type").toLower().startsWith("application/x-www-form-urlencoded"))
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("the body must be a form"));
        Response failure;
        const QString clientId = authenticatedClient(request, form, &failure);
        if (clientId.isNull())
            return failure;
        if (grant == QLatin1String("authorization_code")) {
            const QString codeText = form.value(QStringLiteral("code"));
            const QString verifier = form.value(QStringLiteral("code_verifier"));
            if (codeText.isEmpty() || verifier.isEmpty() || !form.contains(QStringLiteral("redirect_uri")))
                return error(400, QStringLiteral("invalid_request"),
                             QStringLiteral("code, code_verifier, redirect_uri"));
            const auto code = m_codes.find(codeText);
            if (code == m_codes.end())
                return error(400, QStringLiteral("invalid_grant"), QStringLiteral("unknown code"));
            // Any attempt uses the code up, a failed one too: a code is worth one try.
            if (code->used)
                return error(400, QStringLiteral("invalid_grant"), QStringLiteral("code already used"));
            code->used = true;
            if (now() - code->issued > CodeLifetimeSecs)
                return error(400, QStringLiteral("invalid_grant"), QStringLiteral("code expired"));
            if (code->clientId != clientId)
                return error(400, QStringLiteral("invalid_grant"), QStringLiteral("code of another client"));
            if (code->redirectUri != form.value(QStringLiteral("redirect_uri")))
                return error(400, QStringLiteral("invalid_grant"), QStringLiteral("redirect_uri differs"));
            if (!isVerifier(verifier) || s256(verifier) != code->challenge)
                return error(400, QStringLiteral("invalid_grant"),
                             QStringLiteral("code_verifier does not match"));
            return jsonResponse(issue(code->user, clientId, code->scope, m_accessTtl));
        }
        if (grant == QLatin1String("refresh_token")) {
            const QString refreshText = form.value(QStringLiteral("refresh_token"));
            if (refreshText.isEmpty())
                return error(400, QStringLiteral("invalid_request"), QStringLiteral("refresh_token"));
            const auto refresh = m_refresh.constFind(refreshText);
            if (refresh == m_refresh.cend())
                return error(400, QStringLiteral("invalid_grant"),
                             QStringLiteral("unknown or revoked refresh token"));
            if (refresh->clientId != clientId)
                return error(400, QStringLiteral("invalid_grant"),
                             QStringLiteral("refresh token of another client"));
            return jsonResponse(issue(refresh->user, clientId, refresh->scope, m_accessTtl, refreshText));
        }
        if (grant.isEmpty())
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("grant_type"));
        return error(400, QStringLiteral("unsupported_grant_type"));
    }

    Response introspect(const Request& request) {
        ++m_introspections;
        const auto fields = formFields(request.body);
        if (!fields || !fields->contains(QStringLiteral("token")))
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("token"));
        const auto token = m_access.constFind(fields->value(QStringLiteral("token")));
        if (token == m_access.cend() || !token->active || token->expires <= now())
            return jsonResponse(QJsonObject{{QStringLiteral("active"), false}});
        QJsonObject answer{{QStringLiteral("active"), true},
                           {QStringLiteral("username"), token->user},
                           {QStringLiteral("client_id"), token->clientId},
                           {QStringLiteral("token_type"), QStringLiteral("Bearer")},
                           {QStringLiteral("exp"), token->expires}};
        if (!token->scope.isEmpty())
            answer.insert(QStringLiteral("scope"), token->scope);
        return jsonResponse(answer);
    }

    Response metadata() const {
        const QJsonObject answer{
            {QStringLiteral("issuer"), m_base},
            {QStringLiteral("authorization_endpoint"), m_base + QStringLiteral("/authorize")},
            {QStringLiteral("token_endpoint"), m_base + QStringLiteral("/token")},
            {QStringLiteral("registration_endpoint"), m_base + QStringLiteral("/register")},
            {QStringLiteral("introspection_endpoint"), m_base + QStringLiteral("/introspect")},
            {QStringLiteral("code_challenge_methods_supported"), QJsonArray{QStringLiteral("S256")}},
            {QStringLiteral("grant_types_supported"),
             QJsonArray{QStringLiteral("authorization_code"), QStringLiteral("refresh_token")}},
            {QStringLiteral("response_types_supported"), QJsonArray{QStringLiteral("code")}},
            {QStringLiteral("token_endpoint_auth_methods_supported"),
             QJsonArray{QStringLiteral("none"), QStringLiteral("client_secret_basic"),
                        QStringLiteral("client_secret_post")}}};
        return Response{200, json(answer)};
    }

    Response registerClient(const Request& request) {
        ++m_registrations;
        QJsonParseError parseError{};
        const QJsonDocument document = QJsonDocument::fromJson(request.body, &parseError);
        if (parseError.error != QJsonParseError::NoError || !document.isObject())
            return error(400, QStringLiteral("invalid_client_metadata"),
                         QStringLiteral("the body must be a JSON object"));
        const QJsonObject metadata = document.object();
        const QJsonValue method = metadata.value(QStringLiteral("token_endpoint_auth_method"));
        if (!method.isUndefined() && method.toString() != QLatin1String("none")) {
            return error(400, QStringLiteral("invalid_client_metadata"),
                         QStringLiteral("only public clients (token_endpoint_auth_method none)"));
        }
        const QJsonArray redirects = metadata.value(QStringLiteral("redirect_uris")).toArray();
        if (redirects.isEmpty())
            return error(400, QStringLiteral("invalid_redirect_uri"),
                         QStringLiteral("redirect_uris is required"));
        for (const QJsonValue& redirect : redirects) {
            if (!isLoopbackRedirect(redirect.toString())) {
                return error(400, QStringLiteral("invalid_redirect_uri"),
                             QStringLiteral("redirect_uris must be http://127.0.0.1:PORT/..."));
            }
        }
        const QString id = QStringLiteral("registered-") + randomToken().left(16);
        m_clients.insert(id, Client{});
        QJsonObject answer{{QStringLiteral("client_id"), id},
                           {QStringLiteral("client_id_issued_at"), now()},
                           {QStringLiteral("redirect_uris"), redirects},
                           {QStringLiteral("token_endpoint_auth_method"), QStringLiteral("none")},
                           {QStringLiteral("grant_types"), QJsonArray{QStringLiteral("authorization_code"),
                                                                      QStringLiteral("refresh_token")}},
                           {QStringLiteral("response_types"), QJsonArray{QStringLiteral("code")}}};
        if (metadata.contains(QStringLiteral("client_name")))
            answer.insert(QStringLiteral("client_name"), metadata.value(QStringLiteral("client_name")));
        return jsonResponse(answer, 201);
    }

    Response control(const QByteArray& what, const Request& request) {
        const auto fields = formFields(request.body);
        const QString user = fields ? fields->value(QStringLiteral("user")) : QString();
        if (user.isEmpty())
            return error(400, QStringLiteral("invalid_request"), QStringLiteral("user"));
        if (what == "mint") {
            const int ttl = fields->value(QStringLiteral("ttl")).toInt();
            return jsonResponse(
                issue(user, QStringLiteral("corvina-test"), QString(), ttl > 0 ? ttl : m_accessTtl));
        }
        if (what == "revoke") {
            int revoked = 0;
            revoked += removeOf(m_access, user);
            revoked += removeOf(m_refresh, user);
            revoked += removeOf(m_codes, user);
            return jsonResponse(QJsonObject{{QStringLiteral("revoked"), revoked}});
        }
        if (what == "expire") {
            int expired = 0;
            for (AccessToken& token : m_access) {
                if (token.user == user && token.active) {
                    token.active = false;
                    ++expired;
                }
            }
            return jsonResponse(QJsonObject{{QStringLiteral("expired"), expired}});
        }
        return error(404, QStringLiteral("not_found"));
    }

    template <typename Map> static int removeOf(Map& map, const QString& user) {
        int removed = 0;
        for (auto it = map.begin(); it != map.end();) {
            if (it->user == user) {
                it = map.erase(it);
                ++removed;
            } else {
                ++it;
            }
        }
        return removed;
    }

    Response stats() const {
        return Response{200, json(QJsonObject{{QStringLiteral("token_requests"), m_tokenRequests},
                                              {QStringLiteral("refresh_requests"), m_refreshRequests},
                                              {QStringLiteral("introspections"), m_introspections},
                                              {QStringLiteral("authorizations"), m_authorizations},
                                              {QStringLiteral("registrations"), m_registrations}})};
    }

    QString m_defaultUser;
    int m_accessTtl;
    QString m_base;
    QHash<QString, Client> m_clients;
    QHash<QString, Code> m_codes;
    QHash<QString, AccessToken> m_access;
    QHash<QString, RefreshToken> m_refresh;
    int m_tokenRequests = 0;
    int m_refreshRequests = 0;
    int m_introspections = 0;
    int m_authorizations = 0;
    int m_registrations = 0;
};

QByteArray reason(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 302:
        return "Found";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 411:
        return "Length Required";
    case 413:
        return "Content Too Large";
    default:
        return "Status";
    }
}

void send(QTcpSocket* socket, const Response& response) {
    QByteArray head =
        "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reason(response.status) + "\r\n";
    head += "Content-Type: " + response.contentType + "\r\n";
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    for (const auto& [name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    head += "Connection: close\r\n\r\n";
    socket->write(head + response.body);
    // Closes once everything written has gone out.
    socket->disconnectFromHost();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    QString defaultUser = QStringLiteral("user@example.org");
    int accessTtl = 3600;
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--user"))
            defaultUser = args[i + 1];
        else if (args[i] == QLatin1String("--access-ttl"))
            accessTtl = args[i + 1].toInt();
        else
            return 2;
    }
    if (accessTtl <= 0)
        return 2;

    Provider provider(defaultUser, accessTtl);
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, 0)) {
        std::fprintf(stderr, "cannot listen on 127.0.0.1: %s\n", qPrintable(server.errorString()));
        return 1;
    }
    provider.setPort(server.serverPort());
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        while (QTcpSocket* socket = server.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            auto buffer = std::make_shared<QByteArray>();
            auto answered = std::make_shared<bool>(false);
            auto continued = std::make_shared<bool>(false);
            auto finish = [socket, answered](const Response& response, const QByteArray& method,
                                             const QByteArray& path) {
                *answered = true;
                // method and path only: the query and body may hold codes and tokens
                std::fprintf(stderr, "%s %s %d\n", method.left(16).constData(), path.left(200).constData(),
                             response.status);
                send(socket, response);
            };
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [=, &provider] {
                if (*answered) {
                    socket->readAll();
                    return;
                }
                *buffer += socket->readAll();
                Request request;
                switch (parseRequest(*buffer, &request)) {
                case Parsed::Incomplete:
                    // A client that waits for "100 Continue" before sending its body gets it.
                    if (!*continued && buffer->contains("\r\n\r\n") &&
                        request.headers.value("expect").toLower() == "100-continue") {
                        *continued = true;
                        socket->write("HTTP/1.1 100 Continue\r\n\r\n");
                    }
                    return;
                case Parsed::Bad:
                    finish(error(400, QStringLiteral("invalid_request"),
                                 QStringLiteral("malformed HTTP request")),
                           "?", "?");
                    return;
                case Parsed::TooLarge:
                    finish(error(413, QStringLiteral("invalid_request"), QStringLiteral("request too large")),
                           "?", "?");
                    return;
                case Parsed::Chunked:
                    finish(error(411, QStringLiteral("invalid_request"),
                                 QStringLiteral("Content-Length needed")),
                           request.method, request.path);
                    return;
                case Parsed::Complete:
                    finish(provider.handle(request), request.method, request.path);
                    return;
                }
            });
            QTimer::singleShot(RequestTimeoutMs, socket, [socket] { socket->abort(); });
        }
    });
    // The test that started it ends it; should the test die instead, its end of standard input
    // closes, and so does this program.
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&] {
        char discard[256];
        if (::read(STDIN_FILENO, discard, sizeof discard) <= 0)
            app.quit();
    });
    std::printf("PORT %u\n", static_cast<unsigned>(server.serverPort()));
    std::fflush(stdout);
    return app.exec();
}
