#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace corvina {

// Folder names as IMAP sends them: printable ASCII stands for itself, "&" is written "&-", and
// everything else goes in runs of base64 of its UTF-16 (with "," for "/", no padding) between "&"
// and "-". "Notizen ä" is "Notizen &AOQ-" on the wire.
//
// The bridge keeps folder names as text (bridge.conf is UTF-8, the message ids carry the text
// percent-encoded) and turns them into this form only where a name goes to the server.
class ImapFolderName {
public:
    // The name as the server expects it.
    static QByteArray encode(const QString& name);
    // The text of a name the server sent; nothing when it is not written as IMAP requires (a byte
    // outside printable ASCII, a run that is not ended, not whole UTF-16, left-over bits, a
    // printable character or half a surrogate pair inside a run).
    static std::optional<QString> decode(const QByteArray& wire);
};

} // namespace corvina
