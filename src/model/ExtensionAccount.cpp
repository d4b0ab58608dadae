#include "ExtensionAccount.h"

#include "SnapshotFormat.h"
#include "platform/Exception.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

namespace corvina {

ExtensionAccountPtr ExtensionAccount::initWithDictonary(const QVariant& dictionary) {
    using Key = SnapshotFormat::AccountKey;
    auto account = std::make_shared<ExtensionAccount>();
    try {
        account->setMail(PlistValue::stringForKey(dictionary, SnapshotFormat::key(Key::Mail),
                                                  Localization::text(QStringLiteral("No Mail"))));
        account->setName(PlistValue::stringForKey(dictionary, SnapshotFormat::key(Key::Name), emptyString()));
        account->setType(
            PlistValue::integerValue(PlistValue::objectForKey(dictionary, SnapshotFormat::key(Key::Type))));
        account->setEnabled(
            PlistValue::boolValue(PlistValue::objectForKey(dictionary, SnapshotFormat::key(Key::Enabled))));
        // the list is in place before the aliases are read, so an "aliases" value that cannot be
        // iterated leaves the account with an empty list rather than none
        auto aliases = makeMutableList<ExtensionAliasPtr>();
        account->setAliases(aliases);
        for (const QVariant& element :
             PlistValue::enumerate(PlistValue::objectForKey(dictionary, SnapshotFormat::key(Key::Aliases)))) {
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
