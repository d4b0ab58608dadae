#include "ExtensionAccount.h"

#include "platform/Exception.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

namespace corvina {

ExtensionAccountPtr ExtensionAccount::initWithDictonary(const QVariant& dictionary) {
    auto account = std::make_shared<ExtensionAccount>();
    try {
        account->setMail(PlistValue::stringForKey(dictionary, QStringLiteral("mail"),
                                                  Localization::text(QStringLiteral("No Mail"))));
        account->setName(PlistValue::stringForKey(dictionary, QStringLiteral("name"), emptyString()));
        account->setType(
            PlistValue::integerValue(PlistValue::objectForKey(dictionary, QStringLiteral("type"))));
        account->setEnabled(
            PlistValue::boolValue(PlistValue::objectForKey(dictionary, QStringLiteral("enabled"))));
        // the list is in place before the aliases are read, so an "aliases" value that cannot be
        // iterated leaves the account with an empty list rather than none
        auto aliases = makeMutableList<ExtensionAliasPtr>();
        account->setAliases(aliases);
        for (const QVariant& element :
             PlistValue::enumerate(PlistValue::objectForKey(dictionary, QStringLiteral("aliases")))) {
            aliases->append(ExtensionAlias::initWithDictonary(element));
        }
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionAccount initWithDictonary %@"), {error.description()});
    }
    return account;
}

QString ExtensionAccount::description() const {
    return QStringLiteral("ExtensionAccount ") + describe(mail());
}

} // namespace corvina
