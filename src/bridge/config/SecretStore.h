#pragma once

#include <QString>
#include <optional>

namespace corvina {

// Account passwords in the desktop's Secret Service (the keyring), through libsecret, under the
// schema "org.corvina.mail.Password" with the attributes account (the group name in bridge.conf),
// user and host; and what an OAuth 2 sign-in keeps (its refresh token, a registered client id) under
// the schema "org.corvina.mail.OAuth2" with the attributes account, mail, issuer and kind. A secret
// is only ever handed to the caller: never logged, never written to a file by the bridge.
//
// libsecret's calls wait for the service without a limit of their own (a keyring that never
// answers would hang the bridge), so each call runs on a thread of its own and is given up, with
// a clear error, when it has not finished within the store's timeout. Safe to use from any thread:
// calls from several threads take their turns (one unlock prompt, not one per account), each
// waiting at most the timeout for its turn.
class SecretStore {
public:
    // Long enough for a keyring that asks the user to unlock it first.
    static constexpr int DefaultTimeoutMs = 60000;

    // What names a password in the keyring.
    struct Key {
        QString account;
        QString user;
        QString host;
    };

    // What names a sign-in's secret: the account's group and mail, the provider that issued it
    // (its authorization server's address) and which secret it is ("refresh-token", "client-id").
    struct TokenKey {
        QString account;
        QString mail;
        QString issuer;
        QString kind;
    };

    struct Lookup {
        std::optional<QString> password; // the secret; nothing when none is stored, or on failure
        QString error;                   // one line when the Secret Service could not be asked
    };

    explicit SecretStore(int timeoutMs = DefaultTimeoutMs);

    // Stores (or replaces) the password of `key` in the default keyring, under a label that tells
    // a person browsing the keyring whose password it is.
    bool store(const Key& key, const QString& label, const QString& password, QString* error) const;
    // The password stored for exactly this account, user and host: a password is never handed to
    // another server than the one it was stored for.
    Lookup lookup(const Key& key) const;
    // Stores (or replaces) a sign-in's secret.
    bool storeToken(const TokenKey& key, const QString& label, const QString& secret, QString* error) const;
    // The secret stored under exactly this key.
    Lookup lookupToken(const TokenKey& key) const;
    // Removes every password and every sign-in stored for `account`, whatever user, host or
    // provider it was stored with. True when the keyring was asked, whether or not it held one.
    bool clear(const QString& account, QString* error) const;
    // Removes the password stored for exactly this account, user and host, and nothing else. True
    // when the keyring was asked, whether or not it held one.
    bool forget(const Key& key, QString* error) const;

    int timeoutMs() const { return m_timeoutMs; }

    // libsecret keeps one connection to the Secret Service per process. After the service went
    // away and another took its place (a keyring daemon restarted), this makes the next call
    // connect afresh instead of talking to the one that is gone.
    static void forgetService();

private:
    int m_timeoutMs;
};

} // namespace corvina
