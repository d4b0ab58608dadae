#pragma once

#include "MailDraft.h"

#include <QObject>
#include <QString>
#include <functional>

namespace corvina {

// Hands a message or a draft to the person's own mail client, the bridge never showing mail itself:
//
// - a message (a file holding it, as message/rfc822): `xdg-open FILE`, or the account's
//   openCommand with its fields: %f the file, %m the Message-ID without angle brackets (inside a
//   word too: "mid:%m"), %% a "%". A command with neither %f nor %m gets the file as its last word.
// - a draft: `xdg-email --utf8 [--attach FILE]... MAILTO-URL`, the URL carrying every field
//   (In-Reply-To and References included, which xdg-email's own options cannot), or the account's
//   composeCommand: %u the mailto: URL, %a (a word of its own) each attachment as a word of its
//   own, %% a "%". A command without %u gets the URL as its last word; one without %a is refused
//   for a draft with attachments, which it would lose.
//
// Commands are split into words like passwordCommand (CommandLine) and run directly, never through
// a shell: every text put in arrives as it is, as one argument. The program runs in a session of its
// own with standard input from /dev/null and the bridge's standard output and error; it outlives
// the bridge and is reaped when it ends (after the bridge has gone, by whoever adopts it).
// With an activation token it gets XDG_ACTIVATION_TOKEN and DESKTOP_STARTUP_ID set to it (it
// should come to the front); without, both are removed.
//
// `done` is called once, on this object's thread, never before the call returns: false with one
// line when the program cannot be started, exits with a non-zero status or is killed within
// exitWaitMs(); true when it exits with 0 or is still running by then (a client that stays in the
// foreground). It is not called when the MailClient is destroyed first.
class MailClient : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void(bool ok, const QString& error)>;

    static constexpr int DefaultExitWaitMs = 10000;

    explicit MailClient(QObject* parent = nullptr);
    ~MailClient() override;

    void openMessage(const QString& openCommand, const QString& file, const QString& messageIdHeader,
                     const QString& activationToken, Done done);
    void compose(const QString& composeCommand, const MailDraft& draft, const QString& activationToken,
                 Done done);

    // The draft as a mailto: URL (RFC 6068): the To addresses in the path, then cc, bcc, subject,
    // body (line breaks as CRLF), In-Reply-To and References (ids in angle brackets) as fields,
    // each present only when not empty. Every text is percent-encoded as UTF-8 ("@" of an address
    // kept), so the URL holds no blank, quote or line break. Attachments are not part of it.
    static QString mailtoUrl(const MailDraft& draft);

    int exitWaitMs() const { return m_exitWaitMs; }
    void setExitWaitMs(int milliseconds) { m_exitWaitMs = milliseconds; }

private:
    // `what` names the command in lines ("xdg-open", "openCommand thunderbird"); `xdgStatus` says
    // that the program is one of xdg-utils, whose exit statuses have fixed meanings.
    void run(const QStringList& arguments, const QString& what, const QString& action, bool xdgStatus,
             const QString& activationToken, Done done);
    void finish(const Done& done, bool ok, const QString& error);

    int m_exitWaitMs = DefaultExitWaitMs;
};

} // namespace corvina
