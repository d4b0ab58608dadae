#include "HTTPRequest.h"

namespace corvina {

HTTPRequest::HTTPRequest(Url url) : m_url(std::move(url)) {}

void HTTPRequest::addValue(const QString& value, const QString& field) {
    for (auto& header : m_headers) {
        if (header.first.compare(field, Qt::CaseInsensitive) == 0) {
            header.second += QLatin1Char(',') + value;
            return;
        }
    }
    m_headers.append({field, value});
}

QString HTTPRequest::valueForHTTPHeaderField(const QString& field) const {
    for (const auto& header : m_headers) {
        if (header.first.compare(field, Qt::CaseInsensitive) == 0) {
            return header.second;
        }
    }
    return QString();
}

QNetworkRequest HTTPRequest::toNetworkRequest() const {
    QNetworkRequest request(m_url.toQUrl());
    for (const auto& header : m_headers) {
        request.setRawHeader(header.first.toLatin1(), header.second.toUtf8());
    }
    return request;
}

} // namespace corvina
