#include "OAuthHttp.h"

#include <QEventLoop>
#include <QHostAddress>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <memory>

namespace corvina {

namespace {

enum class Method { Get, Post };

OAuthHttp::Reply send(Method method, const QUrl& url, const QByteArray& contentType, const QByteArray& body,
                      int timeoutMs) {
    OAuthHttp::Reply result;
    const QString problem = OAuthHttp::endpointProblem(url);
    if (!problem.isEmpty()) {
        result.error = problem;
        return result;
    }
    QNetworkAccessManager manager;
    // A token endpoint that redirects is broken or not what it claims: the form (a code, a refresh
    // token) is never sent on to another address.
    manager.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    QNetworkRequest request(url);
    request.setRawHeader("Accept", "application/json");
    if (!contentType.isEmpty())
        request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    request.setTransferTimeout(timeoutMs);
    std::unique_ptr<QNetworkReply> reply(method == Method::Get ? manager.get(request)
                                                               : manager.post(request, body));
    QEventLoop loop;
    bool tooLarge = false;
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(reply.get(), &QNetworkReply::downloadProgress, &loop, [&](qint64 received, qint64) {
        if (received > OAuthHttp::MaximumAnswerBytes) {
            tooLarge = true;
            reply->abort();
        }
    });
    // The transfer timeout covers a stalled transfer; this covers the whole request.
    QTimer deadline;
    deadline.setSingleShot(true);
    bool timedOut = false;
    QObject::connect(&deadline, &QTimer::timeout, &loop, [&] {
        timedOut = true;
        reply->abort();
    });
    deadline.start(timeoutMs);
    if (!reply->isFinished())
        loop.exec();
    deadline.stop();

    const QString where = url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment).toString();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (tooLarge) {
        result.error = QStringLiteral("%1 answered with more than %2 KiB")
                           .arg(where)
                           .arg(OAuthHttp::MaximumAnswerBytes / 1024);
        return result;
    }
    if (timedOut || reply->error() == QNetworkReply::OperationCanceledError ||
        reply->error() == QNetworkReply::TimeoutError) {
        result.error =
            QStringLiteral("%1 did not answer within %2 s").arg(where).arg((timeoutMs + 999) / 1000);
        return result;
    }
    if (!status.isValid()) {
        result.error = QStringLiteral("cannot reach %1: %2").arg(where, reply->errorString());
        return result;
    }
    result.reached = true;
    result.status = status.toInt();
    const QByteArray data = reply->readAll();
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (document.isObject())
        result.json = document.object();
    else
        result.error = QStringLiteral("%1 answered %2 without a JSON object").arg(where).arg(result.status);
    return result;
}

} // namespace

bool OAuthHttp::isLoopback(const QString& host) {
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

OAuthHttp::Reply OAuthHttp::postForm(const QUrl& url, const Form& form, int timeoutMs) {
    return send(Method::Post, url, "application/x-www-form-urlencoded", encodeForm(form), timeoutMs);
}

OAuthHttp::Reply OAuthHttp::postJson(const QUrl& url, const QJsonObject& body, int timeoutMs) {
    return send(Method::Post, url, "application/json", QJsonDocument(body).toJson(QJsonDocument::Compact),
                timeoutMs);
}

OAuthHttp::Reply OAuthHttp::get(const QUrl& url, int timeoutMs) {
    return send(Method::Get, url, QByteArray(), QByteArray(), timeoutMs);
}

QString OAuthHttp::endpointProblem(const QUrl& url) {
    if (!url.isValid() || url.host().isEmpty())
        return QStringLiteral("%1 is not an address of a web server").arg(url.toString());
    if (url.scheme() == QLatin1String("https"))
        return QString();
    if (url.scheme() == QLatin1String("http") && isLoopback(url.host()))
        return QString();
    return QStringLiteral("%1 must be https (plain http only to this machine)")
        .arg(url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment).toString());
}

QByteArray OAuthHttp::encodeForm(const Form& form) {
    QByteArray out;
    for (const auto& [name, value] : form) {
        if (!out.isEmpty())
            out += '&';
        out += QUrl::toPercentEncoding(name) + '=' + QUrl::toPercentEncoding(value);
    }
    return out;
}

} // namespace corvina
