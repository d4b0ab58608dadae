#include "ShareCommand.h"

#include "platform/Bundle.h"
#include "platform/DesktopEntry.h"
#include "platform/Dispatch.h"
#include "platform/ItemProvider.h"
#include "platform/Log.h"
#include "platform/RegularFile.h"
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
#include <sys/stat.h>

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
    // would be: the file's own bytes, which the intake decodes and re-encodes. Opened without
    // waiting, so that a picture swapped for a FIFO meanwhile is refused rather than waited on.
    provider->registerItemForTypeIdentifier(type, [path](const ItemProvider::CompletionHandler& completion) {
        RegularFile file = RegularFile::open(path);
        bool tooLarge = false;
        const std::optional<QByteArray> bytes =
            file.isOpen() ? file.readAll(ShareCommand::maxPictureBytes, &tooLarge) : std::nullopt;
        if (!bytes) {
            completion(QVariant(), tooLarge ? QStringLiteral("cannot read %1: it grew past %2 bytes")
                                                  .arg(path)
                                                  .arg(ShareCommand::maxPictureBytes)
                                            : file.error());
            return;
        }
        completion(*bytes, QString());
    });
    return provider;
}

// A path as it can be shown on a terminal: ASCII as it is, every other byte as \xNN. Only for
// paths that are not valid UTF-8, whose bytes no text can show.
QString printable(const QByteArray& native) {
    QString text;
    for (const char c : native) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f)
            text += QLatin1Char(c);
        else
            text += QStringLiteral("\\x") + QString::number(byte, 16).rightJustified(2, u'0').toUpper();
    }
    return text;
}

// The size of a compose URL in bytes: it is all ASCII, percent-encoded.
qsizetype urlBytes(const Url& url) {
    return url.absoluteString().toUtf8().size();
}

void reportTooLarge(QTextStream& err, qsizetype bytes, bool staged) {
    err << "corvina-share: the draft is too large to hand to the mail application: its compose URL "
        << (staged ? "has " : "would have ") << bytes << " bytes, more than the limit of "
        << ShareCommand::maxComposeUrlBytes << " bytes (the longest argument a program can be given); "
        << "share a shorter text or fewer files. Nothing was sent.\n";
}

qsizetype stagedAttachments(const ExtensionMessagePtr& message) {
    // The intake appends under the message's lock; a load that outlived its wait may still do so.
    Synchronized lock(message.get());
    const MutableList<QVariant> attachments = message->attachments();
    return attachments ? attachments->size() : 0;
}

} // namespace

std::optional<ShareCommand::Attachment> ShareCommand::classify(const QString& argument, QString* problem,
                                                               Status* status, const QByteArray& native) {
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
    // A path that is not valid UTF-8 reached us as text with its odd bytes replaced, which names no
    // file. It cannot be shared: the compose URL carries file paths as UTF-8 text, so the mail
    // application could not be told where it is. Said as such, not as a missing file.
    // A file URL carries the bytes percent-encoded (as file managers pass them), a path as they are.
    QByteArray bytes = native;
    if (argument.startsWith(QLatin1String("file:"), Qt::CaseInsensitive) && QUrl(argument).isLocalFile())
        bytes = QByteArray::fromPercentEncoding(QUrl(argument).path(QUrl::FullyEncoded).toLatin1());
    if (!bytes.isEmpty() && !QByteArrayView(bytes).isValidUtf8()) {
        struct stat info {};
        if (::stat(bytes.constData(), &info) == 0) {
            *problem =
                QStringLiteral("cannot share %1: its path is not valid UTF-8, and the mail application "
                               "is given file paths as UTF-8 text; rename it, or share a copy whose "
                               "path is valid UTF-8")
                    .arg(printable(bytes));
        } else {
            *problem = QStringLiteral("no such file: %1").arg(printable(bytes));
        }
        *status = MissingFile;
        return std::nullopt;
    }
    // Everything else names a local file: a file:// URL (what file managers pass for %U) or a path.
    // Other schemes ("mailto:", "ftp:") are read as paths too, and are then almost always missing.
    QString path = argument;
    if (argument.startsWith(QLatin1String("file:"), Qt::CaseInsensitive)) {
        const QUrl url(argument);
        if (url.isLocalFile())
            path = url.toLocalFile();
    }
    if (path.isEmpty()) {
        *problem = QStringLiteral("no such file: %1").arg(argument);
        *status = MissingFile;
        return std::nullopt;
    }
    // Opened without waiting and judged by the open descriptor: a FIFO is refused at once instead
    // of blocking the share until someone writes to it.
    RegularFile file = RegularFile::open(path);
    if (!file.isOpen()) {
        *status = MissingFile;
        if (file.problem() == RegularFile::Problem::Folder ||
            file.problem() == RegularFile::Problem::NotPlain)
            *problem = QStringLiteral("not a plain file: %1").arg(argument);
        else if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
            *problem = QStringLiteral("no such file: %1").arg(argument);
        else if (!QFileInfo::exists(path))
            *problem = QStringLiteral("no such file: %1 (a symbolic link to nothing)").arg(argument);
        else
            *problem = QStringLiteral("cannot read the file: %1 (%2)").arg(argument, file.error());
        return std::nullopt;
    }
    attachment.path = QFileInfo(path).absoluteFilePath();
    attachment.kind = Attachment::Kind::File;
    if (file.size() > maxPictureBytes)
        return attachment;
    // A picture only when it decodes: a file that merely begins like one travels as the file it
    // is, rather than failing as a picture later.
    QFile device;
    if (!device.open(file.descriptor(), QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        return attachment;
    QImageReader reader(&device);
    const QByteArray format = reader.format();
    if (travelsAsPicture(format) && !reader.read().isNull()) {
        attachment.kind = Attachment::Kind::Image;
        attachment.imageType = imageTypeFor(format);
    }
    return attachment;
}

ExtensionMessagePtr ShareCommand::expectedDraft(const Options& options, const QList<Attachment>& attachments,
                                                const QString& stagingPath) {
    // Made as the intake makes the real one (see ExtensionUtilities::GetItemForExtension).
    ExtensionMessagePtr message = ExtensionMessage::init();
    if (!options.text.isEmpty()) {
        message->appendHtmlBody(QString::fromUtf8(AttributedString::fromPlainText(options.text).htmlData()) +
                                QStringLiteral("<br/>"));
    }
    const MutableList<QVariant> staged = message->attachments();
    for (const Attachment& attachment : attachments) {
        switch (attachment.kind) {
        case Attachment::Kind::WebLink: {
            const QString link = QString::fromUtf8(attachment.webLink.toEncoded());
            message->appendHtmlBody(QStringLiteral("<a href=\"") + link + QStringLiteral("\">") + link +
                                    QStringLiteral("</a>"));
            break;
        }
        case Attachment::Kind::Image:
            staged->append(stagingPath + QStringLiteral("/image.png"));
            break;
        case Attachment::Kind::File:
            staged->append(stagingPath + QLatin1Char('/') + QFileInfo(attachment.path).fileName());
            break;
        }
    }
    if (!options.title.isNull())
        message->setSubject(options.title);
    return message;
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
    if (const std::optional<QString> problem = ExtensionUtilities::StagingFolderNameProblem(service)) {
        err << "corvina-share: --service wants a folder name of its own (one plain name, not hidden, and "
               "none of the mail application's items Today, Accounts.plist and Contacts): "
            << *problem << '\n';
        return UsageError;
    }
    if (options.title.isEmpty() && options.text.isEmpty() && options.arguments.isEmpty()) {
        err << "corvina-share: nothing to share: give files or web links, --text or --title\n"
               "Try 'corvina-share --help' for more information.\n";
        return UsageError;
    }

    QList<Attachment> attachments;
    qsizetype files = 0;
    for (qsizetype i = 0; i < options.arguments.size(); ++i) {
        QString problem;
        Status status = NotSent;
        const QByteArray native = options.nativeArguments.value(i);
        const std::optional<Attachment> attachment =
            classify(options.arguments.at(i), &problem, &status, native);
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
    // The staging code refuses to work through a linked data folder (it would empty a staging
    // folder wherever the link points); say so here rather than as a share that stages nothing.
    const QString data = ExtensionUtilities::GroupDataPath()->toLocalFile();
    if (QFileInfo(data).isSymLink()) {
        err << "corvina-share: the shared data folder " << data
            << " is a symbolic link; nothing is staged through one (nothing was changed)\n";
        return NoSharedFolder;
    }

    const QString target = ExtensionUtilities::LaunchTargetForBundleIdentifier(Bundle::identifier());
    QString notInstalled;
    if (!DesktopEntry::application(target, &notInstalled)) {
        err << "corvina-share: the mail application (" << target << ") is not installed: " << notInstalled
            << '\n';
        return MailApplicationMissing;
    }

    // The compose URL can only grow once the files are staged, so one that is too long already
    // is refused before the staging folder is emptied.
    const QString stagingPath = data + QLatin1Char('/') + service;
    if (const std::optional<Url> expected =
            expectedDraft(options, attachments, stagingPath)->queryUrl(ConstVars::commandCompose)) {
        if (urlBytes(*expected) > maxComposeUrlBytes) {
            reportTooLarge(err, urlBytes(*expected), false);
            return DraftTooLarge;
        }
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
    // Staged names may have taken a counter (image_1.png), so the real URL is measured again.
    if (urlBytes(*url) > maxComposeUrlBytes) {
        reportTooLarge(err, urlBytes(*url), true);
        return DraftTooLarge;
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
