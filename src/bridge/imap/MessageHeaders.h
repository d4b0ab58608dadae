#pragma once

#include "ImapSession.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QDateTime>
#include <QString>

struct mailimap_envelope;
struct mailimap_fetch_type;
struct mailimap_msg_att;

namespace corvina {

// What the bridge makes of a message's header fields as a server sends them: one message of a
// FETCH answer turned into an ImapSession::Envelope, encoded words and bare 8-bit text decoded,
// dates read, the headers a reply needs picked out. No network here: every function works on what
// libetpan parsed (or on header bytes), so that the sync and the fuzz target run the same code.
class MessageHeaders {
public:
    // The attributes the sync asks for each message: UID, FLAGS, INTERNALDATE, ENVELOPE and the
    // Content-Type header alone (its charset is how bare 8-bit text in the envelope is read; the
    // envelope does not carry it). The caller frees it with mailimap_fetch_type_free.
    static mailimap_fetch_type* fetchType();

    // One message of a FETCH answer to fetchType(). False when it is not one the sync asked for: a
    // FETCH the server sends unasked (a flag changed meanwhile) carries no envelope, and a message
    // without a UID cannot be named.
    static bool readMessage(const mailimap_msg_att* att, ImapSession::Envelope& envelope);

    // Who sent the message, as the widget shows it: the first From address's decoded name, or the
    // address when it has none; without a From, the Sender, then the Reply-To, the same way;
    // without any of them, noSender(). `charsets` as for rawText().
    static QString senderText(const mailimap_envelope* env, const QByteArrayList& charsets = {});
    // The localised "(no sender)".
    static QString noSender();

    // Decodes RFC 2047 encoded words of a header value to text (libetpan's MIME decoder); the text
    // between them is read by rawText() first. Null for null.
    static QString decodeHeader(const char* raw, const QByteArrayList& charsets = {});
    // Header bytes outside encoded words: UTF-8 when they are valid UTF-8 (plain ASCII is), else
    // the first of `charsets` (the message's own declarations) that reads them without error, else
    // windows-1252, else Latin-1, which reads any bytes.
    static QString rawText(const QByteArray& bytes, const QByteArrayList& charsets = {});
    // The charsets a message declares, first found first: the charset parameter of the
    // Content-Type in `header` (header fields as a FETCH of HEADER.FIELDS answers them), then those
    // named by the encoded words of `values`. Only names that look like charset names.
    static QByteArrayList declaredCharsets(const QByteArray& header, const QByteArrayList& values = {});

    // Reads an RFC 5322 date (libetpan's parser); invalid when it cannot.
    static QDateTime parseDate(const char* raw);

    // Reads the header fields of a message (or a whole message: its header ends at the first empty
    // line) with libetpan's message parser.
    static ImapSession::ReplyHeaders parseReplyHeaders(const QByteArray& header);

    // `text` with every character that XML 1.0 does not allow (C0 controls other than tab, line
    // feed and carriage return; U+FFFE, U+FFFF; a surrogate without its pair) replaced by U+FFFD.
    // Whatever a server sends ends up in the shared folder's XML, which every reader must be able
    // to parse. Null stays null.
    static QString xmlSafe(const QString& text);
    // Whether `text` holds none of those characters.
    static bool isXmlSafe(QStringView text);
};

} // namespace corvina
