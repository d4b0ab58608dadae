#include "ShareCommand.h"

#include "platform/Bundle.h"
#include "platform/DesktopEntry.h"
#include "platform/Dispatch.h"
#include "platform/ItemProvider.h"
#include "platform/Log.h"
#include "platform/Synchronized.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImageReader>
#include <QMutex>
#include <cstdio>
#include <future>

namespace corvina {

namespace {

// The shared-folder code logs every failure on stderr, and some of those lines are not failures for
// a person at a terminal: the first share of all logs that there was no staging folder to empty.
// So its lines are held back while the share runs and shown only when the share fails, where they
// say which file could not be staged and why. Other messages (Qt's own) pass through at once.
QMutex g_heldMutex;
QStringList g_heldLines;
QtMessageHandler g_passThrough = nullptr;

void holdProjectLines(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (context.category && qstrcmp(context.category, Log::category().categoryName()) == 0) {
        const QMutexLocker lock(&g_heldMutex);
        g_heldLines << message;
        return;
    }
    if (g_passThrough) {
        g_passThrough(type, context, message);
    } else {
        std::fputs(qPrintable(qFormatLogMessage(type, context, message) + QLatin1Char('\n')), stderr);
    }
}

class HeldLogLines {
public:
    HeldLogLines() { g_passThrough = qInstallMessageHandler(holdProjectLines); }
    ~HeldLogLines() { qInstallMessageHandler(g_passThrough); }
    HeldLogLines(const HeldLogLines&) = delete;
    HeldLogLines& operator=(const HeldLogLines&) = delete;

    void writeTo(QTextStream& err) {
        const QMutexLocker lock(&g_heldMutex);
        for (const QString& line : std::as_const(g_heldLines))
            err << line << '\n';
        g_heldLines.clear();
    }
};

bool isWebLink(const QString& argument) {
    return argument.startsWith(QLatin1String("http://"), Qt::CaseInsensitive) ||
           argument.startsWith(QLatin1String("https://"), Qt::CaseInsensitive);
}

// The type identifier for a picture format Qt detected; the generic image type for the others.
QString imageTypeFor(const QByteArray& format) {
    static const QHash<QByteArray, QString> types{
        {"png", kUTTypePNG},
        {"jpeg", kUTTypeJPEG},
        {"jpg", kUTTypeJPEG},
        {"gif", QStringLiteral("com.compuserve.gif")},
        {"tiff", QStringLiteral("public.tiff")},
        {"tif", QStringLiteral("public.tiff")},
        {"bmp", QStringLiteral("com.microsoft.bmp")},
        {"webp", QStringLiteral("public.webp")},
    };
    return types.value(format.toLower(), kUTTypeImage);
}

// Pictures are handed over as pixels and arrive re-encoded as PNG. A vector drawing would arrive
// as a bitmap of whatever size the decoder picks, so it travels as the file it is.
bool travelsAsPicture(const QByteArray& format) {
    const QByteArray lower = format.toLower();
    return !lower.isEmpty() && lower != "svg" && lower != "svgz";
}

ItemProviderPtr imageProvider(const QString& path, const QString& type) {
    auto provider = std::make_shared<ItemProvider>();
    // Read when the intake asks, on the providers' pool, as a picture from another application
    // would be: the file's own bytes, which the intake decodes and re-encodes.
    provider->registerItemForTypeIdentifier(type, [path](const ItemProvider::CompletionHandler& completion) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            completion(QVariant(), QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
            return;
        }
        const QByteArray bytes = file.readAll();
        if (file.error() != QFileDevice::NoError) {
            completion(QVariant(), QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
            return;
        }
        completion(bytes, QString());
    });
    return provider;
}

qsizetype stagedAttachments(const ExtensionMessagePtr& message) {
    // The intake appends under the message's lock; a load that outlived its wait may still do so.
    Synchronized lock(message.get());
    const MutableList<QVariant> attachments = message->attachments();
    return attachments ? attachments->size() : 0;
}

} // namespace

std::optional<ShareCommand::Attachment> ShareCommand::classify(const QString& argument, QString* problem,
                                                               Status* status) {
    Attachment attachment;
    if (isWebLink(argument)) {
        const QUrl url(argument);
        if (!url.isValid() || url.host().isEmpty()) {
            *problem = QStringLiteral("not a web link: %1").arg(argument);
            *status = UsageError;
            return std::nullopt;
        }
        attachment.kind = Attachment::Kind::WebLink;
        attachment.webLink = url;
        return attachment;
    }
    // Everything else names a local file: a file:// URL (what file managers pass for %U) or a path.
    // Other schemes ("mailto:", "ftp:") are read as paths too, and are then almost always missing.
    QString path = argument;
    if (argument.startsWith(QLatin1String("file:"), Qt::CaseInsensitive)) {
        const QUrl url(argument);
        if (url.isLocalFile())
            path = url.toLocalFile();
    }
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists()) {
        *problem = QStringLiteral("no such file: %1").arg(argument);
        *status = MissingFile;
        return std::nullopt;
    }
    if (!info.isFile()) {
        *problem = QStringLiteral("not a plain file: %1").arg(argument);
        *status = MissingFile;
        return std::nullopt;
    }
    if (!info.isReadable()) {
        *problem = QStringLiteral("cannot read the file: %1").arg(argument);
        *status = MissingFile;
        return std::nullopt;
    }
    attachment.path = info.absoluteFilePath();
    const QByteArray format = QImageReader::imageFormat(attachment.path);
    if (travelsAsPicture(format)) {
        attachment.kind = Attachment::Kind::Image;
        attachment.imageType = imageTypeFor(format);
    } else {
        attachment.kind = Attachment::Kind::File;
    }
    return attachment;
}

ExtensionContextPtr ShareCommand::context(const Options& options, const QList<Attachment>& attachments) {
    auto item = std::make_shared<ExtensionItem>();
    if (!options.text.isNull())
        item->attributedContentText = AttributedString::fromPlainText(options.text);
    if (!options.title.isNull())
        item->attributedTitle = AttributedString::fromPlainText(options.title);
    for (const Attachment& attachment : attachments) {
        switch (attachment.kind) {
        case Attachment::Kind::WebLink:
            item->attachments << ItemProvider::initWithItem(attachment.webLink, kUTTypeURL);
            break;
        case Attachment::Kind::Image:
            item->attachments << imageProvider(attachment.path, attachment.imageType);
            break;
        case Attachment::Kind::File:
            item->attachments << ItemProvider::initWithItem(QUrl::fromLocalFile(attachment.path),
                                                            kUTTypeFileURL);
            break;
        }
    }
    auto context = std::make_shared<ExtensionContext>();
    context->inputItems << item;
    return context;
}

ExtensionMessagePtr ShareCommand::draft(const ExtensionContextPtr& context, const QString& service) {
    // The completion comes once, from a background thread, after the intake's own wait; nothing
    // here needs the event loop meanwhile, so the main thread simply blocks on it.
    auto promise = std::make_shared<std::promise<ExtensionMessagePtr>>();
    std::future<ExtensionMessagePtr> answer = promise->get_future();
    ExtensionUtilities::GetItemForExtension(
        context, service,
        [promise](const ExtensionMessagePtr& message, const QVariant&) { promise->set_value(message); });
    ExtensionMessagePtr message = answer.get();
    // Let the intake's worker return before the program goes on to exit under it.
    Dispatch::backgroundPool().waitForDone(5000);
    return message;
}

int ShareCommand::run(const Options& options, QTextStream& err) {
    const QString service = options.service.isNull() ? defaultService : options.service;
    // ShareInit's own rule, checked first so that a bad name is a usage error rather than a logged
    // line and a share that silently stages nothing.
    if (ExtensionUtilities::StagingFolderNameProblem(service)) {
        err << "corvina-share: --service wants a plain folder name (not empty, no \"/\", not \".\" or "
               "\"..\"): \""
            << service << "\"\n";
        return UsageError;
    }
    if (options.title.isEmpty() && options.text.isEmpty() && options.arguments.isEmpty()) {
        err << "corvina-share: nothing to share: give files or web links, --text or --title\n"
               "Try 'corvina-share --help' for more information.\n";
        return UsageError;
    }

    QList<Attachment> attachments;
    qsizetype files = 0;
    for (const QString& argument : options.arguments) {
        QString problem;
        Status status = NotSent;
        const std::optional<Attachment> attachment = classify(argument, &problem, &status);
        if (!attachment) {
            err << "corvina-share: " << problem << '\n';
            return status;
        }
        if (attachment->kind != Attachment::Kind::WebLink)
            ++files;
        attachments << *attachment;
    }

    const std::optional<QUrl> group = ExtensionUtilities::GroupPath();
    if (!group) {
        err << "corvina-share: no shared folder (CORVINA_GROUP_CONTAINER is set but empty)\n";
        return NoSharedFolder;
    }
    if (!QFileInfo(group->toLocalFile()).isDir()) {
        err << "corvina-share: no shared folder at " << group->toLocalFile()
            << " (the mail application makes it; --container DIR names another)\n";
        return NoSharedFolder;
    }

    const QString target = ExtensionUtilities::LaunchTargetForBundleIdentifier(Bundle::identifier());
    if (DesktopEntry::locate(target).isEmpty()) {
        err << "corvina-share: the mail application (" << target << ") is not installed: no " << target
            << ".desktop in the applications folders\n";
        return MailApplicationMissing;
    }

    HeldLogLines held;
    ExtensionUtilities::ShareInit(service);
    const ExtensionMessagePtr message = draft(context(options, attachments), service);

    // A draft that lacks one of the files would reach the mail application looking complete; better
    // to send nothing and say so.
    const qsizetype staged = stagedAttachments(message);
    if (staged < files) {
        held.writeTo(err);
        err << "corvina-share: only " << staged << " of " << files
            << " files could be placed in the shared folder; nothing was sent\n";
        return NotSent;
    }

    // The intake takes a subject only from a web link's title. Someone who passes --title means it
    // as the subject whatever they share, so it becomes the subject when the intake left none.
    if (!options.title.isNull() && message->subject().isEmpty())
        message->setSubject(options.title);

    const std::optional<Url> url = message->queryUrl(ConstVars::commandCompose);
    if (!url) {
        held.writeTo(err);
        err << "corvina-share: the draft could not be written as a compose URL; nothing was sent\n";
        return NotSent;
    }
    // Not in the background: the person sharing wants the new draft in front of them.
    if (!ExtensionUtilities::LaunchCommands({*url}, false)) {
        held.writeTo(err);
        err << "corvina-share: the mail application (" << target << ") could not be started\n";
        return NotSent;
    }
    return Sent;
}

} // namespace corvina
