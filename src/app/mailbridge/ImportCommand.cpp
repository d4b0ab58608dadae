#include "ImportCommand.h"

#include "bridge/config/AccountGroup.h"
#include "bridge/config/CommandLine.h"

#include <QVariantMap>

namespace corvina {

namespace {

// What a person reads about an account before saying yes: whose it is and where its mail comes from.
QString describe(const DesktopAccounts::Account& a) {
    const QString signIn = a.secret == DesktopAccounts::Secret::OAuth2 ? QStringLiteral("a token")
                                                                       : QStringLiteral("a password");
    return QStringLiteral(
               "%1 (%2, %3): IMAP server %4, port %5, %6, login %7; signs in with %8 from the desktop")
        .arg(a.presentationIdentity, a.providerName, a.id, a.host(), QString::number(a.port()), a.security(),
             a.imapUserName, signIn);
}

} // namespace

ImportCommand::ImportCommand(QString configPath, QTextStream& in, QTextStream& out, QTextStream& err,
                             bool terminal, int timeoutMs)
    : m_path(std::move(configPath)), m_in(in), m_out(out), m_err(err), m_terminal(terminal),
      m_timeoutMs(timeoutMs) {}

QString ImportCommand::nameFor(const QString& mail, const BridgeConfig& config) const {
    QString base = mail.section(u'@', 1).section(u'.', 0, 0).toLower();
    if (!AccountGroup::isPlainName(base))
        base = QStringLiteral("mail");
    QString name = base;
    for (int n = 2; config.account(name) != nullptr || m_taken.contains(name); ++n)
        name = base + QString::number(n);
    return name;
}

bool ImportCommand::confirm(const QString& question) {
    m_out << question << " [y/N]: " << Qt::flush;
    QString line;
    if (!m_in.readLineInto(&line))
        return false;
    if (!m_terminal)
        m_out << Qt::endl; // a piped answer is not echoed: keep one prompt a line
    line = line.trimmed().toLower();
    return line == QLatin1String("y") || line == QLatin1String("yes");
}

bool ImportCommand::add(const DesktopAccounts::Account& account, const BridgeConfig& config) {
    const QString mail = account.emailAddress.isEmpty() ? account.presentationIdentity : account.emailAddress;
    const QString name = nameFor(mail, config);
    QVariantMap keys{{QStringLiteral("mail"), mail},
                     {QStringLiteral("host"), account.host()},
                     {QStringLiteral("port"), account.port()},
                     {QStringLiteral("security"), account.security()},
                     {QStringLiteral("user"), account.imapUserName},
                     {QStringLiteral("auth"), QStringLiteral("goa")},
                     {QStringLiteral("goaId"), account.id}};
    if (!account.name.isEmpty())
        keys.insert(QStringLiteral("name"), account.name);
    const AccountGroup group(name, keys);
    // Checked as the bridge will read it, by the same code, before anything is written.
    const BridgeConfig::Account read = group.read();
    if (!read.problem.isEmpty()) {
        m_err << "corvina-mail-bridge: account import: " << account.presentationIdentity << " (" << account.id
              << "): " << read.problem << "; not added" << Qt::endl;
        return false;
    }
    QString error;
    if (!group.writeTo(m_path, &error)) {
        m_err << "corvina-mail-bridge: account import: " << account.presentationIdentity << " (" << account.id
              << "): " << error << "; not added" << Qt::endl;
        return false;
    }
    m_taken.insert(name);
    m_out << "Added account " << name << " (" << mail << ") to " << m_path
          << "; it signs in through the desktop's online accounts. Try it: "
          << CommandLine::bridgeCommand(m_path, QStringLiteral("check"), name) << Qt::endl;
    // Deliberate: the desktop may take a certificate the bridge does not; said before the first
    // failure, so the line that follows it is no surprise.
    if (account.imapAcceptSslErrors && account.security() != QLatin1String("none"))
        m_out
            << "Note: the desktop accepts this server's certificate even when it is not trusted; the bridge "
               "does not (a caFile in bridge.conf names the authority to trust, see docs/bridge.md)"
            << Qt::endl;
    return true;
}

int ImportCommand::exec(bool all) {
    QString error;
    const std::optional<QList<DesktopAccounts::Account>> accounts =
        DesktopAccounts(m_timeoutMs).accounts(&error);
    if (!accounts) {
        m_err << "corvina-mail-bridge: account import: " << error << "; nothing was imported" << Qt::endl;
        return Failed;
    }
    QList<DesktopAccounts::Account> mail;
    for (const DesktopAccounts::Account& a : *accounts) {
        if (a.carriesMail())
            mail.append(a);
    }
    if (mail.isEmpty()) {
        m_out << "The desktop's online accounts hold no account with mail turned on; nothing to import. Add "
                 "one in the desktop's settings (Online Accounts), or use corvina-mail-bridge account add"
              << Qt::endl;
        return Ok;
    }
    const BridgeConfig config = BridgeConfig::load(m_path);
    bool ok = true;
    int added = 0;
    for (const DesktopAccounts::Account& a : mail) {
        const BridgeConfig::Account* existing = nullptr;
        for (const BridgeConfig::Account& c : config.accounts()) {
            if (c.auth == BridgeConfig::Auth::Goa && c.goaId == a.id)
                existing = &c;
        }
        if (existing != nullptr) {
            m_out << "Skipped " << a.presentationIdentity << " (" << a.id << "): already imported as account "
                  << existing->name << Qt::endl;
            continue;
        }
        if (a.secret == DesktopAccounts::Secret::None) {
            m_err << "corvina-mail-bridge: account import: " << a.presentationIdentity << " (" << a.id
                  << ") gives neither a token nor a password; not added" << Qt::endl;
            ok = false;
            continue;
        }
        if (all) {
            m_out << describe(a) << Qt::endl;
        } else if (!confirm(QStringLiteral("Import %1?").arg(describe(a)))) {
            m_out << "Not imported: " << a.presentationIdentity << Qt::endl;
            continue;
        }
        if (add(a, config))
            ++added;
        else
            ok = false;
    }
    if (added == 0 && ok)
        m_out << "Nothing was imported" << Qt::endl;
    return ok ? Ok : Failed;
}

} // namespace corvina
