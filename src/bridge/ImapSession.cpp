#include "ImapSession.h"

#include "bridge/CertificateCheck.h"
#include "bridge/ImapFolderName.h"

#include <QDeadlineTimer>
#include <QTimeZone>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <libetpan/libetpan.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

namespace corvina {

namespace {

QString serverText(mailimap* imap) {
    if (imap == nullptr || imap->imap_response == nullptr)
        return QString();
    return QString::fromUtf8(imap->imap_response).trimmed();
}

QDateTime makeDateTime(int year, int month, int day, int hour, int minute, int second, int zone) {
    // Two-digit years of old mailers: 00-49 are 2000-2049, 50-999 are 1950-2899, as RFC 5322 reads them.
    if (year >= 0 && year < 50)
        year += 2000;
    else if (year >= 50 && year < 1000)
        year += 1900;
    const QDate date(year, month, day);
    const QTime time(hour, minute, second);
    // zones come as +hhmm read as a decimal number: -0130 is -130
    const int sign = zone < 0 ? -1 : 1;
    const int magnitude = std::abs(zone);
    const int offset = sign * ((magnitude / 100) * 3600 + (magnitude % 100) * 60);
    if (!date.isValid() || !time.isValid() || std::abs(offset) > 14 * 3600)
        return QDateTime();
    return QDateTime(date, time, QTimeZone(offset)).toUTC();
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

void freeSearchResult(clist* list) {
    mailimap_search_result_free(list);
}
void freeFetchResult(clist* list) {
    mailimap_fetch_list_free(list);
}

void readFlags(const mailimap_msg_att_dynamic* dynamic, ImapSession::Envelope& envelope) {
    if (dynamic == nullptr || dynamic->att_list == nullptr)
        return;
    for (clistiter* it = clist_begin(dynamic->att_list); it != nullptr; it = clist_next(it)) {
        const auto* flag = static_cast<const mailimap_flag_fetch*>(clist_content(it));
        if (flag == nullptr || flag->fl_type != MAILIMAP_FLAG_FETCH_OTHER || flag->fl_flag == nullptr)
            continue;
        if (flag->fl_flag->fl_type == MAILIMAP_FLAG_SEEN)
            envelope.seen = true;
        else if (flag->fl_flag->fl_type == MAILIMAP_FLAG_FLAGGED)
            envelope.flagged = true;
    }
}

QString senderText(const mailimap_envelope* env) {
    if (env->env_from == nullptr || env->env_from->frm_list == nullptr)
        return QString();
    clistiter* first = clist_begin(env->env_from->frm_list);
    if (first == nullptr)
        return QString();
    const auto* address = static_cast<const mailimap_address*>(clist_content(first));
    if (address == nullptr)
        return QString();
    const QString name = ImapSession::decodeHeader(address->ad_personal_name).trimmed();
    if (!name.isEmpty())
        return name;
    const QString mailbox = QString::fromUtf8(address->ad_mailbox_name ? address->ad_mailbox_name : "");
    const QString host = QString::fromUtf8(address->ad_host_name ? address->ad_host_name : "");
    if (host.isEmpty())
        return mailbox;
    return mailbox + QLatin1Char('@') + host;
}

bool readMessage(const mailimap_msg_att* att, ImapSession::Envelope& envelope) {
    bool haveEnvelope = false;
    for (clistiter* it = clist_begin(att->att_list); it != nullptr; it = clist_next(it)) {
        const auto* item = static_cast<const mailimap_msg_att_item*>(clist_content(it));
        if (item == nullptr)
            continue;
        if (item->att_type == MAILIMAP_MSG_ATT_ITEM_DYNAMIC) {
            readFlags(item->att_data.att_dyn, envelope);
            continue;
        }
        if (item->att_type != MAILIMAP_MSG_ATT_ITEM_STATIC || item->att_data.att_static == nullptr)
            continue;
        const mailimap_msg_att_static* field = item->att_data.att_static;
        switch (field->att_type) {
        case MAILIMAP_MSG_ATT_UID:
            envelope.uid = field->att_data.att_uid;
            break;
        case MAILIMAP_MSG_ATT_INTERNALDATE:
            if (const mailimap_date_time* d = field->att_data.att_internal_date)
                envelope.internalDate = makeDateTime(d->dt_year, d->dt_month, d->dt_day, d->dt_hour,
                                                     d->dt_min, d->dt_sec, d->dt_zone);
            break;
        case MAILIMAP_MSG_ATT_ENVELOPE:
            if (const mailimap_envelope* env = field->att_data.att_env) {
                haveEnvelope = true;
                if (env->env_subject != nullptr)
                    envelope.subject = ImapSession::decodeHeader(env->env_subject);
                envelope.from = senderText(env);
                if (env->env_message_id != nullptr)
                    envelope.messageId = QString::fromUtf8(env->env_message_id);
                envelope.date = ImapSession::parseDate(env->env_date);
            }
            break;
        default:
            break;
        }
    }
    // An unasked FETCH (a flag changed meanwhile) carries no envelope: not one of ours.
    return haveEnvelope && envelope.uid != 0;
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

QByteArray ImapSession::wireFolderName(const QString& folder) {
    return ImapFolderName::encode(folder);
}

bool ImapSession::fail(Failure failure, const QString& text) {
    m_failure = failure;
    m_errorText = text;
    return false;
}

bool ImapSession::check(int result, const QString& what) {
    if (result == MAILIMAP_NO_ERROR || result == MAILIMAP_NO_ERROR_AUTHENTICATED ||
        result == MAILIMAP_NO_ERROR_NON_AUTHENTICATED)
        return true;
    if (result == MAILIMAP_ERROR_STREAM || result == MAILIMAP_ERROR_CONNECTION_REFUSED ||
        result == MAILIMAP_ERROR_MEMORY) {
        // The stream is unusable now; the next call must reconnect.
        mailimap_free(m_imap);
        m_imap = nullptr;
        return fail(Failure::ConnectionLost, QStringLiteral("connection to %1:%2 lost or timed out during %3")
                                                 .arg(m_settings.host)
                                                 .arg(m_settings.port)
                                                 .arg(what));
    }
    const QString server = serverText(m_imap);
    return fail(Failure::Protocol, QStringLiteral("%1 failed (libetpan error %2)%3")
                                       .arg(what)
                                       .arg(result)
                                       .arg(server.isEmpty() ? QString() : QStringLiteral(": ") + server));
}

bool ImapSession::connectToServer() {
    logout();
    m_failure = Failure::None;
    m_errorText.clear();
    m_imap = mailimap_new(0, nullptr);
    if (m_imap == nullptr)
        return fail(Failure::Protocol, QStringLiteral("out of memory"));
    mailimap_set_timeout(m_imap, m_settings.timeoutSeconds);
    const QByteArray host = m_settings.host.toUtf8();
    int result = MAILIMAP_NO_ERROR;
    if (m_settings.security == BridgeConfig::Security::Tls)
        result = mailimap_ssl_connect(m_imap, host.constData(), m_settings.port);
    else
        result = mailimap_socket_connect(m_imap, host.constData(), m_settings.port);
    if (result != MAILIMAP_NO_ERROR_AUTHENTICATED && result != MAILIMAP_NO_ERROR_NON_AUTHENTICATED) {
        mailimap_free(m_imap);
        m_imap = nullptr;
        return fail(
            Failure::HostUnreachable,
            QStringLiteral("host unreachable: %1:%2 (%3)")
                .arg(m_settings.host)
                .arg(m_settings.port)
                .arg(result == MAILIMAP_ERROR_CONNECTION_REFUSED
                         ? QStringLiteral("no connection")
                         : QStringLiteral("no IMAP greeting within %1 s").arg(m_settings.timeoutSeconds)));
    }
    if (m_settings.security == BridgeConfig::Security::StartTls) {
        if (!check(mailimap_socket_starttls(m_imap), QStringLiteral("STARTTLS")))
            return fail(Failure::Insecure,
                        QStringLiteral("%1 offers no STARTTLS: %2").arg(m_settings.host, m_errorText));
    }
    if (m_settings.security != BridgeConfig::Security::None) {
        // Nothing, least of all the password, goes out before the server has proved who it is.
        const QString problem =
            CertificateCheck::problem(peerChain(m_imap), m_settings.host, m_settings.caFile);
        if (!problem.isEmpty()) {
            // Not even a LOGOUT: an untrusted server is told nothing more.
            mailimap_free(m_imap);
            m_imap = nullptr;
            return fail(Failure::Insecure,
                        QStringLiteral("certificate of %1 not trusted: %2").arg(m_settings.host, problem));
        }
    }
    return true;
}

bool ImapSession::login(const QString& user, const QString& password) {
    if (m_imap == nullptr)
        return fail(Failure::ConnectionLost, QStringLiteral("not connected"));
    const int result = mailimap_login(m_imap, user.toUtf8().constData(), password.toUtf8().constData());
    if (result == MAILIMAP_ERROR_LOGIN) {
        const QString server = serverText(m_imap);
        return fail(Failure::LoginRefused,
                    QStringLiteral("login refused for %1%2")
                        .arg(user, server.isEmpty() ? QString() : QStringLiteral(": ") + server));
    }
    return check(result, QStringLiteral("LOGIN"));
}

std::optional<ImapSession::Folder> ImapSession::examine(const QString& folder) {
    if (m_imap == nullptr) {
        fail(Failure::ConnectionLost, QStringLiteral("not connected"));
        return std::nullopt;
    }
    const int result = mailimap_examine(m_imap, wireFolderName(folder).constData());
    if (result == MAILIMAP_ERROR_EXAMINE) {
        const QString server = serverText(m_imap);
        fail(Failure::FolderMissing,
             QStringLiteral("folder missing: %1%2")
                 .arg(folder, server.isEmpty() ? QString() : QStringLiteral(" (") + server + u')'));
        return std::nullopt;
    }
    if (!check(result, QStringLiteral("EXAMINE ") + folder))
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

std::optional<QList<ImapSession::Envelope>> ImapSession::fetch(mailimap_set* set, bool byUid) {
    mailimap_fetch_type* type = mailimap_fetch_type_new_fetch_att_list_empty();
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_uid());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_flags());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_internaldate());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_envelope());
    clist* raw = nullptr;
    const int result =
        byUid ? mailimap_uid_fetch(m_imap, set, type, &raw) : mailimap_fetch(m_imap, set, type, &raw);
    mailimap_fetch_type_free(type);
    mailimap_set_free(set);
    Owned<clist, freeFetchResult> list(raw);
    if (!check(result, QStringLiteral("FETCH")))
        return std::nullopt;
    QList<Envelope> envelopes;
    for (clistiter* it = clist_begin(list.p); it != nullptr; it = clist_next(it)) {
        const auto* att = static_cast<const mailimap_msg_att*>(clist_content(it));
        Envelope envelope;
        if (att != nullptr && readMessage(att, envelope)) {
            ++m_fetchedEnvelopes;
            envelopes.append(envelope);
        }
    }
    std::sort(envelopes.begin(), envelopes.end(),
              [](const Envelope& a, const Envelope& b) { return a.uid < b.uid; });
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
    return fetch(mailimap_set_new_interval(first, exists), false);
}

std::optional<QList<quint32>> ImapSession::searchFlagged() {
    if (m_imap == nullptr) {
        fail(Failure::ConnectionLost, QStringLiteral("not connected"));
        return std::nullopt;
    }
    mailimap_search_key* key = mailimap_search_key_new(
        MAILIMAP_SEARCH_KEY_FLAGGED, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
        nullptr, 0, nullptr, nullptr, nullptr);
    clist* raw = nullptr;
    const int result = mailimap_uid_search(m_imap, nullptr, key, &raw);
    mailimap_search_key_free(key);
    Owned<clist, freeSearchResult> list(raw);
    if (!check(result, QStringLiteral("SEARCH FLAGGED")))
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
    return fetch(set, true);
}

void ImapSession::logout() {
    if (m_imap == nullptr)
        return;
    // A polite goodbye; its answer does not matter, and the timeout bounds the wait.
    mailimap_logout(m_imap);
    mailimap_free(m_imap);
    m_imap = nullptr;
}

QString ImapSession::decodeHeader(const char* raw) {
    if (raw == nullptr)
        return QString();
    size_t index = 0;
    char* decoded = nullptr;
    // Text outside encoded words is taken as UTF-8, which also covers plain ASCII.
    const int result =
        mailmime_encoded_phrase_parse("utf-8", raw, std::strlen(raw), &index, "utf-8", &decoded);
    if (result != MAILIMF_NO_ERROR || decoded == nullptr) {
        free(decoded);
        return QString::fromUtf8(raw);
    }
    const QString text = QString::fromUtf8(decoded);
    free(decoded);
    return text;
}

QDateTime ImapSession::parseDate(const char* raw) {
    if (raw == nullptr)
        return QDateTime();
    size_t index = 0;
    mailimf_date_time* parsed = nullptr;
    if (mailimf_date_time_parse(raw, std::strlen(raw), &index, &parsed) != MAILIMF_NO_ERROR ||
        parsed == nullptr)
        return QDateTime();
    const QDateTime date = makeDateTime(parsed->dt_year, parsed->dt_month, parsed->dt_day, parsed->dt_hour,
                                        parsed->dt_min, parsed->dt_sec, parsed->dt_zone);
    mailimf_date_time_free(parsed);
    return date;
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
    if (m_imap == nullptr)
        return;
    mailimap_free(m_imap);
    m_imap = nullptr;
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

} // namespace corvina
