#pragma once

#include "model/ExtensionAccount.h"
#include "model/ExtensionAddress.h"
#include "model/ExtensionGroup.h"

#include <QList>
#include <QString>
#include <QUrl>
#include <optional>

namespace corvina {

// Where the shared folder is, and the account and contact lists the mail application keeps in it.
// No instances and no state: every call asks the file system again.
class ExtensionUtilities {
public:
    static inline const QString groupIdentifier = QStringLiteral("Q7X2M4K9TZ.corvina");
    static inline const QString releaseFolderName = QStringLiteral("SharedData");
    static inline const QString betaFolderName = QStringLiteral("SharedDataBeta");

    // "SharedDataBeta" when this program's bundle identifier begins with the mail application's
    // identifier followed by ".beta", "SharedData" otherwise.
    static QString GroupFolderName();
    // The shared container, or nothing when there is none.
    static std::optional<QUrl> GroupPath();
    // The data folder inside it (GroupPath + GroupFolderName), or nothing. Neither is created.
    static std::optional<QUrl> GroupDataPath();

    // The accounts of "Accounts.plist" in the data folder, in file order; empty when the file is
    // missing, unreadable or not a list. Read under an exclusive lock (see FileCoordinator).
    static QList<ExtensionAccountPtr> Accounts();

    // The two lists of the contact store. `groups` is always empty: see AddressesAndGroups().
    struct AddressesAndGroupsResult {
        QList<ExtensionAddressPtr> addresses;
        QList<ExtensionGroupPtr> groups;
    };
    // The addresses of "Contacts/Addresses.plist" in the data folder, and an empty group list.
    // Creates the "Contacts" folder when nothing exists at its place.
    static AddressesAndGroupsResult AddressesAndGroups();
};

} // namespace corvina
