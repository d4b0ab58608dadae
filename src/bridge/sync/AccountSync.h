#pragma once

#include "bridge/config/AccountCredential.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/imap/ImapSession.h"
#include "model/SnapshotFormat.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <functional>
#include <optional>

namespace corvina {

// One pass over one account: connect, log in, and read the newest messages of each of its lists
// (Inbox, To Do, Memo) into the message dictionaries of the shared folder. Talks to the server
// only; writing the files is the SnapshotWriter's job, so that no lock is ever held while the
// network is slow.
//
// Blocking, like the session it owns: run it on the account's own thread.
class AccountSync {
public:
    // The file of the account's folder that each list the bridge writes goes to: "inbox.plist",
    // "todo.plist", "memo.plist". The bridge writes no list of the fourth kind: null for it. The
    // widget reads files of any name; these are the only ones the bridge replaces or removes.
    static QString fileFor(SnapshotFormat::ListKind kind);
    static QStringList listFiles();

    // One snapshot file's worth: written as Today/<mail>/<file>.
    struct Snapshot {
        QString file;   // fileFor the list's kind
        QString folder; // the IMAP folder the messages live in
        QVariantList messages;
    };

    struct Result {
        bool ok = false;
        ImapSession::Failure failure = ImapSession::Failure::None;
        QString error; // one line, when not ok
        QList<Snapshot> snapshots;
        // The inbox as it was when its messages were read: a later look that finds it otherwise
        // (a message arrived meanwhile) calls for another run.
        ImapSession::Folder inbox;
        // When the run began (the monotonic clock, in ms): of two runs of one account, the one
        // that began later read what the server held later, whichever ended first.
        qint64 readStarted = 0;
    };
    // The monotonic clock of readStarted, in ms.
    static qint64 monotonicMs();

    explicit AccountSync(BridgeConfig::Account account, int timeoutSeconds = 30);

    // What the account logs in with, or nothing with `error` set: AccountCredential::obtain for
    // the program, something of their own for tests. Called on the account's thread before each
    // login, so that a password changed meanwhile is used for the next connection.
    using CredentialSource =
        std::function<std::optional<AccountCredential>(const BridgeConfig::Account&, QString* error)>;

    // Connects (again, when needed) and reads every list. Not ok, with the first failure, when
    // any list cannot be read: a half-read account is not written, so the widget keeps showing the
    // last complete picture. Logs in with what `source` gives when a login is needed: a token the
    // server refuses is fetched again once (AccountCredential::refused, then `source` again) and
    // tried on a new connection; only a second refusal fails the run.
    Result run(const CredentialSource& source);
    // Connects and logs in as run() does, then opens each configured folder: what "check" tells
    // the user.
    Result check(const CredentialSource& source);
    // The same with one credential, handed out every time it is asked for (a refused token is
    // tried once more, the same one).
    Result run(const AccountCredential& credential);
    Result check(const AccountCredential& credential);

    // Logs `session`, connected, in as `account`: LOGIN with a password, AUTHENTICATE with a token.
    static bool logIn(ImapSession& session, const BridgeConfig::Account& account,
                      const AccountCredential& credential);

    const ImapSession& session() const { return m_session; }
    // The account's connection, for following the server between runs (IDLE) on the same thread.
    ImapSession& session() { return m_session; }

    // The "messageId" of a message: "<folder>/<UIDVALIDITY>/<UID>", the folder percent-encoded
    // (every byte but A-Z a-z 0-9 - _ . ~ as %XX) so that the identifier is safe in the widget's
    // command URLs, which carry it unencoded. The three parts find the message again on the
    // server, and the identifier changes when the server renumbers the folder (a new UIDVALIDITY).
    static QString messageIdFor(const QString& folder, quint32 uidValidity, quint32 uid);

    // Where a message identifier says the message is.
    struct MessageAddress {
        QString folder;
        quint32 uidValidity = 0;
        quint32 uid = 0;
    };
    // The longest identifier read: a folder name of a few hundred characters, percent-encoded.
    static constexpr qsizetype MaximumMessageIdLength = 4096;
    // Reads an identifier that messageIdFor made, and nothing else: the folder's escapes exactly as
    // messageIdFor writes them (upper-case hex, only where it escapes, UTF-8), two non-zero decimal
    // numbers without signs or leading zeros that fit in 32 bits, a folder that is not empty and
    // holds no control characters. Anything else is nullopt: an identifier comes from a command
    // URL, which anyone can write.
    static std::optional<MessageAddress> parseMessageId(const QString& messageId);

    // A message dictionary as the widget reads it.
    static QVariantMap messageDictionary(const ImapSession::Envelope& envelope, const QString& account,
                                         const ImapSession::Folder& folder, SnapshotFormat::ListKind kind);

private:
    static CredentialSource fixed(const AccountCredential& credential);
    // Logs in when not connected, then `then` (readLists or openFolders).
    Result pass(const CredentialSource& source, Result (AccountSync::*then)(Result));
    bool ensureLoggedIn(const CredentialSource& source, Result& result);
    bool connectAndLogIn(const AccountCredential& credential, Result& result);
    Result readLists(Result result);
    Result openFolders(Result result);
    bool failed(Result& result);
    std::optional<Snapshot> newestOf(const QString& folder, SnapshotFormat::ListKind kind, Result& result,
                                     ImapSession::Folder* opened = nullptr);
    std::optional<Snapshot> flaggedOf(const QString& folder, Result& result);

    BridgeConfig::Account m_account;
    ImapSession m_session;
};

} // namespace corvina
