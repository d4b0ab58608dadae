#pragma once

#include "ExtensionAlias.h"
#include "platform/MutableList.h"

namespace corvina {

class ExtensionAccount;
using ExtensionAccountPtr = std::shared_ptr<ExtensionAccount>;

// One mail account of the mail application as its extensions see it.
class ExtensionAccount : public Object {
public:
    // Reads "mail" (default: the translated "No Mail"), "name" (default ""), "type" (integer value,
    // 0 when absent), "enabled" (boolean value, false when absent), then one alias per element of
    // "aliases". An element that is not a dictionary still gives an alias with unset fields; an
    // "aliases" that is a dictionary gives one such alias per key; one that cannot be iterated (a
    // text, a number) is logged as "ExtensionAccount initWithDictonary <error>" and leaves the
    // aliases empty. Never null.
    static ExtensionAccountPtr initWithDictonary(const QVariant& dictionary);

    QString description() const override; // "ExtensionAccount <mail>"

    CORVINA_ATOMIC_PROPERTY(QString, mail, setMail)
    CORVINA_ATOMIC_PROPERTY(QString, name, setName)
    CORVINA_ATOMIC_PROPERTY(MutableList<ExtensionAliasPtr>, aliases, setAliases)
    CORVINA_ATOMIC_PROPERTY(qint64, type, setType)
    CORVINA_ATOMIC_PROPERTY(bool, enabled, setEnabled)
};

} // namespace corvina
