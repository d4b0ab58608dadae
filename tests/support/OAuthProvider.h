#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>
#include <optional>

namespace corvina::test {

// A stand-in for an OAuth 2 provider's servers (no real provider can be had in a test): the
// program corvina_test_oauthprovider (tests/support/programs/oauthprovider.cpp says what each
// endpoint does) on 127.0.0.1, plain HTTP, on a port it picks. It approves every authorization at
// once as the login_hint's user, checks PKCE (S256 only) and the client, issues short-lived access
// tokens and refresh tokens, and answers Dovecot's introspection (DovecotServer::enableTokenLogins).
// Clients it knows from the start: ClientId (public) and SecretClientId with ClientSecret.
// Stopped when the object goes away.
class OAuthProvider {
public:
    static constexpr const char* ClientId = "corvina-test";
    static constexpr const char* SecretClientId = "corvina-secret";
    static constexpr const char* ClientSecret = "s3cret-for-tests";

    struct Tokens {
        QString accessToken;
        QString refreshToken;
        int expiresIn = 0;
    };
    // How many requests each endpoint had since the start. tokenRequests counts every request to
    // the token endpoint, refreshRequests those among them with grant_type=refresh_token. All -1
    // when the provider did not answer.
    struct Stats {
        int tokenRequests = -1;
        int refreshRequests = -1;
        int introspections = -1;
        int authorizations = -1;
        int registrations = -1;
    };
    // An HTTP answer as it came (a redirect is not followed).
    struct Reply {
        int status = 0;                        // 0: no answer (error says why)
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
        QString error;
        QJsonObject json() const;
        QString location() const { return QString::fromUtf8(headers.value("location")); }
    };

    OAuthProvider();
    ~OAuthProvider();
    OAuthProvider(const OAuthProvider&) = delete;
    OAuthProvider& operator=(const OAuthProvider&) = delete;

    // Before start(): how long access tokens live (3600 s unless set), and the user an
    // authorization without login_hint approves as (user@example.org unless set).
    void setAccessTtl(int seconds) { m_accessTtl = seconds; }
    void setDefaultUser(const QString& user) { m_defaultUser = user; }

    // Starts the program and waits, for a bounded time, for its port. False with `error` set when
    // it does not come up.
    bool start(QString* error = nullptr);
    void stop();
    bool isRunning() const;

    quint16 port() const { return m_port; }
    QString baseUrl() const; // "http://127.0.0.1:PORT"
    QString authorizeUrl() const;
    QString tokenUrl() const;
    QString introspectUrl() const;
    QString registerUrl() const;
    QString metadataUrl() const; // the RFC 8414 document

    // Tokens for `user` without any browser; the access token lives `ttlSeconds` (the provider's
    // access TTL when 0). Nothing, with `error` set, when the provider does not answer.
    std::optional<Tokens> mint(const QString& user, int ttlSeconds = 0, QString* error = nullptr);
    // Every code, access token and refresh token of `user` is gone (a grant revoked).
    bool revoke(const QString& user, QString* error = nullptr);
    // The access tokens of `user` are no longer active; their refresh tokens stay good.
    bool expire(const QString& user, QString* error = nullptr);
    // From now on `user` refuses at the authorization page (the redirect carries
    // error=access_denied and the state, no code); with false, approves again.
    bool deny(const QString& user, bool denying = true, QString* error = nullptr);
    Stats stats(QString* error = nullptr) const;

    // What the program logged: one line a request ("METHOD /path STATUS"), never a token.
    QString log() const;

    // A small synchronous HTTP/1.1 client for tests (any loopback server that closes the
    // connection after its answer, as this provider does).
    static Reply get(const QUrl& url, int timeoutMs = 15000);
    static Reply post(const QUrl& url, const QByteArray& body, const QByteArray& contentType,
                      const QList<QPair<QByteArray, QByteArray>>& headers = {}, int timeoutMs = 15000);
    static Reply postForm(const QUrl& url, const QList<QPair<QString, QString>>& fields,
                          const QList<QPair<QByteArray, QByteArray>>& headers = {}, int timeoutMs = 15000);
    // application/x-www-form-urlencoded
    static QByteArray formBody(const QList<QPair<QString, QString>>& fields);

private:
    // One of the control endpoints (/control/WHAT) for `user`; false with `error` set ("WHAT
    // failed: ...") when the provider does not answer 200.
    bool control(const QString& what, const QString& user, QString* error);

    QProcess m_process;
    quint16 m_port = 0;
    int m_accessTtl = 3600;
    QString m_defaultUser = QStringLiteral("user@example.org");
    // the program's log goes to a file here: a pipe nobody reads would stop it once full
    QTemporaryDir m_dir;
};

} // namespace corvina::test
