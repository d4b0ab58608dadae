#pragma once

#include <QString>
#include <QUrl>
#include <optional>

namespace corvina {

// Where an account signs in: the endpoints and scope of its OAuth 2 provider and the client id the
// bridge is known there by. Google and Microsoft are built in (from their public documentation),
// `custom` takes them from the account's keys, and `discover` reads them from the provider's
// published metadata (RFC 8414), whose registration endpoint (RFC 7591) gives a client id when the
// account names none (OAuthSignIn registers; the id is kept in the Secret Service beside the
// refresh token, which is only good with the client it was issued to).
//
// http is accepted only for endpoints on this machine; https everywhere else.
class OAuthEndpoints {
public:
    // What an account says about its sign-in: its keys in bridge.conf, as plain text.
    struct Settings {
        QString account; // the group's name
        QString mail;
        QString host;     // the IMAP server: for discover, the provider unless `issuer` names one
        QString provider; // google, microsoft, custom or discover
        QString clientId;
        QString clientSecret;
        QString authorizeUrl; // custom
        QString tokenUrl;     // custom
        QString scope;        // custom, or discover (else what the metadata says, if anything)
        QString issuer;       // discover: the provider's address (https://<host> when empty)
    };

    // The endpoints of `settings`, or nothing with *error one line. For discover it fetches the
    // metadata (once per provider and process) within `timeoutMs`, and takes a client id from the
    // settings or, when they have none, the one a registration left in the Secret Service (empty if
    // none did yet). *unreachable is set when the failure was that the provider could not be reached.
    static std::optional<OAuthEndpoints> resolve(const Settings& settings, QString* error, int timeoutMs,
                                                 bool* unreachable = nullptr);

    // The client id compiled in for a built-in provider (CMake cache variables
    // CORVINA_OAUTH_GOOGLE_CLIENT_ID, CORVINA_OAUTH_MICROSOFT_CLIENT_ID; empty by default).
    static QString compiledClientId(const QString& provider);
    // RFC 8414's metadata address of `issuer`: /.well-known/oauth-authorization-server, before the
    // issuer's own path when it has one.
    static QUrl metadataUrl(const QUrl& issuer);
    // Forgets the metadata fetched so far (a test's provider may come and go on other ports).
    static void forgetDiscovered();

    // Names the provider in the Secret Service: its issuer, or for custom its token endpoint.
    QString issuer;
    QUrl authorizeUrl;
    QUrl tokenUrl;
    QUrl registrationUrl; // discover only, when the provider has one
    QString scope;
    QString clientId; // empty only for discover before a registration
    QString clientSecret;
};

} // namespace corvina
