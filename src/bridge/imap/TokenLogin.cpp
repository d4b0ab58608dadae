#include "TokenLogin.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace corvina {

namespace {

// The user's name in the GS2 header: "," and "=" would end or confuse the field, so they are
// written as "=2C" and "=3D" (RFC 5801's saslname).
QByteArray saslName(const QString& user) {
    QByteArray name = user.toUtf8();
    name.replace("=", "=3D");
    name.replace(",", "=2C");
    return name;
}

// A value of the server's challenge as it may go into a line: short, and only printable ASCII.
QString wordOf(const QJsonValue& value) {
    QString text = value.isDouble() ? QString::number(value.toInt()) : value.toString();
    text.truncate(64);
    for (const QChar c : text) {
        if (c.unicode() < 0x21 || c.unicode() > 0x7e)
            return QString();
    }
    return text;
}

} // namespace

std::optional<TokenLogin::Mechanism> TokenLogin::choose(const QSet<QByteArray>& capabilities) {
    if (capabilities.contains(QByteArrayLiteral("AUTH=OAUTHBEARER")))
        return Mechanism::OAuthBearer;
    if (capabilities.contains(QByteArrayLiteral("AUTH=XOAUTH2")))
        return Mechanism::XOAuth2;
    return std::nullopt;
}

QByteArray TokenLogin::name(Mechanism mechanism) {
    return mechanism == Mechanism::OAuthBearer ? QByteArrayLiteral("OAUTHBEARER")
                                               : QByteArrayLiteral("XOAUTH2");
}

QByteArray TokenLogin::initialResponse(Mechanism mechanism, const QString& user, const QString& token,
                                       const QString& host, quint16 port) {
    const QByteArray bearer = QByteArrayLiteral("auth=Bearer ") + token.toUtf8();
    if (mechanism == Mechanism::XOAuth2)
        return QByteArrayLiteral("user=") + user.toUtf8() + '\x01' + bearer + "\x01\x01";
    return QByteArrayLiteral("n,a=") + saslName(user) + ",\x01host=" + host.toUtf8() +
           "\x01port=" + QByteArray::number(port) + '\x01' + bearer + "\x01\x01";
}

QByteArray TokenLogin::errorAcknowledgement(Mechanism mechanism) {
    return mechanism == Mechanism::OAuthBearer ? QByteArrayLiteral("\x01") : QByteArray();
}

QString TokenLogin::challengeText(const QByteArray& base64) {
    const QByteArray decoded = QByteArray::fromBase64(base64.trimmed());
    const QJsonObject said = QJsonDocument::fromJson(decoded).object();
    QStringList words;
    if (const QString status = wordOf(said.value(QStringLiteral("status"))); !status.isEmpty())
        words << QStringLiteral("status ") + status;
    if (const QString error = wordOf(said.value(QStringLiteral("error"))); !error.isEmpty())
        words << error;
    return words.join(QStringLiteral(", "));
}

} // namespace corvina
