#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace corvina {

// The mail providers `account add` and `account guess` know by the domain of an address: their IMAP
// server and how one signs in there. The table is a data file (resources/providers/providers.json,
// compiled in as a resource), so that a provider's facts change without touching code. It is ours,
// yet read strictly: a wrong entry is refused whole at load with a line naming it, never half used.
class ProviderTable {
public:
    struct Provider {
        QString id;
        QString name;        // as shown to a person
        QStringList domains; // lower case
        QString host;
        int port = 0;
        QString security;      // tls, starttls or none, as bridge.conf spells it
        QString auth;          // password or oauth2, as bridge.conf spells it
        QString oauthProvider; // google or microsoft with auth oauth2; null otherwise
        // A password given for this program must be one made for it (an app password).
        bool appPassword = false;
        // No password at all is taken over IMAP: only a sign-in.
        bool passwordsRefused = false;
        QString appPasswordUrl; // where the provider makes one; null when we know of no such page
        QString note;           // one line for a person
    };

    // Where the built-in table lives, as a resource.
    static const QString BuiltInPath;

    // Reads a table from its JSON text: the table, or nothing with `*error` one line (naming
    // `source` and the entry) when anything in it is wrong.
    static std::optional<ProviderTable> load(const QByteArray& json, const QString& source, QString* error);
    // The table compiled into the program.
    static std::optional<ProviderTable> builtIn(QString* error);

    // The provider of `address` by its domain (the part after the last "@", any case), or nothing.
    std::optional<Provider> find(const QString& address) const;
    // What `account add` offers for a domain the table does not know: "imap." and the domain, TLS
    // on 993, the account's password. Only a guess (id and name null): the person is asked.
    static Provider fallback(const QString& address);
    // The domain of `address` as the lookup reads it (lower case, no final dot); empty without "@".
    static QString domainOf(const QString& address);

    const QList<Provider>& providers() const { return m_providers; }

private:
    QList<Provider> m_providers;
};

} // namespace corvina
