#pragma once

#include <QLatin1String>
#include <QString>
#include <QVariant>

namespace corvina {

// The words and numbers of the shared folder's files that their writer and their reader must spell
// alike, in one place: the mail bridge writes them (its account sync and snapshot writer), the
// widget reads them (the message and account records, the snapshot loader, the list filter, the
// new-mail tracker). Other mail applications write the same files (docs/shared-container.md), so
// each text and number here is the file format itself: none of them may change.
//
// Each kind of dictionary has its keys as an enum, whose order is that of the key texts: the enum
// indexes the texts, and the texts go to PlistNode::valuesForKeys as they are.
class SnapshotFormat {
public:
    // A snapshot file (Today/<mail>/<file>) holds one dictionary, the envelope.
    enum class EnvelopeKey { Folder, Account, Data, Count };
    static constexpr int EnvelopeKeyCount = static_cast<int>(EnvelopeKey::Count);
    static constexpr const char* envelopeKeys[EnvelopeKeyCount] = {"folder", "account", "data"};

    // One message dictionary, an element of the envelope's "data". The keys are in the order the
    // mail application writes them: a reader that finds one tries the key after it first.
    enum class MessageKey {
        Subject,
        MessageId,
        From,
        Account,
        Folder,
        FolderStid,
        IsUnread,
        Date,
        Avatar,
        Count
    };
    static constexpr int MessageKeyCount = static_cast<int>(MessageKey::Count);
    static constexpr const char* messageKeys[MessageKeyCount] = {
        "subject", "messageId", "from", "account", "folder", "folderStid", "isUnread", "date", "avatar"};

    // One account dictionary, an element of Accounts.plist, which names the accounts' folders.
    enum class AccountKey { Mail, Name, Type, Enabled, Aliases, Count };
    static constexpr int AccountKeyCount = static_cast<int>(AccountKey::Count);
    static constexpr const char* accountKeys[AccountKeyCount] = {"mail", "name", "type", "enabled",
                                                                 "aliases"};

    // A key's text, as a dictionary of Qt values holds it.
    static QString key(EnvelopeKey which) { return QLatin1String(envelopeKeys[static_cast<int>(which)]); }
    static QString key(MessageKey which) { return QLatin1String(messageKeys[static_cast<int>(which)]); }
    static QString key(AccountKey which) { return QLatin1String(accountKeys[static_cast<int>(which)]); }

    // Which list a message feeds: its "folderStid", the kind of standard folder it comes from. The
    // widget's header picks the Inbox, To Do or Memo list by it; Fourth has no header button and is
    // shown only for the stored choice 4, which the widget never writes. It is kept deliberately:
    // a host may write it, and that setting shows it. Any other number shows only in the unfiltered
    // list.
    enum class ListKind : int { Inbox = 1, ToDo = 11, Memo = 12, Fourth = 13 };
    // The number a message dictionary holds for `kind`.
    static constexpr int number(ListKind kind) { return static_cast<int>(kind); }
    // Whether a record's "folderStid" value is `kind`: numeric equality of the value read as a
    // boxed number (PlistValue::numberValue), so 1, 1.0 and the text "1" are the Inbox alike; a
    // value that is absent or no number is of no kind.
    static bool isOfKind(const QVariant& folderStid, ListKind kind);
};

} // namespace corvina
