#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>
#include <optional>

namespace corvina {

// What goes over the wire when an account logs in with an OAuth 2 access token instead of a
// password: the SASL mechanism the server's capabilities allow, and that mechanism's messages. Only
// the bytes; ImapSession sends them and reads the answers.
//
// OAUTHBEARER (RFC 7628) is the standard one and preferred; XOAUTH2 is the older form that many big
// providers still offer alone. Both carry the token as "auth=Bearer <token>" in one message, and
// both answer a refused token with a challenge (a JSON document saying why) that the client must
// answer before the server ends the command with NO.
class TokenLogin {
public:
    enum class Mechanism { OAuthBearer, XOAuth2 };

    // The mechanism to use with a server announcing `capabilities` (upper case, as ImapSession
    // keeps them): OAUTHBEARER when listed, else XOAUTH2, else nothing.
    static std::optional<Mechanism> choose(const QSet<QByteArray>& capabilities);
    // The mechanism's name in AUTHENTICATE.
    static QByteArray name(Mechanism mechanism);

    // The client's one message, before base64: for OAUTHBEARER the GS2 header naming `user`, the
    // host and port the client connected to, and the token; for XOAUTH2 the user and the token.
    static QByteArray initialResponse(Mechanism mechanism, const QString& user, const QString& token,
                                      const QString& host, quint16 port);
    // What answers the server's error challenge, before base64: a lone 0x01 for OAUTHBEARER (RFC
    // 7628, 3.2.3), nothing for XOAUTH2 (an empty line).
    static QByteArray errorAcknowledgement(Mechanism mechanism);

    // The server's error challenge (the base64 text after "+ ") in a few words for the log:
    // "status 401, invalid_token" from its JSON's "status" and "error"; empty when it says neither.
    // Only those two fields are taken, each bounded, so nothing else the server sent reaches a line.
    static QString challengeText(const QByteArray& base64);
};

} // namespace corvina
