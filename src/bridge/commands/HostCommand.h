#pragma once

#include "MailDraft.h"
#include "model/CommandKind.h"

#include <QString>
#include <optional>

namespace corvina {

// One command URL the widget (or another extension) hands the mail application, read the way
// docs/host-commands.md and docs/compose-url.md write them:
//
//     corvina://open?mail=<account, percent-encoded>&messageid=<id, raw>&folderstandardid=<kind>
//     corvina://compose?<percent-encoded draft>
//
// Only what the bridge carries out is accepted: open, reply, archive, delete and compose. Anything
// else (message, send, another scheme, a malformed URL) is refused with one line for the log.
class HostCommand {
public:
    // The command URL's own kind, kept as it is: the bridge never turns it back into its name but
    // for a line of text.
    using Kind = CommandKind;

    // Longer URLs are refused before they are read. A compose URL carries a whole draft, body
    // included, so the bound is generous; a message command is a few hundred characters.
    static constexpr qsizetype MaximumUrlLength = 1024 * 1024;

    // Nothing, with `error` set (one line, for the log), when the URL is not a command the bridge
    // carries out. On success `error` is cleared; what was left out of a draft is in note().
    static std::optional<HostCommand> parse(const QString& url, QString* error);

    Kind kind() const { return m_kind; }
    // "open", "reply", "archive", "delete", "compose": for lines of text only.
    QString kindName() const { return commandName(m_kind); }

    // open/reply/archive/delete: the decoded `mail`; compose: the draft's account (may be empty).
    QString account() const;
    // The message id exactly as the snapshot held it (never decoded); empty for compose.
    QString messageId() const { return m_messageId; }
    // The folder kind as written ("1", "11", "2.5"); empty when the snapshot left it out
    // ("(null)") and for compose.
    QString folderStandardId() const { return m_folderStandardId; }

    // Compose only (empty otherwise): recipients split at ";" with blanks trimmed and empty entries
    // dropped; the plain body, or the HTML body turned into plain text when the URL has only that;
    // attachments that are absolute paths of existing regular files, in the order the reader gives.
    const MailDraft& draft() const { return m_draft; }
    // One line about what the draft lost (attachments that are no files), or empty.
    QString note() const { return m_note; }

    // Whether carrying it out changes the message on the server: archive and delete move it, open
    // marks it read. Reply and compose only hand a draft to the mail client.
    bool changesServer() const;

    // The text of an HTML body as plain text: tags dropped (with script and style contents),
    // line breaks for <br> and the ends of blocks, character references decoded.
    static QString plainTextFromHtml(const QString& html);

private:
    HostCommand() = default;

    Kind m_kind = Kind::Open;
    QString m_account;
    QString m_messageId;
    QString m_folderStandardId;
    MailDraft m_draft;
    QString m_note;
};

} // namespace corvina
