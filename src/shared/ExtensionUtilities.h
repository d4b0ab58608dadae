#pragma once

#include "model/ExtensionAccount.h"
#include "model/ExtensionAddress.h"
#include "model/ExtensionGroup.h"
#include "model/ExtensionMessage.h"
#include "platform/ExtensionContext.h"
#include "requestutils/Url.h"

#include <QList>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantList>
#include <functional>
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
    // A file that is there but refused (over a bound of the reader, no property list, no array at
    // the top) is logged as "Accounts error deserialize <reason>", and `refusal`, when given, set
    // to the reason; it is left as it is otherwise.
    static QList<ExtensionAccountPtr> Accounts();
    static QList<ExtensionAccountPtr> Accounts(QString* refusal);

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
    // LaunchCommandForMessages for the user interface, which must never wait on another program:
    // the notifications go out on this thread, all before this returns, exactly as there; the
    // URLs are then opened on the workspace's own thread (Workspace::openURLsInBackground, in the
    // order sent, each bounded as the workspace bounds it). `done`, when given, gets the launch's
    // answer on that thread. Returns whether there was a URL to send; false means nothing was
    // posted or launched and `done` is not called.
    static bool LaunchCommandForMessagesWithoutWaiting(const ExtensionMessageList& messages,
                                                       const QString& commandName, bool background,
                                                       std::function<void(bool)> done = {});
    // The identifier LaunchCommands sends to, for a given bundle identifier of this program.
    static QString LaunchTargetForBundleIdentifier(const QString& bundleIdentifier);

    // ---- staging: files and images an extension hands to the mail application are placed in a
    // staging folder, the data folder + one folder name chosen by the caller. All three take the
    // exclusive lock of that folder (see FileCoordinator), which the mail application honours.

    // Empties the staging folder `folder` (removes it with its content, then creates it again).
    // One error text is carried through both steps on purpose: when the removal fails, as on the
    // first use when there is nothing to remove, the failure is logged by the delete line and
    // again by the create line, even if the creation then succeeds. Host authors grep for both.
    // `folder` must be a staging folder name (see StagingFolderNameProblem; others are refused
    // with the "[***ERROR***] shareInit <reason>" line and nothing touched), so that a bad name can
    // never empty the data folder itself nor remove one of the mail application's items. A data
    // folder that is a symbolic link is refused the same way: staging never works through one.
    static void ShareInit(const QString& folder);

    // Why `folder` cannot name a staging folder, or nothing when it can. A staging folder name is
    // one plain path component ("", ".", ".." and names with "/" or NUL are not) that is none of
    // the mail application's own items in the data folder: not "Today", "Accounts.plist" or
    // "Contacts" (in any case of letters) and no hidden name (lock sidecars and temporary files
    // begin with "."). The one rule for the staging operations and for callers that check a name
    // before they start.
    static std::optional<QString> StagingFolderNameProblem(const QString& folder);

    // Copies each source file (an element that is a text: a path) into the staging folder under
    // its own name, made unique with GetGoodPath, and answers the new paths in input order. A copy
    // that fails is logged ("[***ERROR***] Error writing file shareFiles <error>") and skipped.
    // An element that is no text, or a path holding a NUL character, stops the loop with
    // "[***ERROR***] Exception shareFiles <reason>"; what was staged before stays staged and in
    // the answer. The staging folder is not created here: call ShareInit first.
    static QStringList ShareFiles(const QString& folder, const QVariantList& paths);

    // Writes each blob (an element holding a QByteArray) into the staging folder as "image.png",
    // "image_1.png", ..., whatever its content, each through a temporary file renamed into place.
    // Lines and effects as for ShareFiles, with "shareDatas" in them.
    static QStringList ShareDatas(const QString& folder, const QVariantList& datas);

    // ---- intake: one share request turned into a draft message

    // Called once, from a background thread, with the draft and an empty second argument.
    using GetItemCompletion = std::function<void(const ExtensionMessagePtr& message, const QVariant& extra)>;

    // Returns at once; on a background thread builds a draft (ExtensionMessage::init) from the
    // context's input items: each non-empty content text as an HTML document followed by "<br/>",
    // each web link (public.url, not a file) as "<a href="URL">URL</a>" with `subject` set to its
    // item's title, each file URL staged with ShareFiles and each image (public.image, data or
    // QImage) re-encoded as PNG and staged with ShareDatas into the staging folder `service`,
    // their paths appended to `attachments` in completion order under the message's lock.
    // The staging folder must have been prepared with ShareInit.
    //
    // The worker polls every 0.1 s until every attachment was handled, at most 101 times: even a
    // request with nothing to load completes after one pause, and an attachment of any other
    // type is never counted as handled, so such a request completes only after the full wait of
    // about 10.1 s. Deliberate: the mail application's share extensions are timed on this.
    // Loads still running after the wait may change the message after the completion.
    static void GetItemForExtension(const ExtensionContextPtr& context, const QString& service,
                                    GetItemCompletion completion);
};

} // namespace corvina
