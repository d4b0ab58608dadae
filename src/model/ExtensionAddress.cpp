#include "ExtensionAddress.h"

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

namespace corvina {

ExtensionAddressPtr ExtensionAddress::initWithDictonary(const QVariant& dictionary) {
    auto address = std::make_shared<ExtensionAddress>();
    try {
        // "No Mail" is a fixed text here, unlike in accounts and aliases where it is translated
        address->setMail(
            PlistValue::stringForKey(dictionary, QStringLiteral("mail"), QStringLiteral("No Mail")));
        address->setFirstName(
            PlistValue::stringForKey(dictionary, QStringLiteral("firstName"), emptyString()));
        address->setLastName(PlistValue::stringForKey(dictionary, QStringLiteral("lastName"), emptyString()));
        address->setCompany(PlistValue::stringForKey(dictionary, QStringLiteral("company"), emptyString()));
        address->setNickname(PlistValue::stringForKey(dictionary, QStringLiteral("nickname"), emptyString()));
        const QVariant rank = PlistValue::objectForKey(dictionary, QStringLiteral("rank"));
        if (rank.isValid()) {
            address->setRank(PlistValue::integerValue(rank));
        }
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionAddress initWithDictonary %@"), {error.description()});
    }
    return address;
}

QString ExtensionAddress::fullName() const {
    // a missing name (only after a caught error) counts as empty rather than printing "(null)"
    return QStringLiteral("%1 %2").arg(firstName(), lastName()).trimmed();
}

QString ExtensionAddress::prettyprint() const {
    QString out = emptyString();
    const QString name = fullName();
    const QString org = company();
    if (!name.isEmpty()) {
        out = name;
    } else if (!org.isEmpty()) {
        out = org;
    }
    const QString address = mail();
    if (!address.isEmpty()) {
        out += QStringLiteral(" <%1>").arg(address);
    }
    return out.trimmed();
}

QString ExtensionAddress::description() const {
    return QStringLiteral("ExtensionAddress ") + describe(mail());
}

} // namespace corvina
