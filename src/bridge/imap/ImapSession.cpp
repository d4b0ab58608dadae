#include "ImapSession.h"

#include "CertificateCheck.h"
#include "GuardedStream.h"
#include "ImapFolderName.h"
#include "MessageHeaders.h"
#include "TokenLogin.h"

#include <QDeadlineTimer>
#include <QSet>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <libetpan/libetpan.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvina {

namespace {

QString serverText(mailimap* imap) {
    if (imap == nullptr || imap->imap_response == nullptr)
        return QString();
    return QString::fromUtf8(imap->imap_response).trimmed();
}

// Frees libetpan's results on every way out.
template <typename T, void (*Free)(T*)> struct Owned {
    T* p = nullptr;
    Owned() = default;
    explicit Owned(T* value) : p(value) {}
    ~Owned() {
        if (p)
            Free(p);
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
};

// Defined with the single-message commands below.
quint32 uidOf(const mailimap_msg_att* att);
const mailimap_msg_att_static* staticOf(const mailimap_msg_att* att, int type);

void freeSearchResult(clist* list) {
    mailimap_search_result_free(list);
}
void freeFetchResult(clist* list) {
    mailimap_fetch_list_free(list);
}
void freeListResult(clist* list) {
    mailimap_list_result_free(list);
}

// The server's certificate chain as the TLS layer received it.
QList<QByteArray> peerChain(mailimap* imap) {
    QList<QByteArray> chain;
    carray* certificates = mailstream_get_certificate_chain(imap->imap_stream);
    if (certificates == nullptr)
        return chain;
    for (unsigned int i = 0; i < carray_count(certificates); ++i) {
        const auto* der = static_cast<const MMAPString*>(carray_get(certificates, i));
        if (der != nullptr)
            chain << QByteArray(der->str, static_cast<qsizetype>(der->len));
    }
    mailstream_certificate_chain_free(certificates);
    return chain;
}

} // namespace

ImapSession::ImapSession(Settings settings) : m_settings(std::move(settings)) {}

ImapSession::~ImapSession() {
    logout();
}

bool ImapSession::fail(Failure failure, const QString& text) {
    m_failure = failure;
    m_errorText = text;
    return false;
}

QDeadlineTimer ImapSession::stepDeadline() const {
    const QDeadlineTimer step(qint64(m_settings.timeoutSeconds) * 1000);
    return m_deadline < step ? m_deadline : step;
}

GuardedStream* ImapSession::guard() const {
    if (m_imap == nullptr || m_imap->imap_stream == nullptr)
        return nullptr;
    return GuardedStream::of(mailstream_get_low(m_imap->imap_stream));
}

void ImapSession::arm(qint64 answerBytes, qint64 answerCount) {
    if (GuardedStream* stream = guard())
        stream->arm(stepDeadline(), {answerBytes, answerCount});
}

void ImapSession::closeQuietly() {
    if (m_imap == nullptr)
        return;
    // mailimap_free says LOGOUT on a stream it still has: closed first, there is none.
    if (m_imap->imap_stream != nullptr) {
        mailstream_close(m_imap->imap_stream);
        m_imap->imap_stream = nullptr;
    }
    mailimap_free(m_imap);
    m_imap = nullptr;
}

QString ImapSession::brokenText(const QString& what, int result) const {
    const GuardedStream* stream = guard();
    const QString server = QStringLiteral("%1:%2").arg(m_settings.host).arg(m_settings.port);
    switch (stream != nullptr ? stream->stop() : GuardedStream::Stop::None) {
    case GuardedStream::Stop::TimedOut:
        return QStringLiteral("the server %1 did not answer within %2 s (%3)")
            .arg(server)
            .arg(m_settings.timeoutSeconds)
            .arg(what);
    case GuardedStream::Stop::Closed:
        return QStringLiteral("the server %1 closed the connection during %2").arg(server, what);
    case GuardedStream::Stop::Reset:
        return QStringLiteral("the server %1 reset the connection during %2").arg(server, what);
    case GuardedStream::Stop::Broken:
        return QStringLiteral("connection to %1 lost during %2: %3")
            .arg(server, what, QString::fromLocal8Bit(std::strerror(stream->error())));
    case GuardedStream::Stop::TooManyBytes:
        return QStringLiteral("the server %1 sent more than %2 bytes in answer to %3")
            .arg(server)
            .arg(stream->budget().bytes)
            .arg(what);
    case GuardedStream::Stop::TooManyAnswers:
        return QStringLiteral("the server %1 sent more than %2 answers to %3")
            .arg(server)
            .arg(stream->budget().answers)
            .arg(what);
    case GuardedStream::Stop::None:
        break;
    }
    if (result == MAILIMAP_ERROR_PARSE)
        return QStringLiteral("the server %1 sent an answer to %2 that cannot be read").arg(server, what);
    if (result == MAILIMAP_ERROR_STREAM || result == MAILIMAP_ERROR_CONNECTION_REFUSED ||
        result == MAILIMAP_ERROR_MEMORY)
        return QStringLiteral("connection to %1 lost during %2").arg(server, what);
    return QString();
}

bool ImapSession::check(int result, const QString& what) {
    if (result == MAILIMAP_NO_ERROR || result == MAILIMAP_NO_ERROR_AUTHENTICATED ||
        result == MAILIMAP_NO_ERROR_NON_AUTHENTICATED)
        return true;
    // An answer that cannot be read leaves the stream at an unknown place: most often the server
    // said BYE and closed the connection in the middle of it. One cut off by its deadline or its
    // budget is not waited for any longer either.
    const QString broken = brokenText(what, result);
    if (!broken.isEmpty()) {
        const GuardedStream* stream = guard();
        const bool overBudget = stream != nullptr && (stream->stop() == GuardedStream::Stop::TooManyBytes ||
                                                      stream->stop() == GuardedStream::Stop::TooManyAnswers);
        // The stream is unusable now; the next call must reconnect.
        closeQuietly();
        return fail(overBudget ? Failure::Protocol : Failure::ConnectionLost, broken);
    }
    const QString server = serverText(m_imap);
    // The command's own error is the server's NO or BAD.
    const bool refused = (result >= MAILIMAP_ERROR_APPEND && result <= MAILIMAP_ERROR_UNSUBSCRIBE) ||
                         result == MAILIMAP_ERROR_EXTENSION;
    return fail(refused ? Failure::Refused : Failure::Protocol,
                QStringLiteral("%1 failed (libetpan error %2)%3")
                    .arg(what)
                    .arg(result)
                    .arg(server.isEmpty() ? QString() : QStringLiteral(": ") + server));
}

namespace {

// A TCP connection to host:port by `deadline`: the socket (blocking again, as libetpan wants it),
// or -1 with `why` saying what happened.
int connectSocket(const QString& host, quint16 port, QDeadlineTimer deadline, int timeoutSeconds,
                  QString* why) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const QByteArray service = QByteArray::number(port);
    const int looked = ::getaddrinfo(host.toUtf8().constData(), service.constData(), &hints, &found);
    if (looked != 0) {
        *why = QStringLiteral("name not found: %1").arg(QString::fromLocal8Bit(::gai_strerror(looked)));
        return -1;
    }
    int error = 0;
    bool timedOut = false;
    int fd = -1;
    for (const addrinfo* a = found; a != nullptr && fd < 0 && !timedOut; a = a->ai_next) {
        const int s = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        if (s < 0) {
            error = errno;
            continue;
        }
        int r = ::connect(s, a->ai_addr, a->ai_addrlen);
        if (r != 0 && errno == EINPROGRESS) {
            pollfd p{s, POLLOUT, 0};
            do {
                r = ::poll(&p, 1, static_cast<int>(qMax<qint64>(0, deadline.remainingTime())));
            } while (r < 0 && errno == EINTR);
            if (r == 0) {
                timedOut = true;
                error = ETIMEDOUT;
            } else {
                socklen_t length = sizeof error;
                error = 0;
                if (r < 0 || ::getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
                    error = errno;
            }
            r = error == 0 ? 0 : -1;
        } else if (r != 0) {
            error = errno;
        }
        if (r == 0 && ::fcntl(s, F_SETFL, ::fcntl(s, F_GETFL) & ~O_NONBLOCK) == 0)
            fd = s;
        else
            ::close(s);
    }
    ::freeaddrinfo(found);
    if (fd >= 0)
        return fd;
    if (timedOut)
        *why = QStringLiteral("no connection within %1 s").arg(timeoutSeconds);
    else if (error == ECONNREFUSED)
        *why = QStringLiteral("connection refused");
    else
        *why = QString::fromLocal8Bit(std::strerror(error));
    return -1;
}

// libetpan's waits count whole seconds, 0 being its own default: what is left, rounded up.
time_t secondsLeft(QDeadlineTimer deadline) {
    return static_cast<time_t>(qMax<qint64>(1, (deadline.remainingTime() + 999) / 1000));
}

} // namespace

bool ImapSession::openConnection() {
    const QString server = QStringLiteral("%1:%2").arg(m_settings.host).arg(m_settings.port);
    auto unreachable = [&](const QString& why) {
        closeQuietly();
        return fail(Failure::HostUnreachable, QStringLiteral("host unreachable: %1 (%2)").arg(server, why));
    };
    QDeadlineTimer step = stepDeadline();
    QString why;
    const int fd = connectSocket(m_settings.host, m_settings.port, step, m_settings.timeoutSeconds, &why);
    if (fd < 0)
        return unreachable(why);
    mailstream_low* inner = m_settings.security == Security::Tls
                                ? mailstream_low_ssl_open_timeout(fd, secondsLeft(step))
                                : mailstream_low_socket_open(fd);
    if (inner == nullptr) {
        ::close(fd);
        return unreachable(step.hasExpired()
                               ? QStringLiteral("no TLS handshake within %1 s").arg(m_settings.timeoutSeconds)
                               : QStringLiteral("TLS handshake failed"));
    }
    mailstream_low* low = GuardedStream::wrap(inner);
    mailstream* connection = low != nullptr ? mailstream_new(low, 8192) : nullptr;
    if (connection == nullptr) {
        mailstream_low* made = low != nullptr ? low : inner;
        mailstream_low_close(made);
        mailstream_low_free(made);
        return unreachable(QStringLiteral("out of memory"));
    }
    GuardedStream* guarded = GuardedStream::of(low);
    // The greeting, after the handshake, has a step of its own.
    step = stepDeadline();
    guarded->arm(step, {AnswerBytes, AnswerCount});
    // The session owns the stream from here on, whatever the greeting was.
    const int result = mailimap_connect(m_imap, connection);
    if (result != MAILIMAP_NO_ERROR_AUTHENTICATED && result != MAILIMAP_NO_ERROR_NON_AUTHENTICATED) {
        switch (guarded->stop()) {
        case GuardedStream::Stop::TimedOut:
            return unreachable(QStringLiteral("no IMAP greeting within %1 s").arg(m_settings.timeoutSeconds));
        case GuardedStream::Stop::Closed:
            return unreachable(QStringLiteral("the server closed the connection before its greeting"));
        case GuardedStream::Stop::Reset:
            return unreachable(QStringLiteral("the server reset the connection before its greeting"));
        case GuardedStream::Stop::Broken:
            return unreachable(QString::fromLocal8Bit(std::strerror(guarded->error())));
        default:
            break;
        }
        const QString said = serverText(m_imap);
        return unreachable(result == MAILIMAP_ERROR_DONT_ACCEPT_CONNECTION
                               ? QStringLiteral("the server refused the session: %1").arg(said)
                               : QStringLiteral("no IMAP greeting: the server sent something else"));
    }
    if (m_settings.security == Security::StartTls) {
        arm();
        if (!check(mailimap_starttls(m_imap), QStringLiteral("STARTTLS")))
            return fail(Failure::Insecure,
                        QStringLiteral("%1 offers no STARTTLS: %2").arg(m_settings.host, m_errorText));
        // TLS over the same socket from now on, under the same guard.
        mailstream_low* tls = mailstream_low_tls_open_timeout(mailstream_low_get_fd(guarded->inner()),
                                                              secondsLeft(stepDeadline()));
        if (tls == nullptr) {
            closeQuietly();
            return fail(
                Failure::Insecure,
                QStringLiteral("%1 offers no STARTTLS: the TLS handshake failed").arg(m_settings.host));
        }
        guarded->replaceInner(tls);
    }
    return true;
}

bool ImapSession::connectToServer() {
    logout();
    m_failure = Failure::None;
    m_errorText.clear();
    m_imap = mailimap_new(0, nullptr);
    m_capabilitiesAsked = false;
    m_capabilities.clear();
    if (m_imap == nullptr)
        return fail(Failure::Protocol, QStringLiteral("out of memory"));
    mailimap_set_timeout(m_imap, m_settings.timeoutSeconds);
    if (!openConnection())
        return false;
    if (m_settings.security != Security::None) {
        // Nothing, least of all the password, goes out before the server has proved who it is.
        const QString problem =
            CertificateCheck::problem(peerChain(m_imap), m_settings.host, m_settings.caFile);
        if (!problem.isEmpty()) {
            // Not even a LOGOUT: an untrusted server is told nothing more.
            closeQuietly();
            return fail(Failure::Insecure,
                        QStringLiteral("certificate of %1 not trusted: %2").arg(m_settings.host, problem));
        }
    }
    return true;
}

bool ImapSession::login(const QString& user, const QString& password) {
    if (m_imap == nullptr)
        return fail(Failure::ConnectionLost, QStringLiteral("not connected"));
    arm();
    const int result = mailimap_login(m_imap, user.toUtf8().constData(), password.toUtf8().constData());
    if (result == MAILIMAP_ERROR_LOGIN) {
        const QString server = serverText(m_imap);
        return fail(Failure::LoginRefused,
                    QStringLiteral("login refused for %1%2")
                        .arg(user, server.isEmpty() ? QString() : QStringLiteral(": ") + server));
    }
    return check(result, QStringLiteral("LOGIN"));
}

std::optional<QSet<QByteArray>> ImapSession::capabilitiesBeforeLogin() {
    QSet<QByteArray> names;
    auto collect = [&names](const mailimap_capability_data* caps) {
        if (caps == nullptr || caps->cap_list == nullptr)
            return;
        for (clistiter* it = clist_begin(caps->cap_list); it != nullptr; it = clist_next(it)) {
            const auto* cap = static_cast<const struct mailimap_capability*>(clist_content(it));
            if (cap == nullptr)
                continue;
            if (cap->cap_type == MAILIMAP_CAPABILITY_NAME && cap->cap_data.cap_name != nullptr)
                names.insert(QByteArray(cap->cap_data.cap_name).toUpper());
            // libetpan keeps "AUTH=X" apart, as the mechanism X alone.
            if (cap->cap_type == MAILIMAP_CAPABILITY_AUTH_TYPE && cap->cap_data.cap_auth_type != nullptr)
                names.insert("AUTH=" + QByteArray(cap->cap_data.cap_auth_type).toUpper());
        }
    };
    const mailimap_connection_info* info = m_imap->imap_connection_info;
    if (info != nullptr && info->imap_capability != nullptr) {
        collect(info->imap_capability);
        return names;
    }
    mailimap_capability_data* caps = nullptr;
    arm();
    const int result = mailimap_capability(m_imap, &caps);
    if (result == MAILIMAP_NO_ERROR)
        collect(caps);
    // The answer may also be kept as the connection's own; never free that one.
    info = m_imap != nullptr ? m_imap->imap_connection_info : nullptr;
    if (caps != nullptr && (info == nullptr || info->imap_capability != caps))
        mailimap_capability_data_free(caps);
    if (!check(result, QStringLiteral("CAPABILITY")))
        return std::nullopt;
    return names;
}

bool ImapSession::sendRaw(const QByteArray& line, const QString& what) {
    if (mailstream_write(m_imap->imap_stream, line.constData(), static_cast<size_t>(line.size())) < 0 ||
        mailstream_flush(m_imap->imap_stream) < 0) {
        const QString broken = brokenText(what, MAILIMAP_ERROR_STREAM);
        closeQuietly();
        return fail(Failure::ConnectionLost, broken);
    }
    return true;
}

std::optional<QByteArray> ImapSession::readRawLine(const QString& what) {
    MMAPString* buffer = mmap_string_new("");
    if (buffer == nullptr) {
        closeQuietly();
        fail(Failure::Protocol, QStringLiteral("out of memory"));
        return std::nullopt;
    }
    // As long as the guard lets it grow: the command's byte budget bounds one line too.
    const char* line = mailstream_read_line_remove_eol(m_imap->imap_stream, buffer);
    std::optional<QByteArray> read;
    if (line != nullptr)
        read = QByteArray(buffer->str, static_cast<qsizetype>(buffer->len));
    mmap_string_free(buffer);
    if (!read) {
        const GuardedStream* stream = guard();
        const bool overBudget = stream != nullptr && (stream->stop() == GuardedStream::Stop::TooManyBytes ||
                                                      stream->stop() == GuardedStream::Stop::TooManyAnswers);
        const QString broken = brokenText(what, MAILIMAP_ERROR_STREAM);
        closeQuietly();
        fail(overBudget ? Failure::Protocol : Failure::ConnectionLost, broken);
    }
    return read;
}

// libetpan has XOAUTH2 (mailimap_oauth2_authenticate) but not OAUTHBEARER, and its XOAUTH2 reads
// the answer as any command's: a refused token, which the server answers with an error challenge
// ("+ <base64 JSON>") and then waits for the client, would leave it waiting for a tagged answer
// until the timeout. So both mechanisms are carried out here, line by line, on libetpan's stream
// and under the same guard (deadline and budget) as every other command.
bool ImapSession::authenticateWithToken(const QString& user, const QString& token) {
    if (m_imap == nullptr)
        return fail(Failure::ConnectionLost, QStringLiteral("not connected"));
    const std::optional<QSet<QByteArray>> capabilities = capabilitiesBeforeLogin();
    if (!capabilities)
        return false;
    const std::optional<TokenLogin::Mechanism> mechanism = TokenLogin::choose(*capabilities);
    if (!mechanism)
        return fail(Failure::Refused,
                    QStringLiteral("the server offers no token login (AUTH=OAUTHBEARER or AUTH=XOAUTH2)"));
    const QByteArray name = TokenLogin::name(*mechanism);
    const QString what = QStringLiteral("AUTHENTICATE ") + QString::fromLatin1(name);
    const QByteArray response =
        TokenLogin::initialResponse(*mechanism, user, token, m_settings.host, m_settings.port).toBase64();
    // The same numbering as libetpan's own commands, so that no tag is used twice.
    ++m_imap->imap_tag;
    const QByteArray tag = QByteArray::number(m_imap->imap_tag);
    // With SASL-IR the message goes with the command; without, after the server's empty challenge.
    const bool initial = capabilities->contains(QByteArrayLiteral("SASL-IR"));
    arm();
    if (!sendRaw(tag + " AUTHENTICATE " + name + (initial ? ' ' + response : QByteArray()) + "\r\n", what))
        return false;
    bool sent = initial;
    bool acknowledged = false;
    QString challenge;
    for (;;) {
        const std::optional<QByteArray> line = readRawLine(what);
        if (!line)
            return false;
        // News the server sends meanwhile; the guard's budget bounds how many.
        if (line->startsWith("* "))
            continue;
        if (line->startsWith('+')) {
            if (!sent) {
                if (!sendRaw(response + "\r\n", what))
                    return false;
                sent = true;
                continue;
            }
            // The token was refused: the challenge says why, and is answered as the mechanism
            // wants so that the server ends the command. It may come once.
            if (acknowledged) {
                closeQuietly();
                return fail(Failure::Protocol, QStringLiteral("the server %1:%2 challenged again during %3")
                                                   .arg(m_settings.host)
                                                   .arg(m_settings.port)
                                                   .arg(what));
            }
            challenge = TokenLogin::challengeText(line->mid(1));
            if (!sendRaw(TokenLogin::errorAcknowledgement(*mechanism).toBase64() + "\r\n", what))
                return false;
            acknowledged = true;
            continue;
        }
        if (!line->startsWith(tag + ' ')) {
            closeQuietly();
            return fail(Failure::Protocol,
                        QStringLiteral("the server %1:%2 sent an answer to %3 that cannot be read")
                            .arg(m_settings.host)
                            .arg(m_settings.port)
                            .arg(what));
        }
        const QByteArray rest = line->mid(tag.size() + 1);
        const QByteArray status = rest.left(rest.indexOf(' ')).toUpper();
        // Whatever the server says goes into a line; a server that repeated the token would not
        // bring it there.
        QString said = QString::fromUtf8(rest.mid(status.size())).trimmed();
        if (!token.isEmpty())
            said.replace(token, QStringLiteral("(token)"));
        if (status == "OK") {
            m_imap->imap_state = MAILIMAP_STATE_AUTHENTICATED;
            // What the server announced before login is not what it offers now: asked again when
            // needed (hasCapability, supportsIdle).
            if (mailimap_connection_info* info = m_imap->imap_connection_info;
                info != nullptr && info->imap_capability != nullptr) {
                mailimap_capability_data_free(info->imap_capability);
                info->imap_capability = nullptr;
            }
            m_capabilitiesAsked = false;
            m_capabilities.clear();
            return true;
        }
        const QString detail = (said.isEmpty() ? QString() : QStringLiteral(": ") + said) +
                               (challenge.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(challenge));
        if (status == "NO")
            return fail(Failure::LoginRefused, QStringLiteral("token login (%1) refused for %2%3")
                                                   .arg(QString::fromLatin1(name), user, detail));
        return fail(Failure::Refused, QStringLiteral("%1 failed%2").arg(what, detail));
    }
}

std::optional<ImapSession::Folder> ImapSession::examine(const QString& folder) {
    return open(folder, true);
}

std::optional<ImapSession::Folder> ImapSession::select(const QString& folder) {
    return open(folder, false);
}

std::optional<ImapSession::Folder> ImapSession::open(const QString& folder, bool readOnly) {
    if (m_imap == nullptr) {
        fail(Failure::ConnectionLost, QStringLiteral("not connected"));
        return std::nullopt;
    }
    const QByteArray name = wireName(folder);
    arm();
    const int result =
        readOnly ? mailimap_examine(m_imap, name.constData()) : mailimap_select(m_imap, name.constData());
    if (result == (readOnly ? MAILIMAP_ERROR_EXAMINE : MAILIMAP_ERROR_SELECT)) {
        const QString server = serverText(m_imap);
        fail(Failure::FolderMissing,
             QStringLiteral("folder missing: %1%2")
                 .arg(folder, server.isEmpty() ? QString() : QStringLiteral(" (") + server + u')'));
        return std::nullopt;
    }
    if (!check(result, (readOnly ? QStringLiteral("EXAMINE ") : QStringLiteral("SELECT ")) + folder))
        return std::nullopt;
    Folder state;
    state.name = folder;
    if (const mailimap_selection_info* info = m_imap->imap_selection_info) {
        state.uidValidity = info->sel_uidvalidity;
        state.uidNext = info->sel_uidnext;
        state.exists = info->sel_exists;
    }
    return state;
}

std::optional<QList<ImapSession::Envelope>> ImapSession::fetch(mailimap_set* set, bool byUid,
                                                               const QList<quint32>& asked) {
    mailimap_fetch_type* type = MessageHeaders::fetchType();
    clist* raw = nullptr;
    arm(AnswerBytes + EnvelopeBytes * asked.size(), AnswerCount + asked.size());
    const int result =
        byUid ? mailimap_uid_fetch(m_imap, set, type, &raw) : mailimap_fetch(m_imap, set, type, &raw);
    mailimap_fetch_type_free(type);
    mailimap_set_free(set);
    Owned<clist, freeFetchResult> list(raw);
    if (!check(result, QStringLiteral("FETCH")))
        return std::nullopt;
    return validAnswers(list.p, byUid, asked);
}

std::optional<QList<ImapSession::Envelope>> ImapSession::validAnswers(clist* answers, bool byUid,
                                                                      const QList<quint32>& asked) {
    // The answers are checked as a list: one that cannot be right fails the whole FETCH, so that a
    // list is never written from answers that name the wrong messages, or from too few.
    auto invalid = [this](const QString& why) {
        fail(Failure::Protocol, QStringLiteral("the server %1:%2 answered FETCH wrongly: %3")
                                    .arg(m_settings.host)
                                    .arg(m_settings.port)
                                    .arg(why));
        return std::nullopt;
    };
    const quint32 uidNext =
        m_imap->imap_selection_info != nullptr ? m_imap->imap_selection_info->sel_uidnext : 0;
    const QSet<quint32> wanted(asked.begin(), asked.end());
    QSet<quint32> answered;
    QList<std::pair<quint32, Envelope>> kept; // by message number
    for (clistiter* it = clist_begin(answers); it != nullptr; it = clist_next(it)) {
        const auto* att = static_cast<const mailimap_msg_att*>(clist_content(it));
        // News the server sends unasked (a flag changed meanwhile) carries no envelope, and an
        // answer about a message not asked for is not ours: both are left out.
        if (att == nullptr || staticOf(att, MAILIMAP_MSG_ATT_ENVELOPE) == nullptr)
            continue;
        const quint32 uid = uidOf(att);
        const quint32 key = byUid ? uid : att->att_number;
        if (!wanted.contains(key))
            continue;
        if (uid == 0)
            return invalid(QStringLiteral("message %1 came without its UID").arg(att->att_number));
        if (uidNext != 0 && uid >= uidNext)
            return invalid(QStringLiteral("UID %1 of message %2 is not below the folder's next UID %3")
                               .arg(uid)
                               .arg(att->att_number)
                               .arg(uidNext));
        if (answered.contains(key))
            return invalid(QStringLiteral("message %1 came twice").arg(att->att_number));
        answered.insert(key);
        Envelope envelope;
        // Cannot fail here: the envelope and a non-zero UID were checked above.
        MessageHeaders::readMessage(att, envelope);
        kept.append({att->att_number, envelope});
    }
    // Every message asked for by number exists (the folder was just opened, and nothing is removed
    // during a FETCH); a missing answer is one that could not be read. By UID, a message may have
    // been removed since it was found.
    if (!byUid && answered.size() != wanted.size()) {
        for (const quint32 number : asked) {
            if (!answered.contains(number))
                return invalid(QStringLiteral("no readable answer for message %1").arg(number));
        }
    }
    std::sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (qsizetype i = 1; i < kept.size(); ++i) {
        // UIDs rise with message numbers: both name the messages in the order they arrived.
        if (kept[i].first == kept[i - 1].first || kept[i].second.uid <= kept[i - 1].second.uid)
            return invalid(QStringLiteral("UID %1 of message %2 does not follow UID %3 of message %4")
                               .arg(kept[i].second.uid)
                               .arg(kept[i].first)
                               .arg(kept[i - 1].second.uid)
                               .arg(kept[i - 1].first));
    }
    QList<Envelope> envelopes;
    envelopes.reserve(kept.size());
    for (const auto& [number, envelope] : kept)
        envelopes.append(envelope);
    m_fetchedEnvelopes += envelopes.size();
    return envelopes;
}

std::optional<QList<ImapSession::Envelope>> ImapSession::fetchNewest(quint32 count) {
    if (m_imap == nullptr || m_imap->imap_selection_info == nullptr) {
        fail(Failure::Protocol, QStringLiteral("no folder open"));
        return std::nullopt;
    }
    const quint32 exists = m_imap->imap_selection_info->sel_exists;
    if (exists == 0 || count == 0)
        return QList<Envelope>();
    // Message numbers follow UID order, so the last `count` numbers are the newest messages.
    const quint32 first = exists > count ? exists - count + 1 : 1;
    QList<quint32> numbers;
    for (quint32 n = first; n <= exists && n != 0; ++n)
        numbers.append(n);
    return fetch(mailimap_set_new_interval(first, exists), false, numbers);
}

std::optional<QList<quint32>> ImapSession::searchFlagged() {
    return searchUids(MAILIMAP_SEARCH_KEY_FLAGGED, QStringLiteral("SEARCH FLAGGED"));
}

std::optional<QList<quint32>> ImapSession::searchUids(int keyType, const QString& what) {
    if (m_imap == nullptr) {
        fail(Failure::ConnectionLost, QStringLiteral("not connected"));
        return std::nullopt;
    }
    mailimap_search_key* key =
        mailimap_search_key_new(keyType, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
                                nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr);
    clist* raw = nullptr;
    arm();
    const int result = mailimap_uid_search(m_imap, nullptr, key, &raw);
    mailimap_search_key_free(key);
    Owned<clist, freeSearchResult> list(raw);
    if (!check(result, what))
        return std::nullopt;
    QList<quint32> uids;
    for (clistiter* it = clist_begin(list.p); it != nullptr; it = clist_next(it)) {
        if (const auto* uid = static_cast<const uint32_t*>(clist_content(it)))
            uids.append(*uid);
    }
    std::sort(uids.begin(), uids.end());
    return uids;
}

std::optional<QList<ImapSession::Envelope>> ImapSession::fetchUids(const QList<quint32>& uids) {
    if (m_imap == nullptr) {
        fail(Failure::ConnectionLost, QStringLiteral("not connected"));
        return std::nullopt;
    }
    if (uids.isEmpty())
        return QList<Envelope>();
    mailimap_set* set = mailimap_set_new_empty();
    for (const quint32 uid : uids)
        mailimap_set_add_single(set, uid);
    return fetch(set, true, uids);
}

void ImapSession::logout() {
    if (m_imap == nullptr)
        return;
    // A polite goodbye; its answer does not matter, and the timeout bounds the wait. Not on a
    // connection that broke, nor past the attempt's deadline.
    const GuardedStream* stream = guard();
    if (stream != nullptr && stream->stop() == GuardedStream::Stop::None && !m_deadline.hasExpired()) {
        arm();
        mailimap_logout(m_imap);
    }
    closeQuietly();
}

// --- Following the server live -------------------------------------------------------------------

namespace {

bool listsCapability(const mailimap_capability_data* caps, const char* name) {
    if (caps == nullptr || caps->cap_list == nullptr)
        return false;
    for (clistiter* it = clist_begin(caps->cap_list); it != nullptr; it = clist_next(it)) {
        const auto* cap = static_cast<const struct mailimap_capability*>(clist_content(it));
        if (cap != nullptr && cap->cap_type == MAILIMAP_CAPABILITY_NAME &&
            cap->cap_data.cap_name != nullptr && ::strcasecmp(cap->cap_data.cap_name, name) == 0)
            return true;
    }
    return false;
}

bool isEmpty(const clist* list) {
    return list == nullptr || clist_isempty(list);
}

// A peer that vanishes without a word (the network changed, a router forgot us) would otherwise
// leave the connection waiting in IDLE until it is re-issued; with keep-alive probes the kernel
// notices within about a minute and a half and the wait ends with an error.
void keepAlive(int fd) {
    if (fd < 0)
        return;
    const int on = 1;
    const int idle = 60;
    const int interval = 10;
    const int count = 3;
    ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
}

// Once woken, whoever woke us waits: a server that cannot end IDLE within this is taken as gone.
constexpr int WokenTimeoutSeconds = 2;

} // namespace

bool ImapSession::supportsIdle() {
    if (m_imap == nullptr)
        return false;
    const mailimap_connection_info* info = m_imap->imap_connection_info;
    if (info != nullptr && info->imap_capability != nullptr)
        return listsCapability(info->imap_capability, "IDLE");
    // The server did not list its capabilities with its greeting or login answer: ask.
    mailimap_capability_data* caps = nullptr;
    arm();
    const int result = mailimap_capability(m_imap, &caps);
    const bool idle = result == MAILIMAP_NO_ERROR && listsCapability(caps, "IDLE");
    // The answer may also be kept as the connection's own; never free that one.
    info = m_imap != nullptr ? m_imap->imap_connection_info : nullptr;
    if (caps != nullptr && (info == nullptr || info->imap_capability != caps))
        mailimap_capability_data_free(caps);
    check(result, QStringLiteral("CAPABILITY"));
    return idle;
}

void ImapSession::setTimeout(int seconds) {
    m_settings.timeoutSeconds = seconds;
    if (m_imap == nullptr)
        return;
    mailimap_set_timeout(m_imap, seconds);
    if (m_imap->imap_stream != nullptr)
        mailstream_low_set_timeout(mailstream_get_low(m_imap->imap_stream), seconds);
}

void ImapSession::abandon() {
    closeQuietly();
}

ImapSession::IdleOutcome ImapSession::idle(int wakeFd, int seconds) {
    if (m_imap == nullptr || m_imap->imap_selection_info == nullptr) {
        fail(Failure::ConnectionLost, QStringLiteral("not connected"));
        return IdleOutcome::Failed;
    }
    auto lost = [this](const QString& what) {
        // Whatever went wrong in the middle of IDLE, the connection is in an unknown state.
        if (m_failure != Failure::ConnectionLost)
            fail(Failure::ConnectionLost, QStringLiteral("connection to %1:%2 lost during %3: %4")
                                              .arg(m_settings.host)
                                              .arg(m_settings.port)
                                              .arg(what, m_errorText));
        abandon();
        return IdleOutcome::Failed;
    };
    const uint32_t existsBefore = m_imap->imap_selection_info->sel_exists;
    // Each of IDLE and DONE is a command with the timeout; the wait between them is as long as asked.
    arm();
    if (!check(mailimap_idle(m_imap), QStringLiteral("IDLE")))
        return lost(QStringLiteral("IDLE"));
    const int fd = mailimap_idle_get_fd(m_imap);
    keepAlive(fd);

    const QDeadlineTimer deadline(qint64(seconds) * 1000);
    // Bytes the library has already read past the server's "+ idling" would never wake poll().
    bool serverSpoke = m_imap->imap_stream != nullptr && m_imap->imap_stream->read_buffer_len > 0;
    bool woken = false;
    while (!serverSpoke && !woken) {
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
        const qint64 left = deadline.remainingTime();
        const int n =
            ::poll(fds, wakeFd >= 0 ? 2 : 1, static_cast<int>(qBound(qint64(0), left, qint64(3600 * 1000))));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            break; // ending IDLE below tells whether the connection still works
        if (n == 0) {
            if (deadline.hasExpired())
                break;
            continue;
        }
        woken = wakeFd >= 0 && fds[1].revents != 0;
        serverSpoke = fds[0].revents != 0;
    }

    const int normalTimeout = m_settings.timeoutSeconds;
    if (woken)
        setTimeout(qMin(normalTimeout, WokenTimeoutSeconds));
    arm();
    const int done = mailimap_idle_done(m_imap);
    const bool ended = check(done, QStringLiteral("DONE"));
    setTimeout(normalTimeout);
    if (!ended)
        return lost(QStringLiteral("DONE"));
    if (woken)
        return IdleOutcome::Woken;
    const mailimap_response_info* response = m_imap->imap_response_info;
    const bool changed =
        m_imap->imap_selection_info == nullptr || m_imap->imap_selection_info->sel_exists != existsBefore ||
        (response != nullptr && (!isEmpty(response->rsp_expunged) || !isEmpty(response->rsp_fetch_list)));
    return changed ? IdleOutcome::Changed : IdleOutcome::Quiet;
}

// --- Acting on one message -----------------------------------------------------------------------

namespace {

quint32 uidOf(const mailimap_msg_att* att) {
    for (clistiter* it = clist_begin(att->att_list); it != nullptr; it = clist_next(it)) {
        const auto* item = static_cast<const mailimap_msg_att_item*>(clist_content(it));
        if (item != nullptr && item->att_type == MAILIMAP_MSG_ATT_ITEM_STATIC &&
            item->att_data.att_static != nullptr &&
            item->att_data.att_static->att_type == MAILIMAP_MSG_ATT_UID)
            return item->att_data.att_static->att_data.att_uid;
    }
    return 0;
}

// The static attribute of type `type` of a message, or null.
const mailimap_msg_att_static* staticOf(const mailimap_msg_att* att, int type) {
    for (clistiter* it = clist_begin(att->att_list); it != nullptr; it = clist_next(it)) {
        const auto* item = static_cast<const mailimap_msg_att_item*>(clist_content(it));
        if (item != nullptr && item->att_type == MAILIMAP_MSG_ATT_ITEM_STATIC &&
            item->att_data.att_static != nullptr && item->att_data.att_static->att_type == type)
            return item->att_data.att_static;
    }
    return nullptr;
}

QByteArray withoutBackslash(const char* flag) {
    QByteArray text(flag);
    if (text.startsWith('\\'))
        text.remove(0, 1);
    return text.toLower();
}

} // namespace

QByteArray ImapSession::wireName(const QString& folder) {
    return ImapFolderName::encode(folder);
}

QString ImapSession::folderFromWire(const char* name) {
    if (name == nullptr)
        return QString();
    // A server that lists a name outside its own encoding (some send UTF-8) is taken at its word.
    const std::optional<QString> decoded = ImapFolderName::decode(QByteArray(name));
    return decoded ? *decoded : QString::fromUtf8(name);
}

bool ImapSession::needsFolder() {
    if (m_imap == nullptr)
        return fail(Failure::ConnectionLost, QStringLiteral("not connected"));
    if (m_imap->imap_selection_info == nullptr)
        return fail(Failure::Protocol, QStringLiteral("no folder open"));
    return true;
}

bool ImapSession::askCapabilities() {
    if (m_imap == nullptr)
        return fail(Failure::ConnectionLost, QStringLiteral("not connected"));
    if (m_capabilitiesAsked)
        return true;
    // Asked after login: what a server announces before it (with its greeting) is often less.
    mailimap_capability_data* caps = nullptr;
    arm();
    const int result = mailimap_capability(m_imap, &caps);
    if (result == MAILIMAP_NO_ERROR && caps != nullptr && caps->cap_list != nullptr) {
        for (clistiter* it = clist_begin(caps->cap_list); it != nullptr; it = clist_next(it)) {
            const auto* cap = static_cast<const struct mailimap_capability*>(clist_content(it));
            if (cap != nullptr && cap->cap_type == MAILIMAP_CAPABILITY_NAME &&
                cap->cap_data.cap_name != nullptr)
                m_capabilities.insert(QByteArray(cap->cap_data.cap_name).toUpper());
        }
    }
    // The answer may also be kept as the connection's own; never free that one.
    const mailimap_connection_info* info = m_imap != nullptr ? m_imap->imap_connection_info : nullptr;
    if (caps != nullptr && (info == nullptr || info->imap_capability != caps))
        mailimap_capability_data_free(caps);
    if (!check(result, QStringLiteral("CAPABILITY")))
        return false;
    m_capabilitiesAsked = true;
    return true;
}

bool ImapSession::hasCapability(const char* name) {
    return askCapabilities() && m_capabilities.contains(QByteArray(name).toUpper());
}

bool ImapSession::listOpenable(const std::function<bool(const mailimap_mailbox_list&)>& each) {
    if (m_imap == nullptr)
        return fail(Failure::ConnectionLost, QStringLiteral("not connected"));
    clist* raw = nullptr;
    arm(AnswerBytes, ListAnswerCount);
    const int result = mailimap_list(m_imap, "", "*", &raw);
    Owned<clist, freeListResult> list(raw);
    if (!check(result, QStringLiteral("LIST")))
        return false;
    for (clistiter* it = clist_begin(list.p); it != nullptr; it = clist_next(it)) {
        const auto* mailbox = static_cast<const mailimap_mailbox_list*>(clist_content(it));
        if (mailbox == nullptr || mailbox->mb_name == nullptr)
            continue;
        // A name that cannot be opened holds no messages, whatever it is marked.
        const mailimap_mbx_list_flags* flags = mailbox->mb_flag;
        if (flags != nullptr && flags->mbf_type == MAILIMAP_MBX_LIST_FLAGS_SFLAG &&
            flags->mbf_sflag == MAILIMAP_MBX_LIST_SFLAG_NOSELECT)
            continue;
        if (!each(*mailbox))
            break;
    }
    return true;
}

std::optional<QString> ImapSession::specialUseFolder(const QString& use) {
    const QByteArray wanted = withoutBackslash(use.toLatin1().constData());
    QString found = QString(QLatin1String(""));
    const bool listed = listOpenable([&](const mailimap_mailbox_list& mailbox) {
        if (mailbox.mb_flag == nullptr)
            return true;
        for (clistiter* f = clist_begin(mailbox.mb_flag->mbf_oflags); f != nullptr; f = clist_next(f)) {
            const auto* flag = static_cast<const mailimap_mbx_list_oflag*>(clist_content(f));
            if (flag != nullptr && flag->of_type == MAILIMAP_MBX_LIST_OFLAG_FLAG_EXT &&
                flag->of_flag_ext != nullptr && withoutBackslash(flag->of_flag_ext) == wanted) {
                found = folderFromWire(mailbox.mb_name);
                return false;
            }
        }
        return true;
    });
    if (!listed)
        return std::nullopt;
    return found;
}

std::optional<QStringList> ImapSession::listFolders(bool* more) {
    if (more != nullptr)
        *more = false;
    QStringList folders;
    QSet<QString> seen;
    const bool listed = listOpenable([&](const mailimap_mailbox_list& mailbox) {
        const QString name = folderFromWire(mailbox.mb_name);
        const bool control = std::any_of(name.cbegin(), name.cend(), [](QChar c) {
            return c.category() == QChar::Other_Control || c.category() == QChar::Other_Format;
        });
        if (name.isEmpty() || control || seen.contains(name))
            return true;
        if (folders.size() == MostFolders) {
            if (more != nullptr)
                *more = true;
            return false;
        }
        seen.insert(name);
        folders << name;
        return true;
    });
    if (!listed)
        return std::nullopt;
    return folders;
}

bool ImapSession::fetchOne(quint32 uid, mailimap_fetch_type* type, const QString& what,
                           const std::function<void(const mailimap_msg_att*)>& read, bool* found) {
    *found = false;
    if (!needsFolder()) {
        mailimap_fetch_type_free(type);
        return false;
    }
    mailimap_set* set = mailimap_set_new_single(uid);
    clist* raw = nullptr;
    // One message, whole at most: what a message may weigh, and the usual room besides.
    arm(MaximumMessageBytes + AnswerBytes);
    const int result = mailimap_uid_fetch(m_imap, set, type, &raw);
    mailimap_fetch_type_free(type);
    mailimap_set_free(set);
    Owned<clist, freeFetchResult> list(raw);
    if (!check(result, what))
        return false;
    for (clistiter* it = clist_begin(list.p); it != nullptr; it = clist_next(it)) {
        const auto* att = static_cast<const mailimap_msg_att*>(clist_content(it));
        // A FETCH the server sends unasked (a flag changed meanwhile) may be about another message.
        if (att != nullptr && uidOf(att) == uid) {
            *found = true;
            read(att);
            break;
        }
    }
    return true;
}

std::optional<qint64> ImapSession::messageSize(quint32 uid) {
    mailimap_fetch_type* type = mailimap_fetch_type_new_fetch_att_list_empty();
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_uid());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_rfc822_size());
    qint64 size = -1;
    bool found = false;
    const bool ok = fetchOne(
        uid, type, QStringLiteral("FETCH RFC822.SIZE"),
        [&size](const mailimap_msg_att* att) {
            if (const mailimap_msg_att_static* field = staticOf(att, MAILIMAP_MSG_ATT_RFC822_SIZE))
                size = field->att_data.att_rfc822_size;
        },
        &found);
    if (!ok)
        return std::nullopt;
    if (found && size < 0) {
        fail(Failure::Protocol, QStringLiteral("the server did not say the size of message %1").arg(uid));
        return std::nullopt;
    }
    return found ? size : -1;
}

std::optional<QByteArray> ImapSession::fetchMessage(quint32 uid) {
    const std::optional<qint64> size = messageSize(uid);
    if (!size)
        return std::nullopt;
    if (*size < 0) {
        fail(Failure::MessageMissing, QStringLiteral("no message with UID %1").arg(uid));
        return std::nullopt;
    }
    auto tooLarge = [this](qint64 bytes) {
        fail(Failure::TooLarge, QStringLiteral("the message is larger than %1 MiB (%2 bytes)")
                                    .arg(MaximumMessageBytes / (1024 * 1024))
                                    .arg(bytes));
        return std::nullopt;
    };
    if (*size > MaximumMessageBytes)
        return tooLarge(*size);
    // Asked for at most one byte more than allowed, whatever size the server said before.
    mailimap_fetch_type* type = mailimap_fetch_type_new_fetch_att_list_empty();
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_uid());
    mailimap_fetch_type_new_fetch_att_list_add(
        type, mailimap_fetch_att_new_body_peek_section_partial(
                  mailimap_section_new(nullptr), 0, static_cast<uint32_t>(MaximumMessageBytes + 1)));
    QByteArray message;
    bool haveBody = false;
    bool found = false;
    const bool ok = fetchOne(
        uid, type, QStringLiteral("FETCH BODY.PEEK[]"),
        [&](const mailimap_msg_att* att) {
            const mailimap_msg_att_static* field = staticOf(att, MAILIMAP_MSG_ATT_BODY_SECTION);
            if (field == nullptr || field->att_data.att_body_section == nullptr)
                return;
            const mailimap_msg_att_body_section* body = field->att_data.att_body_section;
            haveBody = true;
            if (body->sec_body_part != nullptr)
                message = QByteArray(body->sec_body_part, static_cast<qsizetype>(body->sec_length));
        },
        &found);
    if (!ok)
        return std::nullopt;
    if (!found) {
        fail(Failure::MessageMissing, QStringLiteral("no message with UID %1").arg(uid));
        return std::nullopt;
    }
    if (!haveBody) {
        fail(Failure::Protocol, QStringLiteral("the server sent no content for message %1").arg(uid));
        return std::nullopt;
    }
    if (message.size() > MaximumMessageBytes)
        return tooLarge(message.size());
    return message;
}

std::optional<ImapSession::ReplyHeaders> ImapSession::fetchReplyHeaders(quint32 uid) {
    clist* names = clist_new();
    // Content-Type for the charset that reads a subject of bare 8-bit bytes.
    for (const char* name : {"FROM", "REPLY-TO", "SUBJECT", "MESSAGE-ID", "REFERENCES", "CONTENT-TYPE"})
        clist_append(names, ::strdup(name));
    mailimap_section* section = mailimap_section_new_header_fields(mailimap_header_list_new(names));
    mailimap_fetch_type* type = mailimap_fetch_type_new_fetch_att_list_empty();
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_uid());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_body_peek_section(section));
    QByteArray header;
    bool found = false;
    const bool ok = fetchOne(
        uid, type, QStringLiteral("FETCH BODY.PEEK[HEADER.FIELDS]"),
        [&header](const mailimap_msg_att* att) {
            const mailimap_msg_att_static* field = staticOf(att, MAILIMAP_MSG_ATT_BODY_SECTION);
            if (field != nullptr && field->att_data.att_body_section != nullptr &&
                field->att_data.att_body_section->sec_body_part != nullptr)
                header = QByteArray(field->att_data.att_body_section->sec_body_part,
                                    static_cast<qsizetype>(field->att_data.att_body_section->sec_length));
        },
        &found);
    if (!ok)
        return std::nullopt;
    if (!found) {
        fail(Failure::MessageMissing, QStringLiteral("no message with UID %1").arg(uid));
        return std::nullopt;
    }
    return MessageHeaders::parseReplyHeaders(header);
}

bool ImapSession::storeFlag(quint32 uid, bool deleted, const QString& what) {
    if (!needsFolder())
        return false;
    mailimap_flag_list* flags = mailimap_flag_list_new_empty();
    mailimap_flag_list_add(flags, deleted ? mailimap_flag_new_deleted() : mailimap_flag_new_seen());
    mailimap_store_att_flags* store = mailimap_store_att_flags_new_add_flags_silent(flags);
    mailimap_set* set = mailimap_set_new_single(uid);
    arm();
    const int result = mailimap_uid_store(m_imap, set, store);
    mailimap_set_free(set);
    mailimap_store_att_flags_free(store);
    return check(result, what);
}

bool ImapSession::markSeen(quint32 uid) {
    return storeFlag(uid, false, QStringLiteral("STORE +FLAGS (\\Seen)"));
}

std::optional<ImapSession::MoveResult> ImapSession::moveMessage(quint32 uid, const QString& target) {
    if (!needsFolder() || !askCapabilities())
        return std::nullopt;
    const QByteArray name = wireName(target);
    auto run = [this, uid](int (*command)(mailimap*, mailimap_set*, const char*), const char* mailbox,
                           const QString& what) {
        mailimap_set* set = mailimap_set_new_single(uid);
        arm();
        const int result = command(m_imap, set, mailbox);
        mailimap_set_free(set);
        return check(result, what);
    };
    if (hasCapability("MOVE")) {
        if (!run(mailimap_uid_move, name.constData(), QStringLiteral("UID MOVE to ") + target))
            return std::nullopt;
        return MoveResult::Moved;
    }
    // Without MOVE: a copy, then the original marked \Deleted and expunged, that message alone.
    if (!run(mailimap_uid_copy, name.constData(), QStringLiteral("UID COPY to ") + target) ||
        !storeFlag(uid, true, QStringLiteral("STORE +FLAGS (\\Deleted)")))
        return std::nullopt;
    if (hasCapability("UIDPLUS")) {
        mailimap_set* set = mailimap_set_new_single(uid);
        arm();
        const int result = mailimap_uid_expunge(m_imap, set);
        mailimap_set_free(set);
        if (!check(result, QStringLiteral("UID EXPUNGE")))
            return std::nullopt;
        return MoveResult::Moved;
    }
    // A plain EXPUNGE removes every message marked \Deleted: only when this one is the only one.
    const std::optional<QList<quint32>> deleted =
        searchUids(MAILIMAP_SEARCH_KEY_DELETED, QStringLiteral("SEARCH DELETED"));
    if (!deleted)
        return std::nullopt;
    if (*deleted != QList<quint32>{uid})
        return MoveResult::LeftMarkedDeleted;
    arm();
    if (!check(mailimap_expunge(m_imap), QStringLiteral("EXPUNGE")))
        return std::nullopt;
    return MoveResult::Moved;
}

} // namespace corvina
