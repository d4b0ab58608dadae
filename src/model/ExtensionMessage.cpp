#include "ExtensionMessage.h"

#include "CommandURL.h"
#include "ExtensionDate.h"
#include "SnapshotFormat.h"
#include "platform/Exception.h"
#include "platform/LinkDetector.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PictureHeader.h"
#include "platform/PlistNode.h"
#include "platform/PlistValue.h"
#include "requestutils/RequestUtils.h"

#include <QUrl>
#include <cmath>
#include <functional>
#include <utility>

namespace corvina {

namespace {

// Every number of seconds whose milliseconds fit the date type's 64-bit count is a date, however far
// from today (about 292 million years either way): the record always gets the date it was given.
// Only what no date can hold (infinities, NaN, beyond that count) is out of range.
constexpr double LargestMilliseconds = 9223372036854775808.0; // 2^63, exactly representable

QDateTime dateFromSeconds(const QVariant& value) {
    // Deliberately single precision: the mail application's timestamps go through a 32-bit float,
    // which rounds present-day times to a multiple of 128 seconds. Rows and list order rely on
    // the rounded value, so it is kept.
    const double seconds = static_cast<double>(PlistValue::floatValue(value));
    const double milliseconds = seconds * 1000.0;
    if (!std::isfinite(milliseconds) || std::fabs(milliseconds) >= LargestMilliseconds) {
        throw Exception(QStringLiteral("date: %1 seconds is out of range").arg(seconds));
    }
    QDateTime date = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(milliseconds)), Qt::UTC);
    if (!date.isValid()) {
        throw Exception(QStringLiteral("date: %1 seconds is out of range").arg(seconds));
    }
    return date;
}

// Why an avatar text over its bound is not decoded; null when within it.
QString avatarTextRefusal(const QByteArray& text) {
    if (text.size() > ExtensionMessage::MaximumAvatarTextBytes) {
        return QStringLiteral("text of %1 characters is longer than %2")
            .arg(text.size())
            .arg(ExtensionMessage::MaximumAvatarTextBytes);
    }
    return QString();
}

// The keys of a message dictionary, in the order the mail application writes them: the look-up by
// node tries the key after the last one found first (see PlistNode::valuesForKeys).
using MessageKey = SnapshotFormat::MessageKey;

QString textOr(const QVariant& value, const QString& fallback) {
    const QString text = PlistValue::stringValue(value);
    return text.isNull() ? fallback : text;
}

QVariant numberOrZero(const QVariant& value) {
    const QVariant number = PlistValue::numberValue(value);
    return number.isValid() ? number : QVariant::fromValue<qint64>(0);
}

// Fills a record from a message dictionary, whose values `valueOf(key)` gives one by one (null
// where absent; it raises where the dictionary is none). One guarded block: whatever raises leaves
// the fields before it set and the rest null.
template <typename ValueOf> void fillFromDictionary(ExtensionMessage& message, ValueOf valueOf) {
    try {
        const QVariant subject = valueOf(MessageKey::Subject);
        const QString subjectText = PlistValue::stringValue(subject);
        // the translation is looked up only for the messages that need it
        message.setSubject(subjectText.isNull() ? Localization::text(QStringLiteral("No subject"))
                                                : subjectText);
        message.setMessageId(textOr(valueOf(MessageKey::MessageId), Object::emptyString()));
        message.setFrom(textOr(valueOf(MessageKey::From), Object::emptyString()));
        message.setAccount(textOr(valueOf(MessageKey::Account), Object::emptyString()));
        message.setFolderPath(textOr(valueOf(MessageKey::Folder), Object::emptyString()));
        message.setFolderStandardId(numberOrZero(valueOf(MessageKey::FolderStid)));
        message.setUnread(numberOrZero(valueOf(MessageKey::IsUnread)));
        // a missing "date" reads as 0 seconds: 1970-01-01 00:00:00 UTC
        message.setDate(dateFromSeconds(valueOf(MessageKey::Date)));
        message.setDateString(ExtensionDate::shared().centralDate(message.date()));
        const QVariant avatar = valueOf(MessageKey::Avatar);
        if (avatar.isValid()) {
            message.setAvatarText(PlistValue::textValue(
                avatar, SnapshotFormat::messageKeys[static_cast<int>(MessageKey::Avatar)]));
        }
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionMessage initWithDictonary %@"), {error.description()});
    }
}

const QString AttachmentKeyPrefix = QStringLiteral("attachment_");

// Bounds of the link wrapping in renderHtml: the rendered plain body may grow to 16 times its size
// plus a mebi-character, and the substitutions may search 2^30 characters in all (each link's
// search counted once; about a second at most). A mebibyte of text with five hundred distinct
// links stays inside both.
constexpr qint64 RenderGrowthFactor = 16;
constexpr qint64 RenderGrowthSlack = qint64(1) << 20;
constexpr qint64 RenderSearchBudget = qint64(1) << 30;

// The path an attachment stands for: a string is one; a URL (Qt's or ours) gives its path with the
// escapes decoded. Nothing for any other kind of element.
std::optional<QString> attachmentPath(const QVariant& element) {
    if (element.metaType() == QMetaType::fromType<QString>()) {
        return element.toString();
    }
    if (element.metaType() == QMetaType::fromType<QUrl>()) {
        return element.toUrl().path(QUrl::FullyDecoded);
    }
    if (element.metaType() == QMetaType::fromType<Url>()) {
        return element.value<Url>().filePath();
    }
    return std::nullopt;
}

// Each recipient's address followed by ";", so a list of two reads "a@x;b@y;". A missing address
// shows as "(null)", as in a description.
QString joinedRecipients(const MutableList<ExtensionAddressPtr>& recipients) {
    QString joined = Object::emptyString();
    if (!recipients) {
        return joined;
    }
    for (const ExtensionAddressPtr& address : QList<ExtensionAddressPtr>(*recipients)) {
        joined += Object::describe(address ? address->mail() : QString()) + QLatin1Char(';');
    }
    return joined;
}

} // namespace

struct ExtensionMessage::Composing {
    AtomicProperty<QString> plainBody;
    AtomicProperty<QString> htmlBody;
    AtomicProperty<MutableList<ExtensionAddressPtr>> to;
    AtomicProperty<MutableList<ExtensionAddressPtr>> cc;
    AtomicProperty<MutableList<ExtensionAddressPtr>> bcc;
    AtomicProperty<QString> toString;
    AtomicProperty<QString> ccString;
    AtomicProperty<QString> bccString;
    AtomicProperty<MutableList<QVariant>> attachments;
};

ExtensionMessage::ExtensionMessage() = default;
ExtensionMessage::~ExtensionMessage() = default;

// A getter answers the null value while no setter has made the part.
#define CORVINA_COMPOSING_FIELD(Type, getter, setter)                                                        \
    Type ExtensionMessage::getter() const {                                                                  \
        const Composing* part = m_composing.ifMade();                                                        \
        return part != nullptr ? part->getter.get() : Type();                                                \
    }                                                                                                        \
    void ExtensionMessage::setter(Type value) {                                                              \
        m_composing.made().getter.set(std::move(value));                                                     \
    }

CORVINA_COMPOSING_FIELD(QString, plainBody, setPlainBody)
CORVINA_COMPOSING_FIELD(QString, htmlBody, setHtmlBody)
CORVINA_COMPOSING_FIELD(MutableList<ExtensionAddressPtr>, to, setTo)
CORVINA_COMPOSING_FIELD(MutableList<ExtensionAddressPtr>, cc, setCc)
CORVINA_COMPOSING_FIELD(MutableList<ExtensionAddressPtr>, bcc, setBcc)
CORVINA_COMPOSING_FIELD(QString, toString, setToString)
CORVINA_COMPOSING_FIELD(QString, ccString, setCcString)
CORVINA_COMPOSING_FIELD(QString, bccString, setBccString)
CORVINA_COMPOSING_FIELD(MutableList<QVariant>, attachments, setAttachments)

#undef CORVINA_COMPOSING_FIELD

ExtensionMessagePtr ExtensionMessage::init() {
    auto message = std::make_shared<ExtensionMessage>();
    message->setHtmlBody(emptyString());
    message->setPlainBody(emptyString());
    message->setTo(makeMutableList<ExtensionAddressPtr>());
    message->setCc(makeMutableList<ExtensionAddressPtr>());
    message->setBcc(makeMutableList<ExtensionAddressPtr>());
    message->setAttachments(makeMutableList<QVariant>());
    return message;
}

void ExtensionMessage::appendHtmlBody(const QString& html) {
    m_composing.made().htmlBody.update(
        [&html](const QString& body) { return (body.isNull() ? emptyString() : body) + html; });
}

ExtensionMessagePtr ExtensionMessage::initWithDictonary(const QVariant& dictionary) {
    // Not built on init(): a record read from a snapshot keeps its composing fields null.
    auto message = std::make_shared<ExtensionMessage>();
    fillFromDictionary(*message, [&dictionary](MessageKey key) {
        return PlistValue::objectForKey(dictionary, SnapshotFormat::key(key));
    });
    return message;
}

ExtensionMessagePtr ExtensionMessage::initWithNode(const PlistNode& dictionary) {
    RepeatedTexts none;
    return initWithNode(dictionary, none);
}

namespace {

// The value of a text node, shared with a recent one of the same bytes. Empty texts and other
// kinds of value take the ordinary way (nothing to share, or an error to raise there).
QVariant repeatedText(const PlistNode& node, ExtensionMessage::RepeatedTexts::Recent& recent) {
    const QByteArrayView bytes = node.textBytes();
    if (bytes.isEmpty()) {
        return node.toVariant();
    }
    for (const ExtensionMessage::RepeatedTexts::Text& kept : recent.texts) {
        if (kept.bytes == bytes) {
            return kept.text;
        }
    }
    QVariant value = node.toVariant();
    ExtensionMessage::RepeatedTexts::Text& slot = recent.texts[recent.next];
    slot.bytes = bytes.toByteArray();
    slot.text = value.toString();
    recent.next = (recent.next + 1) % ExtensionMessage::RepeatedTexts::Kept;
    return value;
}

} // namespace

ExtensionMessagePtr ExtensionMessage::initWithNode(const PlistNode& dictionary, RepeatedTexts& repeated) {
    if (!dictionary.isDictionary()) {
        // no dictionary: the error names the kind of value, as the Qt form's does
        return initWithDictonary(dictionary.toVariant());
    }
    PlistNode values[SnapshotFormat::MessageKeyCount];
    dictionary.valuesForKeys(SnapshotFormat::messageKeys, SnapshotFormat::MessageKeyCount, values);
    auto message = std::make_shared<ExtensionMessage>();
    fillFromDictionary(*message, [&values, &repeated](MessageKey key) {
        switch (key) {
        case MessageKey::Account:
            return repeatedText(values[static_cast<int>(key)], repeated.account);
        case MessageKey::Folder:
            return repeatedText(values[static_cast<int>(key)], repeated.folder);
        default:
            return values[static_cast<int>(key)].toVariant();
        }
    });
    return message;
}

ExtensionMessage::SortKey ExtensionMessage::sortKeyOfNode(const PlistNode& dictionary) {
    SortKey key;
    if (!dictionary.isDictionary()) {
        return key;
    }
    PlistNode values[SnapshotFormat::MessageKeyCount];
    dictionary.valuesForKeys(SnapshotFormat::messageKeys, SnapshotFormat::MessageKeyCount, values);
    try {
        // the same conversions as the record's, in the same order
        key.folderStandardId = numberOrZero(values[static_cast<int>(MessageKey::FolderStid)].toVariant());
        key.date = dateFromSeconds(values[static_cast<int>(MessageKey::Date)].toVariant());
    } catch (const Exception&) {
        key.date = QDateTime();
    }
    return key;
}

void ExtensionMessage::setAvatarText(const QString& text) {
    Avatar& avatar = m_avatar.made();
    QMutexLocker lock(&avatar.lock);
    // only the Base64 alphabet counts, and every character keeps its place: the same bytes as
    // converting when decoding
    avatar.text = text.toLatin1();
    avatar.state = AvatarState::Unchecked;
    avatar.image.reset();
}

ExtensionMessage::AvatarState ExtensionMessage::checkAvatarLocked(Avatar& avatar) {
    if (avatar.state != AvatarState::Unchecked) {
        return avatar.state;
    }
    const QString refusal = avatarTextRefusal(avatar.text);
    if (!refusal.isNull()) {
        Log::write(QStringLiteral("ExtensionMessage avatar %@"), {refusal});
        avatar.text.clear();
        return avatar.state = AvatarState::Refused;
    }
    // characters outside the Base64 alphabet (line breaks and the like) are skipped
    const QByteArray bytes = QByteArray::fromBase64(avatar.text);
    if (bytes.isEmpty()) {
        avatar.text.clear();
        return avatar.state = AvatarState::Refused;
    }
    const PictureHeader::Header header = PictureHeader::inspect(bytes, MaximumAvatarPixels);
    if (!header.refusal.isEmpty()) {
        Log::write(QStringLiteral("ExtensionMessage avatar %@"), {header.refusal});
        avatar.text.clear();
        return avatar.state = AvatarState::Refused;
    }
    return avatar.state = header.readable ? AvatarState::Plausible : AvatarState::Unclear;
}

bool ExtensionMessage::hasAvatar() const {
    Avatar* avatar = m_avatar.ifMade();
    if (avatar == nullptr) {
        return false;
    }
    QMutexLocker lock(&avatar->lock);
    const AvatarState state = checkAvatarLocked(*avatar);
    if (state == AvatarState::Plausible) {
        return true;
    }
    // Unclear: the reader of its format found no picture (a format whose header tells no size was
    // decoded by it to tell)
    return state == AvatarState::Decoded && avatar->image != nullptr;
}

QString ExtensionMessage::description() const {
    return QStringLiteral("ExtensionMessage ") + describe(subject());
}

bool ExtensionMessage::isEqual(const Object* other) const {
    if (other == this) {
        return true;
    }
    const auto* message = dynamic_cast<const ExtensionMessage*>(other);
    return message != nullptr && isEqualToModel(message);
}

namespace {

bool sameText(const QString& a, const QString& b) {
    return a.isNull() == b.isNull() && a == b;
}

bool sameNumber(const QVariant& a, const QVariant& b) {
    return a.metaType() == b.metaType() && a == b;
}

bool sameDate(const QDateTime& a, const QDateTime& b) {
    return a.isValid() == b.isValid() && (!a.isValid() || (a.timeSpec() == b.timeSpec() && a == b));
}

} // namespace

bool ExtensionMessage::sameUncheckedAvatar(const ExtensionMessage& other) const {
    Avatar* mine = m_avatar.ifMade();
    Avatar* theirs = other.m_avatar.ifMade();
    if (mine == nullptr || theirs == nullptr) {
        return mine == theirs;
    }
    // an avatar already looked at has logged what it had to and dropped its text: it is no longer
    // what a fresh read holds
    QByteArray text;
    {
        QMutexLocker lock(&theirs->lock);
        if (theirs->state != AvatarState::Unchecked) {
            return false;
        }
        text = theirs->text;
    }
    QMutexLocker lock(&mine->lock);
    return mine->state == AvatarState::Unchecked && mine->text == text;
}

bool ExtensionMessage::hasSameSnapshotValues(const ExtensionMessage& other) const {
    if (&other == this) {
        return true;
    }
    if (m_composing.ifMade() != nullptr || other.m_composing.ifMade() != nullptr ||
        !sameUncheckedAvatar(other)) {
        return false;
    }
    // Both locks at once, always the one at the lower address first: two threads comparing the
    // same two records the other way round take them in the same order, and nothing else ever
    // holds two records' locks. In place: no field is copied.
    QMutex* first = &m_fieldsLock;
    QMutex* second = &other.m_fieldsLock;
    if (std::less<const QMutex*>()(second, first)) {
        std::swap(first, second);
    }
    QMutexLocker firstLock(first);
    QMutexLocker secondLock(second);
    return sameText(m_messageId, other.m_messageId) && sameText(m_account, other.m_account) &&
           sameText(m_subject, other.m_subject) && sameText(m_from, other.m_from) &&
           sameText(m_folderPath, other.m_folderPath) && sameText(m_dateString, other.m_dateString) &&
           sameDate(m_date, other.m_date) && sameNumber(m_unread, other.m_unread) &&
           sameNumber(m_folderStandardId, other.m_folderStandardId);
}

bool ExtensionMessage::isEqualToModel(const ExtensionMessage* other) const {
    if (other == this) {
        return true;
    }
    if (!other) {
        return false;
    }
    const QString id = messageId();
    const QString otherId = other->messageId();
    const QString acc = account();
    const QString otherAcc = other->account();
    // a missing identifier or account matches nothing, not even another missing one
    return !id.isNull() && !otherId.isNull() && id == otherId && !acc.isNull() && !otherAcc.isNull() &&
           acc == otherAcc;
}

QString ExtensionMessage::renderHtml() {
    const QString html = htmlBody();
    const QString plain = plainBody();
    // The result is stored back into the record on purpose: a second call appends the images once
    // more, or wraps the wrapped links again. Callers render a message once, just before handing it
    // on, and the mail application expects exactly this text.
    if (!html.isNull() && (!html.isEmpty() || plain.isEmpty())) {
        QString body = html;
        const MutableList<QVariant> list = attachments();
        for (const QVariant& element : list ? QList<QVariant>(*list) : QList<QVariant>()) {
            const QString path = attachmentPath(element).value_or(element.toString());
            body += QStringLiteral("<img src=\"file://") + path + QStringLiteral("\"/><br/>");
        }
        setHtmlBody(body);
        return body;
    }
    if (plain.isEmpty()) {
        return emptyString();
    }
    // A plain body shows no attachments.
    QString body = plain;
    body.replace(QLatin1Char('\n'), QLatin1String("<br>"));
    setPlainBody(body);
    // Links are wrapped by replacing their text everywhere in the body, one link after the other.
    // So a link that occurs twice, or that begins a longer link, is wrapped more than once, and a
    // link written without a scheme stays as it is (its absolute text with "http://" in front is
    // not in the body). Both are deliberate: the mail application expects bodies made this way.
    //
    // Every wrapping doubles each occurrence of its link, so a link repeated n times grows the body
    // by a factor of about 2^n, and every link searches the whole body. Past the bounds above (far
    // beyond any real message) the remaining links are left as they are and a line is logged, so
    // that a hostile body can neither hang the caller nor exhaust its memory.
    const QStringList links = searchUrlsDetector(body);
    const qint64 sizeLimit = qint64(body.size()) * RenderGrowthFactor + RenderGrowthSlack;
    qint64 searched = 0;
    for (qsizetype i = 0; i < links.size(); ++i) {
        const QString& link = links.at(i);
        const QString wrapped =
            QStringLiteral("<a href='") + link + QStringLiteral("'>") + link + QStringLiteral("</a>");
        searched += body.size();
        QString stop;
        if (searched > RenderSearchBudget) {
            stop = QStringLiteral("more than %1 characters searched").arg(RenderSearchBudget);
        } else if (body.size() + qint64(body.count(link)) * (wrapped.size() - link.size()) > sizeLimit) {
            stop = QStringLiteral("the body would grow past %1 characters").arg(sizeLimit);
        }
        if (!stop.isNull()) {
            Log::write(
                QStringLiteral("ExtensionMessage renderHtml %@"),
                {QStringLiteral("stopped after %1 of %2 links: %3").arg(i).arg(links.size()).arg(stop)});
            break;
        }
        body.replace(link, wrapped);
        setPlainBody(body);
    }
    return body;
}

QStringList ExtensionMessage::searchUrlsDetector(const QString& text) const {
    QStringList links;
    for (const LinkDetector::Match& match : LinkDetector::matches(text)) {
        links.append(match.url);
    }
    return links;
}

std::optional<Url> ExtensionMessage::queryUrl(const QString& commandName) const {
    RequestUtils::Parameters parameters;
    const auto addText = [&parameters](const QString& key, const QString& value) {
        if (!value.isEmpty()) {
            parameters.insert(key, value);
        }
    };
    addText(QStringLiteral("plainBody"), plainBody());
    addText(QStringLiteral("htmlBody"), htmlBody());
    addText(QStringLiteral("subject"), subject());
    addText(QStringLiteral("from"), from());
    addText(QStringLiteral("account"), account());
    addText(QStringLiteral("bcc"), joinedRecipients(bcc()));
    addText(QStringLiteral("cc"), joinedRecipients(cc()));
    addText(QStringLiteral("to"), joinedRecipients(to()));
    if (const MutableList<QVariant> list = attachments()) {
        const QList<QVariant> elements = *list;
        for (qsizetype i = 0; i < elements.size(); ++i) {
            // An element of another kind is skipped together with its index, so the keys can have
            // gaps (attachment_0, attachment_2); the reader only needs them to be distinct.
            if (const std::optional<QString> path = attachmentPath(elements.at(i))) {
                parameters.insert(AttachmentKeyPrefix + QString::number(i), *path);
            }
        }
    }
    const QString query = RequestUtils::URLQueryWithParameters(parameters);
    return Url::URLWithString(CommandURL::prefix + describe(commandName) + QLatin1Char('?') + query);
}

ExtensionMessagePtr ExtensionMessage::ExtensionMessageWithUrl(const Url& url) {
    // init() makes the four lists new and empty; whatever the URL lacks keeps its value from there.
    ExtensionMessagePtr message = init();
    const RequestUtils::Parameters parameters = RequestUtils::URLQueryParameters(url.absoluteString());
    const MutableList<QVariant> attachmentList = message->attachments();
    // The parameters come in the order of their keys' text, so attachment_10 comes before
    // attachment_2: the numbers only keep the keys apart, and the order is kept as the format's.
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        const QString& key = it.key();
        const QString value = it.value().toString();
        if (key == QLatin1String("from")) {
            message->setFrom(value);
        } else if (key == QLatin1String("account")) {
            message->setAccount(value);
        } else if (key == QLatin1String("subject")) {
            message->setSubject(value);
        } else if (key == QLatin1String("htmlBody")) {
            message->setHtmlBody(value);
        } else if (key == QLatin1String("plainBody")) {
            message->setPlainBody(value);
        } else if (key == QLatin1String("to")) {
            // Recipients stay one text, trailing ";" included, and are not split into records:
            // the lists `to`, `cc` and `bcc` stay empty. The format has always been read this way.
            message->setToString(value);
        } else if (key == QLatin1String("cc")) {
            message->setCcString(value);
        } else if (key == QLatin1String("bcc")) {
            message->setBccString(value);
        } else if (key.startsWith(AttachmentKeyPrefix)) {
            attachmentList->append(value);
        }
    }
    return message;
}

} // namespace corvina
