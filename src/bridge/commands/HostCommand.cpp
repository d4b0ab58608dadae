#include "HostCommand.h"

#include "model/CommandURL.h"
#include "model/ExtensionMessage.h"
#include "requestutils/RequestUtils.h"
#include "requestutils/Url.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace corvina {

namespace {

// A folder kind as the widget writes a number: decimal, maybe with a fraction or an exponent.
bool isDecimalNumber(const QString& text) {
    static const QRegularExpression number(QStringLiteral("^-?[0-9]+(\\.[0-9]+)?([eE][-+]?[0-9]+)?$"));
    return number.match(text).hasMatch();
}

// Recipients as the compose URL carries them: each address followed by ";".
QStringList splitRecipients(const QString& text) {
    QStringList out;
    for (const QString& part : text.split(u';')) {
        const QString address = part.trimmed();
        if (!address.isEmpty())
            out << address;
    }
    return out;
}

QString shortenedForLog(const QString& text) {
    constexpr qsizetype Shown = 80;
    return text.size() <= Shown ? text : text.left(Shown) + QStringLiteral("...");
}

} // namespace

QString HostCommand::account() const {
    return m_kind == Kind::Compose ? m_draft.account : m_account;
}

bool HostCommand::changesServer() const {
    return m_kind == Kind::Open || m_kind == Kind::Archive || m_kind == Kind::Delete;
}

std::optional<HostCommand> HostCommand::parse(const QString& url, QString* error) {
    auto refuse = [error](const QString& why) -> std::optional<HostCommand> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    if (error)
        error->clear();
    if (url.size() > MaximumUrlLength)
        return refuse(QStringLiteral("command URL of %1 characters is longer than %2")
                          .arg(url.size())
                          .arg(MaximumUrlLength));
    const std::optional<Url> parsed = Url::URLWithString(url);
    if (!parsed)
        return refuse(QStringLiteral("not a URL: %1").arg(shortenedForLog(url)));
    if (parsed->scheme().compare(CommandURL::scheme, Qt::CaseInsensitive) != 0)
        return refuse((QStringLiteral("not a ") + CommandURL::scheme + QStringLiteral(": URL: %1"))
                          .arg(shortenedForLog(url)));
    if (!url.mid(CommandURL::scheme.size()).startsWith(QLatin1String("://")))
        return refuse(QStringLiteral("no command where the host stands in %1").arg(shortenedForLog(url)));
    // The command stands where a host would, alone: no user, password, port or path beside it.
    if (!parsed->user().isEmpty() || !parsed->password().isNull() || !parsed->port().isNull() ||
        !parsed->path().isEmpty() || !parsed->parameterString().isNull())
        return refuse(
            QStringLiteral("more than a command where the host stands in %1").arg(shortenedForLog(url)));
    const QString name = parsed->host();
    const std::optional<Kind> kind = commandKindNamed(name);
    if (!kind)
        return refuse(QStringLiteral("unknown command \"%1\"").arg(shortenedForLog(name)));
    if (*kind == Kind::Message || *kind == Kind::Send)
        return refuse(QStringLiteral("%1 is not carried out by the bridge").arg(name));

    HostCommand command;
    command.m_kind = *kind;
    if (*kind == Kind::Compose) {
        if (!parsed->fragment().isNull())
            return refuse(QStringLiteral("compose URL with a fragment"));
        const ExtensionMessagePtr message = ExtensionMessage::ExtensionMessageWithUrl(*parsed);
        MailDraft& draft = command.m_draft;
        draft.to = splitRecipients(message->toString());
        draft.cc = splitRecipients(message->ccString());
        draft.bcc = splitRecipients(message->bccString());
        draft.subject = message->subject();
        draft.account = message->account();
        // A mail client takes a plain body from a mailto: URL; an HTML-only draft keeps its text.
        const QString plain = message->plainBody();
        draft.body = plain.isEmpty() ? plainTextFromHtml(message->htmlBody()) : plain;
        QStringList dropped;
        const MutableList<QVariant> attachments = message->attachments();
        for (const QVariant& element : attachments ? QList<QVariant>(*attachments) : QList<QVariant>()) {
            const QString path = element.toString();
            const QFileInfo info(path);
            if (!path.isEmpty() && info.isAbsolute() && info.isFile())
                draft.attachments << path;
            else
                dropped << shortenedForLog(path);
        }
        if (!dropped.isEmpty())
            command.m_note =
                QStringLiteral("compose: left out %1 attachment(s) that are no absolute path of a "
                               "file: %2")
                    .arg(dropped.size())
                    .arg(dropped.join(QStringLiteral(", ")));
        return command;
    }

    // The query is read by the widget's own rule: the account (encoded) first, the id raw up to the
    // LAST "&folderstandardid=", the folder kind after it. An id may hold "&", "=", "#" and even
    // "&folderstandardid=", so the query is not split on "&", and it runs to the end of the text
    // (a "#" in an id is part of the id, not a fragment).
    const QString mailKey = CommandURL::mailKey + u'=';
    const QString idKey = QStringLiteral("&") + CommandURL::messageIdKey + u'=';
    const QString folderKey = QStringLiteral("&") + CommandURL::folderStandardIdKey + u'=';
    const QString& nullText = CommandURL::nullField;
    const qsizetype question = url.indexOf(u'?');
    if (question < 0)
        return refuse(QStringLiteral("%1 without mail, messageid and folderstandardid").arg(name));
    const QString query = url.mid(question + 1);
    const qsizetype idAt = query.indexOf(idKey);
    const qsizetype folderAt = query.lastIndexOf(folderKey);
    if (!query.startsWith(mailKey) || idAt < 0 || folderAt < idAt + idKey.size())
        return refuse(
            QStringLiteral("%1: the query is not mail=...&messageid=...&folderstandardid=...").arg(name));
    const QString encodedMail = query.mid(mailKey.size(), idAt - mailKey.size());
    const QString mail = RequestUtils::URLDecodedString(encodedMail, false);
    if (mail.isNull())
        return refuse(QStringLiteral("%1: mail is not percent-encoded UTF-8: %2")
                          .arg(name, shortenedForLog(encodedMail)));
    if (mail.isEmpty() || encodedMail == nullText)
        return refuse(QStringLiteral("%1: no mail (the account of the message)").arg(name));
    const QString id = query.mid(idAt + idKey.size(), folderAt - idAt - idKey.size());
    if (id.isEmpty() || id == nullText)
        return refuse(QStringLiteral("%1: no messageid").arg(name));
    const QString folder = query.mid(folderAt + folderKey.size());
    if (folder != nullText && !isDecimalNumber(folder))
        return refuse(
            QStringLiteral("%1: folderstandardid is not a number: %2").arg(name, shortenedForLog(folder)));
    command.m_account = mail;
    command.m_messageId = id;
    command.m_folderStandardId = folder == nullText ? QString() : folder;
    return command;
}

QString HostCommand::plainTextFromHtml(const QString& html) {
    static const QStringList blockTags{
        QStringLiteral("p"),   QStringLiteral("div"), QStringLiteral("li"),         QStringLiteral("tr"),
        QStringLiteral("h1"),  QStringLiteral("h2"),  QStringLiteral("h3"),         QStringLiteral("h4"),
        QStringLiteral("h5"),  QStringLiteral("h6"),  QStringLiteral("blockquote"), QStringLiteral("pre"),
        QStringLiteral("ul"),  QStringLiteral("ol"),  QStringLiteral("table"),      QStringLiteral("hr"),
        QStringLiteral("body")};
    static const QHash<QString, QString> named{
        {QStringLiteral("amp"), QStringLiteral("&")},  {QStringLiteral("lt"), QStringLiteral("<")},
        {QStringLiteral("gt"), QStringLiteral(">")},   {QStringLiteral("quot"), QStringLiteral("\"")},
        {QStringLiteral("apos"), QStringLiteral("'")}, {QStringLiteral("nbsp"), QStringLiteral(" ")}};
    QString out;
    auto newline = [&out] {
        while (out.endsWith(u' '))
            out.chop(1);
        out += u'\n';
    };
    qsizetype i = 0;
    const qsizetype n = html.size();
    while (i < n) {
        const QChar c = html.at(i);
        if (c == u'<') {
            const qsizetype end = html.indexOf(u'>', i);
            if (end < 0)
                break; // an unfinished tag: the rest is no text
            QString tag = html.mid(i + 1, end - i - 1).trimmed().toLower();
            const bool closing = tag.startsWith(u'/');
            if (closing)
                tag = tag.mid(1);
            const QString tagName = tag.section(QRegularExpression(QStringLiteral("[\\s/]")), 0, 0);
            i = end + 1;
            if (!closing && (tagName == QLatin1String("script") || tagName == QLatin1String("style"))) {
                const qsizetype close = html.indexOf(QStringLiteral("</") + tagName, i, Qt::CaseInsensitive);
                if (close < 0)
                    break;
                const qsizetype closeEnd = html.indexOf(u'>', close);
                i = closeEnd < 0 ? n : closeEnd + 1;
            } else if (tagName == QLatin1String("br") ||
                       (blockTags.contains(tagName) && !out.isEmpty() && !out.endsWith(u'\n'))) {
                newline();
            }
            continue;
        }
        if (c == u'&') {
            const qsizetype semicolon = html.indexOf(u';', i);
            if (semicolon > i && semicolon - i <= 10) {
                const QString entity = html.mid(i + 1, semicolon - i - 1);
                QString text;
                if (entity.startsWith(u'#')) {
                    bool ok = false;
                    const uint code = entity.startsWith(QLatin1String("#x"), Qt::CaseInsensitive)
                                          ? entity.mid(2).toUInt(&ok, 16)
                                          : entity.mid(1).toUInt(&ok, 10);
                    if (ok && code > 0 && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF)) {
                        const char32_t ch = code;
                        text = QString::fromUcs4(&ch, 1);
                    }
                } else {
                    text = named.value(entity);
                }
                if (!text.isEmpty()) {
                    out += text;
                    i = semicolon + 1;
                    continue;
                }
            }
            out += c;
            ++i;
            continue;
        }
        if (c.isSpace()) {
            // as a browser shows it: a run of blanks and line breaks is one space
            if (!out.isEmpty() && !out.endsWith(u' ') && !out.endsWith(u'\n'))
                out += u' ';
            ++i;
            continue;
        }
        out += c;
        ++i;
    }
    static const QRegularExpression manyBreaks(QStringLiteral("\n{3,}"));
    out.replace(manyBreaks, QStringLiteral("\n\n"));
    return out.trimmed();
}

} // namespace corvina
