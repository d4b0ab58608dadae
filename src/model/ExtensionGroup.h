#pragma once

#include "ExtensionAddress.h"
#include "platform/MutableList.h"

namespace corvina {

class ExtensionGroup;
using ExtensionGroupPtr = std::shared_ptr<ExtensionGroup>;

// A named group of contact addresses, from an entry of the mail application's group list.
class ExtensionGroup : public Object {
public:
    // Reads "idx" (default ""), "name" (default: the translated "No Name"), then one address per
    // element of "addresses", in order. A member that is not a dictionary still gives an address
    // with unset fields (logged by the address builder). Errors are logged as
    // "ExtensionGroup initWithDictonary <error>" and keep what was read before them. Never null.
    static ExtensionGroupPtr initWithDictonary(const QVariant& dictionary);

    // "Friends (3)" with members, "Friends" without.
    QString prettyprint() const;
    QString description() const override; // "ExtensionGroup <name>"

    CORVINA_ATOMIC_PROPERTY(QString, idx, setIdx)
    CORVINA_ATOMIC_PROPERTY(QString, name, setName)
    CORVINA_ATOMIC_PROPERTY(MutableList<ExtensionAddressPtr>, addresses, setAddresses)
};

} // namespace corvina
