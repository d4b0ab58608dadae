#include "AccountAnswers.h"

#include <QVariantMap>

namespace corvina {

namespace {

const QString DefaultAuth = QStringLiteral("password");
const QString DefaultInbox = QStringLiteral("INBOX");

} // namespace

void AccountAnswers::takeServerOf(const ProviderTable::Provider& provider) {
    host = provider.host;
    port = QString::number(provider.port);
    security = provider.security;
    oauthProvider = auth == QLatin1String("oauth2") ? provider.oauthProvider : QString();
}

AccountGroup AccountAnswers::group() const {
    QVariantMap keys{{QStringLiteral("mail"), mail},
                     {QStringLiteral("host"), host},
                     {QStringLiteral("port"), port},
                     {QStringLiteral("security"), security},
                     {QStringLiteral("user"), user.isEmpty() ? mail : user}};
    if (!auth.isEmpty() && auth != DefaultAuth)
        keys.insert(QStringLiteral("auth"), auth);
    if (!inbox.isEmpty() && inbox != DefaultInbox)
        keys.insert(QStringLiteral("inbox"), inbox);
    const std::pair<const char*, const QString*> optional[] = {{"oauthProvider", &oauthProvider},
                                                               {"oauthIssuer", &oauthIssuer},
                                                               {"oauthClientId", &oauthClientId},
                                                               {"oauthClientSecret", &oauthClientSecret},
                                                               {"todo", &todo},
                                                               {"memo", &memo},
                                                               {"caFile", &caFile},
                                                               {"passwordCommand", &passwordCommand}};
    for (const auto& [key, value] : optional) {
        if (!value->isEmpty())
            keys.insert(QString::fromLatin1(key), *value);
    }
    return AccountGroup(name, keys);
}

} // namespace corvina
