#include "ExtensionAlias.h"

#include "platform/Exception.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

namespace corvina {

ExtensionAliasPtr ExtensionAlias::initWithDictonary(const QVariant& dictionary) {
    auto alias = std::make_shared<ExtensionAlias>();
    try {
        const QString mail = PlistValue::stringValue(PlistValue::objectForKey(dictionary, QStringLiteral("mail")));
        alias->setMail(mail.isNull() ? Localization::text(QStringLiteral("No Mail")) : mail);
        const QString name = PlistValue::stringValue(PlistValue::objectForKey(dictionary, QStringLiteral("name")));
        alias->setName(name.isNull() ? emptyString() : name);
        const QString account = PlistValue::stringValue(PlistValue::objectForKey(dictionary, QStringLiteral("account")));
        alias->setAccount(account.isNull() ? emptyString() : account);
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionAlias initWithDictonary %@"), {error.description()});
    }
    return alias;
}

QString ExtensionAlias::description() const { return QStringLiteral("ExtensionAlias ") + describe(mail()); }

} // namespace corvina
