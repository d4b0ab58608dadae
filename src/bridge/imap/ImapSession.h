#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

struct mailimap;
struct mailimap_set;
struct mailimap_fetch_type;
struct mailimap_msg_att;
struct mailimap_mailbox_list;
struct clist_s;
using clist = clist_s;

namespace corvina {

class GuardedStream;

// One account's connection to its IMAP server, through libetpan. Every call blocks the calling
// thread, so a session belongs to one thread (the account's worker). Each step (the connection, the
// TLS handshake, the greeting, and each command's whole answer) must be over within the session's
// timeout, and all of them before the attempt's deadline when one is set; past either the call
// fails and the connection is closed. What one answer may hold is bounded too (see the budgets
// below): a server cannot make the bridge wait or grow without end.
//
// Only what the bridge shows is fetched: the envelopes, flags and arrival dates of the newest
// messages of a folder, picked by position (the newest N message numbers are the N highest UIDs),
// never a listing of the whole folder.
//
// The widget's commands act on one message at a time, named by its folder and UID: open it
// read-write, move it to another folder, fetch it whole, mark it seen, read what a reply needs.
class ImapSession {
public:
    enum class Failure {
        None,
        HostUnreachable, // no connection could be made
        Insecure,        // the connection could not be made as safe as the account asks
        ConnectionLost,  // the server went away, or did not answer within the timeout
        LoginRefused,
        FolderMissing,  // the folder does not exist or cannot be opened
        Protocol,       // the server answered something else we cannot use
        Refused,        // the server answered NO (or BAD) to a command
        MessageMissing, // no message with that UID in the open folder
        TooLarge,       // the message is larger than the bridge fetches
    };

    // How the connection is made safe: TLS from the start, STARTTLS after the greeting, or not at
    // all (a server on this machine). The accounts file names its choice in these words.
    enum class Security { Tls, StartTls, None };

    struct Settings {
        QString host;
        quint16 port = 993;
        Security security = Security::Tls;
        int timeoutSeconds = 30;
        QString caFile; // the only authorities trusted for this server when set; else the system's
    };

    struct Folder {
        QString name;
        quint32 uidValidity = 0;
        quint32 uidNext = 0;
        quint32 exists = 0;
    };

    struct Envelope {
        quint32 uid = 0;
        bool seen = false;
        bool flagged = false;
        QString subject;        // decoded; null when the message has no Subject header
        QString from;           // who sent it, as shown (MessageHeaders::senderText)
        QString messageId;      // the Message-ID header as sent, or null
        QDateTime date;         // the Date header; invalid when missing or unreadable
        QDateTime internalDate; // when the server received the message
    };

    explicit ImapSession(Settings settings);
    ~ImapSession();
    ImapSession(const ImapSession&) = delete;
    ImapSession& operator=(const ImapSession&) = delete;

    bool connectToServer();
    bool login(const QString& user, const QString& password);
    // Logs in with an OAuth 2 access token instead of a password: SASL OAUTHBEARER when the
    // server's capabilities before login list AUTH=OAUTHBEARER, else XOAUTH2 when they list
    // AUTH=XOAUTH2; a server with neither is refused (Failure::Refused) without a word of the
    // token. A token the server refuses is Failure::LoginRefused, so that the caller can fetch a
    // fresh one and try once more. The token never reaches errorText().
    bool authenticateWithToken(const QString& user, const QString& token);
    // Opens `folder` read-only: looking never changes a flag.
    std::optional<Folder> examine(const QString& folder);
    // The newest `count` messages of the open folder, oldest first.
    std::optional<QList<Envelope>> fetchNewest(quint32 count);
    // The UIDs of the flagged messages of the open folder, ascending.
    std::optional<QList<quint32>> searchFlagged();
    // The messages of the open folder with these UIDs (those that still exist), ascending.
    std::optional<QList<Envelope>> fetchUids(const QList<quint32>& uids);
    // Says goodbye (bounded by the timeout) and closes the connection; closes it without a word
    // when the connection is broken or the attempt's deadline has passed.
    void logout();

    // Every later step, this session's whole attempt, ends by `deadline` (the one-shot modes give
    // each account --timeout in all); by default there is none and each step has the timeout.
    void setDeadline(QDeadlineTimer deadline) { m_deadline = deadline; }
    QDeadlineTimer deadline() const { return m_deadline; }

    // What one command's answer may hold: far more than an honest server sends for what the bridge
    // asks, and little enough that the process stays under 200 MB whatever the server sends.
    // libetpan keeps a whole answer in memory until its end, as a structure for every word: lines
    // of nothing but one-letter words cost about 45 bytes of memory for each byte read (4 MiB of
    // them made a peak of 212 MB). Past a budget the command fails as a protocol error.
    static constexpr qint64 AnswerBytes = 2 * 1024 * 1024;
    // Untagged answers (lines starting "* "): a server may send unasked news of flags or of new
    // messages with any answer, but not this many.
    static constexpr qint64 AnswerCount = 10000;
    // A LIST answer names every folder, one a line: servers with shared folders list thousands.
    static constexpr qint64 ListAnswerCount = 100000;
    // A FETCH of envelopes grows by this much for each message asked for. An envelope names every
    // recipient: most are well under a kilobyte; the few of messages to hundreds of people (tens of
    // kilobytes each) fit in AnswerBytes.
    static constexpr qint64 EnvelopeBytes = 1024;

    // --- Acting on one message ---------------------------------------------------------------

    // The largest message fetched whole: a mail client's message, not a backup of a mailbox.
    static constexpr qint64 MaximumMessageBytes = 64 * 1024 * 1024;

    // What the headers of a message say that a reply needs.
    struct ReplyHeaders {
        QString subject;        // decoded; null when the message has no Subject header
        QString replyAddress;   // the first Reply-To address, else the first From address; may be empty
        QString messageId;      // without angle brackets; empty when there is none
        QStringList references; // the References, oldest first, without angle brackets
    };

    // How a message left its folder.
    enum class MoveResult {
        Moved,             // it is in the target folder and gone from its own
        LeftMarkedDeleted, // copied to the target, and left in its folder marked \Deleted: other
                           // messages there were marked \Deleted too, and a server without UIDPLUS
                           // cannot expunge one message alone
    };

    // Opens `folder` read-write: for commands that change messages.
    std::optional<Folder> select(const QString& folder);
    // Whether the server announces the capability `name` (asked once per connection, after login).
    bool hasCapability(const char* name);
    // The folder the server marks with the special use `use` (\Archive, \Trash) in its LIST
    // answer; an empty string when it marks none; nullopt when the list cannot be had.
    std::optional<QString> specialUseFolder(const QString& use);
    // The folders that can be opened (the server's LIST of everything, without \Noselect names),
    // decoded, in the server's order, each once. A name with a control character is left out: no
    // line of bridge.conf could hold it and no person could read it. The answer is bounded as any
    // (AnswerBytes, ListAnswerCount); at most MostFolders are kept, `*more` (when given) is true
    // when there were more. Nothing when the list cannot be had.
    std::optional<QStringList> listFolders(bool* more = nullptr);
    // Far more folders than a person picks from; a server with shared folders may list thousands.
    static constexpr int MostFolders = 2000;
    // The size of message `uid` of the open folder; -1 when there is no such message.
    std::optional<qint64> messageSize(quint32 uid);
    // Message `uid` of the open folder as the server keeps it, without marking it seen. Refused
    // (TooLarge) above MaximumMessageBytes; MessageMissing when it is not there.
    std::optional<QByteArray> fetchMessage(quint32 uid);
    // Adds \Seen to message `uid` of the open folder.
    bool markSeen(quint32 uid);
    // The headers of message `uid` of the open folder that a reply needs; MessageMissing when it
    // is not there.
    std::optional<ReplyHeaders> fetchReplyHeaders(quint32 uid);
    // Moves message `uid` of the open (selected) folder to `target`: MOVE when the server has it,
    // else COPY, \Deleted and an expunge of that message alone.
    std::optional<MoveResult> moveMessage(quint32 uid, const QString& target);

    // What a wait in IDLE ended with. IDLE is over on every outcome (DONE was sent and answered),
    // except Failed, after which the connection is closed.
    enum class IdleOutcome {
        Changed, // the server reported new, expunged or changed messages in the open folder
        Quiet,   // the server spoke (a keep-alive) but nothing in the folder changed, or time ran out
        Woken,   // the wake-up descriptor became readable
        Failed,  // IDLE could not be started or ended: the connection is gone (failure() says why)
    };
    // Whether the server offers IDLE (asks for its capabilities when it has not said them yet).
    bool supportsIdle();
    // Waits in IDLE on the open folder until the server reports something, `wakeFd` becomes
    // readable, or `seconds` pass. A wake-up ends IDLE with a short bound: whoever woke us is waiting.
    IdleOutcome idle(int wakeFd, int seconds);
    // Sets the bound of every later network wait of this connection.
    void setTimeout(int seconds);
    // Closes the connection without a goodbye: for a connection that is probably dead (after the
    // machine slept) and must not cost a timeout.
    void abandon();

    bool isConnected() const { return m_imap != nullptr; }
    Failure failure() const { return m_failure; }
    // One line about the last failure, for a person.
    QString errorText() const { return m_errorText; }
    // How many message envelopes this session has received: the bridge's own account of how much
    // it asked the server for.
    qint64 fetchedEnvelopes() const { return m_fetchedEnvelopes; }

private:
    bool fail(Failure failure, const QString& text);
    // Maps a libetpan result of a command to a failure; true when it succeeded. A broken
    // connection, an answer over its budget or one that cannot be read closes the connection.
    bool check(int result, const QString& what);
    // The guard on the connection; null when there is none.
    GuardedStream* guard() const;
    // When the step starting now must end: the timeout from now, or the attempt's deadline.
    QDeadlineTimer stepDeadline() const;
    // Starts a command: its answer must come by stepDeadline() and within the budget.
    void arm(qint64 answerBytes = AnswerBytes, qint64 answerCount = AnswerCount);
    // Closes the connection without a word (libetpan's own close would send LOGOUT) and forgets it.
    void closeQuietly();
    // The connection, made with the step's deadline: the socket, TLS, the greeting, STARTTLS.
    bool openConnection();
    // Why the connection broke, when it did; empty when it did not.
    QString brokenText(const QString& what, int result) const;
    // FETCH of envelopes; `asked` are the message numbers (or the UIDs, `byUid`) in `set`.
    std::optional<QList<Envelope>> fetch(mailimap_set* set, bool byUid, const QList<quint32>& asked);
    // The answers that were asked for, ascending by UID; nothing when the list cannot be right.
    std::optional<QList<Envelope>> validAnswers(clist* answers, bool byUid, const QList<quint32>& asked);
    std::optional<Folder> open(const QString& folder, bool readOnly);
    bool needsFolder();
    bool askCapabilities();
    // What the server announces before login (its greeting's list, else a CAPABILITY command),
    // without touching what hasCapability() says after login.
    std::optional<QSet<QByteArray>> capabilitiesBeforeLogin();
    // A line of our own to the server, and one of its answer's lines without the line end: for
    // the exchange of AUTHENTICATE, which libetpan does not carry out itself. Both run under the
    // guard armed for the command; false (or nothing) with the connection closed on failure.
    bool sendRaw(const QByteArray& line, const QString& what);
    std::optional<QByteArray> readRawLine(const QString& what);
    std::optional<QList<quint32>> searchUids(int key, const QString& what);
    // UID FETCH of one message; the attributes of that message, or null when it is not there.
    // `type` is consumed.
    bool fetchOne(quint32 uid, mailimap_fetch_type* type, const QString& what,
                  const std::function<void(const mailimap_msg_att*)>& read, bool* found);
    bool storeFlag(quint32 uid, bool deleted, const QString& what);
    // LIST of every folder (bounded as any answer, AnswerBytes and ListAnswerCount): `each` is
    // called with every named folder that can be opened (no \Noselect), in the server's order,
    // until it returns false. False when the list cannot be had.
    bool listOpenable(const std::function<bool(const mailimap_mailbox_list&)>& each);

    // Every folder name goes to the server through this one place, and every name the server
    // lists comes back through folderFromWire: IMAP's own encoding of names outside ASCII
    // (modified UTF-7) is applied there.
    static QByteArray wireName(const QString& folder);
    static QString folderFromWire(const char* name);

    Settings m_settings;
    QDeadlineTimer m_deadline{QDeadlineTimer::Forever};
    mailimap* m_imap = nullptr;
    Failure m_failure = Failure::None;
    QString m_errorText;
    qint64 m_fetchedEnvelopes = 0;
    bool m_capabilitiesAsked = false;
    QSet<QByteArray> m_capabilities;
};

} // namespace corvina
