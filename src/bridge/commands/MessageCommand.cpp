#include "MessageCommand.h"

#include "bridge/imap/MessageHeaders.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvina {

namespace {

bool sameFolder(const QString& a, const QString& b) {
    // The inbox is the one name IMAP compares without case.
    if (a.compare(QLatin1String("INBOX"), Qt::CaseInsensitive) == 0)
        return b.compare(QLatin1String("INBOX"), Qt::CaseInsensitive) == 0;
    return a == b;
}

QString systemError(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

} // namespace

MessageCommand::MessageCommand(BridgeConfig::Account account, QString cacheFolder, int timeoutSeconds)
    : m_account(std::move(account)), m_cacheFolder(std::move(cacheFolder)),
      m_sync(m_account, timeoutSeconds) {}

QString MessageCommand::defaultCacheFolder() {
    QString base = qEnvironmentVariable("XDG_CACHE_HOME");
    if (!QDir::isAbsolutePath(base))
        base = QDir::homePath() + QStringLiteral("/.cache");
    return base + QStringLiteral("/corvina/messages");
}

bool MessageCommand::actsOnMessage(Action action) {
    switch (action) {
    case Action::Open:
    case Action::Reply:
    case Action::Archive:
    case Action::Delete:
        return true;
    case Action::Compose:
    case Action::Message:
    case Action::Send:
        break;
    }
    return false;
}

QString MessageCommand::cacheFileName(const QString& mail, const AccountSync::MessageAddress& address) {
    // A readable hint of the folder, in characters that mean nothing to a shell or a file system...
    QString hint;
    for (const QChar c : address.folder.left(40)) {
        const bool plain = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
        hint += plain ? c : QChar(u'_');
    }
    // ...and the hash of the account and the whole folder name, which tells any two apart.
    const QByteArray hash =
        QCryptographicHash::hash(mail.toUtf8() + '\0' + address.folder.toUtf8(), QCryptographicHash::Sha256)
            .toHex()
            .left(16);
    return QStringLiteral("message-%1-%2-%3-%4.eml")
        .arg(hint)
        .arg(address.uidValidity)
        .arg(address.uid)
        .arg(QString::fromLatin1(hash));
}

MessageCommand::Outcome MessageCommand::run(Action action, const QString& messageId,
                                            const AccountCredential& credential) {
    if (!actsOnMessage(action)) {
        // Nothing is sent to the server: the command has no message to act on.
        Outcome outcome;
        outcome.failure = Failure::Refused;
        outcome.error = actionName(action) + QStringLiteral(": not a command on a message");
        return outcome;
    }
    const std::optional<AccountSync::MessageAddress> address = AccountSync::parseMessageId(messageId);
    if (!address) {
        // The identifier itself is not repeated: it may be anything at all.
        Outcome outcome;
        outcome.failure = Failure::BadMessageId;
        outcome.error =
            actionName(action) +
            QStringLiteral(": not a message identifier of this bridge (%1 characters)").arg(messageId.size());
        return outcome;
    }
    m_moveSent = false;
    Outcome outcome = attempt(action, *address, credential, false);
    if (!outcome.ok && m_connectionFailed) {
        // Most often a connection that died while nobody used it (the server restarted, the network
        // changed): one fresh connection, one more try.
        m_sync.session().abandon();
        outcome = attempt(action, *address, credential, true);
    }
    if (!outcome.ok || action == Action::Reply)
        return outcome;
    const AccountSync::Result lists = m_sync.run(credential);
    if (lists.ok) {
        outcome.synced = true;
        outcome.snapshots = lists.snapshots;
        outcome.readStarted = lists.readStarted;
    } else {
        const QString line = QStringLiteral("the lists were not read again: ") + lists.error;
        outcome.note = outcome.note.isEmpty() ? line : outcome.note + QStringLiteral("; ") + line;
    }
    return outcome;
}

MessageCommand::Outcome MessageCommand::sessionFailed(Action action,
                                                      const AccountSync::MessageAddress& address) {
    const ImapSession& session = m_sync.session();
    Outcome outcome;
    QString text = session.errorText();
    switch (session.failure()) {
    case ImapSession::Failure::HostUnreachable:
    case ImapSession::Failure::ConnectionLost:
        m_connectionFailed = true;
        outcome.failure = Failure::Connection;
        break;
    case ImapSession::Failure::Insecure:
        outcome.failure = Failure::Connection;
        break;
    case ImapSession::Failure::LoginRefused:
        outcome.failure = Failure::LoginRefused;
        break;
    case ImapSession::Failure::FolderMissing:
        outcome.failure = Failure::MessageGone;
        text = QStringLiteral("the folder %1 is not there any more").arg(address.folder);
        break;
    case ImapSession::Failure::MessageMissing:
        outcome.failure = Failure::MessageGone;
        text = QStringLiteral("the message is no longer in %1").arg(address.folder);
        break;
    case ImapSession::Failure::TooLarge:
        outcome.failure = Failure::TooLarge;
        break;
    case ImapSession::Failure::None:
    case ImapSession::Failure::Protocol:
    case ImapSession::Failure::Refused:
        outcome.failure = Failure::Refused;
        break;
    }
    outcome.error = actionName(action) + QStringLiteral(": ") + text;
    return outcome;
}

MessageCommand::Outcome MessageCommand::attempt(Action action, const AccountSync::MessageAddress& address,
                                                const AccountCredential& credential, bool retry) {
    m_connectionFailed = false;
    ImapSession& session = m_sync.session();
    if (!session.isConnected()) {
        if (!session.connectToServer() || !AccountSync::logIn(session, m_account, credential)) {
            Outcome outcome = sessionFailed(action, address);
            session.logout();
            return outcome;
        }
    }
    switch (action) {
    case Action::Open:
        return openMessage(address);
    case Action::Reply:
        return replyTo(address);
    case Action::Archive:
    case Action::Delete:
        return moveMessage(action, address, retry);
    case Action::Compose:
    case Action::Message:
    case Action::Send:
        break; // refused by run() before it gets here
    }
    return {};
}

bool MessageCommand::openFolder(Action action, const AccountSync::MessageAddress& address, bool readOnly,
                                Outcome& outcome) {
    ImapSession& session = m_sync.session();
    const std::optional<ImapSession::Folder> folder =
        readOnly ? session.examine(address.folder) : session.select(address.folder);
    if (!folder) {
        outcome = sessionFailed(action, address);
        return false;
    }
    if (folder->uidValidity != address.uidValidity) {
        outcome.failure = Failure::MessageGone;
        outcome.error =
            actionName(action) +
            QStringLiteral(": the folder %1 was renumbered since the message was listed (UIDVALIDITY "
                           "%2, now %3)")
                .arg(address.folder)
                .arg(address.uidValidity)
                .arg(folder->uidValidity);
        return false;
    }
    return true;
}

MessageCommand::Outcome MessageCommand::moveMessage(Action action, const AccountSync::MessageAddress& address,
                                                    bool retry) {
    ImapSession& session = m_sync.session();
    const QString verb = actionName(action);
    Outcome outcome;
    if (!openFolder(action, address, false, outcome))
        return outcome;
    const std::optional<qint64> size = session.messageSize(address.uid);
    if (!size)
        return sessionFailed(action, address);
    if (*size < 0) {
        if (retry && m_moveSent) {
            // The move went out before the connection was lost; its answer did not come back.
            outcome.ok = true;
            outcome.note =
                verb + QStringLiteral(": the message had already left %1: the first try most likely "
                                      "went through before the connection was lost")
                           .arg(address.folder);
            return outcome;
        }
        outcome.failure = Failure::MessageGone;
        outcome.error = verb + QStringLiteral(": the message is no longer in %1").arg(address.folder);
        return outcome;
    }

    const bool archive = action == Action::Archive;
    QString target = archive ? m_account.archive : m_account.trash;
    if (target.isEmpty()) {
        const std::optional<QString> marked =
            session.specialUseFolder(archive ? QStringLiteral("\\Archive") : QStringLiteral("\\Trash"));
        if (!marked)
            return sessionFailed(action, address);
        target = *marked;
    }
    if (target.isEmpty()) {
        outcome.failure = Failure::NoTargetFolder;
        outcome.error =
            archive ? QStringLiteral("archive: no archive folder: the server marks none as \\Archive; "
                                     "set archive = FOLDER for account %1 in bridge.conf")
                          .arg(m_account.name)
                    : QStringLiteral("delete: no trash folder: the server marks none as \\Trash; set "
                                     "trash = FOLDER for account %1 in bridge.conf")
                          .arg(m_account.name);
        return outcome;
    }
    if (sameFolder(address.folder, target)) {
        if (archive) {
            outcome.ok = true;
            outcome.note = QStringLiteral("archive: the message is already in %1; left there").arg(target);
            return outcome;
        }
        outcome.failure = Failure::Refused;
        outcome.error =
            QStringLiteral("delete: the message is already in %1, the trash folder; the bridge never "
                           "deletes mail for good (do that in your mail program)")
                .arg(target);
        return outcome;
    }

    m_moveSent = true;
    const std::optional<ImapSession::MoveResult> moved = session.moveMessage(address.uid, target);
    if (!moved)
        return sessionFailed(action, address);
    outcome.ok = true;
    if (*moved == ImapSession::MoveResult::LeftMarkedDeleted)
        outcome.note =
            verb + QStringLiteral(": copied to %1, and left in %2 marked as deleted: other messages there "
                                  "are marked deleted too, and without UIDPLUS the server cannot remove "
                                  "one of them alone")
                       .arg(target, address.folder);
    return outcome;
}

MessageCommand::Outcome MessageCommand::openMessage(const AccountSync::MessageAddress& address) {
    ImapSession& session = m_sync.session();
    Outcome outcome;
    if (!openFolder(Action::Open, address, false, outcome))
        return outcome;
    const std::optional<QByteArray> message = session.fetchMessage(address.uid);
    if (!message)
        return sessionFailed(Action::Open, address);
    QString path;
    QString error;
    if (!saveMessage(cacheFileName(m_account.mail, address), *message, &path, &error)) {
        outcome.failure = Failure::LocalFile;
        outcome.error = QStringLiteral("open: cannot save the message in %1: %2").arg(m_cacheFolder, error);
        return outcome;
    }
    if (!session.markSeen(address.uid))
        return sessionFailed(Action::Open, address);
    outcome.ok = true;
    outcome.messageFile = path;
    outcome.messageIdHeader = MessageHeaders::parseReplyHeaders(*message).messageId;
    return outcome;
}

MessageCommand::Outcome MessageCommand::replyTo(const AccountSync::MessageAddress& address) {
    ImapSession& session = m_sync.session();
    Outcome outcome;
    // Read-only: a reply changes nothing on the server.
    if (!openFolder(Action::Reply, address, true, outcome))
        return outcome;
    const std::optional<ImapSession::ReplyHeaders> headers = session.fetchReplyHeaders(address.uid);
    if (!headers)
        return sessionFailed(Action::Reply, address);
    MailDraft& draft = outcome.reply;
    if (!headers->replyAddress.isEmpty())
        draft.to << headers->replyAddress;
    const QString subject = headers->subject;
    draft.subject = subject.startsWith(QLatin1String("re:"), Qt::CaseInsensitive)
                        ? subject
                        : QStringLiteral("Re: ") + subject;
    draft.inReplyTo = headers->messageId;
    for (const QString& id : headers->references + QStringList{headers->messageId}) {
        if (!id.isEmpty() && !draft.references.contains(id))
            draft.references << id;
    }
    draft.account = m_account.mail;
    outcome.ok = true;
    outcome.messageIdHeader = headers->messageId;
    if (draft.to.isEmpty())
        outcome.note = QStringLiteral("reply: the message names no sender to answer");
    return outcome;
}

void MessageCommand::pruneCache() {
    const QDir dir(m_cacheFolder);
    const QDateTime oldest = QDateTime::currentDateTimeUtc().addDays(-CacheDays);
    // Only the files this class makes: the messages and temporaries a crash left behind.
    const QStringList names = dir.entryList(
        {QStringLiteral("message-*.eml"), QStringLiteral(".message-*.eml.*")}, QDir::Files | QDir::Hidden);
    for (const QString& name : names) {
        const QByteArray path = QFile::encodeName(dir.filePath(name));
        struct stat st {};
        if (::lstat(path.constData(), &st) != 0 || !S_ISREG(st.st_mode))
            continue;
        if (QDateTime::fromSecsSinceEpoch(st.st_mtime, Qt::UTC) < oldest)
            ::unlink(path.constData());
    }
}

bool MessageCommand::saveMessage(const QString& name, const QByteArray& message, QString* path,
                                 QString* error) {
    if (!QDir().mkpath(m_cacheFolder)) {
        *error = QStringLiteral("cannot make the folder");
        return false;
    }
    const QByteArray folder = QFile::encodeName(m_cacheFolder);
    struct stat st {};
    if (::lstat(folder.constData(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid()) {
        *error = QStringLiteral("not a folder of this user");
        return false;
    }
    // Messages are private: only their owner may look into the folder.
    if ((st.st_mode & 07777) != 0700 && ::chmod(folder.constData(), 0700) != 0) {
        *error = systemError(errno);
        return false;
    }
    pruneCache();

    const QString finalPath = m_cacheFolder + u'/' + name;
    // Written beside its final name and renamed over it: a reader sees the old file or the new one.
    QByteArray temporary =
        QFile::encodeName(m_cacheFolder + QStringLiteral("/.") + name + QStringLiteral(".XXXXXX"));
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        *error = systemError(errno);
        return false;
    }
    auto failed = [&](int code) {
        ::close(fd);
        ::unlink(temporary.constData());
        *error = systemError(code);
        return false;
    };
    if (::fchmod(fd, 0600) != 0)
        return failed(errno);
    const char* data = message.constData();
    qsizetype left = message.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return failed(written < 0 ? errno : EIO);
        data += written;
        left -= written;
    }
    if (::fsync(fd) != 0)
        return failed(errno);
    if (::close(fd) != 0) {
        const int code = errno;
        ::unlink(temporary.constData());
        *error = systemError(code);
        return false;
    }
    if (::rename(temporary.constData(), QFile::encodeName(finalPath).constData()) != 0) {
        const int code = errno;
        ::unlink(temporary.constData());
        *error = systemError(code);
        return false;
    }
    *path = finalPath;
    return true;
}

} // namespace corvina
