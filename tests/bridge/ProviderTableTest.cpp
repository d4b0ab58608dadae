// The providers `account add` knows by an address's domain: the table as built in, its lookup, and
// a table with anything wrong in it refused whole at load, with a line naming the entry.
#include "bridge/config/ProviderTable.h"

#include "bridge/config/AccountGroup.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

ProviderTable builtIn() {
    QString error;
    const std::optional<ProviderTable> table = ProviderTable::builtIn(&error);
    EXPECT_TRUE(table.has_value()) << error.toStdString();
    EXPECT_EQ(error.toStdString(), "");
    return table.value_or(ProviderTable());
}

TEST(ProviderTableTest, TheBuiltInTableKnowsTheBigProvidersByEveryDomain) {
    const ProviderTable table = builtIn();
    struct Expected {
        const char* address;
        const char* id;
        const char* host;
        int port;
        const char* security;
        const char* auth;
    };
    for (const Expected& e : std::initializer_list<Expected>{
             {"ada@gmail.com", "google", "imap.gmail.com", 993, "tls", "oauth2"},
             {"ada@googlemail.com", "google", "imap.gmail.com", 993, "tls", "oauth2"},
             {"ada@outlook.com", "microsoft", "outlook.office365.com", 993, "tls", "oauth2"},
             {"ada@hotmail.com", "microsoft", "outlook.office365.com", 993, "tls", "oauth2"},
             {"ada@live.com", "microsoft", "outlook.office365.com", 993, "tls", "oauth2"},
             {"ada@msn.com", "microsoft", "outlook.office365.com", 993, "tls", "oauth2"},
             {"ada@icloud.com", "icloud", "imap.mail.me.com", 993, "tls", "password"},
             {"ada@me.com", "icloud", "imap.mail.me.com", 993, "tls", "password"},
             {"ada@mac.com", "icloud", "imap.mail.me.com", 993, "tls", "password"},
             {"ada@yahoo.com", "yahoo", "imap.mail.yahoo.com", 993, "tls", "password"},
             {"ada@fastmail.com", "fastmail", "imap.fastmail.com", 993, "tls", "password"},
             {"ada@fastmail.fm", "fastmail", "imap.fastmail.com", 993, "tls", "password"},
             {"ada@gmx.de", "gmx", "imap.gmx.net", 993, "tls", "password"},
             {"ada@gmx.net", "gmx", "imap.gmx.net", 993, "tls", "password"},
             {"ada@gmx.at", "gmx", "imap.gmx.net", 993, "tls", "password"},
             {"ada@gmx.ch", "gmx", "imap.gmx.net", 993, "tls", "password"},
             {"ada@web.de", "webde", "imap.web.de", 993, "tls", "password"},
             {"ada@posteo.de", "posteo", "posteo.de", 993, "tls", "password"},
             {"ada@posteo.net", "posteo", "posteo.de", 993, "tls", "password"},
             {"ada@mailbox.org", "mailboxorg", "imap.mailbox.org", 993, "tls", "password"},
             {"ada@proton.me", "proton", "127.0.0.1", 1143, "starttls", "password"},
             {"ada@protonmail.com", "proton", "127.0.0.1", 1143, "starttls", "password"},
             {"ada@pm.me", "proton", "127.0.0.1", 1143, "starttls", "password"},
         }) {
        SCOPED_TRACE(e.address);
        const std::optional<ProviderTable::Provider> p = table.find(QLatin1String(e.address));
        ASSERT_TRUE(p.has_value());
        EXPECT_EQ(p->id.toStdString(), e.id);
        EXPECT_EQ(p->host.toStdString(), e.host);
        EXPECT_EQ(p->port, e.port);
        EXPECT_EQ(p->security.toStdString(), e.security);
        EXPECT_EQ(p->auth.toStdString(), e.auth);
        EXPECT_FALSE(p->note.isEmpty());
    }
    const auto google = table.find(QStringLiteral("ada@gmail.com"));
    EXPECT_EQ(google->oauthProvider, QStringLiteral("google"));
    EXPECT_TRUE(google->appPassword); // the alternative to signing in
    EXPECT_FALSE(google->passwordsRefused);
    const auto microsoft = table.find(QStringLiteral("ada@outlook.com"));
    EXPECT_EQ(microsoft->oauthProvider, QStringLiteral("microsoft"));
    EXPECT_TRUE(microsoft->passwordsRefused);
    EXPECT_FALSE(microsoft->appPassword);
    EXPECT_TRUE(microsoft->appPasswordUrl.isNull());
    for (const char* address : {"ada@icloud.com", "ada@yahoo.com", "ada@fastmail.com"}) {
        const auto p = table.find(QLatin1String(address));
        EXPECT_TRUE(p->appPassword) << address;
        EXPECT_TRUE(p->oauthProvider.isNull()) << address;
    }
    for (const char* address : {"ada@gmx.de", "ada@web.de", "ada@posteo.de", "ada@mailbox.org", "ada@pm.me"})
        EXPECT_FALSE(table.find(QLatin1String(address))->appPassword) << address;
}

TEST(ProviderTableTest, TheDomainIsMatchedWholeInAnyCase) {
    const ProviderTable table = builtIn();
    EXPECT_EQ(table.find(QStringLiteral("Ada.Lovelace@GMail.COM"))->id, QStringLiteral("google"));
    EXPECT_EQ(table.find(QStringLiteral("ada@gmail.com."))->id, QStringLiteral("google"));
    // The last "@" starts the domain, as in a quoted local part.
    EXPECT_EQ(table.find(QStringLiteral("\"a@b\"@fastmail.com"))->id, QStringLiteral("fastmail"));
    for (const char* address : {"ada@example.org", "ada@mail.gmail.com", "ada@gmail.com.example.org",
                                "ada@notgmail.com", "gmail.com", "ada@", ""})
        EXPECT_FALSE(table.find(QLatin1String(address)).has_value()) << address;
}

TEST(ProviderTableTest, EveryBuiltInEntryMakesAnAccountTheBridgeReads) {
    // The keys `account add` writes for a provider, read back by the bridge's own reading.
    const ProviderTable table = builtIn();
    for (const ProviderTable::Provider& p : table.providers()) {
        SCOPED_TRACE(p.id.toStdString());
        QVariantMap keys{{QStringLiteral("mail"), QStringLiteral("ada@") + p.domains.first()},
                         {QStringLiteral("host"), p.host},
                         {QStringLiteral("port"), QString::number(p.port)},
                         {QStringLiteral("security"), p.security},
                         {QStringLiteral("user"), QStringLiteral("ada")}};
        if (p.auth == QLatin1String("oauth2")) {
            keys.insert(QStringLiteral("auth"), p.auth);
            keys.insert(QStringLiteral("oauthProvider"), p.oauthProvider);
        } else {
            keys.insert(QStringLiteral("passwordCommand"), QStringLiteral("pass show mail"));
        }
        EXPECT_EQ(AccountGroup(QStringLiteral("work"), keys).read().problem.toStdString(), "");
    }
}

// A good table of one entry, to be spoiled a key at a time.
QJsonObject goodEntry() {
    return QJsonObject{{"id", "example"},
                       {"name", "Example Mail"},
                       {"domains", QJsonArray{"example.org"}},
                       {"host", "imap.example.org"},
                       {"port", 993},
                       {"security", "tls"},
                       {"auth", "password"},
                       {"appPassword", true},
                       {"appPasswordUrl", "https://example.org/apppasswords"},
                       {"note", "An app password."}};
}
QByteArray tableOf(const QJsonArray& entries, int version = 1) {
    return QJsonDocument(QJsonObject{{"version", version}, {"providers", entries}}).toJson();
}
QByteArray tableWith(const QJsonObject& changes, const QStringList& removed = {}) {
    QJsonObject entry = goodEntry();
    for (auto it = changes.begin(); it != changes.end(); ++it)
        entry.insert(it.key(), it.value());
    for (const QString& key : removed)
        entry.remove(key);
    return tableOf(QJsonArray{entry});
}

TEST(ProviderTableTest, AGoodTableLoads) {
    QString error;
    const std::optional<ProviderTable> table =
        ProviderTable::load(tableWith({}), QStringLiteral("test"), &error);
    ASSERT_TRUE(table.has_value()) << error.toStdString();
    EXPECT_EQ(error, QString());
    ASSERT_EQ(table->providers().size(), 1);
    EXPECT_EQ(table->find(QStringLiteral("ada@example.org"))->appPasswordUrl,
              QStringLiteral("https://example.org/apppasswords"));
}

TEST(ProviderTableTest, AMalformedTableIsRefusedWithALineNamingWhatIsWrong) {
    const QJsonObject oauth{{"auth", "oauth2"}, {"oauthProvider", "google"}};
    const QJsonObject secondEntry = [] {
        QJsonObject entry = goodEntry();
        entry.insert("id", "other");
        entry.insert("domains", QJsonArray{"other.org", "example.org"});
        return entry;
    }();
    const struct {
        QByteArray json;
        const char* error;
    } cases[] = {
        {"{", "providers table test: not JSON at byte 1: unterminated object"},
        {"[]", "providers table test: not a JSON object"},
        {tableOf({goodEntry()}, 2), "providers table test: version must be 1"},
        {R"({"version": 1, "providers": {}})", "providers table test: providers must be a list"},
        {R"({"version": 1, "providers": [], "extra": 1})", "providers table test: unknown key extra"},
        {tableOf({QJsonValue(3)}), "providers table test: entry 1: not a JSON object"},
        {tableWith({{"imapHost", "x"}}), "providers table test: entry 1 (example): unknown key imapHost"},
        {tableWith({}, {"host"}), "providers table test: entry 1 (example): host is missing"},
        {tableWith({}, {"id"}), "providers table test: entry 1 (no id): id is missing"},
        {tableWith({{"name", ""}}),
         "providers table test: entry 1 (example): name must be a text of one line"},
        {tableWith({{"note", "two\nlines"}}),
         "providers table test: entry 1 (example): note must be a text of one line"},
        {tableWith({{"port", "993"}}),
         "providers table test: entry 1 (example): port must be a whole number from 1 to 65535"},
        {tableWith({{"port", 99.5}}),
         "providers table test: entry 1 (example): port must be a whole number from 1 to 65535"},
        {tableWith({{"port", 70000}}),
         "providers table test: entry 1 (example): port must be a whole number from 1 to 65535"},
        {tableWith({{"domains", QJsonArray{}}}),
         "providers table test: entry 1 (example): domains must be a list of at least one domain"},
        {tableWith({{"domains", QJsonArray{"Example.org"}}}),
         "providers table test: entry 1 (example): domain Example.org is not a domain in lower case"},
        {tableWith({{"domains", QJsonArray{"ada@example.org"}}}),
         "providers table test: entry 1 (example): domain ada@example.org is not a domain in lower case"},
        {tableWith({{"domains", QJsonArray{1}}}),
         "providers table test: entry 1 (example): domain (not a text) is not a domain in lower case"},
        {tableWith({{"security", "ssl"}}),
         "providers table test: entry 1 (example): security must be tls, starttls or none, not ssl"},
        {tableWith({{"security", "none"}}),
         "providers table test: entry 1 (example): security none is only allowed for 127.0.0.1 or localhost"},
        {tableWith({{"auth", "kerberos"}}),
         "providers table test: entry 1 (example): auth must be password or oauth2, not kerberos"},
        {tableWith({{"auth", "oauth2"}}),
         "providers table test: entry 1 (example): auth oauth2 needs oauthProvider google or microsoft"},
        {tableWith({{"oauthProvider", "google"}}),
         "providers table test: entry 1 (example): oauthProvider is only for auth oauth2"},
        {tableWith({{"passwordsRefused", true}}), "providers table test: entry 1 (example): passwordsRefused "
                                                  "needs auth oauth2: else there is no way in"},
        {tableWith({{"auth", "oauth2"}, {"oauthProvider", "google"}, {"passwordsRefused", true}}),
         "providers table test: entry 1 (example): passwordsRefused and appPassword contradict each other"},
        {tableWith({{"appPassword", "yes"}}),
         "providers table test: entry 1 (example): appPassword must be true or false"},
        {tableWith({{"appPassword", false}}),
         "providers table test: entry 1 (example): appPasswordUrl is only for appPassword true"},
        {tableWith({{"appPasswordUrl", "http://example.org/apppasswords"}}),
         "providers table test: entry 1 (example): appPasswordUrl must be an https address"},
        {tableOf({goodEntry(), goodEntry()}),
         "providers table test: entry 2 (example): id example is already taken"},
        {tableOf({goodEntry(), secondEntry}),
         "providers table test: entry 2 (other): domain example.org is already another entry's"},
    };
    // An entry with oauth2 done right loads: the cases above fail for the reason they name.
    ASSERT_TRUE(ProviderTable::load(tableWith(oauth), QStringLiteral("test"), nullptr).has_value());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json.toStdString());
        QString error;
        EXPECT_FALSE(ProviderTable::load(c.json, QStringLiteral("test"), &error).has_value());
        EXPECT_EQ(error.toStdString(), c.error);
    }
}

TEST(ProviderTableTest, TheDataFileInTheSourceTreeIsTheOneBuiltIn) {
    QFile source(QStringLiteral(CORVINA_SOURCE_DIR "/resources/providers/providers.json"));
    QFile builtIn(ProviderTable::BuiltInPath);
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    ASSERT_TRUE(builtIn.open(QIODevice::ReadOnly));
    EXPECT_EQ(source.readAll(), builtIn.readAll());
}

} // namespace
} // namespace corvina::test
