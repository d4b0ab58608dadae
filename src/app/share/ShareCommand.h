#pragma once

#include "model/ExtensionMessage.h"
#include "platform/ExtensionContext.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <QUrl>
#include <optional>

namespace corvina {

// `corvina-share`: hands files, pictures, web links, a text and a title to the mail application as
// one new draft, the way its share extensions do: everything goes into one shared item, the files
// are placed in a staging folder of the shared folder, and the draft travels as a compose URL.
//
// Everything that can be checked is checked before the staging folder is touched, so a mistake on
// the command line never empties a staging folder the mail application may still be reading.
class ShareCommand {
public:
    // The exit statuses; `--help` lists them.
    enum Status : int {
        Sent = 0,
        NotSent = 1,
        UsageError = 2,
        MissingFile = 3,
        NoSharedFolder = 4,
        MailApplicationMissing = 5,
        DraftTooLarge = 6,
    };

    // The longest compose URL handed over, in bytes: the longest single argument Linux passes to a
    // program (32 pages of 4 KiB, less the terminating NUL). A mail application started through its
    // Exec line gets the URL as one argument; the same limit holds when it is reached over D-Bus,
    // so that whether a draft can be sent never depends on how the application is started.
    static constexpr qsizetype maxComposeUrlBytes = 131071;

    // Pictures larger than this travel as the files they are, without being decoded: a picture is
    // read whole into memory to be re-encoded, and its decoding is bounded by Qt's own limit of the
    // same size.
    static constexpr qint64 maxPictureBytes = 256 * 1024 * 1024;

    // The staging folder used when --service is not given.
    static inline const QString defaultService = QStringLiteral("Share");

    struct Options {
        QString title;         // null when not given
        QString text;          // null when not given
        QString service;       // null: defaultService
        QStringList arguments; // files, file URLs and web links, in the order given
        // The arguments as the system gave them, one for each of `arguments` (or none at all):
        // a path that is not valid UTF-8 is told from a missing one by these.
        QList<QByteArray> nativeArguments;
    };

    // One argument, as it is handed over.
    struct Attachment {
        enum class Kind { WebLink, File, Image };
        Kind kind = Kind::File;
        QUrl webLink;      // a WebLink's URL
        QString path;      // a File's or an Image's absolute path
        QString imageType; // an Image's type identifier (conforming to public.image)
    };

    // Checks everything, stages, and sends the draft. Says what went wrong on `err` in one line
    // (with the shared-folder code's own log lines before it when staging or sending failed);
    // prints nothing on success.
    static int run(const Options& options, QTextStream& err);

    // What an argument is: a web link (http:// or https://), a picture (a readable file of at most
    // maxPictureBytes whose content Qt decodes as a raster image) or another file (a file:// URL or
    // a path; a file that only looks like a picture is one). Nothing when it is none of these, with
    // the reason in `problem` and the exit status in `status`. `native` is the argument's bytes as
    // the system gave them, when known.
    static std::optional<Attachment> classify(const QString& argument, QString* problem, Status* status,
                                              const QByteArray& native = {});

    // The draft as far as it is known before anything is staged: the text, the links, the title,
    // and each file at its own name in `stagingPath` (pictures as "image.png"). Its compose URL is
    // never longer than the real one's, whose staged names can only be longer (image_1.png).
    static ExtensionMessagePtr expectedDraft(const Options& options, const QList<Attachment>& attachments,
                                             const QString& stagingPath);

    // The share request: one item with the text, the title and one provider per attachment.
    static ExtensionContextPtr context(const Options& options, const QList<Attachment>& attachments);

    // The draft the intake makes of `context`, staging into `service`; waits for it.
    static ExtensionMessagePtr draft(const ExtensionContextPtr& context, const QString& service);
};

} // namespace corvina
