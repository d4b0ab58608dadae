#include "ExtensionGroup.h"

#include "platform/Exception.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

namespace corvina {

ExtensionGroupPtr ExtensionGroup::initWithDictonary(const QVariant& dictionary) {
    auto group = std::make_shared<ExtensionGroup>();
    try {
        group->setIdx(PlistValue::stringForKey(dictionary, QStringLiteral("idx"), emptyString()));
        group->setName(PlistValue::stringForKey(dictionary, QStringLiteral("name"),
                                                Localization::text(QStringLiteral("No Name"))));
        auto members = makeMutableList<ExtensionAddressPtr>();
        group->setAddresses(members);
        for (const QVariant& element :
             PlistValue::enumerate(PlistValue::objectForKey(dictionary, QStringLiteral("addresses")))) {
            members->append(ExtensionAddress::initWithDictonary(element));
        }
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionGroup initWithDictonary %@"), {error.description()});
    }
    return group;
}

QString ExtensionGroup::prettyprint() const {
    const MutableList<ExtensionAddressPtr> members = addresses();
    if (members && !members->isEmpty()) {
        return QStringLiteral("%1 (%2)").arg(name(), QString::number(members->size()));
    }
    return name().isNull() ? emptyString() : name();
}

QString ExtensionGroup::description() const {
    return QStringLiteral("ExtensionGroup ") + describe(name());
}

} // namespace corvina
