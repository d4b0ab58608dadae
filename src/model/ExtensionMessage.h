#pragma once

#include "ExtensionAddress.h"
#include "platform/AtomicProperty.h"
#include "platform/LazyPart.h"
#include "platform/MutableList.h"
#include "platform/Object.h"
#include "requestutils/Url.h"

#include <QByteArray>
#include <QDateTime>
#include <QImage>
#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <optional>

namespace corvina {

class PlistNode;
class ExtensionMessage;
using ExtensionMessagePtr = std::shared_ptr<ExtensionMessage>;
using ExtensionMessageList = QList<ExtensionMessagePtr>;

// A mail message, as the mail application hands it to its extensions (one entry of a snapshot) or
// as an extension composes it.
//
// `unread` and `folderStandardId` are boxed numbers: a QVariant holding qint64, double or bool as
// the mail application wrote it, or null. `attachments` holds file paths as QString, or file QUrls
// whose path is used.
class ExtensionMessage : public Object {
public:
    // An empty composing record: bodies "", the four lists new and empty, everything else null.
    static ExtensionMessagePtr init();

    // Builds a record from one message dictionary: "subject" (default: the translated
    // "No subject"), "messageId", "from", "account", "folder" (default ""), "folderStid" and
    // "isUnread" (default 0), "date" (seconds since 1970 read as a single-precision number, so a
    // present-day time is rounded to a multiple of 128 seconds; absent is 1970-01-01 UTC), the
    // display text of that date, and the Base64 "avatar" text, kept to be decoded into an image
    // on the first call of image() (see there). All in one guarded block: a value of the wrong
    // shape is logged as "ExtensionMessage initWithDictonary <error>" and the record keeps the
    // fields read before it, with the rest null and no defaults. The composing fields stay null.
    // Never returns null.
    static ExtensionMessagePtr initWithDictonary(const QVariant& dictionary);
    // The same record, read straight from a parsed property list's node: only the keys above are
    // converted, the rest of the dictionary is never copied. Any value, null or wrong type gives
    // what the QVariant form of the same node gives.
    static ExtensionMessagePtr initWithNode(const PlistNode& dictionary);

    // The "account" and "folder" texts of the last messages read, for the next ones to share when
    // their bytes are the same (a snapshot file holds one account's messages, from a few folders):
    // one text for many messages instead of one each. A few texts per key, replaced in turn, so
    // the look-up stays short whatever the file holds. One per reader, used by one thread.
    class RepeatedTexts {
    public:
        static constexpr int Kept = 8;
        struct Text {
            QByteArray bytes;
            QString text;
        };
        struct Recent {
            Text texts[Kept];
            int next = 0;
        };
        Recent account;
        Recent folder;
    };
    // initWithNode, sharing the repeated texts of `repeated` (and keeping this message's there).
    // The record is the one initWithNode(dictionary) gives.
    static ExtensionMessagePtr initWithNode(const PlistNode& dictionary, RepeatedTexts& repeated);

    // The date and the "folderStid" a record built from `dictionary` would have, without building
    // it: to pick the newest of many messages before building any. Where a value of the wrong
    // shape would stop the record's block, the date is invalid here (the record may have stopped
    // earlier and have none either); nothing is logged.
    struct SortKey {
        QDateTime date;
        QVariant folderStandardId;
    };
    static SortKey sortKeyOfNode(const PlistNode& dictionary);

    // Bounds of the "avatar" of a message dictionary. A sender's picture is shown 20 points wide,
    // so anything far larger is either a mistake or an attack: an avatar text longer than
    // MaximumAvatarTextBytes, or a picture of more than MaximumAvatarPixels, is not decoded, and the
    // record logs "ExtensionMessage avatar <reason>" (once, when the avatar is first looked at by
    // image() or hasAvatar()) and keeps no image. A picture is kept at most
    // KeptAvatarSide pixels on its longer side (three times the shown size), scaled down smoothly.
    static constexpr qsizetype MaximumAvatarTextBytes = 1024 * 1024;
    static constexpr qint64 MaximumAvatarPixels = 1024 * 1024;
    static constexpr int KeptAvatarSide = 64;

    QString description() const override; // "ExtensionMessage <subject>"

    // Message equality: the same record, or another ExtensionMessage (or subclass) for which
    // isEqualToModel holds. False for null and for other kinds of object.
    bool isEqual(const Object* other) const override;
    // Same record, or both `messageId` and both `account` texts equal (exact, case-sensitive) and
    // present. Nothing else is compared.
    bool isEqualToModel(const ExtensionMessage* other) const;

    // Whether `other` holds what this record holds of a snapshot, value for value: the fields a
    // snapshot fills (texts compared with their null or empty state, numbers with their type), the
    // same avatar text that neither has looked at yet (or no avatar on both), and no composing part
    // on either (a record already composed on, or whose avatar was decoded or refused, is never the
    // same as a fresh one). True for the record itself. Lets a new read keep the record already
    // held for a message that did not change, instead of a copy of it.
    bool hasSameSnapshotValues(const ExtensionMessage& other) const;

    // ---- composing: the body as HTML, and the compose URL that carries a message to the mail
    // application ("corvina://<command>?<query>")

    // The body as one HTML text, written back into the record, so that a second call renders the
    // result again (see the definition). HTML when `htmlBody` is present and is not empty or has no
    // plain body beside it: every attachment is appended as an inline image. Otherwise the plain
    // body with its line breaks as "<br>" and its links wrapped in anchors, or "" without either.
    // A plain body whose links would grow it without bound keeps the rest of its links unwrapped,
    // logging "ExtensionMessage renderHtml stopped after <n> of <m> links: <reason>".
    QString renderHtml();

    // The absolute text of every link in `text`, in order: web links with or without a scheme
    // ("http://" put in front where there was none) and e-mail addresses (as "mailto:").
    QStringList searchUrlsDetector(const QString& text) const;

    // The compose URL for this message under the command `commandName` ("compose"): the bodies,
    // subject, sender and account when not empty, "to", "cc" and "bcc" as their addresses each
    // followed by ";", and "attachment_<index>" for each attachment that is a path or a URL.
    // Nothing when the text made is no URL (a command name with a space, for instance).
    std::optional<Url> queryUrl(const QString& commandName) const;

    // A new composing record from a compose URL. Recipients come back as the texts `toString`,
    // `ccString` and `bccString` (the lists stay empty), attachments as paths in the order of their
    // keys' text; anything the URL lacks keeps the value of init(). Never null.
    static ExtensionMessagePtr ExtensionMessageWithUrl(const Url& url);

    // Appends `html` to `htmlBody` (an absent body counting as "") in one step, so that a text and a
    // link that arrive at the same moment from different threads are both kept.
    void appendHtmlBody(const QString& html);

private:
    // One lock for the fields a snapshot fills (a hundred thousand records are held at once).
    mutable QMutex m_fieldsLock;
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QString, subject, setSubject)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QString, account, setAccount)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QString, from, setFrom)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QString, messageId, setMessageId)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QString, folderPath, setFolderPath)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QString, dateString, setDateString)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QDateTime, date, setDate)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QVariant, unread, setUnread)
    CORVINA_ATOMIC_PROPERTY_UNDER(m_fieldsLock, QVariant, folderStandardId, setFolderStandardId)

public:
    // The composing fields: each getter and setter is atomic, as the properties above are. Null
    // (texts and lists alike) until set.
    QString plainBody() const;
    void setPlainBody(QString value);
    QString htmlBody() const;
    void setHtmlBody(QString value);
    MutableList<ExtensionAddressPtr> to() const;
    void setTo(MutableList<ExtensionAddressPtr> value);
    MutableList<ExtensionAddressPtr> cc() const;
    void setCc(MutableList<ExtensionAddressPtr> value);
    MutableList<ExtensionAddressPtr> bcc() const;
    void setBcc(MutableList<ExtensionAddressPtr> value);
    QString toString() const;
    void setToString(QString value);
    QString ccString() const;
    void setCcString(QString value);
    QString bccString() const;
    void setBccString(QString value);
    MutableList<QVariant> attachments() const;
    void setAttachments(MutableList<QVariant> value);

    // The sender's picture. A record read from a snapshot keeps the "avatar" text and decodes it
    // here, on the first call, so that only the rows that are drawn pay for their pictures; the
    // result (a null image for bytes that are no readable picture, or a refused one) is kept.
    QImage image() const;
    // Replaces the picture, and any avatar text not decoded yet.
    void setImage(QImage image);
    // Whether the record has an avatar, told without decoding its pixels: a picture was set, or
    // the avatar text is within its bound and holds Base64 of a picture whose header (PNG, JPEG,
    // ...) reads and declares a size within MaximumAvatarPixels. A picture whose pixels turn out to
    // be broken past a good header counts as an avatar here, though image() gives a null image and
    // a row shows the placeholder for it.
    bool hasAvatar() const;
    // Keeps a snapshot's Base64 avatar text, to be looked at by image() and hasAvatar() when asked.
    void setAvatarText(const QString& text);

    // out of line, as the parts they make and release are known only there
    ExtensionMessage();
    ~ExtensionMessage() override;
    ExtensionMessage(const ExtensionMessage&) = delete;
    ExtensionMessage& operator=(const ExtensionMessage&) = delete;

private:
    // The composing fields and the avatar live apart, each made by the first setter: a record read
    // from a snapshot never composes and mostly has no avatar, and without them (and with one lock
    // for its fields) it is 248 bytes instead of 616 (a listing or a reload holds a hundred
    // thousand records at once).
    struct Composing;
    LazyPart<Composing> m_composing;

    // The avatar text of the snapshot, and what was learned of it so far (Plausible: a picture
    // within the bound, as far as its header or the reader of its format tells; Unclear: nothing
    // that reads as one, yet left to image() to try). Under the part's lock.
    enum class AvatarState { None, Unchecked, Refused, Plausible, Unclear, Decoded };
    struct Avatar {
        QMutex lock;
        // Base64 is ASCII: kept in one byte a character, half what the text takes
        QByteArray text;
        AvatarState state = AvatarState::None;
        // The decoded picture, null for none. Held by a pointer made where pictures are decoded
        // (ExtensionMessageImage.cpp) on purpose: the rest of the record then uses no part of Qt
        // Gui, and a program that only lists mail (corvina-today --list) links none of it.
        std::shared_ptr<const QImage> image;
    };
    static AvatarState checkAvatarLocked(Avatar& avatar);
    // Both without an avatar, or both with the same avatar text not looked at yet.
    bool sameUncheckedAvatar(const ExtensionMessage& other) const;
    LazyPart<Avatar> m_avatar;
};

} // namespace corvina
