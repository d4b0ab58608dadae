#include "BridgeConfig.h"

#include "OAuthHttp.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QSettings>
#include <QStandardPaths>
#include <QUrl>

namespace corvina {

namespace {

// QSettings turns an unquoted value with commas into a list; the user meant one text.
QString text(const QSettings& settings, const QString& key) {
    const QVariant value = settings.value(key);
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(QLatin1Char(','));
    return value.toString().trimmed();
}

// What is wrong with `url` as a provider's endpoint, or empty. The sign-in sends a client secret
// and receives tokens there, so only https will do; plain http only where nothing leaves this
// machine (a provider run on loopback, as the tests do).
QString endpointProblem(const QString& key, const QString& url) {
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.host().isEmpty())
        return QStringLiteral("%1 %2 is not a URL").arg(key, url);
    const QString scheme = parsed.scheme().toLower();
    if (scheme == QLatin1String("https"))
        return QString();
    if (scheme == QLatin1String("http") && OAuthHttp::isLoopback(parsed.host()))
        return QString();
    return QStringLiteral("%1 must be an https URL (http only for 127.0.0.1, ::1 or localhost), not %2")
        .arg(key, url);
}

// Any text names a folder (ImapSession encodes it for the server), except control characters: no
// server takes them, and a line break in a name would only come from a mistake in bridge.conf. The
// position of the first one, or -1.
qsizetype controlCharacterIn(const QString& name) {
    for (qsizetype i = 0; i < name.size(); ++i) {
        if (name.at(i).category() == QChar::Other_Control)
            return i;
    }
    return -1;
}

} // namespace

QString BridgeConfig::defaultPath() {
    // Qt answers ~/.config when XDG_CONFIG_HOME is unset or not absolute, as the XDG rules say.
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/corvina/bridge.conf");
}

QString BridgeConfig::securityName(Security security) {
    switch (security) {
    case Security::Tls:
        return QStringLiteral("tls");
    case Security::StartTls:
        return QStringLiteral("starttls");
    case Security::None:
        return QStringLiteral("none");
    }
    return QString();
}

QString BridgeConfig::authName(Auth auth) {
    switch (auth) {
    case Auth::Password:
        return QStringLiteral("password");
    case Auth::OAuth2:
        return QStringLiteral("oauth2");
    case Auth::Goa:
        return QStringLiteral("goa");
    }
    return QString();
}

QString BridgeConfig::caFileProblem(const QString& absolutePath) {
    // A folder is readable too, but holds no certificates the TLS check could load.
    const QFileInfo file(absolutePath);
    if (!file.isFile() || !file.isReadable())
        return QStringLiteral("caFile %1 cannot be read").arg(absolutePath);
    return QString();
}

BridgeConfig BridgeConfig::load(const QString& path) {
    BridgeConfig config;
    config.m_path = path;
    config.m_exists = QFileInfo(path).isFile();
    if (!config.m_exists)
        return config;
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        Account broken;
        broken.name = QStringLiteral("(file)");
        broken.problem = QStringLiteral("%1 is not a readable INI file").arg(path);
        config.m_accounts.append(broken);
        return config;
    }
    // [General] holds the keys of no group: defaults for every account.
    int poll = DefaultPollSeconds;
    const QString generalProblem = readPoll(settings, &poll);
    QSet<QString> mails;
    for (const QString& group : settings.childGroups()) {
        Account account = readAccount(settings, group, QFileInfo(path).absolutePath(), poll);
        if (!generalProblem.isEmpty())
            account.problem += (account.problem.isEmpty() ? QString() : QStringLiteral("; ")) +
                               QStringLiteral("[General] ") + generalProblem;
        if (account.problem.isEmpty() && mails.contains(account.mail))
            account.problem = QStringLiteral("mail %1 is already used by another account").arg(account.mail);
        mails.insert(account.mail);
        config.m_accounts.append(account);
    }
    return config;
}

QString BridgeConfig::readPoll(const QSettings& settings, int* seconds) {
    const QString poll = text(settings, QStringLiteral("poll"));
    if (poll.isEmpty())
        return QString();
    bool ok = false;
    const int value = poll.toInt(&ok);
    if (!ok || value < 1 || value > MaximumPollSeconds)
        return QStringLiteral("poll must be a number of seconds from 1 to %1, not %2")
            .arg(MaximumPollSeconds)
            .arg(poll);
    *seconds = value;
    return QString();
}

BridgeConfig::Account BridgeConfig::readAccount(QSettings& settings, const QString& group,
                                                const QString& folder, int poll) {
    settings.beginGroup(group);
    Account a;
    a.name = group;
    a.pollSeconds = poll;
    QStringList problems;
    const QStringList known = {"mail",
                               "name",
                               "host",
                               "port",
                               "security",
                               "user",
                               "enabled",
                               "inbox",
                               "todo",
                               "memo",
                               "archive",
                               "trash",
                               "messages",
                               "passwordCommand",
                               "caFile",
                               "poll",
                               "openCommand",
                               "composeCommand",
                               "auth",
                               "tokenCommand",
                               "oauthProvider",
                               "oauthClientId",
                               "oauthClientSecret",
                               "oauthAuthorizeUrl",
                               "oauthTokenUrl",
                               "oauthScope",
                               "oauthIssuer",
                               "goaId"};
    for (const QString& key : settings.childKeys()) {
        if (!known.contains(key))
            problems << QStringLiteral("unknown key %1").arg(key);
    }

    a.mail = text(settings, QStringLiteral("mail"));
    if (a.mail.isEmpty())
        problems << QStringLiteral("mail is missing");
    else if (a.mail.contains(QLatin1Char('/')) || a.mail.startsWith(QLatin1Char('.')))
        problems << QStringLiteral("mail %1 cannot name a folder (no \"/\", no leading \".\")").arg(a.mail);
    a.displayName = text(settings, QStringLiteral("name"));
    a.host = text(settings, QStringLiteral("host"));
    if (a.host.isEmpty())
        problems << QStringLiteral("host is missing");

    const QString security = text(settings, QStringLiteral("security")).toLower();
    if (security.isEmpty() || security == QLatin1String("tls"))
        a.security = Security::Tls;
    else if (security == QLatin1String("starttls"))
        a.security = Security::StartTls;
    else if (security == QLatin1String("none"))
        a.security = Security::None;
    else
        problems << QStringLiteral("security must be tls, starttls or none, not %1").arg(security);
    if (a.security == Security::None && !a.host.isEmpty() && !OAuthHttp::isLoopback(a.host))
        problems
            << QStringLiteral("security none is only allowed for 127.0.0.1 or localhost, not %1").arg(a.host);

    a.port = a.security == Security::Tls ? 993 : 143;
    const QString port = text(settings, QStringLiteral("port"));
    if (!port.isEmpty()) {
        bool ok = false;
        const uint value = port.toUInt(&ok);
        if (!ok || value == 0 || value > 65535)
            problems << QStringLiteral("port must be a number from 1 to 65535, not %1").arg(port);
        else
            a.port = static_cast<quint16>(value);
    }

    a.user = text(settings, QStringLiteral("user"));
    if (a.user.isEmpty())
        a.user = a.mail;

    const QString enabled = text(settings, QStringLiteral("enabled")).toLower();
    if (enabled.isEmpty() || enabled == QLatin1String("true") || enabled == QLatin1String("yes") ||
        enabled == QLatin1String("1"))
        a.enabled = true;
    else if (enabled == QLatin1String("false") || enabled == QLatin1String("no") ||
             enabled == QLatin1String("0"))
        a.enabled = false;
    else
        problems << QStringLiteral("enabled must be true or false, not %1").arg(enabled);

    const QString inbox = text(settings, QStringLiteral("inbox"));
    if (!inbox.isEmpty())
        a.inbox = inbox;
    a.todo = text(settings, QStringLiteral("todo"));
    a.memo = text(settings, QStringLiteral("memo"));
    a.archive = text(settings, QStringLiteral("archive"));
    a.trash = text(settings, QStringLiteral("trash"));
    const QList<std::pair<const char*, QString>> folders = {
        {"inbox", a.inbox}, {"todo", a.todo}, {"memo", a.memo}, {"archive", a.archive}, {"trash", a.trash}};
    for (const auto& [key, folder] : folders) {
        // The name itself is not repeated: it would bring its control character into the log.
        if (const qsizetype at = controlCharacterIn(folder); at >= 0)
            problems
                << QStringLiteral("%1 folder: a folder name cannot hold control characters (U+%2)")
                       .arg(QLatin1String(key))
                       .arg(QString::number(folder.at(at).unicode(), 16).toUpper().rightJustified(4, u'0'));
    }

    const QString messages = text(settings, QStringLiteral("messages"));
    if (!messages.isEmpty()) {
        bool ok = false;
        const int value = messages.toInt(&ok);
        if (!ok || value < 1 || value > MaximumMessages)
            problems << QStringLiteral("messages must be a number from 1 to %1, not %2")
                            .arg(MaximumMessages)
                            .arg(messages);
        else
            a.messages = value;
    }

    a.passwordCommand = text(settings, QStringLiteral("passwordCommand"));
    readAuth(settings, &a, &problems);
    a.openCommand = text(settings, QStringLiteral("openCommand"));
    a.composeCommand = text(settings, QStringLiteral("composeCommand"));

    // A relative caFile is found beside bridge.conf, wherever the bridge was started from.
    const QString caFile = text(settings, QStringLiteral("caFile"));
    if (!caFile.isEmpty()) {
        a.caFile = QDir(folder).absoluteFilePath(caFile);
        if (const QString problem = caFileProblem(a.caFile); !problem.isEmpty())
            problems << problem;
    }
    const QString pollProblem = readPoll(settings, &a.pollSeconds);
    if (!pollProblem.isEmpty())
        problems << pollProblem;
    settings.endGroup();
    a.problem = problems.join(QStringLiteral("; "));
    return a;
}

void BridgeConfig::readAuth(const QSettings& settings, Account* a, QStringList* problems) {
    const QString auth = text(settings, QStringLiteral("auth")).toLower();
    if (auth.isEmpty() || auth == QLatin1String("password"))
        a->auth = Auth::Password;
    else if (auth == QLatin1String("oauth2"))
        a->auth = Auth::OAuth2;
    else if (auth == QLatin1String("goa"))
        a->auth = Auth::Goa;
    else
        *problems << QStringLiteral("auth must be password, oauth2 or goa, not %1").arg(auth);

    a->tokenCommand = text(settings, QStringLiteral("tokenCommand"));
    a->oauthProvider = text(settings, QStringLiteral("oauthProvider")).toLower();
    a->oauthClientId = text(settings, QStringLiteral("oauthClientId"));
    a->oauthClientSecret = text(settings, QStringLiteral("oauthClientSecret"));
    a->oauthAuthorizeUrl = text(settings, QStringLiteral("oauthAuthorizeUrl"));
    a->oauthTokenUrl = text(settings, QStringLiteral("oauthTokenUrl"));
    a->oauthScope = text(settings, QStringLiteral("oauthScope"));
    a->oauthIssuer = text(settings, QStringLiteral("oauthIssuer"));
    a->goaId = text(settings, QStringLiteral("goaId"));

    // A key that the chosen way of logging in would not use is named rather than ignored: the
    // person meant something by it, and a passwordCommand beside a token would leave it unclear
    // which secret goes to the server.
    if (a->auth != Auth::Password && !a->passwordCommand.isEmpty())
        *problems << QStringLiteral(
            "passwordCommand is only for auth = password; remove passwordCommand or auth");
    if (a->auth != Auth::OAuth2 && !a->tokenCommand.isEmpty())
        *problems << QStringLiteral(
            "tokenCommand is only for auth = oauth2; remove tokenCommand or set auth = oauth2");
    if (a->auth != Auth::Goa && !a->goaId.isEmpty())
        *problems << QStringLiteral("goaId is only for auth = goa; remove goaId or set auth = goa");

    const QStringList providers = {QStringLiteral("google"), QStringLiteral("microsoft"),
                                   QStringLiteral("custom"), QStringLiteral("discover")};
    if (a->auth == Auth::OAuth2) {
        if (!a->oauthProvider.isEmpty() && !providers.contains(a->oauthProvider))
            *problems << QStringLiteral("oauthProvider must be google, microsoft, custom or discover, not %1")
                             .arg(a->oauthProvider);
        if (a->tokenCommand.isEmpty() && a->oauthProvider.isEmpty())
            *problems << QStringLiteral("auth = oauth2 needs a tokenCommand or an oauthProvider "
                                        "(google, microsoft, custom or discover)");
        if (!a->tokenCommand.isEmpty() && !a->oauthProvider.isEmpty())
            *problems << QStringLiteral("tokenCommand and oauthProvider cannot both be set; remove one");
        if (a->oauthProvider == QLatin1String("custom")) {
            if (a->oauthAuthorizeUrl.isEmpty())
                *problems << QStringLiteral("oauthProvider custom needs oauthAuthorizeUrl");
            if (a->oauthTokenUrl.isEmpty())
                *problems << QStringLiteral("oauthProvider custom needs oauthTokenUrl");
            if (a->oauthScope.isEmpty())
                *problems << QStringLiteral("oauthProvider custom needs oauthScope");
        }
    }
    if (!a->oauthIssuer.isEmpty() && !a->oauthProvider.isEmpty() &&
        a->oauthProvider != QLatin1String("discover"))
        *problems << QStringLiteral("oauthIssuer is only for oauthProvider discover; remove it");
    if (a->auth == Auth::Goa && a->goaId.isEmpty())
        *problems << QStringLiteral("auth = goa needs goaId");

    // The oauth* keys belong to a sign-in with a provider; anywhere else they would be ignored.
    const QList<std::pair<const char*, QString>> oauthKeys = {{"oauthClientId", a->oauthClientId},
                                                              {"oauthClientSecret", a->oauthClientSecret},
                                                              {"oauthAuthorizeUrl", a->oauthAuthorizeUrl},
                                                              {"oauthTokenUrl", a->oauthTokenUrl},
                                                              {"oauthScope", a->oauthScope},
                                                              {"oauthIssuer", a->oauthIssuer}};
    if (!a->oauthProvider.isEmpty() && a->auth != Auth::OAuth2)
        *problems << QStringLiteral(
            "oauthProvider is only for auth = oauth2; remove it or set auth = oauth2");
    for (const auto& [key, value] : oauthKeys) {
        if (!value.isEmpty() && (a->auth != Auth::OAuth2 || a->oauthProvider.isEmpty()))
            *problems << QStringLiteral("%1 is only for auth = oauth2 with an oauthProvider; remove it")
                             .arg(QLatin1String(key));
    }
    const QList<std::pair<const char*, QString>> endpoints = {{"oauthAuthorizeUrl", a->oauthAuthorizeUrl},
                                                              {"oauthTokenUrl", a->oauthTokenUrl},
                                                              {"oauthIssuer", a->oauthIssuer}};
    for (const auto& [key, url] : endpoints) {
        if (url.isEmpty())
            continue;
        if (const QString problem = endpointProblem(QLatin1String(key), url); !problem.isEmpty())
            *problems << problem;
    }
}

const BridgeConfig::Account* BridgeConfig::account(const QString& nameOrMail) const {
    for (const Account& a : m_accounts) {
        if (a.name == nameOrMail)
            return &a;
    }
    for (const Account& a : m_accounts) {
        if (a.mail == nameOrMail)
            return &a;
    }
    return nullptr;
}

} // namespace corvina
