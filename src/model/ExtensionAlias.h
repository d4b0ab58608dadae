#pragma once

#include "platform/AtomicProperty.h"
#include "platform/Object.h"

#include <QString>
#include <QVariant>
#include <memory>

namespace corvina {

class ExtensionAlias;
using ExtensionAliasPtr = std::shared_ptr<ExtensionAlias>;

// A further sender identity of a mail account.
class ExtensionAlias : public Object {
public:
    // Reads "mail" (default: the translated "No Mail"), "name" and "account" (default ""). Errors
    // are logged as "ExtensionAlias initWithDictonary <error>" and leave the later fields unset.
    // Never null.
    static ExtensionAliasPtr initWithDictonary(const QVariant& dictionary);

    QString description() const override; // "ExtensionAlias <mail>"

    CORVINA_ATOMIC_PROPERTY(QString, mail, setMail)
    CORVINA_ATOMIC_PROPERTY(QString, name, setName)
    CORVINA_ATOMIC_PROPERTY(QString, account, setAccount)
};

} // namespace corvina
