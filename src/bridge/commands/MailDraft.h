#pragma once

#include <QString>
#include <QStringList>

namespace corvina {

// A message for the person's mail client to compose: a reply the bridge prepared from a message on
// the server, or a draft an extension sent (a compose URL). The bridge never sends it; the mail
// client shows it and the person sends it.
struct MailDraft {
    QStringList to;
    QStringList cc;
    QStringList bcc;
    QString subject;
    QString body; // plain text
    // The Message-ID this draft answers, without angle brackets; empty when it answers none.
    QString inReplyTo;
    // The message ids of the thread, oldest first, without angle brackets.
    QStringList references;
    // Absolute paths of files to attach.
    QStringList attachments;
    // The mail of the bridge account it is sent from, when the sender named one.
    QString account;
};

} // namespace corvina
