#pragma once

#include "model/ExtensionAccount.h"
#include "model/ExtensionAddress.h"
#include "model/ExtensionGroup.h"
#include "model/ExtensionMessage.h"
#include "requestutils/Url.h"

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

    // Posted on the default notification centre for every command sent about a message, before
    // the mail application is asked to act; the object is {"message": ExtensionMessagePtr,
    // "command": command name}.
    static inline const QString ACTION_CALLED_EXTENSION = QStringLiteral("ACTION_CALLED_EXTENSION");

    // The command URL for one message: "corvina://<command>?mail=<account>&messageid=<messageId>
    // &folderstandardid=<folderStandardId>". Only the account is percent-encoded; the message id
    // goes in as stored, so an id holding characters a URL may not hold makes no URL (nothing).
    // An absent account, id or folder number is written as "(null)".
    static std::optional<Url> CommandURLForMessage(const ExtensionMessagePtr& message,
                                                   const QString& commandName);

    // Sends `commandName` about each message to the mail application: for each message in order
    // whose command URL can be made, posts ACTION_CALLED_EXTENSION and keeps the URL; then opens
    // all kept URLs in one request (LaunchCommands). The notifications are all out before the mail
    // application is asked, and do not depend on whether that succeeds. Messages without a URL are
    // dropped silently.
    static bool LaunchCommandForMessages(const ExtensionMessageList& messages, const QString& commandName,
                                         bool background);

    // Opens `urls` in the mail application in one request. False at once for an empty list.
    // The target is the build of the mail application this extension belongs to, read from this
    // program's bundle identifier: it beginning with the base identifier + ".beta8", ".beta10" or
    // "2" (tested in that order) selects that build; anything else, a plain ".beta" or ".pro"
    // build included, sends to the base identifier. Options: 0x200 (without activation) when
    // `background`, 0x20000 otherwise. Answers what the workspace reports.
    static bool LaunchCommands(const QList<Url>& urls, bool background);
    // The identifier LaunchCommands sends to, for a given bundle identifier of this program.
    static QString LaunchTargetForBundleIdentifier(const QString& bundleIdentifier);
};

} // namespace corvina
