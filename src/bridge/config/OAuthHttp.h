#pragma once

#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

namespace corvina {

// The HTTP requests of an OAuth 2 sign-in (token, metadata and registration endpoints), made
// through Qt's network stack and waited for on the calling thread, each within a deadline. Any
// thread may call it: each request has a network manager and an event loop of its own, so the
// follower threads (which have no event loop running) can refresh their tokens.
//
// Nothing of a request's body or answer is ever logged: both carry secrets.
class OAuthHttp {
public:
    // An answer larger than this is no token or metadata answer (those are a few hundred bytes);
    // reading on would only let a broken or hostile endpoint fill our memory.
    static constexpr qint64 MaximumAnswerBytes = 256 * 1024;

    struct Reply {
        bool reached = false; // an HTTP answer came
        int status = 0;       // its status; 0 when none came
        QJsonObject json;     // its body, when that is a JSON object
        QString error;        // one line when nothing usable came: unreachable, timed out, not JSON
    };
    using Form = QList<QPair<QString, QString>>;

    static Reply postForm(const QUrl& url, const Form& form, int timeoutMs);
    static Reply postJson(const QUrl& url, const QJsonObject& body, int timeoutMs);
    static Reply get(const QUrl& url, int timeoutMs);

    // What is wrong with `url` as an endpoint of a sign-in, or empty: https, or plain http to this
    // machine only (127.0.0.1, ::1, localhost), where nothing crosses a network.
    static QString endpointProblem(const QUrl& url);
    // Whether `host` names this machine: localhost, or a loopback address (127.0.0.0/8, ::1).
    // Plain http, or a server without TLS, is accepted only there, where nothing crosses a network.
    static bool isLoopback(const QString& host);
    // `form` as application/x-www-form-urlencoded.
    static QByteArray encodeForm(const Form& form);
};

} // namespace corvina
