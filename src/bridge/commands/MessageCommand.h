#pragma once

#include "MailDraft.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/sync/AccountSync.h"
#include "model/CommandKind.h"

#include <QList>
#include <QString>

namespace corvina {

// Carries out one of the widget's commands for one message of one account on its IMAP server:
// open (fetch it whole into the cache folder and mark it seen), reply (read what a reply needs),
// archive and delete (move it to the account's archive or trash folder). Nothing is ever deleted
// for good: delete moves to the trash folder, and a message already there stays.
//
// Blocking, like the sync it owns and whose connection it shares: run it on the account's own
// thread. The connection is kept between commands; one that was lost (before or during a command)
// is made again and the whole command tried once more.
class MessageCommand {
public:
    // The command URL's kind; only Open, Reply, Archive and Delete act on a message, and run()
    // refuses the others.
    using Action = CommandKind;

    enum class Failure {
        None,
        Connection,     // the server could not be reached, the connection was lost, or it was not safe
        LoginRefused,   // the server refused the account's login
        BadMessageId,   // not an identifier the bridge made: nothing was sent to the server
        MessageGone,    // the message (or its folder) is not there any more, or the folder was renumbered
        NoTargetFolder, // no archive or trash folder configured, and the server marks none
        Refused,        // the server said NO, the command would delete the message for good, or it
                        // is no command on a message (compose, message, send)
        TooLarge,       // larger than the bridge fetches (ImapSession::MaximumMessageBytes)
        LocalFile,      // the message could not be saved in the cache folder
    };

    struct Outcome {
        bool ok = false;
        Failure failure = Failure::None;
        // One line for a person, e.g. "archive: the message is no longer in INBOX".
        QString error;
        // A line for the log when the command went through but something about it is worth saying.
        QString note;
        // Open: where the message was saved.
        QString messageFile;
        // Open and Reply: the message's Message-ID without angle brackets; may be empty.
        QString messageIdHeader;
        // Reply: the draft for the person's mail client.
        MailDraft reply;
        // The lists were read again after the command (archive, delete, open).
        bool synced = false;
        QList<AccountSync::Snapshot> snapshots;
        qint64 readStarted = 0; // when that read began (AccountSync::Result::readStarted)
    };

    // How long an opened message is kept in the cache folder.
    static constexpr int CacheDays = 7;

    MessageCommand(BridgeConfig::Account account, QString cacheFolder, int timeoutSeconds = 30);

    // $XDG_CACHE_HOME/corvina/messages (~/.cache when XDG_CACHE_HOME is unset or not absolute).
    static QString defaultCacheFolder();
    // "open", "reply", "archive", "delete": how a command is named in its lines.
    static QString actionName(Action action) { return commandName(action); }
    // Whether `action` is one this class carries out: open, reply, archive or delete.
    static bool actsOnMessage(Action action);
    // The file name an opened message is saved under: made of the account, the folder and the two
    // numbers, the folder's characters reduced to a safe few and the whole told apart by a hash.
    static QString cacheFileName(const QString& mail, const AccountSync::MessageAddress& address);

    // Blocking. Connects and logs in when not connected, and keeps the connection for the next
    // command.
    Outcome run(Action action, const QString& messageId, const AccountCredential& credential);

    bool isConnected() const { return m_sync.session().isConnected(); }
    // Says goodbye to the server (bounded by the timeout): for a connection no command needs now.
    void close() { m_sync.session().logout(); }

private:
    Outcome attempt(Action action, const AccountSync::MessageAddress& address,
                    const AccountCredential& credential, bool retry);
    Outcome moveMessage(Action action, const AccountSync::MessageAddress& address, bool retry);
    Outcome openMessage(const AccountSync::MessageAddress& address);
    Outcome replyTo(const AccountSync::MessageAddress& address);
    // Opens the message's folder and checks that the identifier still names the message there.
    bool openFolder(Action action, const AccountSync::MessageAddress& address, bool readOnly,
                    Outcome& outcome);
    // The outcome of the session's last failure.
    Outcome sessionFailed(Action action, const AccountSync::MessageAddress& address);
    bool saveMessage(const QString& name, const QByteArray& message, QString* path, QString* error);
    void pruneCache();

    BridgeConfig::Account m_account;
    QString m_cacheFolder;
    AccountSync m_sync;
    // Whether the last attempt's failure was the connection's, which one more attempt may cure.
    bool m_connectionFailed = false;
    // Whether this command's move was sent: a later attempt that finds the message gone knows why.
    bool m_moveSent = false;
};

} // namespace corvina
