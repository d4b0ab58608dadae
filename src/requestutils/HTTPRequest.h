#pragma once

#include "Url.h"

#include <QByteArray>
#include <QList>
#include <QNetworkRequest>
#include <QPair>
#include <QString>

namespace corvina {

// An HTTP request being built: URL, method, header fields and body.
//
// Header fields are added, not replaced: a second value for a field already present is joined to
// the first with ",", as HTTP allows for repeated fields; field names compare without regard to case.
class HTTPRequest {
public:
    explicit HTTPRequest(Url url);

    const Url& URL() const { return m_url; }
    void setURL(Url url) { m_url = std::move(url); }
    const QString& HTTPMethod() const { return m_method; }
    void setHTTPMethod(const QString& method) { m_method = method; }
    const QByteArray& HTTPBody() const { return m_body; }
    void setHTTPBody(const QByteArray& body) { m_body = body; }

    void addValue(const QString& value, const QString& field);
    // The field's value, or null when the request has no such field.
    QString valueForHTTPHeaderField(const QString& field) const;
    // Every field, in the order first added, with its joined value.
    const QList<QPair<QString, QString>>& allHTTPHeaderFields() const { return m_headers; }

    // What Qt's network stack sends: the request with its headers, to be sent with
    // QNetworkAccessManager::sendCustomRequest(request, verb(), HTTPBody()).
    QNetworkRequest toNetworkRequest() const;
    QByteArray verb() const { return m_method.toLatin1(); }

private:
    Url m_url;
    QString m_method = QStringLiteral("GET");
    QList<QPair<QString, QString>> m_headers;
    QByteArray m_body;
};

} // namespace corvina
