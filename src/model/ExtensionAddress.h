#pragma once

#include "platform/AtomicProperty.h"
#include "platform/Object.h"

#include <QString>
#include <QVariant>
#include <memory>

namespace corvina {

class ExtensionAddress;
using ExtensionAddressPtr = std::shared_ptr<ExtensionAddress>;

// One contact address of the mail application, from an entry of its address list.
class ExtensionAddress : public Object {
public:
    // Reads "mail" (default "No Mail", not translated), "firstName", "lastName", "company",
    // "nickname" (default ""), then "rank" only when present. A value of the wrong shape (or a
    // receiver that is not a dictionary) is logged as "ExtensionAddress initWithDictonary <error>"
    // and the record keeps what was read before it. Never null.
    static ExtensionAddressPtr initWithDictonary(const QVariant& dictionary);

    // "first last" trimmed: one name alone when the other is empty or missing, "" with neither.
    QString fullName() const;
    // "Name <mail>", or "Company <mail>" without a name, or "<mail>" alone; without a mail, the
    // name (or company) alone. The nickname is never shown.
    QString prettyprint() const;
    QString description() const override; // "ExtensionAddress <mail>"

    CORVINA_ATOMIC_PROPERTY(QString, mail, setMail)
    CORVINA_ATOMIC_PROPERTY(QString, firstName, setFirstName)
    CORVINA_ATOMIC_PROPERTY(QString, lastName, setLastName)
    CORVINA_ATOMIC_PROPERTY(QString, company, setCompany)
    CORVINA_ATOMIC_PROPERTY(QString, nickname, setNickname)
    CORVINA_ATOMIC_PROPERTY(qint64, rank, setRank)
};

} // namespace corvina
