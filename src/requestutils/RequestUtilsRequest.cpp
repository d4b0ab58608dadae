// HTTP requests with parameters and basic authentication.
#include "RequestUtils.h"

namespace corvina::RequestUtils {

namespace {

// The merge of two query texts, as query text: the merge of a text without a query starts with the
// "?" that appending a query adds, which is not part of a query.
QString mergedQuery(const QString& current, const QString& added, quint32 options) {
    QString merged = stringByMergingURLQuery(current, added, options);
    if (merged.startsWith(QLatin1Char('?'))) {
        merged.remove(0, 1);
    }
    return merged;
}

void setBody(HTTPRequest& request, const QString& query) {
    const QByteArray body = query.toUtf8();
    request.setHTTPBody(body);
    request.addValue(QStringLiteral("8bit"), QStringLiteral("Content-Transfer-Encoding"));
    request.addValue(QStringLiteral("application/x-www-form-urlencoded"), QStringLiteral("Content-Type"));
    request.addValue(QString::number(body.size()), QStringLiteral("Content-Length"));
}

} // namespace

HTTPRequest HTTPRequestWithURL(const Url& url, const QString& method, const Parameters& parameters) {
    HTTPRequest request(url);
    request.setHTTPMethod(method.toUpper());
    if (request.HTTPMethod() == QLatin1String("GET")) {
        addGETParameters(request, parameters, 0);
    } else {
        setPOSTParameters(request, parameters, 0);
    }
    request.addValue(QStringLiteral("gzip"), QStringLiteral("Accept-Encoding"));
    return request;
}

HTTPRequest GETRequestWithURL(const Url& url, const Parameters& parameters) {
    return HTTPRequestWithURL(url, QStringLiteral("GET"), parameters);
}

HTTPRequest POSTRequestWithURL(const Url& url, const Parameters& parameters) {
    return HTTPRequestWithURL(url, QStringLiteral("POST"), parameters);
}

Parameters GETParameters(const HTTPRequest& receiver) {
    return URLQueryParameters(receiver.URL().query());
}

Parameters POSTParameters(const HTTPRequest& receiver) {
    return URLQueryParameters(QString::fromUtf8(receiver.HTTPBody()));
}

QStringList HTTPBasicAuthComponents(const HTTPRequest& receiver) {
    const QString authorization = receiver.valueForHTTPHeaderField(QStringLiteral("Authorization"));
    if (!authorization.isNull()) {
        return base64DecodedString(QString(authorization).remove(QStringLiteral("Basic ")))
            .split(QLatin1Char(':'));
    }
    const QString user = receiver.URL().user();
    const QString password = receiver.URL().password();
    return {user.isNull() ? QString(QLatin1String("")) : user,
            password.isNull() ? QString(QLatin1String("")) : password};
}

QString HTTPBasicAuthUser(const HTTPRequest& receiver) {
    return HTTPBasicAuthComponents(receiver).value(0);
}

QString HTTPBasicAuthPassword(const HTTPRequest& receiver) {
    const QStringList parts = HTTPBasicAuthComponents(receiver);
    // a password holding ":" splits into more than two parts and cannot be told apart
    return parts.size() == 2 ? parts.last() : QString();
}

void setGETParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options) {
    if (const auto url = URLWithQuery(receiver.URL(), URLQueryWithParameters(parameters, options))) {
        receiver.setURL(*url);
    }
}

void addGETParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options) {
    const QString current =
        receiver.URL().query().isNull() ? QString(QLatin1String("")) : receiver.URL().query();
    const QString merged = mergedQuery(current, URLQueryWithParameters(parameters, options), options);
    if (merged == current) {
        return;
    }
    if (const auto url = URLWithQuery(receiver.URL(), merged)) {
        receiver.setURL(*url);
    }
}

void setPOSTParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options) {
    setBody(receiver, URLQueryWithParameters(parameters, options));
}

void addPOSTParameters(HTTPRequest& receiver, const Parameters& parameters, quint32 options) {
    setBody(receiver, mergedQuery(QString::fromUtf8(receiver.HTTPBody()),
                                  URLQueryWithParameters(parameters, options), options));
}

void setHTTPBasicAuthUser(HTTPRequest& receiver, const QString& user, const QString& password) {
    receiver.addValue(QStringLiteral("Basic ") + base64EncodedString(user + QLatin1Char(':') + password),
                      QStringLiteral("Authorization"));
}

} // namespace corvina::RequestUtils
