#include "OAuthProvider.h"

#include "ProcessStop.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QTcpSocket>

namespace corvina::test {

namespace {

// Long enough for a loaded machine, short enough that a broken set-up fails the test instead of
// hanging it.
constexpr int ProviderStartTimeoutMs = 15000;
constexpr int ProviderStopTimeoutMs = 5000;
// An answer larger than this is no answer of the stand-in's.
constexpr qsizetype MaxReplyBytes = 1024 * 1024;

OAuthProvider::Reply failed(const QString& why) {
    OAuthProvider::Reply reply;
    reply.error = why;
    return reply;
}

OAuthProvider::Reply exchange(const QUrl& url, const QByteArray& request, int timeoutMs) {
    if (url.scheme() != QLatin1String("http") || url.host().isEmpty())
        return failed(QStringLiteral("not an http URL: ") + url.toString());
    QTcpSocket socket;
    const QDeadlineTimer deadline(timeoutMs);
    socket.connectToHost(url.host(), static_cast<quint16>(url.port(80)));
    if (!socket.waitForConnected(static_cast<int>(deadline.remainingTime())))
        return failed(QStringLiteral("cannot connect: ") + socket.errorString());
    socket.write(request);
    // The server closes the connection after its answer ("Connection: close"): read to the end.
    QByteArray raw;
    while (socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired()) {
        if (socket.waitForReadyRead(static_cast<int>(qMax<qint64>(1, deadline.remainingTime()))))
            raw += socket.readAll();
        if (raw.size() > MaxReplyBytes)
            return failed(QStringLiteral("answer too large"));
    }
    raw += socket.readAll();
    const qsizetype headerEnd = raw.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        return failed(deadline.hasExpired() ? QStringLiteral("no answer within %1 ms").arg(timeoutMs)
                                            : QStringLiteral("no complete answer"));
    }
    OAuthProvider::Reply reply;
    const QList<QByteArray> lines = raw.left(headerEnd).split('\n');
    const QList<QByteArray> status = lines.first().trimmed().split(' ');
    if (status.size() < 2 || !status[0].startsWith("HTTP/1."))
        return failed(QStringLiteral("not an HTTP answer"));
    reply.status = status[1].toInt();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            reply.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    reply.body = raw.mid(headerEnd + 4);
    bool ok = false;
    const qsizetype length = reply.headers.value("content-length").toLongLong(&ok);
    if (ok && reply.body.size() != length)
        return failed(QStringLiteral("answer cut short"));
    return reply;
}

QByteArray requestHead(const QByteArray& method, const QUrl& url,
                       const QList<QPair<QByteArray, QByteArray>>& headers) {
    QByteArray target = url.path(QUrl::FullyEncoded).toUtf8();
    if (target.isEmpty())
        target = "/";
    if (url.hasQuery())
        target += '?' + url.query(QUrl::FullyEncoded).toUtf8();
    QByteArray head = method + ' ' + target + " HTTP/1.1\r\n";
    head += "Host: " + url.authority(QUrl::FullyEncoded).toUtf8() + "\r\n";
    for (const auto& [name, value] : headers)
        head += name + ": " + value + "\r\n";
    head += "Connection: close\r\n";
    return head;
}

} // namespace

QJsonObject OAuthProvider::Reply::json() const {
    return QJsonDocument::fromJson(body).object();
}

OAuthProvider::OAuthProvider() = default;

OAuthProvider::~OAuthProvider() {
    stop();
}

bool OAuthProvider::start(QString* error) {
    if (isRunning())
        return true;
    auto fail = [this, error](const QString& why) {
        if (error)
            *error = why + u'\n' + log();
        stop();
        return false;
    };
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.setStandardErrorFile(m_dir.filePath(QStringLiteral("provider.log")), QIODevice::Append);
    m_process.start(QStringLiteral(CORVINA_TEST_OAUTHPROVIDER),
                    {QStringLiteral("--user"), m_defaultUser, QStringLiteral("--access-ttl"),
                     QString::number(m_accessTtl)});
    if (!m_process.waitForStarted(ProviderStartTimeoutMs))
        return fail(QStringLiteral("the OAuth provider stand-in could not be started: ") +
                    m_process.errorString());
    const QDeadlineTimer deadline(ProviderStartTimeoutMs);
    while (!m_process.canReadLine() && !deadline.hasExpired()) {
        if (m_process.state() != QProcess::Running)
            return fail(QStringLiteral("the OAuth provider stand-in exited"));
        m_process.waitForReadyRead(static_cast<int>(qMin<qint64>(100, deadline.remainingTime())));
    }
    const QByteArray line = m_process.readLine().trimmed();
    if (!line.startsWith("PORT "))
        return fail(QStringLiteral("the OAuth provider stand-in named no port: ") + QString::fromUtf8(line));
    m_port = static_cast<quint16>(line.mid(5).toUInt());
    if (m_port == 0)
        return fail(QStringLiteral("the OAuth provider stand-in named no port: ") + QString::fromUtf8(line));
    return true;
}

void OAuthProvider::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    stopProcess(m_process, ProviderStopTimeoutMs);
}

bool OAuthProvider::isRunning() const {
    return m_process.state() == QProcess::Running;
}

QString OAuthProvider::log() const {
    QFile file(m_dir.filePath(QStringLiteral("provider.log")));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

QString OAuthProvider::baseUrl() const {
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

QString OAuthProvider::authorizeUrl() const {
    return baseUrl() + QStringLiteral("/authorize");
}

QString OAuthProvider::tokenUrl() const {
    return baseUrl() + QStringLiteral("/token");
}

QString OAuthProvider::introspectUrl() const {
    return baseUrl() + QStringLiteral("/introspect");
}

QString OAuthProvider::registerUrl() const {
    return baseUrl() + QStringLiteral("/register");
}

QString OAuthProvider::metadataUrl() const {
    return baseUrl() + QStringLiteral("/.well-known/oauth-authorization-server");
}

std::optional<OAuthProvider::Tokens> OAuthProvider::mint(const QString& user, int ttlSeconds,
                                                         QString* error) {
    QList<QPair<QString, QString>> fields{{QStringLiteral("user"), user}};
    if (ttlSeconds > 0)
        fields.append({QStringLiteral("ttl"), QString::number(ttlSeconds)});
    const Reply reply = postForm(QUrl(baseUrl() + QStringLiteral("/control/mint")), fields);
    const QJsonObject answer = reply.json();
    if (reply.status != 200 || !answer.value(QStringLiteral("access_token")).isString()) {
        if (error)
            *error = QStringLiteral("mint failed: %1 %2")
                         .arg(reply.status)
                         .arg(reply.error + QString::fromUtf8(reply.body));
        return std::nullopt;
    }
    return Tokens{answer.value(QStringLiteral("access_token")).toString(),
                  answer.value(QStringLiteral("refresh_token")).toString(),
                  answer.value(QStringLiteral("expires_in")).toInt()};
}

bool OAuthProvider::control(const QString& what, const QString& user, QString* error) {
    const Reply reply =
        postForm(QUrl(baseUrl() + QStringLiteral("/control/") + what), {{QStringLiteral("user"), user}});
    if (reply.status == 200)
        return true;
    if (error)
        *error = QStringLiteral("%1 failed: %2 %3")
                     .arg(what)
                     .arg(reply.status)
                     .arg(reply.error + QString::fromUtf8(reply.body));
    return false;
}

bool OAuthProvider::revoke(const QString& user, QString* error) {
    return control(QStringLiteral("revoke"), user, error);
}

bool OAuthProvider::expire(const QString& user, QString* error) {
    return control(QStringLiteral("expire"), user, error);
}

bool OAuthProvider::deny(const QString& user, bool denying, QString* error) {
    return control(denying ? QStringLiteral("deny") : QStringLiteral("allow"), user, error);
}

OAuthProvider::Stats OAuthProvider::stats(QString* error) const {
    const Reply reply = get(QUrl(baseUrl() + QStringLiteral("/control/stats")));
    Stats stats;
    if (reply.status != 200) {
        if (error)
            *error = QStringLiteral("stats failed: %1 %2").arg(reply.status).arg(reply.error);
        return stats;
    }
    const QJsonObject answer = reply.json();
    stats.tokenRequests = answer.value(QStringLiteral("token_requests")).toInt(-1);
    stats.refreshRequests = answer.value(QStringLiteral("refresh_requests")).toInt(-1);
    stats.introspections = answer.value(QStringLiteral("introspections")).toInt(-1);
    stats.authorizations = answer.value(QStringLiteral("authorizations")).toInt(-1);
    stats.registrations = answer.value(QStringLiteral("registrations")).toInt(-1);
    return stats;
}

OAuthProvider::Reply OAuthProvider::get(const QUrl& url, int timeoutMs) {
    return exchange(url, requestHead("GET", url, {}) + "\r\n", timeoutMs);
}

OAuthProvider::Reply OAuthProvider::post(const QUrl& url, const QByteArray& body,
                                         const QByteArray& contentType,
                                         const QList<QPair<QByteArray, QByteArray>>& headers, int timeoutMs) {
    QList<QPair<QByteArray, QByteArray>> all = headers;
    all.append({"Content-Type", contentType});
    all.append({"Content-Length", QByteArray::number(body.size())});
    return exchange(url, requestHead("POST", url, all) + "\r\n" + body, timeoutMs);
}

OAuthProvider::Reply OAuthProvider::postForm(const QUrl& url, const QList<QPair<QString, QString>>& fields,
                                             const QList<QPair<QByteArray, QByteArray>>& headers,
                                             int timeoutMs) {
    return post(url, formBody(fields), "application/x-www-form-urlencoded", headers, timeoutMs);
}

QByteArray OAuthProvider::formBody(const QList<QPair<QString, QString>>& fields) {
    QByteArray body;
    for (const auto& [name, value] : fields) {
        if (!body.isEmpty())
            body += '&';
        body += QUrl::toPercentEncoding(name) + '=' + QUrl::toPercentEncoding(value);
    }
    return body;
}

} // namespace corvina::test
