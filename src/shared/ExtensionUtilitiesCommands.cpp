// The commands about messages that the widget sends to the mail application (command URLs opened
// in it). In a file of their own: they open URLs through the desktop (D-Bus), which a program that
// only reads the shared folder (corvina-today --list) then does not link.

#include "ConstVars.h"
#include "ExtensionUtilities.h"
#include "model/CommandURL.h"
#include "platform/Bundle.h"
#include "platform/NotificationCenter.h"
#include "platform/PlistValue.h"
#include "platform/Workspace.h"
#include "requestutils/RequestUtils.h"

#include <QLocale>

namespace corvina {
namespace {

// How a value shows in a command URL: absent is "(null)" (CommandURL::nullField), numbers in their
// shortest decimal form (11, 2.5), booleans as 1 or 0.
QString formatted(const QVariant& value) {
    if (value.isNull())
        return CommandURL::nullField;
    if (PlistValue::isString(value))
        return value.toString();
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float)
        return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    const QString text = PlistValue::stringValue(value);
    return text.isNull() ? CommandURL::nullField : text;
}

// A text field of a command URL: one the snapshot left out is sent as such.
QString formatted(const QString& text) {
    return text.isNull() ? CommandURL::nullField : text;
}

} // namespace

std::optional<Url> ExtensionUtilities::CommandURLForMessage(const ExtensionMessagePtr& message,
                                                            const QString& commandName) {
    const QString account = message->account();
    // The account is encoded, the message id deliberately not: the mail application reads the id
    // exactly as it stored it, and an id that no URL can hold means the message is not sent.
    const QString text = CommandURL::messageCommand(
        formatted(commandName),
        formatted(account.isNull() ? QString() : RequestUtils::URLEncodedString(account)),
        formatted(message->messageId()), formatted(message->folderStandardId()));
    return Url::URLWithString(text);
}

namespace {

// The command URLs of `messages`, each announced by ACTION_CALLED_EXTENSION as it is kept.
QList<Url> announcedCommandURLs(const ExtensionMessageList& messages, const QString& commandName) {
    QList<Url> urls;
    for (const ExtensionMessagePtr& message : messages) {
        if (!message)
            continue;
        std::optional<Url> url = ExtensionUtilities::CommandURLForMessage(message, commandName);
        if (!url)
            continue;
        NotificationCenter::defaultCenter().postNotificationName(
            ExtensionUtilities::ACTION_CALLED_EXTENSION,
            QVariantMap{{QStringLiteral("message"), QVariant::fromValue(message)},
                        {QStringLiteral("command"), commandName}});
        urls << *url;
    }
    return urls;
}

struct LaunchRequest {
    QStringList urls;
    QString target;
    quint32 options;
};

LaunchRequest launchRequest(const QList<Url>& urls, bool background) {
    LaunchRequest request;
    request.target = ExtensionUtilities::LaunchTargetForBundleIdentifier(Bundle::identifier());
    request.options =
        background ? Workspace::LaunchWithoutActivation : Workspace::LaunchAllowingClassicStartup;
    for (const Url& url : urls)
        request.urls << url.absoluteString();
    return request;
}

} // namespace

bool ExtensionUtilities::LaunchCommandForMessages(const ExtensionMessageList& messages,
                                                  const QString& commandName, bool background) {
    return LaunchCommands(announcedCommandURLs(messages, commandName), background);
}

bool ExtensionUtilities::LaunchCommandForMessagesWithoutWaiting(const ExtensionMessageList& messages,
                                                                const QString& commandName, bool background,
                                                                std::function<void(bool)> done) {
    const QList<Url> urls = announcedCommandURLs(messages, commandName);
    if (urls.isEmpty())
        return false;
    LaunchRequest request = launchRequest(urls, background);
    Workspace::openURLsInBackground(request.urls, request.target, request.options, std::move(done));
    return true;
}

QString ExtensionUtilities::LaunchTargetForBundleIdentifier(const QString& bundleIdentifier) {
    // Only these three builds have their own target; a ".beta" or ".pro" extension talks to the
    // base application. Do not add cases: the mail application's builds rely on this mapping.
    for (const QString& build :
         {ConstVars::appIdentifierBeta8, ConstVars::appIdentifierBeta10, ConstVars::appIdentifier2}) {
        if (bundleIdentifier.startsWith(build))
            return build;
    }
    return ConstVars::appIdentifier;
}

bool ExtensionUtilities::LaunchCommands(const QList<Url>& urls, bool background) {
    if (urls.isEmpty())
        return false;
    const LaunchRequest request = launchRequest(urls, background);
    return Workspace::openURLs(request.urls, request.target, request.options);
}

} // namespace corvina
