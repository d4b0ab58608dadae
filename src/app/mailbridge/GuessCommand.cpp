#include "GuessCommand.h"

#include <QJsonDocument>
#include <QJsonValue>

namespace corvina {

namespace {

const char* const guessHelp =
    "Usage: corvina-mail-bridge account guess ADDRESS\n"
    "\n"
    "Prints, as JSON on standard output, the IMAP server and the way of signing in that\n"
    "`account add` would use for the mail address ADDRESS, from the providers table built into\n"
    "this program (docs/bridge.md lists it). Nothing is written and no server is asked.\n"
    "\n"
    "The object's keys:\n"
    "  address          the address as given\n"
    "  known            true when the address's domain is in the table\n"
    "  provider         the provider's name, or null\n"
    "  host             the IMAP server\n"
    "  port             its port\n"
    "  security         tls, starttls or none, as bridge.conf spells it\n"
    "  auth             password or oauth2 (then the next step is `account signin ACCOUNT`)\n"
    "  oauthProvider    google or microsoft with auth oauth2, else null\n"
    "  appPassword      true when a password must be an app password made for this program\n"
    "  passwordsRefused true when the provider takes no password over IMAP at all\n"
    "  appPasswordUrl   where the provider makes an app password, or null\n"
    "  note             one line for a person\n"
    "\n"
    "Exit status:\n"
    "  0  the domain is a known provider's\n"
    "  1  the domain is not in the table: the object (\"known\": false) holds the defaults\n"
    "     `account add` offers (imap. and the domain, tls, 993, a password), only a guess\n"
    "  2  usage error (no address, more than one, or not a mail address)\n";

QJsonValue orNull(const QString& text) {
    return text.isNull() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

} // namespace

GuessCommand::GuessCommand(QTextStream& out, QTextStream& err) : m_out(out), m_err(err) {}

QJsonObject GuessCommand::describe(const QString& address,
                                   const std::optional<ProviderTable::Provider>& provider) {
    const ProviderTable::Provider p = provider.value_or(ProviderTable::fallback(address));
    return QJsonObject{
        {QStringLiteral("address"), address},
        {QStringLiteral("known"), provider.has_value()},
        {QStringLiteral("provider"), orNull(p.name)},
        {QStringLiteral("host"), p.host},
        {QStringLiteral("port"), p.port},
        {QStringLiteral("security"), p.security},
        {QStringLiteral("auth"), p.auth},
        {QStringLiteral("oauthProvider"), orNull(p.oauthProvider)},
        {QStringLiteral("appPassword"), p.appPassword},
        {QStringLiteral("passwordsRefused"), p.passwordsRefused},
        {QStringLiteral("appPasswordUrl"), orNull(p.appPasswordUrl)},
        {QStringLiteral("note"),
         provider ? p.note
                  : QStringLiteral("not a provider this program knows: %1 is a guess; your provider's help "
                                   "pages name its IMAP server")
                        .arg(p.host)},
    };
}

int GuessCommand::exec(const QStringList& arguments, bool help) {
    if (help) {
        m_out << guessHelp << Qt::flush;
        return Known;
    }
    if (arguments.size() != 1) {
        m_err << "corvina-mail-bridge: account guess takes one mail address; see account guess --help"
              << Qt::endl;
        return UsageError;
    }
    const QString& address = arguments.first();
    const QString domain = ProviderTable::domainOf(address);
    if (domain.isEmpty() || address.startsWith(u'@')) {
        m_err << "corvina-mail-bridge: account guess: " << address
              << " is not a mail address (like ada@example.org)" << Qt::endl;
        return UsageError;
    }
    QString error;
    const std::optional<ProviderTable> table = ProviderTable::builtIn(&error);
    if (!table) {
        // The table is compiled in: only a broken build gets here, and then no guess is honest.
        m_err << "corvina-mail-bridge: account guess: " << error << Qt::endl;
        return Unknown;
    }
    const std::optional<ProviderTable::Provider> provider = table->find(address);
    m_out << QJsonDocument(describe(address, provider)).toJson(QJsonDocument::Indented) << Qt::flush;
    return provider ? Known : Unknown;
}

} // namespace corvina
