#include "ExtensionAlias.h"

#include "platform/Exception.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

namespace corvina {

ExtensionAliasPtr ExtensionAlias::initWithDictonary(const QVariant& dictionary) {
    auto alias = std::make_shared<ExtensionAlias>();
    try {
        alias->setMail(PlistValue::stringForKey(dictionary, QStringLiteral("mail"),
                                                Localization::text(QStringLiteral("No Mail"))));
        alias->setName(PlistValue::stringForKey(dictionary, QStringLiteral("name"), emptyString()));
        alias->setAccount(PlistValue::stringForKey(dictionary, QStringLiteral("account"), emptyString()));
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionAlias initWithDictonary %@"), {error.description()});
    }
    return alias;
}

QString ExtensionAlias::description() const {
    return QStringLiteral("ExtensionAlias ") + describe(mail());
}

} // namespace corvina
