// ExtensionUtilities: one share request turned into a draft message for the mail application.

#include "ExtensionUtilities.h"
#include "platform/Dispatch.h"
#include "platform/ItemProvider.h"
#include "platform/Log.h"
#include "platform/Synchronized.h"

#include <QBuffer>
#include <QImage>
#include <atomic>
#include <chrono>
#include <thread>

namespace corvina {

namespace {

// Attachments not handled yet. Counted down by the load handlers and polled by the worker.
using Pending = std::shared_ptr<std::atomic<qint64>>;

void appendAttachments(const ExtensionMessagePtr& message, const QStringList& paths) {
    // The message's own lock: the link and image handlers of one request append concurrently.
    Synchronized lock(message.get());
    const MutableList<QVariant> attachments = message->attachments();
    for (const QString& path : paths)
        attachments->append(path);
}

// What a loaded image stands for, re-encoded as PNG; a null value when it cannot be read as an
// image. The result is not checked here: ShareDatas refuses a null value with its exception line.
QVariant pngOf(const QVariant& loaded) {
    QImage image;
    if (loaded.typeId() == QMetaType::QImage)
        image = loaded.value<QImage>();
    else if (loaded.typeId() == QMetaType::QByteArray)
        image = QImage::fromData(loaded.toByteArray());
    if (image.isNull())
        return {};
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG"))
        return {};
    return png;
}

void linkLoaded(const QVariant& loaded, const QString& error, const ExtensionMessagePtr& message,
                const ExtensionItemPtr& item, const QString& service) {
    if (!error.isNull()) {
        Log::error(QStringLiteral("[%@] GetItemForExtension kUTTypeURL %@"), {error});
        return;
    }
    if (loaded.typeId() != QMetaType::QUrl) {
        Log::error(QStringLiteral("[%@] GetItemForExtension kUTTypeURL %@"),
                   {QStringLiteral("the item loaded is not a URL")});
        return;
    }
    const QUrl url = loaded.toUrl();
    if (url.isLocalFile()) {
        appendAttachments(message, ExtensionUtilities::ShareFiles(service, {url.toLocalFile()}));
        return;
    }
    // No lock on the message here: the subject and body are single properties, each safe on its own.
    message->setSubject(item->attributedTitle ? item->attributedTitle->string() : QString());
    const QString link = QString::fromUtf8(url.toEncoded());
    message->appendHtmlBody(QStringLiteral("<a href=\"") + link + QStringLiteral("\">") + link +
                            QStringLiteral("</a>"));
}

void imageLoaded(const QVariant& loaded, const QString& error, const ExtensionMessagePtr& message,
                 const QString& service) {
    if (!error.isNull()) {
        Log::error(QStringLiteral("[%@] GetItemForExtension kUTTypeImage %@"), {error});
        return;
    }
    appendAttachments(message, ExtensionUtilities::ShareDatas(service, {pngOf(loaded)}));
}

void intake(const ExtensionContextPtr& context, const QString& service,
            const ExtensionUtilities::GetItemCompletion& completion) {
    const QList<ExtensionItemPtr> items = context ? context->inputItems : QList<ExtensionItemPtr>();
    Pending pending = std::make_shared<std::atomic<qint64>>(0);
    for (const ExtensionItemPtr& item : items)
        *pending += item ? item->attachments.size() : 0;

    const ExtensionMessagePtr message = ExtensionMessage::init();
    for (const ExtensionItemPtr& item : items) {
        if (!item)
            continue;
        if (item->attributedContentText && !item->attributedContentText->string().isEmpty()) {
            const QString html = QString::fromUtf8(item->attributedContentText->htmlData());
            message->appendHtmlBody(html + QStringLiteral("<br/>"));
        }
        for (const ItemProviderPtr& provider : item->attachments) {
            // An attachment of any other type is never counted down: the wait below then runs to
            // its end. Deliberate; the share extensions are timed on it.
            if (!provider)
                continue;
            if (provider->hasItemConformingToTypeIdentifier(kUTTypeURL)) {
                provider->loadItemForTypeIdentifier(
                    kUTTypeURL, {},
                    [message, item, service, pending](const QVariant& loaded, const QString& error) {
                        linkLoaded(loaded, error, message, item, service);
                        --*pending;
                    });
            } else if (provider->hasItemConformingToTypeIdentifier(kUTTypeImage)) {
                provider->loadItemForTypeIdentifier(
                    kUTTypeImage, {},
                    [message, service, pending](const QVariant& loaded, const QString& error) {
                        imageLoaded(loaded, error, message, service);
                        --*pending;
                    });
            }
        }
    }

    // Polled, not woken: at least one pause of 0.1 s (the single-precision 0.1, as the share
    // extensions have always waited), at most 101 of them.
    const auto pause = std::chrono::duration<double>(static_cast<double>(0.1f));
    for (int retries = 100;; --retries) {
        std::this_thread::sleep_for(pause);
        if (pending->load() == 0 || retries == 0)
            break;
    }
    completion(message, QVariant());
}

} // namespace

void ExtensionUtilities::GetItemForExtension(const ExtensionContextPtr& context, const QString& service,
                                             GetItemCompletion completion) {
    Dispatch::dispatchAsyncBackground(
        [context, service, completion = std::move(completion)] { intake(context, service, completion); });
}

} // namespace corvina
