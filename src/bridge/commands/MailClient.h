#pragma once

#include "ChildWatch.h"
#include "MailDraft.h"
#include "platform/DesktopEntry.h"

#include <QObject>
#include <QString>
#include <functional>

namespace corvina {

// Hands a message or a draft to the person's own mail client, the bridge never showing mail itself:
//
// - a message (a file holding it, as message/rfc822): the desktop's default application for
//   message/rfc822, asked for by that type (`xdg-mime query default message/rfc822`) and started
//   from its desktop file with the file's path. The file's type is deliberately never guessed from
//   its contents: a message whose first header is not one of the few a type sniffer knows passes
//   for text/plain and would go to a text editor. Or the account's openCommand with its fields: %f
//   the file, %m the Message-ID without angle brackets (inside a word too: "mid:%m"), %% a "%". A
//   command with neither %f nor %m gets the file as its last word.
// - a draft: the desktop's default application for x-scheme-handler/mailto, started from its
//   desktop file with a mailto: URL carrying every field (In-Reply-To and References included). A
//   draft with attachments goes, once such an application is known, to `xdg-email --utf8
//   [--attach FILE]... MAILTO-URL`, which knows how to hand files to clients that ignore a URL's
//   "attach" fields. Or the account's composeCommand: %u the mailto: URL, %a (a word of its own)
//   each attachment as a word of its own, %% a "%". A command without %u gets the URL as its last
//   word; one without %a is refused for a draft with attachments, which it would lose.
//
// A desktop file is started as xdg-open starts one: its Exec line with the field codes filled in
// (the file or URL added as the last word when the line has no field code for it), in a terminal
// (x-terminal-emulator -e, or $TERMINAL) when it says Terminal=true, in its Path when it names
// one. No default application, or one that cannot be started, is a failure with one line saying
// what to set.
//
// Commands are split into words like passwordCommand (CommandLine) and run directly, never through
// a shell: every text put in arrives as it is, as one argument. The program runs in a session of its
// own with standard input from /dev/null and the bridge's standard output and error; it outlives
// the bridge and is reaped when it ends (after the bridge has gone, by whoever adopts it).
// With an activation token it gets XDG_ACTIVATION_TOKEN and DESKTOP_STARTUP_ID set to it (it
// should come to the front); without, both are removed.
//
// `done` is called once, on this object's thread, never before the call returns: false with one
// line when no application is found, the program cannot be started, exits with a non-zero status
// or is killed within exitWaitMs(); true when it exits with 0 or is still running by then (a
// client that stays in the foreground). It is not called when the MailClient is destroyed first.
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
    // Asks xdg-mime for the default application of `mimeType` and hands its desktop file to
    // `found`; `done` gets the failure when there is none or it cannot be started. `setting` names
    // the bridge.conf key that would do instead ("openCommand").
    using Found = std::function<void(const DesktopEntry& entry, const QString& desktopId, Done done)>;
    void withDefaultApplication(const QString& mimeType, const QString& setting, const Done& done,
                                Found found);
    // Starts the desktop file `entry` with `argument` (a file's path or a URL).
    void launch(const DesktopEntry& entry, const QString& desktopId, const QString& mimeType,
                const QString& argument, const QString& activationToken, Done done);
    // `what` names the command in lines ("xdg-email", "openCommand my-mail-client"); `xdgStatus` says
    // that the program is one of xdg-utils, whose exit statuses have fixed meanings.
    void run(const QStringList& arguments, const QString& what, const QString& action, bool xdgStatus,
             const QString& activationToken, Done done, const QString& workingDirectory = QString());
    void finish(const Done& done, bool ok, const QString& error);

    int m_exitWaitMs = DefaultExitWaitMs;
    // The programs started and not yet reaped; handed over to the application object when this goes.
    ChildWatch* m_children;
};

} // namespace corvina
