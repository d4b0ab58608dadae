#include "AccountSync.h"

#include "bridge/imap/MessageHeaders.h"
#include "requestutils/RequestUtils.h"

#include <chrono>
#include <limits>

namespace corvina {

AccountSync::AccountSync(BridgeConfig::Account account, int timeoutSeconds)
    : m_account(std::move(account)),
      m_session({m_account.host, m_account.port, m_account.security, timeoutSeconds, m_account.caFile}) {}

QString AccountSync::messageIdFor(const QString& folder, quint32 uidValidity, quint32 uid) {
    return RequestUtils::URLEncodedString(folder) + QLatin1Char('/') + QString::number(uidValidity) +
           QLatin1Char('/') + QString::number(uid);
}

namespace {

// A decimal number as QString::number writes a non-zero quint32.
std::optional<quint32> readNumber(QStringView text) {
    if (text.isEmpty() || text.size() > 10 || text.front() == u'0')
        return std::nullopt;
    quint64 value = 0;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = value * 10 + static_cast<quint64>(c.unicode() - u'0');
    }
    if (value == 0 || value > std::numeric_limits<quint32>::max())
        return std::nullopt;
    return static_cast<quint32>(value);
}

int hexValue(QChar c) {
    if (c >= u'0' && c <= u'9')
        return c.unicode() - u'0';
    if (c >= u'A' && c <= u'F')
        return c.unicode() - u'A' + 10;
    if (c >= u'a' && c <= u'f')
        return c.unicode() - u'a' + 10;
    return -1;
}

} // namespace

std::optional<AccountSync::MessageAddress> AccountSync::parseMessageId(const QString& messageId) {
    if (messageId.isEmpty() || messageId.size() > MaximumMessageIdLength)
        return std::nullopt;
    const QList<QStringView> parts = QStringView(messageId).split(u'/');
    if (parts.size() != 3 || parts[0].isEmpty())
        return std::nullopt;
    const std::optional<quint32> uidValidity = readNumber(parts[1]);
    const std::optional<quint32> uid = readNumber(parts[2]);
    if (!uidValidity || !uid)
        return std::nullopt;
    QByteArray bytes;
    bytes.reserve(parts[0].size());
    for (qsizetype i = 0; i < parts[0].size(); ++i) {
        const QChar c = parts[0][i];
        if (c != u'%') {
            if (c.unicode() > 0x7e)
                return std::nullopt;
            bytes.append(static_cast<char>(c.unicode()));
            continue;
        }
        if (i + 2 >= parts[0].size())
            return std::nullopt;
        const int high = hexValue(parts[0][i + 1]);
        const int low = hexValue(parts[0][i + 2]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.append(static_cast<char>(high * 16 + low));
        i += 2;
    }
    MessageAddress address{QString::fromUtf8(bytes), *uidValidity, *uid};
    for (const QChar c : address.folder) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f || c.category() == QChar::Other_Control)
            return std::nullopt;
    }
    // Only what messageIdFor would have written: this rejects lower-case or needless escapes,
    // bytes that are not UTF-8, and characters that should have been escaped.
    if (messageIdFor(address.folder, address.uidValidity, address.uid) != messageId)
        return std::nullopt;
    return address;
}

QString AccountSync::fileFor(SnapshotFormat::ListKind kind) {
    switch (kind) {
    case SnapshotFormat::ListKind::Inbox:
        return QStringLiteral("inbox.plist");
    case SnapshotFormat::ListKind::ToDo:
        return QStringLiteral("todo.plist");
    case SnapshotFormat::ListKind::Memo:
        return QStringLiteral("memo.plist");
    case SnapshotFormat::ListKind::Fourth:
        break;
    }
    return QString();
}

QStringList AccountSync::listFiles() {
    using Kind = SnapshotFormat::ListKind;
    return {fileFor(Kind::Inbox), fileFor(Kind::ToDo), fileFor(Kind::Memo)};
}

QVariantMap AccountSync::messageDictionary(const ImapSession::Envelope& envelope, const QString& account,
                                           const ImapSession::Folder& folder, SnapshotFormat::ListKind kind) {
    using Key = SnapshotFormat::MessageKey;
    // Every text goes through xmlSafe: a server's subject may hold an escape character, which would
    // make the whole file unreadable to other readers of the shared folder; the record holds what
    // the file holds, so the widget shows the same replacement sign.
    QVariantMap message{
        {SnapshotFormat::key(Key::MessageId), messageIdFor(folder.name, folder.uidValidity, envelope.uid)},
        {SnapshotFormat::key(Key::Account), MessageHeaders::xmlSafe(account)},
        {SnapshotFormat::key(Key::From), MessageHeaders::xmlSafe(envelope.from)},
        {SnapshotFormat::key(Key::Folder), MessageHeaders::xmlSafe(folder.name)},
        {SnapshotFormat::key(Key::FolderStid), SnapshotFormat::number(kind)},
        {SnapshotFormat::key(Key::IsUnread), envelope.seen ? 0 : 1},
    };
    // Without a Subject header the key stays out, and the widget shows its own "No subject".
    if (!envelope.subject.isNull())
        message.insert(SnapshotFormat::key(Key::Subject), MessageHeaders::xmlSafe(envelope.subject));
    // The sender's date when it is readable, else when the server received the message.
    const QDateTime date = envelope.date.isValid() ? envelope.date : envelope.internalDate;
    if (date.isValid())
        message.insert(SnapshotFormat::key(Key::Date), date.toSecsSinceEpoch());
    return message;
}

bool AccountSync::failed(Result& result) {
    result.ok = false;
    result.failure = m_session.failure();
    result.error = m_session.errorText();
    return false;
}

bool AccountSync::logIn(ImapSession& session, const BridgeConfig::Account& account,
                        const AccountCredential& credential) {
    return credential.isToken() ? session.authenticateWithToken(account.user, credential.secret())
                                : session.login(account.user, credential.secret());
}

bool AccountSync::connectAndLogIn(const AccountCredential& credential, Result& result) {
    if (!m_session.connectToServer() || !logIn(m_session, m_account, credential)) {
        m_session.logout();
        return failed(result);
    }
    return true;
}

bool AccountSync::ensureLoggedIn(const CredentialSource& source, Result& result) {
    if (m_session.isConnected())
        return true;
    QString error;
    std::optional<AccountCredential> credential = source(m_account, &error);
    if (!credential) {
        result.ok = false;
        result.error = error;
        return false;
    }
    if (connectAndLogIn(*credential, result))
        return true;
    if (!credential->isToken() || result.failure != ImapSession::Failure::LoginRefused)
        return false;
    // A token may run out between being handed out and being used, or be revoked and made anew:
    // one fresh token is worth a try before the account is failed.
    const QString first = result.error;
    AccountCredential::refused(m_account);
    credential = source(m_account, &error);
    if (!credential) {
        // A sign-in that ran out is what the person must act on: its line alone, as it starts.
        result.error = error.startsWith(QLatin1String(AccountCredential::SignInNeeded))
                           ? error
                           : first + QStringLiteral("; no new token: ") + error;
        return false;
    }
    result = Result();
    if (connectAndLogIn(*credential, result))
        return true;
    if (result.failure == ImapSession::Failure::LoginRefused)
        result.error = QStringLiteral("the server refused a new token too: ") + result.error;
    return false;
}

std::optional<AccountSync::Snapshot> AccountSync::newestOf(const QString& folder,
                                                           SnapshotFormat::ListKind kind, Result& result,
                                                           ImapSession::Folder* opened) {
    const std::optional<ImapSession::Folder> state = m_session.examine(folder);
    if (!state) {
        failed(result);
        return std::nullopt;
    }
    if (opened != nullptr)
        *opened = *state;
    const auto envelopes = m_session.fetchNewest(static_cast<quint32>(m_account.messages));
    if (!envelopes) {
        failed(result);
        return std::nullopt;
    }
    Snapshot snapshot{fileFor(kind), folder, {}};
    for (const ImapSession::Envelope& envelope : *envelopes)
        snapshot.messages.append(messageDictionary(envelope, m_account.mail, *state, kind));
    return snapshot;
}

std::optional<AccountSync::Snapshot> AccountSync::flaggedOf(const QString& folder, Result& result) {
    const std::optional<ImapSession::Folder> state = m_session.examine(folder);
    if (!state) {
        failed(result);
        return std::nullopt;
    }
    const auto flagged = m_session.searchFlagged();
    if (!flagged) {
        failed(result);
        return std::nullopt;
    }
    // Only the newest of them are fetched, however many are flagged.
    const QList<quint32> newest = flagged->mid(qMax<qsizetype>(0, flagged->size() - m_account.messages));
    const auto envelopes = m_session.fetchUids(newest);
    if (!envelopes) {
        failed(result);
        return std::nullopt;
    }
    // the flagged messages of the inbox are the To Do list
    const SnapshotFormat::ListKind kind = SnapshotFormat::ListKind::ToDo;
    Snapshot snapshot{fileFor(kind), folder, {}};
    for (const ImapSession::Envelope& envelope : *envelopes)
        snapshot.messages.append(messageDictionary(envelope, m_account.mail, *state, kind));
    return snapshot;
}

AccountSync::CredentialSource AccountSync::fixed(const AccountCredential& credential) {
    return [credential](const BridgeConfig::Account&, QString*) { return std::optional(credential); };
}

AccountSync::Result AccountSync::run(const AccountCredential& credential) {
    return run(fixed(credential));
}

AccountSync::Result AccountSync::run(const CredentialSource& source) {
    const qint64 started = monotonicMs();
    Result result = pass(source, &AccountSync::readLists);
    result.readStarted = started;
    return result;
}

qint64 AccountSync::monotonicMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

AccountSync::Result AccountSync::check(const AccountCredential& credential) {
    return check(fixed(credential));
}

AccountSync::Result AccountSync::check(const CredentialSource& source) {
    return pass(source, &AccountSync::openFolders);
}

AccountSync::Result AccountSync::pass(const CredentialSource& source, Result (AccountSync::*then)(Result)) {
    Result result;
    if (!ensureLoggedIn(source, result))
        return result;
    return (this->*then)(result);
}

AccountSync::Result AccountSync::readLists(Result result) {
    using Kind = SnapshotFormat::ListKind;
    const auto inbox = newestOf(m_account.inbox, Kind::Inbox, result, &result.inbox);
    if (!inbox)
        return result;
    result.snapshots.append(*inbox);
    const auto todo = m_account.todo.isEmpty() ? flaggedOf(m_account.inbox, result)
                                               : newestOf(m_account.todo, Kind::ToDo, result);
    if (!todo)
        return result;
    result.snapshots.append(*todo);
    if (!m_account.memo.isEmpty()) {
        const auto memo = newestOf(m_account.memo, Kind::Memo, result);
        if (!memo)
            return result;
        result.snapshots.append(*memo);
    }
    result.ok = true;
    return result;
}

AccountSync::Result AccountSync::openFolders(Result result) {
    for (const QString& folder : {m_account.inbox, m_account.todo, m_account.memo}) {
        if (!folder.isEmpty() && !m_session.examine(folder)) {
            failed(result);
            return result;
        }
    }
    result.ok = true;
    return result;
}

} // namespace corvina
