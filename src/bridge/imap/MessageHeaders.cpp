#include "MessageHeaders.h"

#include "platform/Localization.h"

#include <QTimeZone>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <libetpan/libetpan.h>
#include <memory>
#include <optional>

namespace corvina {

namespace {

// Frees libetpan's results on every way out.
struct FreeFields {
    void operator()(mailimf_fields* fields) const { mailimf_fields_free(fields); }
};
struct FreeContent {
    void operator()(mailmime_content* content) const { mailmime_content_free(content); }
};
struct FreeDate {
    void operator()(mailimf_date_time* date) const { mailimf_date_time_free(date); }
};

QDateTime makeDateTime(int year, int month, int day, int hour, int minute, int second, int zone) {
    // Two-digit years of old mailers: 00-49 are 2000-2049, 50-999 are 1950-2899, as RFC 5322 reads them.
    if (year >= 0 && year < 50)
        year += 2000;
    else if (year >= 50 && year < 1000)
        year += 1900;
    const QDate date(year, month, day);
    const QTime time(hour, minute, second);
    // zones come as +hhmm read as a decimal number: -0130 is -130. More than four digits is no
    // zone: refused before any arithmetic, which would overflow on the number a hostile date gives.
    if (zone < -9999 || zone > 9999)
        return QDateTime();
    const int sign = zone < 0 ? -1 : 1;
    const int magnitude = std::abs(zone);
    const int offset = sign * ((magnitude / 100) * 3600 + (magnitude % 100) * 60);
    if (!date.isValid() || !time.isValid() || std::abs(offset) > 14 * 3600)
        return QDateTime();
    return QDateTime(date, time, QTimeZone(offset)).toUTC();
}

// The longest charset name taken from a message; the registered names are far shorter.
constexpr qsizetype MaximumCharsetNameLength = 40;
// How many of a message's declared charsets are tried on one text: a header naming hundreds of
// charsets must not make each of its texts cost hundreds of conversions.
constexpr qsizetype MaximumCharsets = 8;

// A name as charsets are named (letters, digits, - _ . : +), nothing that iconv would read as a
// path or as its own suffixes ("//TRANSLIT").
bool looksLikeCharset(const QByteArray& name) {
    if (name.isEmpty() || name.size() > MaximumCharsetNameLength)
        return false;
    for (const char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        c == '-' || c == '_' || c == '.' || c == ':' || c == '+';
        if (!ok)
            return false;
    }
    return true;
}

void addCharset(QByteArrayList& list, QByteArray name) {
    name = name.trimmed().toLower();
    if (looksLikeCharset(name) && !list.contains(name) && list.size() < MaximumCharsets)
        list.append(name);
}

// Whether `bytes` are UTF-8 throughout. Qt's reader puts U+FFFD for what is not (and keeps a
// sequence cut short at the end pending rather than calling it an error), so the text is written
// back and compared.
bool isValidUtf8(const QByteArray& bytes) {
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

// `bytes` read as `charset` by iconv, refusing any byte sequence the charset does not define.
std::optional<QString> convert(const QByteArray& bytes, const QByteArray& charset) {
    iconv_t cd = ::iconv_open("UTF-8", charset.constData());
    // iconv_open says failure with (iconv_t)-1
    if (reinterpret_cast<intptr_t>(cd) == -1)
        return std::nullopt;
    // UTF-8 takes at most four bytes for any character of a legacy charset's one to four.
    QByteArray out(bytes.size() * 4 + 16, Qt::Uninitialized);
    char* in = const_cast<char*>(bytes.constData());
    size_t inLeft = static_cast<size_t>(bytes.size());
    char* outPtr = out.data();
    size_t outLeft = static_cast<size_t>(out.size());
    bool ok = ::iconv(cd, &in, &inLeft, &outPtr, &outLeft) != static_cast<size_t>(-1) && inLeft == 0;
    // the end of a stateful charset's shift state
    ok = ok && ::iconv(cd, nullptr, nullptr, &outPtr, &outLeft) != static_cast<size_t>(-1);
    ::iconv_close(cd);
    if (!ok)
        return std::nullopt;
    out.truncate(out.size() - static_cast<qsizetype>(outLeft));
    // iconv copies "UTF-8" to "UTF-8" without looking: what it gives must be UTF-8 itself.
    if (!isValidUtf8(out))
        return std::nullopt;
    return QString::fromUtf8(out);
}

// Whether a charset reads printable ASCII as ASCII: a declaration of UTF-16 or UTF-7 would turn
// 8-bit header bytes into nonsense, and the encoded words between them must stay readable.
bool keepsAscii(const QByteArray& charset) {
    // Letters, digits and what encoded words and addresses are made of; not \\ or ~, which some
    // Japanese charsets read as their own signs.
    static const QByteArray probe = QByteArrayLiteral("ABCXYZ abcxyz 0189 =?_-+/*.,:;()<>@\"'!#$%&[]^`{|}");
    const std::optional<QString> text = convert(probe, charset);
    return text && *text == QLatin1String(probe);
}

// The charsets named by the encoded words of a header value: "=?koi8-r?B?...?=", "=?utf-8*en?Q?...".
void encodedWordCharsets(const QByteArray& value, QByteArrayList& list) {
    qsizetype from = 0;
    while (list.size() < MaximumCharsets) {
        const qsizetype start = value.indexOf("=?", from);
        if (start < 0)
            return;
        const qsizetype end = value.indexOf('?', start + 2);
        if (end < 0)
            return;
        QByteArray name = value.mid(start + 2, end - start - 2);
        const qsizetype language = name.indexOf('*');
        if (language >= 0)
            name.truncate(language);
        addCharset(list, name);
        from = end + 1;
    }
}

bool isEncodedWordStart(const char* raw) {
    return raw != nullptr && std::strstr(raw, "=?") != nullptr;
}

QString addressText(const mailimap_address* address, const QByteArrayList& charsets) {
    if (address == nullptr)
        return QString();
    QString name = MessageHeaders::decodeHeader(address->ad_personal_name, charsets).trimmed();
    if (!name.isEmpty())
        return name;
    // A group's start (no host) names the group; its end (no mailbox either) names nothing.
    QString mailbox = MessageHeaders::rawText(
                          QByteArray(address->ad_mailbox_name ? address->ad_mailbox_name : ""), charsets)
                          .trimmed();
    const QString host =
        MessageHeaders::rawText(QByteArray(address->ad_host_name ? address->ad_host_name : ""), charsets)
            .trimmed();
    if (host.isEmpty() || mailbox.isEmpty())
        return mailbox;
    return mailbox + QLatin1Char('@') + host;
}

// The first address of a list that names someone.
QString firstOf(const clist* list, const QByteArrayList& charsets) {
    if (list == nullptr)
        return QString();
    for (clistiter* it = clist_begin(list); it != nullptr; it = clist_next(it)) {
        QString text = addressText(static_cast<const mailimap_address*>(clist_content(it)), charsets);
        if (!text.isEmpty())
            return text;
    }
    return QString();
}

// The raw texts of an envelope that may hold encoded words, for the charsets they name.
QByteArrayList encodedTexts(const mailimap_envelope* env) {
    QByteArrayList values;
    if (env == nullptr)
        return values;
    if (isEncodedWordStart(env->env_subject))
        values << QByteArray(env->env_subject);
    for (const clist* list : {env->env_from ? env->env_from->frm_list : nullptr,
                              env->env_sender ? env->env_sender->snd_list : nullptr,
                              env->env_reply_to ? env->env_reply_to->rt_list : nullptr}) {
        if (list == nullptr)
            continue;
        for (clistiter* it = clist_begin(list); it != nullptr; it = clist_next(it)) {
            const auto* address = static_cast<const mailimap_address*>(clist_content(it));
            if (address != nullptr && isEncodedWordStart(address->ad_personal_name))
                values << QByteArray(address->ad_personal_name);
        }
    }
    return values;
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

QString mailboxAddress(const mailimf_mailbox* mailbox) {
    if (mailbox == nullptr || mailbox->mb_addr_spec == nullptr)
        return QString();
    return QString::fromUtf8(mailbox->mb_addr_spec).trimmed();
}

QString firstOfMailboxes(const mailimf_mailbox_list* list) {
    if (list == nullptr || list->mb_list == nullptr)
        return QString();
    for (clistiter* it = clist_begin(list->mb_list); it != nullptr; it = clist_next(it)) {
        QString address = mailboxAddress(static_cast<const mailimf_mailbox*>(clist_content(it)));
        if (!address.isEmpty())
            return address;
    }
    return QString();
}

QString firstOfAddresses(const mailimf_address_list* list) {
    if (list == nullptr || list->ad_list == nullptr)
        return QString();
    for (clistiter* it = clist_begin(list->ad_list); it != nullptr; it = clist_next(it)) {
        const auto* address = static_cast<const mailimf_address*>(clist_content(it));
        if (address == nullptr)
            continue;
        QString text = address->ad_type == MAILIMF_ADDRESS_MAILBOX
                           ? mailboxAddress(address->ad_data.ad_mailbox)
                           : (address->ad_type == MAILIMF_ADDRESS_GROUP && address->ad_data.ad_group
                                  ? firstOfMailboxes(address->ad_data.ad_group->grp_mb_list)
                                  : QString());
        if (!text.isEmpty())
            return text;
    }
    return QString();
}

bool isXmlForbidden(char16_t c) {
    return (c < 0x20 && c != 0x09 && c != 0x0a && c != 0x0d) || c == 0xfffe || c == 0xffff;
}

} // namespace

mailimap_fetch_type* MessageHeaders::fetchType() {
    mailimap_fetch_type* type = mailimap_fetch_type_new_fetch_att_list_empty();
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_uid());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_flags());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_internaldate());
    mailimap_fetch_type_new_fetch_att_list_add(type, mailimap_fetch_att_new_envelope());
    clist* names = clist_new();
    clist_append(names, ::strdup("CONTENT-TYPE"));
    mailimap_fetch_type_new_fetch_att_list_add(
        type, mailimap_fetch_att_new_body_peek_section(
                  mailimap_section_new_header_fields(mailimap_header_list_new(names))));
    return type;
}

bool MessageHeaders::readMessage(const mailimap_msg_att* att, ImapSession::Envelope& envelope) {
    if (att == nullptr || att->att_list == nullptr)
        return false;
    const mailimap_envelope* env = nullptr;
    QByteArray header;
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
            if (field->att_data.att_env != nullptr)
                env = field->att_data.att_env;
            break;
        case MAILIMAP_MSG_ATT_BODY_SECTION:
            // Only the Content-Type header is asked for; the first answer is taken.
            if (header.isNull() && field->att_data.att_body_section != nullptr &&
                field->att_data.att_body_section->sec_body_part != nullptr)
                header = QByteArray(field->att_data.att_body_section->sec_body_part,
                                    static_cast<qsizetype>(field->att_data.att_body_section->sec_length));
            break;
        default:
            break;
        }
    }
    if (env == nullptr || envelope.uid == 0)
        return false;
    // The envelope is read once everything has arrived: the header that declares the charset may
    // come after it in the answer.
    const QByteArrayList charsets = declaredCharsets(header, encodedTexts(env));
    if (env->env_subject != nullptr)
        envelope.subject = decodeHeader(env->env_subject, charsets);
    envelope.from = senderText(env, charsets);
    if (env->env_message_id != nullptr)
        envelope.messageId = QString::fromUtf8(env->env_message_id);
    envelope.date = parseDate(env->env_date);
    return true;
}

QString MessageHeaders::senderText(const mailimap_envelope* env, const QByteArrayList& charsets) {
    if (env != nullptr) {
        // Most messages have a From; a few (mailing-list software, some automatic senders) name
        // only a Sender or a Reply-To, and the server's envelope carries both.
        for (const clist* list : {env->env_from ? env->env_from->frm_list : nullptr,
                                  env->env_sender ? env->env_sender->snd_list : nullptr,
                                  env->env_reply_to ? env->env_reply_to->rt_list : nullptr}) {
            QString text = firstOf(list, charsets);
            if (!text.isEmpty())
                return text;
        }
    }
    return noSender();
}

QString MessageHeaders::noSender() {
    return Localization::text(QStringLiteral("(no sender)"));
}

QString MessageHeaders::rawText(const QByteArray& bytes, const QByteArrayList& charsets) {
    if (isValidUtf8(bytes))
        return QString::fromUtf8(bytes);
    for (const QByteArray& charset : charsets) {
        if (!keepsAscii(charset))
            continue;
        if (std::optional<QString> text = convert(bytes, charset))
            return *text;
    }
    // What most mailers without a declaration meant; five of its bytes are undefined, and Latin-1
    // reads those too.
    if (std::optional<QString> text = convert(bytes, "windows-1252"))
        return *text;
    return QString::fromLatin1(bytes);
}

QString MessageHeaders::decodeHeader(const char* raw, const QByteArrayList& charsets) {
    if (raw == nullptr)
        return QString();
    // Bare 8-bit text is made UTF-8 first; encoded words are ASCII and come through unchanged.
    const QByteArray utf8 = rawText(QByteArray(raw), charsets).toUtf8();
    size_t index = 0;
    char* decoded = nullptr;
    const int result = mailmime_encoded_phrase_parse(
        "utf-8", utf8.constData(), static_cast<size_t>(utf8.size()), &index, "utf-8", &decoded);
    if (result != MAILIMF_NO_ERROR || decoded == nullptr) {
        free(decoded);
        return QString::fromUtf8(utf8);
    }
    QString text = QString::fromUtf8(decoded);
    free(decoded);
    return text;
}

QByteArrayList MessageHeaders::declaredCharsets(const QByteArray& header, const QByteArrayList& values) {
    QByteArrayList charsets;
    size_t index = 0;
    mailimf_fields* parsed = nullptr;
    if (!header.isEmpty() &&
        mailimf_fields_parse(header.constData(), static_cast<size_t>(header.size()), &index, &parsed) ==
            MAILIMF_NO_ERROR &&
        parsed != nullptr) {
        const std::unique_ptr<mailimf_fields, FreeFields> fields(parsed);
        for (clistiter* it = clist_begin(fields->fld_list); it != nullptr; it = clist_next(it)) {
            const auto* field = static_cast<const mailimf_field*>(clist_content(it));
            if (field == nullptr || field->fld_type != MAILIMF_FIELD_OPTIONAL_FIELD ||
                field->fld_data.fld_optional_field == nullptr ||
                field->fld_data.fld_optional_field->fld_name == nullptr ||
                field->fld_data.fld_optional_field->fld_value == nullptr ||
                ::strcasecmp(field->fld_data.fld_optional_field->fld_name, "Content-Type") != 0)
                continue;
            const char* value = field->fld_data.fld_optional_field->fld_value;
            size_t at = 0;
            mailmime_content* content = nullptr;
            if (mailmime_content_parse(value, std::strlen(value), &at, &content) != MAILIMF_NO_ERROR ||
                content == nullptr)
                continue;
            const std::unique_ptr<mailmime_content, FreeContent> owned(content);
            char name[] = "charset";
            if (const char* charset = mailmime_content_param_get(content, name))
                addCharset(charsets, QByteArray(charset));
            break;
        }
    }
    for (const QByteArray& value : values)
        encodedWordCharsets(value, charsets);
    return charsets;
}

QDateTime MessageHeaders::parseDate(const char* raw) {
    if (raw == nullptr)
        return QDateTime();
    size_t index = 0;
    mailimf_date_time* parsed = nullptr;
    if (mailimf_date_time_parse(raw, std::strlen(raw), &index, &parsed) != MAILIMF_NO_ERROR ||
        parsed == nullptr)
        return QDateTime();
    const std::unique_ptr<mailimf_date_time, FreeDate> date(parsed);
    return makeDateTime(date->dt_year, date->dt_month, date->dt_day, date->dt_hour, date->dt_min,
                        date->dt_sec, date->dt_zone);
}

ImapSession::ReplyHeaders MessageHeaders::parseReplyHeaders(const QByteArray& header) {
    ImapSession::ReplyHeaders headers;
    size_t index = 0;
    mailimf_fields* parsed = nullptr;
    if (mailimf_fields_parse(header.constData(), static_cast<size_t>(header.size()), &index, &parsed) !=
            MAILIMF_NO_ERROR ||
        parsed == nullptr)
        return headers;
    const std::unique_ptr<mailimf_fields, FreeFields> fields(parsed);
    QString from;
    QString replyTo;
    QByteArray rawSubject;
    bool haveSubject = false;
    for (clistiter* it = clist_begin(fields->fld_list); it != nullptr; it = clist_next(it)) {
        const auto* field = static_cast<const mailimf_field*>(clist_content(it));
        if (field == nullptr)
            continue;
        switch (field->fld_type) {
        case MAILIMF_FIELD_FROM:
            if (from.isEmpty() && field->fld_data.fld_from != nullptr)
                from = firstOfMailboxes(field->fld_data.fld_from->frm_mb_list);
            break;
        case MAILIMF_FIELD_REPLY_TO:
            if (replyTo.isEmpty() && field->fld_data.fld_reply_to != nullptr)
                replyTo = firstOfAddresses(field->fld_data.fld_reply_to->rt_addr_list);
            break;
        case MAILIMF_FIELD_SUBJECT:
            if (!haveSubject && field->fld_data.fld_subject != nullptr &&
                field->fld_data.fld_subject->sbj_value != nullptr) {
                // A long subject comes folded over lines; the line breaks are not part of it.
                rawSubject = QByteArray(field->fld_data.fld_subject->sbj_value);
                rawSubject.replace("\r\n", "").replace('\n', "").replace('\r', "");
                haveSubject = true;
            }
            break;
        case MAILIMF_FIELD_MESSAGE_ID:
            if (headers.messageId.isEmpty() && field->fld_data.fld_message_id != nullptr &&
                field->fld_data.fld_message_id->mid_value != nullptr)
                headers.messageId = QString::fromUtf8(field->fld_data.fld_message_id->mid_value).trimmed();
            break;
        case MAILIMF_FIELD_REFERENCES:
            if (headers.references.isEmpty() && field->fld_data.fld_references != nullptr &&
                field->fld_data.fld_references->mid_list != nullptr) {
                for (clistiter* r = clist_begin(field->fld_data.fld_references->mid_list); r != nullptr;
                     r = clist_next(r)) {
                    if (const auto* id = static_cast<const char*>(clist_content(r)))
                        headers.references << QString::fromUtf8(id).trimmed();
                }
            }
            break;
        default:
            break;
        }
    }
    // Decoded once the whole header is read: its Content-Type may come after the Subject.
    if (haveSubject)
        headers.subject =
            decodeHeader(rawSubject.constData(), declaredCharsets(header, {rawSubject})).trimmed();
    headers.replyAddress = replyTo.isEmpty() ? from : replyTo;
    return headers;
}

bool MessageHeaders::isXmlSafe(QStringView text) {
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (isXmlForbidden(c))
            return false;
        if (QChar::isHighSurrogate(c)) {
            if (i + 1 >= text.size() || !QChar::isLowSurrogate(text[i + 1].unicode()))
                return false;
            ++i;
        } else if (QChar::isLowSurrogate(c)) {
            return false;
        }
    }
    return true;
}

QString MessageHeaders::xmlSafe(const QString& text) {
    if (isXmlSafe(text))
        return text;
    QString safe;
    safe.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() &&
            QChar::isLowSurrogate(text[i + 1].unicode())) {
            safe.append(text[i]);
            safe.append(text[i + 1]);
            ++i;
        } else if (isXmlForbidden(c) || QChar::isSurrogate(c)) {
            safe.append(QChar::ReplacementCharacter);
        } else {
            safe.append(text[i]);
        }
    }
    return safe;
}

} // namespace corvina
