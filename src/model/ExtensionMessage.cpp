#include "ExtensionMessage.h"

#include "ExtensionDate.h"
#include "platform/Exception.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistValue.h"

#include <cmath>

namespace corvina {

namespace {

QVariant numberOrZero(const QVariant& dictionary, const QString& key) {
    const QVariant value = PlistValue::numberValue(PlistValue::objectForKey(dictionary, key));
    return value.isValid() ? value : QVariant::fromValue<qint64>(0);
}

// Seconds past which a point in time means nothing to a mail reader (and past which the
// millisecond arithmetic below would overflow): about three million years either way.
constexpr double LargestSeconds = 1e14;

QDateTime dateFromSeconds(const QVariant& value) {
    // Deliberately single precision: the mail application's timestamps go through a 32-bit float,
    // which rounds present-day times to a multiple of 128 seconds. Rows and list order rely on
    // the rounded value, so it is kept.
    const double seconds = static_cast<double>(PlistValue::floatValue(value));
    if (!std::isfinite(seconds) || std::fabs(seconds) > LargestSeconds) {
        throw Exception(QStringLiteral("date: %1 seconds is out of range").arg(seconds));
    }
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(seconds * 1000.0)), Qt::UTC);
}

} // namespace

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

ExtensionMessagePtr ExtensionMessage::initWithDictonary(const QVariant& dictionary) {
    // Not built on init(): a record read from a snapshot keeps its composing fields null.
    auto message = std::make_shared<ExtensionMessage>();
    try {
        message->setSubject(PlistValue::stringForKey(dictionary, QStringLiteral("subject"),
                                                     Localization::text(QStringLiteral("No subject"))));
        message->setMessageId(
            PlistValue::stringForKey(dictionary, QStringLiteral("messageId"), emptyString()));
        message->setFrom(PlistValue::stringForKey(dictionary, QStringLiteral("from"), emptyString()));
        message->setAccount(PlistValue::stringForKey(dictionary, QStringLiteral("account"), emptyString()));
        message->setFolderPath(PlistValue::stringForKey(dictionary, QStringLiteral("folder"), emptyString()));
        message->setFolderStandardId(numberOrZero(dictionary, QStringLiteral("folderStid")));
        message->setUnread(numberOrZero(dictionary, QStringLiteral("isUnread")));
        // a missing "date" reads as 0 seconds: 1970-01-01 00:00:00 UTC
        message->setDate(dateFromSeconds(PlistValue::objectForKey(dictionary, QStringLiteral("date"))));
        message->setDateString(ExtensionDate::shared().centralDate(message->date()));
        const QVariant avatar = PlistValue::objectForKey(dictionary, QStringLiteral("avatar"));
        if (avatar.isValid()) {
            // characters outside the Base64 alphabet (line breaks and the like) are skipped; bytes
            // that are no readable image leave the avatar empty, silently
            const QByteArray bytes =
                QByteArray::fromBase64(PlistValue::textValue(avatar, "avatar").toLatin1());
            if (!bytes.isEmpty()) {
                message->setImage(QImage::fromData(bytes));
            }
        }
    } catch (const Exception& error) {
        Log::write(QStringLiteral("ExtensionMessage initWithDictonary %@"), {error.description()});
    }
    return message;
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

} // namespace corvina
